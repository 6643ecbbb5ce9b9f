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
  std::list<ZarvBytes> certificates;
  std::list<ZarvBytes> crls;
  std::list<ZarvBytes> signerInfos;
};

// Builds the DER ContentInfo into out. The default content info and version are stored in the record.
uint32_t encodeP72Container(P72Container& record, std::vector<unsigned char>& out);

#endif  // KOLVARI_API_P72_CONTAINER_H
