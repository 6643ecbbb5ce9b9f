// The container handle API: the defaults it stores, digest-algorithm order, the pieces' order, the reset
// state, version handling and the out vector. Every expected encoding is worked out by hand from the DER
// rules (lengths shown in the comments); the longer ones were also produced with `openssl asn1parse -genconf`.
#include <gtest/gtest.h>

#include <string>

#include "api/p72_container.h"
#include "kolvari/zarv.h"
#include "support/test_util.h"

namespace {

using testutil::Bytes;
using testutil::hex;
using testutil::toHex;

// 1.2.840.113549.1.9.16.1.4 id-ct-TSTInfo as an OBJECT IDENTIFIER element.
constexpr const char* kIdTstInfo = "06 0B 2A 86 48 86 F7 0D 01 09 10 01 04";
// The signedData OID, and the default encapsulated ContentInfo { id-data }.
constexpr const char* kSignedDataOid = "06 09 2A 86 48 86 F7 0D 01 07 02";
constexpr const char* kIdDataInfo = "30 0B 06 09 2A 86 48 86 F7 0D 01 07 01";
// Version 3 + digest SET 2 + content info 13 + signer SET 2 = 20 in 30 14; A0 16; 11 + 24 = 35 in 30 23.
const std::string kEmptyContainer =
    std::string("30 23 ") + kSignedDataOid + " A0 16 30 14 02 01 01 31 00 " + kIdDataInfo + " 31 00";

// A container handle that is closed at the end of the test.
struct Container {
  P72Container* h = nullptr;
  Container() { EXPECT_EQ(ZARV_CreateP72Container(&h), ZARV_OK); }
  ~Container() { ZARV_CloseP72Container(h); }
  std::string encode() const {
    Bytes out;
    EXPECT_EQ(ZARV_EncodeP72(h, &out), ZARV_OK);
    return toHex(out);
  }
};

TEST(ZarvContainer, EmptyContainerStoresItsDefaultsAndWipesTheOutVector) {
  Container c;
  // A null out vector is refused before the defaults are built.
  EXPECT_EQ(ZARV_EncodeP72(c.h, nullptr), ZARV_E_BAD_PARAMETER);
  EXPECT_TRUE(c.h->versionBytes.empty() && c.h->contentInfo.empty());
  // A larger vector keeps its storage, and what lay behind the new end is zero, not the old bytes.
  Bytes out(100, 0xEE);
  const unsigned char* storage = out.data();
  ASSERT_EQ(ZARV_EncodeP72(c.h, &out), ZARV_OK);
  EXPECT_EQ(toHex(out), toHex(hex(kEmptyContainer)));
  ASSERT_EQ(out.data(), storage);
  for (size_t i = out.size(); i < 100; ++i) ASSERT_EQ(storage[i], 0) << i;
  // Both defaults stay in the record, so a content type set now is ignored.
  EXPECT_EQ(ZARV_SetContentTypeOID(c.h, hex(kIdTstInfo)), ZARV_OK);
  EXPECT_EQ(c.encode(), toHex(hex(kEmptyContainer)));
}

TEST(ZarvContainer, ContentTypeIsTakenAsZeroTerminatedText) {
  // 2.5.4.0 loses its last octet; a leading zero leaves nothing, and no id-data default either.
  const std::pair<const char*, std::string> cases[] = {
      {kIdTstInfo, std::string("30 0D ") + kIdTstInfo}, {"06 03 55 04 00", "30 04 06 03 55 04"},
      {"00 06 01 01", "30 00"}};
  for (const auto& [contentType, contentInfo] : cases) {
    Container c;
    EXPECT_EQ(ZARV_SetContentTypeOID(c.h, hex(contentType)), ZARV_OK);
    c.encode();
    EXPECT_EQ(toHex(c.h->contentInfo), toHex(hex(contentInfo))) << contentType;
  }
}

TEST(ZarvContainer, DigestAlgorithmsAreKeptOnceInUnsignedByteOrder) {
  // SHA-256 after its proper prefix, 7F before 81 00 (a signed-char comparison would put 81 first). Each as
  // SEQUENCE { OID, NULL }: 11, 14, 15, 7, 8 bytes in SET 31 37; 3 + 57 + 13 + 2 = 75 in 30 4B; A0 4D;
  // 11 + 79 = 90 in 30 5A (also from genconf, the SET written as IMPLICIT:17U,SEQUENCE to keep the order).
  Container c;
  for (const char* oid : {"81 00", "60 86 48 01 65 03 04 02 01", "2B 0E 03 02 1A", "7F",
                          "60 86 48 01 65 03 04 02 01", "60 86 48 01 65 03 04 02", "81 00"})
    EXPECT_EQ(ZARV_AddDigestAlgorithm(c.h, hex(oid)), ZARV_OK);
  EXPECT_EQ(c.encode(), toHex(hex(std::string("30 5A ") + kSignedDataOid + " A0 4D 30 4B 02 01 01 31 37 "
                                  "30 09 06 05 2B 0E 03 02 1A 05 00 30 0C 06 08 60 86 48 01 65 03 04 02 05 00 "
                                  "30 0D 06 09 60 86 48 01 65 03 04 02 01 05 00 30 05 06 01 7F 05 00 "
                                  "30 06 06 02 81 00 05 00 " + kIdDataInfo + " 31 00")));
}

TEST(ZarvContainer, PiecesKeepTheOrderAddedAndCrlsAreWrittenWithoutAVersionSet) {
  // [0] A0 06 04 01 C2 04 01 C1; [1] A1 06 ...; SET 31 06 ... (not sorted).
  // SignedData 3 + 2 + 13 + 8 + 8 + 8 = 42 in 30 2A; A0 2C; 11 + 46 = 57 in 30 39.
  Container c;
  for (const char* piece : {"04 01 C2", "04 01 C1"}) EXPECT_EQ(ZARV_AddCertificate(c.h, hex(piece)), ZARV_OK);
  for (const char* piece : {"04 01 D2", "04 01 D1"}) EXPECT_EQ(ZARV_AddCRL(c.h, hex(piece)), ZARV_OK);
  for (const char* piece : {"04 01 E2", "04 01 E1"}) EXPECT_EQ(ZARV_AddSignerInfo(c.h, hex(piece)), ZARV_OK);
  EXPECT_EQ(c.encode(), toHex(hex(std::string("30 39 ") + kSignedDataOid + " A0 2C 30 2A 02 01 01 31 00 " +
                                  kIdDataInfo + " A0 06 04 01 C2 04 01 C1 A1 06 04 01 D2 04 01 D1 "
                                  "31 06 04 01 E2 04 01 E1")));
}

TEST(ZarvContainer, PiecesOverSeveralBlocksAndALargeContentInfoComeOutWhole) {
  // Twenty certificates of 4 + 400 = 404 octets fill more than the first block: 8080 in A0 82 1F 90. The
  // attached content info, SEQUENCE { id-data, [0] { OCTET STRING of 300 } }: 304, 308, 11 + 308 = 319 in
  // 30 82 01 3F. SignedData 3 + 2 + 323 + 8084 + 5 = 8417 in 30 82 20 E1; A0 82 20 E5; 11 + 8425 = 8436.
  std::string certificates;
  Container c;
  for (int i = 0; i < 20; ++i) {
    const Bytes piece = hex("04 82 01 90 " + toHex(Bytes(400, static_cast<unsigned char>(i))));
    certificates += toHex(piece);
    ASSERT_EQ(ZARV_AddCertificate(c.h, piece), ZARV_OK);
  }
  const std::string contentInfo = "30 82 01 3F 06 09 2A 86 48 86 F7 0D 01 07 01 A0 82 01 34 04 82 01 2C " +
                                  toHex(Bytes(300, 0xC7));
  ASSERT_EQ(ZARV_SetContentInfo(c.h, hex(contentInfo)), ZARV_OK);
  ASSERT_EQ(ZARV_AddSignerInfo(c.h, hex("04 01 E1")), ZARV_OK);
  EXPECT_EQ(c.encode(), toHex(hex(std::string("30 82 20 F4 ") + kSignedDataOid + " A0 82 20 E5 30 82 20 E1 " +
                                  "02 01 01 31 00 " + contentInfo + " A0 82 1F 90 " + certificates +
                                  " 31 03 04 01 E1")));
}

TEST(ZarvContainer, ResetLeavesVersionOneWithoutBytesSoNoVersionIsWritten) {
  Container c;
  EXPECT_EQ(ZARV_SetVersion(c.h, hex("02 01 03")), ZARV_OK);
  EXPECT_EQ(ZARV_SetContentTypeOID(c.h, hex(kIdTstInfo)), ZARV_OK);
  EXPECT_EQ(ZARV_AddDigestAlgorithm(c.h, hex("2B 0E 03 02 1A")), ZARV_OK);
  EXPECT_EQ(ZARV_AddCertificate(c.h, hex("04 01 C1")), ZARV_OK);
  c.encode();
  EXPECT_EQ(ZARV_ResetP72Container(c.h), ZARV_OK);
  // Everything is gone, the content type included; CRLs are still written. SignedData 2 + 13 + 5 + 2 = 22
  // in 30 16; A0 18; 11 + 26 = 37 in 30 25.
  EXPECT_EQ(ZARV_AddCRL(c.h, hex("04 01 D1")), ZARV_OK);
  const std::string reset = std::string("30 25 ") + kSignedDataOid + " A0 18 30 16 31 00 " + kIdDataInfo +
                            " A1 03 04 01 D1 31 00";
  EXPECT_EQ(c.encode(), toHex(hex(reset)));
  EXPECT_EQ(c.encode(), toHex(hex(reset)));  // the reset state survives an encoding
}

TEST(ZarvContainer, SetVersionKeepsTheBytesAndCountsOnlyOneToFourOctets) {
  // DER, result, number stored (-1: the record is unchanged, version 3 as set before).
  const struct { const char* der; uint32_t result; int32_t number; } cases[] = {
      // 255: no sign extension; 0 means "not set", and the default replaces the bytes; 02 00: the reader's code.
      {"02 01 FF", ZARV_OK, 255}, {"02 02 00 03", ZARV_OK, 3}, {"02 04 7F FF FF FF", ZARV_OK, 0x7FFFFFFF},
      {"02 01 00", ZARV_OK, 0}, {"02 05 00 00 00 00 03", ZARV_OK, 0}, {"", ZARV_E_NOT_STORED, -1},
      {"04 01 03", ZARV_E_NOT_STORED, -1}, {"02 03 01", ZARV_E_NOT_STORED, -1}, {"02", ZARV_E_NOT_STORED, -1},
      {"02 00", ZARV_E_BAD_PARAMETER, -1}};
  for (const auto& k : cases) {
    SCOPED_TRACE(k.der);
    Container c;
    ASSERT_EQ(ZARV_SetVersion(c.h, hex("02 01 03")), ZARV_OK);
    EXPECT_EQ(ZARV_SetVersion(c.h, hex(k.der)), k.result);
    EXPECT_EQ(c.h->versionNumber, k.number < 0 ? 3 : k.number);
    EXPECT_EQ(toHex(c.h->versionBytes), toHex(hex(k.number < 0 ? "02 01 03" : k.der)));
    // The version follows the SEQUENCE header at offset 17 (all lengths here are short).
    const std::string written = k.number == 0 ? "020101" : toHex(hex(k.number < 0 ? "02 01 03" : k.der));
    EXPECT_EQ(c.encode().substr(34, written.size()), written);
  }
}

}  // namespace
