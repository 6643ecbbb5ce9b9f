// What the CMS fuzz targets share: a decode through the stream cursor, and comparisons of two objects read
// from different encodings.
#ifndef KOLVARI_FUZZ_FUZZ_CMS_H
#define KOLVARI_FUZZ_FUZZ_CMS_H

#include <cstdint>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "cms/cvel_a1_p72.h"
#include "cms/cvel_p7_signer_info.h"
#include "cms/cvel_tsp_response.h"
#include "cms/cvel_tst_info.h"
#include "fuzz_input.h"

// INTEGER contents of more than 127 octets are written with a one-octet length by design, so they do not
// read back; objects holding such a version are left out of the round trips.
inline constexpr uint32_t kFuzzMaxHeldInteger = 127;

// The object read from image; the cursor ends behind it. With first, the cursor is put on the first element
// beforehand (a signedData finds its own). Whatever the outcome, it is one of the library's result codes.
template <typename T>
bool fuzzDecode(const CvelString& image, T& object, CvelA1StreamCursor& cursor, bool first = true) {
  CvelA1InputString in(image, 0, image.length());
  const CvelResult result = first ? cursor.next(in) : kCvelOk;
  const CvelResult decoded = result == kCvelOk ? object.decode(in, cursor) : result;
  fuzzCheck(fuzzDocumented(decoded));
  return decoded == kCvelOk;
}

inline bool fuzzIntegersFit(const CvelA1P72& p72) {
  CvelP7SignerInfo* signer = nullptr;
  for (uint32_t i = 0; i < p72.signerInfos().size(); ++i) {
    if (p72.signerInfos().get(i, signer) != kCvelOk || signer->version().bytes().length() > kFuzzMaxHeldInteger)
      return false;
  }
  return p72.version().bytes().length() <= kFuzzMaxHeldInteger;
}

// Two managed arrays of the same length whose members compare the same one by one.
template <typename T, typename List, typename Same>
bool fuzzSameEach(const List& a, const List& b, Same same) {
  T* x = nullptr;
  T* y = nullptr;
  for (uint32_t i = 0; i < a.size(); ++i) {
    if (a.get(i, x) != kCvelOk || b.get(i, y) != kCvelOk || !same(*x, *y)) return false;
  }
  return a.size() == b.size();
}

inline bool fuzzSameTst(const CvelTSTInfo& a, const CvelTSTInfo& b) {
  return a.version() == b.version() && a.policy().equals(b.policy()) && a.messageImprint().equals(b.messageImprint()) &&
         a.serialNumber().equals(b.serialNumber()) && a.genTime().year() == b.genTime().year() &&
         a.genTime().second() == b.genTime().second() && a.accuracyPresent() == b.accuracyPresent() &&
         a.seconds() == b.seconds() && a.millis() == b.millis() && a.micros() == b.micros() &&
         a.ordering() == b.ordering() && a.nonce().equals(b.nonce()) && a.tsa().encoded().equals(b.tsa().encoded()) &&
         a.extensionsContent().equals(b.extensionsContent()) && a.content().equals(b.content());
}

// The same field bytes, and the same time-stamp tokens found in them.
inline bool fuzzSameSignerInfo(const CvelP7SignerInfo& a, const CvelP7SignerInfo& b) {
  return a.version().value() == b.version().value() && a.version().bytes().equals(b.version().bytes()) &&
         a.signerIdentifier().equals(b.signerIdentifier()) && a.digestAlgorithm().equals(b.digestAlgorithm()) &&
         a.signedAttributes().equals(b.signedAttributes()) && a.signatureAlgorithm().equals(b.signatureAlgorithm()) &&
         a.signatureValue().equals(b.signatureValue()) && a.unsignedAttributes().equals(b.unsignedAttributes()) &&
         a.digestKind() == b.digestKind() &&
         fuzzSameEach<CvelTSPResponse>(a.timeStamps(), b.timeStamps(), [](const auto& x, const auto& y) {
           return x.token().encoded().equals(y.token().encoded()) && fuzzSameTst(x.token(), y.token());
         });
}

#endif  // KOLVARI_FUZZ_FUZZ_CMS_H
