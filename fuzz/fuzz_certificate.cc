// Certificate parse of arbitrary bytes (DER, PEM or base64), then the operations that read the slices, and a
// copy and an assignment, which parse again. The parse and the slice reads give the library's result codes.
#include "x509/cvel_certificate.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;  // larger inputs only slow the run down
  CvelCertificate certificate;
  CvelString out, oid;
  fuzzCheck(fuzzDocumented(certificate.parse(data, static_cast<uint32_t>(size))) &&
            fuzzDocumented(certificate.getIssuerSerial(out)) && fuzzDocumented(certificate.getIssuer(out)));
  bool critical = false;
  static_cast<void>(oid.assign("\x06\x03\x55\x1D\x0F", 5));
  static_cast<void>(certificate.getExtension(oid, out, &critical, 0));
  CvelTime date;
  static_cast<void>(certificate.getGenerationDate(date, -1));
  CvelCertificate copy(certificate);
  copy = certificate;
  return 0;
}
