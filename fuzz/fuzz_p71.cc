// Decodes arbitrary bytes as a Data content info. Whatever decodes with content in memory must encode and
// decode again to the same content type, content and kind; large content must stay inside the input.
#include "cms/cvel_p71.h"
#include "fuzz_cms.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString image, encoded;
  CvelA1StreamCursor cursor, second;
  CvelP71 info, copy;
  if (!fuzzView(data, size, image) || !fuzzDecode(image, info, cursor)) return 0;
  if (info.contentMode() == CvelP71::kContentTooLarge) {
    const uint64_t end = static_cast<uint64_t>(info.contentPosition()) + static_cast<uint32_t>(info.contentLength());
    fuzzCheck(info.contentPosition() >= 0 && end <= image.length());
    return 0;
  }
  if (info.contentMode() != CvelP71::kContentInMemory) return 0;
  fuzzCheck(info.encode(encoded, false) == kCvelOk && fuzzDecode(encoded, copy, second));
  fuzzCheck(copy.contentType().equals(info.contentType()) && copy.content().equals(info.content()) &&
            copy.contentKind() == info.contentKind() && second.position() == encoded.length());
  return 0;
}
