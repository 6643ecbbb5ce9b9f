// Decodes arbitrary bytes as a Data content info. Whatever decodes with content in memory must encode and
// decode again to the same content type, content and kind; large content must stay inside the input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "cms/cvel_p71.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString image;
  if (!fuzzView(data, size, image)) return 0;
  CvelA1InputString in(image, 0, image.length());
  CvelA1StreamCursor cursor;
  if (cursor.next(in) != kCvelOk) return 0;
  CvelP71 info;
  if (info.decode(in, cursor) != kCvelOk) return 0;
  if (info.contentMode() == CvelP71::kContentTooLarge) {
    const uint64_t end = static_cast<uint64_t>(info.contentPosition()) + static_cast<uint32_t>(info.contentLength());
    if (info.contentPosition() < 0 || end > image.length()) std::abort();
    return 0;
  }
  if (info.contentMode() != CvelP71::kContentInMemory) return 0;

  CvelString encoded;
  if (info.encode(encoded, false) != kCvelOk) std::abort();
  CvelA1InputString again(encoded, 0, encoded.length());
  CvelA1StreamCursor second;
  CvelP71 copy;
  if (second.next(again) != kCvelOk || copy.decode(again, second) != kCvelOk) std::abort();
  if (!copy.contentType().equals(info.contentType()) || !copy.content().equals(info.content()) ||
      copy.contentKind() != info.contentKind() || second.position() != encoded.length()) {
    std::abort();
  }
  return 0;
}
