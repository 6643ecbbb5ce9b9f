#include "x509/cvel_certificate_names.h"

#include <gtest/gtest.h>

#include "support/test_util.h"

namespace {

using testutil::assignHex;
using testutil::toHex;

// CN=CN as a Name element, and the same inside a directoryName.
constexpr char kName[] = "30 0D 31 0B 30 09 06 03 55 04 03 0C 02 43 4E";
constexpr char kDirectoryName[] = "A4 0F 30 0D 31 0B 30 09 06 03 55 04 03 0C 02 43 4E";

std::string seq(const std::string& content) {
  testutil::Bytes bytes = testutil::hex(content);
  return "30 " + toHex({static_cast<unsigned char>(bytes.size())}) + " " + content;
}

std::string tagged(const char* tag, const std::string& content) {
  testutil::Bytes bytes = testutil::hex(content);
  return std::string(tag) + " " + toHex({static_cast<unsigned char>(bytes.size())}) + " " + content;
}

TEST(CvelCertificateIssuer, NameOrGeneralNamesBySetOrNot) {
  CvelString der;
  assignHex(der, kName);
  CvelCertificateIssuer name;
  EXPECT_EQ(name.parse(der), kCvelOk);
  EXPECT_EQ(name.form(), CvelCertificateIssuer::kName);
  EXPECT_EQ(name.dname().size(), 1u);

  assignHex(der, seq(kDirectoryName));
  CvelCertificateIssuer names;
  EXPECT_EQ(names.parse(der), kCvelOk);
  EXPECT_EQ(names.form(), CvelCertificateIssuer::kGeneralNames);
  EXPECT_EQ(names.generalNames().size(), 1u);
}

TEST(CvelCertificateIssuer, InvalidForms) {
  const char* cases[] = {"30 00", "31 00", "", "30 03 82 01"};
  for (const char* hex : cases) {
    CvelString der;
    assignHex(der, hex);
    CvelCertificateIssuer issuer;
    EXPECT_NE(issuer.parse(der), kCvelOk) << hex;
    EXPECT_EQ(issuer.form(), CvelCertificateIssuer::kInvalid) << hex;
  }
}

TEST(CvelCertificateIssuer, GetEncodedOnlyForASingleDirectoryName) {
  CvelString der, out;
  assignHex(der, seq(kDirectoryName));
  CvelCertificateIssuer single;
  ASSERT_EQ(single.parse(der), kCvelOk);
  EXPECT_EQ(single.getEncoded(out), kCvelOk);
  EXPECT_EQ(toHex(out), toHex(testutil::hex(kName)));

  // A Name form gives what the name's encoder gives: nothing.
  assignHex(der, kName);
  CvelCertificateIssuer name;
  ASSERT_EQ(name.parse(der), kCvelOk);
  EXPECT_EQ(name.getEncoded(out), 0u);
  EXPECT_TRUE(out.isEmpty());

  const std::string others[] = {seq(std::string(kDirectoryName) + " 86 02 68 3A"), seq("86 02 68 3A")};
  for (const std::string& hex : others) {
    assignHex(der, hex);
    CvelCertificateIssuer issuer;
    ASSERT_EQ(issuer.parse(der), kCvelOk) << hex;
    EXPECT_EQ(issuer.getEncoded(out), 0u) << hex;
  }
}

TEST(CvelCertificateSubject, EachForm) {
  CvelString der;
  assignHex(der, kName);
  CvelCertificateSubject name;
  EXPECT_EQ(name.parse(der), kCvelOk);
  EXPECT_EQ(name.form(), CvelCertificateSubject::kName);
  EXPECT_EQ(name.dname().size(), 1u);

  // [0] holds the IssuerSerial fields: issuer names, serial, issuer unique id.
  assignHex(der, tagged("A0", seq(kDirectoryName) + " 02 02 10 01 03 03 00 C1 C2"));
  CvelCertificateSubject base;
  EXPECT_EQ(base.parse(der), kCvelOk);
  EXPECT_EQ(base.form(), CvelCertificateSubject::kBaseCertificateId);
  EXPECT_EQ(base.baseCertificateId().issuer().size(), 1u);
  EXPECT_EQ(toHex(base.baseCertificateId().serial()), "02021001");
  EXPECT_EQ(toHex(base.baseCertificateId().issuerUid()), "00C1C2");

  // [1] holds a GeneralNames SEQUENCE.
  assignHex(der, tagged("A1", seq(kDirectoryName)));
  CvelCertificateSubject names;
  EXPECT_EQ(names.parse(der), kCvelOk);
  EXPECT_EQ(names.form(), CvelCertificateSubject::kGeneralNames);
  EXPECT_EQ(names.generalNames().size(), 1u);
}

TEST(CvelCertificateSubject, InvalidForms) {
  const std::string cases[] = {
      "30 00",                                        // a Name without RDN
      "",                                             // nothing
      "A2 02 05 00",                                  // no such form
      tagged("A1", kDirectoryName),                   // [1] around the names without their SEQUENCE
      tagged("A0", seq(kDirectoryName)),              // base identifier without serial
      tagged("A0", "02 01 05"),                       // base identifier without issuer names
      tagged("A0", seq(kDirectoryName) + " 02 01 05 05 00"),  // something after the identifier
      "A0 10 30 00",                                  // runs past the end
  };
  for (const std::string& hex : cases) {
    CvelString der;
    assignHex(der, hex);
    CvelCertificateSubject subject;
    EXPECT_NE(subject.parse(der), kCvelOk) << hex;
    EXPECT_EQ(subject.form(), CvelCertificateSubject::kInvalid) << hex;
  }
}

TEST(CvelCertificateSubject, ReadsTheNextElementOfAReader) {
  CvelString der;
  assignHex(der, std::string("05 00 ") + kName + " 05 00");
  CvelA1Context reader;
  ASSERT_EQ(reader.next(der), 0x05);
  CvelCertificateSubject subject;
  EXPECT_EQ(subject.parse(der, &reader), kCvelOk);
  EXPECT_EQ(subject.form(), CvelCertificateSubject::kName);
  EXPECT_EQ(reader.next(der), 0x05);

  CvelA1Context issuerReader;
  ASSERT_EQ(issuerReader.next(der), 0x05);
  CvelCertificateIssuer issuer;
  EXPECT_EQ(issuer.parse(der, &issuerReader), kCvelOk);
  EXPECT_EQ(issuer.form(), CvelCertificateIssuer::kName);
  EXPECT_EQ(issuerReader.next(der), 0x05);
}

TEST(CvelBaseCertificateId, SerialWithoutUniqueId) {
  CvelString der;
  assignHex(der, seq(kDirectoryName) + " 02 01 2A");
  CvelBaseCertificateId id;
  EXPECT_EQ(id.parse(der), kCvelOk);
  EXPECT_EQ(toHex(id.serial()), "02012A");
  EXPECT_TRUE(id.issuerUid().isEmpty());
}

}  // namespace
