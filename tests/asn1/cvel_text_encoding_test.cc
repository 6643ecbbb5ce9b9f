// UTF-8 / UTF-32 conversion against independent converters (Python's codec and iconv
// wrote the sample files) and the reference converter's four results.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <tuple>

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
}

TEST(TextEncoding, Utf8ToUtf32Results) {
  // UTF-8, result, source bytes behind the stop, code points written. That failures throw from toWide is
  // held by fuzz_text_encoding.
  const std::tuple<const char*, CvelConversionResult, size_t, size_t> cases[] = {
      {"C3A9", kConversionOk, 2, 1},     {"41C3", kSourceExhausted, 1, 1},      // two-byte; cut off
      {"4180", kSourceIllegal, 1, 1},    {"C0AF", kSourceIllegal, 0, 0},        // stray continuation; overlong
      {"E08080", kSourceIllegal, 0, 0},  {"EDA080", kSourceIllegal, 0, 0},      // overlong; a surrogate
      {"F4908080", kSourceIllegal, 0, 0}, {"F888808080", kSourceIllegal, 0, 0},  // past U+10FFFF; five bytes
      {"41F8", kSourceExhausted, 1, 1},  {"E241", kSourceExhausted, 0, 0},      // lead of five at the end
      // Deliberately strict: ASCII after an ED or F4 lead is no continuation byte, although the first
      // published converter took it.
      {"E24141", kSourceIllegal, 0, 0},  {"61ED2080", kSourceIllegal, 1, 1},
      {"F4208080", kSourceIllegal, 0, 0}};
  for (const auto& [hexText, result, consumed, produced] : cases) {
    const Bytes in = testutil::hex(hexText);
    uint32_t out[8] = {};
    const uint8_t* s = in.data();
    uint32_t* t = out;
    EXPECT_EQ(convertUtf8ToUtf32(&s, in.data() + in.size(), &t, out + 8, kStrictConversion), result) << hexText;
    EXPECT_EQ(std::make_tuple(static_cast<size_t>(s - in.data()), static_cast<size_t>(t - out)),
              std::make_tuple(consumed, produced)) << hexText;
  }
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
