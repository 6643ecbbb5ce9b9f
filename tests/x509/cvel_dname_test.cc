#include "x509/cvel_dname.h"

#include <gtest/gtest.h>

#include <string>

#include "asn1/cvel_a1_context.h"
#include "support/test_util.h"

namespace {

using namespace testutil;

// C=DE (PrintableString) and CN=John (UTF8String) in one multi-valued RDN.
constexpr char kMultiValued[] = "30 1A 31 18 30 09 06 03 55 04 06 13 02 44 45 30 0B 06 03 55 04 03 0C 04 4A 6F 68 6E";

TEST(CvelDName, ParseResults) {
  const struct { const char* der; CvelResult result; uint32_t size; } cases[] = {
      {kMultiValued, kCvelOk, 2},
      // SET { CN=A, INTEGER, CN=B }, SET {}, SET { C=DE }, INTEGER: a SET ends at a non-SEQUENCE, a name at a non-SET.
      {"30 29 31 17 30 08 06 03 55 04 03 0C 01 41 02 01 00 30 08 06 03 55 04 03 0C 01 42 31 00"
       "   31 09 30 07 06 03 55 04 06 13 00 02 01 07", kCvelOk, 2},
      {"30 00", 0, 0}, {"31 00", 0, 0}, {"", 0, 0}, {"30 03 02 01 05", 0, 0}, {"30 04 31 02 31 00", 0, 0},
      // An attribute without its OID; without its value, or with a value past its SEQUENCE (both kept, with the
      // type as value: see below); a name past the input.
      {"30 07 31 05 30 03 02 01 05", kCvelErrMalformed, 0}, {"30 09 31 07 30 05 06 03 55 04 03", kCvelOk, 1},
      {"30 0B 31 09 30 07 06 03 55 04 03 0C 05", kCvelOk, 1}, {"30 20 31 09 30 07 06 03 55 04 03 0C", 0, 0},
  };
  CvelDName name;
  for (const auto& c : cases) {
    CvelString der = hexString(c.der);
    EXPECT_EQ(name.parse(der), c.result) << c.der;  // the same object: every parse starts empty
    EXPECT_EQ(name.size(), c.size) << c.der;
    EXPECT_EQ(toHex(name.encoded()), c.result == kCvelOk ? toHex(der) : "") << c.der;
  }
}

// SET { SEQUENCE { OID 2.5.4.3, UTF8String of one letter } }: 12 octets.
std::string commonName(int i) { return "310A300806035504030C01" + toHex({static_cast<uint8_t>(0x41 + i)}); }

TEST(CvelDName, LongNamesParseAsShortOnesDo) {
  // Sixteen attributes and fewer are read from the cursors the count kept; more take a second walk. An
  // attribute without OID (SET { SEQUENCE { INTEGER } }) stops either with what came before it kept.
  const std::string bad = "31053003020105";
  const struct { int before; bool broken; int after; CvelResult result; uint32_t size; } cases[] = {
      {16, false, 0, kCvelOk, 16}, {17, false, 0, kCvelOk, 17}, {40, false, 0, kCvelOk, 40},
      {3, true, 20, kCvelErrMalformed, 3}, {17, true, 2, kCvelErrMalformed, 17}, {15, true, 0, kCvelErrMalformed, 15},
  };
  for (const auto& c : cases) {
    std::string rdns;
    for (int i = 0; i < c.before; ++i) rdns += commonName(i);
    if (c.broken) rdns += bad;
    for (int i = 0; i < c.after; ++i) rdns += commonName(c.before + i);
    CvelString der = hexString(tlv("30", rdns));
    for (CvelKeep keep : {CvelKeep::kCopy, CvelKeep::kView}) {
      SCOPED_TRACE(std::to_string(c.before) + (c.broken ? " broken " : " ") + std::to_string(c.after));
      CvelDName name;
      EXPECT_EQ(name.parse(der, nullptr, keep), c.result);
      ASSERT_EQ(name.size(), c.size);
      for (uint32_t i = 0; i < name.size(); ++i) {
        CvelRDName* entry = nullptr;
        ASSERT_EQ(name.get(i, entry), kCvelOk);
        EXPECT_EQ(toHex(entry->type()), "0603550403");
        EXPECT_EQ(entry->value().length(), 3u);
        EXPECT_EQ(entry->value().data()[2], 0x41 + i);
      }
    }
  }
}

TEST(CvelRDName, AnAttributeWithoutAValueTakesTheElementLastRead) {
  // The value is whatever element the reader holds after trying to read past the type: with nothing (or
  // nothing whole) behind the type, that is the type element itself, and the copy succeeds.
  const std::pair<const char*, const char*> cases[] = {
      {"30 07 06 03 55 04 03 0C 00", "0C00"}, {"30 05 06 03 55 04 03", "0603550403"},
      {"30 07 06 03 55 04 03 0C 05", "0603550403"}};
  for (const auto& [der, value] : cases) {
    CvelString s = hexString(der);
    CvelA1Context element;
    ASSERT_EQ(element.next(s), 0x30);
    CvelRDName attribute;
    EXPECT_EQ(attribute.parse(s, element), kCvelOk) << der;
    EXPECT_EQ(toHex(attribute.type()), "0603550403") << der;
    EXPECT_EQ(toHex(attribute.value()), value) << der;
  }
}

TEST(CvelDName, EqualityFoldsPrintableStringsButKeepsTheirLengthOctet) {
  const struct { const char* a; const char* b; int equal; const char* bType = "06 03 55 04 03"; } cases[] = {
      {"13 08 46 6F 6F 20 20 42 61 72", "13 08 66 6F 6F 20 20 62 61 72", 1},  // "Foo  Bar", "foo  bar"
      {"13 08 46 6F 6F 20 20 42 61 72", "13 07 46 6F 6F 20 42 61 72", 0},     // "Foo Bar": lengths differ
      {"13 06 41 20 20 42 20 43", "13 06 41 20 42 20 20 43", 1},              // "A  B C", "A B  C"
      {"13 04 41 20 42 43", "13 04 41 42 20 43", 0},                          // "A BC", "AB C": single spaces stay
      {"13 03 41 00 42", "13 03 61 00 42", 1}, {"13 03 41 00 42", "13 03 61 00 62", 0},  // lowered up to a zero
      {"0C 03 46 6F 6F", "0C 03 66 6F 6F", 0},                                // UTF8String: exact
      {"0C 03 46 6F 6F", "0C 03 46 6F 6F", 1}, {"0C 03 46 6F 6F", "0C 03 46 6F 6F", 0, "06 03 55 04 04"},
  };
  // A Name of one attribute: type (an OID element of 5 octets) and value, with short lengths.
  auto name = [](CvelDName& out, const std::string& type, const std::string& value) {
    const auto n = static_cast<unsigned char>(5 + hex(value).size());
    const CvelString der =
        hexString("30" + toHex({uint8_t(n + 4)}) + "31" + toHex({uint8_t(n + 2)}) + "30" + toHex({n}) + type + value);
    ASSERT_EQ(out.parse(der), kCvelOk) << value;
  };
  for (const auto& c : cases) {
    CvelDName a, b;
    name(a, "06 03 55 04 03", c.a);
    name(b, c.bType, c.b);
    EXPECT_EQ(a.equals(b), c.equal) << c.a << " / " << c.b;
  }
  CvelDName full, one;  // the same first attribute, but not the same count
  CvelString der = hexString(kMultiValued);
  ASSERT_EQ(full.parse(der), kCvelOk);
  name(one, "06 03 55 04 06", "13 02 44 45");
  EXPECT_EQ(one.equals(full), 0);
}

}  // namespace
