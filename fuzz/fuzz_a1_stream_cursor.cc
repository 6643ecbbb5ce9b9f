// Walks arbitrary bytes with the stream cursor over a string source: next, descend, copies of content and
// element, and INTEGER decoding. The first byte chooses leniency, the window of the source and a seek.
#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString s;
  if (size < 1 || !fuzzView(data + 1, size - 1, s)) return 0;
  const uint8_t mode = data[0];
  CvelA1InputString in(s, (mode >> 2) & 0x0F, (mode & 0x80) != 0 ? s.length() / 2 + 1 : 0xFFFFFFFFu);
  CvelA1StreamCursor cursor;
  cursor.setLenient((mode & 1) != 0);
  static_cast<void>(cursor.reset(in));
  CvelResult r = cursor.next(in);
  for (size_t steps = 0; r == kCvelOk && steps < 20000; ++steps) {
    CvelString out;
    static_cast<void>(cursor.getContent(in, out));
    static_cast<void>(cursor.getElement(in, out));
    CvelA1Integer integer;
    static_cast<void>(integer.decode(in, cursor));
    // Into constructed elements (with bit 1 of the mode, into every element), else on behind the element.
    const uint32_t behind = cursor.position();
    const bool enter = (cursor.tag() & 0x20) != 0 || (mode & 2) != 0;
    if (enter && cursor.contentLength() != 0 && cursor.descend(in) == kCvelOk) continue;
    cursor.setPosition(behind);
    r = cursor.next(in);
  }
  unsigned char buffer[16];
  static_cast<void>(in.seek(static_cast<int64_t>(mode) - 64, mode % 3));
  static_cast<void>(in.read(buffer, sizeof buffer, nullptr));
  return 0;
}
