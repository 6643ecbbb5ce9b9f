// Certificate parse of arbitrary bytes (DER, PEM or base64), then the operations that read the slices, and a
// copy and an assignment, which parse again.
#include "x509/cvel_certificate.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;  // larger inputs only slow the run down
  CvelCertificate certificate;
  certificate.parse(data, static_cast<uint32_t>(size));
  CvelString out, oid;
  certificate.getIssuerSerial(out);
  certificate.getIssuer(out);
  bool critical = false;
  oid.assign("\x06\x03\x55\x1D\x0F", 5);
  certificate.getExtension(oid, out, &critical, 0);
  CvelTime date;
  certificate.getGenerationDate(date, -1);
  CvelCertificate copy(certificate);
  copy = certificate;
  return 0;
}
