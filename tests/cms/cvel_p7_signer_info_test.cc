// SignerInfo objects: what the ZARV_ signer-info calls build decodes back to the same field bytes, with the
// time-stamp tokens and revocation values of its attributes collected; the lenient stop inside one
// SignerInfo; the collection's results for empty and malformed SETs.
#include <gtest/gtest.h>

#include <string>

#include "api/signer_info_record.h"
#include "asn1/cvel_oid.h"
#include "cms/cvel_p7_signer_info.h"
#include "cms/cvel_tsp_response.h"
#include "kolvari/zarv.h"
#include "support/test_util.h"

namespace {

using testutil::Bytes;
using testutil::decodeFirst;
using testutil::hex;
using testutil::toHex;

const std::string kTimeStampToken = "1.2.840.113549.1.9.16.2.14";
const std::string kRevocationValues = "1.2.840.113549.1.9.16.2.24";

const CvelTSPResponse* tokenAt(const CvelP7SignerInfo& signer, uint32_t i) {
  CvelTSPResponse* r = nullptr;
  return signer.timeStamps().get(i, r) == kCvelOk ? r : nullptr;
}

TEST(CvelP7SignerInfo, WhatTheSignerInfoCallsBuildDecodesToTheSameFields) {
  const Bytes plainToken = testutil::readFile(testutil::dataPath("tsp/plain.tst"));
  const Bytes fullToken = testutil::readFile(testutil::dataPath("tsp/full.tst"));
  // RevocationValues { crlVals [0] { one CRL of 295 octets made by openssl } }: 4 + 295, 4 + 299, 4 + 303.
  const Bytes crl = testutil::readFile(testutil::dataPath("tsp/crl.der"));
  ASSERT_EQ(crl.size(), 295u);
  Bytes revocationValues = hex("3082012F A082012B 30820127");
  revocationValues.insert(revocationValues.end(), crl.begin(), crl.end());

  SignerInfoRecord* h = nullptr;
  ASSERT_EQ(ZARV_CreateSignerInfo(&h), ZARV_OK);
  ASSERT_EQ(ZARV_SetSigningTime(h, "20240101120000Z"), ZARV_OK);
  ASSERT_EQ(ZARV_SetSignerCertificate(h, testutil::readFile(testutil::dataPath("signer/signer-ec.der")),
                                      Bytes(32, 0x22), "2.16.840.1.101.3.4.2.1"),
            ZARV_OK);
  ASSERT_EQ(ZARV_SetDataHash(h, Bytes(32, 0x11), "2.16.840.1.101.3.4.2.1", 1), ZARV_OK);
  ASSERT_EQ(ZARV_AddSignedAttribute(h, kTimeStampToken, plainToken, 0), ZARV_OK);
  Bytes dtbs;
  ASSERT_EQ(ZARV_GetDTBS(h, &dtbs), ZARV_OK);
  ASSERT_EQ(ZARV_SetP1Signature(h, "1.2.840.10045.4.3.2", Bytes(70, 0x5A)), ZARV_OK);
  ASSERT_EQ(ZARV_AddUnsignedAttribute(h, kTimeStampToken, hex("040100"), 0), ZARV_OK);  // not a token
  ASSERT_EQ(ZARV_AddUnsignedAttribute(h, kTimeStampToken, fullToken, 0), ZARV_OK);
  ASSERT_EQ(ZARV_AddUnsignedAttribute(h, kRevocationValues, revocationValues, 0), ZARV_OK);
  Bytes encoded;
  ASSERT_EQ(ZARV_EncodeSignerInfo(h, &encoded), ZARV_OK);
  ASSERT_EQ(ZARV_ReleaseSignerInfo(h), ZARV_OK);

  CvelP7SignerInfo decoded;
  CvelString again;
  ASSERT_EQ(decodeFirst(encoded, decoded), kCvelOk);
  EXPECT_EQ(toHex(decoded.signedAttributes()), toHex(dtbs).substr(8));  // the DTBS is 31 82 xx xx { them }
  EXPECT_EQ(toHex(decoded.signatureValue()), toHex(Bytes(70, 0x5A)));
  ASSERT_EQ(decoded.encode(again), kCvelOk);
  EXPECT_EQ(toHex(again), toHex(encoded));
  EXPECT_EQ(decoded.digestKind(), kOidSha256);
  EXPECT_EQ(decoded.revocationValuesResult(), kCvelOk);
  ASSERT_EQ(decoded.revocationValues().crlValues().size(), 1u);
  // The signed attribute's token first, then the unsigned one; the OCTET STRING is dropped.
  ASSERT_EQ(decoded.timeStamps().size(), 2u);
  EXPECT_TRUE(tokenAt(decoded, 0)->fromSignedAttributes());
  EXPECT_EQ(toHex(tokenAt(decoded, 0)->token().encoded()), toHex(plainToken));
  EXPECT_FALSE(tokenAt(decoded, 1)->fromSignedAttributes());
  EXPECT_EQ(toHex(tokenAt(decoded, 1)->token().encoded()), toHex(fullToken));
  EXPECT_EQ(tokenAt(decoded, 1)->token().millis(), 500);

  // Tokens are collected once: a second examination finds the list filled and adds nothing.
  EXPECT_EQ(decoded.examineAttributes(), kCvelOk);
  EXPECT_EQ(decoded.timeStamps().size(), 2u);
}

// The record keeps small fields in a room of its own and gives each field set again fresh octets: set once,
// set until the room runs out part way (some fields in it, some not) and past it, or with an RSA-sized
// signature that never fits, every field comes out whole. The identifier is the certificate's own pair.
TEST(CvelP7SignerInfo, FieldsSetAgainPastTheRecordsRoomStayWhole) {
  const Bytes der = testutil::readFile(testutil::dataPath("signer/signer-ec.der"));
  CvelCertificate certificate;
  CvelString issuerSerial;
  ASSERT_EQ(certificate.parse(der.data(), static_cast<uint32_t>(der.size())), kCvelOk);
  ASSERT_EQ(certificate.getIssuerSerial(issuerSerial), kCvelOk);
  const struct { int rounds; size_t signatureSize; } rows[] = {{1, 70}, {2, 70}, {6, 70}, {1, 512}, {3, 512}};
  for (const auto& row : rows) {
    SignerInfoRecord* h = nullptr;
    ASSERT_EQ(ZARV_CreateSignerInfo(&h), ZARV_OK);
    for (int i = 0; i < row.rounds; ++i) {
      ASSERT_EQ(ZARV_SetDataHash(h, Bytes(32, 0x11), "2.16.840.1.101.3.4.2.1", 1), ZARV_OK);
      ASSERT_EQ(ZARV_SetSignerCertificate(h, der, Bytes(32, 0x22), "2.16.840.1.101.3.4.2.1"), ZARV_OK);
      ASSERT_EQ(ZARV_SetP1Signature(h, "1.2.840.10045.4.3.2", Bytes(row.signatureSize, 0x5A)), ZARV_OK);
    }
    Bytes dtbs;
    Bytes encoded;
    ASSERT_EQ(ZARV_GetDTBS(h, &dtbs), ZARV_OK);
    ASSERT_EQ(ZARV_EncodeSignerInfo(h, &encoded), ZARV_OK);
    ASSERT_EQ(ZARV_ReleaseSignerInfo(h), ZARV_OK);
    CvelP7SignerInfo decoded;
    ASSERT_EQ(decodeFirst(encoded, decoded), kCvelOk) << row.rounds;
    EXPECT_EQ(toHex(decoded.signerIdentifier()), toHex(issuerSerial)) << row.rounds;
    EXPECT_EQ(toHex(decoded.digestAlgorithm()), "300D06096086480165030402010500") << row.rounds;
    EXPECT_EQ(toHex(decoded.signatureAlgorithm()), "300A06082A8648CE3D040302") << row.rounds;
    EXPECT_EQ(toHex(decoded.signatureValue()), toHex(Bytes(row.signatureSize, 0x5A))) << row.rounds;
  }
}

TEST(CvelP7SignerInfo, FieldsUnderOtherTagsEndTheReadingQuietly) {
  const std::string sid = "3003020107";
  const std::string sha1 = "300906052B0E03021A0500";
  const std::string ecdsa = "300A06082A8648CE3D040302";
  struct Row { const char* name; std::string hex; CvelResult result; const char *signerIdentifier, *signatureValue; };
  const Row rows[] = {
      {"not a SEQUENCE", "3100", kCvelErrMalformed, "", ""},
      {"empty SEQUENCE", "3000", kCvelErrMalformed, "", ""},
      {"second element not a SEQUENCE", "30080201010403616263", kCvelOk, "", ""},
      {"no signed attributes", testutil::tlv("30", "020101" + sid + sha1 + ecdsa + "0402AABB"), kCvelOk, "3003020107",
       "AABB"},
      {"signature not an OCTET STRING", testutil::tlv("30", "020101" + sid + sha1 + ecdsa + "0302AABB"), kCvelOk,
       "3003020107", ""},
  };
  for (const Row& row : rows) {
    CvelP7SignerInfo signer;
    EXPECT_EQ(decodeFirst(hex(row.hex), signer), row.result) << row.name;
    EXPECT_EQ(toHex(signer.signerIdentifier()), row.signerIdentifier) << row.name;
    EXPECT_EQ(toHex(signer.signatureValue()), row.signatureValue) << row.name;
  }
  // Without signed attributes the signature algorithm follows the digest algorithm, and so it is written back.
  CvelP7SignerInfo signer;
  CvelString out;
  ASSERT_EQ(decodeFirst(hex(rows[3].hex), signer), kCvelOk);
  ASSERT_EQ(signer.encode(out), kCvelOk);
  EXPECT_EQ(toHex(out), rows[3].hex);
}

TEST(CvelP7SignerInfos, EmptyOrMalformedSetsGiveZero) {
  // Empty in both length forms; first not a SEQUENCE; a broken one; a second one overrunning the SET; two,
  // then something else; one in a SET of indefinite length.
  const struct { const char* hex; CvelResult result; uint32_t count; } rows[] = {
      {"3100", CvelP7SignerInfos::kEmpty, 0}, {"31800000", CvelP7SignerInfos::kEmpty, 0},
      {"3103020101", CvelP7SignerInfos::kEmpty, 0}, {"31023000", kCvelErrMalformed, 0},
      {"3109 3003020101 3010AAAA", kCvelErrMalformed, 1}, {"310C 3003020101 3003020103 0500", kCvelOk, 2},
      {"3180 3003020101 0000", kCvelOk, 1}};
  for (const auto& row : rows) {
    CvelP7SignerInfos list;
    EXPECT_EQ(decodeFirst(hex(row.hex), list), row.result) << row.hex;
    EXPECT_EQ(list.size(), row.count) << row.hex;
  }
}

}  // namespace

namespace {

// The one-pass encode into a vector writes back what was read, as the writer's encode does: with and without
// the optional sets, and a version too long for the room kept for it (taking the writer's path).
TEST(CvelP7SignerInfo, TheOnePassEncodeWritesBackWhatWasRead) {
  const std::string fields = "3000" "3000";                      // sid, digest algorithm: empty SEQUENCEs
  const std::string tail = "3000" "0402AABB";                    // signature algorithm, signature
  const std::string rows[] = {
      "300D" "020101" + fields + tail,                             // 3 + 4 + 6 = 13
      "3015" "020101" + fields + "A0020500" + tail + "A1020500",   // 3 + 4 + 4 + 6 + 4 = 21
      "3020" "0214" + std::string(40, '7') + fields + tail,        // 22 + 4 + 6 = 32
  };
  for (const std::string& row : rows) {
    CvelP7SignerInfo decoded;
    ASSERT_EQ(decodeFirst(hex(row), decoded), kCvelOk) << row;
    Bytes onePass;
    ASSERT_EQ(decoded.encode(onePass), kCvelOk) << row;
    EXPECT_EQ(toHex(onePass), row);
  }
}

}  // namespace
