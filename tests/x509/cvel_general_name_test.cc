#include "x509/cvel_general_name.h"

#include <gtest/gtest.h>

#include "support/test_util.h"

namespace {

using testutil::assignHex;
using testutil::toHex;

constexpr uint8_t kInvalid = CvelGeneralName::kInvalidTag;

// The subjectAltName value of tests/data/x509/ee-qc.der, as openssl asn1parse shows it: rfc822Name,
// dNSName, URI, iPAddress, directoryName, otherName (UPN) and registeredID written as primitive [8].
constexpr char kOpensslAltNames[] =
    "30819881127369676E6572404578616D706C652E6F726782127369676E65722E6578616D706C652E6F7267861B68747470733A2F2F"
    "7369676E65722E6578616D706C652E6F72672F8704C0000201A4223020311E301C06035504030C155369676E6572204469726563"
    "746F7279204E616D65A022060A2B060104018237140203A0140C127369676E6572406578616D706C652E6F726788032A0304";

CvelResult parseName(CvelGeneralName& name, const std::string& hex) {
  assignHex(name.encoded(), hex);
  return name.parse();
}

CvelGeneralName* nameAt(const CvelGeneralNames& names, uint32_t index) {
  CvelGeneralName* name = nullptr;
  EXPECT_EQ(names.get(index, name), kCvelOk);
  return name;
}

TEST(CvelGeneralName, SimpleFormsKeepTheirContent) {
  const char* forms[] = {
      "81 05 61 40 62 2E 63", "82 03 61 2E 62", "86 04 68 3A 2F 2F", "87 04 C0 00 02 01",
      "A1 03 61 40 62",       "A2 03 61 2E 62", "A6 02 68 3A",       "A7 04 C0 00 02 01",
  };
  for (const char* hex : forms) {
    CvelGeneralName name;
    ASSERT_EQ(parseName(name, hex), kCvelOk) << hex;
    testutil::Bytes bytes = testutil::hex(hex);
    EXPECT_EQ(name.tag(), bytes[0]) << hex;
    EXPECT_EQ(toHex(name.value()), toHex(testutil::Bytes(bytes.begin() + 2, bytes.end()))) << hex;
    EXPECT_TRUE(name.typeId().isEmpty()) << hex;
  }
}

TEST(CvelGeneralName, OtherNameKeepsTypeAndExplicitValue) {
  CvelGeneralName name;
  ASSERT_EQ(parseName(name, "A0 22 06 0A 2B 06 01 04 01 82 37 14 02 03 A0 14 0C 12 73 69 67 6E 65 72 40 65 78 61 6D 70 6C "
                            "65 2E 6F 72 67"),
            kCvelOk);
  EXPECT_EQ(name.tag(), 0xA0);
  EXPECT_EQ(toHex(name.typeId()), "060A2B060104018237140203");
  EXPECT_EQ(toHex(name.value()), "0C127369676E6572406578616D706C652E6F7267");

  CvelGeneralName noOid;
  EXPECT_EQ(parseName(noOid, "A0 05 A0 03 0C 01 41"), kCvelErrMalformed);
  EXPECT_EQ(noOid.tag(), kInvalid);
}

TEST(CvelGeneralName, DirectoryNameIsDecoded) {
  CvelGeneralName name;
  ASSERT_EQ(parseName(name, "A4 0F 30 0D 31 0B 30 09 06 03 55 04 03 0C 02 43 4E"), kCvelOk);
  EXPECT_EQ(name.tag(), 0xA4);
  EXPECT_EQ(toHex(name.value()), "300D310B300906035504030C02434E");
  EXPECT_EQ(name.directoryName().size(), 1u);

  CvelGeneralName empty;
  EXPECT_EQ(parseName(empty, "A4 02 30 00"), 0u);
  EXPECT_EQ(empty.tag(), kInvalid);
}

TEST(CvelGeneralName, RegisteredIdOnlyInItsConstructedForm) {
  CvelGeneralName constructed;
  ASSERT_EQ(parseName(constructed, "A8 03 2A 03 04"), kCvelOk);
  EXPECT_EQ(constructed.tag(), 0xA8);
  EXPECT_EQ(toHex(constructed.typeId()), "06032A0304");

  CvelGeneralName primitive;
  EXPECT_EQ(parseName(primitive, "88 03 2A 03 04"), 0u);
  EXPECT_EQ(primitive.tag(), kInvalid);
}

TEST(CvelGeneralName, RefusedForms) {
  struct Case {
    const char* hex;
    CvelResult result;
  } cases[] = {
      {"A3 00", kCvelErrMalformed},           // x400Address
      {"A5 02 80 00", kCvelErrMalformed},     // ediPartyName
      {"83 01 00", 0},  {"84 01 00", 0}, {"85 01 00", 0}, {"9F 1F 01 00", 0},
      {"80 01 00", 0},  {"A9 01 00", 0}, {"30 00", 0},    {"", 0},
      {"82 05 61 2E", kCvelErrMalformed},     // runs past its end
      {"A4", kCvelErrMalformed},              // header cut off
  };
  for (const Case& c : cases) {
    CvelGeneralName name;
    EXPECT_EQ(parseName(name, c.hex), c.result) << c.hex;
    EXPECT_EQ(name.tag(), kInvalid) << c.hex;
  }
}

TEST(CvelGeneralName, MatchingFollowsTheFirstNamesTag) {
  auto matches = [](const std::string& a, const std::string& b) {
    CvelGeneralName first, second;
    parseName(first, a);
    parseName(second, b);
    return first.matches(second);
  };
  // E-mail names never match, not even themselves.
  EXPECT_EQ(matches("81 03 61 40 62", "81 03 61 40 62"), 0);
  EXPECT_EQ(matches("A1 03 61 40 62", "A1 03 61 40 62"), 0);
  EXPECT_EQ(matches("82 03 61 2E 62", "82 03 61 2E 62"), 1);
  EXPECT_EQ(matches("82 03 61 2E 62", "82 03 41 2E 62"), 0);
  // The second name's tag is not looked at.
  EXPECT_EQ(matches("82 03 61 2E 62", "86 03 61 2E 62"), 1);
  // A primitive iPAddress has no rule of its own.
  EXPECT_EQ(matches("87 04 C0 00 02 01", "87 04 C0 00 02 01"), 0);
  EXPECT_EQ(matches("A7 04 C0 00 02 01", "A7 04 C0 00 02 01"), 1);
  EXPECT_EQ(matches("A0 08 06 02 2A 03 A0 02 05 00", "A0 08 06 02 2A 03 A0 02 05 00"), 1);
  EXPECT_EQ(matches("A0 08 06 02 2A 03 A0 02 05 00", "A0 08 06 02 2A 04 A0 02 05 00"), 0);
  EXPECT_EQ(matches("A8 03 2A 03 04", "A8 03 2A 03 04"), 1);
  EXPECT_EQ(matches("A8 03 2A 03 04", "A8 03 2A 03 05"), 0);
  // Directory names compare as names: PrintableStrings without regard to case.
  EXPECT_EQ(matches("A4 0F 30 0D 31 0B 30 09 06 03 55 04 03 13 02 43 4E",
                    "A4 0F 30 0D 31 0B 30 09 06 03 55 04 03 13 02 63 6E"),
            1);
  EXPECT_EQ(matches("A4 0F 30 0D 31 0B 30 09 06 03 55 04 03 0C 02 43 4E",
                    "A4 0F 30 0D 31 0B 30 09 06 03 55 04 03 0C 02 63 6E"),
            0);
  EXPECT_EQ(matches("A3 00", "A3 00"), 0);
}

TEST(CvelGeneralNames, OpensslAltNamesDropTheRegisteredIdAndReportIt) {
  CvelString der;
  assignHex(der, kOpensslAltNames);
  CvelGeneralNames names;
  // The last name, a primitive registeredID, is refused: the whole parse reports that.
  EXPECT_EQ(names.parse(der), 0u);
  ASSERT_EQ(names.size(), 6u);
  const uint8_t tags[] = {0x81, 0x82, 0x86, 0x87, 0xA4, 0xA0};
  for (uint32_t i = 0; i < 6; ++i) EXPECT_EQ(nameAt(names, i)->tag(), tags[i]) << i;
  EXPECT_EQ(toHex(nameAt(names, 0)->value()), "7369676E6572404578616D706C652E6F7267");
  EXPECT_EQ(toHex(nameAt(names, 3)->value()), "C0000201");
  EXPECT_EQ(toHex(nameAt(names, 4)->encoded()),
            "A4223020311E301C06035504030C155369676E6572204469726563746F7279204E616D65");
}

TEST(CvelGeneralNames, OnlyTheLastNameDecidesTheResult) {
  CvelString der;
  // dNSName, ediPartyName (refused and dropped), URI.
  assignHex(der, "30 0B 82 01 61 A5 02 80 00 86 02 68 3A");
  CvelGeneralNames names;
  EXPECT_EQ(names.parse(der), kCvelOk);
  ASSERT_EQ(names.size(), 2u);
  EXPECT_EQ(nameAt(names, 1)->tag(), 0x86);

  // dNSName, then an ediPartyName last.
  assignHex(der, "30 07 82 01 61 A5 02 80 00");
  EXPECT_EQ(names.parse(der), kCvelErrMalformed);
  ASSERT_EQ(names.size(), 1u);
  EXPECT_EQ(nameAt(names, 0)->tag(), 0x82);
}

TEST(CvelGeneralNames, NotASequenceOrEmpty) {
  const char* cases[] = {"31 03 82 01 61", "30 00", "", "30 05 82 01 61"};
  for (const char* hex : cases) {
    CvelString der;
    assignHex(der, hex);
    CvelGeneralNames names;
    EXPECT_EQ(names.parse(der), 0u) << hex;
    EXPECT_EQ(names.size(), 0u) << hex;
  }
  // An element that overruns the sequence ends it; what came before stands.
  CvelString der;
  assignHex(der, "30 06 82 01 61 82 05 61");
  CvelGeneralNames names;
  EXPECT_EQ(names.parse(der), kCvelOk);
  EXPECT_EQ(names.size(), 1u);
}

TEST(CvelGeneralNames, FindByTagCountsAndLends) {
  CvelString der;
  assignHex(der, "30 0C 82 01 61 86 02 68 3A 82 01 62 82 00");
  CvelGeneralNames names;
  ASSERT_EQ(names.parse(der), kCvelOk);
  CvelGeneralName* found = nullptr;
  EXPECT_EQ(names.findByTag(0x82, &found, 1), 3u);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(toHex(found->value()), "62");
  EXPECT_EQ(names.findByTag(0x82, &found, 3), 3u);
  EXPECT_EQ(found, nullptr);
  EXPECT_EQ(names.findByTag(0xA4, &found, 0), 0u);
  EXPECT_EQ(names.findByTag(0x82, nullptr, 0), kCvelErrBadParameter);

  names.add(nullptr);
  EXPECT_EQ(names.findByTag(0x82, &found, 0), kCvelErrMalformed);
}

}  // namespace
