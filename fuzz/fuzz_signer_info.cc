// Decodes arbitrary bytes as one SignerInfo. Whatever decodes must encode and decode again to the same field
// bytes and the same time-stamp tokens, and encode a second time to the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "cms/cvel_p7_signer_info.h"
#include "fuzz_cms.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString image;
  if (!fuzzView(data, size, image)) return 0;
  CvelA1InputString in(image, 0, image.length());
  CvelA1StreamCursor cursor;
  if (cursor.next(in) != kCvelOk) return 0;
  CvelP7SignerInfo signer;
  if (signer.decode(in, cursor) != kCvelOk) return 0;
  if (cursor.position() > image.length()) std::abort();
  if (signer.version().bytes().length() > kFuzzMaxHeldInteger) return 0;

  CvelString encoded;
  if (signer.encode(encoded) != kCvelOk) std::abort();
  CvelA1InputString again(encoded, 0, encoded.length());
  CvelA1StreamCursor second;
  CvelP7SignerInfo copy;
  CvelString reencoded;
  if (second.next(again) != kCvelOk || copy.decode(again, second) != kCvelOk || !fuzzSameSignerInfo(signer, copy) ||
      copy.encode(reencoded) != kCvelOk || !reencoded.equals(encoded)) {
    std::abort();
  }
  return 0;
}
