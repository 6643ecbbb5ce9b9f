// Certificate parse of arbitrary bytes (DER, PEM or base64), then the operations that read the slices, and a
// copy, which parses again.
#include <cstddef>
#include <cstdint>

#include "x509/cvel_certificate.h"

namespace {
constexpr size_t kMaxInput = 1 << 20;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxInput) return 0;
  CvelCertificate certificate;
  const CvelResult parsed = certificate.parse(data, static_cast<uint32_t>(size));
  CvelString out;
  certificate.getIssuerSerial(out);
  certificate.getIssuer(out);
  bool critical = false;
  CvelString oid;
  oid.assign("\x06\x03\x55\x1D\x0F", 5);
  certificate.getExtension(oid, out, &critical, 0);
  CvelTime date;
  certificate.getGenerationDate(date, -1);
  if (parsed == kCvelOk) {
    CvelCertificate copy(certificate);
    copy = certificate;
  }
  return 0;
}
