#include "api/signer_info_record.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "api/zarv_known_oids.h"
#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_a1_size.h"
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

// One Attribute: SEQUENCE { type OID, SET { value } }, the value already DER. Its size follows from the
// parts' lengths, so a set of them is written in one pass at its final size.
struct AttributeParts {
  std::string_view type;
  const unsigned char* value;
  size_t valueLength;

  uint64_t contentSize() const { return type.size() + cvelTlvSize(valueLength); }
  uint64_t size() const { return cvelTlvSize(contentSize()); }
  void write(CvelA1Writer& w) const {
    w.header(kTagSequence, contentSize());
    w.bytes(type.data(), type.size());
    w.header(kTagSet, valueLength);
    w.bytes(value, valueLength);
  }
};

// Where one Attribute's encoding sits in the block of all of them.
struct Encoding {
  const unsigned char* data;
  uint32_t length;
};

// The Attributes in DER order: all of them encoded one behind the other into one block, an index of where
// each one sits sorted by their octets, then the set written from the sorted index.
uint32_t writeInDerOrder(const std::vector<AttributeParts>& attributes, ZarvRecordRoom& room, CvelString& out) {
  CvelString block;
  uint64_t total = 0;
  for (const AttributeParts& a : attributes) total += a.size();
  uint32_t r = cvelWriteExactly(total, block, [&attributes](CvelA1Writer& w) {
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
  return zarvWriteField(room, out, block.length(), [&sorted](CvelA1Writer& w) {
    for (const Encoding& e : sorted) w.bytes(e.data, e.length);
  });
}

// One type of a map: its values, neighbours in the index, and its element for the set: the known one, or
// the converter's (see zarvBuildAttributes).
struct TypeRun {
  const ZarvAttributeMap::Value* first;
  size_t count;
  std::string_view element;
};

// The types of a map in the order of their texts (unsigned octet by octet, a proper prefix first). A signer
// has a handful of types: they are held here without a block of their own, more spill into a vector.
class TypesInOrder {
 public:
  explicit TypesInOrder(const ZarvAttributeMap& map) {
    const ZarvAttributeMap::ValueIndex& values = map.values();
    size_t count = 0;
    for (size_t i = 0; i < values.size(); ++i) {
      if (i == 0 || values[i].typeOffset != values[i - 1].typeOffset) ++count;
    }
    if (count > kHeld) spill_.resize(count);
    runs_ = count > kHeld ? spill_.data() : held_;
    // A type's values are neighbours: a run is placed at its first value and counted over the rest.
    size_t at = 0;
    for (size_t i = 0; i < values.size(); ++i) {
      if (i != 0 && values[i].typeOffset == values[i - 1].typeOffset) {
        ++runs_[at].count;
        continue;
      }
      // Insertion in text order: the texts of a map are distinct, and a handful.
      at = count_++;
      const std::string_view text = map.typeOf(values[i]);
      for (; at > 0 && text < map.typeOf(*runs_[at - 1].first); --at) {
        runs_[at].first = runs_[at - 1].first;
        runs_[at].count = runs_[at - 1].count;
      }
      runs_[at].first = &values[i];
      runs_[at].count = 1;
    }
  }
  TypeRun* begin() { return runs_; }
  TypeRun* end() { return runs_ + count_; }

 private:
  static constexpr size_t kHeld = 8;
  TypeRun held_[kHeld];
  std::vector<TypeRun> spill_;
  TypeRun* runs_;
  size_t count_ = 0;
};

// A type's text and a dotted text of the same length compare equal: the last characters first, where the
// texts of one arc differ.
bool sameText(std::string_view a, std::string_view b) {
  return a.size() == b.size() && (a.empty() || a.back() == b.back()) && a == b;
}
}  // namespace

ZarvAttributeMap::ValueIndex::const_iterator ZarvAttributeMap::find(const ZarvKnownOid& type) const {
  // Plain scans: the index holds a handful of values. A text outside the table is compared with the other
  // such texts only, as no known text equals it.
  auto at = values_.begin();
  if (!type.element.empty()) {
    for (; at != values_.end(); ++at) {
      if (at->typeElement.data() == type.element.data()) break;
    }
    return at;
  }
  const std::string_view text = type.dotted;
  for (; at != values_.end(); ++at) {
    if (at->typeElement.empty() && at->typeLength == text.size() && sameText(typeOf(*at), text)) break;
  }
  return at;
}

void ZarvAttributeMap::erase(std::string_view type) {
  auto first = find(ZarvKnownOid{type, zarvKnownOidElement(type)});
  if (first != values_.end()) eraseType(first, type);
}

void ZarvAttributeMap::eraseType(ValueIndex::const_iterator first, std::string_view type) {
  auto last = std::find_if(first, values_.cend(), [&](const Value& v) { return v.typeOffset != first->typeOffset; });
  waste_ += type.size() + 1;
  for (auto at = first; at != last; ++at) waste_ += at->length;
  values_.erase(first, last);
}

void ZarvAttributeMap::index(const ZarvKnownOid& type, size_t offset, size_t length, bool replace) {
  // A type's values are neighbours in the index; the types stand in the order they were first added.
  auto first = find(type);
  Value value{0, type.dotted.size(), offset, length, type.element};
  if (replace || first == values_.end()) {
    if (first != values_.end()) eraseType(first, type.dotted);
    // The text and its terminating zero, in the room reserved for them.
    value.typeOffset = block_.size();
    block_.resize(value.typeOffset + type.dotted.size() + 1);
    std::memcpy(block_.data() + value.typeOffset, type.dotted.data(), type.dotted.size());
    block_.data()[block_.size() - 1] = 0;
    values_.push_back(value);
    return;
  }
  value.typeOffset = first->typeOffset;
  value.typeElement = first->typeElement;
  auto last = std::find_if(first, values_.cend(), [&](const Value& v) { return v.typeOffset != first->typeOffset; });
  values_.insert(last, value);
}

void ZarvAttributeMap::compactWhenMostlyWaste() {
  if (block_.capacity() == 0) {
    block_.reserve(kUsualBytes);
    values_.reserve(kHeldValues);
    return;
  }
  if (waste_ == 0 || waste_ < block_.size() / 2) return;
  ZarvUnfilledBytes kept;
  kept.reserve(std::max(kUsualBytes, block_.size() - waste_));
  // The values of one type are neighbours in the index and share one text, told apart by its old offset.
  size_t oldType = SIZE_MAX;
  size_t newType = 0;
  for (Value& v : values_) {
    if (v.typeOffset != oldType) {
      oldType = v.typeOffset;
      newType = kept.size();
      const unsigned char* text = block_.data() + v.typeOffset;
      kept.append(text, v.typeLength + 1);
    }
    v.typeOffset = newType;
    const size_t offset = kept.size();
    kept.append(block_.data() + v.offset, v.length);
    v.offset = offset;
  }
  block_.swap(kept);
  waste_ = 0;
}

uint32_t zarvAddAttribute(SignerInfoRecord& record, ZarvAttributeKind kind, const ZarvKnownOid& type,
                          const unsigned char* value, size_t length, uint32_t replace) {
  const bool added = record.table(kind).addSized(type, replace == kReplace, length,
                                                 [value, length](CvelA1Writer& w) { w.bytes(value, length); });
  return added ? ZARV_OK : ZARV_E_NOT_STORED;
}

ZarvAttributeOrder zarvSignedAttributeOrder() {
  const char* value = std::getenv(kZarvDerOrderVariable);
  if (value != nullptr && std::strcmp(value, kZarvDerOrderOn) == 0) return ZarvAttributeOrder::kDer;
  return ZarvAttributeOrder::kDottedType;
}

uint32_t zarvBuildAttributes(const ZarvAttributeMap& map, ZarvAttributeOrder order, ZarvRecordRoom& room,
                             CvelString& out) {
  // Each type is converted once, in text order, before anything is written; the attributes borrow these
  // strings and the map's octets until the set is written.
  TypesInOrder types(map);
  // The converter's elements, for types the table of known identifiers does not hold: a moved string keeps
  // its octets where they are, so the runs' views of them stay valid as the vector grows.
  std::vector<CvelString> converted;
  for (TypeRun& run : types) {
    // A known type's element is used as it is; only the others go through the converter.
    run.element = run.first->typeElement;
    if (!run.element.empty()) continue;
    CvelString element;
    const uint32_t r = fromDottedElement(map.typeText(*run.first), element);
    if (r != ZARV_OK) return r;
    run.element = std::string_view(reinterpret_cast<const char*>(element.data()), element.length());
    converted.push_back(std::move(element));
  }
  auto forEachValue = [&types, &map](auto&& visit) {
    for (const TypeRun& run : types) {
      for (size_t i = 0; i < run.count; ++i) {
        const ZarvAttributeMap::Value& v = run.first[i];
        visit(AttributeParts{run.element, map.bytesOf(v), v.length});
      }
    }
  };
  if (order == ZarvAttributeOrder::kDer) {
    std::vector<AttributeParts> attributes;
    attributes.reserve(map.values().size());
    forEachValue([&attributes](const AttributeParts& a) { attributes.push_back(a); });
    return writeInDerOrder(attributes, room, out);
  }
  uint64_t total = 0;
  forEachValue([&total](const AttributeParts& a) { total += a.size(); });
  return zarvWriteField(room, out, total, [&forEachValue](CvelA1Writer& w) {
    forEachValue([&w](const AttributeParts& a) { a.write(w); });
  });
}

uint32_t zarvBuildSignerIdentifier(const CvelCertificate& certificate, ZarvRecordRoom& room,
                                   CvelString& signerIdentifier) {
  const uint64_t content = uint64_t{certificate.issuer().length()} + certificate.serialNumber().length();
  return zarvWriteField(room, signerIdentifier, cvelTlvSize(content), [&](CvelA1Writer& w) {
    w.header(kTagSequence, content);
    w.bytes(certificate.issuer());
    w.bytes(certificate.serialNumber());
  });
}

// SigningCertificateV2 ::= SEQUENCE { certs SEQUENCE OF ESSCertIDv2 }, one ESSCertIDv2 ::= SEQUENCE {
//   hashAlgorithm SEQUENCE { OID, NULL }, certHash OCTET STRING,
//   issuerSerial SEQUENCE { issuer SEQUENCE { [4] { Name } }, serialNumber } }.
// The NULL parameters are always written, whatever the hash algorithm.
ZarvSigningCertificateV2::ZarvSigningCertificateV2(const CvelCertificate& certificate,
                                                   const ZarvBytes& certificateHash, const CvelString& hashOid)
    : certificate_(certificate),
      certificateHash_(certificateHash),
      hashOid_(hashOid),
      algorithm_(hashOid.length() + sizeof kDerNull),
      issuerName_(cvelTlvSize(certificate.issuer().length())),
      issuerSerial_(cvelTlvSize(issuerName_) + certificate.serialNumber().length()),
      certId_(cvelTlvSize(algorithm_) + cvelTlvSize(certificateHash.size()) + cvelTlvSize(issuerSerial_)) {}

uint64_t ZarvSigningCertificateV2::size() const { return cvelTlvSize(cvelTlvSize(cvelTlvSize(certId_))); }

void ZarvSigningCertificateV2::write(CvelA1Writer& w) const {
  w.header(kTagSequence, cvelTlvSize(cvelTlvSize(certId_)));
  w.header(kTagSequence, cvelTlvSize(certId_));
  w.header(kTagSequence, certId_);
  w.header(kTagSequence, algorithm_);
  w.bytes(hashOid_);
  w.bytes(kDerNull, sizeof kDerNull);
  w.header(kTagOctetString, certificateHash_.size());
  w.bytes(certificateHash_.data(), certificateHash_.size());
  w.header(kTagSequence, issuerSerial_);
  w.header(kTagSequence, issuerName_);
  w.header(kTagContext4, certificate_.issuer().length());
  w.bytes(certificate_.issuer());
  w.bytes(certificate_.serialNumber());
}
