#include "asn1/cvel_oid.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <tuple>

#include "support/test_util.h"

namespace {

int32_t kindOfHex(const char* hexText) {
  const testutil::Bytes b = testutil::hex(hexText);
  return kindOf(b.data(), static_cast<uint32_t>(b.size()));
}

TEST(CvelOid, DottedTextToDer) {
  // Only withTag 1 adds the tag. Zero 7-bit groups inside an arc are dropped, deliberately, and arcs are read
  // as a 32-bit C library reads a long: saturated, negative as their bit pattern, text that is not a number as 0.
  const std::tuple<const char*, int, const char*> cases[] = {
      {"1.2.840.113549", 0, "2A864886F70D"}, {"1.2.840.113549", 1, "06062A864886F70D"},
      {"2.5.4.3", 2, "550403"},   {"2.999", 0, "8837"},     {"1.2.0", 0, "2A00"},      {"1.2.128", 0, "2A81"},
      {"1.2.16384", 0, "2A81"},   {"1.2.16385", 0, "2A8101"}, {"1.2.16512", 0, "2A8181"}, {"2.48", 0, "81"},
      {"1.2.99999999999", 0, "2A87FFFFFF7F"}, {"1.2.-1", 0, "2A8FFFFFFF7F"}, {"1..3", 0, "2803"},
      // Texts converted ahead, outside the registry: signing-certificate-v2 and ecdsa-with-SHA256.
      {"1.2.840.113549.1.9.16.2.47", 1, "060B2A864886F70D010910022F"}, {"1.2.840.10045.4.3.2", 0, "2A8648CE3D040302"}};
  for (const auto& [text, withTag, der] : cases) {
    CvelString out;
    EXPECT_EQ(fromDotted(text, out, withTag), kCvelOk) << text;
    EXPECT_EQ(testutil::toHex(out), der) << text;
  }
  // No octet produced: 0 from either conversion, the output is left alone, and the first arc held does not
  // leak into the next text.
  CvelString out;
  ASSERT_EQ(out.assign("keep"), kCvelOk);
  for (const char* text : {"", "1", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(fromDotted(text, out, 1), 0u);
    EXPECT_EQ(fromDottedElement(text, out), 0u);
  }
  EXPECT_STREQ(out.c_str(), "keep");
  ASSERT_EQ(fromDotted("2.5", out, 0), kCvelOk);
  EXPECT_EQ(testutil::toHex(out), "55");
}

TEST(CvelOid, ElementConversionLendsTheRegistrysElementAndConvertsAnyOtherText) {
  // The same element as fromDotted with the tag: texts converted ahead come back as views that need no
  // block, others as owned strings; the expected octets are the ones of the case above.
  const std::tuple<const char*, bool, const char*> cases[] = {
      {"1.2.840.113549.1.9.16.2.47", true, "060B2A864886F70D010910022F"},
      {"2.16.840.1.101.3.4.2.1", true, "0609608648016503040201"},
      {"1.2.840.10045.4.3.2", true, "06082A8648CE3D040302"},
      {"1.2.128", false, "06022A81"},   // the converter's own octets, not standard base 128
      {"1..3", false, "06022803"}};
  for (const auto& [text, lent, der] : cases) {
    CvelString out;
    EXPECT_EQ(fromDottedElement(text, out), kCvelOk) << text;
    EXPECT_EQ(testutil::toHex(out), der) << text;
    EXPECT_EQ(out.isView(), lent) << text;
  }
}

TEST(CvelOid, RegistrySampleMatchesOpensslEncoding) {
  // Rows from every range, and from the groups matched on their content octets.
  const std::pair<int32_t, const char*> sample[] = {
      {1001, "2.5.4.3"}, {1018, "0.9.2342.19200300.100.1.25"}, {1026, "1.3.36.8.1.1"}, {1042, "1.3.36.8.3.15"},
      {1045, "1.2.840.113549.1.9.16.2.12"}, {1216, "2.16.840.1.101.3.4.2.1"}, {1477, "1.3.6.1.4.1.11591.13.2.44"},
      {2009, "2.5.29.9"}, {2037, "2.5.29.37"}, {3001, "1.3.6.1.4.1.311.20.2"}, {3006, "1.3.6.1.4.1.311.20.2.3"},
      {3008, "1.3.6.1.4.1.311.21.4"}, {3902, "1.3.6.1.5.5.7.1.2"}, {4013, "1.3.6.1.5.5.7.48.1.6"},
      {5002, "0.2.262.1.10.12.0"}, {6001, "0.4.0.1862.1.1"}, {7102, "1.2.840.113549.1.9.16.2.24"},
      {10001, "1.3.6.1.4.1.47731.1"}, {1212, "1.3.14.3.2.26"}, {1450, "1.2.840.113549.1.1.1"}};
  // openssl asn1parse -genconf builds a SEQUENCE of them.
  if (testutil::run("openssl version >/dev/null 2>&1") != 0) GTEST_SKIP() << "openssl command not available";
  const std::string base = ::testing::TempDir() + "kolvari_oid_" + std::to_string(getpid());
  std::string config = "asn1=SEQUENCE:oids\n[oids]\n";
  for (const auto& [kind, dotted] : sample) config += "o" + std::to_string(kind) + "=OID:" + dotted + "\n";
  std::ofstream(base + ".cnf") << config;
  ASSERT_EQ(testutil::run("openssl asn1parse -genconf " + base + ".cnf -noout -out " + base + ".der"), 0);
  const testutil::Bytes der = testutil::readFile(base + ".der");
  std::remove((base + ".cnf").c_str());
  std::remove((base + ".der").c_str());
  size_t at = 2 + ((der[1] & 0x80) != 0 ? der[1] & 0x7F : 0);  // behind the SEQUENCE header
  for (const auto& [kind, dotted] : sample) {
    ASSERT_LT(at + 1, der.size());
    const testutil::Bytes element(der.begin() + at, der.begin() + at + 2 + der[at + 1]);
    at += element.size();
    EXPECT_EQ(kindOf(element.data(), static_cast<uint32_t>(element.size())), kind) << dotted;
    CvelString converted;
    ASSERT_EQ(fromDotted(dotted, converted, 1), kCvelOk);
    EXPECT_EQ(testutil::toBytes(converted), element) << dotted;
  }
  EXPECT_EQ(at, der.size());
}

TEST(CvelOid, KindOfAndToDottedReadOnlyWhatIsThere) {
  EXPECT_EQ(kindOfHex("06 03 55 04 03 FF FF"), 1001);  // bytes behind the element do not matter
  EXPECT_EQ(kindOfHex("06 09 2B 06 01 04 01 82 F4 73 01"), 10001);  // 47731 = 2 * 16384 + 116 * 128 + 115
  EXPECT_EQ(kindOfHex("06 03 55 1D 13"), 2019);  // basicConstraints, an extension of one arc after 2.5.29
  // One octet short, 47603 instead of 47731, cut off, one arc more, unregistered (also under 2.5.4 and
  // 2.5.29, and 2.5.4.3 with its last arc continued), not an identifier.
  for (const char* der : {"06 0A 2B 06 01 04 01 82 F4 73 01", "06 09 2B 06 01 04 01 82 F3 73 01", "06", "06 00",
                          "06 0A 2B 06 01 04 01 82 F4 73 01 00", "06 03 2A 03 04", "06 03 55 04 7F", "06 03 55 1D 7F",
                          "06 04 55 04 83 03", "30 03 55 04 03", "06 7F 55 04 03"})
    EXPECT_EQ(kindOfHex(der), -1) << der;
  EXPECT_EQ(kindOfHex(""), 0);
  EXPECT_EQ(kindOf(testutil::hex("06 03 55 04 03").data(), 4), -1);  // the string ends before the element
  // An arc that never ends or starts with 0x80, and content claimed past the end, cannot be printed.
  std::string text;
  for (const char* der : {"06 02 2A 86", "06 03 2A 80 01", "06 05 2A 86"}) {
    const testutil::Bytes b = testutil::hex(der);
    EXPECT_FALSE(toDotted(b.data(), static_cast<uint32_t>(b.size()), text)) << der;
  }
  // The first octet holds two arcs: below 40 the first is 0, below 80 it is 1, from 80 on it is 2.
  const std::pair<const char*, const char*> firstArcs[] = {
      {"06 01 27", "0.39"}, {"06 01 28", "1.0"}, {"06 01 4F", "1.39"}, {"06 01 50", "2.0"}, {"06 02 88 37", "2.999"}};
  for (const auto& [der, dotted] : firstArcs) {
    const testutil::Bytes b = testutil::hex(der);
    ASSERT_TRUE(toDotted(b.data(), static_cast<uint32_t>(b.size()), text)) << der;
    EXPECT_EQ(text, dotted) << der;
  }
}

TEST(CvelOids, AddsEachIdentifierOnce) {
  CvelOIDs list;
  EXPECT_EQ(list.add("2.5.4.3"), kCvelOk);
  EXPECT_EQ(list.add("2.5.4.3"), 0u);  // not the success code
  EXPECT_EQ(list.add(static_cast<const char*>(nullptr)), kCvelErrBadParameter);
  EXPECT_EQ(list.add(""), kCvelErrMalformed);
  CvelString der = testutil::hexString("06 03 55 04 06");
  EXPECT_EQ(list.addDer(der), kCvelOk);
  EXPECT_EQ(list.indexOf("2.5.4.6"), 1);
  EXPECT_EQ(list.size(), 2u);
}

}  // namespace
