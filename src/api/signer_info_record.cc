#include "api/signer_info_record.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_oid.h"

namespace {
constexpr uint32_t kReplace = 1;

// X.690 11.6: SET OF components compare as octet strings, the shorter one padded with zero octets at its end.
template <typename Octets>
bool derSetOfLess(const Octets& a, const Octets& b) {
  const uint32_t common = std::min(a.length, b.length);
  const int c = common == 0 ? 0 : std::memcmp(a.data, b.data, common);
  if (c != 0) return c < 0;
  // Past the common part only a non-zero octet of the longer one can make the difference.
  const bool bLonger = b.length > a.length;
  const Octets& longer = bLonger ? b : a;
  for (uint32_t i = common; i < longer.length; ++i) {
    if (longer.data[i] != 0) return bLonger;
  }
  return false;
}

// One Attribute: SEQUENCE { type OID, SET { value } }, the value already DER.
struct AttributeParts {
  const CvelString* type;
  const unsigned char* value;
  size_t valueLength;

  void write(CvelDerWriter& w) const {
    w.element(kTagSequence, [&] {
      w.bytes(*type);
      w.element(kTagSet, value, valueLength);
    });
  }
};

// Where one Attribute's encoding sits in the block of all of them.
struct Encoding {
  const unsigned char* data;
  uint32_t length;
};

// The Attributes in DER order: all of them encoded one behind the other into one block, an index of where
// each one sits sorted by their octets, then the set written from the sorted index.
uint32_t writeInDerOrder(const std::vector<AttributeParts>& attributes, CvelString& out) {
  CvelString block;
  uint32_t r = cvelEncodeDer(block, [&attributes](CvelDerWriter& w) {
    for (const AttributeParts& a : attributes) a.write(w);
  });
  if (r != kCvelOk) return r;
  // Each encoding's extent, read back from its own header.
  std::vector<Encoding> sorted;
  sorted.reserve(attributes.size());
  CvelA1Context c;
  while (c.next(block) == kTagSequence) {
    sorted.push_back({block.data() + c.elementOffset(), c.elementLength()});
  }
  if (sorted.size() != attributes.size()) return kCvelErrMalformed;
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const Encoding& a, const Encoding& b) { return derSetOfLess(a, b); });
  return cvelEncodeDer(out, [&sorted](CvelDerWriter& w) {
    for (const Encoding& e : sorted) w.bytes(e.data, e.length);
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
  const bool added = record.table(kind).add(oid, replace == kReplace,
                                            [value, length](CvelDerWriter& w) { w.bytes(value, length); });
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
  uint32_t failure = ZARV_OK;
  size_t converted = 0;
  forEachValue(map, [&](const ZarvAttributeMap::Value& v, size_t type) {
    if (failure != ZARV_OK || type != converted) return;
    failure = fromDottedElement(map.typeText(v), types[type]);
    if (failure == ZARV_OK) ++converted;
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
  return cvelEncodeDer(out, [&](CvelDerWriter& w) {
    forEachValue(map, [&](const ZarvAttributeMap::Value& v, size_t type) {
      AttributeParts{&types[type], map.bytesOf(v), v.length}.write(w);
    });
  });
}

uint32_t zarvBuildSignerIdentifier(const CvelCertificate& certificate, ZarvRecordRoom& room,
                                   CvelString& signerIdentifier) {
  return zarvWriteField(room, signerIdentifier, [&certificate](CvelDerWriter& w) {
    w.element(kTagSequence, [&] {
      w.bytes(certificate.issuer());
      w.bytes(certificate.serialNumber());
    });
  });
}

// SigningCertificateV2 ::= SEQUENCE { certs SEQUENCE OF ESSCertIDv2 }, one ESSCertIDv2 ::= SEQUENCE {
//   hashAlgorithm SEQUENCE { OID, NULL }, certHash OCTET STRING,
//   issuerSerial SEQUENCE { issuer SEQUENCE { [4] { Name } }, serialNumber } }.
void zarvWriteSigningCertificateV2(CvelDerWriter& w, const CvelCertificate& certificate,
                                   const ZarvBytes& certificateHash, const CvelString& hashOid) {
  w.element(kTagSequence, [&] {
    w.element(kTagSequence, [&] {
      w.element(kTagSequence, [&] {
        // The NULL parameters are always written, whatever the hash algorithm.
        w.element(kTagSequence, [&] {
          w.bytes(hashOid);
          w.bytes(kDerNull, sizeof kDerNull);
        });
        w.element(kTagOctetString, certificateHash.data(), certificateHash.size());
        w.element(kTagSequence, [&] {
          w.element(kTagSequence, [&] { w.element(kTagContext4, certificate.issuer()); });
          w.bytes(certificate.serialNumber());
        });
      });
    });
  });
}
