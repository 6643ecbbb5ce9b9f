// CvelString: the library's one byte-string and text type. It owns a C-heap buffer that always carries a
// terminating zero behind its content, or, as a view, looks at bytes owned by another string.
#ifndef KOLVARI_ASN1_CVEL_STRING_H
#define KOLVARI_ASN1_CVEL_STRING_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "asn1/cvel_result.h"

class CvelA1Context;

class CvelString {
 public:
  // Capacity value marking a view: the bytes belong to someone else and are never freed or written.
  static constexpr uint32_t kViewCapacity = 0xFFFFFFFFu;
  // The longest content a view may have: below the view marker, with room for an owned copy's zero.
  static constexpr uint32_t kMaxViewLength = kViewCapacity - 2;

  CvelString() = default;
  ~CvelString() { release(); }
  CvelString(const CvelString&) = delete;  // copies are explicit, through assign
  CvelString& operator=(const CvelString&) = delete;
  CvelString(CvelString&& other) noexcept { moveFrom(other); }
  CvelString& operator=(CvelString&& other) noexcept {
    moveFrom(other);
    return *this;
  }

  // Construction, release, transfer.
  void release() {
    if (data_ != nullptr && !isView()) std::free(data_);
    clear();
  }
  // Forgets the fields without freeing: only for fresh strings or views.
  void clear() {
    length_ = 0;
    data_ = nullptr;
    capacity_ = 0;
  }
  // Inline, like setView(const void*, size_t): every encoder hands its result on with one of them.
  void moveFrom(CvelString& other) {
    if (&other == this) return;
    release();
    length_ = other.length_;
    data_ = other.data_;
    capacity_ = other.capacity_;
    other.clear();
  }
  CvelResult assign(const CvelString& other);
  CvelResult assign(const char* text);
  CvelResult assign(const void* bytes, uint32_t n);
  // Copies the content of the element last read by `element` inside `source`; null copies all of source.
  CvelResult assign(const CvelString& source, const CvelA1Context* element);
  // Views the content of the element last read by `element` inside `source`; null views all of source.
  CvelResult setView(const CvelString& source, const CvelA1Context* element);
  CvelResult setView(const CvelString& source, uint32_t offset, uint32_t count) {
    // Viewing part of ourselves would free what we look at: that case copies instead.
    if (&source == this) return keepPartOfSelf(offset, count);
    release();
    if (offset > source.length_ || count > source.length_ - offset) return kCvelErrMalformed;
    // An empty part is still a view (of nothing), like any other part of the source.
    data_ = source.data_ == nullptr ? nullptr : source.data_ + offset;
    length_ = count;
    capacity_ = kViewCapacity;
    return kCvelOk;
  }
  // Views bytes owned outside the library's strings (a host's buffer), which must outlive the view.
  CvelResult setView(const void* bytes, size_t count) {
    release();
    if (count > kMaxViewLength) return kCvelErrBadParameter;
    if (count == 0 || bytes == nullptr) return kCvelOk;
    data_ = static_cast<unsigned char*>(const_cast<void*>(bytes));
    length_ = static_cast<uint32_t>(count);
    capacity_ = kViewCapacity;
    return kCvelOk;
  }

  // Size and content.
  CvelResult allocate(uint32_t n);
  void truncate(uint32_t n);
  CvelResult append(const void* bytes, uint32_t n);
  CvelResult append(const CvelString& source, const CvelA1Context* element);
  // kCvelOk, or kCvelErrNoMemory when the string cannot grow (it is then unchanged).
  CvelResult append(const CvelString& other);
  CvelResult append(const char* text);
  CvelResult appendChar(char c);

  uint32_t length() const { return length_; }
  uint32_t capacity() const { return capacity_; }
  bool isView() const { return capacity_ == kViewCapacity; }
  bool isEmpty() const { return length_ == 0; }
  const unsigned char* data() const { return length_ == 0 ? nullptr : data_; }
  unsigned char* data() { return length_ == 0 ? nullptr : data_; }
  const unsigned char* at(uint32_t i) const { return i < length_ ? data_ + i : nullptr; }
  // The content as text; an empty string gives "". Owned strings are zero-terminated, views are not.
  const char* c_str() const { return length_ == 0 ? "" : reinterpret_cast<const char*>(data_); }

  // Comparison and search.
  bool equals(const CvelString& other) const { return equals(other.data_, other.length_); }
  bool equals(const void* bytes, uint32_t n) const;
  int compare(const void* bytes, uint32_t n) const;
  int compareNoCase(const void* bytes, uint32_t n) const;
  bool startsWithNoCase(const char* text) const;
  bool endsWithNoCase(const char* text) const;
  int32_t find(const char* text, uint32_t from) const;
  int32_t find(const void* bytes, uint32_t n, int32_t from, bool ignoreCase) const;
  int32_t findLast(char c) const;

  // In-place editing.
  void toLower();
  void trimRight();
  CvelResult subString(CvelString& dest, uint32_t from, uint32_t count) const;
  CvelResult subString(CvelString& dest, uint32_t from) const;
  CvelResult fromNumber(uint64_t value, uint32_t width);
  // Decodes base64 text; line breaks are first removed from `source` itself.
  void base64Decode(CvelString& source);
  // Upper-case hexadecimal text of the content.
  std::string toHex() const;

 private:
  // What setView does when the source is this string itself: the part becomes an owned copy.
  CvelResult keepPartOfSelf(uint32_t offset, uint32_t count);
  // Makes a view into an owned copy so that it may be written; false when the heap is exhausted.
  bool ownContent();
  // Grows an owned buffer to hold `extra` more bytes plus the terminator, keeping the content.
  bool reserveMore(uint32_t extra);

  // The pointer first, so that the two 32-bit fields share one word: 16 bytes on 64-bit targets.
  unsigned char* data_ = nullptr;
  uint32_t length_ = 0;
  uint32_t capacity_ = 0;

  // Length and capacity are 32-bit on every target, so that the view marker is the same value everywhere.
  static_assert(sizeof(length_) == 4 && sizeof(capacity_) == 4, "string length and capacity are 32-bit");
};

#endif  // KOLVARI_ASN1_CVEL_STRING_H
