#include "api/p72_container.h"

#include <algorithm>
#include <cstring>
#include <memory>

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

// Where the pieces of one kind go in the image.
struct PieceRun {
  uint64_t offset;
  const ZarvPieces* pieces;
};

// The runs of pieces of one image. The writer skips them, so that it writes only the structure around
// them, and the writing pass notes where each lies; the gathering then copies the pieces' blocks there.
// At most three: certificates, CRLs, signer infos.
struct PieceRuns {
  static constexpr size_t kMaxRuns = 3;
  PieceRun runs[kMaxRuns] = {};
  size_t count = 0;
  bool noting = false;  // set for the writing pass

  void pass(CvelDerWriter& w, const ZarvPieces& pieces) {
    if (noting && count < kMaxRuns) runs[count++] = {w.position(), &pieces};
    w.skip(pieces.bytes());
  }
};

// Appends the image of total bytes to out: the structure's octets, which lie one behind the other in
// structure, up to each run, then the run's blocks. Offsets fit size_t: the image is at most a string's
// size.
void gather(const unsigned char* structure, const PieceRuns& runs, uint64_t total, std::vector<unsigned char>& out) {
  size_t image = 0;  // where the next octet goes in the image
  size_t taken = 0;  // octets of structure appended so far
  for (size_t i = 0; i < runs.count; ++i) {
    const PieceRun& run = runs.runs[i];
    const size_t before = static_cast<size_t>(run.offset) - image;
    out.insert(out.end(), structure + taken, structure + taken + before);
    taken += before;
    run.pieces->forEachBlock(
        [&out](const unsigned char* data, size_t size) { out.insert(out.end(), data, data + size); });
    image = static_cast<size_t>(run.offset + run.pieces->bytes());
  }
  out.insert(out.end(), structure + taken, structure + taken + (static_cast<size_t>(total) - image));
}

// The structure's octets of a usual container (headers, version, digest algorithms, a detached content
// info) fit here; attached content takes a block of its own.
constexpr size_t kHeldStructureBytes = 256;

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
  PieceRuns runs;
  const auto parts = CvelSignedDataParts{
      [&](CvelDerWriter& w) { w.bytes(record.versionBytes.data(), record.versionBytes.size()); },
      [&](CvelDerWriter& w) { writeDigestAlgorithms(w, record); },
      [&](CvelDerWriter& w) { w.bytes(record.contentInfo.data(), record.contentInfo.size()); },
      !record.certificates.empty(),
      [&](CvelDerWriter& w) { runs.pass(w, record.certificates); },
      withCrls,
      [&](CvelDerWriter& w) { runs.pass(w, record.crls); },
      [&](CvelDerWriter& w) { runs.pass(w, record.signerInfos); }};
  CvelDerWriter w;
  cvelWriteSignedData(w, parts);
  const uint64_t total = w.counted();
  // Every DER image of the library fits a CvelString, whose length is 32 bits; a larger container is refused
  // the way wrapping it into one would be, before the host's vector is touched. The outermost element is
  // the largest, so this one check covers every inner element too.
  if (w.failed()) return ZARV_E_OUT_OF_MEMORY;
  if (total > kMaxContainerLength || total > out.max_size()) return ZARV_E_OUT_OF_MEMORY;

  // The structure around the pieces is written on its own, then the image is gathered into out with the
  // pieces copied from the record's blocks: out is written once, and never cleared first as resizing would.
  const uint64_t structureBytes = w.countedToWrite();
  unsigned char held[kHeldStructureBytes];
  std::unique_ptr<unsigned char[]> own;
  unsigned char* structure = held;
  if (structureBytes > sizeof held) {
    own = std::make_unique_for_overwrite<unsigned char[]>(static_cast<size_t>(structureBytes));
    structure = own.get();
  }
  runs.noting = true;
  w.startWriting(structure);
  cvelWriteSignedData(w, parts);
  if (!w.complete()) return ZARV_E_NOT_STORED;

  // No earlier bytes survive in the vector's storage. Storage the vector gives up when it grows is wiped
  // first; storage it keeps is wiped past the new size, and below it overwritten by the image.
  if (total > out.capacity()) {
    std::fill(out.begin(), out.end(), 0);
  } else if (out.size() > total) {
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(total), out.end(), 0);
  }
  out.clear();
  out.reserve(static_cast<size_t>(total));
  gather(structure, runs, total, out);
  return ZARV_OK;
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
