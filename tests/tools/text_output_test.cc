// The tool's text output: names decoded and written as RFC 4514 strings, the extent of BER elements with
// indefinite lengths, WinAnsiEncoding and PDF literal strings for the appearance, and the TrueType reader.
// Expected values are derived by hand from X.690, RFC 4514, Windows code page 1252 and the PDF rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include "asn1/cvel_string.h"
#include "inspect/ber_element.h"
#include "inspect/name_text.h"
#include "pdf/pdf_appearance.h"
#include "pdf/truetype_font.h"

namespace {

// One element in the short length form (all test contents are under 128 bytes).
std::string tlv(unsigned char tag, const std::string& content) {
  return std::string(1, static_cast<char>(tag)) + static_cast<char>(content.size()) + content;
}

const std::string kOidC = "\x06\x03\x55\x04\x06";
const std::string kOidCn = "\x06\x03\x55\x04\x03";
const std::string kOidO = "\x06\x03\x55\x04\x0A";
const std::string kOidOu = "\x06\x03\x55\x04\x0B";
const std::string kOidOther = "\x06\x03\x2A\x03\x04";  // 1.2.3.4

std::string attribute(const std::string& oid, unsigned char tag, const std::string& value) {
  return tlv(0x30, oid + tlv(tag, value));
}

std::string name(const std::vector<std::string>& rdns) {
  std::string content;
  for (const std::string& rdn : rdns) content += tlv(0x31, rdn);
  return tlv(0x30, content);
}

CvelString der(const std::string& bytes) {
  CvelString s;
  if (s.assign(bytes.data(), static_cast<uint32_t>(bytes.size())) != kCvelOk) s.release();
  return s;
}

TEST(Rfc4514Name, LastRdnFirstEscapedAndDecoded) {
  const struct { const char* what; std::string der, rfc4514; } cases[] = {
      {"the special characters, a leading and a trailing space",
       name({attribute(kOidCn, 0x0C, " #a,b+c\"d\\e<f>g;h ")}), "CN=\\ #a\\,b\\+c\\\"d\\\\e\\<f\\>g\\;h\\ "},
      {"a leading number sign", name({attribute(kOidCn, 0x0C, "#x")}), "CN=\\#x"},
      {"a control character as a hex pair", name({attribute(kOidCn, 0x0C, "a\nb")}), "CN=a\\0Ab"},
      {"a multi-valued RDN in encoding order", name({attribute(kOidO, 0x13, "A") + attribute(kOidOu, 0x13, "B")}),
       "O=A+OU=B"},
      {"a type without a keyword: dotted, the value's DER", name({attribute(kOidOther, 0x0C, "x")}),
       "1.2.3.4=#0C0178"},
      {"a value that is not a string", name({attribute(kOidCn, 0x02, "\x05")}), "CN=#020105"},
      {"BMPString with a surrogate pair", name({attribute(kOidCn, 0x1E, std::string("\x00Z\x00o\x00\xEB\xD8\x3D\xDE\x00", 10))}),
       "CN=Zo\xC3\xAB\xF0\x9F\x98\x80"},
      {"UniversalString", name({attribute(kOidCn, 0x1C, std::string("\x00\x00\x03\xA9", 4))}), "CN=\xCE\xA9"},
      {"UniversalString of a length that is no multiple of four",
       name({attribute(kOidCn, 0x1C, std::string("\x00\x03\xA9", 3))}), "CN=#1C030003A9"},
      {"UTF8String that is not UTF-8", name({attribute(kOidCn, 0x0C, "a\xFF")}), "CN=a\xEF\xBF\xBD"},
      {"PrintableString with a high byte", name({attribute(kOidCn, 0x13, "a\xE9")}), "CN=a\xEF\xBF\xBD"},
      {"not a Name", tlv(0x04, "x"), ""},
      {"an RDN that is not a SET", tlv(0x30, tlv(0x30, attribute(kOidCn, 0x0C, "x"))), ""},
  };
  for (const auto& c : cases) EXPECT_EQ(rfc4514Name(der(c.der)), c.rfc4514) << c.what;
}

TEST(ListedName, EncodingOrderWithShortNames) {
  EXPECT_EQ(listedName(der(name({attribute(kOidC, 0x13, "DE"), attribute(kOidCn, 0x1E, std::string("\x00\xFC", 2))}))),
            "C=DE, CN=\xC3\xBC");
  EXPECT_EQ(listedName(der(name({attribute(kOidCn, 0x0C, "a\x01")}))), "CN=#0C026101");
}

std::string repeated(const std::string& s, int n) {
  std::string out;
  for (int i = 0; i < n; ++i) out += s;
  return out;
}

TEST(BerElementLength, WalksIndefiniteLengthsToTheirEnd) {
  const struct { const char* what; std::string bytes; size_t length; } cases[] = {
      {"nested indefinite", std::string("\x30\x80\x30\x80\x04\x00\x00\x00\x00\x00", 10), 10},
      {"constructed OCTET STRING in pieces", std::string("\x30\x80\x24\x80\x04\x01\x61\x04\x01\x62\x00\x00\x00\x00", 14), 14},
      {"no end-of-contents", std::string("\x30\x80\x02\x01\x05", 5), 0},
      {"a content longer than the bytes", std::string("\x30\x05\x02\x01", 4), 0},
      {"a primitive element of indefinite length", std::string("\x04\x80\x00\x00", 4), 0},
      {"end-of-contents at the top", std::string("\x00\x00", 2), 0},
      {"nothing", std::string(), 0},
      {"64 levels deep", repeated("\x30\x80", 64) + repeated(std::string("\x00\x00", 2), 64), 256},
      {"65 levels deep", repeated("\x30\x80", 65) + repeated(std::string("\x00\x00", 2), 65), 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(berElementLength(reinterpret_cast<const unsigned char*>(c.bytes.data()), c.bytes.size()), c.length)
        << c.what;
  }
}

TEST(WinAnsi, CodePage1252AndLiteralStrings) {
  const std::pair<std::string, std::string> cases[] = {
      {"J\xC3\xBCrgen", "J\xFCrgen"},            // Latin-1 range
      {"\xE2\x82\xAC", "\x80"},                 // euro sign
      {"\xC5\x92\xC5\x93", "\x8C\x9C"},         // OE ligatures
      {"\xE6\x9D\xB1", "?"},                    // not in the code page
      {"\xC2\x81", "?"},                        // a C1 control: 0x81 is unassigned
      {"a\xFF" "b", "a?b"},                     // not UTF-8
  };
  for (const auto& [utf8, bytes] : cases) EXPECT_EQ(winAnsiBytes(utf8), bytes) << utf8;
  EXPECT_EQ(pdfLiteralString("a(b)\\\xFC\n"), "(a\\(b\\)\\\\\\374\\012)");
}

TEST(TrueTypeFont, ReadsAFontAndRefusesCutCopies) {
  const char* path = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
  std::ifstream in(path, std::ios::binary);
  if (!in) GTEST_SKIP() << path << " (fonts-dejavu-core) is not installed";
  const Bytes file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  TrueTypeFont font;
  std::string error;
  ASSERT_TRUE(font.read(file, error)) << error;
  EXPECT_NE(font.glyphOf(0x03A9), 0);    // Greek capital omega
  EXPECT_NE(font.glyphOf(0x1D538), 0);   // double-struck capital A, beyond the BMP (format 12)
  EXPECT_EQ(font.glyphOf(0x6771), 0);    // a CJK character DejaVu Sans lacks
  // A cut file either reads or is refused; no read goes past its end (the sanitizer build checks).
  for (size_t length = 0; length < file.size(); length += length < 4096 ? 61 : 65521) {
    TrueTypeFont cut;
    if (cut.read(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)), error)) {
      cut.glyphOf(0x1D538);
      cut.glyphOf('A');
      cut.advanceOf(1000);
    }
  }
  Bytes cff(file);
  const std::string otto = "OTTO";
  std::copy(otto.begin(), otto.end(), cff.begin());
  EXPECT_FALSE(font.read(cff, error));
  EXPECT_EQ(error, "an OpenType font with CFF outlines, not TrueType");
}

}  // namespace
