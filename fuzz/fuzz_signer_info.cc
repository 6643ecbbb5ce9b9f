// Decodes arbitrary bytes as one SignerInfo and as a SET of them. Whatever decodes as one must encode and
// decode again to the same field bytes and the same time-stamp tokens, and encode a second time to the same
// bytes; a SET that decodes holds at least one member. Every result is one of the library's codes.
#include "fuzz_cms.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString image, encoded, reencoded;
  CvelA1StreamCursor cursor, second, setCursor;
  CvelP7SignerInfo signer, copy;
  CvelP7SignerInfos set;
  if (!fuzzView(data, size, image)) return 0;
  fuzzCheck(!fuzzDecode(image, set, setCursor) || set.size() != 0);
  if (!fuzzDecode(image, signer, cursor)) return 0;
  fuzzCheck(cursor.position() <= image.length());
  if (signer.version().bytes().length() > kFuzzMaxHeldInteger) return 0;
  fuzzCheck(signer.encode(encoded) == kCvelOk && fuzzDecode(encoded, copy, second));
  fuzzCheck(fuzzSameSignerInfo(signer, copy) && copy.encode(reencoded) == kCvelOk && reencoded.equals(encoded));
  return 0;
}
