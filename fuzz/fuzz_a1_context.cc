// Walks arbitrary bytes with the memory cursor as the decoders do: child cursors into constructed elements,
// lenient re-reads of overruns, copies and views of every element, and the INTEGER and time decoders on each.
// Then the element walk, which must meet every element start at most once.
#include <vector>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_a1_walk.h"
#include "asn1/cvel_time.h"
#include "fuzz_input.h"

constexpr size_t kMaxDepth = 64;
// Enough for every element of any input the fuzzer makes; more only slows a run on inputs that loop.
constexpr size_t kMaxSteps = 500;

static void walkRange(const CvelString& s, CvelA1Context& cursor, bool descend, size_t depth, size_t& steps) {
  for (int32_t t = descend ? cursor.descend(s) : cursor.next(s); t != CvelA1Context::kEnd && ++steps < kMaxSteps;
       t = cursor.next(s)) {
    if (t == CvelA1Context::kOverrun && cursor.tag() == CvelA1Context::kNoTag) {
      cursor.setLenient(true);
      cursor.next(s);
      cursor.setLenient(false);
      if (cursor.tag() == CvelA1Context::kNoTag) return;
    }
    CvelString copy;
    static_cast<void>(cursor.getElement(s, copy));
    static_cast<void>(copy.assign(s, &cursor));
    static_cast<void>(copy.setView(s, &cursor));
    static_cast<void>(CvelA1Integer().decode(s, &cursor));
    static_cast<void>(CvelTime().decode(s, &cursor));
    if ((s.data()[cursor.elementOffset()] & 0x20) != 0 && cursor.contentLength() != 0 && depth < kMaxDepth) {
      CvelA1Context child;
      child.enterElementOf(cursor);
      walkRange(s, child, true, depth + 1, steps);
    }
  }
}

// The INTEGER decoder writes a line to standard output for every empty content; keep the fuzzer's report clean.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  std::FILE* quiet = std::freopen("/dev/null", "w", stdout);
  (void)quiet;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString s;
  if (!fuzzView(data, size, s)) return 0;
  CvelA1Context top;
  size_t steps = 0;
  walkRange(s, top, false, 0, steps);
  std::vector<bool> met(size, false);
  cvelWalk(s, [&](const CvelA1WalkElement& e) {
    fuzzCheck(e.offset < size && !met[e.offset]);
    met[e.offset] = true;
    return true;
  });
  return 0;
}
