// The record behind a container handle, and the encoder that turns it into a DER ContentInfo { signedData }.
#ifndef KOLVARI_API_P72_CONTAINER_H
#define KOLVARI_API_P72_CONTAINER_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <set>
#include <vector>

#include "kolvari/zarv.h"

using ZarvBytes = std::vector<unsigned char>;

// Order of the digest-algorithm set: bytes compared as unsigned values, a proper prefix before the longer
// vector. Spelled out with memcmp rather than left to the vector's operator<, whose three-way form trips a
// bogus -Wstringop-overread in GCC 12 at -O3.
struct ZarvBytesOrder {
  bool operator()(const ZarvBytes& a, const ZarvBytes& b) const noexcept {
    const size_t common = a.size() < b.size() ? a.size() : b.size();
    const int c = common == 0 ? 0 : std::memcmp(a.data(), b.data(), common);
    return c != 0 ? c < 0 : a.size() < b.size();
  }
};

// DER pieces in the order added, kept one behind the other in a few large blocks rather than one block each:
// a container of a thousand certificates then costs a few dozen allocations, not two thousand, and its
// encoder copies each block with one call. The number of pieces and the sum of their sizes are kept as they
// arrive.
class ZarvPieces {
 public:
  // Throws std::bad_alloc when no block can be had; nothing is changed then.
  void push_back(const ZarvBytes& der);
  void clear() {
    blocks_.clear();
    count_ = 0;
    bytes_ = 0;
  }
  size_t size() const { return count_; }
  bool empty() const { return count_ == 0; }
  // The sum of the pieces' sizes.
  uint64_t bytes() const { return bytes_; }
  // Calls take(data, size) for each block in order: together, the pieces one behind the other.
  template <typename Take>
  void forEachBlock(Take&& take) const {
    for (const ZarvBytes& block : blocks_) take(block.data(), block.size());
  }

 private:
  // Blocks start small, for the usual container of a few pieces, and double up to the largest size, so
  // that the blocks of large containers stay few. A piece larger than that has a block of its own size.
  static constexpr size_t kFirstBlockBytes = 4 * 1024;
  static constexpr size_t kLargestBlockBytes = 64 * 1024;

  std::vector<ZarvBytes> blocks_;
  size_t count_ = 0;
  uint64_t bytes_ = 0;
};

struct P72Container {
  // 0 means not set; the encoder's default and a reset make it 1.
  int32_t versionNumber = 0;
  // The complete DER INTEGER written as the SignedData version.
  ZarvBytes versionBytes;
  // Complete DER OBJECT IDENTIFIER of the encapsulated content type, used only for the default content info.
  ZarvBytes contentType;
  // Complete DER encapsulated ContentInfo, written verbatim.
  ZarvBytes contentInfo;
  // Content octets of the digest-algorithm OIDs, kept once each in unsigned byte order.
  std::set<ZarvBytes, ZarvBytesOrder> digestAlgorithms;
  ZarvPieces certificates;
  ZarvPieces crls;
  ZarvPieces signerInfos;
};

// Builds the DER ContentInfo into out. The default content info and version are stored in the record.
uint32_t encodeP72Container(P72Container& record, std::vector<unsigned char>& out);

#endif  // KOLVARI_API_P72_CONTAINER_H
