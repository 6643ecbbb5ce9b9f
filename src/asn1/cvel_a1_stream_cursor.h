// CvelA1StreamCursor: walks DER elements through a CvelA1Input, reading only the bytes it needs.
#ifndef KOLVARI_ASN1_CVEL_A1_STREAM_CURSOR_H
#define KOLVARI_ASN1_CVEL_A1_STREAM_CURSOR_H

#include <cstdint>

#include "asn1/cvel_result.h"

class CvelA1Input;
class CvelString;

class CvelA1StreamCursor {
 public:
  static constexpr uint32_t kNoTag = 0xFFFFFFFFu;
  // What next() returns when the first identifier byte cannot be read: not a result code.
  static constexpr CvelResult kNothingRead = 0;

  // Reads the element at the position.
  CvelResult next(CvelA1Input& in);
  // Moves to the content of the element last read and reads its first child.
  CvelResult descend(CvelA1Input& in);
  CvelResult getContent(CvelA1Input& in, CvelString& out) const;
  CvelResult getElement(CvelA1Input& in, CvelString& out) const;
  // Starts the range at the source's current position.
  CvelResult reset(CvelA1Input& in);

  uint32_t start() const { return start_; }
  uint32_t position() const { return position_; }
  uint32_t limit() const { return limit_; }
  uint32_t tag() const { return tag_; }
  uint32_t headerLength() const { return headerLength_; }
  uint32_t contentOffset() const { return contentOffset_; }
  uint32_t contentLength() const { return contentLength_; }
  bool moreFollows() const { return moreFollows_; }
  bool indefinite() const { return indefinite_; }
  bool lenient() const { return lenient_; }
  void setLenient(bool on) { lenient_ = on; }
  void setPosition(uint32_t position) { position_ = position; }
  void setLimit(uint32_t limit) { limit_ = limit; }

 private:
  CvelResult copyRange(CvelA1Input& in, uint32_t offset, uint32_t count, CvelString& out) const;

  uint32_t start_ = 0;
  uint32_t position_ = 0;
  uint32_t limit_ = 0;
  uint32_t headerLength_ = 0;
  uint32_t contentOffset_ = 0;
  uint32_t contentLength_ = 0;
  uint32_t tag_ = 0;
  bool moreFollows_ = false;
  bool lenient_ = false;
  bool indefinite_ = false;
};

#endif  // KOLVARI_ASN1_CVEL_A1_STREAM_CURSOR_H
