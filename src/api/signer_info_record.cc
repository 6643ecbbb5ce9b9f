#include "api/signer_info_record.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_oid.h"

namespace {
constexpr uint32_t kReplace = 1;

// X.690 11.6: SET OF components compare as octet strings, the shorter one padded with zero octets at its end.
bool derSetOfLess(const CvelString& a, const CvelString& b) {
  const uint32_t common = std::min(a.length(), b.length());
  for (uint32_t i = 0; i < common; ++i) {
    if (a.data()[i] != b.data()[i]) return a.data()[i] < b.data()[i];
  }
  // Past the common part only a non-zero octet of the longer one can make the difference.
  const CvelString& longer = a.length() > b.length() ? a : b;
  for (uint32_t i = common; i < longer.length(); ++i) {
    if (longer.data()[i] != 0) return &longer == &b;
  }
  return false;
}

// One Attribute: SEQUENCE { type OID, SET { value } }, the value already DER.
struct AttributeParts {
  const CvelString* type;
  const unsigned char* value;
  size_t valueLength;

  uint64_t content() const { return type->length() + cvelTlvSize(valueLength); }
  uint64_t size() const { return cvelTlvSize(content()); }
  void write(CvelA1Writer& w) const {
    w.header(kTagSequence, content());
    w.bytes(*type);
    w.header(kTagSet, valueLength);
    if (valueLength != 0) w.bytes(value, valueLength);
  }
};

// The Attributes in DER order: each one is encoded on its own, then they are sorted by their encodings.
uint32_t writeInDerOrder(const std::vector<AttributeParts>& attributes, CvelString& out) {
  std::vector<CvelString> encodings(attributes.size());
  for (size_t i = 0; i < attributes.size(); ++i) {
    const AttributeParts& a = attributes[i];
    uint32_t r = cvelWriteExactly(a.size(), encodings[i], [&a](CvelA1Writer& w) { a.write(w); });
    if (r != kCvelOk) return r;
  }
  std::vector<const CvelString*> sorted;
  sorted.reserve(encodings.size());
  for (const CvelString& encoding : encodings) sorted.push_back(&encoding);
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const CvelString* a, const CvelString* b) { return derSetOfLess(*a, *b); });
  uint64_t total = 0;
  for (const CvelString* encoding : sorted) total += encoding->length();
  return cvelWriteExactly(total, out, [&sorted](CvelA1Writer& w) {
    for (const CvelString* encoding : sorted) w.bytes(*encoding);
  });
}

// The converted types of a map, one per type in the map's order. A signer has a handful of types: they are
// held here without a block of their own, more spill into a vector.
class ConvertedTypes {
 public:
  explicit ConvertedTypes(size_t count) {
    if (count > kHeld) spill_.resize(count);
    types_ = count > kHeld ? spill_.data() : held_;
  }
  CvelString& operator[](size_t i) { return types_[i]; }

 private:
  static constexpr size_t kHeld = 8;
  CvelString held_[kHeld];
  std::vector<CvelString> spill_;
  CvelString* types_;
};

// Calls visit(value, type index) for each value of the map in its order.
template <typename Visit>
void forEachValue(const ZarvAttributeMap& map, Visit&& visit) {
  size_t type = 0;
  const ZarvAttributeMap::Value* previous = nullptr;
  for (const ZarvAttributeMap::Value& v : map.values()) {
    if (previous != nullptr && previous->typeOffset != v.typeOffset) ++type;
    visit(v, type);
    previous = &v;
  }
}
}  // namespace

void ZarvAttributeMap::erase(std::string_view type) {
  auto first = lowerBound(type);
  eraseRange(first, std::find_if(first, values_.cend(), [&](const Value& v) { return typeOf(v) != type; }));
}

std::vector<ZarvAttributeMap::Value>::iterator ZarvAttributeMap::eraseRange(std::vector<Value>::const_iterator first,
                                                                           std::vector<Value>::const_iterator last) {
  if (first == last) return values_.erase(first, first);
  waste_ += first->typeLength + 1;
  for (auto at = first; at != last; ++at) waste_ += at->length;
  return values_.erase(first, last);
}

size_t ZarvAttributeMap::typeCount() const {
  size_t count = 0;
  forEachValue(*this, [&count](const Value&, size_t type) { count = type + 1; });
  return count;
}

std::vector<ZarvAttributeMap::Value>::const_iterator ZarvAttributeMap::lowerBound(std::string_view type) const {
  return std::lower_bound(values_.begin(), values_.end(), type,
                          [this](const Value& v, std::string_view key) { return typeOf(v) < key; });
}

void ZarvAttributeMap::index(std::string_view type, size_t offset, size_t length, bool replace) {
  // One search: the type's values are the run from the lower bound on, a handful at most.
  auto first = lowerBound(type);
  auto last = std::find_if(first, values_.cend(), [&](const Value& v) { return typeOf(v) != type; });
  Value value{0, type.size(), offset, length};
  if (replace || first == last) {
    auto at = eraseRange(first, last);
    value.typeOffset = block_.size();
    block_.insert(block_.end(), type.begin(), type.end());
    block_.push_back(0);
    values_.insert(at, value);
    return;
  }
  value.typeOffset = first->typeOffset;
  values_.insert(last, value);
}

void ZarvAttributeMap::compactWhenMostlyWaste() {
  if (block_.capacity() == 0) {
    block_.reserve(kUsualBytes);
    values_.reserve(kUsualValues);
    return;
  }
  if (waste_ == 0 || waste_ < block_.size() / 2) return;
  std::vector<unsigned char> kept;
  kept.reserve(std::max(kUsualBytes, block_.size() - waste_));
  // The values of one type are neighbours in the index and share one text, told apart by its old offset.
  size_t oldType = SIZE_MAX;
  size_t newType = 0;
  for (Value& v : values_) {
    if (v.typeOffset != oldType) {
      oldType = v.typeOffset;
      newType = kept.size();
      const unsigned char* text = block_.data() + v.typeOffset;
      kept.insert(kept.end(), text, text + v.typeLength + 1);
    }
    v.typeOffset = newType;
    const size_t offset = kept.size();
    kept.insert(kept.end(), block_.data() + v.offset, block_.data() + v.offset + v.length);
    v.offset = offset;
  }
  block_.swap(kept);
  waste_ = 0;
}

uint32_t zarvAddAttribute(SignerInfoRecord& record, ZarvAttributeKind kind, std::string_view oid,
                          const unsigned char* value, size_t length, uint32_t replace) {
  const bool added = record.table(kind).add(oid, length, replace == kReplace,
                                            [value, length](CvelA1Writer& w) { w.bytes(value, length); });
  return added ? ZARV_OK : ZARV_E_NOT_STORED;
}

ZarvAttributeOrder zarvSignedAttributeOrder() {
  const char* value = std::getenv(kZarvDerOrderVariable);
  if (value != nullptr && std::strcmp(value, kZarvDerOrderOn) == 0) return ZarvAttributeOrder::kDer;
  return ZarvAttributeOrder::kDottedType;
}

uint32_t zarvBuildAttributes(const ZarvAttributeMap& map, ZarvAttributeOrder order, CvelString& out) {
  // Each type is converted once, in the map's order, before anything is written; the attributes borrow
  // these strings and the map's octets until the set is written.
  ConvertedTypes types(map.typeCount());
  uint64_t total = 0;
  uint32_t failure = ZARV_OK;
  size_t converted = 0;
  forEachValue(map, [&](const ZarvAttributeMap::Value& v, size_t type) {
    if (failure != ZARV_OK) return;
    if (type == converted) {
      failure = fromDottedElement(map.typeText(v), types[type]);
      if (failure != ZARV_OK) return;
      ++converted;
    }
    total += AttributeParts{&types[type], map.bytesOf(v), v.length}.size();
  });
  if (failure != ZARV_OK) return failure;
  if (order == ZarvAttributeOrder::kDer) {
    std::vector<AttributeParts> attributes;
    attributes.reserve(map.values().size());
    forEachValue(map, [&](const ZarvAttributeMap::Value& v, size_t type) {
      attributes.push_back({&types[type], map.bytesOf(v), v.length});
    });
    return writeInDerOrder(attributes, out);
  }
  return cvelWriteExactly(total, out, [&](CvelA1Writer& w) {
    forEachValue(map, [&](const ZarvAttributeMap::Value& v, size_t type) {
      AttributeParts{&types[type], map.bytesOf(v), v.length}.write(w);
    });
  });
}

// Both builders below write a fixed shape around pieces of the certificate: sizes first, then one pass of the
// writer into the bytes' final place, without a tree of pieces in between.

uint32_t zarvBuildSignerIdentifier(const CvelCertificate& certificate, CvelString& signerIdentifier) {
  // IssuerAndSerialNumber has the same bytes as the certificate's own issuer-and-serial pair.
  return certificate.getIssuerSerial(signerIdentifier);
}

// SigningCertificateV2 ::= SEQUENCE { certs SEQUENCE OF ESSCertIDv2 }, one ESSCertIDv2 ::= SEQUENCE {
//   hashAlgorithm SEQUENCE { OID, NULL }, certHash OCTET STRING,
//   issuerSerial SEQUENCE { issuer SEQUENCE { [4] { Name } }, serialNumber } }.
ZarvSigningCertificateV2::ZarvSigningCertificateV2(const CvelCertificate& certificate,
                                                   const ZarvBytes& certificateHash, const CvelString& hashOid)
    : issuer_(certificate.issuer()),
      serial_(certificate.serialNumber()),
      certificateHash_(certificateHash),
      hashOid_(hashOid),
      // The NULL parameters are always written, whatever the hash algorithm.
      hashAlgorithmContent_(static_cast<uint64_t>(hashOid.length()) + sizeof kDerNull),
      generalNamesContent_(cvelTlvSize(issuer_.length())),
      issuerSerialContent_(cvelTlvSize(generalNamesContent_) + serial_.length()),
      certIdContent_(cvelTlvSize(hashAlgorithmContent_) + cvelTlvSize(certificateHash.size()) +
                     cvelTlvSize(issuerSerialContent_)),
      certsContent_(cvelTlvSize(certIdContent_)),
      valueContent_(cvelTlvSize(certsContent_)) {}

void ZarvSigningCertificateV2::write(CvelA1Writer& w) const {
  w.header(kTagSequence, valueContent_);
  w.header(kTagSequence, certsContent_);
  w.header(kTagSequence, certIdContent_);
  w.header(kTagSequence, hashAlgorithmContent_);
  w.bytes(hashOid_);
  w.bytes(kDerNull, sizeof kDerNull);
  w.header(kTagOctetString, certificateHash_.size());
  if (!certificateHash_.empty()) w.bytes(certificateHash_.data(), certificateHash_.size());
  w.header(kTagSequence, issuerSerialContent_);
  w.header(kTagSequence, generalNamesContent_);
  w.header(kTagContext4, issuer_.length());
  w.bytes(issuer_);
  w.bytes(serial_);
}
