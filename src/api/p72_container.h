// The record behind a container handle, and the encoder that turns it into a DER ContentInfo { signedData }.
#ifndef KOLVARI_API_P72_CONTAINER_H
#define KOLVARI_API_P72_CONTAINER_H

#include <cstdint>
#include <list>
#include <set>
#include <vector>

#include "kolvari/zarv.h"

using ZarvBytes = std::vector<unsigned char>;

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
  std::set<ZarvBytes> digestAlgorithms;
  std::list<ZarvBytes> certificates;
  std::list<ZarvBytes> crls;
  std::list<ZarvBytes> signerInfos;
};

// Builds the DER ContentInfo into out. The default content info and version are stored in the record.
uint32_t encodeP72Container(P72Container& record, std::vector<unsigned char>& out);

#endif  // KOLVARI_API_P72_CONTAINER_H
