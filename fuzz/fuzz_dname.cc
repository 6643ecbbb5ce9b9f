// Name decoding: a distinguished name, and the issuer and subject forms built on it; each decoded name is
// compared with itself.
#include "x509/cvel_certificate_names.h"
#include "x509/cvel_dname.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString der;
  if (!fuzzView(data, size, der)) return 0;
  CvelDName name;
  static_cast<void>(name.parse(der));
  name.equals(name);
  CvelString out;
  static_cast<void>(name.encode(out));
  CvelCertificateIssuer issuer;
  static_cast<void>(issuer.parse(der));
  static_cast<void>(issuer.getEncoded(out));
  CvelCertificateSubject subject;
  static_cast<void>(subject.parse(der));
  subject.dname().equals(name);
  return 0;
}
