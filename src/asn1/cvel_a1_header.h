// The one decoder of element headers (identifier and length octets), shared by the memory cursor
// (CvelA1Context) and the stream cursor (CvelA1StreamCursor). Both read lengths alike: 0x81 to 0x84 are long
// forms, 0x80 is indefinite, and every other octet, 0x85 to 0xFF included, is a short length. They differ in
// two points, chosen by CvelA1HeaderRules: high tag numbers, and the end-of-contents octets.
#ifndef KOLVARI_ASN1_CVEL_A1_HEADER_H
#define KOLVARI_ASN1_CVEL_A1_HEADER_H

#include <cstdint>

struct CvelA1HeaderRules {
  // Gather the further identifier octets of the high-tag-number form (at most four octets in all); without
  // it the identifier is always one octet.
  bool highTagNumbers;
  // 00 must be followed by a second 00 and the pair is one element; without it 00 is a one-byte element.
  bool endOfContentsPair;
};

enum class CvelA1HeaderStatus {
  kOk,
  kNoTag,             // four identifier octets FF FF FF FF: read as no element at all
  kTruncated,         // the header runs past the available bytes
  kBadEndOfContents,  // 00 followed by a non-zero octet, where a pair is required
};

struct CvelA1Header {
  uint32_t tag = 0;           // all identifier octets, big-endian
  uint32_t headerLength = 0;  // identifier and length octets
  uint64_t length = 0;        // the content length; 0 when indefinite (the caller decides what it covers)
  bool indefinite = false;
};

// Decodes the header at p, reading no byte at or past p + available.
CvelA1HeaderStatus cvelA1DecodeHeader(const unsigned char* p, uint32_t available, CvelA1HeaderRules rules,
                                      CvelA1Header& out);

#endif  // KOLVARI_ASN1_CVEL_A1_HEADER_H
