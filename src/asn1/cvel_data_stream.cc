#include "asn1/cvel_data_stream.h"

#include <sys/stat.h>

#include <cstring>

#include "asn1/cvel_string.h"

namespace {

constexpr const char* kOpenModes[] = {"rb", "wb", "ab"};
constexpr uint32_t kMaxSize = 0xFFFFFFFFu;

}  // namespace

CvelDataStream::CvelDataStream(CvelString* buffer)
    : buffer_(buffer), limit_(buffer == nullptr ? 0 : buffer->length()) {}

CvelResult CvelDataStream::open(const char* path, int mode) {
  const CvelResult closed = close();
  if (closed != kCvelOk && closed != kCvelNone) return closed;
  if (path == nullptr || mode < kRead || mode > kAppend) return kCvelErrBadParameter;
  std::FILE* f = std::fopen(path, kOpenModes[mode]);
  if (f == nullptr) return kCvelErrIncomplete;
  // Deliberately stricter than fopen, which takes a directory for reading: its reads would only fail later,
  // and a directory is never content, so it is refused here with the code of a file that did not open.
  struct stat st;
  if (fstat(fileno(f), &st) != 0 || S_ISDIR(st.st_mode)) {
    std::fclose(f);
    return kCvelErrIncomplete;
  }
  file_ = f;
  writing_ = mode != kRead;
  return kCvelOk;
}

CvelResult CvelDataStream::read(void* buf, uint32_t n, uint32_t* count) {
  if (count != nullptr) *count = 0;
  if (file_ != nullptr) {
    if (buf == nullptr && n != 0) return kCvelErrBadParameter;
    size_t got = n == 0 ? 0 : std::fread(buf, 1, n, file_);
    if (count != nullptr) *count = static_cast<uint32_t>(got);
    // Deliberate: a failed read (an I/O error, or a stream opened for writing) is reported, not passed off
    // as a short read that looks like the end of the file. The flag is cleared so that it belongs to this
    // read only and a later read after a seek is judged on its own.
    if (std::ferror(file_) == 0) return kCvelOk;
    std::clearerr(file_);
    return kCvelErrMalformed;
  }
  if (buffer_ == nullptr) return kCvelErrMalformed;
  if (buf == nullptr && n != 0) return kCvelErrBadParameter;
  const uint32_t length = buffer_->length();
  if (position_ > limit_) position_ = limit_;
  if (position_ > length) position_ = length;
  uint32_t take = n;
  if (take > limit_ - position_) take = limit_ - position_;
  if (take > length - position_) take = length - position_;
  if (take != 0) std::memcpy(buf, buffer_->data() + position_, take);
  position_ += take;
  if (count != nullptr) *count = take;
  return kCvelOk;
}

CvelResult CvelDataStream::write(const void* buf, uint32_t n, uint32_t* count) {
  if (count != nullptr) *count = 0;
  if (file_ != nullptr) {
    if (buf == nullptr && n != 0) return kCvelErrBadParameter;
    size_t put = n == 0 ? 0 : std::fwrite(buf, 1, n, file_);
    if (count != nullptr) *count = static_cast<uint32_t>(put);
    return kCvelOk;
  }
  if (buffer_ == nullptr) return kCvelErrMalformed;
  if (buf == nullptr && n != 0) return kCvelErrBadParameter;
  CvelResult r = n == 0 ? kCvelOk : buffer_->append(buf, n);
  // An append into spare room reports itself apart from kCvelOk; both mean the bytes are there.
  if (r != kCvelOk && r != kCvelAppendedInPlace) return r;
  if (count != nullptr) *count = n;
  position_ = limit_ = buffer_->length();
  return kCvelOk;
}

CvelResult CvelDataStream::close() {
  if (file_ == nullptr) return kCvelNone;
  std::fclose(file_);
  file_ = nullptr;
  return kCvelOk;
}

CvelResult CvelDataStream::seek(int64_t offset, int whence) {
  if (file_ != nullptr) {
    if (whence < kFromStart || whence > kFromEnd) return kCvelErrBadParameter;
    static constexpr int kStdioWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    return fseeko(file_, static_cast<off_t>(offset), kStdioWhence[whence]) == 0 ? kCvelOk : kCvelErrBadParameter;
  }
  if (buffer_ == nullptr) return kCvelErrBadParameter;
  int64_t base = 0;
  if (whence == kFromCurrent) {
    base = position_;
  } else if (whence == kFromEnd) {
    base = limit_;
  } else if (whence != kFromStart) {
    return kCvelErrBadParameter;
  }
  // Offsets are bounded by the buffer, far below where the sum could overflow.
  if (offset < -static_cast<int64_t>(kMaxSize) || offset > static_cast<int64_t>(kMaxSize)) return kCvelErrBadParameter;
  int64_t target = base + offset;
  if (target < 0 || target > static_cast<int64_t>(limit_)) return kCvelErrBadParameter;
  position_ = static_cast<uint32_t>(target);
  return kCvelOk;
}

CvelResult CvelDataStream::tell(uint32_t* position) const {
  if (position == nullptr) return kCvelErrBadParameter;
  if (file_ != nullptr) {
    off_t at = ftello(file_);
    if (at < 0 || static_cast<uint64_t>(at) > kMaxSize) return kCvelErrMalformed;
    *position = static_cast<uint32_t>(at);
    return kCvelOk;
  }
  if (buffer_ == nullptr) return kCvelErrMalformed;
  *position = position_;
  return kCvelOk;
}

CvelResult CvelDataStream::size(uint32_t* size) const {
  if (size == nullptr) return kCvelErrBadParameter;
  if (file_ != nullptr) {
    // Bytes still held in the write buffer count as well: flush them first.
    struct stat st;
    if ((writing_ && std::fflush(file_) != 0) || fstat(fileno(file_), &st) != 0) return kCvelErrMalformed;
    if (static_cast<uint64_t>(st.st_size) > kMaxSize) return kCvelErrNoMemory;  // beyond a 32-bit size
    *size = static_cast<uint32_t>(st.st_size);
    return kCvelOk;
  }
  if (buffer_ == nullptr) return kCvelErrMalformed;
  *size = limit_ < buffer_->length() ? limit_ : buffer_->length();
  return kCvelOk;
}
