#include "x509/cvel_dname.h"

#include <gtest/gtest.h>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_oid.h"
#include "support/test_util.h"

namespace {

using testutil::assignHex;
using testutil::toHex;

constexpr CvelResult kNoEntry = 0;

// C=DE (PrintableString) and CN=John (UTF8String) in one multi-valued RDN.
constexpr char kMultiValued[] =
    "30 1A 31 18"
    "   30 09 06 03 55 04 06 13 02 44 45"
    "   30 0B 06 03 55 04 03 0C 04 4A 6F 68 6E";

CvelRDName* entry(const CvelDName& name, uint32_t index) {
  CvelRDName* rdn = nullptr;
  EXPECT_EQ(name.get(index, rdn), kCvelOk);
  return rdn;
}

// A one-attribute Name with a common name element given as hex.
void commonName(CvelDName& name, const std::string& valueHex) {
  CvelString der;
  CvelString value;
  assignHex(value, valueHex);
  // 06 03 55 04 03 plus the value, in a SEQUENCE, in a SET, in a SEQUENCE (all short lengths).
  uint32_t attribute = 5 + value.length();
  std::string text = "30 " + toHex({static_cast<unsigned char>(attribute + 4)}) + " 31 " +
                     toHex({static_cast<unsigned char>(attribute + 2)}) + " 30 " +
                     toHex({static_cast<unsigned char>(attribute)}) + " 06 03 55 04 03 " + valueHex;
  assignHex(der, text);
  ASSERT_EQ(name.parse(der), kCvelOk);
}

TEST(CvelDName, MultiValuedRdnBecomesConsecutiveEntries) {
  CvelString der;
  assignHex(der, kMultiValued);
  CvelDName name;
  ASSERT_EQ(name.parse(der), kCvelOk);
  ASSERT_EQ(name.size(), 2u);
  EXPECT_EQ(entry(name, 0)->typeId(), kOidCountryName);
  EXPECT_EQ(toHex(entry(name, 0)->type()), "0603550406");
  EXPECT_EQ(toHex(entry(name, 0)->value()), "13024445");
  EXPECT_EQ(entry(name, 1)->typeId(), kOidCommonName);
  EXPECT_EQ(toHex(entry(name, 1)->value()), "0C044A6F686E");
  EXPECT_TRUE(entry(name, 1)->text().isEmpty());
  EXPECT_EQ(toHex(name.encoded()), toHex(der));
}

TEST(CvelDName, RejectsWhatIsNotANameOfAttributes) {
  struct Case {
    const char* der;
    CvelResult result;
  } cases[] = {
      {"30 00", kNoEntry},                                   // no RDN at all
      {"31 00", kNoEntry},                                   // not a SEQUENCE
      {"30 03 02 01 05", kNoEntry},                          // first child is not a SET
      {"30 04 31 02 31 00", kNoEntry},                       // SETs without attributes
      {"30 07 31 05 30 03 02 01 05", kCvelErrMalformed},     // attribute without its OID
      {"30 09 31 07 30 05 06 03 55 04 03", kCvelErrMalformed},  // attribute without its value
      {"30 20 31 09 30 07 06 03 55 04 03 0C 00", kNoEntry},  // runs past the end of the input
      {"", kNoEntry},
  };
  for (const Case& c : cases) {
    CvelString der;
    assignHex(der, c.der);
    CvelDName name;
    EXPECT_EQ(name.parse(der), c.result) << c.der;
    EXPECT_TRUE(name.encoded().isEmpty()) << c.der;
  }
}

TEST(CvelDName, StopsQuietlyAtWhatIsNotASetOrAnAttribute) {
  CvelString der;
  // SET { CN=A, INTEGER, CN=B }, empty SET, SET { C=DE }, then an INTEGER that ends the name.
  assignHex(der,
            "30 29"
            "  31 17 30 08 06 03 55 04 03 0C 01 41  02 01 00  30 08 06 03 55 04 03 0C 01 42"
            "  31 00"
            "  31 09 30 07 06 03 55 04 06 13 00"
            "  02 01 07");
  CvelDName name;
  ASSERT_EQ(name.parse(der), kCvelOk);
  ASSERT_EQ(name.size(), 2u);
  EXPECT_EQ(toHex(entry(name, 0)->value()), "0C0141");
  EXPECT_EQ(entry(name, 1)->typeId(), kOidCountryName);
}

TEST(CvelDName, ReadsTheNextElementOfAReader) {
  CvelString der;
  assignHex(der, std::string("02 01 05 ") + kMultiValued);
  CvelA1Context reader;
  ASSERT_EQ(reader.next(der), 0x02);
  CvelDName name;
  ASSERT_EQ(name.parse(der, &reader), kCvelOk);
  EXPECT_EQ(name.size(), 2u);
  EXPECT_EQ(name.encoded().length(), 28u);
  EXPECT_EQ(reader.next(der), CvelA1Context::kEnd);
}

TEST(CvelDName, ReparsingReplacesTheEntries) {
  CvelString der;
  assignHex(der, kMultiValued);
  CvelDName name;
  ASSERT_EQ(name.parse(der), kCvelOk);
  CvelString empty;
  assignHex(empty, "30 00");
  EXPECT_EQ(name.parse(empty), kNoEntry);
  EXPECT_EQ(name.size(), 0u);
}

TEST(CvelDName, PrintableStringsFoldCaseButNotTheirRunsOfSpaces) {
  CvelDName twoSpaces, twoSpacesLower, oneSpace;
  commonName(twoSpaces, "13 08 46 6F 6F 20 20 42 61 72");       // "Foo  Bar"
  commonName(twoSpacesLower, "13 08 66 6F 6F 20 20 62 61 72");  // "foo  bar"
  commonName(oneSpace, "13 07 46 6F 6F 20 42 61 72");           // "Foo Bar"
  EXPECT_EQ(twoSpaces.equals(twoSpacesLower), 1);
  EXPECT_EQ(twoSpacesLower.equals(twoSpaces), 1);
  // The length octets are folded as they stand, so the runs of spaces keep the names apart.
  EXPECT_EQ(twoSpaces.equals(oneSpace), 0);
}

TEST(CvelDName, OtherStringTypesCompareExactly) {
  CvelDName upper, lower, printable;
  commonName(upper, "0C 03 46 6F 6F");      // UTF8String "Foo"
  commonName(lower, "0C 03 66 6F 6F");      // UTF8String "foo"
  commonName(printable, "13 03 66 6F 6F");  // PrintableString "foo"
  EXPECT_EQ(upper.equals(lower), 0);
  EXPECT_EQ(upper.equals(upper), 1);
  // Folding is chosen by the first name's tag; the other value is folded whatever its tag.
  EXPECT_EQ(lower.equals(printable), 0);
  EXPECT_EQ(printable.equals(lower), 0);
}

TEST(CvelDName, EqualityNeedsTheSameTypesAndCount) {
  CvelString der;
  assignHex(der, kMultiValued);
  CvelDName full;
  ASSERT_EQ(full.parse(der), kCvelOk);
  CvelDName john;
  commonName(john, "0C 04 4A 6F 68 6E");
  EXPECT_EQ(full.equals(john), 0);

  CvelString other;  // the same value under the surname type
  assignHex(other, "30 0F 31 0D 30 0B 06 03 55 04 04 0C 04 4A 6F 68 6E");
  CvelDName surname;
  ASSERT_EQ(surname.parse(other), kCvelOk);
  EXPECT_EQ(john.equals(surname), 0);

  CvelDName empty1, empty2;
  EXPECT_EQ(empty1.equals(empty2), 1);
}

TEST(CvelDName, FoldingCoversTheHeaderOctetsAndStopsLoweringAtZero) {
  struct Case {
    const char* in;
    const char* out;
  } cases[] = {
      {"13 07 41 20 20 20 42 63 44", "13076120626364"},
      // A length octet 0x20 before a leading space is itself a space of the run and is dropped.
      {"13 20 20 41", "132061"},
      // A length octet in the range of upper-case letters is lowered like one.
      {"13 41 41", "136161"},
      {"13 03 41 00 42", "1303610042"},
      {"", ""},
  };
  for (const Case& c : cases) {
    CvelString in, out;
    assignHex(in, c.in);
    cvelFoldPrintable(in, out);
    EXPECT_EQ(toHex(out), c.out) << c.in;
  }
}

TEST(CvelDName, EncodeProducesNothing) {
  CvelString der;
  assignHex(der, kMultiValued);
  CvelDName name;
  ASSERT_EQ(name.parse(der), kCvelOk);
  CvelString out;
  out.assign("left over");
  EXPECT_EQ(name.encode(out), 0u);
  EXPECT_TRUE(out.isEmpty());
}

}  // namespace
