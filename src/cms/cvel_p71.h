// CvelP71: a PKCS #7 / CMS content info of the Data layer: the content type and, when present, the content,
// held in memory or, when too large for that, left in the input and reached through its recorded position.
#ifndef KOLVARI_CMS_CVEL_P71_H
#define KOLVARI_CMS_CVEL_P71_H

#include <cstdint>

#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"

class CvelA1Input;
class CvelA1Size;
class CvelA1StreamCursor;

class CvelP71 : public CvelNonCopyObject {
 public:
  enum ContentMode : uint8_t { kNoContent = 0, kContentInMemory = 1, kContentTooLarge = 2 };
  // Lowest bit of the content kind: content is written as a SEQUENCE rather than an OCTET STRING.
  static constexpr uint8_t kContentKindSequence = 0x01;
  // Larger content is not read into memory.
  static constexpr uint32_t kMaxContentInMemory = 0xFFFFF;
  // What encode and decode return where the content cannot be embedded or has an unexpected tag. It is not a
  // result code and does not count as success; callers of this class rely on the zero.
  static constexpr CvelResult kNotDone = 0;

  CvelP71();  // content type id-data, no content
  ~CvelP71() override = default;

  // Copies every field of other; on a failed allocation this object is left as it was.
  CvelResult assign(const CvelP71& other);

  // SEQUENCE { contentType } when there is no content or detached is set; otherwise
  // SEQUENCE { contentType, [0] { OCTET STRING or SEQUENCE (by the content kind) { content } } }.
  // Content left in the input (too large) cannot be embedded: kNotDone and no output.
  CvelResult encode(CvelString& out, bool detached) const;
  // Not offered: writes its trace line to standard output and stops the process. Callers size their output
  // by encoding instead.
  [[noreturn]] void getSize(CvelA1Size& size, bool detached) const;

  // Decodes the element the cursor has just read. A first element that is not a non-empty SEQUENCE, or whose
  // first member is not an OID, leaves the object unread and succeeds; content under another tag than
  // OCTET STRING, SEQUENCE or constructed OCTET STRING gives kNotDone. When the element has indefinite
  // length, the cursor is moved to its end-of-contents octets, which its caller reads next.
  CvelResult decode(CvelA1Input& in, CvelA1StreamCursor& cursor);
  // Reads up to count bytes at offset of content left in the input by decode (kContentTooLarge); `in` is
  // the input that was decoded.
  CvelResult readLargeContent(CvelA1Input& in, uint32_t offset, void* buffer, uint32_t count,
                              uint32_t* got) const;

  uint8_t contentKind() const { return contentKind_; }
  void setContentKind(uint8_t kind) { contentKind_ = kind; }
  uint8_t contentMode() const { return contentMode_; }
  bool detachedMarker() const { return detachedMarker_ != 0; }
  // The whole OBJECT IDENTIFIER element of the content type.
  const CvelString& contentType() const { return contentType_; }
  CvelResult setContentType(const void* der, uint32_t n) { return contentType_.assign(der, n); }
  const CvelString& content() const { return content_; }
  // Holds the content in memory (mode 1); empty content still counts as content.
  CvelResult setContent(const void* bytes, uint32_t n);
  // Content length and its offset in the decoded input; -1 until decoded.
  int32_t contentLength() const { return contentLength_; }
  int32_t contentPosition() const { return contentPosition_; }

 private:
  CvelResult decodeContent(CvelA1Input& in, CvelA1StreamCursor& explicitContent, uint32_t* end);
  CvelResult readChunks(CvelA1Input& in, const CvelA1StreamCursor& constructed, uint32_t* end);

  uint8_t contentKind_ = 0;
  uint8_t contentMode_ = kNoContent;
  uint8_t detachedMarker_ = 0;
  CvelString contentType_;
  CvelString content_;
  int32_t contentLength_ = -1;
  int32_t contentPosition_ = -1;
  static_assert(sizeof(contentLength_) == 4 && sizeof(contentPosition_) == 4, "content length and position are 32-bit");
};

#endif  // KOLVARI_CMS_CVEL_P71_H
