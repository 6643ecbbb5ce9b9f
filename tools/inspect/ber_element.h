// The extent of one BER element in a buffer that may hold more after it: the CMS in a PDF's /Contents is
// followed by the placeholder's zero padding, and NSS (pdfsig) and `openssl cms -stream` write it with
// indefinite lengths, so the end is found by walking the nested elements to their end-of-contents octets.
#ifndef KOLVARI_TOOLS_INSPECT_BER_ELEMENT_H
#define KOLVARI_TOOLS_INSPECT_BER_ELEMENT_H

#include <cstddef>

// The deepest nesting of indefinite lengths followed; a deeper element is not read.
inline constexpr int kMaxIndefiniteDepth = 64;

// The length of the element at the start of p (identifier, length and content octets, and end-of-contents
// octets of indefinite lengths), or 0 when the n bytes do not begin with a whole element. Reads no byte at or
// past p + n; each step moves forward, so the walk ends.
size_t berElementLength(const unsigned char* p, size_t n);

#endif  // KOLVARI_TOOLS_INSPECT_BER_ELEMENT_H
