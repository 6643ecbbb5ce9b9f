// GeneralNames decoding, lookups by tag, and matching of decoded names against each other; the whole input
// is also decoded as a single GeneralName.
#include <algorithm>

#include "x509/cvel_general_name.h"
#include "fuzz_input.h"

// Lookups and pairwise matches are made among the first names only: over all of them they cost the square
// of the count, and a list of thousands of two-byte names slowed the run a hundredfold.
constexpr uint32_t kPaired = 64;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString der;
  if (!fuzzView(data, size, der)) return 0;
  CvelGeneralNames names;
  static_cast<void>(names.parse(der));
  const uint32_t paired = std::min(names.size(), kPaired);
  for (uint32_t i = 0; i < names.size(); ++i) {
    CvelGeneralName* a = nullptr;
    CvelGeneralName* b = nullptr;
    if (names.get(i, a) != kCvelOk) continue;
    a->matches(*a);
    if (i >= paired) continue;
    names.findByTag(a->tag(), &b, 1);
    for (uint32_t j = 0; j < paired; ++j)
      if (names.get(j, b) == kCvelOk) a->matches(*b);
  }
  CvelGeneralName single;
  static_cast<void>(single.encoded().assign(data, static_cast<uint32_t>(size)));
  static_cast<void>(single.parse());
  single.matches(single);
  return 0;
}
