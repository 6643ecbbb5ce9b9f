// The signer-info calls as a host uses them: attributes in, data to be signed out, SignerInfo out.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_string.h"
#include "kolvari/zarv.h"
#include "support/test_util.h"

namespace {

using testutil::Bytes;
using testutil::hex;

const std::string kSha256 = "2.16.840.1.101.3.4.2.1";
const Bytes kDigest(32, 0x11);
const Bytes kCertificateHash(32, 0x22);

class SignerInfoTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(ZARV_CreateSignerInfo(&h_), ZARV_OK); }
  void TearDown() override { EXPECT_EQ(ZARV_ReleaseSignerInfo(h_), ZARV_OK); }

  void setStandardAttributes() {
    ASSERT_EQ(ZARV_SetDataHash(h_, kDigest, kSha256, 1), ZARV_OK);
    ASSERT_EQ(ZARV_SetSignerCertificate(h_, testutil::readFile(testutil::dataPath("signer/signer-ec.der")), kCertificateHash,
                                        kSha256),
              ZARV_OK);
    ASSERT_EQ(ZARV_SetSigningTime(h_, "20240101120000Z"), ZARV_OK);
  }

  Bytes dtbs() {
    Bytes out;
    EXPECT_EQ(ZARV_GetDTBS(h_, &out), ZARV_OK);
    return out;
  }

  Bytes signerInfo() {
    Bytes out;
    EXPECT_EQ(ZARV_EncodeSignerInfo(h_, &out), ZARV_OK);
    return out;
  }

  SignerInfoRecord* h_ = nullptr;
};

// The top-level elements inside the element that starts der, as (tag, whole element) pairs.
std::vector<std::pair<int32_t, Bytes>> children(const Bytes& der) {
  CvelString s;
  s.assign(der.data(), static_cast<uint32_t>(der.size()));
  CvelA1Context outer;
  std::vector<std::pair<int32_t, Bytes>> out;
  if (outer.next(s) < 0) return out;
  CvelA1Context c;
  c = outer;
  for (int32_t tag = c.next(s); tag >= 0; tag = c.next(s)) {
    CvelString element;
    c.getElement(s, element);
    out.emplace_back(tag, testutil::toBytes(element));
  }
  return out;
}

// The attribute types of a DTBS, as the hex of their OID elements.
std::vector<std::string> attributeTypes(const Bytes& set) {
  std::vector<std::string> types;
  for (const auto& [tag, attribute] : children(set)) {
    auto parts = children(attribute);
    types.push_back(parts.empty() ? "" : testutil::toHex(parts[0].second));
  }
  return types;
}

const std::string kSigningCertificateV2Type = "060B2A864886F70D010910022F";
const std::string kContentTypeType = "06092A864886F70D010903";
const std::string kMessageDigestType = "06092A864886F70D010904";
const std::string kSigningTimeType = "06092A864886F70D010905";
const std::string kEnvironmentType = "06092B0601040182F47301";

TEST_F(SignerInfoTest, DataToBeSignedMatchesAnIndependentEncoding) {
  setStandardAttributes();
  const std::string expected = ::testing::TempDir() + "/dtbs_expected.der";
  ASSERT_EQ(testutil::run("openssl asn1parse -genconf " + testutil::dataPath("signer/dtbs_signer_ec.cnf") + " -out " +
                          expected + " >/dev/null"),
            0);
  EXPECT_EQ(testutil::toHex(dtbs()), testutil::toHex(testutil::readFile(expected)));
}

TEST_F(SignerInfoTest, ContentTypeDefaultsToDataAndStays) {
  setStandardAttributes();
  Bytes first = dtbs();
  Bytes second = dtbs();
  EXPECT_EQ(first, second);
  EXPECT_EQ(attributeTypes(first), (std::vector<std::string>{kSigningCertificateV2Type, kContentTypeType,
                                                              kMessageDigestType, kSigningTimeType}));
  // A content type given by the host replaces the default.
  const Bytes tstInfo = hex("06 0B 2A 86 48 86 F7 0D 01 09 10 01 04");
  ASSERT_EQ(ZARV_SetContentType(h_, tstInfo), ZARV_OK);
  auto attributes = children(dtbs());
  ASSERT_EQ(attributes.size(), 4u);
  EXPECT_EQ(testutil::toHex(attributes[1].second),
            "301A" + kContentTypeType + "310D" + testutil::toHex(tstInfo));
}

TEST_F(SignerInfoTest, AttributesComeOutInDottedTextOrderOneValueEach) {
  ASSERT_EQ(ZARV_SetSignatureCreationEnvironment(h_, "host", "1.0", 0), ZARV_OK);
  ASSERT_EQ(ZARV_SetSigningTime(h_, "240101120000Z"), ZARV_OK);
  ASSERT_EQ(ZARV_SetDataHash(h_, kDigest, kSha256, 0), ZARV_OK);
  ASSERT_EQ(ZARV_SetDataHash(h_, Bytes(32, 0x33), kSha256, 0), ZARV_OK);  // a second value, not a replacement
  Bytes set = dtbs();
  EXPECT_EQ(attributeTypes(set), (std::vector<std::string>{kContentTypeType, kMessageDigestType, kMessageDigestType,
                                                            kSigningTimeType, kEnvironmentType}));
  auto attributes = children(set);
  // Each value in its own one-element SET, in the order added.
  EXPECT_EQ(testutil::toHex(attributes[1].second), "302F" + kMessageDigestType + "31220420" + std::string(64, '1'));
  EXPECT_EQ(testutil::toHex(attributes[2].second), "302F" + kMessageDigestType + "31220420" + std::string(64, '3'));
  // A 13-character time keeps the GeneralizedTime tag.
  EXPECT_EQ(testutil::toHex(attributes[3].second),
            "301C" + kSigningTimeType + "310F180D" + testutil::toHex(Bytes{'2', '4', '0', '1', '0', '1', '1', '2', '0',
                                                                          '0', '0', '0', 'Z'}));
  // SEQUENCE { SEQUENCE { ...1.1, UTF8 "host" }, SEQUENCE { ...1.2, UTF8 "1.0" } }, derived by hand.
  EXPECT_EQ(testutil::toHex(attributes[4].second),
            "3036" + kEnvironmentType + "3129" + "3027" + "3012" + "060A2B0601040182F4730101" + "0C04686F7374" +
                "3011" + "060A2B0601040182F4730102" + "0C03312E30");

  // Replace 1 supersedes every earlier value of the type.
  ASSERT_EQ(ZARV_SetDataHash(h_, kDigest, kSha256, 1), ZARV_OK);
  EXPECT_EQ(attributeTypes(dtbs()), (std::vector<std::string>{kContentTypeType, kMessageDigestType, kSigningTimeType,
                                                               kEnvironmentType}));
}

TEST_F(SignerInfoTest, HostAttributesFollowTheSameRules) {
  const Bytes value = hex("0C 01 41");
  ASSERT_EQ(ZARV_AddSignedAttribute(h_, "1.2.840.113549.1.9.16.2.12", value, 0), ZARV_OK);
  ASSERT_EQ(ZARV_AddSignedAttribute(h_, "1.2.840.113549.1.9.16.2.12", value, 0), ZARV_OK);
  auto types = attributeTypes(dtbs());
  ASSERT_EQ(types.size(), 3u);
  EXPECT_EQ(types[0], "060B2A864886F70D010910020C");
  EXPECT_EQ(types[1], "060B2A864886F70D010910020C");
  EXPECT_EQ(types[2], kContentTypeType);
  // An attribute type whose text does not convert is reported by the converter's result.
  ASSERT_EQ(ZARV_AddSignedAttribute(h_, "", value, 0), ZARV_OK);
  Bytes out;
  EXPECT_EQ(ZARV_GetDTBS(h_, &out), 0u);
}

TEST_F(SignerInfoTest, SigningTimeLengthIsChecked) {
  EXPECT_EQ(ZARV_SetSigningTime(h_, "2401011200000"), ZARV_OK);
  EXPECT_EQ(ZARV_SetSigningTime(h_, "24010112000Z1Z"), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_SetSigningTime(h_, ""), ZARV_E_BAD_PARAMETER);
}

TEST_F(SignerInfoTest, SignerInfoCarriesTheSignedAttributesAndSignature) {
  setStandardAttributes();
  Bytes set = dtbs();
  const Bytes signature = hex("DE AD BE EF");
  ASSERT_EQ(ZARV_SetP1Signature(h_, "1.2.840.10045.4.3.2", signature), ZARV_OK);
  ASSERT_EQ(ZARV_AddUnsignedAttribute(h_, "1.2.840.113549.1.9.16.2.14", hex("30 00"), 0), ZARV_OK);
  auto fields = children(signerInfo());
  ASSERT_EQ(fields.size(), 7u);
  EXPECT_EQ(testutil::toHex(fields[0].second), "020100");  // version 0 as built by this interface
  // IssuerAndSerialNumber: the issuer Name and serial of signer-ec.der.
  EXPECT_EQ(testutil::toHex(fields[1].second),
            "3020301A311830160603550403" "0C0F" + testutil::toHex(Bytes{'K', 'o', 'l', 'v', 'a', 'r', 'i', ' ', 'T',
                                                                         'e', 's', 't', ' ', 'C', 'A'}) +
                "02021234");
  EXPECT_EQ(testutil::toHex(fields[2].second), "300D0609608648016503040201" "0500");
  // [0] holds the same bytes as the data to be signed.
  Bytes signedAttributes = fields[3].second;
  ASSERT_FALSE(signedAttributes.empty());
  EXPECT_EQ(signedAttributes[0], 0xA0);
  signedAttributes[0] = 0x31;
  EXPECT_EQ(signedAttributes, set);
  EXPECT_EQ(testutil::toHex(fields[4].second), "300A06082A8648CE3D040302");  // no parameters
  EXPECT_EQ(testutil::toHex(fields[5].second), "0404DEADBEEF");
  EXPECT_EQ(testutil::toHex(fields[6].second), "A113" "3011" "060B2A864886F70D010910020E" "31023000");
}

TEST_F(SignerInfoTest, SignerInfoBeforeTheDataToBeSignedHasNoSignedAttributes) {
  setStandardAttributes();
  ASSERT_EQ(ZARV_SetP1Signature(h_, "1.2.840.113549.1.1.11", hex("01")), ZARV_OK);
  auto fields = children(signerInfo());
  ASSERT_EQ(fields.size(), 5u);
  EXPECT_EQ(fields[3].first, 0x30);  // the signature algorithm follows the digest algorithm
  EXPECT_EQ(testutil::toHex(fields[3].second), "300B06092A864886F70D01010B");
}

TEST_F(SignerInfoTest, CertificateFormsAndFailures) {
  // PEM input gives the same attribute as DER.
  ASSERT_EQ(ZARV_SetSignerCertificate(h_, testutil::readFile(testutil::dataPath("signer/signer-ec.der")), kCertificateHash,
                                      kSha256),
            ZARV_OK);
  Bytes fromDer = dtbs();
  ASSERT_EQ(ZARV_SetSignerCertificate(h_, testutil::readFile(testutil::dataPath("signer/signer-ec.pem")), kCertificateHash,
                                      kSha256),
            ZARV_OK);
  EXPECT_EQ(dtbs(), fromDer);
  // Bytes that are not a certificate return the parser's result and store nothing.
  EXPECT_EQ(ZARV_SetSignerCertificate(h_, hex("30 03 02 01 01"), kCertificateHash, kSha256), 0u);
  EXPECT_EQ(dtbs(), fromDer);
}

TEST(SignerInfoArguments, NullHandlesAndOutPointersAreRefused) {
  const Bytes some = hex("04 00");
  EXPECT_EQ(ZARV_CreateSignerInfo(nullptr), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_SetSigningTime(nullptr, "20240101120000Z"), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_SetDataHash(nullptr, some, kSha256, 1), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_SetSignerCertificate(nullptr, some, some, kSha256), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_SetSignatureCreationEnvironment(nullptr, "a", "b", 1), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_SetContentType(nullptr, some), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_AddSignedAttribute(nullptr, "1.2.3", some, 1), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_AddUnsignedAttribute(nullptr, "1.2.3", some, 1), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_GetDTBS(nullptr, nullptr), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_SetP1Signature(nullptr, "1.2.3", some), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_EncodeSignerInfo(nullptr, nullptr), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_ReleaseSignerInfo(nullptr), ZARV_E_BAD_PARAMETER);

  SignerInfoRecord* h = nullptr;
  ASSERT_EQ(ZARV_CreateSignerInfo(&h), ZARV_OK);
  EXPECT_EQ(ZARV_GetDTBS(h, nullptr), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_EncodeSignerInfo(h, nullptr), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_ReleaseSignerInfo(h), ZARV_OK);
}

}  // namespace
