// Extension lists: an Extensions SEQUENCE, and the same bytes read as a bare run of records (the attribute
// form), then the lookups.
#include "asn1/cvel_oid.h"
#include "x509/cvel_certificate_extension.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString der;
  if (!fuzzView(data, size, der)) return 0;
  CvelCertificateExtensions list, run;
  static_cast<void>(list.decode(der));
  CvelCertificateExtension* found = nullptr;
  list.countById(kOidKeyUsage, &found, 1);
  CvelA1Context fresh;
  static_cast<void>(run.decodeRecords(der, fresh));
  for (uint32_t i = 0; i < run.size(); ++i) {
    CvelCertificateExtension* e = nullptr;
    uint32_t count = 0;
    if (run.get(i, e) != kCvelOk) continue;
    static_cast<void>(list.countByOid(e->oid(), &count));
    static_cast<void>(list.findByOid(e->oid(), i, &found));
  }
  return 0;
}
