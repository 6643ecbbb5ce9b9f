#include "asn1/cvel_a1_context.h"

#include "asn1/cvel_a1_header.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_string.h"

namespace {

constexpr CvelA1HeaderRules kMemoryRules = {.highTagNumbers = true, .endOfContentsPair = false};

}  // namespace

int32_t CvelA1Context::nextGeneral(const CvelString& s) {
  tag_ = kNoTag;
  const uint32_t size = s.length();
  if (limit_ == 0 || limit_ > size) limit_ = size;
  if (position_ >= limit_) return kEnd;
  CvelA1Header h;
  const unsigned char* p = s.data() + position_;
  switch (cvelA1DecodeHeader(p, size - position_, kMemoryRules, h)) {
    case CvelA1HeaderStatus::kNoTag:
      return kEnd;
    case CvelA1HeaderStatus::kTruncated:
    case CvelA1HeaderStatus::kBadEndOfContents:
      return kOverrun;  // a header cut off by the end of the string
    case CvelA1HeaderStatus::kOk:
      break;
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

