// Walks arbitrary bytes with the stream cursor over a string source: next, descend, content and element
// copies and INTEGER decoding, strict and lenient, and checks that every copy stays inside the source.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_string.h"

namespace {

constexpr size_t kMaxSteps = 20000;
constexpr uint8_t kConstructedBit = 0x20;

void check(bool condition) {
  if (!condition) std::abort();
}

void visit(CvelA1InputString& in, const CvelA1StreamCursor& cursor) {
  CvelString content;
  CvelString element;
  if (cursor.getContent(in, content) == kCvelOk) check(content.length() <= cursor.contentLength());
  if (cursor.getElement(in, element) == kCvelOk) {
    check(element.length() <= in.size());
    check(static_cast<uint64_t>(element.length()) <=
          static_cast<uint64_t>(cursor.headerLength()) + cursor.contentLength());
  }
  CvelA1Integer integer;
  const CvelResult r = integer.decode(in, cursor);
  if (cursor.tag() != 2) check(r != kCvelOk);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > 0x10000) return 0;
  // The first byte chooses the mode and the window of the source; the rest is the DER.
  const uint8_t mode = data[0];
  CvelString s;
  if (s.assign(data + 1, static_cast<uint32_t>(size - 1)) != kCvelOk) return 0;
  const uint32_t maxLength = (mode & 0x80) != 0 ? s.length() / 2 + 1 : 0xFFFFFFFFu;
  CvelA1InputString in(s, 0, maxLength);

  CvelA1StreamCursor cursor;
  cursor.setLenient((mode & 1) != 0);
  size_t steps = 0;
  CvelResult r = cursor.next(in);
  while (r == kCvelOk && steps++ < kMaxSteps) {
    check(cursor.contentOffset() >= cursor.headerLength());
    if (!cursor.lenient()) check(static_cast<uint64_t>(cursor.contentOffset()) + cursor.contentLength() <= in.size());
    visit(in, cursor);
    // Step into constructed elements (or, with bit 1 of the mode, into every element); otherwise go on.
    const bool constructed = (cursor.tag() & kConstructedBit) != 0 || (mode & 2) != 0;
    if (constructed && cursor.contentLength() != 0 && cursor.tag() != 0xFF) {
      const uint32_t before = cursor.position();
      r = cursor.descend(in);
      if (r != kCvelOk) {
        // Nothing inside: go on behind the element.
        cursor.setPosition(before);
        r = cursor.next(in);
      }
    } else {
      r = cursor.next(in);
    }
  }

  // A cursor started at the source's position, and the source's own reads.
  CvelA1InputString again(s, (mode >> 2) & 0x0F, 0xFFFFFFFFu);
  CvelA1StreamCursor second;
  if (second.reset(again) == kCvelOk && second.next(again) == kCvelOk) visit(again, second);
  unsigned char buffer[16];
  uint32_t got = 0;
  again.seek(static_cast<int64_t>(mode) - 64, mode % 3);
  check(again.read(buffer, sizeof buffer, &got) == kCvelOk && got <= sizeof buffer);
  return 0;
}
