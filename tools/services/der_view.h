// Small readers over DER held in a CvelString, shared by the service clients: the children of an element,
// the content of an element with a given tag, and the OpenSSL digest an AlgorithmIdentifier names.
#ifndef KOLVARI_TOOLS_SERVICES_DER_VIEW_H
#define KOLVARI_TOOLS_SERVICES_DER_VIEW_H

#include <cstdint>
#include <string>
#include <vector>

#include <openssl/evp.h>

#include "asn1/cvel_string.h"

using Bytes = std::vector<unsigned char>;

// The children of the one element der holds, each a copy of the whole child element. False when der is not
// exactly one constructed element with the tag, or a child does not lie inside it.
bool childrenOf(const CvelString& der, int32_t tag, std::vector<CvelString>& out);
// The content of the one element der holds when it has the tag; false otherwise.
bool contentOf(const CvelString& der, int32_t tag, CvelString& out);
// The digest named by an AlgorithmIdentifier element; null for one OpenSSL does not know.
const EVP_MD* digestOfAlgorithm(const CvelString& algorithmIdentifier);
// The whole OBJECT IDENTIFIER element of dotted text, made by OpenSSL.
bool oidElement(const char* dotted, CvelString& out);
// The digest of data with md.
bool digestWith(const EVP_MD* md, const unsigned char* data, size_t n, Bytes& out);

inline CvelString copyOf(const Bytes& b) {
  CvelString s;
  if (s.assign(b.data(), static_cast<uint32_t>(b.size())) != kCvelOk) s.release();
  return s;
}
inline Bytes bytesOf(const CvelString& s) { return Bytes(s.data(), s.data() + s.length()); }

#endif  // KOLVARI_TOOLS_SERVICES_DER_VIEW_H
