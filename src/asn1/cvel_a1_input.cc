#include "asn1/cvel_a1_input.h"

#include <cstring>

CvelA1InputString::CvelA1InputString(const CvelString& source, uint32_t start, uint32_t maxLength)
    : data_(source.data()), size_(source.length() < maxLength ? source.length() : maxLength), position_(start) {}

CvelResult CvelA1InputString::seek(int64_t offset, int whence) {
  switch (whence) {
    case kFromStart:
      if (offset < 0 || offset > size_) {
        // The position is still taken, so that hasMore reports the source as used up.
        position_ = offset < 0 ? size_ : (offset > 0xFFFFFFFFll ? 0xFFFFFFFFu : static_cast<uint32_t>(offset));
        return kCvelErrBadParameter;
      }
      position_ = static_cast<uint32_t>(offset);
      return kCvelOk;
    case kFromCurrent: {
      int64_t target = static_cast<int64_t>(position_) + offset;
      if (target < 0) {
        position_ = 0;
        return kCvelErrBadParameter;
      }
      if (target > size_) {
        position_ = size_;
        return kCvelErrBadParameter;
      }
      position_ = static_cast<uint32_t>(target);
      return kCvelOk;
    }
    case kFromEnd:
      position_ = size_;
      return offset == 0 ? kCvelOk : kCvelErrBadParameter;
    default:
      return kCvelErrBadParameter;
  }
}

CvelResult CvelA1InputString::tell(uint32_t* position) const {
  if (!hasMore()) return kCvelErrMalformed;
  if (position != nullptr) *position = position_;
  return kCvelOk;
}

CvelResult CvelA1InputString::read(void* buffer, uint32_t count, uint32_t* got) {
  if (buffer == nullptr) return kCvelErrBadParameter;
  uint32_t available = position_ < size_ ? size_ - position_ : 0;
  uint32_t n = count < available ? count : available;
  if (n != 0) std::memcpy(buffer, data_ + position_, n);
  position_ += n;
  if (got != nullptr) *got = n;
  return kCvelOk;
}
