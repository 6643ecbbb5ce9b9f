// The container handle API: defaults, ordering, the reset state, version handling, null arguments, and a
// container assembled from real certificates, CRLs and SignerInfos that the openssl command must accept.
//
// Expected encodings are worked out by hand from the DER rules; the longer ones were also produced with
// `openssl asn1parse -genconf` (the configuration is quoted where that was done).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

#include "api/p72_container.h"
#include "kolvari/zarv.h"
#include "support/test_util.h"

namespace {

using testutil::Bytes;
using testutil::hex;
using testutil::toHex;

// 1.2.840.113549.1.7.1 id-data and 1.2.840.113549.1.9.16.1.4 id-ct-TSTInfo as OBJECT IDENTIFIER elements.
constexpr const char* kIdData = "06 09 2A 86 48 86 F7 0D 01 07 01";
constexpr const char* kIdTstInfo = "06 0B 2A 86 48 86 F7 0D 01 09 10 01 04";

// An empty container after the two defaults:
//   encapsulated ContentInfo  30 0B <id-data, 11>                       13 bytes
//   version                   02 01 01                                  3
//   digest algorithms         31 00                                     2
//   signer infos              31 00                                     2
//   SignedData                30 14 (3 + 2 + 13 + 2 = 20 = 0x14)        22
//   explicit [0]              A0 16                                     24
//   ContentInfo               30 23 (11 + 24 = 35 = 0x23)               37
// openssl asn1parse -genconf with: asn1=SEQUENCE:ci / [ci] type=OID:1.2.840.113549.1.7.2,
// content=EXPLICIT:0,SEQUENCE:sd / [sd] version=INTEGER:1, digests=SET:empty, encap=SEQUENCE:encap,
// signers=SET:empty / [encap] type=OID:1.2.840.113549.1.7.1 gives the same 37 bytes.
constexpr const char* kEmptyContainer =
    "30 23 06 09 2A 86 48 86 F7 0D 01 07 02 A0 16 30 14 02 01 01 31 00 "
    "30 0B 06 09 2A 86 48 86 F7 0D 01 07 01 31 00";

// After a reset: the same without the version INTEGER: 30 11 (20 - 3 = 17), A0 13, 30 20 (11 + 21 = 32).
// The genconf above without its version line gives these 34 bytes.
constexpr const char* kResetContainer =
    "30 20 06 09 2A 86 48 86 F7 0D 01 07 02 A0 13 30 11 31 00 "
    "30 0B 06 09 2A 86 48 86 F7 0D 01 07 01 31 00";

// A container handle that is closed at the end of the test.
class Container {
 public:
  Container() { EXPECT_EQ(ZARV_CreateP72Container(&h_), ZARV_OK); }
  ~Container() { ZARV_CloseP72Container(h_); }
  Container(const Container&) = delete;
  Container& operator=(const Container&) = delete;

  P72Container* get() const { return h_; }
  P72Container& record() const { return *h_; }

  Bytes encode() const {
    Bytes out;
    EXPECT_EQ(ZARV_EncodeP72(h_, &out), ZARV_OK);
    return out;
  }

 private:
  P72Container* h_ = nullptr;
};

TEST(ZarvContainer, EmptyContainerEncodesWithBothDefaultsAndKeepsThem) {
  Container c;
  EXPECT_EQ(c.record().versionNumber, 0);
  EXPECT_EQ(toHex(c.encode()), toHex(hex(kEmptyContainer)));
  // The defaults stay in the record, and a second encoding gives the same bytes.
  EXPECT_EQ(c.record().versionNumber, 1);
  EXPECT_EQ(toHex(c.record().versionBytes), "020101");
  EXPECT_EQ(toHex(c.record().contentInfo), toHex(hex(std::string("30 0B ") + kIdData)));
  EXPECT_EQ(toHex(c.encode()), toHex(hex(kEmptyContainer)));
}

TEST(ZarvContainer, DigestAlgorithmsAreKeptOnceInUnsignedByteOrder) {
  // SHA-1 2B 0E 03 02 1A; SHA-256 60 86 48 01 65 03 04 02 01; its proper prefix 60 86 48 01 65 03 04 02
  // sorts before it. Each becomes SEQUENCE { OID, NULL }:
  //   30 09 06 05 <5> 05 00 (11), 30 0C 06 08 <8> 05 00 (14), 30 0D 06 09 <9> 05 00 (15); SET 31 28 (40).
  //   SignedData 3 + 42 + 13 + 2 = 60 = 0x3C; A0 3E; ContentInfo 11 + 64 = 75 = 0x4B.
  // Same bytes from genconf with digests=SET:digs holding SEQUENCEs of OID:1.3.14.3.2.26,
  // OID:2.16.840.1.101.3.4.2 and OID:2.16.840.1.101.3.4.2.1, each followed by p=NULL.
  Container c;
  for (const char* oid : {"60 86 48 01 65 03 04 02 01", "2B 0E 03 02 1A", "60 86 48 01 65 03 04 02 01",
                          "60 86 48 01 65 03 04 02"}) {
    EXPECT_EQ(ZARV_AddDigestAlgorithm(c.get(), hex(oid)), ZARV_OK);
  }
  EXPECT_EQ(c.record().digestAlgorithms.size(), 3u);
  EXPECT_EQ(toHex(c.encode()),
            toHex(hex("30 4B 06 09 2A 86 48 86 F7 0D 01 07 02 A0 3E 30 3C 02 01 01 "
                      "31 28 30 09 06 05 2B 0E 03 02 1A 05 00 "
                      "30 0C 06 08 60 86 48 01 65 03 04 02 05 00 "
                      "30 0D 06 09 60 86 48 01 65 03 04 02 01 05 00 "
                      "30 0B 06 09 2A 86 48 86 F7 0D 01 07 01 31 00")));
}

TEST(ZarvContainer, DigestAlgorithmOrderComparesBytesAsUnsigned) {
  // 0x80 sorts after 0x7F; a comparison of signed chars would put it first.
  //   SET 31 0E { 30 05 06 01 7F 05 00, 30 05 06 01 80 05 00 }; SignedData 3 + 16 + 13 + 2 = 34 = 0x22;
  //   A0 24; ContentInfo 11 + 38 = 49 = 0x31.
  Container c;
  EXPECT_EQ(ZARV_AddDigestAlgorithm(c.get(), hex("80")), ZARV_OK);
  EXPECT_EQ(ZARV_AddDigestAlgorithm(c.get(), hex("7F")), ZARV_OK);
  EXPECT_EQ(toHex(c.encode()),
            toHex(hex("30 31 06 09 2A 86 48 86 F7 0D 01 07 02 A0 24 30 22 02 01 01 "
                      "31 0E 30 05 06 01 7F 05 00 30 05 06 01 80 05 00 "
                      "30 0B 06 09 2A 86 48 86 F7 0D 01 07 01 31 00")));
}

TEST(ZarvContainer, CertificatesCrlsAndSignerInfosKeepTheOrderAddedAndCrlsAreWrittenWithoutAVersion) {
  // Pieces 04 01 xx, added "2" before "1". No version was set, yet the CRLs are written.
  //   [0] A0 06 04 01 C2 04 01 C1; [1] A1 06 04 01 D2 04 01 D1; SET 31 06 04 01 E2 04 01 E1 (not sorted)
  //   SignedData 3 + 2 + 13 + 8 + 8 + 8 = 42 = 0x2A; A0 2C; ContentInfo 11 + 46 = 57 = 0x39.
  // genconf with certs=IMPLICIT:0,SEQUENCE:certs, crls=IMPLICIT:1,SEQUENCE:crls and the signers as a
  // SEQUENCE (a SET would be sorted by openssl) gives the same bytes with 30 in place of the last SET tag.
  Container c;
  for (const char* piece : {"04 01 C2", "04 01 C1"}) EXPECT_EQ(ZARV_AddCertificate(c.get(), hex(piece)), ZARV_OK);
  for (const char* piece : {"04 01 D2", "04 01 D1"}) EXPECT_EQ(ZARV_AddCRL(c.get(), hex(piece)), ZARV_OK);
  for (const char* piece : {"04 01 E2", "04 01 E1"}) EXPECT_EQ(ZARV_AddSignerInfo(c.get(), hex(piece)), ZARV_OK);
  EXPECT_EQ(toHex(c.encode()),
            toHex(hex("30 39 06 09 2A 86 48 86 F7 0D 01 07 02 A0 2C 30 2A 02 01 01 31 00 "
                      "30 0B 06 09 2A 86 48 86 F7 0D 01 07 01 "
                      "A0 06 04 01 C2 04 01 C1 A1 06 04 01 D2 04 01 D1 31 06 04 01 E2 04 01 E1")));
}

TEST(ZarvContainer, ResetLeavesVersionOneWithoutBytesSoNoVersionIsWritten) {
  Container c;
  EXPECT_EQ(ZARV_SetVersion(c.get(), hex("02 01 03")), ZARV_OK);
  EXPECT_EQ(ZARV_SetContentTypeOID(c.get(), hex(kIdTstInfo)), ZARV_OK);
  EXPECT_EQ(ZARV_AddDigestAlgorithm(c.get(), hex("2B 0E 03 02 1A")), ZARV_OK);
  EXPECT_EQ(ZARV_AddCertificate(c.get(), hex("04 01 C1")), ZARV_OK);
  EXPECT_EQ(ZARV_AddCRL(c.get(), hex("04 01 D1")), ZARV_OK);
  EXPECT_EQ(ZARV_AddSignerInfo(c.get(), hex("04 01 E1")), ZARV_OK);
  c.encode();

  EXPECT_EQ(ZARV_ResetP72Container(c.get()), ZARV_OK);
  EXPECT_EQ(c.record().versionNumber, 1);
  EXPECT_TRUE(c.record().versionBytes.empty());
  // Everything else is gone, the content type included: the default content info is id-data again.
  EXPECT_EQ(toHex(c.encode()), toHex(hex(kResetContainer)));
  EXPECT_TRUE(c.record().versionBytes.empty());

  // CRLs are still written after a reset (version number 1).
  EXPECT_EQ(ZARV_AddCRL(c.get(), hex("04 01 D1")), ZARV_OK);
  // 30 11 + A1 03 04 01 D1 (5) = 30 16; A0 18; ContentInfo 11 + 26 = 37 = 0x25.
  EXPECT_EQ(toHex(c.encode()),
            toHex(hex("30 25 06 09 2A 86 48 86 F7 0D 01 07 02 A0 18 30 16 31 00 "
                      "30 0B 06 09 2A 86 48 86 F7 0D 01 07 01 A1 03 04 01 D1 31 00")));

  // Only SetVersion brings the version back.
  EXPECT_EQ(ZARV_ResetP72Container(c.get()), ZARV_OK);
  EXPECT_EQ(ZARV_SetVersion(c.get(), hex("02 01 03")), ZARV_OK);
  Bytes expected = hex(kEmptyContainer);
  expected[19] = 0x03;  // the version's value octet
  EXPECT_EQ(toHex(c.encode()), toHex(expected));
}

TEST(ZarvContainer, SetVersionStoresTheValueOfOneToFourOctetsAndTheBytesVerbatim) {
  struct Case {
    const char* der;
    int32_t number;
  };
  const Case cases[] = {
      {"02 01 03", 3},
      {"02 01 FF", 255},                 // no sign extension
      {"02 02 00 03", 3},                // not minimal, yet written as given
      {"02 02 01 00", 256},
      {"02 04 7F FF FF FF", 0x7FFFFFFF},
      {"02 01 00", 0},                   // zero means "not set"
      {"02 05 00 00 00 00 03", 0},       // more than four content octets
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(k.der);
    Container c;
    EXPECT_EQ(ZARV_SetVersion(c.get(), hex(k.der)), ZARV_OK);
    EXPECT_EQ(c.record().versionNumber, k.number);
    EXPECT_EQ(toHex(c.record().versionBytes), toHex(hex(k.der)));
    Bytes out = c.encode();
    if (k.number == 0) {
      // The default replaces the given bytes.
      EXPECT_EQ(toHex(out), toHex(hex(kEmptyContainer)));
      EXPECT_EQ(toHex(c.record().versionBytes), "020101");
    } else {
      // The version follows the SEQUENCE header at offset 17 (all lengths here are short).
      Bytes der = hex(k.der);
      ASSERT_GE(out.size(), 17 + der.size());
      EXPECT_EQ(toHex(Bytes(out.begin() + 17, out.begin() + 17 + static_cast<long>(der.size()))), toHex(der));
    }
  }
}

TEST(ZarvContainer, SetVersionWithBytesThatAreNoIntegerChangesNothing) {
  Container c;
  ASSERT_EQ(ZARV_SetVersion(c.get(), hex("02 01 03")), ZARV_OK);
  struct Case {
    const char* der;
    uint32_t result;
  };
  const Case cases[] = {
      {"", ZARV_E_NOT_STORED},           // nothing to read
      {"04 01 03", ZARV_E_NOT_STORED},   // another tag
      {"02 03 01", ZARV_E_NOT_STORED},   // content runs past the bytes
      {"02", ZARV_E_NOT_STORED},         // header cut off
      {"02 00", ZARV_E_BAD_PARAMETER},   // empty INTEGER: the reader's own code is passed on
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(k.der);
    EXPECT_EQ(ZARV_SetVersion(c.get(), hex(k.der)), k.result);
    EXPECT_EQ(c.record().versionNumber, 3);
    EXPECT_EQ(toHex(c.record().versionBytes), "020103");
  }
}

TEST(ZarvContainer, ContentTypeIsTakenAsZeroTerminatedTextAndOnlyForTheFirstEncoding) {
  {
    // 30 0D <id-ct-TSTInfo, 13 bytes>.
    Container c;
    EXPECT_EQ(ZARV_SetContentTypeOID(c.get(), hex(kIdTstInfo)), ZARV_OK);
    Bytes first = c.encode();
    EXPECT_EQ(toHex(c.record().contentInfo), toHex(hex(std::string("30 0D ") + kIdTstInfo)));
    // A content type set now is ignored: the content info built by the first encoding stays.
    EXPECT_EQ(ZARV_SetContentTypeOID(c.get(), hex(kIdData)), ZARV_OK);
    EXPECT_EQ(toHex(c.encode()), toHex(first));
  }
  {
    // 2.5.4.0 is 06 03 55 04 00: only the bytes before the 0x00 are used, giving 30 04 06 03 55 04.
    Container c;
    EXPECT_EQ(ZARV_SetContentTypeOID(c.get(), hex("06 03 55 04 00")), ZARV_OK);
    c.encode();
    EXPECT_EQ(toHex(c.record().contentInfo), "3004060355" "04");
  }
  {
    // A leading 0x00 leaves nothing of a non-empty content type: 30 00, not the id-data default.
    Container c;
    EXPECT_EQ(ZARV_SetContentTypeOID(c.get(), hex("00 06 01 01")), ZARV_OK);
    c.encode();
    EXPECT_EQ(toHex(c.record().contentInfo), "3000");
  }
}

TEST(ZarvContainer, ContentInfoIsWrittenVerbatimAndOverridesTheContentType) {
  // Attached empty data: SEQUENCE { id-data, [0] { OCTET STRING "" } } = 30 0F <11> A0 02 04 00.
  const std::string info = std::string("30 0F ") + kIdData + " A0 02 04 00";
  Container c;
  EXPECT_EQ(ZARV_SetContentTypeOID(c.get(), hex(kIdTstInfo)), ZARV_OK);
  EXPECT_EQ(ZARV_SetContentInfo(c.get(), hex(info)), ZARV_OK);
  // SignedData 3 + 2 + 17 + 2 = 24 = 0x18; A0 1A; ContentInfo 11 + 28 = 39 = 0x27.
  EXPECT_EQ(toHex(c.encode()), toHex(hex("30 27 06 09 2A 86 48 86 F7 0D 01 07 02 A0 1A 30 18 02 01 01 31 00 " +
                                         info + " 31 00")));
  EXPECT_EQ(toHex(c.record().contentInfo), toHex(hex(info)));
}

TEST(ZarvContainer, OutputVectorIsWipedThenSizedToTheResult) {
  Container c;
  // A larger vector: its storage is kept, and what lay behind the new end is zero, not the old bytes.
  Bytes out(100, 0xEE);
  const unsigned char* storage = out.data();
  ASSERT_EQ(ZARV_EncodeP72(c.get(), &out), ZARV_OK);
  EXPECT_EQ(toHex(out), toHex(hex(kEmptyContainer)));
  ASSERT_EQ(out.data(), storage);
  for (size_t i = out.size(); i < 100; ++i) ASSERT_EQ(storage[i], 0) << i;

  // A smaller vector grows to exactly the result.
  Bytes small(3, 0xEE);
  ASSERT_EQ(ZARV_EncodeP72(c.get(), &small), ZARV_OK);
  EXPECT_EQ(toHex(small), toHex(hex(kEmptyContainer)));
}

TEST(ZarvContainer, LongLengthsUseTheLongFormAtEveryLevel) {
  // One SignerInfo-sized piece of 65,541 bytes: 04 83 01 00 00 and 65,536 content octets.
  //   SET          31 83 01 00 05                content 65,541 = 0x010005
  //   SignedData   30 83 01 00 1C                content 3 + 2 + 13 + 5 + 65,541 = 65,564 = 0x01001C
  //   [0]          A0 83 01 00 21                content 5 + 65,564 = 65,569 = 0x010021
  //   ContentInfo  30 83 01 00 31                content 11 + 5 + 65,569 = 65,585 = 0x010031
  // and 128 content octets need two length octets (81 80) in the digest-algorithm SET:
  //   one OID of 121 octets: 06 79 <121> 05 00 = 125 in 30 7D (127), a second of 122 octets: 06 7A <122>
  //   05 00 = 126 in 30 7E (128) -> SET 31 81 FF (255 content octets, 258 in all); SignedData
  //   3 + 258 + 13 + 2 = 276 = 0x114 -> 30 82 01 14; [0] 280 = 0x118 -> A0 82 01 18; ContentInfo
  //   11 + 284 = 295 = 0x127 -> 30 82 01 27. The SET thus starts at 4 + 11 + 4 + 4 + 3 = 26.
  Bytes piece = hex("04 83 01 00 00");
  piece.resize(piece.size() + 65536, 0x5A);
  Container c;
  ASSERT_EQ(ZARV_AddSignerInfo(c.get(), piece), ZARV_OK);
  Bytes out = c.encode();
  ASSERT_EQ(out.size(), 5u + 65585u);
  EXPECT_EQ(toHex(Bytes(out.begin(), out.begin() + 16)), "3083010031" "06092A864886F70D010702");
  EXPECT_EQ(toHex(Bytes(out.begin() + 16, out.begin() + 26)), "A083010021" "308301001C");
  EXPECT_EQ(toHex(Bytes(out.begin() + 44, out.begin() + 49)), "3183010005");
  EXPECT_EQ(Bytes(out.begin() + 49, out.end()), piece);

  Container d;
  ASSERT_EQ(ZARV_AddDigestAlgorithm(d.get(), Bytes(121, 0x01)), ZARV_OK);
  ASSERT_EQ(ZARV_AddDigestAlgorithm(d.get(), Bytes(122, 0x01)), ZARV_OK);
  Bytes digests = d.encode();
  ASSERT_GE(digests.size(), 29u);
  EXPECT_EQ(toHex(Bytes(digests.begin() + 26, digests.begin() + 29)), "3181FF");
  EXPECT_EQ(toHex(Bytes(digests.begin(), digests.begin() + 4)), "30820127");
  EXPECT_EQ(toHex(Bytes(digests.begin() + 15, digests.begin() + 23)), "A0820118" "30820114");
}

TEST(ZarvContainer, NullHandleOrOutPointerIsRefusedAndChangesNothing) {
  const Bytes some = hex("02 01 03");
  Bytes out = hex("AA BB");
  EXPECT_EQ(ZARV_CreateP72Container(nullptr), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_SetVersion(nullptr, some), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_SetContentTypeOID(nullptr, some), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_SetContentInfo(nullptr, some), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_AddDigestAlgorithm(nullptr, some), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_AddCertificate(nullptr, some), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_AddCRL(nullptr, some), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_AddSignerInfo(nullptr, some), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_EncodeP72(nullptr, &out), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(toHex(out), "AABB");
  EXPECT_EQ(ZARV_ResetP72Container(nullptr), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(ZARV_CloseP72Container(nullptr), ZARV_E_BAD_PARAMETER);

  // A null out vector is refused before the defaults are built: a content type set afterwards still counts.
  Container c;
  EXPECT_EQ(ZARV_EncodeP72(c.get(), nullptr), ZARV_E_BAD_PARAMETER);
  EXPECT_EQ(c.record().versionNumber, 0);
  EXPECT_TRUE(c.record().versionBytes.empty());
  EXPECT_TRUE(c.record().contentInfo.empty());
}

TEST(ZarvContainer, InputVectorsAreCopied) {
  Container c;
  Bytes cert = hex("04 01 C1");
  Bytes oid = hex("2B 0E 03 02 1A");
  ASSERT_EQ(ZARV_AddCertificate(c.get(), cert), ZARV_OK);
  ASSERT_EQ(ZARV_AddDigestAlgorithm(c.get(), oid), ZARV_OK);
  cert.assign(cert.size(), 0);
  oid.assign(oid.size(), 0);
  EXPECT_EQ(toHex(c.record().certificates.front()), "0401C1");
  EXPECT_EQ(toHex(*c.record().digestAlgorithms.begin()), "2B0E03021A");
}

// ---- A realistic container, read back by the openssl command ----

Bytes slice(const Bytes& whole, size_t from, size_t count) {
  if (from > whole.size() || count > whole.size() - from) return {};
  return Bytes(whole.begin() + static_cast<long>(from), whole.begin() + static_cast<long>(from + count));
}

size_t countLines(const std::string& text, const std::string& prefix) {
  size_t n = 0;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find('\n', at);
    if (end == std::string::npos) end = text.size();
    if (text.compare(at, prefix.size(), prefix) == 0) ++n;
    at = end + 1;
  }
  return n;
}

class TempFile {
 public:
  TempFile() {
    char name[] = "/tmp/kolvari-p72-XXXXXX";
    int fd = mkstemp(name);
    if (fd >= 0) {
      close(fd);
      path_ = name;
    }
  }
  ~TempFile() {
    if (!path_.empty()) std::remove(path_.c_str());
  }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  const std::string& path() const { return path_; }
  bool write(const Bytes& bytes) const {
    FILE* f = std::fopen(path_.c_str(), "wb");
    if (f == nullptr) return false;
    bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    return std::fclose(f) == 0 && ok;
  }

 private:
  std::string path_;
};

TEST(ZarvContainer, RealPiecesGiveAContainerThatOpensslReads) {
  const char* certNames[] = {"p72/ISRG_Root_X1.der", "p72/ISRG_Root_X2.der", "p72/DigiCert_Global_Root_G2.der"};
  const char* crlNames[] = {"p72/crl-empty.der", "p72/crl-one-revoked.der"};
  // The SignerInfos of two real messages; `openssl asn1parse -inform DER -i` shows them as the one member
  // of the last SET: cms-signed.der at offset 1343 (hl=4 l=572), pkcs7-signed.der at 1344 (hl=4 l=698).
  const Bytes signer1 = slice(testutil::readFile(testutil::dataPath("asn1crypto/cms-signed.der")), 1343, 576);
  const Bytes signer2 = slice(testutil::readFile(testutil::dataPath("asn1crypto/pkcs7-signed.der")), 1344, 702);
  ASSERT_EQ(toHex(slice(signer1, 0, 5)), "3082023C02");
  ASSERT_EQ(toHex(slice(signer2, 0, 5)), "308202BA02");

  Container c;
  ASSERT_EQ(ZARV_SetVersion(c.get(), hex("02 01 01")), ZARV_OK);
  ASSERT_EQ(ZARV_AddDigestAlgorithm(c.get(), hex("60 86 48 01 65 03 04 02 01")), ZARV_OK);  // SHA-256
  ASSERT_EQ(ZARV_AddDigestAlgorithm(c.get(), hex("2B 0E 03 02 1A")), ZARV_OK);              // SHA-1
  size_t piecesLength = 0;
  for (const char* name : certNames) {
    Bytes der = testutil::readFile(testutil::dataPath(name));
    ASSERT_FALSE(der.empty()) << name;
    piecesLength += der.size();
    ASSERT_EQ(ZARV_AddCertificate(c.get(), der), ZARV_OK);
  }
  for (const char* name : crlNames) {
    Bytes der = testutil::readFile(testutil::dataPath(name));
    ASSERT_FALSE(der.empty()) << name;
    piecesLength += der.size();
    ASSERT_EQ(ZARV_AddCRL(c.get(), der), ZARV_OK);
  }
  ASSERT_EQ(ZARV_AddSignerInfo(c.get(), signer1), ZARV_OK);
  ASSERT_EQ(ZARV_AddSignerInfo(c.get(), signer2), ZARV_OK);
  piecesLength += signer1.size() + signer2.size();
  const Bytes out = c.encode();
  ASSERT_GT(out.size(), piecesLength);

  TempFile file;
  ASSERT_FALSE(file.path().empty());
  ASSERT_TRUE(file.write(out));

  // The element tree parses to the end, with every length consistent.
  std::string tree;
  ASSERT_EQ(testutil::run("openssl asn1parse -inform DER -in " + file.path() + " 2>&1", &tree), 0) << tree;
  EXPECT_EQ(tree.find("error"), std::string::npos) << tree;

  // CMS view: two digest algorithms, three certificates, two CRLs, two signer infos.
  std::string cms;
  ASSERT_EQ(testutil::run("openssl cms -cmsout -print -noout -inform DER -in " + file.path() + " 2>&1", &cms), 0)
      << cms;
  EXPECT_NE(cms.find("contentType: pkcs7-signedData (1.2.840.113549.1.7.2)"), std::string::npos);
  EXPECT_NE(cms.find("eContentType: pkcs7-data (1.2.840.113549.1.7.1)"), std::string::npos);
  EXPECT_EQ(countLines(cms, "        algorithm: sha1 (1.3.14.3.2.26)"), 1u) << cms;
  EXPECT_EQ(countLines(cms, "        algorithm: sha256 (2.16.840.1.101.3.4.2.1)"), 1u) << cms;
  EXPECT_EQ(countLines(cms, "      d.certificate: "), 3u) << cms;
  EXPECT_EQ(countLines(cms, "      d.crl: "), 2u) << cms;
  EXPECT_EQ(countLines(cms, "        d.issuerAndSerialNumber: "), 2u) << cms;

  // PKCS #7 view: the certificates and CRLs by subject and issuer, in the order added.
  std::string p7;
  ASSERT_EQ(testutil::run("openssl pkcs7 -print_certs -noout -inform DER -in " + file.path() + " 2>&1", &p7), 0)
      << p7;
  size_t x1 = p7.find("subject=C = US, O = Internet Security Research Group, CN = ISRG Root X1");
  size_t x2 = p7.find("subject=C = US, O = Internet Security Research Group, CN = ISRG Root X2");
  size_t g2 = p7.find("subject=C = US, O = DigiCert Inc, OU = www.digicert.com, CN = DigiCert Global Root G2");
  ASSERT_NE(x1, std::string::npos) << p7;
  ASSERT_NE(x2, std::string::npos) << p7;
  ASSERT_NE(g2, std::string::npos) << p7;
  EXPECT_LT(x1, x2);
  EXPECT_LT(x2, g2);
  EXPECT_EQ(countLines(p7, "Certificate Revocation List (CRL):"), 2u) << p7;
  EXPECT_EQ(countLines(p7, "        Issuer: CN = Kolvari Test CRL Issuer"), 2u) << p7;
  // The CRL without entries was added first.
  size_t none = p7.find("No Revoked Certificates.");
  size_t revoked = p7.find("Revoked Certificates:\n    Serial Number: 01");
  ASSERT_NE(none, std::string::npos) << p7;
  ASSERT_NE(revoked, std::string::npos) << p7;
  EXPECT_LT(none, revoked);
}

}  // namespace
