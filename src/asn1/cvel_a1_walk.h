// A depth-first walk over every element of a DER image, built on CvelA1Context. It keeps its own stack of
// cursors instead of recursing, so deeply nested input cannot exhaust the call stack.
#ifndef KOLVARI_ASN1_CVEL_A1_WALK_H
#define KOLVARI_ASN1_CVEL_A1_WALK_H

#include <cstdint>
#include <functional>

class CvelString;

// One element as the walk meets it.
struct CvelA1WalkElement {
  uint32_t offset;         // first identifier octet
  uint32_t depth;          // 0 for the top level
  uint32_t headerLength;   // identifier and length octets
  uint32_t contentLength;  // as the length octets state it
  uint32_t tag;            // all identifier octets, big-endian
  bool constructed;        // the constructed bit of the first identifier octet: the walk enters it
  bool overruns;           // the element claims more bytes than its container holds
};

// How a walk ended.
struct CvelA1WalkResult {
  bool complete;         // every element lies inside its container
  uint32_t elements;     // number of elements met
  uint32_t faultOffset;  // the first element that overran its container or could not be read (when not complete)
  uint32_t faultDepth;
};

// Visits every element in encoding order; the visitor may stop the walk by returning false. An element that
// runs past its container is still visited (marked overruns) and entered as far as that container reaches, so
// that a truncated image shows what it holds; the result then is not complete. A header cut off by the end of
// the image ends the walk of its container, and so does an identifier the cursor reads as the end of its range
// (FF FF FF FF); both also make the result not complete.
CvelA1WalkResult cvelWalk(const CvelString& der, const std::function<bool(const CvelA1WalkElement&)>& visit);

#endif  // KOLVARI_ASN1_CVEL_A1_WALK_H
