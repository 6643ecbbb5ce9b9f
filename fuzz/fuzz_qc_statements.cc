// Qualified-certificate statements from an extension value (the OCTET STRING element).
#include <cstddef>
#include <cstdint>

#include "asn1/cvel_oid.h"
#include "x509/cvel_certificate_qc_statement.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 16)) return 0;  // larger inputs only slow the run down
  CvelString value;
  value.setView(data, size);
  CvelCertificateQcStatements statements;
  statements.decode(value);
  CvelCertificateQcStatement* found = nullptr;
  statements.countById(kOidQcCompliance, &found, 0);
  return 0;
}
