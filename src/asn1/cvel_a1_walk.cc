#include "asn1/cvel_a1_walk.h"

#include <memory>
#include <vector>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_string.h"

namespace {

constexpr uint8_t kConstructedBit = 0x20;

void noteFault(CvelA1WalkResult& result, uint32_t offset, uint32_t depth) {
  if (!result.complete) return;
  result.complete = false;
  result.faultOffset = offset;
  result.faultDepth = depth;
}

// next() returns a four-octet tag of 0x80000000 or more as a negative number, and the tag 0xFFFFFFFE as the
// overrun value itself; only a cursor that kept no tag really hit the end of its range or overran it.
bool endOfRange(int32_t r) { return r == CvelA1Context::kEnd; }
bool overran(const CvelA1Context& cursor, int32_t r) {
  return r == CvelA1Context::kOverrun && cursor.tag() == CvelA1Context::kNoTag;
}

}  // namespace

CvelA1WalkResult cvelWalk(const CvelString& der, const std::function<bool(const CvelA1WalkElement&)>& visit) {
  CvelA1WalkResult result{true, 0, 0, 0};
  std::vector<std::unique_ptr<CvelA1Context>> stack;
  stack.push_back(std::make_unique<CvelA1Context>());
  while (!stack.empty()) {
    CvelA1Context& cursor = *stack.back();
    const uint32_t depth = static_cast<uint32_t>(stack.size() - 1);
    const uint32_t at = cursor.position();
    int32_t r = cursor.next(der);
    if (endOfRange(r)) {
      // The identifier FF FF FF FF also reads as the end of the range: the bytes from there on are not read.
      if (at < cursor.limit()) noteFault(result, at, depth);
      stack.pop_back();
      continue;
    }
    bool overruns = false;
    if (overran(cursor, r)) {
      noteFault(result, at, depth);
      // Read it again leniently to show what the truncated element holds; the reads stay inside the image.
      overruns = true;
      cursor.setLenient(true);
      r = cursor.next(der);
      cursor.setLenient(false);
      if (endOfRange(r) || overran(cursor, r)) {
        stack.pop_back();
        continue;
      }
    }
    CvelA1WalkElement element{cursor.elementOffset(), depth,  cursor.headerLength(), cursor.contentLength(),
                              cursor.tag(),           false, overruns};
    element.constructed = (der.data()[element.offset] & kConstructedBit) != 0;
    ++result.elements;
    if (!visit(element)) return result;
    if (element.constructed && cursor.contentLength() != 0) {
      auto child = std::make_unique<CvelA1Context>();
      child->enterElementOf(cursor);
      // An element that overran is entered only as far as its own container reaches, so that no byte is
      // walked twice however the lengths of nested elements lie.
      if (overruns) child->setLimit(cursor.limit());
      stack.push_back(std::move(child));
    }
  }
  return result;
}
