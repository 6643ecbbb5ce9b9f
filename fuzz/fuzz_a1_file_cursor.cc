// The stream cursor over arbitrary bytes, read from a file and from memory side by side: every step must
// give the same result, the same element and the same copied bytes. The first byte chooses leniency and
// whether primitive elements are entered as well.
#include "asn1/cvel_a1_file.h"
#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "fuzz_input.h"

static bool sameElement(const CvelA1StreamCursor& a, const CvelA1StreamCursor& b) {
  return a.tag() == b.tag() && a.position() == b.position() && a.limit() == b.limit() &&
         a.headerLength() == b.headerLength() && a.contentOffset() == b.contentOffset() &&
         a.contentLength() == b.contentLength() && a.moreFollows() == b.moreFollows() &&
         a.indefinite() == b.indefinite();
}

static void checkSameCopies(CvelA1Input& fileIn, const CvelA1StreamCursor& f, CvelA1Input& memoryIn,
                            const CvelA1StreamCursor& m) {
  CvelString a, b;
  fuzzCheck(f.getElement(fileIn, a) == m.getElement(memoryIn, b) && a.equals(b));
  fuzzCheck(f.getContent(fileIn, a) == m.getContent(memoryIn, b) && a.equals(b));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString s;
  if (size < 1 || !fuzzView(data + 1, size - 1, s)) return 0;
  const uint8_t mode = data[0];
  static FuzzFile file;
  const char* path = file.write(data + 1, size - 1);
  if (path == nullptr) return 0;
  CvelA1File a1File;
  fuzzCheck(a1File.open(path) == kCvelOk);
  CvelA1Input& fileIn = a1File.input();
  CvelA1InputString memoryIn(s, 0, 0xFFFFFFFFu);
  fuzzCheck(fileIn.size() == memoryIn.size());

  CvelA1StreamCursor f, m;
  f.setLenient((mode & 1) != 0);
  m.setLenient((mode & 1) != 0);
  CvelResult rf = f.next(fileIn);
  CvelResult rm = m.next(memoryIn);
  for (size_t steps = 0; steps < 300; ++steps) {
    fuzzCheck(rf == rm && sameElement(f, m));
    if (rf != kCvelOk) break;
    checkSameCopies(fileIn, f, memoryIn, m);
    const uint32_t behind = m.position();
    if (((m.tag() & 0x20) != 0 || (mode & 2) != 0) && m.contentLength() != 0) {
      rf = f.descend(fileIn);
      rm = m.descend(memoryIn);
      if (rf == kCvelOk || rm == kCvelOk) continue;
    }
    f.setPosition(behind);
    m.setPosition(behind);
    rf = f.next(fileIn);
    rm = m.next(memoryIn);
  }
  return 0;
}
