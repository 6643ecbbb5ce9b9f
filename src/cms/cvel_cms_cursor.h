// Small steps shared by the CMS decoders that walk their input with the stream cursor.
#ifndef KOLVARI_CMS_CVEL_CMS_CURSOR_H
#define KOLVARI_CMS_CVEL_CMS_CURSOR_H

#include <cstdint>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_der.h"

// A cursor over the content of the element `parent` has just read, ending where that element ends (for an
// element of indefinite length: where the parent's range ends).
inline CvelA1StreamCursor cvelCmsChildOf(const CvelA1StreamCursor& parent) {
  CvelA1StreamCursor child;
  child.setLimit(parent.position());
  child.setPosition(parent.contentOffset());
  return child;
}

inline bool cvelCmsIsEndOfContents(const CvelA1StreamCursor& c) { return c.tag() == kTagEndOfContents; }

// Start of the element the cursor has just read.
inline uint32_t cvelCmsElementStart(const CvelA1StreamCursor& c) { return c.contentOffset() - c.headerLength(); }

// Closes the element `parent` read last, whose members `child` has walked: when that element has indefinite
// length the next element of child must be its end-of-contents, and parent moves past it. False when the
// end-of-contents is missing.
inline bool cvelCmsClose(CvelA1Input& in, CvelA1StreamCursor& parent, CvelA1StreamCursor& child) {
  if (!parent.indefinite()) return true;
  if (child.next(in) != kCvelOk || !cvelCmsIsEndOfContents(child)) return false;
  parent.setPosition(child.position());
  return true;
}

#endif  // KOLVARI_CMS_CVEL_CMS_CURSOR_H
