#include "x509/cvel_certificate_qc_statement.h"

#include <gtest/gtest.h>

#include "asn1/cvel_oid.h"
#include "support/test_util.h"

namespace {

using testutil::assignHex;
using testutil::toHex;

CvelCertificateQcStatement* statement(const CvelCertificateQcStatements& list, uint32_t index) {
  CvelCertificateQcStatement* s = nullptr;
  EXPECT_EQ(list.get(index, s), kCvelOk);
  return s;
}

TEST(CvelCertificateQcStatements, ThreeStatementsOfTheGeneratedCertificate) {
  // The QC statements value of tests/data/x509/ee-qc.der (see qc-statements-value.cnf there).
  CvelString value;
  assignHex(value,
            "04 38 30363008060604008e4601013013060604008e4601063009060704008e46010601301506082b06010505070b0230"
            "09060704008bec490101");
  CvelCertificateQcStatements list;
  list.decode(value);
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(statement(list, 0)->statementIdNumber(), kOidQcCompliance);
  EXPECT_EQ(toHex(statement(list, 0)->statementId()), "060604008E460101");
  EXPECT_TRUE(statement(list, 0)->statementInfo().isEmpty());
  EXPECT_EQ(statement(list, 1)->statementIdNumber(), kOidUnknown);
  EXPECT_EQ(toHex(statement(list, 1)->statementInfo()), "3009060704008E46010601");
  EXPECT_EQ(toHex(statement(list, 2)->statementId()), "06082B06010505070B02");
  EXPECT_EQ(toHex(statement(list, 2)->statementInfo()), "3009060704008BEC490101");

  CvelCertificateQcStatement* found = nullptr;
  EXPECT_EQ(list.countById(kOidQcCompliance, &found, 0), 1u);
  EXPECT_EQ(found, statement(list, 0));
  EXPECT_EQ(list.countById(kOidUnknown, nullptr, 0), 2u);
  EXPECT_EQ(list.countById(kOidUnknown, &found, 1), 2u);
  EXPECT_EQ(found, statement(list, 2));
  EXPECT_EQ(list.countById(kOidQcCompliance, &found, 1), 1u);
  EXPECT_EQ(found, nullptr);
}

TEST(CvelCertificateQcStatements, Rfc3739Statement) {
  // The QC statements value of tests/data/asn1crypto/rfc3739.crt: pkixQCSyntax-v1 with a name registration.
  CvelString value;
  assignHex(value,
            "042D302B302906082B06010505070B02301D301B81196D756E69636970616C697479406461726D73746164742E6465");
  CvelCertificateQcStatements list;
  list.decode(value);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(toHex(statement(list, 0)->statementInfo()).substr(0, 8), "301D301B");
  EXPECT_EQ(statement(list, 0)->statementInfo().length(), 0x1Fu);
}

TEST(CvelCertificateQcStatements, StatementsThatDoNotDecodeStay) {
  CvelString value;
  // A statement without its OID, then a good one, then an INTEGER that ends the list.
  assignHex(value, "04 11 30 0F 30 03 02 01 01 30 05 06 03 2A 03 04 02 01 00");
  CvelCertificateQcStatements list;
  list.decode(value);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_TRUE(statement(list, 0)->statementId().isEmpty());
  EXPECT_EQ(statement(list, 0)->statementIdNumber(), 0);
  EXPECT_EQ(toHex(statement(list, 1)->statementId()), "06032A0304");
}

TEST(CvelCertificateQcStatements, InformationThatOverrunsIsTakenAsFarAsTheStatementGoes) {
  CvelString value;
  // The element after the OID claims 16 bytes; the statement holds two more.
  assignHex(value, "04 0B 30 09 30 07 06 01 2A 30 10 05 00");
  CvelCertificateQcStatements list;
  list.decode(value);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(toHex(statement(list, 0)->statementInfo()), "30100500");
}

TEST(CvelCertificateQcStatements, ValuesWithoutStatements) {
  const char* cases[] = {"", "04 00", "04 02 31 00", "04 04 30 02 02 00", "04 02 30 00", "04 07 30 05 30 10 06 01 2A"};
  for (const char* hex : cases) {
    CvelString value;
    assignHex(value, hex);
    CvelCertificateQcStatements list;
    list.decode(value);
    EXPECT_EQ(list.size(), 0u) << hex;
  }
}

TEST(CvelCertificateQcStatements, CountSkipsEmptySlots) {
  CvelString value;
  assignHex(value, "04 0A 30 08 30 06 06 04 04 00 8E 46");
  CvelCertificateQcStatements list;
  list.decode(value);
  list.add(nullptr);
  EXPECT_EQ(list.size(), 2u);
  EXPECT_EQ(list.countById(kOidUnknown, nullptr, 0), 1u);
}

}  // namespace
