#include "signing/archive_timestamp.h"

#include <algorithm>

#include <openssl/objects.h>

#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_der.h"
#include "cms/cvel_p7_signer_info.h"
#include "services/der_view.h"

namespace {

// The attributes of a run, each a whole Attribute element; false when the run is not a series of elements.
bool attributesOf(const CvelString& run, std::vector<CvelString>& out) {
  out.clear();
  if (run.isEmpty()) return true;
  Bytes set;
  return cvelEncodeDer(set, [&run](CvelDerWriter& w) { w.element(kTagSet, run); }) == kCvelOk &&
         childrenOf(copyOf(set), kTagSet, out);
}

// Attribute ::= SEQUENCE { attrType OBJECT IDENTIFIER, attrValues SET OF AttributeValue }
bool splitAttribute(const CvelString& attribute, CvelString& type, std::vector<CvelString>& values) {
  std::vector<CvelString> parts;
  if (!childrenOf(attribute, kTagSequence, parts) || parts.size() != 2 || parts[0].isEmpty() ||
      parts[0].data()[0] != kTagOid || !childrenOf(parts[1], kTagSet, values)) {
    return false;
  }
  return type.assign(parts[0]) == kCvelOk;
}

// SEQUENCE OF OCTET STRING: the hash of each item, encoded into out.
bool hashList(const EVP_MD* md, const std::vector<Bytes>& items, Bytes& out) {
  std::vector<Bytes> hashes(items.size());
  for (size_t i = 0; i < items.size(); ++i) {
    if (!digestWith(md, items[i].data(), items[i].size(), hashes[i])) return false;
  }
  return cvelEncodeDer(out, [&hashes](CvelDerWriter& w) {
    w.element(kTagSequence, [&] {
      for (const Bytes& h : hashes) w.element(kTagOctetString, h.data(), h.size());
    });
  }) == kCvelOk;
}

// attrType || AttributeValue, once for each value of each attribute.
bool attributeValueItems(const CvelString& unsignedAttributes, std::vector<Bytes>& out) {
  std::vector<CvelString> attributes;
  if (!attributesOf(unsignedAttributes, attributes)) return false;
  for (const CvelString& attribute : attributes) {
    CvelString type;
    std::vector<CvelString> values;
    if (!splitAttribute(attribute, type, values)) return false;
    for (const CvelString& value : values) {
      Bytes item = bytesOf(type);
      item.insert(item.end(), value.data(), value.data() + value.length());
      out.push_back(std::move(item));
    }
  }
  return true;
}

// The AlgorithmIdentifier of md without parameters, as RFC 5754 writes the SHA-2 family.
bool algorithmOf(const EVP_MD* md, Bytes& out) {
  constexpr int kOidTextSize = 80;
  char dotted[kOidTextSize] = {};
  const ASN1_OBJECT* object = OBJ_nid2obj(EVP_MD_type(md));
  CvelString oid;
  if (object == nullptr || OBJ_obj2txt(dotted, sizeof dotted, object, 1) <= 0 || !oidElement(dotted, oid)) {
    return false;
  }
  return cvelEncodeDer(out, [&oid](CvelDerWriter& w) { w.element(kTagSequence, [&] { w.bytes(oid); }); }) == kCvelOk;
}

// Every item of a SEQUENCE OF OCTET STRING of the index is the hash of one of items.
bool listMatches(const EVP_MD* md, const CvelString& list, const std::vector<Bytes>& items) {
  std::vector<CvelString> hashes;
  std::vector<Bytes> known(items.size());
  if (!childrenOf(list, kTagSequence, hashes)) return false;
  for (size_t i = 0; i < items.size(); ++i) {
    if (!digestWith(md, items[i].data(), items[i].size(), known[i])) return false;
  }
  for (const CvelString& h : hashes) {
    CvelString hash;
    if (!contentOf(h, kTagOctetString, hash)) return false;
    const Bytes value = bytesOf(hash);
    if (std::find(known.begin(), known.end(), value) == known.end()) return false;
  }
  return true;
}

}  // namespace

bool hashIndexMatches(const CvelString& hashIndex, const std::vector<Bytes>& certificates,
                      const std::vector<Bytes>& crls, const CvelString& unsignedAttributes, std::string& reason) {
  constexpr size_t kListCount = 3;
  std::vector<CvelString> fields;
  std::vector<Bytes> values;
  if (!childrenOf(hashIndex, kTagSequence, fields) || fields.size() < kListCount ||
      fields.size() > kListCount + 1 || !attributeValueItems(unsignedAttributes, values)) {
    reason = "the ats-hash-index-v3 does not decode";
    return false;
  }
  const size_t first = fields.size() - kListCount;
  const EVP_MD* md = first == 0 ? EVP_sha256() : digestOfAlgorithm(fields[0]);
  if (md == nullptr) {
    reason = "the ats-hash-index-v3 names a hash algorithm OpenSSL does not offer";
    return false;
  }
  const char* names[kListCount] = {"certificatesHashIndex", "crlsHashIndex", "unsignedAttrsHashIndex"};
  const std::vector<Bytes>* lists[kListCount] = {&certificates, &crls, &values};
  for (size_t i = 0; i < kListCount; ++i) {
    if (!listMatches(md, fields[first + i], *lists[i])) {
      reason = std::string("a hash of the ats-hash-index-v3's ") + names[i] +
               " names nothing the signature carries: a part it covers was changed or removed";
      return false;
    }
  }
  return true;
}

bool atsHashIndex(const EVP_MD* md, const std::vector<Bytes>& certificates, const std::vector<Bytes>& crls,
                  const CvelString& unsignedAttributes, Bytes& out) {
  std::vector<Bytes> values;
  Bytes certificateHashes;
  Bytes crlHashes;
  Bytes valueHashes;
  Bytes algorithm;
  if (md == nullptr || !attributeValueItems(unsignedAttributes, values) ||
      !hashList(md, certificates, certificateHashes) || !hashList(md, crls, crlHashes) ||
      !hashList(md, values, valueHashes)) {
    return false;
  }
  // hashIndAlgorithm is DEFAULT id-sha256, which DER leaves out.
  if (EVP_MD_type(md) != NID_sha256 && !algorithmOf(md, algorithm)) return false;
  return cvelEncodeDer(out, [&](CvelDerWriter& w) {
    w.element(kTagSequence, [&] {
      w.bytes(algorithm.data(), algorithm.size());
      for (const Bytes* list : {&certificateHashes, &crlHashes, &valueHashes}) w.bytes(list->data(), list->size());
    });
  }) == kCvelOk;
}

bool archiveImprintInput(const CvelString& contentType, const Bytes& contentHash, const CvelP7SignerInfo& signer,
                         const Bytes& hashIndex, Bytes& out) {
  CvelString encoded;
  std::vector<CvelString> fields;
  if (contentType.isEmpty() || signer.encode(encoded) != kCvelOk ||
      !childrenOf(encoded, kTagSequence, fields)) {
    return false;
  }
  out = bytesOf(contentType);
  out.insert(out.end(), contentHash.begin(), contentHash.end());
  // Every field of the SignerInfo in its order, the unsigned attributes [1] left out.
  for (const CvelString& field : fields) {
    if (field.data()[0] != kTagContext1) out.insert(out.end(), field.data(), field.data() + field.length());
  }
  out.insert(out.end(), hashIndex.begin(), hashIndex.end());
  return true;
}

bool attributeValues(const CvelString& attributes, const char* oid, std::vector<CvelString>& out) {
  out.clear();
  CvelString wanted;
  std::vector<CvelString> list;
  if (!oidElement(oid, wanted) || !attributesOf(attributes, list)) return false;
  for (const CvelString& attribute : list) {
    CvelString type;
    std::vector<CvelString> values;
    if (!splitAttribute(attribute, type, values)) return false;
    if (!type.equals(wanted)) continue;
    for (CvelString& v : values) out.push_back(std::move(v));
  }
  return true;
}

bool appendAttribute(CvelString& attributes, const char* oid, const Bytes& value) {
  CvelString type;
  Bytes attribute;
  const auto encode = [&](CvelDerWriter& w) {
    w.element(kTagSequence, [&] {
      w.bytes(type);
      w.element(kTagSet, [&] { w.bytes(value.data(), value.size()); });
    });
  };
  if (!oidElement(oid, type) || cvelEncodeDer(attribute, encode) != kCvelOk) return false;
  return attributes.append(attribute.data(), static_cast<uint32_t>(attribute.size())) == kCvelOk;
}
