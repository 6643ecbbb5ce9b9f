#include "asn1/cvel_a1_walk.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "asn1/cvel_string.h"
#include "support/test_util.h"

namespace {

// Every element the walk meets.
std::vector<CvelA1WalkElement> walkAll(const testutil::Bytes& image, CvelA1WalkResult& result) {
  const testutil::Bytes bytes(image.begin(), image.end());  // exactly sized: AddressSanitizer sees any overread
  CvelString der;
  EXPECT_EQ(der.setView(bytes.data(), bytes.size()), kCvelOk);
  std::vector<CvelA1WalkElement> seen;
  result = cvelWalk(der, [&](const CvelA1WalkElement& e) {
    seen.push_back(e);
    return true;
  });
  EXPECT_EQ(result.elements, seen.size());
  return seen;
}

TEST(CvelA1Walk, OverrunsAndOddIdentifiers) {
  // DER, complete, offset of the first fault, elements met.
  const std::tuple<const char*, bool, uint32_t, size_t> cases[] = {
      {"30 08 04 84 FF FF FF FF 01 02", false, 2, 2},  // a child claiming 4 GiB inside a small SEQUENCE
      {"30 03 02 01 05 30 84 00", false, 5, 2},        // a header cut off by the end of the image
      {"05 00 FF FF FF FF 00 05 00", false, 2, 1},     // FF FF FF FF reads as the end of the range
      {"FF FF FF FE 00 05 00", true, 0, 2},            // 0xFFFFFFFE is a real tag, not an overrun
      {"BF 81 01 03 02 01 07", true, 0, 2}};           // a constructed high tag number is entered
  for (const auto& [der, complete, faultOffset, elements] : cases) {
    CvelA1WalkResult result{};
    EXPECT_EQ(walkAll(testutil::hex(der), result).size(), elements) << der;
    EXPECT_EQ(result.complete, complete) << der;
    EXPECT_EQ(result.faultOffset, faultOffset) << der;
  }
}

TEST(CvelA1Walk, DeepNestingDoesNotExhaustTheStack) {
  // 200000 levels of indefinite-length SEQUENCEs, each taking the rest of the image. That no start is met
  // twice is the property of fuzz_a1_context.
  testutil::Bytes indefinite;
  for (int i = 0; i < 200000; ++i) indefinite.insert(indefinite.end(), {0x30, 0x80});
  CvelA1WalkResult result{};
  std::vector<CvelA1WalkElement> seen = walkAll(indefinite, result);
  EXPECT_TRUE(result.complete);
  ASSERT_EQ(seen.size(), 200000u);
  EXPECT_EQ(seen.back().depth, 199999u);
}

}  // namespace
