// The Data content info: its two encodings, decoding of indefinite and chunked content infos, large content
// left in the input, and the lenient results. Definite ones of other software, a time-stamp token's among
// them, are decoded and encoded back to their own bytes in cvel_a1_p72_test.
// Expected bytes are worked out from the DER rules; the BER inputs were checked with `openssl asn1parse`.
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <tuple>
#include <utility>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_der.h"
#include "cms/cvel_a1_p72.h"
#include "cms/cvel_p71.h"
#include "support/test_util.h"

namespace {

using testutil::Bytes;
using testutil::hex;
using testutil::toHex;

constexpr const char* kIdDataInfo = "300B06092A864886F70D010701";

// Decodes the element at offset of bytes with a fresh stream cursor, kept for its position.
struct Decoded {
  CvelString image;
  CvelP71 info;
  CvelA1StreamCursor cursor;
  CvelResult result = 0;
  Decoded(const Bytes& bytes, uint32_t offset, bool lenient = false) {
    EXPECT_EQ(image.assign(bytes.data(), static_cast<uint32_t>(bytes.size())), kCvelOk);
    CvelA1InputString in(image, 0, image.length());
    cursor.setPosition(offset);
    cursor.setLenient(lenient);
    result = cursor.next(in) == kCvelOk ? info.decode(in, cursor) : CvelResult(0xBAD);
  }
};

TEST(CvelP71, NewObjectEncodesAsDetachedIdDataInBothModes) {
  CvelP71 info;
  auto encoded = [&info](bool detached) {
    CvelString out;
    return info.encode(out, detached) == kCvelOk ? toHex(out) : "(failed)";
  };
  EXPECT_EQ(encoded(false), kIdDataInfo);
  EXPECT_EQ(encoded(true), kIdDataInfo);
  // Content in memory: OCTET STRING by default, SEQUENCE when the kind says so; detached drops it.
  ASSERT_EQ(info.setContent("ab", 2), kCvelOk);
  EXPECT_EQ(encoded(false), "301106092A864886F70D010701A00404026162");
  info.setContentKind(CvelP71::kContentKindSequence);
  EXPECT_EQ(encoded(false), "301106092A864886F70D010701A00430026162");
  EXPECT_EQ(encoded(true), kIdDataInfo);
}

TEST(CvelP71, IndefiniteLengthsAndChunksLeaveTheCursorOnTheClosingEndOfContents) {
  // The corpus file: content info at 35 of indefinite length, its end-of-contents at 57366.
  Decoded d(testutil::readFile(testutil::dataPath("asn1crypto/cms-signed-indefinite-length.der")), 35);
  ASSERT_EQ(d.result, kCvelOk);
  EXPECT_EQ(d.info.contentLength(), 57310);
  EXPECT_EQ(d.info.contentPosition(), 54);
  EXPECT_EQ(d.cursor.position(), 57366u);

  // Constructed OCTET STRING in two chunks, all of indefinite length, then a sibling SET.
  Decoded c(hex("3080 06092A864886F70D010701 A080 2480 04026162 040163 0000 0000 0000 3100"), 0);
  ASSERT_EQ(c.result, kCvelOk);
  EXPECT_EQ(toHex(c.info.content()), "616263");
  EXPECT_EQ(c.cursor.position(), 28u);

  // A detached content info of indefinite length ends at its own end-of-contents.
  Decoded e(hex("3080 06092A864886F70D010701 0000 3100"), 0);
  ASSERT_EQ(e.result, kCvelOk);
  EXPECT_TRUE(e.info.detachedMarker());
  EXPECT_EQ(e.cursor.position(), 13u);

  // An inner SEQUENCE of indefinite length is measured up to its own end-of-contents, nested ones included.
  const struct { const char* der; const char* content; uint32_t end; } inner[] = {
      {"3014 06092A864886F70D010701 A007 3080 020105 0000 3100", "020105", 22},
      {"3080 06092A864886F70D010701 A080 3080 3080 020105 0000 0000 0000 0000", "30800201050000", 28}};
  for (const auto& row : inner) {
    Decoded s(hex(row.der), 0);
    ASSERT_EQ(s.result, kCvelOk) << row.der;
    EXPECT_EQ(std::make_tuple(toHex(s.info.content()), s.info.contentMode(), s.info.contentKind(), s.cursor.position()),
              std::make_tuple(row.content, CvelP71::kContentInMemory, CvelP71::kContentKindSequence, row.end))
        << row.der;
  }
}

// A content info { id-data, [0] { OCTET STRING of n octets } }, every length in the four-octet form.
Bytes largeContentInfo(uint32_t n) {
  const auto length = [](uint32_t v) {
    return Bytes{0x84, static_cast<unsigned char>(v >> 24), static_cast<unsigned char>(v >> 16),
                 static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
  };
  Bytes out = {0x30};
  for (const Bytes& part : {length(n + 6 + 6 + 11), hex("06092A864886F70D010701 A0"), length(n + 6), hex("04"),
                            length(n)}) {
    out.insert(out.end(), part.begin(), part.end());
  }
  const size_t header = out.size();
  out.resize(header + n);
  for (size_t i = header; i < out.size(); ++i) out[i] = static_cast<unsigned char>(i * 7);
  return out;
}

TEST(CvelP71, ContentOverAMebibyteStaysInTheInputAndCannotBeEmbedded) {
  // Up to 0xFFFFF octets the content is read into memory; from 0x100000 on it stays in the input.
  constexpr uint32_t kHeader = 29;
  for (const auto& [n, mode] : {std::pair<uint32_t, uint8_t>{0xFFFFF, CvelP71::kContentInMemory},
                                {0x100000, CvelP71::kContentTooLarge}}) {
    const Decoded d(largeContentInfo(n), 0);
    ASSERT_EQ(d.result, kCvelOk) << n;
    EXPECT_EQ(std::make_tuple(d.info.contentMode(), d.info.content().length(), d.info.contentPosition()),
              std::make_tuple(mode, mode == CvelP71::kContentInMemory ? n : 0u, static_cast<int32_t>(kHeader)))
        << n;
  }
  const Bytes big = largeContentInfo(2000000);
  Decoded d(big, 0);
  CvelA1InputString in(d.image, 0, d.image.length());
  ASSERT_EQ(d.result, kCvelOk);
  EXPECT_EQ(d.info.contentLength(), 2000000);

  CvelString out;
  EXPECT_EQ(d.info.encode(out, false), CvelP71::kNotDone);
  ASSERT_EQ(d.info.encode(out, true), kCvelOk);
  EXPECT_EQ(toHex(out), kIdDataInfo);

  unsigned char tail[8] = {};
  uint32_t got = 0;
  ASSERT_EQ(d.info.readLargeContent(in, 1999996, tail, sizeof tail, &got), kCvelOk);
  ASSERT_EQ(got, 4u);
  EXPECT_EQ(Bytes(tail, tail + 4), Bytes(big.end() - 4, big.end()));
}

TEST(CvelP71, LenientResultsForUnexpectedShapes) {
  const struct { const char* name; const char* hex; CvelResult result; } rows[] = {
      {"not a SEQUENCE", "0403616263", kCvelOk}, {"empty SEQUENCE", "3000", kCvelOk},
      {"no OID first", "3003020101", kCvelOk},
      {"something else than [0]", "300E06092A864886F70D0107010401AA", CvelP71::kNotDone},
      {"content tag not allowed", "301006092A864886F70D010701A0030C0161", CvelP71::kNotDone},
      {"content runs past [0]", "301006092A864886F70D010701A00304056162636465", kCvelErrMalformed},
  };
  for (const auto& row : rows) {
    const Decoded d(hex(row.hex), 0, true);  // the outer element may itself be cut short; the decoder stays bounded
    EXPECT_EQ(d.result, row.result) << row.name;
    EXPECT_EQ(d.info.contentMode(), CvelP71::kNoContent) << row.name;
  }
}

// The signedData's size query stops in its content info's.
TEST(CvelP71DeathTest, SizeQueriesPrintTheContentInfoTraceAndAbort) {
  CvelP71 info;
  CvelA1P72 p72;
  CvelA1Size size;
  const char* trace = "CvelP71::get_asn1_size\\( CvelA1Size &velSize, BOOL bDetached \\) called";
  EXPECT_DEATH((dup2(STDERR_FILENO, STDOUT_FILENO), info.getSize(size, false)), trace);
  EXPECT_DEATH((dup2(STDERR_FILENO, STDOUT_FILENO), p72.getSize(size, false)), trace);
}

}  // namespace
