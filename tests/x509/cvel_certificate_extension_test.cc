#include "x509/cvel_certificate_extension.h"

#include <gtest/gtest.h>

#include "asn1/cvel_oid.h"
#include "support/test_util.h"

namespace {

using testutil::assignHex;
using testutil::toHex;

// basicConstraints without BOOLEAN, keyUsage with BOOLEAN TRUE, subjectKeyIdentifier with BOOLEAN FALSE,
// a second keyUsage with a non-zero BOOLEAN other than FF.
constexpr char kExtensions[] =
    "30 3F"
    "  30 0C 06 03 55 1D 13 04 05 30 03 01 01 FF"
    "  30 0E 06 03 55 1D 0F 01 01 FF 04 04 03 02 06 40"
    "  30 0F 06 03 55 1D 0E 01 01 00 04 05 04 03 01 02 03"
    "  30 0E 06 03 55 1D 0F 01 01 01 04 04 03 02 07 80";

constexpr char kKeyUsageOid[] = "06 03 55 1D 0F";

CvelCertificateExtension* record(const CvelCertificateExtensions& list, uint32_t index) {
  CvelCertificateExtension* e = nullptr;
  EXPECT_EQ(list.get(index, e), kCvelOk);
  return e;
}

TEST(CvelCertificateExtensions, RecordsKeepOidCriticalAndValueElements) {
  CvelString der;
  assignHex(der, kExtensions);
  CvelCertificateExtensions list;
  ASSERT_EQ(list.decode(der), kCvelOk);
  ASSERT_EQ(list.size(), 4u);
  EXPECT_EQ(record(list, 0)->id(), kOidBasicConstraints);
  EXPECT_EQ(toHex(record(list, 0)->oid()), "0603551D13");
  EXPECT_FALSE(record(list, 0)->critical());
  EXPECT_EQ(toHex(record(list, 0)->value()), "040530030101FF");
  EXPECT_EQ(record(list, 1)->id(), kOidKeyUsage);
  EXPECT_TRUE(record(list, 1)->critical());
  EXPECT_EQ(toHex(record(list, 1)->value()), "040403020640");
  EXPECT_EQ(record(list, 2)->id(), kOidSubjectKeyIdentifier);
  EXPECT_FALSE(record(list, 2)->critical());
  EXPECT_TRUE(record(list, 3)->critical());
}

TEST(CvelCertificateExtensions, EmptyOrMissingList) {
  CvelString der;
  assignHex(der, "30 00");
  CvelCertificateExtensions list;
  EXPECT_EQ(list.decode(der), kCvelOk);
  EXPECT_EQ(list.size(), 0u);

  const char* notExtensions[] = {"31 00", "", "30 05 30 03 06 01"};
  for (const char* hex : notExtensions) {
    assignHex(der, hex);
    EXPECT_EQ(list.decode(der), 0u) << hex;
    EXPECT_EQ(list.size(), 0u) << hex;
  }
  // Children that are not SEQUENCEs: no records, and still success.
  assignHex(der, "30 03 02 01 05");
  EXPECT_EQ(list.decode(der), kCvelOk);
  EXPECT_EQ(list.size(), 0u);
}

TEST(CvelCertificateExtensions, AChildThatIsNotASequenceEndsTheList) {
  CvelString der;
  assignHex(der, "30 15 30 08 06 03 55 1D 13 04 01 00 02 01 05 30 06 06 01 2A 04 01 00");
  CvelCertificateExtensions list;
  EXPECT_EQ(list.decode(der), kCvelOk);
  EXPECT_EQ(list.size(), 1u);
}

TEST(CvelCertificateExtensions, RecordsNeedNeitherOidNorValue) {
  CvelString der;
  // An OID alone; a BOOLEAN first (taken as the missing OID's place, so the value follows it); nothing.
  assignHex(der, "30 12 30 05 06 03 55 1D 13 30 07 01 01 FF 04 02 05 00 30 00");
  CvelCertificateExtensions list;
  ASSERT_EQ(list.decode(der), kCvelOk);
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(record(list, 0)->id(), kOidBasicConstraints);
  EXPECT_TRUE(record(list, 0)->value().isEmpty());
  EXPECT_EQ(record(list, 1)->id(), 0);
  EXPECT_TRUE(record(list, 1)->oid().isEmpty());
  EXPECT_FALSE(record(list, 1)->critical());
  EXPECT_EQ(toHex(record(list, 1)->value()), "04020500");
  EXPECT_TRUE(record(list, 2)->oid().isEmpty());
  EXPECT_TRUE(record(list, 2)->value().isEmpty());
}

TEST(CvelCertificateExtensions, AttributesAsRecordsFromARunOfElements) {
  CvelString der;
  // Two Attribute SEQUENCEs side by side (no enclosing SEQUENCE): role and group.
  assignHex(der, "30 0B 06 03 55 04 48 31 04 0C 02 72 31  30 0F 06 08 2B 06 01 05 05 07 0A 04 31 03 0C 01 67");
  CvelCertificateExtensions list;
  CvelA1Context run;
  ASSERT_EQ(list.decodeRecords(der, run), kCvelOk);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(toHex(record(list, 0)->oid()), "0603550448");
  EXPECT_FALSE(record(list, 0)->critical());
  EXPECT_EQ(toHex(record(list, 0)->value()), "31040C027231");
  EXPECT_EQ(toHex(record(list, 1)->value()), "31030C0167");
  EXPECT_EQ(record(list, 1)->id(), kOidUnknown);
}

TEST(CvelCertificateExtensions, LookupsByIdAndByOid) {
  CvelString der, keyUsage, absent;
  assignHex(der, kExtensions);
  assignHex(keyUsage, kKeyUsageOid);
  assignHex(absent, "06 03 55 1D 11");
  CvelCertificateExtensions list;
  ASSERT_EQ(list.decode(der), kCvelOk);

  CvelCertificateExtension* found = nullptr;
  // countById answers with the number of matches, not a result code.
  EXPECT_EQ(list.countById(kOidKeyUsage, &found, 1), 2u);
  EXPECT_EQ(found, record(list, 3));
  EXPECT_EQ(list.countById(kOidKeyUsage, nullptr, 0), 2u);
  EXPECT_EQ(list.countById(kOidCertificatePolicies, &found, 0), 0u);
  EXPECT_EQ(found, nullptr);

  EXPECT_EQ(list.findByOid(keyUsage, 1, &found), kCvelOk);
  EXPECT_EQ(found, record(list, 3));
  EXPECT_EQ(list.findByOid(keyUsage, 0, &found), kCvelOk);
  EXPECT_EQ(found, record(list, 1));
  EXPECT_EQ(list.findByOid(keyUsage, 2, &found), kCvelErrIncomplete);
  EXPECT_EQ(list.findByOid(absent, 0, &found), kCvelErrIncomplete);
  EXPECT_EQ(list.findByOid(keyUsage, 0, nullptr), kCvelErrBadParameter);

  uint32_t count = 0;
  EXPECT_EQ(list.countByOid(keyUsage, &count), kCvelOk);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(list.countByOid(absent, &count), kCvelOk);
  EXPECT_EQ(count, 0u);

  CvelCertificateExtensions empty;
  EXPECT_EQ(empty.findByOid(keyUsage, 0, &found), kCvelErrIncomplete);
}

TEST(CvelCertificateExtensions, EmptySlotsAreReported) {
  CvelString der, keyUsage;
  assignHex(der, kExtensions);
  assignHex(keyUsage, kKeyUsageOid);
  CvelCertificateExtensions list;
  ASSERT_EQ(list.decode(der), kCvelOk);
  list.add(nullptr);
  CvelCertificateExtension* found = nullptr;
  uint32_t count = 0;
  EXPECT_EQ(list.countById(kOidKeyUsage, &found, 0), kCvelErrMalformed);
  EXPECT_EQ(list.findByOid(keyUsage, 2, &found), kCvelErrNullData);
  EXPECT_EQ(list.findByOid(keyUsage, 0, &found), kCvelOk);
  EXPECT_EQ(list.countByOid(keyUsage, &count), kCvelErrNullData);
  EXPECT_EQ(count, 2u);
}

TEST(CvelCertificateExtensions, DecodeEmptiesTheListFirst) {
  CvelString der;
  assignHex(der, kExtensions);
  CvelCertificateExtensions list;
  ASSERT_EQ(list.decode(der), kCvelOk);
  ASSERT_EQ(list.decode(der), kCvelOk);
  EXPECT_EQ(list.size(), 4u);
}

}  // namespace
