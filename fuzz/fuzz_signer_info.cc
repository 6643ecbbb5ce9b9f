// Decodes arbitrary bytes as one SignerInfo. Whatever decodes must encode and decode again to the same field
// bytes and the same time-stamp tokens, and encode a second time to the same bytes.
#include "fuzz_cms.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString image, encoded, reencoded;
  CvelA1StreamCursor cursor, second;
  CvelP7SignerInfo signer, copy;
  if (!fuzzView(data, size, image) || !fuzzDecode(image, signer, cursor)) return 0;
  fuzzCheck(cursor.position() <= image.length());
  if (signer.version().bytes().length() > kFuzzMaxHeldInteger) return 0;
  fuzzCheck(signer.encode(encoded) == kCvelOk && fuzzDecode(encoded, copy, second));
  fuzzCheck(fuzzSameSignerInfo(signer, copy) && copy.encode(reencoded) == kCvelOk && reencoded.equals(encoded));
  return 0;
}
