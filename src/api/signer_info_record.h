// The record behind a signer-info handle: the SignerInfo object being filled and the two attribute maps
// from which the signed and unsigned attributes are built.
#ifndef KOLVARI_API_SIGNER_INFO_RECORD_H
#define KOLVARI_API_SIGNER_INFO_RECORD_H

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "asn1/cvel_string.h"
#include "cms/cvel_p7_signer_info.h"
#include "kolvari/zarv.h"

using ZarvBytes = std::vector<unsigned char>;

// Attribute type as dotted text -> the values in the order added, each one complete DER value. Types are
// ordered by unsigned byte-wise comparison of the text, a proper prefix first. A signer holds a handful of
// types, so they sit in one sorted array rather than a node per type.
class ZarvAttributeMap {
 public:
  struct Entry {
    std::string oid;
    std::vector<ZarvBytes> values;
  };

  ZarvAttributeMap() { entries_.reserve(kUsualTypes); }

  bool empty() const { return entries_.empty(); }
  bool contains(const std::string& oid) const {
    auto at = lowerBound(oid);
    return at != entries_.end() && at->oid == oid;
  }
  void erase(const std::string& oid) {
    auto at = lowerBound(oid);
    if (at != entries_.end() && at->oid == oid) entries_.erase(at);
  }
  // The values of the type, a new empty list in its place when the type is not there yet.
  std::vector<ZarvBytes>& valuesOf(const std::string& oid) {
    auto at = lowerBound(oid);
    if (at == entries_.end() || at->oid != oid) at = entries_.insert(at, Entry{oid, {}});
    return at->values;
  }

  std::vector<Entry>::const_iterator begin() const { return entries_.begin(); }
  std::vector<Entry>::const_iterator end() const { return entries_.end(); }
  size_t size() const { return entries_.size(); }

 private:
  static constexpr size_t kUsualTypes = 8;

  std::vector<Entry>::iterator lowerBound(const std::string& oid) {
    return std::lower_bound(entries_.begin(), entries_.end(), oid,
                            [](const Entry& e, const std::string& key) { return e.oid < key; });
  }
  std::vector<Entry>::const_iterator lowerBound(const std::string& oid) const {
    return std::lower_bound(entries_.begin(), entries_.end(), oid,
                            [](const Entry& e, const std::string& key) { return e.oid < key; });
  }

  std::vector<Entry> entries_;
};

enum class ZarvAttributeKind { kSigned, kUnsigned };

// The order of the Attributes in a built set: by the dotted text of the type (the map's order, the default),
// or DER SET OF order (by their encodings), which verifiers that re-encode the set before checking expect.
enum class ZarvAttributeOrder { kDottedType, kDer };

// The environment variable that selects DER order for the signed attributes, and the one value that does.
inline constexpr char kZarvDerOrderVariable[] = "KOLVARI_DER_ATTRIBUTE_ORDER";
inline constexpr char kZarvDerOrderOn[] = "1";

struct SignerInfoRecord {
  std::shared_ptr<CvelP7SignerInfo> signer;
  std::unique_ptr<ZarvAttributeMap> signedAttributes;
  std::unique_ptr<ZarvAttributeMap> unsignedAttributes;

  // The table for the kind, or null when the record has none.
  ZarvAttributeMap* table(ZarvAttributeKind kind) const {
    return kind == ZarvAttributeKind::kSigned ? signedAttributes.get() : unsignedAttributes.get();
  }
};

// The step every setter goes through: with replace 1 the type's earlier values go, then the value is
// appended under the type.
uint32_t zarvAddAttribute(SignerInfoRecord& record, ZarvAttributeKind kind, const std::string& oid,
                          const unsigned char* value, size_t length, uint32_t replace);

// The order the signed attributes take now: kDer when KOLVARI_DER_ATTRIBUTE_ORDER is "1", else kDottedType.
// Read on every call, so a host may switch it between signers.
ZarvAttributeOrder zarvSignedAttributeOrder();

// The concatenated Attributes of a map, one Attribute per value: SEQUENCE { OID, SET { value } }, in key
// order or in DER order. OID text that does not convert ends the build with the converter's result.
uint32_t zarvBuildAttributes(const ZarvAttributeMap& map, ZarvAttributeOrder order, CvelString& out);

// The IssuerAndSerialNumber of a parsed certificate: SEQUENCE { issuer Name, serialNumber }.
uint32_t zarvBuildSignerIdentifier(const CvelCertificate& certificate, CvelString& signerIdentifier);

// The signing-certificate-v2 value for a parsed certificate, the host's hash of it and that hash's OID
// (already DER).
uint32_t zarvBuildSigningCertificateV2(const CvelCertificate& certificate, const ZarvBytes& certificateHash,
                                       const CvelString& hashOid, CvelString& value);

#endif  // KOLVARI_API_SIGNER_INFO_RECORD_H
