#include "asn1/cvel_a1_header.h"

#include "asn1/cvel_der.h"

namespace {

// Identifier octets are gathered while this bound is not reached: at most four of them.
constexpr uint32_t kTagGatherBound = 0x1000000u;
// Identifier values read as a one-byte element without length octets.
constexpr uint32_t kTagSingleByte = 0xFF;
constexpr uint32_t kTagNone = 0xFFFFFFFFu;
// Long-form length octets accepted; a longer count is read as a short length.
constexpr uint8_t kMaxLengthOctets = 4;

}  // namespace

CvelA1HeaderStatus cvelA1DecodeHeader(const unsigned char* p, uint32_t available, CvelA1HeaderRules rules,
                                      CvelA1Header& out) {
  out = CvelA1Header();
  if (available == 0) return CvelA1HeaderStatus::kTruncated;
  uint32_t header = 1;
  uint32_t t = p[0];
  if (rules.highTagNumbers && (t & kTagHighNumberMask) == kTagHighNumberMask) {
    uint8_t b = 0;
    do {
      if (header >= available) return CvelA1HeaderStatus::kTruncated;
      b = p[header];
      t = t << 8 | b;
      ++header;
    } while ((b & 0x80) != 0 && t < kTagGatherBound);
  }
  out.tag = t;

  if (t == kTagSingleByte || (t == kTagEndOfContents && !rules.endOfContentsPair)) {
    out.headerLength = header;  // a lone byte; an end-of-contents pair then reads as two such elements
    return CvelA1HeaderStatus::kOk;
  }
  if (t == kTagEndOfContents) {
    if (available < 2) return CvelA1HeaderStatus::kTruncated;
    if (p[1] != 0) return CvelA1HeaderStatus::kBadEndOfContents;
    out.headerLength = 2;
    return CvelA1HeaderStatus::kOk;
  }
  if (t == kTagNone) return CvelA1HeaderStatus::kNoTag;

  if (header >= available) return CvelA1HeaderStatus::kTruncated;
  const uint8_t first = p[header++];
  const uint8_t count = first & 0x7F;
  if (first > kLengthLongForm && count <= kMaxLengthOctets) {
    if (header + count > available) return CvelA1HeaderStatus::kTruncated;
    for (uint8_t i = 0; i < count; ++i) out.length = out.length << 8 | p[header + i];
    header += count;
  } else if (first == kLengthIndefinite) {
    out.indefinite = true;
  } else {
    out.length = first;  // including 0x85 to 0xFF, read as a short length
  }
  out.headerLength = header;
  return CvelA1HeaderStatus::kOk;
}
