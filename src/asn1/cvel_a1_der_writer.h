// CvelDerWriter: the one way the library writes a DER structure. The encoder is a single function of the
// writer, run twice: the first pass only counts, noting the content length of every element in the order the
// elements open; the second writes into a buffer allocated once at the counted size, each header taking the
// length noted for it. No size is computed beside the writes, so the two can never disagree.
#ifndef KOLVARI_ASN1_CVEL_A1_DER_WRITER_H
#define KOLVARI_ASN1_CVEL_A1_DER_WRITER_H

#include <cstdint>
#include <vector>

#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"

// Not copyable (the lengths noted belong to one run), and without virtual functions: encoders make one per
// structure, often for a few dozen octets.
class CvelDerWriter {
 public:
  CvelDerWriter() = default;
  CvelDerWriter(const CvelDerWriter&) = delete;
  CvelDerWriter& operator=(const CvelDerWriter&) = delete;

  // Bytes written as they are: a whole element already DER, or part of an enclosing element's content.
  void bytes(const void* src, uint64_t n) {
    if (measuring_) {
      counted_ += n;
      return;
    }
    sink_.bytes(src, n);
  }
  void bytes(const CvelString& s) { bytes(s.data(), s.length()); }
  void byte(uint8_t b) { bytes(&b, 1); }
  // n bytes of content that the caller places in the image itself: counted in its size and its elements'
  // lengths, never written to the buffer, which holds the other bytes only (see startWriting).
  void skip(uint64_t n) {
    if (measuring_) {
      counted_ += n;
      skippedCounted_ += n;
      return;
    }
    skipped_ += n;
  }

  // One element whose content is what content() writes through this writer.
  template <typename Content>
  void element(uint8_t tag, Content&& content) {
    if (measuring_) {
      const size_t slot = open();
      const uint64_t start = counted_;
      content();
      close(slot, counted_ - start);
      return;
    }
    const uint64_t length = nextLength();
    sink_.header(tag, length);
    const uint64_t before = sink_.left();
    const uint64_t skippedBefore = skipped_;
    content();
    // The second pass must write what the first counted; a content function that depends on anything but
    // its inputs would otherwise leave a header that lies about its length.
    if (before - sink_.left() + (skipped_ - skippedBefore) != length) failed_ = true;
  }
  // One element around n bytes.
  void element(uint8_t tag, const void* src, uint64_t n) {
    if (measuring_) {
      counted_ += cvelTlvSize(n);
      return;
    }
    sink_.header(tag, n);
    sink_.bytes(src, n);
  }
  void element(uint8_t tag, const CvelString& s) { element(tag, s.data(), s.length()); }

  // The counting pass could not note every length (no memory for a structure of that many elements).
  [[nodiscard]] bool failed() const { return failed_; }
  // The counting pass ran: the size of everything it counted.
  [[nodiscard]] uint64_t counted() const { return counted_; }
  // The counting pass ran: the bytes of it that the writing pass writes, those skipped left out.
  [[nodiscard]] uint64_t countedToWrite() const { return counted_ - skippedCounted_; }
  // Ends the counting pass; the encoder then runs again and fills dst, which has room for counted() bytes
  // less those skipped.
  void startWriting(unsigned char* dst) {
    measuring_ = false;
    next_ = 0;
    skipped_ = 0;
    sink_ = CvelA1Writer(dst, counted_ - skippedCounted_);
  }
  // The writing pass filled its buffer exactly and skipped what the counting pass did.
  [[nodiscard]] bool complete() const {
    return !measuring_ && !failed_ && sink_.complete() && next_ == lengthCount_ && skipped_ == skippedCounted_;
  }
  // Room left in the buffer of the writing pass.
  uint64_t left() const { return sink_.left(); }
  // Where the writing pass stands in the image, the bytes skipped so far included.
  uint64_t position() const { return counted_ - skippedCounted_ - sink_.left() + skipped_; }

 private:
  // Element lengths held without an allocation; deeper or wider structures spill into a vector.
  static constexpr size_t kHeldLengths = 24;

  size_t open() {
    const size_t slot = lengthCount_++;
    if (slot >= kHeldLengths) spill();
    return slot;
  }
  void close(size_t slot, uint64_t contentLength) {
    if (slot < kHeldLengths) {
      held_[slot] = contentLength;
    } else if (slot - kHeldLengths < spilled_.size()) {
      spilled_[slot - kHeldLengths] = contentLength;
    }
    counted_ += 1 + cvelLengthOfLength(contentLength);
  }
  uint64_t nextLength() {
    if (next_ >= lengthCount_) {
      failed_ = true;
      return 0;
    }
    const size_t slot = next_++;
    return slot < kHeldLengths ? held_[slot] : spilled_[slot - kHeldLengths];
  }
  // Notes one more length past the held ones.
  void spill();

  bool measuring_ = true;
  bool failed_ = false;
  uint64_t counted_ = 0;
  // Each written by close before nextLength reads it.
  uint64_t held_[kHeldLengths];
  std::vector<uint64_t> spilled_;
  size_t lengthCount_ = 0;
  size_t next_ = 0;
  // Bytes skipped in the counting pass, and so far in the writing pass.
  uint64_t skippedCounted_ = 0;
  uint64_t skipped_ = 0;
  CvelA1Writer sink_{nullptr, 0};
};

// Runs encode(CvelDerWriter&) twice and gives out the result, allocated once at its final size; out is
// untouched on failure. kCvelErrNoMemory when the size cannot be a string's length or the block cannot be
// had, kCvelErrMalformed when the writing pass did not fill the block exactly.
template <typename Encode>
[[nodiscard]] CvelResult cvelEncodeDer(CvelString& out, Encode&& encode) {
  CvelDerWriter w;
  encode(w);
  if (w.failed()) return kCvelErrNoMemory;
  const uint64_t total = w.counted();
  if (total >= CvelString::kViewCapacity - 1) return kCvelErrNoMemory;
  CvelString result;
  const CvelResult r = result.allocate(static_cast<uint32_t>(total));
  if (r != kCvelOk) return r;
  w.startWriting(result.data());
  encode(w);
  if (!w.complete()) return kCvelErrMalformed;
  out.moveFrom(result);
  return kCvelOk;
}

// The same into a byte vector that is replaced whole on success; untouched on failure.
template <typename Encode>
[[nodiscard]] CvelResult cvelEncodeDer(std::vector<unsigned char>& out, Encode&& encode) {
  CvelDerWriter w;
  encode(w);
  if (w.failed()) return kCvelErrNoMemory;
  const uint64_t total = w.counted();
  if (total >= CvelString::kViewCapacity - 1) return kCvelErrNoMemory;
  std::vector<unsigned char> result(static_cast<size_t>(total));
  w.startWriting(result.data());
  encode(w);
  if (!w.complete()) return kCvelErrMalformed;
  out.swap(result);
  return kCvelOk;
}

#endif  // KOLVARI_ASN1_CVEL_A1_DER_WRITER_H
