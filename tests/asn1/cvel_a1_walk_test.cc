#include "asn1/cvel_a1_walk.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "asn1/cvel_string.h"
#include "asn1/openssl_der.h"
#include "support/test_util.h"

namespace {

std::vector<CvelA1WalkElement> walkAll(const testutil::Bytes& bytes, CvelA1WalkResult* result = nullptr) {
  CvelString der;
  EXPECT_EQ(der.setView(bytes.data(), bytes.size()), kCvelOk);
  std::vector<CvelA1WalkElement> seen;
  CvelA1WalkResult r = cvelWalk(der, [&](const CvelA1WalkElement& e) {
    seen.push_back(e);
    return true;
  });
  EXPECT_EQ(r.elements, seen.size());
  if (result != nullptr) *result = r;
  return seen;
}

void expectSameAsOpenssl(const testutil::Bytes& bytes, const std::vector<openssl_der::Line>& expected,
                         const std::string& name) {
  ASSERT_FALSE(expected.empty()) << name;
  CvelA1WalkResult result{};
  std::vector<CvelA1WalkElement> seen = walkAll(bytes, &result);
  EXPECT_TRUE(result.complete) << name;
  ASSERT_EQ(seen.size(), expected.size()) << name;
  for (size_t i = 0; i < seen.size(); ++i) {
    const CvelA1WalkElement& e = seen[i];
    const openssl_der::Line& l = expected[i];
    EXPECT_EQ(e.offset, l.offset) << name << " element " << i;
    EXPECT_EQ(e.depth, l.depth) << name << " at " << l.offset;
    EXPECT_EQ(e.headerLength, l.headerLength) << name << " at " << l.offset;
    EXPECT_EQ(e.contentLength, l.length) << name << " at " << l.offset;
    EXPECT_EQ(e.constructed, l.constructed) << name << " at " << l.offset;
    EXPECT_FALSE(e.overruns) << name << " at " << l.offset;
  }
}

TEST(CvelA1Walk, MatchesAStoredOpensslListing) {
  // tests/data/asn1/test-ec-der.crt.asn1parse.txt is the output of
  // openssl asn1parse -inform DER -i -in tests/data/asn1crypto/test-ec-der.crt
  testutil::Bytes bytes = testutil::readFile(testutil::dataPath("asn1crypto/test-ec-der.crt"));
  testutil::Bytes listing = testutil::readFile(testutil::dataPath("asn1/test-ec-der.crt.asn1parse.txt"));
  ASSERT_FALSE(bytes.empty());
  expectSameAsOpenssl(bytes, openssl_der::parseListing(std::string(listing.begin(), listing.end())),
                      "test-ec-der.crt");
}

TEST(CvelA1Walk, MatchesOpensslOnRealFiles) {
  if (!openssl_der::available()) GTEST_SKIP() << "openssl command not available";
  const char* files[] = {"test-der.crt",          "test-inter-der.crt", "admin.ch.crt",   "rfc3739.crt",
                         "example-attr-cert.der", "cms-signed.der",     "cms-enveloped.der", "pkcs7-signed.der",
                         "ocsp_response",         "tsp_response",       "self-signed-repeated-subject-fields.der",
                         "mozilla-generated-by-openssl.pkcs7.der"};
  for (const char* file : files) {
    const std::string path = testutil::dataPath(std::string("asn1crypto/") + file);
    expectSameAsOpenssl(testutil::readFile(path), openssl_der::asn1parse(path), file);
  }
}

TEST(CvelA1Walk, TruncatedImagesAreWalkedAsFarAsTheyGo) {
  testutil::Bytes full = testutil::readFile(testutil::dataPath("asn1crypto/test-ec-der.crt"));
  ASSERT_FALSE(full.empty());
  const std::vector<CvelA1WalkElement> complete = walkAll(full);
  for (size_t cut = 1; cut < full.size(); cut += 13) {
    testutil::Bytes part(full.begin(), full.begin() + static_cast<long>(cut));
    CvelA1WalkResult result{};
    std::vector<CvelA1WalkElement> seen = walkAll(part, &result);
    EXPECT_FALSE(result.complete) << cut;
    EXPECT_EQ(result.faultOffset, 0u) << cut;  // the certificate itself is the first to overrun
    EXPECT_EQ(result.faultDepth, 0u) << cut;
    // Every element whose header lies inside the prefix is shown, at the place the whole image has it.
    ASSERT_LE(seen.size(), complete.size());
    for (size_t i = 0; i < seen.size(); ++i) {
      EXPECT_EQ(seen[i].offset, complete[i].offset) << cut;
      EXPECT_EQ(seen[i].contentLength, complete[i].contentLength) << cut;
      EXPECT_EQ(seen[i].overruns, seen[i].offset + seen[i].headerLength + seen[i].contentLength > cut) << cut;
    }
    size_t inside = 0;
    for (const CvelA1WalkElement& e : complete) inside += e.offset + e.headerLength <= cut ? 1 : 0;
    EXPECT_EQ(seen.size(), inside) << cut;
  }
}

TEST(CvelA1Walk, MalformedLengthsAndOddIdentifiers) {
  CvelA1WalkResult result{};
  // A child claiming 4 GiB inside a small SEQUENCE.
  std::vector<CvelA1WalkElement> seen = walkAll(testutil::hex("30 08 04 84 FF FF FF FF 01 02"), &result);
  EXPECT_FALSE(result.complete);
  EXPECT_EQ(result.faultOffset, 2u);
  EXPECT_EQ(result.faultDepth, 1u);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_TRUE(seen[1].overruns);
  EXPECT_EQ(seen[1].contentLength, 0xFFFFFFFFu);
  // A header cut off by the end of the image ends its container.
  seen = walkAll(testutil::hex("30 03 02 01 05 30 84 00"), &result);
  EXPECT_FALSE(result.complete);
  EXPECT_EQ(result.faultOffset, 5u);
  EXPECT_EQ(seen.size(), 2u);
  // FF FF FF FF reads as the end of the range: the walk stops there and says so.
  seen = walkAll(testutil::hex("05 00 FF FF FF FF 00 05 00"), &result);
  EXPECT_FALSE(result.complete);
  EXPECT_EQ(result.faultOffset, 2u);
  EXPECT_EQ(seen.size(), 1u);
  // The tag 0xFFFFFFFE comes back from the cursor as its overrun value, but it is a real element.
  seen = walkAll(testutil::hex("FF FF FF FE 00 05 00"), &result);
  EXPECT_TRUE(result.complete);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].tag, 0xFFFFFFFEu);
  EXPECT_FALSE(seen[0].overruns);
  EXPECT_EQ(seen[1].offset, 5u);
  // High tag numbers: all identifier octets, and the constructed bit of the first.
  seen = walkAll(testutil::hex("BF 81 01 03 02 01 07"), &result);
  EXPECT_TRUE(result.complete);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].tag, 0xBF8101u);
  EXPECT_EQ(seen[0].headerLength, 4u);
  EXPECT_TRUE(seen[0].constructed);
  EXPECT_EQ(seen[1].depth, 1u);
  // An empty image has nothing to show and nothing wrong.
  seen = walkAll(testutil::Bytes{}, &result);
  EXPECT_TRUE(result.complete);
  EXPECT_TRUE(seen.empty());
}

TEST(CvelA1Walk, OverrunningElementsNeverRevisitBytes) {
  // Nested SEQUENCEs that each claim 127 bytes: every one overruns the one around it. Each element start is
  // still met exactly once.
  testutil::Bytes bytes;
  for (int i = 0; i < 3000; ++i) {
    bytes.push_back(0x30);
    bytes.push_back(0x7F);
  }
  CvelA1WalkResult result{};
  std::vector<CvelA1WalkElement> seen = walkAll(bytes, &result);
  EXPECT_FALSE(result.complete);
  std::set<uint32_t> offsets;
  for (const CvelA1WalkElement& e : seen) EXPECT_TRUE(offsets.insert(e.offset).second) << e.offset;
  EXPECT_LE(seen.size(), bytes.size());
}

TEST(CvelA1Walk, DeepNestingDoesNotExhaustTheStack) {
  // 200000 levels of indefinite-length SEQUENCEs: each takes the rest of the image.
  const uint32_t levels = 200000;
  testutil::Bytes indefinite;
  for (uint32_t i = 0; i < levels; ++i) {
    indefinite.push_back(0x30);
    indefinite.push_back(0x80);
  }
  CvelA1WalkResult result{};
  uint32_t deepest = 0;
  CvelString der;
  ASSERT_EQ(der.setView(indefinite.data(), indefinite.size()), kCvelOk);
  result = cvelWalk(der, [&](const CvelA1WalkElement& e) {
    deepest = e.depth;
    return true;
  });
  EXPECT_EQ(result.elements, levels);
  EXPECT_EQ(deepest, levels - 1);
  // 20000 levels with definite four-octet lengths around a NULL: level i holds the 6-byte headers of the
  // levels inside it and the NULL.
  const uint32_t definiteLevels = 20000;
  testutil::Bytes nested;
  for (uint32_t i = 0; i < definiteLevels; ++i) {
    const uint32_t n = 6 * (definiteLevels - 1 - i) + 2;
    testutil::Bytes header = {0x30, 0x84, static_cast<unsigned char>(n >> 24), static_cast<unsigned char>(n >> 16),
                              static_cast<unsigned char>(n >> 8), static_cast<unsigned char>(n)};
    nested.insert(nested.end(), header.begin(), header.end());
  }
  nested.push_back(0x05);
  nested.push_back(0x00);
  std::vector<CvelA1WalkElement> seen = walkAll(nested, &result);
  EXPECT_TRUE(result.complete);
  ASSERT_EQ(seen.size(), 20001u);
  EXPECT_EQ(seen.back().depth, 20000u);
  EXPECT_EQ(seen.back().offset, 120000u);
}

TEST(CvelA1Walk, TheVisitorCanStopTheWalk) {
  testutil::Bytes bytes = testutil::hex("30 06 02 01 01 02 01 02");
  CvelString der;
  ASSERT_EQ(der.setView(bytes.data(), bytes.size()), kCvelOk);
  int calls = 0;
  CvelA1WalkResult result = cvelWalk(der, [&](const CvelA1WalkElement&) { return ++calls < 2; });
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(result.elements, 2u);
}

}  // namespace
