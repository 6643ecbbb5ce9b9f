// CvelA1Context: the cursor with which every decoder walks the elements of a DER image held in a CvelString.
// It never holds the string; every operation is given it. A child cursor over the element last read is made
// with enterElementOf on a fresh cursor; CvelA1CursorOrFresh picks between a caller's cursor and a fresh one.
#ifndef KOLVARI_ASN1_CVEL_A1_CONTEXT_H
#define KOLVARI_ASN1_CVEL_A1_CONTEXT_H

#include <cstdint>

#include "asn1/cvel_der.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"

// How a decoder keeps the elements it reads: copies of its own, or views into the source. Views are for an
// owner that keeps the source's bytes, unchanged, for as long as the decoded object lives (a certificate
// decoding its own DER).
enum class CvelKeep : uint8_t { kCopy, kView };

class CvelA1Context {
 public:
  // What next() returns besides a tag: the range is used up, or the element runs past the limit.
  static constexpr int32_t kEnd = -1;
  static constexpr int32_t kOverrun = -2;
  static constexpr uint32_t kNoTag = 0xFFFFFFFFu;

  CvelA1Context() = default;
  CvelA1Context(const CvelA1Context&) = delete;
  // A child is made with enterElementOf, an exact copy with copyState: plain assignment would hide which.
  CvelA1Context& operator=(const CvelA1Context&) = delete;

  // Becomes a cursor over the content of the parent's current element. The cursor's previous header length
  // is subtracted from the start it computes, so the cursor should be fresh.
  void enterElementOf(const CvelA1Context& parent) {
    // Read before anything is written, so that a cursor entering its own element follows the same rule: it
    // then covers its own current element, header included, and reads that element again.
    const uint32_t staleHeader = headerLength_;
    limit_ = parent.position_;
    tag_ = parent.tag_;
    headerLength_ = parent.headerLength_;
    contentOffset_ = parent.contentOffset_;
    contentLength_ = parent.contentLength_;
    start_ = parent.contentOffset_ - staleHeader;
    position_ = start_;
  }
  // Makes `child` (a fresh cursor) a cursor over the element last read and reads its first child: the
  // child's tag, kEnd or kOverrun.
  int32_t firstChild(const CvelString& s, CvelA1Context& child) const {
    child.enterElementOf(*this);
    return child.next(s);
  }

  // An exact copy of another cursor, position and element included (operator= makes a child instead).
  void copyState(const CvelA1Context& other) {
    start_ = other.start_;
    position_ = other.position_;
    limit_ = other.limit_;
    tag_ = other.tag_;
    headerLength_ = other.headerLength_;
    contentOffset_ = other.contentOffset_;
    contentLength_ = other.contentLength_;
    moreFollows_ = other.moreFollows_;
    lenient_ = other.lenient_;
  }

  // Reads the element at the position: its tag (non-negative), kEnd or kOverrun.
  int32_t next(const CvelString& s) {
    // Nearly every element a decoder meets has a one-octet tag and a short length: those are read here, where
    // the compiler can inline them into the decoders' loops; every other header goes to the general decoder.
    const uint32_t size = s.length();
    if (limit_ == 0 || limit_ > size) limit_ = size;
    const uint32_t at = position_;
    if (at >= limit_) {
      tag_ = kNoTag;
      return kEnd;
    }
    const uint32_t available = size - at;
    if (available >= kShortHeaderLength) {
      const unsigned char* p = s.data() + at;
      const unsigned char tag = p[0];
      if (tag != kTagEndOfContents && (tag & kTagHighNumberMask) != kTagHighNumberMask) {
        const unsigned char first = p[1];
        if (first < kLengthLongForm) return takeHeader(at, tag, kShortHeaderLength, first);
        // One or two length octets: the lengths of certificates, names and extensions.
        if (first == kLengthOneOctet && available >= kShortHeaderLength + 1) {
          return takeHeader(at, tag, kShortHeaderLength + 1, p[2]);
        }
        if (first == kLengthTwoOctets && available >= kShortHeaderLength + 2) {
          return takeHeader(at, tag, kShortHeaderLength + 2, static_cast<uint32_t>(p[2]) << 8 | p[3]);
        }
      }
    }
    return nextGeneral(s);
  }
  // Reads the first child of the element last read.
  int32_t descend(const CvelString& s);
  // Copies of the whole element last read, or of its content.
  CvelResult getElement(const CvelString& s, CvelString& out) const;
  CvelResult getContent(const CvelString& s, CvelString& out) const;
  // The whole element last read, copied or viewed as keep says.
  CvelResult takeElement(const CvelString& s, CvelString& out, CvelKeep keep) const {
    if (keep == CvelKeep::kCopy) return getElement(s, out);
    if (!elementInside(s)) return kCvelErrMalformed;
    return out.setView(s, contentOffset_ - headerLength_, headerLength_ + contentLength_);
  }
  // A view into s of the whole element last read, or of its content: false, with out released, when the
  // element does not lie wholly inside s.
  bool elementView(const CvelString& s, CvelString& out) const {
    if (!elementInside(s)) {
      out.release();
      return false;
    }
    return out.setView(s, elementOffset(), elementLength()) == kCvelOk;
  }
  bool contentView(const CvelString& s, CvelString& out) const {
    if (!elementInside(s)) {
      out.release();
      return false;
    }
    return out.setView(s, contentOffset_, contentLength_) == kCvelOk;
  }
  // Back to the start of the range, as if nothing had been read.
  void rewind();

  uint32_t start() const { return start_; }
  uint32_t position() const { return position_; }
  uint32_t limit() const { return limit_; }
  uint32_t tag() const { return tag_; }
  uint32_t headerLength() const { return headerLength_; }
  uint32_t contentOffset() const { return contentOffset_; }
  uint32_t contentLength() const { return contentLength_; }
  // Offset of the first byte of the element last read.
  uint32_t elementOffset() const { return contentOffset_ - headerLength_; }
  uint32_t elementLength() const { return headerLength_ + contentLength_; }
  bool moreFollows() const { return moreFollows_; }
  bool lenient() const { return lenient_; }
  void setLenient(bool on) { lenient_ = on; }
  void setPosition(uint32_t position) { position_ = position; }
  void setLimit(uint32_t limit) { limit_ = limit; }
  // True when the element last read lies wholly inside s (always so unless read leniently).
  bool elementInside(const CvelString& s) const {
    return contentOffset_ >= headerLength_ &&
           static_cast<uint64_t>(contentOffset_) + contentLength_ <= static_cast<uint64_t>(s.length());
  }

 private:
  // The element at `at` has a one-octet tag and a definite length, both already read, in `header` octets
  // that lie inside the string.
  int32_t takeHeader(uint32_t at, unsigned char tag, uint32_t header, uint32_t length) {
    // The header ends inside the string, so the content offset cannot wrap.
    const uint64_t end = static_cast<uint64_t>(at) + header + length;
    moreFollows_ = limit_ > end;
    if (!lenient_ && end > limit_) {
      tag_ = kNoTag;
      return kOverrun;
    }
    contentOffset_ = at + header;
    contentLength_ = length;
    headerLength_ = header;
    position_ = end > kNoTag ? kNoTag : static_cast<uint32_t>(end);
    tag_ = tag;
    return tag;
  }
  // Any header: the long and indefinite lengths, high tag numbers, end-of-contents and the ends of the range.
  int32_t nextGeneral(const CvelString& s);

  static constexpr uint32_t kShortHeaderLength = 2;
  static constexpr unsigned char kLengthOneOctet = kLengthLongForm | 1;
  static constexpr unsigned char kLengthTwoOctets = kLengthLongForm | 2;

  uint32_t start_ = 0;
  uint32_t position_ = 0;
  uint32_t limit_ = 0;
  uint32_t tag_ = 0;
  uint32_t headerLength_ = 0;
  uint32_t contentOffset_ = 0;
  uint32_t contentLength_ = 0;
  bool moreFollows_ = false;
  bool lenient_ = false;

  // Offsets, lengths and tags are 32-bit on every target: a length needing more than four octets is refused
  // in both builds alike.
  static_assert(sizeof(start_) == 4 && sizeof(position_) == 4 && sizeof(limit_) == 4 && sizeof(tag_) == 4 &&
                    sizeof(headerLength_) == 4 && sizeof(contentOffset_) == 4 && sizeof(contentLength_) == 4,
                "cursor fields are 32-bit");
};

// The cursor a decoder reads with: the caller's, which then moves past what the decoder reads, or, when the
// caller gives none, one of its own at the start of the string.
class CvelA1CursorOrFresh {
 public:
  explicit CvelA1CursorOrFresh(CvelA1Context* caller) : cursor_(caller != nullptr ? *caller : own_) {}
  CvelA1CursorOrFresh(const CvelA1CursorOrFresh&) = delete;
  CvelA1CursorOrFresh& operator=(const CvelA1CursorOrFresh&) = delete;

  CvelA1Context& get() { return cursor_; }

 private:
  CvelA1Context own_;
  CvelA1Context& cursor_;
};

#endif  // KOLVARI_ASN1_CVEL_A1_CONTEXT_H
