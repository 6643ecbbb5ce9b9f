#include "asn1/cvel_a1_size.h"

#include <gtest/gtest.h>

#include "asn1/cvel_a1_output.h"
#include "support/test_util.h"

namespace {

using testutil::toHex;

TEST(CvelA1Size, LengthOctetsAtEveryBoundary) {
  // The writer goes on to eight length octets, more than the readers accept.
  const std::pair<uint64_t, const char*> cases[] = {
      {0, "00"},           {127, "7F"},           {128, "8180"},           {255, "81FF"},
      {256, "820100"},     {65535, "82FFFF"},     {65536, "83010000"},     {16777216, "8401000000"},
      {0xFFFFFFFF, "84FFFFFFFF"},                 {0x100000000, "850100000000"},
      {0x1000000000000, "8701000000000000"},      {0xFFFFFFFFFFFFFFFF, "88FFFFFFFFFFFFFFFF"}};
  CvelString out;
  for (const auto& [n, octets] : cases) {
    ASSERT_EQ(encodeLength(n, out), kCvelOk);
    EXPECT_EQ(toHex(out), octets);
    EXPECT_EQ(cvelLengthOfLength(n), out.length()) << n;
  }
  // A negative size stays negative in every sum and is written as one octet of its low seven bits.
  CvelA1Size size(200);
  size.add(-1);
  size.add(10);
  ASSERT_EQ(size.encodeLength(out), kCvelOk);
  EXPECT_EQ(toHex(out), "7F");
}

TEST(CvelA1Size, WrapWritesOnceAtTheFinalSize) {
  CvelString content;
  CvelString out;
  ASSERT_EQ(wrap(content, 0x03, out), kCvelOk);  // BIT STRING: a zero unused-bits octet, counted
  EXPECT_EQ(toHex(out), "030100");
  testutil::assignHex(content, "AA BB");
  ASSERT_EQ(wrap(content, 0x30, content), kCvelOk);  // the output may be the content itself
  EXPECT_EQ(toHex(content), "3002AABB");
  unsigned char buffer[4] = {};
  CvelA1Writer w(buffer, sizeof buffer);
  w.header(0x04, 2);
  w.bytes("\x11\x22\x33", 3);  // one byte too many: nothing is written
  EXPECT_FALSE(w.ok());
  EXPECT_EQ(buffer[2], 0);
  // A BIT STRING of 127 octets crosses into the long form with its unused-bits octet: 03 81 80 00 ...
  const testutil::Bytes bytes(127, 0x5A);
  ASSERT_EQ(wrap(bytes.data(), 127, 0x03, out), kCvelOk);
  EXPECT_EQ(toHex(out), "03818000" + toHex(bytes));
}

TEST(CvelA1Size, ALongHeaderIsWrittenWholeOrNotAtAll) {
  // Content lengths 200 (81 C8) and 300 (82 01 2C) in rooms around the header's size and with room to spare
  // (a header is written before it is counted there); a header that does not fit writes nothing.
  const struct {
    uint64_t length;
    size_t room;
    const char* written;  // null: the writer fails
  } cases[] = {{200, 2, nullptr}, {200, 3, "0481C8"}, {300, 3, nullptr}, {300, 4, "0482012C"}, {300, 12, "0482012C"}};
  for (const auto& c : cases) {
    unsigned char buffer[12] = {};
    CvelA1Writer w(buffer, c.room);
    w.header(0x04, c.length);
    EXPECT_EQ(w.ok(), c.written != nullptr) << c.length << " in " << c.room;
    const std::string expected = c.written != nullptr ? c.written : "";
    EXPECT_EQ(toHex(testutil::Bytes(buffer, buffer + sizeof buffer)).substr(0, expected.size()), expected);
    if (c.written == nullptr) {
      EXPECT_EQ(buffer[0], 0) << c.length << " in " << c.room;
    }
    EXPECT_EQ(w.left(), c.written == nullptr ? c.room : c.room - expected.size() / 2);
  }
}

TEST(CvelA1Size, BitStringBitsCountTheLeadingOctetAsOneBit) {
  // Content with its leading octet: 8 bits per following octet, one less when the leading octet is not
  // zero (whatever number of unused bits it states); no bits for 0 or 1 octet.
  const std::pair<const char*, uint64_t> cases[] = {
      {"", 0},       {"00", 0},      {"07", 0},          {"00 FF", 8},
      {"07 80", 7},  {"01 FF", 7},   {"00 01 02 03", 24}, {"05 A0 00 00", 23}};
  for (const auto& [content, bits] : cases) {
    CvelString s = testutil::hexString(content);
    EXPECT_EQ(cvelBitStringBits(s), bits) << content;
  }
}

TEST(CvelA1OutputString, PassesTheAppendResultBack) {
  CvelString target;
  ASSERT_EQ(target.assign("0123"), kCvelOk);
  target.truncate(2);  // room for two more bytes behind the content
  CvelA1OutputString sink(&target);
  uint32_t written = 0;
  // The bytes fit the block: the in-place append result comes back, deliberately, and written is not set.
  EXPECT_EQ(sink.write("ab", 2, &written), kCvelAppendedInPlace);
  EXPECT_EQ(written, 0u);
  // A part of a string: 0xFFFFFFFF means to the end, a larger count is clipped, an offset past the end is
  // refused (deliberate: no pointer past the buffer reaches the sink). The target is full from here on, so every write grows it and succeeds.
  CvelString source = testutil::hexString("31 32 33 34 35");
  for (auto [offset, count] : {std::pair<uint32_t, uint32_t>{1, 2}, {3, 0xFFFFFFFF}, {4, 100}})
    ASSERT_EQ(write(sink, source, offset, count), kCvelOk);
  EXPECT_EQ(write(sink, source, 6, 1), kCvelErrBadParameter);
  EXPECT_EQ(std::string(target.c_str(), target.length()), "01ab23455");
  // An empty source has no data: the sink is handed a null pointer and refuses it. An empty part at the
  // end of a non-empty source is a real pointer, and zero bytes fit in place.
  const CvelString empty;
  EXPECT_EQ(write(sink, empty, 0, 0xFFFFFFFF), kCvelErrBadParameter);
  EXPECT_EQ(write(sink, source, 5, 0xFFFFFFFF), kCvelAppendedInPlace);
  EXPECT_EQ(target.length(), 9u);
}

}  // namespace
