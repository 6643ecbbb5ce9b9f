// Decodes arbitrary bytes as a time-stamp token. Reading it from inside a parent element must give what
// reading it alone gives; and a token that decodes, its signed data encoded again, decodes to the same
// token info.
#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_der.h"
#include "fuzz_cms.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString image, set;
  CvelTSTInfo token, fromParent, again;
  if (!fuzzView(data, size, image) || token.encoded().assign(image) != kCvelOk) return 0;
  const CvelResult result = token.decode();
  fuzzCheck(fuzzDocumented(result));
  // The same bytes as the content of a SET, read through decodeFrom.
  if (wrap(image, kTagSet, set) != kCvelOk) return 0;
  CvelA1Context parent;
  fuzzCheck(parent.next(set) == kTagSet && fromParent.decodeFrom(parent, set) == result &&
            fromParent.encoded().equals(image) && fuzzSameTst(token, fromParent));
  if (result != kCvelOk) return 0;
  fuzzCheck(token.version() == CvelTSTInfo::kVersion);
  if (!fuzzIntegersFit(token.signedData())) return 0;
  fuzzCheck(token.signedData().encode(again.encoded(), false) == kCvelOk && again.decode() == kCvelOk &&
            fuzzSameTst(token, again));
  return 0;
}
