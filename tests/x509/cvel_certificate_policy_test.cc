#include "x509/cvel_certificate_policy.h"

#include <gtest/gtest.h>

#include "support/test_util.h"

namespace {

using namespace testutil;

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
    CvelString value;
    assignHex(value, c.value);
    CvelCertificatePolicies list;
    list.decode(value);
    std::string policies;
    CvelCertificatePolicy* p = nullptr;
    for (uint32_t i = 0; i < list.size() && list.get(i, p) == kCvelOk; ++i)
      policies += (i ? " " : "") + std::to_string(p->policyId()) + "/" + toHex(p->policyIdentifier()) + "/" +
                  toHex(p->qualifiers());
    EXPECT_EQ(policies, c.policies) << c.value;
  }
}

}  // namespace
