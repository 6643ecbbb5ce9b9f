#include "asn1/cvel_oid.h"

#include <gtest/gtest.h>

#include <algorithm>

#include <cstdlib>
#include <string>
#include <vector>

#include "asn1/openssl_der.h"
#include "support/test_util.h"

namespace {

using testutil::Bytes;
using testutil::toHex;

struct Row {
  int32_t kind;
  const char* dotted;
};

// The registry as the library's users know it: kind and dotted identifier.
const Row kRows[] = {
    {1001, "2.5.4.3"},
    {1002, "2.5.4.4"},
    {1003, "2.5.4.42"},
    {1004, "2.5.4.5"},
    {1005, "2.5.4.12"},
    {1006, "2.5.4.10"},
    {1007, "2.5.4.11"},
    {1008, "2.5.4.15"},
    {1009, "2.5.4.9"},
    {1010, "2.5.4.17"},
    {1011, "2.5.4.7"},
    {1012, "2.5.4.8"},
    {1013, "2.5.4.6"},
    {1014, "2.5.4.46"},
    {1015, "2.5.4.43"},
    {1016, "2.5.4.44"},
    {1017, "1.2.840.113549.1.9.1"},
    {1018, "0.9.2342.19200300.100.1.25"},
    {1019, "2.5.4.16"},
    {1020, "2.5.4.65"},
    {1021, "1.3.6.1.5.5.7.9.1"},
    {1022, "1.3.6.1.5.5.7.9.2"},
    {1023, "1.3.6.1.5.5.7.9.3"},
    {1025, "1.3.6.1.5.5.7.9.5"},
    {1026, "1.3.36.8.1.1"},
    {1027, "1.3.36.8.3.1"},
    {1028, "1.3.36.8.3.2"},
    {1029, "1.3.36.8.3.3"},
    {1030, "1.3.36.8.3.4"},
    {1031, "1.3.36.8.3.5"},
    {1032, "1.3.36.8.3.6"},
    {1033, "1.3.36.8.3.7"},
    {1034, "1.3.36.8.3.8"},
    {1035, "1.3.36.8.3.9"},
    {1036, "1.3.36.8.3.10"},
    {1037, "1.3.36.8.3.11"},
    {1038, "1.3.36.8.3.12"},
    {1039, "1.3.36.8.3.13"},
    {1040, "1.3.36.8.3.14"},
    {1041, "2.5.4.58"},
    {1042, "1.3.36.8.3.15"},
    {1043, "2.5.4.36"},
    {1044, "2.5.4.37"},
    {1045, "1.2.840.113549.1.9.16.2.12"},
    {1201, "1.3.36.3.3.1.2"},
    {1202, "1.2.840.113549.1.1.5"},
    {1203, "1.2.840.113549.1.1.2"},
    {1204, "1.2.840.113549.1.1.3"},
    {1205, "1.2.840.113549.1.1.4"},
    {1209, "1.2.840.113549.1.1.11"},
    {1210, "1.2.840.113549.1.1.12"},
    {1211, "1.3.36.3.2.1"},
    {1212, "1.3.14.3.2.26"},
    {1213, "1.2.840.113549.2.2"},
    {1215, "1.2.840.113549.2.5"},
    {1216, "2.16.840.1.101.3.4.2.1"},
    {1217, "2.16.840.1.101.3.4.2.2"},
    {1218, "2.16.840.1.101.3.4.2.3"},
    {1229, "1.2.840.113549.1.1.13"},
    {1232, "1.2.840.10045.4.1"},
    {1233, "1.2.840.10045.2.1"},
    {1246, "2.16.840.1.101.3.4.2.4"},
    {1450, "1.2.840.113549.1.1.1"},
    {1451, "1.2.840.113549.3.2"},
    {1452, "1.2.840.113549.3.7"},
    {1453, "1.3.36.3.1.11"},
    {1454, "2.16.840.1.101.3.4.1.1"},
    {1455, "2.16.840.1.101.3.4.1.2"},
    {1456, "2.16.840.1.101.3.4.1.3"},
    {1457, "2.16.840.1.101.3.4.1.4"},
    {1458, "2.16.840.1.101.3.4.1.21"},
    {1459, "2.16.840.1.101.3.4.1.22"},
    {1460, "2.16.840.1.101.3.4.1.23"},
    {1461, "2.16.840.1.101.3.4.1.24"},
    {1462, "2.16.840.1.101.3.4.1.41"},
    {1463, "2.16.840.1.101.3.4.1.42"},
    {1464, "2.16.840.1.101.3.4.1.43"},
    {1465, "2.16.840.1.101.3.4.1.44"},
    {1466, "1.3.6.1.4.1.11591.13.2.1"},
    {1467, "1.3.6.1.4.1.11591.13.2.2"},
    {1468, "1.3.6.1.4.1.11591.13.2.3"},
    {1469, "1.3.6.1.4.1.11591.13.2.4"},
    {1470, "1.3.6.1.4.1.11591.13.2.21"},
    {1471, "1.3.6.1.4.1.11591.13.2.22"},
    {1472, "1.3.6.1.4.1.11591.13.2.23"},
    {1473, "1.3.6.1.4.1.11591.13.2.24"},
    {1474, "1.3.6.1.4.1.11591.13.2.41"},
    {1475, "1.3.6.1.4.1.11591.13.2.42"},
    {1476, "1.3.6.1.4.1.11591.13.2.43"},
    {1477, "1.3.6.1.4.1.11591.13.2.44"},
    {2009, "2.5.29.9"},
    {2014, "2.5.29.14"},
    {2015, "2.5.29.15"},
    {2016, "2.5.29.16"},
    {2017, "2.5.29.17"},
    {2018, "2.5.29.18"},
    {2019, "2.5.29.19"},
    {2020, "2.5.29.20"},
    {2021, "2.5.29.21"},
    {2023, "2.5.29.23"},
    {2027, "2.5.29.27"},
    {2028, "2.5.29.28"},
    {2029, "2.5.29.29"},
    {2030, "2.5.29.30"},
    {2031, "2.5.29.31"},
    {2032, "2.5.29.32"},
    {2033, "2.5.29.33"},
    {2035, "2.5.29.35"},
    {2036, "2.5.29.36"},
    {2037, "2.5.29.37"},
    {3001, "1.3.6.1.4.1.311.20.2"},
    {3002, "1.3.6.1.4.1.311.10.3.4"},
    {3003, "1.3.6.1.4.1.311.10.3.4.1"},
    {3004, "1.3.6.1.4.1.311.20.2.1"},
    {3005, "1.3.6.1.4.1.311.20.2.2"},
    {3006, "1.3.6.1.4.1.311.20.2.3"},
    {3008, "1.3.6.1.4.1.311.21.4"},
    {3009, "1.3.6.1.4.1.311.10.3.1"},
    {3010, "1.3.6.1.4.1.311.10.3.2"},
    {3011, "1.3.6.1.4.1.311.10.3.9"},
    {3012, "1.3.6.1.4.1.311.10.3.12"},
    {3902, "1.3.6.1.5.5.7.1.2"},
    {3903, "1.3.6.1.5.5.7.1.3"},
    {4001, "1.3.6.1.5.5.7.3.1"},
    {4002, "1.3.6.1.5.5.7.3.2"},
    {4003, "1.3.6.1.5.5.7.3.3"},
    {4004, "1.3.6.1.5.5.7.3.4"},
    {4008, "1.3.6.1.5.5.7.3.8"},
    {4009, "1.3.6.1.5.5.7.3.9"},
    {4010, "1.3.6.1.5.5.7.1.1"},
    {4011, "1.3.6.1.5.5.7.48.1"},
    {4012, "1.3.6.1.5.5.7.48.1.1"},
    {4013, "1.3.6.1.5.5.7.48.1.6"},
    {4014, "1.3.6.1.4.1.5472.1.3"},
    {4015, "1.3.6.1.4.1.5472.1.2"},
    {5001, "0.2.262.1.10.7.20"},
    {5002, "0.2.262.1.10.12.0"},
    {5003, "0.2.262.1.10.3.0"},
    {6001, "0.4.0.1862.1.1"},
    {6002, "0.4.0.1862.1.2"},
    {7001, "1.2.840.113549.1.9.16.2.14"},
    {7002, "1.2.840.113549.1.9.3"},
    {7003, "1.2.840.113549.1.7.1"},
    {7004, "1.2.840.113549.1.7.2"},
    {7005, "1.2.840.113549.1.7.3"},
    {7100, "1.2.840.113549.1.9.5"},
    {7101, "1.2.840.113549.1.9.4"},
    {7102, "1.2.840.113549.1.9.16.2.24"},
    {10001, "1.3.6.1.4.1.47731.1"},
};

// Standard DER of a dotted identifier, written here independently of the library: every arc in base 128,
// most significant group first, continuation bit on all octets but the last.
Bytes standardDer(const std::string& dotted) {
  std::vector<uint64_t> arcs;
  size_t at = 0;
  while (at <= dotted.size()) {
    size_t dot = dotted.find('.', at);
    if (dot == std::string::npos) dot = dotted.size();
    arcs.push_back(std::strtoull(dotted.substr(at, dot - at).c_str(), nullptr, 10));
    at = dot + 1;
  }
  Bytes content;
  for (size_t i = 1; i < arcs.size(); ++i) {
    uint64_t v = i == 1 ? arcs[0] * 40 + arcs[1] : arcs[i];
    Bytes groups;
    do {
      groups.insert(groups.begin(), static_cast<unsigned char>((v & 0x7F) | (groups.empty() ? 0 : 0x80)));
      v >>= 7;
    } while (v != 0);
    content.insert(content.end(), groups.begin(), groups.end());
  }
  Bytes der(2 + content.size());
  der[0] = 0x06;
  der[1] = static_cast<unsigned char>(content.size());
  std::copy(content.begin(), content.end(), der.begin() + 2);
  return der;
}

std::string converted(const char* text, int withTag) {
  CvelString out;
  EXPECT_EQ(fromDotted(text, out, withTag), kCvelOk) << text;
  return toHex(out);
}

int32_t kindOfBytes(const Bytes& der) { return kindOf(der.data(), static_cast<uint32_t>(der.size())); }

TEST(CvelOid, DottedTextToDer) {
  EXPECT_EQ(converted("1.2.840.113549", 0), "2A864886F70D");
  EXPECT_EQ(converted("1.2.840.113549", 1), "06062A864886F70D");
  EXPECT_EQ(converted("2.5.4.3", 0), "550403");
  EXPECT_EQ(converted("2.5.4.3", 1), "0603550403");
  // Any withTag other than 1 gives the content only.
  EXPECT_EQ(converted("2.5.4.3", 2), "550403");
  EXPECT_EQ(converted("2.5.4.3", -1), "550403");
  EXPECT_EQ(converted("2.999", 0), "8837");           // 80 + 999 = 1079 = 8 * 128 + 55
  EXPECT_EQ(converted("1.2.840.10045.4.3.2", 0), "2A8648CE3D040302");
  EXPECT_EQ(converted("1.2.0", 0), "2A00");           // an arc of 0 is one zero octet
  EXPECT_EQ(converted("0.0", 0), "00");
  EXPECT_EQ(converted("1.2.129", 0), "2A8101");
}

TEST(CvelOid, ZeroGroupsInsideAnArcAreDropped) {
  // Only groups of value zero vanish; the continuation bit stays on every octet written above bit 0.
  EXPECT_EQ(converted("1.2.128", 0), "2A81");          // 1,0 -> 81
  EXPECT_EQ(converted("1.2.16384", 0), "2A81");        // 1,0,0 -> 81
  EXPECT_EQ(converted("1.2.16385", 0), "2A8101");      // 1,0,1 -> 81 01
  EXPECT_EQ(converted("1.2.16512", 0), "2A8181");      // 1,1,0 -> 81 81
  EXPECT_EQ(converted("1.2.268435456", 0), "2A81");    // 2 to the 28th: 1,0,0,0,0
  EXPECT_EQ(converted("1.2.128.1", 1), "06032A8101");
  // A first arc of 2 with a second of 48 gives 128.
  EXPECT_EQ(converted("2.48", 0), "81");
}

TEST(CvelOid, ArcsAreReadAsThirtyTwoBitNumbers) {
  // Beyond the 32-bit range a number saturates at 2147483647 = groups 7,7F,7F,7F,7F.
  EXPECT_EQ(converted("1.2.99999999999", 0), "2A87FFFFFF7F");
  EXPECT_EQ(converted("1.2.2147483647", 0), "2A87FFFFFF7F");
  // Negative numbers are taken as their 32-bit pattern.
  EXPECT_EQ(converted("1.2.-1", 0), "2A8FFFFFFF7F");
  // Text that is not a number reads as 0; leading white space and a sign are accepted.
  EXPECT_EQ(converted("1.2.abc", 0), "2A00");
  EXPECT_EQ(converted("1.2. +5x", 0), "2A05");
  EXPECT_EQ(converted("1..3", 0), "2803");
}

TEST(CvelOid, NoOctetsLeaveTheOutputAlone) {
  CvelString out;
  ASSERT_EQ(out.assign("keep"), kCvelOk);
  EXPECT_EQ(fromDotted("", out, 1), 0u);
  EXPECT_EQ(fromDotted("1", out, 0), 0u);
  EXPECT_EQ(fromDotted(nullptr, out, 0), 0u);
  EXPECT_EQ(std::string(out.c_str()), "keep");
  // A conversion that ended after the first arc does not leak into the next one.
  EXPECT_EQ(converted("2.5", 0), "55");
  EXPECT_EQ(converted("1.3", 0), "2B");
}

TEST(CvelOid, EveryRegistryRowHasItsKind) {
  ASSERT_EQ(sizeof(kRows) / sizeof(kRows[0]), kOidRegistrySize);
  for (const Row& row : kRows) {
    Bytes der = standardDer(row.dotted);
    EXPECT_EQ(kindOfBytes(der), row.kind) << row.dotted;
    // None of the registered identifiers has a zero group inside an arc, so the converter gives standard DER.
    EXPECT_EQ(converted(row.dotted, 1), toHex(der)) << row.dotted;
    std::string back;
    EXPECT_TRUE(toDotted(der.data(), static_cast<uint32_t>(der.size()), back)) << row.dotted;
    EXPECT_EQ(back, row.dotted);
    EXPECT_STREQ(dottedOfKind(row.kind), row.dotted);
  }
  EXPECT_EQ(dottedOfKind(1024), nullptr);
}

TEST(CvelOid, RegistryDerDerivedByHand) {
  EXPECT_EQ(kindOfBytes(testutil::hex("06 03 55 04 03")), 1001);
  EXPECT_EQ(kindOfBytes(testutil::hex("06 09 2A 86 48 86 F7 0D 01 01 0B")), 1209);
  EXPECT_EQ(kindOfBytes(testutil::hex("06 09 60 86 48 01 65 03 04 02 01")), 1216);
  EXPECT_EQ(kindOfBytes(testutil::hex("06 0A 09 92 26 89 93 F2 2C 64 01 19")), 1018);
  EXPECT_EQ(kindOfBytes(testutil::hex("06 05 2B 0E 03 02 1A")), 1212);
  EXPECT_EQ(kindOfBytes(testutil::hex("06 06 04 00 8E 46 01 01")), 6001);
  // 47731 = 2 * 16384 + 116 * 128 + 115: 82 F4 73.
  EXPECT_EQ(kindOfBytes(testutil::hex("06 09 2B 06 01 04 01 82 F4 73 01")), 10001);
  EXPECT_EQ(kindOfBytes(testutil::hex("06 0A 2B 06 01 04 01 82 F4 73 01")), -1);     // one octet short
  EXPECT_EQ(kindOfBytes(testutil::hex("06 09 2B 06 01 04 01 82 F3 73 01")), -1);     // 47603
  EXPECT_EQ(kindOfBytes(testutil::hex("06 0A 2B 06 01 04 01 82 F4 73 01 00")), -1);  // one arc more
}

TEST(CvelOid, RegistryMatchesOpensslEncodings) {
  if (!openssl_der::available()) GTEST_SKIP() << "openssl command not available";
  std::string config = "asn1=SEQUENCE:oids\n[oids]\n";
  int n = 0;
  for (const Row& row : kRows) config += "o" + std::to_string(n++) + "=OID:" + row.dotted + "\n";
  Bytes der = openssl_der::genconf(config);
  ASSERT_GT(der.size(), 4u);
  ASSERT_EQ(der[0], 0x30);
  ASSERT_EQ(der[1], 0x82);  // the SEQUENCE content is between 256 and 65535 bytes
  size_t at = 4;
  for (const Row& row : kRows) {
    ASSERT_LT(at + 2, der.size());
    ASSERT_EQ(der[at], 0x06);
    Bytes element(der.begin() + static_cast<long>(at), der.begin() + static_cast<long>(at + 2 + der[at + 1]));
    EXPECT_EQ(element, standardDer(row.dotted)) << row.dotted;
    EXPECT_EQ(kindOfBytes(element), row.kind) << row.dotted;
    at += element.size();
  }
  EXPECT_EQ(at, der.size());
}

TEST(CvelOid, KindOfRejectsWhatIsNotAnIdentifier) {
  EXPECT_EQ(kindOfBytes(testutil::hex("30 03 55 04 03")), -1);
  EXPECT_EQ(kindOfBytes(Bytes{}), 0);
  EXPECT_EQ(kindOf(nullptr, 5), 0);
  CvelString empty;
  EXPECT_EQ(kindOf(empty), 0);
  EXPECT_EQ(kindOfBytes(testutil::hex("06")), -1);
  EXPECT_EQ(kindOfBytes(testutil::hex("06 03 55 04")), -1);     // content cut off
  EXPECT_EQ(kindOfBytes(testutil::hex("06 7F 55 04 03")), -1);  // length far past the string
  EXPECT_EQ(kindOfBytes(testutil::hex("06 03 2A 03 04")), -1);  // 1.2.3.4 is not registered
  EXPECT_EQ(kindOfBytes(testutil::hex("06 00")), -1);
  // Bytes behind the element do not matter.
  EXPECT_EQ(kindOfBytes(testutil::hex("06 03 55 04 03 FF FF")), 1001);
}

TEST(CvelOid, ToDottedRefusesMalformedContent) {
  std::string text;
  Bytes b = testutil::hex("06 02 2A 86");  // the last arc never ends
  EXPECT_FALSE(toDotted(b.data(), static_cast<uint32_t>(b.size()), text));
  b = testutil::hex("06 03 2A 80 01");  // an arc may not start with 0x80
  EXPECT_FALSE(toDotted(b.data(), static_cast<uint32_t>(b.size()), text));
  b = testutil::hex("06 05 2A 86");  // content claimed past the end
  EXPECT_FALSE(toDotted(b.data(), static_cast<uint32_t>(b.size()), text));
  b = testutil::hex("2A 86 48 86 F7 0D");  // bare content octets
  ASSERT_TRUE(toDotted(b.data(), static_cast<uint32_t>(b.size()), text));
  EXPECT_EQ(text, "1.2.840.113549");
  b = testutil::hex("88 37 03");
  ASSERT_TRUE(toDotted(b.data(), static_cast<uint32_t>(b.size()), text));
  EXPECT_EQ(text, "2.999.3");
}

TEST(CvelOids, AddsEachIdentifierOnce) {
  CvelOIDs list;
  EXPECT_EQ(list.add("1.2.840.113549.1.7.2"), kCvelOk);
  EXPECT_EQ(list.add("1.2.840.113549.1.7.2"), 0u);
  EXPECT_EQ(list.size(), 1u);
  EXPECT_EQ(list.add("2.5.4.3"), kCvelOk);
  EXPECT_EQ(list.indexOf("2.5.4.3"), 1);
  EXPECT_EQ(list.indexOf("2.5.4.4"), -1);
  EXPECT_EQ(list.indexOf(nullptr), -1);
  EXPECT_EQ(list.indexOf(""), -1);
  EXPECT_EQ(list.add(static_cast<const char*>(nullptr)), kCvelErrBadParameter);
  EXPECT_EQ(list.add(""), kCvelErrMalformed);
  CvelString der;
  testutil::assignHex(der, "06 03 55 04 03");
  EXPECT_EQ(list.addDer(der), 0u);
  testutil::assignHex(der, "06 03 55 04 06");
  EXPECT_EQ(list.addDer(der), kCvelOk);
  EXPECT_EQ(list.size(), 3u);
  CvelOID* oid = nullptr;
  ASSERT_EQ(list.get(2, oid), kCvelOk);
  EXPECT_EQ(kindOf(*oid), 1013);
  EXPECT_EQ(toHex(*oid), "0603550406");
}

}  // namespace
