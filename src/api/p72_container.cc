#include "api/p72_container.h"

#include <algorithm>
#include <cstring>

#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_string.h"
#include "cms/cvel_p71.h"
#include "cms/cvel_signed_data_writer.h"

namespace {

constexpr uint32_t kDefaultVersion = 1;
// Largest element a CvelString can hold: its length is 32 bits and its buffer carries a terminator.
constexpr uint64_t kMaxContainerLength = CvelString::kViewCapacity - 2;

// Detached encapsulated content info: the Data content info without content, of the record's content type
// taken as zero-terminated text (only the bytes before a first 0x00 count; hosts rely on that truncation).
uint32_t buildDefaultContentInfo(P72Container& record) {
  CvelP71 info;
  if (!record.contentType.empty()) {
    const unsigned char* type = record.contentType.data();
    const void* zero = std::memchr(type, 0, record.contentType.size());
    const size_t typeLength = zero == nullptr ? record.contentType.size()
                                              : static_cast<size_t>(static_cast<const unsigned char*>(zero) - type);
    if (typeLength > kMaxContainerLength || info.setContentType(type, static_cast<uint32_t>(typeLength)) != ZARV_OK) {
      return ZARV_E_OUT_OF_MEMORY;
    }
  }
  CvelString der;
  if (info.encode(der, true) != ZARV_OK) return ZARV_E_NOT_STORED;
  record.contentInfo.assign(der.data(), der.data() + der.length());
  return ZARV_OK;
}

uint32_t buildDefaultVersion(P72Container& record) {
  CvelA1Integer version(kDefaultVersion);
  CvelString der;
  uint32_t r = version.encode(der);
  if (r != ZARV_OK) return r;
  record.versionBytes.assign(der.data(), der.data() + der.length());
  record.versionNumber = static_cast<int32_t>(kDefaultVersion);
  return ZARV_OK;
}

// Writes the pieces as the content of an element.
void writePieces(CvelDerWriter& w, const ZarvPieces& pieces) {
  pieces.forEachBlock([&w](const unsigned char* data, size_t size) { w.bytes(data, size); });
}

// SEQUENCE { OID, NULL } for each digest algorithm, from its bare OID content octets.
void writeDigestAlgorithms(CvelDerWriter& w, const P72Container& record) {
  for (const ZarvBytes& oid : record.digestAlgorithms) {
    w.element(kTagSequence, [&] {
      w.element(kTagOid, oid.data(), oid.size());
      w.bytes(kDerNull, sizeof(kDerNull));
    });
  }
}

}  // namespace

uint32_t encodeP72Container(P72Container& record, std::vector<unsigned char>& out) {
  if (record.contentInfo.empty()) {
    uint32_t r = buildDefaultContentInfo(record);
    if (r != ZARV_OK) return r;
  }
  // The version default runs before the checks below, so they never fire for a container built here.
  if (record.versionNumber == 0) {
    uint32_t r = buildDefaultVersion(record);
    if (r != ZARV_OK) return r;
  }
  if (record.versionNumber == 0 && record.signerInfos.empty()) return ZARV_E_INCOMPLETE;
  if (record.versionNumber == 0 && record.digestAlgorithms.empty()) return ZARV_E_INCOMPLETE;

  const bool withCrls = record.versionNumber != 0 && !record.crls.empty();
  const auto parts = CvelSignedDataParts{
      [&](CvelDerWriter& w) { w.bytes(record.versionBytes.data(), record.versionBytes.size()); },
      [&](CvelDerWriter& w) { writeDigestAlgorithms(w, record); },
      [&](CvelDerWriter& w) { w.bytes(record.contentInfo.data(), record.contentInfo.size()); },
      !record.certificates.empty(),
      [&](CvelDerWriter& w) { writePieces(w, record.certificates); },
      withCrls,
      [&](CvelDerWriter& w) { writePieces(w, record.crls); },
      [&](CvelDerWriter& w) { writePieces(w, record.signerInfos); }};
  CvelDerWriter w;
  cvelWriteSignedData(w, parts);
  const uint64_t total = w.counted();
  // Every DER image of the library fits a CvelString, whose length is 32 bits; a larger container is refused
  // the way wrapping it into one would be, before the host's vector is touched. The outermost element is
  // the largest, so this one check covers every inner element too.
  if (w.failed()) return ZARV_E_OUT_OF_MEMORY;
  if (total > kMaxContainerLength || total > out.max_size()) return ZARV_E_OUT_OF_MEMORY;

  // No earlier bytes survive in the vector's storage. Storage the vector gives up when it grows is wiped
  // first; storage it keeps is wiped past the new size, and below it overwritten by the image (or, should
  // the write stop short, wiped after it), so that a reused vector's bytes are touched once, not twice.
  if (total > out.capacity()) {
    std::fill(out.begin(), out.end(), 0);
  } else if (out.size() > total) {
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(total), out.end(), 0);
  }
  out.resize(static_cast<size_t>(total));
  w.startWriting(out.data());
  cvelWriteSignedData(w, parts);
  if (w.complete()) return ZARV_OK;
  std::fill(out.end() - static_cast<std::ptrdiff_t>(w.left()), out.end(), 0);
  return ZARV_E_NOT_STORED;
}

void ZarvPieces::push_back(const ZarvBytes& der) {
  if (blocks_.empty() || blocks_.back().capacity() - blocks_.back().size() < der.size()) {
    const size_t wanted = blocks_.empty() ? kFirstBlockBytes
                                          : std::min(kLargestBlockBytes, 2 * blocks_.back().capacity());
    ZarvBytes block;
    block.reserve(std::max(wanted, der.size()));
    blocks_.reserve(blocks_.size() + 1);
    blocks_.push_back(std::move(block));
  }
  ZarvBytes& last = blocks_.back();
  last.insert(last.end(), der.begin(), der.end());
  ++count_;
  bytes_ += der.size();
}
