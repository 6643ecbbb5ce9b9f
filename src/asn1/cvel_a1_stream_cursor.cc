#include "asn1/cvel_a1_stream_cursor.h"

#include "asn1/cvel_a1_header.h"
#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_string.h"

namespace {

// The identifier is always one octet here, and end-of-contents is the pair 00 00.
constexpr CvelA1HeaderRules kStreamRules = {.highTagNumbers = false, .endOfContentsPair = true};
// One identifier octet, the first length octet and up to four more.
constexpr uint32_t kStreamMaxHeader = 6;

}  // namespace

CvelResult CvelA1StreamCursor::next(CvelA1Input& in) {
  moreFollows_ = false;
  indefinite_ = false;
  if (limit_ == 0 || in.size() < limit_) limit_ = in.size();
  tag_ = kNoTag;
  if (position_ >= limit_) return kCvelErrEndOfData;

  // The header is read in one piece; bytes of it past the end of the source simply do not arrive.
  unsigned char window[kStreamMaxHeader];
  uint32_t got = 0;
  if (in.seek(position_, CvelA1Input::kFromStart) != kCvelOk || in.read(window, sizeof window, &got) != kCvelOk ||
      got == 0 || got > sizeof window) {
    return kNothingRead;
  }
  CvelA1Header h;
  if (cvelA1DecodeHeader(window, got, kStreamRules, h) != CvelA1HeaderStatus::kOk) return kCvelErrMalformed;
  const uint64_t header = h.headerLength;
  uint64_t length = h.length;
  if (h.indefinite) {
    // Here an indefinite length runs to the limit.
    indefinite_ = true;
    length = limit_ - position_ >= 2 ? limit_ - position_ - 2 : 0;
  }

  uint64_t end = position_ + header + length;
  if (end < limit_) moreFollows_ = true;
  if (!lenient_ && end > limit_) return kCvelErrMalformed;
  contentOffset_ = static_cast<uint32_t>(position_ + header);
  contentLength_ = static_cast<uint32_t>(length);
  headerLength_ = static_cast<uint32_t>(header);
  position_ = end > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(end);
  tag_ = h.tag;
  return kCvelOk;
}

CvelResult CvelA1StreamCursor::descend(CvelA1Input& in) {
  if (position_ == start_ && headerLength_ != 0)
    position_ = start_ + headerLength_;
  else
    position_ = contentOffset_;
  return next(in);
}

CvelResult CvelA1StreamCursor::copyRange(CvelA1Input& in, uint32_t offset, uint32_t count, CvelString& out) const {
  if (offset > in.size() || in.seek(offset, CvelA1Input::kFromStart) != kCvelOk) return kCvelErrMalformed;
  // A leniently read element may claim more than the source holds: never allocate beyond the source.
  uint32_t available = in.size() - offset;
  if (count > available) count = available;
  if (out.allocate(count) != kCvelOk) return kCvelErrMalformed;
  uint32_t got = 0;
  if (count != 0 && (in.read(out.data(), count, &got) != kCvelOk)) return kCvelErrMalformed;
  out.truncate(got);
  return kCvelOk;
}

CvelResult CvelA1StreamCursor::getContent(CvelA1Input& in, CvelString& out) const {
  return copyRange(in, contentOffset_, contentLength_, out);
}

CvelResult CvelA1StreamCursor::getElement(CvelA1Input& in, CvelString& out) const {
  if (contentOffset_ < headerLength_) return kCvelErrMalformed;
  uint64_t count = static_cast<uint64_t>(headerLength_) + contentLength_;
  return copyRange(in, contentOffset_ - headerLength_, count > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(count),
                   out);
}

CvelResult CvelA1StreamCursor::reset(CvelA1Input& in) {
  uint32_t at = 0;
  CvelResult r = in.tell(&at);
  if (r != kCvelOk) return r;
  start_ = position_ = at;
  return kCvelOk;
}
