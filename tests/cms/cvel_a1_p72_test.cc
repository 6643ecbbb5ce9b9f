// The signedData object: real DER messages of other software encode back to their own bytes (their counts are
// held against openssl by tests/interop/contents.sh); the lenient and failing shapes; CRLs that are read but
// not written. Large content left in the input, and the size query that stops the process: see cvel_p71_test.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "cms/cvel_a1_p72.h"
#include "support/test_util.h"

namespace {

using testutil::Bytes;
using testutil::hex;
using testutil::toHex;

// The signedData object reads its own first element.
CvelResult decodeBytes(const Bytes& bytes, CvelA1P72& p72) { return testutil::decodeFirst(bytes, p72, false); }

TEST(CvelA1P72, DerMessagesOfOtherSoftwareEncodeBackToTheirBytes) {
  // DER without CRLs, so our encoding must give their very bytes; except that content of a type other than
  // id-data is written back as a SEQUENCE: the time-stamp token's TSTInfo OCTET STRING at offset 60
  // (openssl asn1parse) comes back with the tag 30.
  constexpr size_t kSame = 0;
  const std::pair<const char*, size_t> cases[] = {{"asn1crypto/cms-signed.der", kSame},
                                                  {"asn1crypto/pkcs7-signed.der", kSame},
                                                  {"asn1crypto/mozilla-generated-by-openssl.pkcs7.der", kSame},
                                                  {"tsp/plain.tst", 60}};
  for (const auto& [name, retagged] : cases) {
    Bytes expected = testutil::readFile(testutil::dataPath(name));
    CvelA1P72 p72;
    CvelString out;
    ASSERT_EQ(decodeBytes(expected, p72), kCvelOk) << name;
    ASSERT_EQ(p72.encode(out, false), kCvelOk) << name;
    if (retagged != kSame) expected[retagged] = 0x30;
    EXPECT_EQ(toHex(out), toHex(expected)) << name;
  }
}

TEST(CvelA1P72, IndefiniteLengthsNeedTheirEndOfContents) {
  const Bytes file = testutil::readFile(testutil::dataPath("asn1crypto/cms-signed-indefinite-length.der"));
  ASSERT_EQ(file.size(), 59507u);  // the element and one byte after it
  CvelA1P72 whole;
  ASSERT_EQ(decodeBytes(file, whole), kCvelOk);
  EXPECT_EQ(whole.contentInfo().contentLength(), 57310);
  // 59500, 59502 and 59504 close the SignedData, the [0] and the ContentInfo (openssl asn1parse).
  for (size_t at : {59500u, 59502u, 59504u}) {
    Bytes broken = file;
    broken[at] = 0x05;  // a NULL where the end-of-contents belongs
    CvelA1P72 p72;
    EXPECT_EQ(decodeBytes(broken, p72), kCvelErrMalformed) << at;
  }
}

TEST(CvelA1P72, WrongTagsStopQuietlyAndBrokenMembersFail) {
  // SEQUENCE { signedData, [0] { SEQUENCE { version, digests, content info, ... } } }.
  auto signedData = [](const std::string& rest) {
    const std::string inner = testutil::tlv("30", "020101" "310B300906052B0E03021A0500" + rest);
    return testutil::tlv("30", "06092A864886F70D010702" + testutil::tlv("A0", inner));
  };
  const std::string detached = "300B06092A864886F70D010701";
  struct Row { const char* name; std::string hex; CvelResult result; uint32_t digestLength; };
  const Row rows[] = {
      {"nothing to read", "", CvelA1P72::kUnreadable, 0},
      {"not a SEQUENCE", "0403616263", kCvelOk, 0},
      {"enveloped data", "300B06092A864886F70D010703", kCvelOk, 0},
      {"version not an INTEGER", "3016 06092A864886F70D010702 A009 3007 0401FF 3100 3100", kCvelOk, 0},
      {"the same, all indefinite", "3080 06092A864886F70D010702 A080 3080 0401FF 0000 0000 0000", kCvelOk, 0},
      {"stops after the digest algorithms", signedData("0400"), kCvelOk, 11},
      {"no signer infos: stops", signedData(detached + "0400"), kCvelOk, 11},
      {"SET runs out", signedData(detached), kCvelErrMalformed, 11},
      {"a certificate that does not parse", signedData(detached + "A0033001FF3100"), kCvelErrMalformed, 11},
      {"empty signer infos", signedData(detached + "3100"), kCvelOk, 11},
      {"empty signer infos of indefinite length", signedData(detached + "31800000"), kCvelOk, 11},
      {"the same, all indefinite",
       "3080 06092A864886F70D010702 A080 3080 020101 3100 300B06092A864886F70D010701 31800000 0000 0000 0000", kCvelOk,
       0},
      {"broken signer info", signedData(detached + "31023000"), kCvelErrMalformed, 11},
  };
  for (const Row& row : rows) {
    CvelA1P72 p72;
    EXPECT_EQ(decodeBytes(hex(row.hex), p72), row.result) << row.name;
    EXPECT_EQ(p72.digestAlgorithms().length(), row.digestLength) << row.name;
    EXPECT_EQ(p72.signerInfos().size(), 0u) << row.name;
  }
}

TEST(CvelA1P72, CrlsAreReadButNotWrittenBack) {
  // openssl writes the same degenerate signedData with and without the CRL; ours drops the CRL on encoding.
  const std::string dir = ::testing::TempDir();
  const std::string crl = testutil::dataPath("asn1crypto/eid2011.crl");
  ASSERT_EQ(testutil::run("openssl crl2pkcs7 -inform DER -in " + crl + " -outform DER -out " + dir + "/with.p7 && "
                          "openssl crl2pkcs7 -nocrl -outform DER -out " + dir + "/without.p7"),
            0);
  CvelA1P72 p72;
  ASSERT_EQ(decodeBytes(testutil::readFile(dir + "/with.p7"), p72), kCvelOk);
  CvelCRL* read = nullptr;
  ASSERT_EQ(p72.crls().size(), 1u);
  ASSERT_EQ(p72.crls().get(0, read), kCvelOk);
  EXPECT_EQ(toHex(read->encoded()), toHex(testutil::readFile(crl)));
  CvelString out;
  ASSERT_EQ(p72.encode(out, false), kCvelOk);
  EXPECT_EQ(toHex(out), toHex(testutil::readFile(dir + "/without.p7")));
}

}  // namespace
