// Certificate policies from an extension value (the OCTET STRING element).
#include "x509/cvel_certificate_policy.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString value;
  if (!fuzzView(data, size, value)) return 0;
  CvelCertificatePolicies policies;
  policies.decode(value);
  for (uint32_t i = 0; i < policies.size(); ++i) {
    CvelCertificatePolicy* p = nullptr;
    if (policies.get(i, p) == kCvelOk) static_cast<void>(p->split());
  }
  return 0;
}
