// DER sizes and the size-first encoding rules: length octets, tag-length-value sizes, wrap, and a writer
// that fills a buffer allocated once at its final size.
#ifndef KOLVARI_ASN1_CVEL_A1_SIZE_H
#define KOLVARI_ASN1_CVEL_A1_SIZE_H

#include <cstdint>
#include <cstring>

#include "asn1/cvel_der.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"

// Number of DER length octets for a content of n bytes (1 to 9); the short form, nearly every element's,
// is answered inline.
uint32_t cvelLongLengthOfLength(uint64_t n);
inline uint32_t cvelLengthOfLength(uint64_t n) { return n < kShortLengthLimit ? 1 : cvelLongLengthOfLength(n); }
// Size of a whole element with one tag octet and a content of n bytes.
inline uint64_t cvelTlvSize(uint64_t n) { return 1 + cvelLengthOfLength(n) + n; }
// Writes the length octets of n at dst (room for cvelLengthOfLength(n) bytes); returns their number.
uint32_t cvelWriteLength(uint64_t n, unsigned char* dst);

// out receives the length octets of n, allocated to exactly their size.
CvelResult encodeLength(uint64_t n, CvelString& out);
// out receives tag, length octets and content. Tag 3 (BIT STRING) puts a zero unused-bits octet in front.
CvelResult wrap(const CvelString& content, uint8_t tag, CvelString& out);
CvelResult wrap(const void* bytes, uint32_t n, uint8_t tag, CvelString& out);

// Significant bits of a BIT STRING content held with its leading (unused-bits) octet: 8 per octet after
// the leading one, less one when the leading octet is not zero; 0 for a content of 0 or 1 octet.
uint64_t cvelBitStringBits(const CvelString& content);

// The size of a content being computed; negative when unknown or failed, and every sum with it stays so.
class CvelA1Size : public CvelNonCopyObject {
 public:
  CvelA1Size() = default;
  explicit CvelA1Size(int64_t size) : size_(size) {}

  CvelResult setFromString(const CvelString& s) {
    size_ = s.length();
    return kCvelOk;
  }
  int64_t size() const { return size_; }
  void set(int64_t size) { size_ = size; }
  bool known() const { return size_ >= 0; }
  // Adds the size of a member; a negative member makes the whole size negative.
  void add(int64_t member) { size_ = (size_ < 0 || member < 0) ? -1 : size_ + member; }
  // Adds the size of a whole element with a content of `member` bytes.
  void addElement(int64_t member) { add(member < 0 ? -1 : static_cast<int64_t>(cvelTlvSize(static_cast<uint64_t>(member)))); }

  // A negative size counts as a short length (one octet, its low seven bits).
  uint32_t lengthOfLength() const { return size_ < 0 ? 1 : cvelLengthOfLength(static_cast<uint64_t>(size_)); }
  CvelResult encodeLength(CvelString& out) const;

 private:
  int64_t size_ = 0;
};

// Fills a buffer whose final size was computed beforehand. Every write is checked against what is left;
// a write that does not fit marks the writer failed and writes nothing.
class CvelA1Writer {
 public:
  CvelA1Writer(unsigned char* dst, uint64_t room) : at_(dst), left_(room) {}
  explicit CvelA1Writer(CvelString& target) : at_(target.data()), left_(target.length()) {}

  // Both are inline: an encoder calls them for every element it writes. A short-form header, the usual
  // one, is written without the general length writer.
  void header(uint8_t tag, uint64_t contentLength) {
    if (contentLength < kShortLengthLimit && ok_ && left_ >= kShortHeader) {
      at_[0] = tag;
      at_[1] = static_cast<unsigned char>(contentLength);
      at_ += kShortHeader;
      left_ -= kShortHeader;
      return;
    }
    longHeader(tag, contentLength);
  }
  void bytes(const void* src, uint64_t n) {
    if (!ok_ || n > left_) {
      ok_ = false;
      return;
    }
    if (n == 0) return;
    if (src == nullptr) {
      ok_ = false;
      return;
    }
    // n is at most left_, the room of a buffer in memory, so it fits size_t on 32-bit builds too.
    std::memcpy(at_, src, static_cast<size_t>(n));
    at_ += n;
    left_ -= n;
  }
  void bytes(const CvelString& s) { bytes(s.data(), s.length()); }
  void byte(uint8_t b) { bytes(&b, 1); }

  [[nodiscard]] bool ok() const { return ok_; }
  // True when the buffer was filled exactly.
  [[nodiscard]] bool complete() const { return ok_ && left_ == 0; }
  // Room not written yet.
  uint64_t left() const { return left_; }

 private:
  // Tag and one length octet.
  static constexpr uint64_t kShortHeader = 2;

  void longHeader(uint8_t tag, uint64_t contentLength);

  unsigned char* at_;
  uint64_t left_;
  bool ok_ = true;
};

// The size-first encoding in one step: a block of exactly total bytes, filled by write(CvelA1Writer&); out
// takes it only when write filled it exactly (else kCvelErrMalformed, out untouched). kCvelErrNoMemory when
// total cannot be a string's length.
template <typename Write>
CvelResult cvelWriteExactly(uint64_t total, CvelString& out, Write&& write) {
  if (total >= CvelString::kViewCapacity - 1) return kCvelErrNoMemory;
  CvelString result;
  CvelResult r = result.allocate(static_cast<uint32_t>(total));
  if (r != kCvelOk) return r;
  CvelA1Writer w(result);
  write(w);
  if (!w.complete()) return kCvelErrMalformed;
  out.moveFrom(result);
  return kCvelOk;
}

#endif  // KOLVARI_ASN1_CVEL_A1_SIZE_H
