#include "asn1/cvel_a1_walk.h"

#include <memory>
#include <vector>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_string.h"

namespace {
constexpr uint8_t kConstructedBit = 0x20;
}

CvelA1WalkResult cvelWalk(const CvelString& der, const std::function<bool(const CvelA1WalkElement&)>& visit) {
  CvelA1WalkResult result{true, 0, 0, 0};
  std::vector<std::unique_ptr<CvelA1Context>> stack;
  stack.push_back(std::make_unique<CvelA1Context>());
  while (!stack.empty()) {
    CvelA1Context& cursor = *stack.back();
    const uint32_t depth = static_cast<uint32_t>(stack.size() - 1);
    const uint32_t at = cursor.position();
    int32_t tag = cursor.next(der);
    if (tag == CvelA1Context::kEnd) {
      stack.pop_back();
      continue;
    }
    bool overruns = false;
    if (tag == CvelA1Context::kOverrun) {
      if (result.complete) {
        result.complete = false;
        result.faultOffset = at;
        result.faultDepth = depth;
      }
      // Read it again leniently to show what the truncated element holds; the reads stay inside the image.
      overruns = true;
      cursor.setLenient(true);
      tag = cursor.next(der);
      cursor.setLenient(false);
      if (tag < 0) {
        stack.pop_back();
        continue;
      }
    }
    CvelA1WalkElement element{cursor.elementOffset(), depth,  cursor.headerLength(), cursor.contentLength(),
                              static_cast<uint32_t>(tag), false, overruns};
    element.constructed = (der.data()[element.offset] & kConstructedBit) != 0;
    ++result.elements;
    if (!visit(element)) return result;
    if (element.constructed && cursor.contentLength() != 0) {
      auto child = std::make_unique<CvelA1Context>();
      *child = cursor;
      stack.push_back(std::move(child));
    }
  }
  return result;
}
