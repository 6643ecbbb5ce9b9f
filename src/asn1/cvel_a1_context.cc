#include "asn1/cvel_a1_context.h"

#include "asn1/cvel_der.h"
#include "asn1/cvel_string.h"

namespace {

// Identifier octets are gathered while this bound is not reached: at most four of them.
constexpr uint32_t kTagGatherBound = 0x1000000u;
// Identifier values read as a one-byte element without length octets.
constexpr uint32_t kTagSingleByte = 0xFF;
constexpr uint32_t kTagNone = 0xFFFFFFFFu;
// Long-form length octets accepted by the reader; a longer count is read as a short length.
constexpr uint8_t kMaxLengthOctets = 4;

}  // namespace

CvelA1Context& CvelA1Context::operator=(const CvelA1Context& parent) {
  // Read before anything is written, so that assigning a cursor to itself follows the same rule: it then
  // covers its own current element, header included, and reads that element again.
  uint32_t staleHeader = headerLength_;
  limit_ = parent.position_;
  tag_ = parent.tag_;
  headerLength_ = parent.headerLength_;
  contentOffset_ = parent.contentOffset_;
  contentLength_ = parent.contentLength_;
  // Subtracting the destination's old header length is the cursor's established behaviour.
  start_ = parent.contentOffset_ - staleHeader;
  position_ = start_;
  return *this;
}

void CvelA1Context::copyState(const CvelA1Context& other) {
  start_ = other.start_;
  position_ = other.position_;
  limit_ = other.limit_;
  tag_ = other.tag_;
  headerLength_ = other.headerLength_;
  contentOffset_ = other.contentOffset_;
  contentLength_ = other.contentLength_;
  moreFollows_ = other.moreFollows_;
  lenient_ = other.lenient_;
}

int32_t CvelA1Context::next(const CvelString& s) {
  tag_ = kNoTag;
  const uint32_t size = s.length();
  if (limit_ == 0 || limit_ > size) limit_ = size;
  if (position_ >= limit_) return kEnd;
  const unsigned char* p = s.data();

  // Identifier octets; every read below is bounded by the string, a header cut off by its end is an overrun.
  uint64_t header = 1;
  uint32_t t = p[position_];
  if ((t & kTagHighNumberMask) == kTagHighNumberMask) {
    uint8_t b = 0;
    do {
      if (position_ + header >= size) return kOverrun;
      b = p[position_ + header];
      t = t << 8 | b;
      ++header;
    } while ((b & 0x80) != 0 && t < kTagGatherBound);
  }

  uint64_t length = 0;
  if (t == kTagSingleByte || t == kTagEndOfContents) {
    length = 0;  // a lone byte; an end-of-contents pair reads as two such elements
  } else if (t == kTagNone) {
    return kEnd;
  } else {
    if (position_ + header >= size) return kOverrun;
    uint8_t first = p[position_ + header];
    ++header;
    uint8_t count = first & 0x7F;
    if (first > kLengthLongForm && count <= kMaxLengthOctets) {
      if (position_ + header + count > size) return kOverrun;
      for (uint8_t i = 0; i < count; ++i) length = length << 8 | p[position_ + header + i];
      header += count;
    } else if (first == kLengthIndefinite) {
      // The rest of the whole string, not of the limit, is taken as the content.
      length = static_cast<uint64_t>(size) - position_ - 2;
    } else {
      length = first;  // including 0x85 to 0xFF, read as a short length
    }
  }

  uint64_t end = position_ + header + length;
  moreFollows_ = limit_ > end;
  if (!lenient_ && end > limit_) return kOverrun;
  contentOffset_ = static_cast<uint32_t>(position_ + header);
  contentLength_ = static_cast<uint32_t>(length);
  headerLength_ = static_cast<uint32_t>(header);
  position_ = end > kNoTag ? kNoTag : static_cast<uint32_t>(end);
  tag_ = t;
  return static_cast<int32_t>(t);
}

int32_t CvelA1Context::descend(const CvelString& s) {
  position_ = contentOffset_;
  return next(s);
}

void CvelA1Context::rewind() { position_ = start_; }

bool CvelA1Context::elementInside(const CvelString& s) const {
  return contentOffset_ >= headerLength_ &&
         static_cast<uint64_t>(contentOffset_) + contentLength_ <= static_cast<uint64_t>(s.length());
}

CvelResult CvelA1Context::getElement(const CvelString& s, CvelString& out) const {
  if (!elementInside(s)) return kCvelErrMalformed;
  uint32_t n = headerLength_ + contentLength_;
  if (n == 0) return out.assign(nullptr, 0);
  return out.assign(s.data() + (contentOffset_ - headerLength_), n);
}

CvelResult CvelA1Context::getContent(const CvelString& s, CvelString& out) const {
  if (!elementInside(s)) return kCvelErrMalformed;
  if (contentLength_ == 0) return out.assign(nullptr, 0);
  return out.assign(s.data() + contentOffset_, contentLength_);
}
