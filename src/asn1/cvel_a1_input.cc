#include "asn1/cvel_a1_input.h"

#include <cstring>
#include <new>

#include "asn1/cvel_data_stream.h"

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

CvelA1InputFile::CvelA1InputFile(const char* path) {
  CvelDataStream* file = new (std::nothrow) CvelDataStream();
  if (file == nullptr) return;
  if (file->open(path, CvelDataStream::kRead) != kCvelOk) {
    delete file;
    if (path != nullptr && name_.assign(path) != kCvelOk) name_.release();
    return;
  }
  attach(file, path, true);
}

CvelA1InputFile::CvelA1InputFile(CvelDataStream* file) { attach(file, nullptr, true); }

CvelA1InputFile::~CvelA1InputFile() { attach(nullptr, nullptr, false); }

void CvelA1InputFile::attach(CvelDataStream* file, const char* path, bool owns) {
  if (file_ != nullptr) {
    // The stream was only read: a failing close leaves nothing unwritten.
    static_cast<void>(file_->close());
    if (owns_) delete file_;
  }
  file_ = file;
  owns_ = owns;
  if (path == nullptr || name_.assign(path) != kCvelOk) name_.release();
  takeSize();
}

void CvelA1InputFile::takeSize() {
  size_ = 0;
  if (file_ == nullptr || file_->size(&size_) == kCvelOk) return;
  // A stream whose size cannot be read is not kept.
  size_ = 0;
  if (owns_) delete file_;
  file_ = nullptr;
}

CvelDataStream* CvelA1InputFile::detach() {
  CvelDataStream* file = file_;
  file_ = nullptr;
  size_ = 0;
  owns_ = false;
  return file;
}

CvelResult CvelA1InputFile::seek(int64_t offset, int whence) {
  return file_ == nullptr ? kCvelErrBadParameter : file_->seek(offset, whence);
}

CvelResult CvelA1InputFile::tell(uint32_t* position) const {
  if (file_ == nullptr) return kCvelErrBadParameter;
  uint32_t at = 0;
  CvelResult r = file_->tell(&at);
  if (r == kCvelOk && position != nullptr) *position = at;
  return r;
}

CvelResult CvelA1InputFile::read(void* buffer, uint32_t count, uint32_t* got) {
  if (file_ == nullptr || buffer == nullptr) return kCvelErrBadParameter;
  return file_->read(buffer, count, got);
}

bool CvelA1InputFile::hasMore() const {
  uint32_t at = 0;
  return file_ != nullptr && file_->isReady() && file_->tell(&at) == kCvelOk && size_ > at;
}
