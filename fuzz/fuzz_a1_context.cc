// Walks every element of arbitrary bytes with the memory cursor: descends into constructed elements through
// child cursors, copies elements and contents, re-reads overruns leniently, and checks that what the cursor
// reports always lies inside the bytes it was given.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_a1_walk.h"
#include "asn1/cvel_string.h"
#include "asn1/cvel_time.h"

namespace {

constexpr uint8_t kConstructedBit = 0x20;
constexpr size_t kMaxDepth = 64;
constexpr size_t kMaxSteps = 20000;

void check(bool condition) {
  if (!condition) std::abort();
}

void walk(const CvelString& s, const CvelA1Context& parent, size_t depth, size_t& steps) {
  CvelA1Context cursor;
  cursor = parent;
  for (bool first = true; steps < kMaxSteps; first = false) {
    ++steps;
    const uint32_t before = first ? cursor.contentOffset() : cursor.position();
    int32_t t = first ? cursor.descend(s) : cursor.next(s);
    if (t == CvelA1Context::kEnd) return;
    if (t == CvelA1Context::kOverrun && cursor.tag() == CvelA1Context::kNoTag) {
      // A failed read leaves the position, so that it can be tried again leniently.
      check(cursor.position() == before);
      cursor.setLenient(true);
      t = cursor.next(s);
      cursor.setLenient(false);
      if (t == CvelA1Context::kEnd) return;
      if (t == CvelA1Context::kOverrun && cursor.tag() == CvelA1Context::kNoTag) return;
    }
    check(cursor.contentOffset() >= cursor.headerLength());
    check(cursor.elementOffset() == before);
    check(cursor.elementOffset() < s.length());
    CvelString element;
    CvelString content;
    const CvelResult re = cursor.getElement(s, element);
    const CvelResult rc = cursor.getContent(s, content);
    if (cursor.elementInside(s)) {
      check(re == kCvelOk && rc == kCvelOk);
      check(element.length() == cursor.elementLength());
      check(content.length() == cursor.contentLength());
      CvelString view;
      check(view.setView(s, &cursor) == kCvelOk);
      check(view.length() == cursor.contentLength());
    } else {
      check(re != kCvelOk && rc != kCvelOk);
    }
    // The decoders built on the cursor read the same element.
    CvelA1Integer integer;
    integer.decode(s, &cursor);
    integer.decodeContent(s, cursor);
    CvelTime time;
    time.decode(s, &cursor);
    const uint8_t firstOctet = s.data()[cursor.elementOffset()];
    if ((firstOctet & kConstructedBit) != 0 && cursor.contentLength() != 0 && depth < kMaxDepth)
      walk(s, cursor, depth + 1, steps);
  }
}

}  // namespace

// Called by libFuzzer only: the INTEGER decoder writes a diagnostic line to standard output for every empty
// content, which would drown the fuzzer's own report.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 0;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 0x10000) return 0;
  // An owned copy, so that a read past the end is caught by the sanitizer instead of landing in the input.
  CvelString s;
  if (s.assign(data, static_cast<uint32_t>(size)) != kCvelOk) return 0;

  // Top level, strict and lenient.
  for (bool lenient : {false, true}) {
    CvelA1Context top;
    top.setLenient(lenient);
    size_t steps = 0;
    for (int32_t t = top.next(s); t != CvelA1Context::kEnd && steps < kMaxSteps; t = top.next(s)) {
      ++steps;
      if (t == CvelA1Context::kOverrun && top.tag() == CvelA1Context::kNoTag) break;
      check(top.contentOffset() <= s.length());
      check(top.headerLength() >= 1 && top.contentOffset() >= top.headerLength());
      if (!lenient) check(static_cast<uint64_t>(top.contentOffset()) + top.contentLength() <= s.length());
      walk(s, top, 0, steps);
    }
  }

  // The element walk meets each element start at most once.
  std::vector<bool> met(size, false);
  cvelWalk(s, [&](const CvelA1WalkElement& e) {
    check(e.offset < size);
    check(!met[e.offset]);
    met[e.offset] = true;
    return true;
  });
  return 0;
}
