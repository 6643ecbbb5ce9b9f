#include "inspect/ber_element.h"

#include <cstdint>
#include <limits>

#include "asn1/cvel_a1_header.h"

namespace {

constexpr unsigned char kConstructed = 0x20;
constexpr CvelA1HeaderRules kBerRules{true, true};

}  // namespace

size_t berElementLength(const unsigned char* p, size_t n) {
  if (n > std::numeric_limits<uint32_t>::max()) return 0;
  size_t at = 0;
  int open = 0;  // indefinite lengths entered and not yet closed
  do {
    CvelA1Header h;
    if (cvelA1DecodeHeader(p + at, static_cast<uint32_t>(n - at), kBerRules, h) != CvelA1HeaderStatus::kOk) {
      return 0;
    }
    const bool constructed = (p[at] & kConstructed) != 0;
    at += h.headerLength;
    if (h.indefinite) {
      if (!constructed || ++open > kMaxIndefiniteDepth) return 0;
      continue;
    }
    if (h.tag == 0 && h.length == 0) {  // end-of-contents
      if (open == 0) return 0;
      --open;
      continue;
    }
    if (h.length > n - at) return 0;
    at += static_cast<size_t>(h.length);
  } while (open > 0 && at < n);
  return open == 0 ? at : 0;
}
