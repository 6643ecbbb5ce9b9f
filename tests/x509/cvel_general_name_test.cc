#include "x509/cvel_general_name.h"

#include <gtest/gtest.h>

#include "support/test_util.h"

namespace {

using namespace testutil;

constexpr uint8_t kBad = CvelGeneralName::kInvalidTag;

CvelResult parseName(CvelGeneralName& n, const std::string& der) { assignHex(n.encoded(), der); return n.parse(); }

TEST(CvelGeneralName, ParseByTag) {
  const struct { const char* der; CvelResult result; uint8_t tag; const char* valueAndTypeId; } cases[] = {
      {"81 03 61 40 62", kCvelOk, 0x81, "614062/"}, {"87 04 C0 00 02 01", kCvelOk, 0x87, "C0000201/"},
      {"A0 08 06 02 2A 03 A0 02 0C 00", kCvelOk, 0xA0, "0C00/06022A03"},  // otherName: the explicit value's content
      {"A0 04 06 02 2A 03", kCvelOk, 0xA0, "2A03/06022A03"},  // no value: the type-id's content is taken instead
      {"A4 0F 30 0D 31 0B 30 09 06 03 55 04 03 0C 02 43 4E", kCvelOk, 0xA4, "300D310B300906035504030C02434E/"},
      {"A2 03 61 2E 62", kCvelOk, 0xA2, "612E62/"}, {"A8 03 2A 03 04", kCvelOk, 0xA8, "/06032A0304"},  // retagged
      {"88 03 2A 03 04", 0, kBad, "/"},  // the primitive registeredID is refused
      {"A0 05 A0 03 0C 01 41", kCvelErrMalformed, kBad, "/"}, {"A4 02 30 00", 0, kBad, "3000/"},  // no OID, no RDN
      {"A3 00", kCvelErrMalformed, kBad, "/"}, {"A5 02 80 00", kCvelErrMalformed, kBad, "/"}, {"", 0, kBad, "/"},
      {"83 01 00", 0, kBad, "/"}, {"80 01 00", 0, kBad, "/"}, {"A9 01 00", 0, kBad, "/"},
      {"82 05 61 2E", kCvelErrMalformed, kBad, "/"}, {"A8", kCvelErrMalformed, kBad, "/"},  // overrun, no length
  };
  for (const auto& c : cases) {
    CvelGeneralName name;
    EXPECT_EQ(parseName(name, c.der), c.result) << c.der;
    EXPECT_EQ(name.tag(), c.tag) << c.der;
    EXPECT_EQ(toHex(name.value()) + "/" + toHex(name.typeId()), c.valueAndTypeId) << c.der;
  }
}

TEST(CvelGeneralName, AParseAgainForgetsTheDirectoryNameWholly) {
  CvelGeneralName name;
  ASSERT_EQ(parseName(name, "A4 0F 30 0D 31 0B 30 09 06 03 55 04 03 0C 02 43 4E"), kCvelOk);
  ASSERT_EQ(name.directoryName().size(), 1u);
  EXPECT_EQ(toHex(name.directoryName().encoded()), "300D310B300906035504030C02434E");
  // The name of the first parse lies in bytes the second one frees: none of it may outlive them.
  ASSERT_EQ(parseName(name, "82 03 61 2E 62"), kCvelOk);
  EXPECT_EQ(name.directoryName().size(), 0u);
  EXPECT_TRUE(name.directoryName().encoded().isEmpty());
  EXPECT_EQ(toHex(name.value()), "612E62");
}

TEST(CvelGeneralName, MatchingFollowsTheFirstNamesTag) {
  const struct { const char* a; const char* b; int match; } cases[] = {
      {"81 03 61 40 62", "81 03 61 40 62", 0}, {"A1 03 61 40 62", "A1 03 61 40 62", 0},  // e-mail: never
      {"82 03 61 2E 62", "86 03 61 2E 62", 1}, {"82 03 61 2E 62", "82 03 41 2E 62", 0},  // b's tag not looked at
      {"87 04 C0 00 02 01", "87 04 C0 00 02 01", 0},  // the primitive iPAddress has no rule
      {"A7 04 C0 00 02 01", "A7 04 C0 00 02 01", 1}, {"A8 03 2A 03 04", "A8 03 2A 03 04", 1},
      {"A0 08 06 02 2A 03 A0 02 05 00", "A0 08 06 02 2A 04 A0 02 05 00", 0}, {"A8 03 2A 03 04", "A8 03 2A 03 05", 0},
      {"A4 0F 30 0D 31 0B 30 09 06 03 55 04 03 13 02 43 4E", "A4 0F 30 0D 31 0B 30 09 06 03 55 04 03 13 02 63 6E", 1},
  };
  for (const auto& c : cases) {
    CvelGeneralName a, b;
    static_cast<void>(parseName(a, c.a));
    static_cast<void>(parseName(b, c.b));
    EXPECT_EQ(a.matches(b), c.match) << c.a << " / " << c.b;
  }
}

TEST(CvelGeneralNames, OnlyTheLastNameDecidesTheResult) {
  const struct { const char* der; CvelResult result; const char* tags; } cases[] = {
      // The subjectAltName of tests/data/x509/ee-qc.der (openssl): six names, then a primitive registeredID.
      {"30819881127369676E6572404578616D706C652E6F726782127369676E65722E6578616D706C652E6F7267861B68747470733A2F2F7369"
       "676E65722E6578616D706C652E6F72672F8704C0000201A4223020311E301C06035504030C155369676E6572204469726563746F727920"
       "4E616D65A022060A2B060104018237140203A0140C127369676E6572406578616D706C652E6F726788032A0304", 0, "81828687A4A0"},
      {"30 0B 82 01 61 A5 02 80 00 86 02 68 3A", kCvelOk, "8286"},  // a bad name in the middle is dropped
      {"30 07 82 01 61 A5 02 80 00", kCvelErrMalformed, "82"},
      {"30 06 82 01 61 82 05 61", kCvelOk, "82"},  // an element that overruns ends the sequence
      {"31 03 82 01 61", 0, ""}, {"30 00", 0, ""}, {"30 05 82 01 61", 0, ""}, {"", 0, ""},
  };
  CvelGeneralNames names;
  CvelGeneralName* name = nullptr;
  for (const auto& c : cases) {
    CvelString der = hexString(c.der);
    EXPECT_EQ(names.parse(der), c.result) << c.der;
    std::string tags;
    for (uint32_t i = 0; i < names.size(); ++i) tags += names.get(i, name) == kCvelOk ? toHex({name->tag()}) : "?";
    EXPECT_EQ(tags, c.tags) << c.der;
  }
}

}  // namespace
