// The signer-info calls as a host uses them: attributes in, data to be signed out, SignerInfo out. The
// expected data to be signed for a real certificate comes from `openssl asn1parse -genconf`; the others are
// put together by hand from the Attribute encodings below (lengths in the comments).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "kolvari/zarv.h"
#include "support/test_util.h"

namespace {

using testutil::Bytes;
using testutil::hex;
using testutil::toHex;

const std::string kSha256 = "2.16.840.1.101.3.4.2.1";

// Attributes as SEQUENCE { type, SET { value } }, in hex.
// content type id-data: 11 + 2 + 11 = 24.
const std::string kContentTypeData = "3018" "06092A864886F70D010903" "310B" "06092A864886F70D010701";
// message digest 32 x 11 (or 33): 11 + 2 + 34 = 47.
std::string messageDigest(char digit) { return "302F" "06092A864886F70D010904" "3122" "0420" + std::string(64, digit); }
// signing time "240101120000Z", GeneralizedTime tag for 13 characters: 11 + 2 + 15 = 28.
const std::string kSigningTime13 = "301C" "06092A864886F70D010905" "310F" "180D" "3234303130313132303030305A";
// environment ("host", "1.0"): items 12 + 6 = 18 and 12 + 5 = 17, SEQUENCE 39, SET 41, Attribute 11 + 43 = 54.
const std::string kEnvironment = "3036" "06092B0601040182F47301" "3129" "3027" "3012" "060A2B0601040182F4730101"
                                 "0C04686F7374" "3011" "060A2B0601040182F4730102" "0C03312E30";

class SignerInfoTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(ZARV_CreateSignerInfo(&h_), ZARV_OK); }
  void TearDown() override { EXPECT_EQ(ZARV_ReleaseSignerInfo(h_), ZARV_OK); }
  std::string output(uint32_t (*call)(SignerInfoRecord*, Bytes*)) {
    Bytes out;
    EXPECT_EQ(call(h_, &out), ZARV_OK);
    return toHex(out);
  }
  std::string dtbs() { return output(ZARV_GetDTBS); }
  std::string signerInfo() { return output(ZARV_EncodeSignerInfo); }
  // The data to be signed with the attribute-order variable set to value while it is built.
  std::string dtbsWithOrder(const char* value) {
    setenv("KOLVARI_DER_ATTRIBUTE_ORDER", value, 1);
    const std::string out = dtbs();
    unsetenv("KOLVARI_DER_ATTRIBUTE_ORDER");
    return out;
  }
  Bytes certificate() const { return testutil::readFile(testutil::dataPath("signer/signer-ec.der")); }
  // The expected bytes openssl builds from a configuration under tests/data/signer.
  static std::string genconf(const std::string& config) {
    const std::string out = ::testing::TempDir() + "/" + config + ".der";
    EXPECT_EQ(testutil::run("openssl asn1parse -genconf " + testutil::dataPath("signer/" + config) + " -out " + out +
                            " >/dev/null"), 0);
    return toHex(testutil::readFile(out));
  }
  SignerInfoRecord* h_ = nullptr;
};

TEST_F(SignerInfoTest, DataToBeSignedMatchesAnIndependentEncoding) {
  // Signing-certificate-v2 (with NULL in its hash algorithm), content type by default, digest, 15-character
  // time: the types in dotted-text order, "...9.16.2.47" before "...9.3".
  ASSERT_EQ(ZARV_SetSigningTime(h_, "20240101120000Z"), ZARV_OK);
  ASSERT_EQ(ZARV_SetSignerCertificate(h_, certificate(), Bytes(32, 0x22), kSha256), ZARV_OK);
  ASSERT_EQ(ZARV_SetDataHash(h_, Bytes(32, 0x11), kSha256, 1), ZARV_OK);
  const std::string first = dtbs();
  EXPECT_EQ(first, genconf("dtbs_signer_ec.cnf"));
  // The content type added by default stays, so a second call gives the same bytes.
  EXPECT_EQ(dtbs(), first);
}

TEST_F(SignerInfoTest, EachValueIsAnAttributeOfItsOwnAndReplacementsKeepOnlyTheLast) {
  ASSERT_EQ(ZARV_SetSignatureCreationEnvironment(h_, "host", "1.0", 0), ZARV_OK);
  ASSERT_EQ(ZARV_SetSigningTime(h_, "240101120000Z"), ZARV_OK);
  ASSERT_EQ(ZARV_SetDataHash(h_, Bytes(32, 0x11), kSha256, 0), ZARV_OK);
  ASSERT_EQ(ZARV_SetDataHash(h_, Bytes(32, 0x33), kSha256, 0), ZARV_OK);  // a second value, not a replacement
  // In dotted-text order: 26 + 49 + 49 + 30 + 56 = 210 in 31 81 D2.
  const std::string twoDigests = "3181D2" + kContentTypeData + messageDigest('1') + messageDigest('3') +
                                 kSigningTime13 + kEnvironment;
  EXPECT_EQ(dtbs(), twoDigests);
  // Replace 1 supersedes every earlier value of the type; replaced values leave their octets behind until the
  // table is compacted, which must keep the current values.
  for (int i = 0; i < 40; ++i) {
    ASSERT_EQ(ZARV_SetDataHash(h_, Bytes(32, static_cast<unsigned char>(i)), kSha256, 1), ZARV_OK);
    ASSERT_EQ(ZARV_SetSignatureCreationEnvironment(h_, "host", std::to_string(i), 1), ZARV_OK);
  }
  ASSERT_EQ(ZARV_SetDataHash(h_, Bytes(32, 0x11), kSha256, 1), ZARV_OK);
  ASSERT_EQ(ZARV_SetSignatureCreationEnvironment(h_, "host", "1.0", 1), ZARV_OK);
  EXPECT_EQ(dtbs(), "3181A1" + kContentTypeData + messageDigest('1') + kSigningTime13 + kEnvironment);  // 210 - 49
  ASSERT_EQ(ZARV_SetDataHash(h_, Bytes(32, 0x33), kSha256, 0), ZARV_OK);  // behind the first again
  EXPECT_EQ(dtbs(), twoDigests);
}

TEST_F(SignerInfoTest, SigningTimeLengthIsCountedModulo256) {
  const std::string time13 = "240101120000Z";
  EXPECT_EQ(ZARV_SetSigningTime(h_, time13 + std::string(256, 'x')), ZARV_OK);
  EXPECT_EQ(dtbs(), "3138" + kContentTypeData + kSigningTime13);  // 26 + 30 = 56; the text is cut at 13
  for (const std::string& refused : {std::string("24010112000Z1Z"), std::string(), time13 + "0" + std::string(256, 'x'),
                                     std::string(256, 'x')}) {
    EXPECT_EQ(ZARV_SetSigningTime(h_, refused), ZARV_E_BAD_PARAMETER) << refused.size();
  }
}

TEST_F(SignerInfoTest, SignerInfoHasVersionZeroAndNoSignedAttributesBeforeTheDataToBeSigned) {
  // A certificate that does not parse returns the parser's result and stores nothing: no signer identifier
  // and no signing-certificate attribute below.
  EXPECT_NE(ZARV_SetSignerCertificate(h_, hex("30 03 02 01 01"), Bytes(32, 0x22), kSha256), ZARV_OK);
  ASSERT_EQ(ZARV_SetDataHash(h_, Bytes(32, 0x11), kSha256, 1), ZARV_OK);
  ASSERT_EQ(ZARV_SetP1Signature(h_, "1.2.840.10045.4.3.2", hex("DE AD BE EF")), ZARV_OK);
  ASSERT_EQ(ZARV_AddUnsignedAttribute(h_, "1.2.840.113549.1.9.16.2.14", hex("30 00"), 0), ZARV_OK);
  // version 3, digest algorithm with NULL 15, signature algorithm without parameters 12, signature 6,
  // [1] { SEQUENCE { OID, SET { 30 00 } } } 21.
  const std::string version = "020100";
  const std::string digestAlgorithm = "300D" "0609608648016503040201" "0500";
  const std::string tail = "300A" "06082A8648CE3D040302" "0404DEADBEEF" "A113" "3011" "060B2A864886F70D010910020E"
                           "31023000";
  EXPECT_EQ(signerInfo(), "3039" + version + digestAlgorithm + tail);  // 3 + 15 + 12 + 6 + 21 = 57
  // After GetDTBS, [0] holds the same attributes as the data to be signed: 26 + 49 = 75.
  const std::string attributes = kContentTypeData + messageDigest('1');
  EXPECT_EQ(dtbs(), "314B" + attributes);
  EXPECT_EQ(signerInfo(), "308186" + version + digestAlgorithm + "A04B" + attributes + tail);  // 57 + 77 = 134
}

TEST_F(SignerInfoTest, TheSignerIdentifierIsStoredBeforeTheHashOidIsConverted) {
  // An empty hash OID does not convert: the call fails, the signing-certificate attribute is not added,
  // but the IssuerAndSerialNumber of the parsed certificate is already in the object.
  EXPECT_NE(ZARV_SetSignerCertificate(h_, certificate(), Bytes(32, 0x22), ""), ZARV_OK);
  ASSERT_EQ(ZARV_SetDataHash(h_, Bytes(32, 0x11), kSha256, 1), ZARV_OK);
  EXPECT_EQ(dtbs(), "314B" + kContentTypeData + messageDigest('1'));
  ASSERT_EQ(ZARV_SetP1Signature(h_, "1.2.840.10045.4.3.2", hex("DE AD BE EF")), ZARV_OK);
  // Issuer CN=Kolvari Test CA (UTF8String): 5 + 17 = 22 in 30 16, 31 18, 30 1A; serial 0x1234: 02 02 12 34;
  // IssuerAndSerialNumber 28 + 4 = 32 in 30 20.
  const std::string signerIdentifier =
      "3020" "301A" "3118" "3016" "0603550403" "0C0F" "4B6F6C766172692054657374204341" "02021234";
  // version 3 + identifier 34 + digest algorithm 15 + [0] 77 + signature algorithm 12 + signature 6 = 147.
  EXPECT_EQ(signerInfo(), "308193" "020100" + signerIdentifier + "300D" "0609608648016503040201" "0500" "A04B" +
                              kContentTypeData + messageDigest('1') + "300A" "06082A8648CE3D040302" "0404DEADBEEF");
}

TEST_F(SignerInfoTest, OnlyTheValueOneSelectsDerOrderWhenTheDataToBeSignedIsBuilt) {
  // Two digests added 33 first, so that equal lengths are decided by content.
  ASSERT_EQ(ZARV_SetSigningTime(h_, "20240101120000Z"), ZARV_OK);
  ASSERT_EQ(ZARV_SetSignerCertificate(h_, certificate(), Bytes(32, 0x22), kSha256), ZARV_OK);
  ASSERT_EQ(ZARV_SetSignatureCreationEnvironment(h_, "host", "1.0", 0), ZARV_OK);
  ASSERT_EQ(ZARV_SetDataHash(h_, Bytes(32, 0x33), kSha256, 0), ZARV_OK);
  ASSERT_EQ(ZARV_SetDataHash(h_, Bytes(32, 0x11), kSha256, 0), ZARV_OK);
  const std::string dotted = dtbs();  // variable unset: dotted-text order, the signing certificate first
  EXPECT_EQ(dotted.substr(8, 4), "306C");
  for (const char* value : {"0", "", "yes", "11", " 1"}) EXPECT_EQ(dtbsWithOrder(value), dotted) << "'" << value << "'";
  const std::string sorted = dtbsWithOrder("1");
  EXPECT_EQ(sorted, genconf("dtbs_signer_ec_der_order.cnf"));
  // The SignerInfo carries the same set as [0] (A0 in place of 31), even once the variable is gone.
  ASSERT_EQ(ZARV_SetP1Signature(h_, "1.2.840.10045.4.3.2", hex("DE AD BE EF")), ZARV_OK);
  EXPECT_NE(signerInfo().find("A0" + sorted.substr(2)), std::string::npos);
}

}  // namespace
