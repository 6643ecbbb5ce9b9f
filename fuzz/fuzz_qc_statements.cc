// Qualified-certificate statements from an extension value (the OCTET STRING element).
#include "asn1/cvel_oid.h"
#include "x509/cvel_certificate_qc_statement.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString value;
  if (!fuzzView(data, size, value)) return 0;
  CvelCertificateQcStatements statements;
  statements.decode(value);
  CvelCertificateQcStatement* found = nullptr;
  statements.countById(kOidQcCompliance, &found, 0);
  return 0;
}
