// The record behind a signer-info handle: the SignerInfo object being filled and the two attribute maps
// from which the signed and unsigned attributes are built.
#ifndef KOLVARI_API_SIGNER_INFO_RECORD_H
#define KOLVARI_API_SIGNER_INFO_RECORD_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "api/zarv_known_oids.h"
#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_string.h"
#include "cms/cvel_p7_signer_info.h"
#include "kolvari/zarv.h"

using ZarvBytes = std::vector<unsigned char>;

// Octets of which every one is written before it is read: growing the block leaves the new octets as the
// heap gave them, where a vector would zero-fill them. Its few operations are inline: a signer grows it by
// each attribute it adds.
class ZarvUnfilledBytes {
 public:
  size_t size() const { return size_; }
  size_t capacity() const { return capacity_; }
  unsigned char* data() { return octets_.get(); }
  const unsigned char* data() const { return octets_.get(); }

  // Room for n octets in all, the octets held so far kept. Throws std::bad_alloc when it cannot be had.
  void reserve(size_t n) {
    if (n <= capacity_) return;
    std::unique_ptr<unsigned char[]> larger = std::make_unique_for_overwrite<unsigned char[]>(n);
    if (size_ != 0) std::memcpy(larger.get(), octets_.get(), size_);
    octets_ = std::move(larger);
    capacity_ = n;
  }
  // n octets, those past the old size unset; the room at least doubles when it must grow.
  void resize(size_t n) {
    if (n > capacity_) reserve(std::max(n, 2 * capacity_));
    size_ = n;
  }
  void append(const unsigned char* octets, size_t n) {
    const size_t at = size_;
    resize(size_ + n);
    if (n != 0) std::memcpy(octets_.get() + at, octets, n);
  }
  void swap(ZarvUnfilledBytes& other) noexcept {
    octets_.swap(other.octets_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }

 private:
  std::unique_ptr<unsigned char[]> octets_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

// Room for the first few entries of a vector inside the vector's owner, which is never moved: a vector that
// stays that short costs no allocation. Longer ones live on the heap like any vector's.
template <typename T, size_t N>
struct ZarvHeldEntries {
  alignas(T) unsigned char bytes[N * sizeof(T)];
  bool taken = false;
};

// The allocator of such a vector: the held room when it is free and large enough, else the heap.
template <typename T, size_t N>
class ZarvHeldAllocator {
 public:
  using value_type = T;
  template <typename U>
  struct rebind {
    static_assert(std::is_same_v<U, T>, "the held room is for one type");
    using other = ZarvHeldAllocator;
  };

  explicit ZarvHeldAllocator(ZarvHeldEntries<T, N>& held) noexcept : held_(&held) {}

  T* allocate(size_t n) {
    if (n <= N && !held_->taken) {
      held_->taken = true;
      return reinterpret_cast<T*>(held_->bytes);
    }
    return std::allocator<T>().allocate(n);
  }
  void deallocate(T* p, size_t n) noexcept {
    if (p == reinterpret_cast<T*>(held_->bytes)) {
      held_->taken = false;
      return;
    }
    std::allocator<T>().deallocate(p, n);
  }
  bool operator==(const ZarvHeldAllocator& other) const noexcept { return held_ == other.held_; }

 private:
  ZarvHeldEntries<T, N>* held_;
};

// Attribute type as dotted text -> the values in the order added, each one complete DER value. A signer
// holds a handful of attributes of a few dozen octets each: the texts and values sit one behind the other in
// one block and a short index in the order added says where, so that adding one costs no allocation once the
// block has room and no search beyond a scan for the type. The sets are built in the order of the types'
// texts (see zarvBuildAttributes), which sorts that handful once.
class ZarvAttributeMap {
 public:
  // Where one value's type text (zero-terminated in the block, so the converter can take it as it is) and
  // its DER octets sit. The values of one type share the type's text, and its element when the table of
  // known identifiers holds the text (empty otherwise: the text is converted when the set is built).
  struct Value {
    size_t typeOffset;
    size_t typeLength;
    size_t offset;
    size_t length;
    std::string_view typeElement;
  };

  // Room in the map for the index of a usual signer's signed attributes; the map is never copied or moved,
  // as the index may lie in it.
  static constexpr size_t kHeldValues = 4;
  using ValueIndex = std::vector<Value, ZarvHeldAllocator<Value, kHeldValues>>;

  ZarvAttributeMap() : values_(ZarvHeldAllocator<Value, kHeldValues>(heldValues_)) {}
  ZarvAttributeMap(const ZarvAttributeMap&) = delete;
  ZarvAttributeMap& operator=(const ZarvAttributeMap&) = delete;

  bool empty() const { return values_.empty(); }
  bool contains(std::string_view type) const { return contains(ZarvKnownOid{type, zarvKnownOidElement(type)}); }
  bool contains(const ZarvKnownOid& type) const { return find(type) != values_.end(); }
  // The type's values leave the index; their octets stay in the block until it is compacted.
  void erase(std::string_view type);

  // Appends the value that encode(CvelDerWriter&) writes under the type, counted first and then written in
  // place; with replace the type's earlier values go first. False, with nothing changed, when the value
  // cannot be written whole or is too large for one of the library's strings. Throws std::bad_alloc when the
  // block cannot grow.
  template <typename Encode>
  bool add(std::string_view type, bool replace, Encode&& encode) {
    return add(ZarvKnownOid{type, zarvKnownOidElement(type)}, replace, encode);
  }
  // The same under a type whose element is known (empty: converted when the set is built).
  template <typename Encode>
  bool add(const ZarvKnownOid& type, bool replace, Encode&& encode) {
    CvelDerWriter w;
    encode(w);
    if (w.failed() || w.counted() >= CvelString::kViewCapacity - 1) return false;
    const size_t length = static_cast<size_t>(w.counted());
    compactWhenMostlyWaste();
    block_.reserve(block_.size() + length + type.dotted.size() + 1);
    values_.reserve(values_.size() + 1);
    const size_t offset = block_.size();
    block_.resize(offset + length);
    w.startWriting(block_.data() + offset);
    encode(w);
    if (!w.complete()) {
      block_.resize(offset);
      return false;
    }
    index(type, offset, length, replace);
    return true;
  }

  // Appends the value of size octets that write(CvelA1Writer&) writes under the type in one pass, in place;
  // with replace the type's earlier values go first. False, with nothing changed, when write does not fill
  // the size exactly or the size is too large for one of the library's strings. Throws std::bad_alloc when
  // the block cannot grow.
  template <typename Write>
  bool addSized(const ZarvKnownOid& type, bool replace, uint64_t size, Write&& write) {
    if (size >= CvelString::kViewCapacity - 1) return false;
    const size_t length = static_cast<size_t>(size);
    compactWhenMostlyWaste();
    block_.reserve(block_.size() + length + type.dotted.size() + 1);
    values_.reserve(values_.size() + 1);
    const size_t offset = block_.size();
    block_.resize(offset + length);
    CvelA1Writer w(block_.data() + offset, size);
    write(w);
    if (!w.complete()) {
      block_.resize(offset);
      return false;
    }
    index(type, offset, length, replace);
    return true;
  }

  // The index in the order added.
  const ValueIndex& values() const { return values_; }
  std::string_view typeOf(const Value& v) const {
    return std::string_view(reinterpret_cast<const char*>(block_.data() + v.typeOffset), v.typeLength);
  }
  const char* typeText(const Value& v) const { return reinterpret_cast<const char*>(block_.data() + v.typeOffset); }
  const unsigned char* bytesOf(const Value& v) const { return block_.data() + v.offset; }

 private:
  // Room for the usual signed attributes of one signer without growing; well under the size from which the
  // C heap stops recycling blocks cheaply.
  static constexpr size_t kUsualBytes = 512;

  // The first value of the type in the index, or the end.
  // The type's element, when the table of known identifiers holds its text, is the table's own octets:
  // every value of a known type carries the same element, told apart from the others by its address alone.
  ValueIndex::const_iterator find(const ZarvKnownOid& type) const;
  // Puts the value written at offset into the index behind the type's other values (in place of them with
  // replace), the type's text appended to the block when the type is new. The room was reserved beforehand.
  void index(const ZarvKnownOid& type, size_t offset, size_t length, bool replace);
  // Drops the type's values from the index, their octets counted as waste.
  void eraseType(ValueIndex::const_iterator first, std::string_view type);
  // Octets of erased values and texts are dropped once they outweigh the live ones.
  void compactWhenMostlyWaste();

  // Each value is written in place over the octets a resize adds, and each text copied in: never read unset.
  ZarvUnfilledBytes block_;
  ZarvHeldEntries<Value, kHeldValues> heldValues_;
  ValueIndex values_;
  size_t waste_ = 0;
};

enum class ZarvAttributeKind { kSigned, kUnsigned };

// The order of the Attributes in a built set: by the dotted text of the type (the map's order, the default),
// or DER SET OF order (by their encodings), which verifiers that re-encode the set before checking expect.
enum class ZarvAttributeOrder { kDottedType, kDer };

// The environment variable that selects DER order for the signed attributes, and the one value that does.
constexpr char kZarvDerOrderVariable[] = "KOLVARI_DER_ATTRIBUTE_ORDER";
inline constexpr char kZarvDerOrderOn[] = "1";

// Room in the record for the signer's small fields (the two algorithm identifiers, the signer identifier,
// the signature), handed out front to back and never given back: a usual signer's fields take no allocation
// of their own. A field that does not fit, a setter called again once the room is used up among them, gets
// a string of its own; the room never grows, so a record stays the same size however often it is set.
class ZarvRecordRoom {
 public:
  // Room for count octets that stays the record's until it goes, or null when it is used up.
  unsigned char* take(uint64_t count) {
    if (count == 0 || count > kBytes - used_) return nullptr;
    unsigned char* at = bytes_ + used_;
    used_ += static_cast<size_t>(count);
    return at;
  }

 private:
  // An EC signer's fields (algorithm identifiers of 15 and 12 octets, a signature of 72, an issuer and
  // serial of one to two hundred) fit, and with a short issuer its signed attributes as well (about 230
  // octets); an RSA-2048 signature on top of a long issuer may not.
  static constexpr size_t kBytes = 448;
  unsigned char bytes_[kBytes];
  size_t used_ = 0;
};

// The size octets that write(CvelA1Writer&) writes, into field: in the room when they fit (field then
// views them), else in a string of its own. The results are those of cvelWriteExactly.
template <typename Write>
CvelResult zarvWriteField(ZarvRecordRoom& room, CvelString& field, uint64_t size, Write&& write) {
  if (size >= CvelString::kViewCapacity - 1) return kCvelErrNoMemory;
  unsigned char* at = room.take(size);
  if (at == nullptr) return cvelWriteExactly(size, field, write);
  CvelA1Writer w(at, size);
  write(w);
  if (!w.complete()) return kCvelErrMalformed;
  return field.setView(at, static_cast<size_t>(size));
}

// The same into a byte vector of exactly total octets, which replaces out only when write filled it.
template <typename Write>
CvelResult zarvWriteExactly(uint64_t total, std::vector<unsigned char>& out, Write&& write) {
  if (total >= CvelString::kViewCapacity - 1) return kCvelErrNoMemory;
  std::vector<unsigned char> result(static_cast<size_t>(total));
  CvelA1Writer w(result.data(), total);
  write(w);
  if (!w.complete()) return kCvelErrMalformed;
  out.swap(result);
  return kCvelOk;
}

// The signer object, the signed attributes' table and the room are part of the record: one allocation for
// all of them. The unsigned attributes, which few signers have, get their table when the first one comes.
struct SignerInfoRecord {
  CvelP7SignerInfo signer;
  ZarvAttributeMap signedAttributes;
  std::unique_ptr<ZarvAttributeMap> unsignedAttributes;
  ZarvRecordRoom room;

  // Throws std::bad_alloc when the unsigned attributes' table cannot be made.
  ZarvAttributeMap& table(ZarvAttributeKind kind) {
    if (kind == ZarvAttributeKind::kSigned) return signedAttributes;
    if (unsignedAttributes == nullptr) unsignedAttributes = std::make_unique<ZarvAttributeMap>();
    return *unsignedAttributes;
  }
};

// The step every setter goes through: with replace 1 the type's earlier values go, then the value is
// appended under the type.
uint32_t zarvAddAttribute(SignerInfoRecord& record, ZarvAttributeKind kind, const ZarvKnownOid& type,
                          const unsigned char* value, size_t length, uint32_t replace);

// The order the signed attributes take: kDer when KOLVARI_DER_ATTRIBUTE_ORDER is "1", else kDottedType.
// Read on every call, so a host may switch it between signers.
ZarvAttributeOrder zarvSignedAttributeOrder();

// The concatenated Attributes of a map, one Attribute per value: SEQUENCE { OID, SET { value } }, in key
// order or in DER order. OID text that does not convert ends the build with the converter's result.
// The set is written in the record's room when it fits there (out then views it).
uint32_t zarvBuildAttributes(const ZarvAttributeMap& map, ZarvAttributeOrder order, ZarvRecordRoom& room,
                             CvelString& out);

// The IssuerAndSerialNumber of a parsed certificate: SEQUENCE { issuer Name, serialNumber }, the
// certificate's own issuer-and-serial pair, in the record's room when it fits.
uint32_t zarvBuildSignerIdentifier(const CvelCertificate& certificate, ZarvRecordRoom& room,
                                   CvelString& signerIdentifier);

// The signing-certificate-v2 value for a parsed certificate, the host's hash of it and that hash's OID
// (already DER): its size, then the value written at that size. The sizes of its parts are counted once,
// when it is made.
class ZarvSigningCertificateV2 {
 public:
  ZarvSigningCertificateV2(const CvelCertificate& certificate, const ZarvBytes& certificateHash,
                           const CvelString& hashOid);

  uint64_t size() const;
  void write(CvelA1Writer& w) const;

 private:
  const CvelCertificate& certificate_;
  const ZarvBytes& certificateHash_;
  const CvelString& hashOid_;
  uint64_t algorithm_;     // content of the hash AlgorithmIdentifier
  uint64_t issuerName_;    // content of the GeneralNames SEQUENCE: the [4] element
  uint64_t issuerSerial_;  // content of IssuerSerial
  uint64_t certId_;        // content of ESSCertIDv2
};

#endif  // KOLVARI_API_SIGNER_INFO_RECORD_H
