#include "x509/cvel_certificate_names.h"

#include <gtest/gtest.h>

#include "support/test_util.h"

namespace {

using namespace testutil;
using I = CvelCertificateIssuer;
using S = CvelCertificateSubject;

// CN=CN as a Name, and as GeneralNames holding it as their one directoryName.
const std::string kName = "30 0D 31 0B 30 09 06 03 55 04 03 0C 02 43 4E";
const std::string kDirectoryName = "A4 0F " + kName, kGeneralNames = "30 11 " + kDirectoryName;

TEST(CvelCertificateNames, IssuerAndSubjectForms) {
  const struct { std::string der; uint8_t issuer; CvelResult issuerEncoded; int32_t subject; } cases[] = {
      {kName, I::kName, 0, S::kName},  // the name's encoder produces nothing
      {kGeneralNames, I::kGeneralNames, kCvelOk, S::kInvalid},
      {"30 15 " + kDirectoryName + " 86 02 68 3A", I::kGeneralNames, 0, S::kInvalid},
      {"A1 13 " + kGeneralNames, I::kInvalid, 0, S::kGeneralNames},
      {"A1 11 " + kDirectoryName, I::kInvalid, 0, S::kInvalid},  // [1] without the SEQUENCE
      // [0] IssuerSerial: issuer names, serial, optional issuer unique id.
      {"A0 1C " + kGeneralNames + " 02 02 10 01 03 03 00 C1 C2", I::kInvalid, 0, S::kBaseCertificateId},
      {"A0 17 " + kGeneralNames + " 02 02 10 01", I::kInvalid, 0, S::kBaseCertificateId},
      {"30 04 86 02 68 3A", I::kGeneralNames, 0, S::kInvalid}, {"30 00", I::kInvalid, 0, S::kInvalid},
      {"31 00", I::kInvalid, 0, S::kInvalid},
      {"30 03 82 01", I::kInvalid, 0, S::kInvalid}, {"A2 02 05 00", I::kInvalid, 0, S::kInvalid},
      {"A0 10 30 00", I::kInvalid, 0, S::kInvalid}, {"", I::kInvalid, 0, S::kInvalid},
  };
  for (const auto& c : cases) {
    CvelString der, out;
    assignHex(der, c.der);
    EXPECT_EQ(out.assign("left over"), kCvelOk);
    I issuer;
    S subject;
    static_cast<void>(issuer.parse(der));
    static_cast<void>(subject.parse(der));
    EXPECT_EQ(issuer.form(), c.issuer) << c.der;
    EXPECT_EQ(issuer.getEncoded(out), c.issuerEncoded) << c.der;
    if (c.issuer == I::kName || c.issuerEncoded == kCvelOk) {  // cleared, or the Name
      EXPECT_EQ(toHex(out), c.issuerEncoded == kCvelOk ? toHex(hex(kName)) : "") << c.der;
    }
    EXPECT_EQ(subject.form(), c.subject) << c.der;
  }
}

}  // namespace
