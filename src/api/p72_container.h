// The record behind a container handle, and the encoder that turns it into a DER ContentInfo { signedData }.
#ifndef KOLVARI_API_P72_CONTAINER_H
#define KOLVARI_API_P72_CONTAINER_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <list>
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

// A list of DER pieces in the order added, with the sum of their sizes kept as they arrive: the encoder needs
// that sum before it writes, and a second walk over a thousand separate blocks waits on memory at each one.
class ZarvPieces {
 public:
  using const_iterator = std::list<ZarvBytes>::const_iterator;

  void push_back(const ZarvBytes& der) {
    pieces_.push_back(der);
    bytes_ += der.size();
  }
  void clear() {
    pieces_.clear();
    bytes_ = 0;
  }
  size_t size() const { return pieces_.size(); }
  bool empty() const { return pieces_.empty(); }
  // The sum of the pieces' sizes.
  uint64_t bytes() const { return bytes_; }
  const_iterator begin() const { return pieces_.begin(); }
  const_iterator end() const { return pieces_.end(); }

 private:
  std::list<ZarvBytes> pieces_;
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
