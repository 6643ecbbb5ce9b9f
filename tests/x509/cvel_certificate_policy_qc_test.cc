// The two extension values read into lists of records: certificatePolicies and qcStatements.
#include <gtest/gtest.h>

#include <string>

#include "support/test_util.h"
#include "x509/cvel_certificate_policy.h"
#include "x509/cvel_certificate_qc_statement.h"

namespace {

using namespace testutil;

// The records decoded from the extension value in hex, each as registry id/OID/rest, blank-separated.
template <typename List, typename Record, typename Describe>
std::string records(const char* value, Describe describe) {
  const CvelString der = hexString(value);  // the records view it
  List list;
  list.decode(der);
  std::string out;
  Record* r = nullptr;
  for (uint32_t i = 0; i < list.size() && list.get(i, r) == kCvelOk; ++i) out += (i ? " " : "") + describe(*r);
  return out;
}

TEST(CvelCertificatePolicies, DecodeFromTheExtensionValue) {
  const struct { const char* value; const char* policies; } cases[] = {  // registry id/OID/qualifiers each
      // The certificatePolicies of tests/data/x509/ee-qc.der (openssl): 1.3.36.8.1.1 with a CPS qualifier.
      {"04333031302F06052B240801013026302406082B06010505070201161868747470733A2F2F6370732E6578616D706C652E6F72672F",
       "1026/06052B24080101/3026302406082B06010505070201161868747470733A2F2F6370732E6578616D706C652E6F72672F"},
      // An unknown OID with a non-SEQUENCE after it (no qualifier), then one without qualifiers.
      {"04 11 30 0F 30 07 06 03 2A 03 04 05 00 30 04 06 02 2A 03", "-1/06032A0304/ -1/06022A03/"},
      // A policy without its OID ends the list; the one before it stays.
      {"04 14 30 12 30 05 06 03 2A 03 04 30 03 02 01 01 30 04 06 02 2A 03", "-1/06032A0304/"},
      {"04 03 02 01 01", ""}, {"04 00", ""}, {"", ""}, {"04 05 30 03 06 01", ""}, {"04 05 30 03 02 01 01", ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ((records<CvelCertificatePolicies, CvelCertificatePolicy>(c.value, [](const CvelCertificatePolicy& p) {
                return std::to_string(p.policyId()) + "/" + toHex(p.policyIdentifier()) + "/" + toHex(p.qualifiers());
              })),
              c.policies)
        << c.value;
  }
}

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
    EXPECT_EQ((records<CvelCertificateQcStatements, CvelCertificateQcStatement>(
                  c.value, [](const CvelCertificateQcStatement& s) {
                    return std::to_string(s.statementIdNumber()) + "/" + toHex(s.statementId()) + "/" +
                           toHex(s.statementInfo());
                  })),
              c.statements)
        << c.value;
  }
}

}  // namespace
