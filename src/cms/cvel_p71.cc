#include "cms/cvel_p71.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_der.h"
#include "cms/cvel_cms_cursor.h"

namespace {

// Largest content a CvelString holds: its length is 32 bits and its buffer carries a terminator.
constexpr uint64_t kMaxImage = CvelString::kViewCapacity - 2;
constexpr char kGetSizeTrace[] = "CvelP71::get_asn1_size( CvelA1Size &velSize, BOOL bDetached ) called\n";

bool isIdData(const CvelString& type) {
  return type.length() == sizeof(kDerOidData) && std::memcmp(type.data(), kDerOidData, sizeof(kDerOidData)) == 0;
}

// The extent of an element of indefinite length: *length receives its content length up to its own
// end-of-contents, *end the position after that. Nested elements of indefinite length are walked with a
// depth count, not by recursion. False when the end-of-contents is missing or an element cannot be read.
bool measureIndefinite(CvelA1Input& in, const CvelA1StreamCursor& element, uint64_t* length, uint32_t* end) {
  CvelA1StreamCursor c;
  c.setLimit(element.limit());
  c.setPosition(element.contentOffset());
  uint64_t depth = 1;
  while (c.next(in) == kCvelOk) {
    if (cvelCmsIsEndOfContents(c)) {
      if (--depth != 0) continue;
      *length = cvelCmsElementStart(c) - element.contentOffset();
      *end = c.position();
      return true;
    }
    if (c.indefinite()) {
      ++depth;
      c.setPosition(c.contentOffset());
    }
  }
  return false;
}

// Reads count bytes of the input from offset into out.
bool readRange(CvelA1Input& in, uint32_t offset, uint64_t count, CvelString& out) {
  uint32_t got = 0;
  if (out.allocate(static_cast<uint32_t>(count)) != kCvelOk) return false;
  if (count != 0 && (in.seek(offset, CvelA1Input::kFromStart) != kCvelOk ||
                     in.read(out.data(), static_cast<uint32_t>(count), &got) != kCvelOk || got != count)) {
    return false;
  }
  out.truncate(got);
  return true;
}

}  // namespace

// A type that cannot be copied in stays empty, which encode then writes as an empty type.
CvelP71::CvelP71() { static_cast<void>(contentType_.assign(kDerOidData, sizeof(kDerOidData))); }

CvelResult CvelP71::assign(const CvelP71& other) {
  if (this == &other) return kCvelOk;
  CvelString type;
  CvelString content;
  if (type.assign(other.contentType_) != kCvelOk || content.assign(other.content_) != kCvelOk) {
    return kCvelErrNoMemory;
  }
  contentKind_ = other.contentKind_;
  contentMode_ = other.contentMode_;
  detachedMarker_ = other.detachedMarker_;
  contentType_.moveFrom(type);
  content_.moveFrom(content);
  contentLength_ = other.contentLength_;
  contentPosition_ = other.contentPosition_;
  return kCvelOk;
}

CvelResult CvelP71::setContent(const void* bytes, uint32_t n) {
  CvelResult r = content_.assign(bytes, n);
  if (r != kCvelOk) return r;
  contentMode_ = kContentInMemory;
  return kCvelOk;
}

CvelResult CvelP71::encode(CvelString& out, bool detached) const {
  const bool withContent = contentMode_ != kNoContent && !detached;
  // Content left in the input (large-content mode) cannot be embedded.
  if (withContent && contentMode_ != kContentInMemory) return kNotDone;

  const uint8_t innerTag = (contentKind_ & kContentKindSequence) ? kTagSequence : kTagOctetString;
  return cvelEncodeDer(out, [&](CvelDerWriter& w) {
    w.element(kTagSequence, [&] {
      w.bytes(contentType_);
      if (withContent) w.element(kTagContext0, [&] { w.element(innerTag, content_); });
    });
  });
}

void CvelP71::getSize(CvelA1Size&, bool) const {
  std::fputs(kGetSizeTrace, stdout);
  std::fflush(stdout);
  std::abort();
}

// ContentInfo ::= SEQUENCE { contentType OBJECT IDENTIFIER, content [0] EXPLICIT ANY OPTIONAL }
CvelResult CvelP71::decode(CvelA1Input& in, CvelA1StreamCursor& cursor) {
  if (cursor.tag() != kTagSequence || cursor.contentLength() == 0) return kCvelOk;
  CvelA1StreamCursor c = cvelCmsChildOf(cursor);
  if (c.next(in) != kCvelOk || c.tag() != kTagOid) return kCvelOk;
  CvelResult r = c.getElement(in, contentType_);
  if (r != kCvelOk) return kCvelErrMalformed;

  r = c.next(in);
  // An end-of-contents pair closes a SEQUENCE of indefinite length just as the end of a definite one does.
  if (r == kCvelErrEndOfData || (r == kCvelOk && cvelCmsIsEndOfContents(c))) {
    contentMode_ = kNoContent;
    detachedMarker_ = 1;
    if (cursor.indefinite() && r == kCvelOk) cursor.setPosition(cvelCmsElementStart(c));
    return kCvelOk;
  }
  if (r != kCvelOk) return kCvelErrMalformed;
  if (c.tag() != kTagContext0) return kNotDone;

  uint32_t end = 0;
  r = decodeContent(in, c, &end);
  if (r != kCvelOk) return r;
  detachedMarker_ = 0;
  if (cursor.indefinite()) cursor.setPosition(end);
  return kCvelOk;
}

// The [0] element: one OCTET STRING, SEQUENCE or constructed OCTET STRING. *end receives the position after
// the [0] element, its end-of-contents included when it has indefinite length.
CvelResult CvelP71::decodeContent(CvelA1Input& in, CvelA1StreamCursor& explicitContent, uint32_t* end) {
  CvelA1StreamCursor inner = cvelCmsChildOf(explicitContent);
  if (inner.next(in) != kCvelOk) return kCvelErrMalformed;
  uint32_t innerEnd = 0;
  uint64_t length = 0;
  switch (inner.tag()) {
    case kTagOctetString:
    case kTagSequence:
      // The mode is chosen by the content length, whichever form it has: an indefinite length is measured
      // up to the element's own end-of-contents (the cursor would run it to the end of the range).
      length = inner.contentLength();
      innerEnd = inner.position();
      if (inner.indefinite() && !measureIndefinite(in, inner, &length, &innerEnd)) return kCvelErrMalformed;
      if (length > kMaxContentInMemory) {
        content_.release();
        contentMode_ = kContentTooLarge;
      } else {
        if (!readRange(in, inner.contentOffset(), length, content_)) return kCvelErrMalformed;
        contentMode_ = kContentInMemory;
      }
      break;
    case kTagConstructedOctetString: {
      CvelResult r = readChunks(in, inner, &innerEnd);
      if (r != kCvelOk) return r;
      length = content_.length();
      contentMode_ = kContentInMemory;
      break;
    }
    default:
      return kNotDone;
  }
  // The flag that says how content is written back is set for content given as a SEQUENCE, and for any
  // content type other than id-data: such content is the DER of a structure (a time-stamp token's
  // TSTInfo, for one), and readers of those tokens require the flag set even though RFC 3161 carries the
  // TSTInfo in an OCTET STRING. Data content keeps the OCTET STRING form, so it encodes back unchanged.
  contentKind_ = (inner.tag() == kTagSequence || !isIdData(contentType_)) ? kContentKindSequence : 0;
  contentLength_ = static_cast<int32_t>(length);
  contentPosition_ = static_cast<int32_t>(inner.contentOffset());

  if (!explicitContent.indefinite()) {
    *end = explicitContent.position();
    return kCvelOk;
  }
  inner.setPosition(innerEnd);
  if (inner.next(in) != kCvelOk || !cvelCmsIsEndOfContents(inner)) return kCvelErrMalformed;
  *end = inner.position();
  return kCvelOk;
}

// The chunks of a constructed OCTET STRING, up to the first element that is not an OCTET STRING. They are
// summed first and then read into one buffer of the final size.
CvelResult CvelP71::readChunks(CvelA1Input& in, const CvelA1StreamCursor& constructed, uint32_t* end) {
  uint64_t total = 0;
  CvelA1StreamCursor chunk = cvelCmsChildOf(constructed);
  CvelResult r = kCvelOk;
  while ((r = chunk.next(in)) == kCvelOk && chunk.tag() == kTagOctetString) {
    total += chunk.contentLength();
    if (total > kMaxImage) return kCvelErrNoMemory;
  }
  if (r != kCvelOk && r != kCvelErrEndOfData) return kCvelErrMalformed;
  if (constructed.indefinite()) {
    if (r != kCvelOk || !cvelCmsIsEndOfContents(chunk)) return kCvelErrMalformed;
    *end = chunk.position();
  } else {
    *end = constructed.position();
  }

  CvelString content;
  if (content.allocate(static_cast<uint32_t>(total)) != kCvelOk) return kCvelErrNoMemory;
  uint32_t filled = 0;
  chunk = cvelCmsChildOf(constructed);
  while (filled < total && chunk.next(in) == kCvelOk && chunk.tag() == kTagOctetString) {
    const uint32_t n = chunk.contentLength();
    uint32_t got = 0;
    if (n != 0 && (in.seek(chunk.contentOffset(), CvelA1Input::kFromStart) != kCvelOk ||
                   in.read(content.data() + filled, n, &got) != kCvelOk || got != n)) {
      return kCvelErrMalformed;
    }
    filled += n;
  }
  if (filled != total) return kCvelErrMalformed;
  content_.moveFrom(content);
  return kCvelOk;
}

CvelResult CvelP71::readLargeContent(CvelA1Input& in, uint32_t offset, void* buffer, uint32_t count,
                                     uint32_t* got) const {
  if (buffer == nullptr || got == nullptr || contentMode_ != kContentTooLarge || contentPosition_ < 0) {
    return kCvelErrBadParameter;
  }
  *got = 0;
  const uint32_t length = static_cast<uint32_t>(contentLength_);
  if (offset >= length) return kCvelOk;
  if (count > length - offset) count = length - offset;
  CvelResult r = in.seek(static_cast<int64_t>(contentPosition_) + offset, CvelA1Input::kFromStart);
  return r != kCvelOk ? r : in.read(buffer, count, got);
}
