#include "asn1/cvel_a1_output.h"

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

CvelResult write(CvelA1Output& sink, const CvelString& source, uint32_t offset, uint32_t count) {
  if (offset > source.length()) return kCvelErrBadParameter;
  uint32_t available = source.length() - offset;
  if (count == kToTheEnd || count > available) count = available;
  static const unsigned char kNothing = 0;
  const unsigned char* from = count == 0 ? &kNothing : source.data() + offset;
  return sink.write(from, count, nullptr);
}
