#include "services/der_view.h"

#include <openssl/objects.h>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_der.h"

namespace {

// Reads the one element of der; false when it has another tag or anything follows it.
bool onlyElement(const CvelString& der, int32_t tag, CvelA1Context& c) {
  if (c.next(der) != tag || !c.elementInside(der)) return false;
  CvelA1Context after;
  after.copyState(c);
  return after.next(der) == CvelA1Context::kEnd;
}

}  // namespace

bool childrenOf(const CvelString& der, int32_t tag, std::vector<CvelString>& out) {
  out.clear();
  CvelA1Context outer;
  if (!onlyElement(der, tag, outer)) return false;
  CvelA1Context c;
  c.enterElementOf(outer);
  int32_t next = c.next(der);
  for (; next >= 0; next = c.next(der)) {
    out.emplace_back();
    if (!c.elementInside(der) || c.getElement(der, out.back()) != kCvelOk) return false;
  }
  return next == CvelA1Context::kEnd;
}

bool contentOf(const CvelString& der, int32_t tag, CvelString& out) {
  CvelA1Context c;
  return onlyElement(der, tag, c) && c.getContent(der, out) == kCvelOk;
}

const EVP_MD* digestOfAlgorithm(const CvelString& algorithmIdentifier) {
  std::vector<CvelString> parts;
  if (!childrenOf(algorithmIdentifier, kTagSequence, parts) || parts.empty()) return nullptr;
  const unsigned char* p = parts[0].data();
  ASN1_OBJECT* oid = d2i_ASN1_OBJECT(nullptr, &p, parts[0].length());
  if (oid == nullptr) return nullptr;
  const EVP_MD* md = EVP_get_digestbyobj(oid);
  ASN1_OBJECT_free(oid);
  return md;
}

bool oidElement(const char* dotted, CvelString& out) {
  ASN1_OBJECT* oid = OBJ_txt2obj(dotted, 1);
  if (oid == nullptr) return false;
  unsigned char* der = nullptr;
  const int n = i2d_ASN1_OBJECT(oid, &der);
  ASN1_OBJECT_free(oid);
  const bool made = n > 0 && out.assign(der, static_cast<uint32_t>(n)) == kCvelOk;
  OPENSSL_free(der);
  return made;
}

bool digestWith(const EVP_MD* md, const unsigned char* data, size_t n, Bytes& out) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (md == nullptr || EVP_Digest(data, n, digest, &length, md, nullptr) != 1) return false;
  out.assign(digest, digest + length);
  return true;
}
