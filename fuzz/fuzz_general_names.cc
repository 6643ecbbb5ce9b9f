// GeneralNames decoding, lookups by tag, and matching of every decoded name against every other; the whole
// input is also decoded as a single GeneralName.
#include "x509/cvel_general_name.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString der;
  if (!fuzzView(data, size, der)) return 0;
  CvelGeneralNames names;
  names.parse(der);
  for (uint32_t i = 0; i < names.size(); ++i) {
    CvelGeneralName* a = nullptr;
    CvelGeneralName* b = nullptr;
    if (names.get(i, a) != kCvelOk) continue;
    names.findByTag(a->tag(), &b, 1);
    for (uint32_t j = 0; j < names.size(); ++j)
      if (names.get(j, b) == kCvelOk) a->matches(*b);
  }
  CvelGeneralName single;
  single.encoded().assign(data, static_cast<uint32_t>(size));
  single.parse();
  single.matches(single);
  return 0;
}
