#include "asn1/cvel_a1_stream_cursor.h"

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_string.h"

namespace {

constexpr uint8_t kMaxLengthOctets = 4;
constexpr uint32_t kTagSingleByte = 0xFF;

bool readByte(CvelA1Input& in, uint8_t& b) {
  uint32_t got = 0;
  return in.read(&b, 1, &got) == kCvelOk && got == 1;
}

}  // namespace

CvelResult CvelA1StreamCursor::next(CvelA1Input& in) {
  moreFollows_ = false;
  indefinite_ = false;
  if (limit_ == 0 || in.size() < limit_) limit_ = in.size();
  tag_ = kNoTag;
  if (position_ >= limit_) return kCvelErrEndOfData;

  uint8_t t = 0;
  if (in.seek(position_, CvelA1Input::kFromStart) != kCvelOk || !readByte(in, t)) return kNothingRead;

  uint64_t header = 1;
  uint64_t length = 0;
  if (t == kTagEndOfContents) {
    uint8_t second = 0;
    if (!readByte(in, second) || second != 0) return kCvelErrMalformed;
    header = 2;
  } else if (t != kTagSingleByte) {
    // High tag numbers are not recognised here: the identifier is always one octet.
    uint8_t first = 0;
    if (!readByte(in, first)) return kCvelErrMalformed;
    header = 2;
    uint8_t count = first & 0x7F;
    if (first > kLengthLongForm && count <= kMaxLengthOctets) {
      uint8_t octets[kMaxLengthOctets];
      uint32_t got = 0;
      if (in.read(octets, count, &got) != kCvelOk || got != count) return kCvelErrMalformed;
      for (uint8_t i = 0; i < count; ++i) length = length << 8 | octets[i];
      header += count;
    } else if (first == kLengthIndefinite) {
      indefinite_ = true;
      length = limit_ - position_ >= 2 ? limit_ - position_ - 2 : 0;
    } else {
      length = first;
    }
  }

  uint64_t end = position_ + header + length;
  if (end < limit_) moreFollows_ = true;
  if (!lenient_ && end > limit_) return kCvelErrMalformed;
  contentOffset_ = static_cast<uint32_t>(position_ + header);
  contentLength_ = static_cast<uint32_t>(length);
  headerLength_ = static_cast<uint32_t>(header);
  position_ = end > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(end);
  tag_ = t;
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
