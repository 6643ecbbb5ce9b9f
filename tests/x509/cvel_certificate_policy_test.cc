#include "x509/cvel_certificate_policy.h"

#include <gtest/gtest.h>

#include "asn1/cvel_oid.h"
#include "support/test_util.h"

namespace {

using testutil::assignHex;
using testutil::toHex;

// 1.3.36.8.1.1, the registry's kind 1026.
constexpr int32_t kPolicyKind = 1026;

CvelCertificatePolicy* policy(const CvelCertificatePolicies& list, uint32_t index) {
  CvelCertificatePolicy* p = nullptr;
  EXPECT_EQ(list.get(index, p), kCvelOk);
  return p;
}

TEST(CvelCertificatePolicies, OpensslPolicyWithCpsQualifier) {
  // The certificatePolicies value of tests/data/x509/ee-qc.der, as openssl asn1parse shows it.
  CvelString value;
  assignHex(value,
            "0433 3031302F06052B240801013026302406082B06010505070201161868747470733A2F2F6370732E6578616D706C652E6F"
            "72672F");
  CvelCertificatePolicies list;
  list.decode(value);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(policy(list, 0)->policyId(), kPolicyKind);
  EXPECT_EQ(toHex(policy(list, 0)->policyIdentifier()), "06052B24080101");
  EXPECT_EQ(toHex(policy(list, 0)->qualifiers()).substr(0, 8), "30263024");
  EXPECT_EQ(policy(list, 0)->qualifiers().length(), 0x28u);
  EXPECT_EQ(policy(list, 0)->encoded().length(), 0x2Fu);
}

TEST(CvelCertificatePolicies, PolicyWithoutQualifiers) {
  // The certificatePolicies value of tests/data/asn1crypto/rfc3739.crt.
  CvelString value;
  assignHex(value, "04 0B 30 09 30 07 06 05 2B 24 08 01 01");
  CvelCertificatePolicies list;
  list.decode(value);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(policy(list, 0)->policyId(), kPolicyKind);
  EXPECT_TRUE(policy(list, 0)->qualifiers().isEmpty());
}

TEST(CvelCertificatePolicies, DecodeListResults) {
  CvelString der;
  CvelCertificatePolicies list;
  {
    // Two policies, the second with an unknown OID and something other than a SEQUENCE after it.
    assignHex(der, "30 0E 30 05 06 03 2A 03 04 30 05 06 01 2A 05 00");
    CvelA1Context c;
    ASSERT_EQ(c.next(der), 0x30);
    EXPECT_EQ(list.decodeList(der, c), kCvelOk);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(policy(list, 0)->policyId(), kOidUnknown);
    EXPECT_TRUE(policy(list, 1)->qualifiers().isEmpty());
  }
  {
    // A PolicyInformation without its OID ends the list with a failure; the earlier one stays.
    assignHex(der, "30 0C 30 05 06 03 2A 03 04 30 03 02 01 01");
    CvelA1Context c;
    ASSERT_EQ(c.next(der), 0x30);
    EXPECT_EQ(list.decodeList(der, c), kCvelErrMalformed);
    EXPECT_EQ(list.size(), 1u);
  }
  {
    assignHex(der, "30 03 02 01 01");
    CvelA1Context c;
    ASSERT_EQ(c.next(der), 0x30);
    EXPECT_EQ(list.decodeList(der, c), 0u);
    EXPECT_EQ(list.size(), 0u);
  }
}

TEST(CvelCertificatePolicies, ValueThatIsNotAPolicyList) {
  const char* cases[] = {"04 03 02 01 01", "04 00", "", "04 05 30 03 06 01"};
  for (const char* hex : cases) {
    CvelString value;
    assignHex(value, hex);
    CvelCertificatePolicies list;
    list.decode(value);
    EXPECT_EQ(list.size(), 0u) << hex;
  }
}

TEST(CvelCertificatePolicy, SplitFindsIdentifierAndQualifiers) {
  CvelString der;
  assignHex(der, "30 0B 06 03 2A 03 04 30 04 30 02 06 00");
  CvelA1Context c;
  ASSERT_EQ(c.next(der), 0x30);
  CvelCertificatePolicy p;
  EXPECT_EQ(p.decode(der, c), kCvelOk);
  EXPECT_EQ(toHex(p.encoded()), "06032A0304300430020600");
  EXPECT_EQ(toHex(p.policyIdentifier()), "06032A0304");
  EXPECT_EQ(toHex(p.qualifiers()), "300430020600");

  // A qualifier that is not a SEQUENCE is not taken.
  assignHex(der, "30 07 06 03 2A 03 04 05 00");
  CvelA1Context other;
  ASSERT_EQ(other.next(der), 0x30);
  EXPECT_EQ(p.decode(der, other), kCvelOk);
  EXPECT_TRUE(p.qualifiers().isEmpty());

  assignHex(der, "30 02 05 00");
  CvelA1Context noOid;
  ASSERT_EQ(noOid.next(der), 0x30);
  EXPECT_EQ(p.decode(der, noOid), 0u);
  EXPECT_TRUE(p.policyIdentifier().isEmpty());
}

}  // namespace
