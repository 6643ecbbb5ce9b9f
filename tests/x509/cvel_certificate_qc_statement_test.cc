#include "x509/cvel_certificate_qc_statement.h"

#include <gtest/gtest.h>

#include "support/test_util.h"

namespace {

using namespace testutil;

TEST(CvelCertificateQcStatements, DecodeKeepsEveryStatement) {
  const struct { const char* value; const char* statements; } cases[] = {  // registry id/OID/info each
      // The QC statements of tests/data/x509/ee-qc.der (qc-statements-value.cnf there): QcCompliance, QcType, v2.
      {"04 38 30363008060604008e4601013013060604008e4601063009060704008e46010601301506082b06010505070b0230"
       "09060704008bec490101",
       "6001/060604008E460101/ -1/060604008E460106/3009060704008E46010601 "
       "-1/06082B06010505070B02/3009060704008BEC490101"},
      // A statement without its OID stays, empty; an INTEGER ends the list.
      {"04 11 30 0F 30 03 02 01 01 30 05 06 03 2A 03 04 02 01 00", "0// -1/06032A0304/"},
      // Information claiming 16 bytes where the statement holds two is taken as far as the statement goes.
      {"04 0B 30 09 30 07 06 01 2A 30 10 05 00", "-1/06012A/30100500"},
      {"", ""}, {"04 00", ""}, {"04 02 31 00", ""}, {"04 04 30 02 02 00", ""}, {"04 02 30 00", ""},
      {"04 07 30 05 30 10 06 01 2A", ""},
  };
  for (const auto& c : cases) {
    CvelString value;
    assignHex(value, c.value);
    CvelCertificateQcStatements list;
    list.decode(value);
    std::string statements;
    CvelCertificateQcStatement* s = nullptr;
    for (uint32_t i = 0; i < list.size() && list.get(i, s) == kCvelOk; ++i)
      statements += (i ? " " : "") + std::to_string(s->statementIdNumber()) + "/" + toHex(s->statementId()) + "/" +
                    toHex(s->statementInfo());
    EXPECT_EQ(statements, c.statements) << c.value;
  }
}

}  // namespace
