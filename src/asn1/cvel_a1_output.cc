#include "asn1/cvel_a1_output.h"

#include <new>

#include "asn1/cvel_data_stream.h"

namespace {
constexpr uint32_t kToTheEnd = 0xFFFFFFFFu;
}

CvelResult CvelA1OutputString::getSize(uint32_t* size) const {
  if (!isOpen()) return kCvelErrMalformed;
  if (size == nullptr) return kCvelErrBadParameter;
  *size = target_ == nullptr ? 0 : target_->length();
  return kCvelOk;
}

CvelResult CvelA1OutputString::write(const void* bytes, uint32_t count, uint32_t* written) {
  if (bytes == nullptr || target_ == nullptr) return kCvelErrBadParameter;
  CvelResult r = target_->append(bytes, count);
  if (r != kCvelOk) return r;
  if (written != nullptr) *written = count;
  return kCvelOk;
}

CvelA1OutputFile::CvelA1OutputFile(const char* path) : owns_(true) {
  if (path != nullptr && name_.assign(path) != kCvelOk) name_.release();
  file_ = new (std::nothrow) CvelDataStream();
  if (file_ != nullptr && file_->open(path, CvelDataStream::kWrite) != kCvelOk) {
    delete file_;
    file_ = nullptr;
  }
}

CvelA1OutputFile::~CvelA1OutputFile() {
  if (owns_ && file_ != nullptr) {
    // A destructor has no caller to report a failing close to.
    static_cast<void>(file_->close());
    delete file_;
  }
}

CvelResult CvelA1OutputFile::getSize(uint32_t* size) const {
  if (size == nullptr || file_ == nullptr) return kCvelErrBadParameter;
  return file_->tell(size);
}

CvelResult CvelA1OutputFile::write(const void* bytes, uint32_t count, uint32_t* written) {
  if (bytes == nullptr || file_ == nullptr) return kCvelErrBadParameter;
  return file_->write(bytes, count, written);
}

bool CvelA1OutputFile::isOpen() const {
  uint32_t size = 0;
  return file_ != nullptr && file_->isReady() && file_->tell(&size) == kCvelOk;
}

CvelResult write(CvelA1Output& sink, const CvelString& source, uint32_t offset, uint32_t count) {
  // The range is kept inside source on purpose: an offset past its end is refused (rather than handing the
  // sink a pointer beyond the buffer) and a count past it is clipped.
  if (offset > source.length()) return kCvelErrBadParameter;
  uint32_t available = source.length() - offset;
  if (count == kToTheEnd || count > available) count = available;
  // An empty source has no data, so the sink sees a null pointer and answers as it does for one.
  const unsigned char* from = source.data() == nullptr ? nullptr : source.data() + offset;
  return sink.write(from, count, nullptr);
}
