#include "asn1/cvel_a1_context.h"

#include "asn1/cvel_a1_header.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_string.h"

namespace {

constexpr CvelA1HeaderRules kMemoryRules = {.highTagNumbers = true, .endOfContentsPair = false};

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
  CvelA1Header h;
  const unsigned char* p = s.data() + position_;
  if (size - position_ >= 2 && p[0] != kTagEndOfContents && (p[0] & kTagHighNumberMask) != kTagHighNumberMask &&
      p[1] < kLengthLongForm) {
    // Nearly every element of a certificate: a one-octet tag and a short length, as the decoder below reads them.
    h.tag = p[0];
    h.headerLength = 2;
    h.length = p[1];
  } else {
    switch (cvelA1DecodeHeader(p, size - position_, kMemoryRules, h)) {
      case CvelA1HeaderStatus::kNoTag:
        return kEnd;
      case CvelA1HeaderStatus::kTruncated:
      case CvelA1HeaderStatus::kBadEndOfContents:
        return kOverrun;  // a header cut off by the end of the string
      case CvelA1HeaderStatus::kOk:
        break;
    }
  }
  const uint64_t header = h.headerLength;
  // An indefinite length takes the rest of the whole string, not of the limit.
  const uint64_t length = h.indefinite ? static_cast<uint64_t>(size) - position_ - 2 : h.length;

  uint64_t end = position_ + header + length;
  moreFollows_ = limit_ > end;
  if (!lenient_ && end > limit_) return kOverrun;
  contentOffset_ = static_cast<uint32_t>(position_ + header);
  contentLength_ = static_cast<uint32_t>(length);
  headerLength_ = static_cast<uint32_t>(header);
  position_ = end > kNoTag ? kNoTag : static_cast<uint32_t>(end);
  tag_ = h.tag;
  return static_cast<int32_t>(h.tag);
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

CvelResult CvelA1Context::takeElement(const CvelString& s, CvelString& out, CvelKeep keep) const {
  if (keep == CvelKeep::kCopy) return getElement(s, out);
  if (!elementInside(s)) return kCvelErrMalformed;
  return out.setView(s, contentOffset_ - headerLength_, headerLength_ + contentLength_);
}

CvelResult CvelA1Context::getContent(const CvelString& s, CvelString& out) const {
  if (!elementInside(s)) return kCvelErrMalformed;
  if (contentLength_ == 0) return out.assign(nullptr, 0);
  return out.assign(s.data() + contentOffset_, contentLength_);
}
