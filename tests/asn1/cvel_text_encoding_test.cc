// UTF-8 / UTF-32 conversion against independent converters (Python's codec and iconv
// wrote the sample files) and the reference converter's four results.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "asn1/cvel_text_encoding.h"
#include "support/test_util.h"

namespace {

using testutil::Bytes;

TEST(TextEncoding, AgreesWithIndependentConverters) {
  const Bytes utf8 = testutil::readFile(testutil::dataPath("text/sample.utf8"));
  const Bytes utf32 = testutil::readFile(testutil::dataPath("text/sample.utf32le"));
  ASSERT_FALSE(utf8.empty());
  ASSERT_EQ(utf32.size() % 4, 0u);
  std::wstring expected;
  for (size_t i = 0; i < utf32.size(); i += 4) {
    expected.push_back(static_cast<wchar_t>(utf32[i] | utf32[i + 1] << 8 | utf32[i + 2] << 16 | utf32[i + 3] << 24));
  }
  const std::string text(utf8.begin(), utf8.end());
  EXPECT_EQ(toWide(text), expected);
  EXPECT_EQ(toUtf8(expected), text);
  EXPECT_EQ(toWide(""), L"");
  EXPECT_EQ(toUtf8(L""), "");
}

struct Utf8Case {
  const char* name;
  const char* hex;
  CvelConversionResult result;
  size_t consumed;     // source bytes behind the position where conversion stopped
  size_t produced;     // code points written
};

TEST(TextEncoding, Utf8ToUtf32Results) {
  const Utf8Case cases[] = {
      {"two-byte", "C3A9", kConversionOk, 2, 1},
      {"cut-off sequence", "41C3", kSourceExhausted, 1, 1},
      {"stray continuation", "4180", kSourceIllegal, 1, 1},
      {"overlong slash", "C0AF", kSourceIllegal, 0, 0},
      {"overlong three-byte", "E08080", kSourceIllegal, 0, 0},
      {"encoded surrogate", "EDA080", kSourceIllegal, 0, 0},
      {"beyond U+10FFFF", "F4908080", kSourceIllegal, 0, 0},
      {"five-byte form", "F888808080", kSourceIllegal, 0, 0},
      {"lead of five at the end", "41F8", kSourceExhausted, 1, 1},
      {"bad continuation", "E241", kSourceExhausted, 0, 0},
      {"bad continuation inside", "E24141", kSourceIllegal, 0, 0},
      {"ASCII after ED", "61ED2080", kSourceIllegal, 1, 1},
      {"ASCII after F4", "F4208080", kSourceIllegal, 0, 0},
  };
  for (const Utf8Case& c : cases) {
    const Bytes in = testutil::hex(c.hex);
    uint32_t out[8] = {};
    const uint8_t* s = in.data();
    uint32_t* t = out;
    EXPECT_EQ(convertUtf8ToUtf32(&s, in.data() + in.size(), &t, out + 8, kStrictConversion), c.result) << c.name;
    EXPECT_EQ(static_cast<size_t>(s - in.data()), c.consumed) << c.name;
    EXPECT_EQ(static_cast<size_t>(t - out), c.produced) << c.name;
  }
  EXPECT_THROW(toWide("\xC3"), std::runtime_error);
  EXPECT_THROW(toWide("a\xFF"), std::runtime_error);
}

TEST(TextEncoding, Utf32ToUtf8Results) {
  // Beyond U+10FFFF: U+FFFD is written and the conversion goes on. A surrogate stops a strict conversion at
  // itself; a lenient one writes it as three bytes. A full target leaves the source at what did not fit.
  const struct { uint32_t in[2]; CvelConversionFlags flags; size_t room; CvelConversionResult result; size_t consumed;
                 const char* out; } cases[] = {
      {{0x110000, 0x41}, kStrictConversion, 16, kSourceIllegal, 2, "EFBFBD41"},
      {{0x41, 0xD800}, kStrictConversion, 16, kSourceIllegal, 1, "41"},
      {{0x41, 0xD800}, kLenientConversion, 16, kConversionOk, 2, "41EDA080"},
      {{0x41, 0x20AC}, kStrictConversion, 3, kTargetExhausted, 1, "41"},
  };
  for (const auto& c : cases) {
    uint8_t out[16] = {};
    const uint32_t* s = c.in;
    uint8_t* t = out;
    EXPECT_EQ(convertUtf32ToUtf8(&s, c.in + 2, &t, out + c.room, c.flags), c.result) << c.out;
    EXPECT_EQ(static_cast<size_t>(s - c.in), c.consumed) << c.out;
    EXPECT_EQ(testutil::toHex(Bytes(out, t)), c.out);
  }
  for (wchar_t bad : {0x110000, 0xD800}) EXPECT_THROW(toUtf8(std::wstring(1, bad)), std::runtime_error);
}

}  // namespace
