#include "asn1/cvel_string.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "asn1/cvel_a1_context.h"

namespace {

// The largest content that still leaves room for the terminator and below the view marker.
constexpr uint32_t kMaxContent = CvelString::kMaxViewLength;

constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kBase64Pad = '=';

struct Base64Table {
  unsigned char value[256] = {};
  constexpr Base64Table() {
    for (unsigned i = 0; i < 64; ++i) value[static_cast<unsigned char>(kBase64Alphabet[i])] = static_cast<unsigned char>(i);
  }
};
constexpr Base64Table kBase64Values;

// Characters outside the alphabet are not rejected: they count as the first letter.
inline uint32_t base64Value(unsigned char c) { return kBase64Values.value[c]; }

inline unsigned char lowerByte(unsigned char c) { return static_cast<unsigned char>(std::tolower(c)); }

bool sumFits(uint32_t a, uint32_t b) { return b <= kMaxContent && a <= kMaxContent - b; }

}  // namespace

CvelResult CvelString::assign(const CvelString& other) {
  if (&other == this) return kCvelOk;
  if (other.length_ == 0) {
    release();
    return allocate(0);
  }
  // The source may view this string's own buffer: copy it out before the buffer is replaced.
  CvelString copy;
  CvelResult r = copy.allocate(other.length_);
  if (r != kCvelOk) return r;
  std::memcpy(copy.data_, other.data_, other.length_);
  moveFrom(copy);
  return kCvelOk;
}

CvelResult CvelString::assign(const char* text) {
  if (text == nullptr) {
    release();
    return kCvelOk;
  }
  size_t n = std::strlen(text);
  if (n > kMaxContent) return kCvelErrNoMemory;
  return assign(text, static_cast<uint32_t>(n));
}

CvelResult CvelString::assign(const void* bytes, uint32_t n) {
  if (bytes != nullptr && n != 0 && !isView() && data_ != nullptr) {
    const unsigned char* b = static_cast<const unsigned char*>(bytes);
    if (b >= data_ && b < data_ + capacity_) {
      // Copying from our own buffer: go through a fresh string so the source survives the allocation.
      CvelString copy;
      CvelResult r = copy.assign(bytes, n);
      if (r == kCvelOk) moveFrom(copy);
      return r;
    }
  }
  CvelResult r = allocate(n);
  if (r != kCvelOk) return r;
  if (n != 0) {
    if (bytes != nullptr)
      std::memcpy(data_, bytes, n);
    else
      std::memset(data_, 0, n);
  }
  return kCvelOk;
}

CvelResult CvelString::assign(const CvelString& source, const CvelA1Context* element) {
  if (element == nullptr) return assign(source);
  if (!element->elementInside(source)) return kCvelErrMalformed;
  if (element->contentLength() == 0) return assign(nullptr, 0);
  return assign(source.data_ + element->contentOffset(), element->contentLength());
}

CvelResult CvelString::setView(const CvelString& source, const CvelA1Context* element) {
  if (element == nullptr) return setView(source, 0, source.length_);
  if (!element->elementInside(source)) {
    release();
    return kCvelErrMalformed;
  }
  return setView(source, element->contentOffset(), element->contentLength());
}

CvelResult CvelString::keepPartOfSelf(uint32_t offset, uint32_t count) {
  if (offset > length_ || count > length_ - offset) return kCvelErrMalformed;
  CvelString copy;
  CvelResult r = copy.assign(data_ + offset, count);
  if (r == kCvelOk) moveFrom(copy);
  return r;
}

CvelResult CvelString::allocate(uint32_t n) {
  if (isView()) clear();
  if (n > kMaxContent) return kCvelErrNoMemory;
  if (data_ != nullptr && capacity_ > n) {
    // The block is reused, and the capacity deliberately shrinks to what is asked.
    length_ = n;
    capacity_ = n + 1;
    data_[n] = 0;
    return kCvelOk;
  }
  release();
  unsigned char* block = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(n) + 1));
  if (block == nullptr) return kCvelErrNoMemory;
  data_ = block;
  length_ = n;
  capacity_ = n + 1;
  data_[n] = 0;
  return kCvelOk;
}

void CvelString::truncate(uint32_t n) {
  if (isView() || data_ == nullptr || capacity_ <= n) return;
  length_ = n;
  data_[n] = 0;
}

CvelResult CvelString::append(const void* bytes, uint32_t n) {
  if (bytes == nullptr) return kCvelErrNullData;
  if (!sumFits(length_, n)) return kCvelErrNoMemory;
  uint32_t old = length_;
  if (isView() || old + n >= capacity_) {
    // A fresh block of exactly the new size; the old content and the new bytes are copied behind each other.
    unsigned char* block = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(old) + n + 1));
    if (block == nullptr) return kCvelErrNoMemory;
    if (old != 0) std::memcpy(block, data_, old);
    if (n != 0) std::memcpy(block + old, bytes, n);
    block[old + n] = 0;
    release();
    data_ = block;
    length_ = old + n;
    capacity_ = old + n + 1;
    return kCvelOk;
  }
  std::memmove(data_ + old, bytes, n);
  length_ = old + n;
  data_[length_] = 0;
  return kCvelAppendedInPlace;
}

CvelResult CvelString::append(const CvelString& source, const CvelA1Context* element) {
  if (element == nullptr) {
    if (source.length_ == 0) return kCvelOk;
    return append(source.data_, source.length_);
  }
  if (!element->elementInside(source)) return kCvelErrMalformed;
  if (element->contentLength() == 0) return kCvelOk;
  return append(source.data_ + element->contentOffset(), element->contentLength());
}

bool CvelString::ownContent() {
  if (!isView()) return true;
  CvelString copy;
  if (copy.assign(data_, length_) != kCvelOk) return false;
  moveFrom(copy);
  return true;
}

bool CvelString::reserveMore(uint32_t extra) {
  if (!sumFits(length_, extra)) return false;
  if (!ownContent()) return false;
  if (data_ != nullptr && length_ + extra < capacity_) return true;
  unsigned char* block = static_cast<unsigned char*>(std::malloc(static_cast<size_t>(length_) + extra + 1));
  if (block == nullptr) return false;
  if (length_ != 0) std::memcpy(block, data_, length_);
  block[length_] = 0;
  uint32_t keep = length_;
  release();
  data_ = block;
  length_ = keep;
  capacity_ = keep + extra + 1;
  return true;
}

CvelResult CvelString::append(const CvelString& other) {
  if (other.length_ == 0 || other.data_ == nullptr) return kCvelOk;
  if (&other == this || (data_ != nullptr && other.data_ >= data_ && other.data_ < data_ + length_)) {
    CvelString copy;
    const CvelResult r = copy.assign(other);
    if (r != kCvelOk) return r;
    return append(copy);
  }
  if (!reserveMore(other.length_)) return kCvelErrNoMemory;
  std::memcpy(data_ + length_, other.data_, other.length_);
  length_ += other.length_;
  data_[length_] = 0;
  return kCvelOk;
}

CvelResult CvelString::append(const char* text) {
  if (text == nullptr) return kCvelOk;
  size_t n = std::strlen(text);
  if (n == 0) return kCvelOk;
  if (n > kMaxContent) return kCvelErrNoMemory;
  CvelString view;
  view.data_ = reinterpret_cast<unsigned char*>(const_cast<char*>(text));
  view.length_ = static_cast<uint32_t>(n);
  view.capacity_ = kViewCapacity;
  return append(view);
}

CvelResult CvelString::appendChar(char c) {
  if (!reserveMore(1)) return kCvelErrNoMemory;
  data_[length_++] = static_cast<unsigned char>(c);
  data_[length_] = 0;
  return kCvelOk;
}

bool CvelString::equals(const void* bytes, uint32_t n) const {
  if (length_ != n) return false;
  if (n == 0) return true;
  if (bytes == nullptr) return false;
  return std::memcmp(data_, bytes, n) == 0;
}

int CvelString::compare(const void* bytes, uint32_t n) const {
  if (length_ > n) {
    // A longer string compares as less than an empty operand: the asymmetry is kept on purpose.
    if (n == 0 || bytes == nullptr) return -1;
    int r = std::memcmp(data_, bytes, n);
    return r != 0 ? r : 1;
  }
  int r = (length_ == 0 || bytes == nullptr) ? 0 : std::memcmp(data_, bytes, length_);
  if (r == 0 && length_ != n) return -1;
  return r;
}

int CvelString::compareNoCase(const void* bytes, uint32_t n) const {
  CvelString mine;
  CvelString theirs;
  if (mine.assign(data_, length_) != kCvelOk) return -1;
  if (theirs.assign(bytes, bytes == nullptr ? 0 : n) != kCvelOk) return -1;
  mine.toLower();
  theirs.toLower();
  return mine.compare(theirs.data_, theirs.length_);
}

bool CvelString::startsWithNoCase(const char* text) const {
  if (length_ == 0 || text == nullptr) return false;
  size_t n = std::strlen(text);
  if (n == 0 || n > length_) return false;
  for (size_t i = 0; i < n; ++i) {
    unsigned char a = lowerByte(data_[i]);
    if (a != lowerByte(static_cast<unsigned char>(text[i]))) return false;
    if (a == 0) return true;
  }
  return true;
}

bool CvelString::endsWithNoCase(const char* text) const {
  if (length_ == 0 || text == nullptr) return false;
  size_t n = std::strlen(text);
  if (n == 0 || n > length_) return false;
  const unsigned char* tail = data_ + (length_ - n);
  for (size_t i = 0; i < n; ++i) {
    unsigned char a = lowerByte(tail[i]);
    if (a != lowerByte(static_cast<unsigned char>(text[i]))) return false;
    if (a == 0) return true;
  }
  return true;
}

int32_t CvelString::find(const char* text, uint32_t from) const {
  if (text == nullptr || from >= length_) return -1;
  // The text search ends at the first zero byte, as it does for zero-terminated text.
  const unsigned char* end = static_cast<const unsigned char*>(std::memchr(data_ + from, 0, length_ - from));
  uint32_t stop = end == nullptr ? length_ : static_cast<uint32_t>(end - data_);
  size_t n = std::strlen(text);
  if (n > stop - from) return -1;
  for (uint32_t i = from; i + n <= stop; ++i) {
    if (std::memcmp(data_ + i, text, n) == 0) return static_cast<int32_t>(i);
  }
  return -1;
}

int32_t CvelString::find(const void* bytes, uint32_t n, int32_t from, bool ignoreCase) const {
  if (bytes == nullptr || n == 0) return -1;
  uint32_t first = from < 0 ? 0 : static_cast<uint32_t>(from);
  if (first > length_ || n > length_ - first) return -1;
  const unsigned char* needle = static_cast<const unsigned char*>(bytes);
  for (uint32_t i = first; i <= length_ - n; ++i) {
    uint32_t k = 0;
    if (ignoreCase) {
      while (k < n && lowerByte(data_[i + k]) == lowerByte(needle[k])) ++k;
    } else {
      while (k < n && data_[i + k] == needle[k]) ++k;
    }
    if (k == n) return static_cast<int32_t>(i);
  }
  return -1;
}

int32_t CvelString::findLast(char c) const {
  if (length_ == 0) return -1;
  const unsigned char* end = static_cast<const unsigned char*>(std::memchr(data_, 0, length_));
  uint32_t stop = end == nullptr ? length_ : static_cast<uint32_t>(end - data_);
  if (c == 0) return static_cast<int32_t>(stop);
  for (uint32_t i = stop; i > 0; --i) {
    if (data_[i - 1] == static_cast<unsigned char>(c)) return static_cast<int32_t>(i - 1);
  }
  return -1;
}

void CvelString::toLower() {
  if (length_ == 0 || !ownContent()) return;
  for (uint32_t i = 0; i < length_ && data_[i] != 0; ++i) data_[i] = lowerByte(data_[i]);
}

void CvelString::trimRight() {
  if (isView() || length_ == 0) return;
  while (length_ > 0 && std::isspace(data_[length_ - 1])) {
    --length_;
    data_[length_] = 0;
  }
}

CvelResult CvelString::subString(CvelString& dest, uint32_t from, uint32_t count) const {
  if (from >= length_) {
    dest.release();
    return dest.allocate(0);
  }
  if (count > length_ - from) count = length_ - from;
  return dest.assign(data_ + from, count);
}

CvelResult CvelString::subString(CvelString& dest, uint32_t from) const {
  if (from >= length_) return kCvelOk;
  return dest.assign(data_ + from, length_ - from);
}

CvelResult CvelString::fromNumber(uint64_t value, uint32_t width) {
  char digits[24];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  uint32_t total = static_cast<uint32_t>(n);
  if (width != 0) {
    if (width < total) return kCvelErrNoMemory;
    total = width;
  }
  CvelString text;
  CvelResult r = text.allocate(total);
  if (r != kCvelOk) return r;
  uint32_t pad = total - static_cast<uint32_t>(n);
  std::memset(text.data_, '0', pad);
  for (int i = 0; i < n; ++i) text.data_[pad + static_cast<uint32_t>(i)] = static_cast<unsigned char>(digits[n - 1 - i]);
  moveFrom(text);
  return kCvelOk;
}

void CvelString::base64Decode(CvelString& source) {
  uint64_t room = (static_cast<uint64_t>(source.length_) + 3) / 4 * 3;
  if (room == 0 || room > kMaxContent) return;
  // The output may be the source's own buffer's owner; decode into a block of our own first.
  CvelString out;
  if (out.allocate(static_cast<uint32_t>(room)) != kCvelOk) return;
  // Line breaks are removed from the source itself, so that a PEM body decodes straight from file text.
  if (!source.ownContent()) return;
  uint32_t kept = 0;
  for (uint32_t i = 0; i < source.length_; ++i) {
    unsigned char c = source.data_[i];
    if (c != '\r' && c != '\n') source.data_[kept++] = c;
  }
  source.truncate(kept);
  if (kept == 0) {
    out.truncate(0);
    moveFrom(out);
    return;
  }

  const unsigned char* in = source.data_;
  uint32_t produced = 0;
  uint32_t fullGroups = kept / 4;
  uint32_t rest = kept % 4;
  // The last complete group may carry padding; it is decoded by its size below.
  uint32_t plainGroups = (rest == 0 && fullGroups > 0) ? fullGroups - 1 : fullGroups;
  for (uint32_t g = 0; g < plainGroups; ++g, in += 4) {
    uint32_t v = base64Value(in[0]) << 18 | base64Value(in[1]) << 12 | base64Value(in[2]) << 6 | base64Value(in[3]);
    out.data_[produced++] = static_cast<unsigned char>(v >> 16);
    out.data_[produced++] = static_cast<unsigned char>(v >> 8);
    out.data_[produced++] = static_cast<unsigned char>(v);
  }
  uint32_t lastSize = rest == 0 ? (fullGroups > 0 ? 4 : 0) : rest;
  unsigned char group[4] = {'A', 'A', 'A', 'A'};  // missing characters count as "A"
  for (uint32_t i = 0; i < lastSize; ++i) group[i] = in[i];
  uint32_t bytes = 0;
  if (lastSize == 4) {
    bytes = group[2] == kBase64Pad ? 1 : (group[3] == kBase64Pad ? 2 : 3);
  } else if (lastSize == 3) {
    bytes = 2;
  } else if (lastSize == 2) {
    bytes = 1;
  }
  uint32_t v = base64Value(group[0]) << 18 | base64Value(group[1]) << 12 | base64Value(group[2]) << 6 |
               base64Value(group[3]);
  for (uint32_t i = 0; i < bytes; ++i) out.data_[produced++] = static_cast<unsigned char>(v >> (16 - 8 * i));
  out.truncate(produced);
  moveFrom(out);
}

std::string CvelString::toHex() const {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(static_cast<size_t>(length_) * 2);
  for (uint32_t i = 0; i < length_; ++i) {
    text.push_back(kDigits[data_[i] >> 4]);
    text.push_back(kDigits[data_[i] & 0x0F]);
  }
  return text;
}
