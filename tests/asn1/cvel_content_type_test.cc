#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "asn1/cvel_data_stream.h"
#include "asn1/cvel_string.h"
#include "support/test_util.h"

namespace {

// The type of bytes held in memory.
uint32_t detectBuffer(const testutil::Bytes& bytes) {
  CvelString s;
  s.assign(bytes.data(), static_cast<uint32_t>(bytes.size()));
  CvelDataStream stream(&s);
  uint32_t type = 0;
  EXPECT_EQ(stream.detectType(&type), kCvelOk);
  return type;
}

uint32_t detectFile(const std::string& path) {
  CvelDataStream stream;
  EXPECT_EQ(stream.open(path.c_str(), CvelDataStream::kRead), kCvelOk) << path;
  uint32_t type = 0;
  EXPECT_EQ(stream.detectType(&type), kCvelOk) << path;
  return type;
}

testutil::Bytes bytesOf(const std::string& text) { return testutil::Bytes(text.begin(), text.end()); }

testutil::Bytes concat(testutil::Bytes a, const testutil::Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(CvelDataStreamDetect, NamesEveryTypeOfFilesMadeByOtherSoftware) {
  // Each file was made by openssl, zip, ghostscript or another project (see the READMEs of tests/data).
  const std::pair<std::string, uint32_t> cases[] = {
      {"asn1crypto/test-der.crt", kCvelContentUnknown},  // a certificate starts with no content-type OID
      {"detect/data.p7", kCvelContentPkcs7Data},
      {"asn1crypto/cms-signed.der", kCvelContentPkcs7SignedData},
      {"asn1crypto/cms-signed-indefinite-length.der", kCvelContentPkcs7SignedData},
      // An indefinite encapsulated content is not measured as 11 octets, even when it holds only the OID.
      {"asn1crypto/smime-signature-generated-by-thunderbird.p7s", kCvelContentPkcs7SignedData},
      {"asn1crypto/cms-enveloped.der", kCvelContentPkcs7EnvelopedData},
      {"detect/sae116.der", kCvelContentPkcs7SignedAndEnvelopedData},
      {"detect/digested.p7", kCvelContentPkcs7DigestedData},
      {"asn1crypto/cms-encrypted.der", kCvelContentPkcs7EncryptedData},  // outer length 81 80
      {"detect/env119.der", kCvelContentEnvelopedSignedData},
      {"detect/env119-originator.der", kCvelContentEnvelopedSignedData},
      {"asn1crypto/test.crt", kCvelContentPemCertificate},
      {"detect/crl.pem", kCvelContentPemCrl},
      {"asn1crypto/pkcs7-signed.pem", kCvelContentText},  // PEM of another kind is plain text
      {"asn1crypto/LICENSE", kCvelContentText},
      {"detect/archive.zip", kCvelContentZip},
      {"detect/page.tif", kCvelContentTiff},
      {"detect/page.pdf", kCvelContentPdf},
      {"detect/timestamp-token.der", kCvelContentTimeStampToken},
      {"detect/detached.p7", kCvelContentDetachedSignedData},
      {"asn1crypto/mozilla-generated-by-openssl.pkcs7.der", kCvelContentDetachedSignedData},
      // A short outer length (30 73) is not examined for an OID; a TimeStampResp is no ContentInfo.
      {"asn1crypto/cms-digested.der", kCvelContentUnknown},
      {"asn1crypto/tsp_response", kCvelContentUnknown}};
  for (const auto& [name, expected] : cases) {
    const std::string path = testutil::dataPath(name);
    EXPECT_EQ(detectFile(path), expected) << name;
    EXPECT_EQ(detectBuffer(testutil::readFile(path)), expected) << name << " in memory";
  }
  // The token inside the asn1crypto time-stamp response (after 30 82 02 C3 30 03 02 01 00).
  const testutil::Bytes response = testutil::readFile(testutil::dataPath("asn1crypto/tsp_response"));
  ASSERT_GT(response.size(), 9u);
  EXPECT_EQ(detectBuffer(testutil::Bytes(response.begin() + 9, response.end())), kCvelContentTimeStampToken);
}

TEST(CvelDataStreamDetect, DecidesFromTheLeadingBytesOnly) {
  const testutil::Bytes filler(20, 0xFF);
  const auto text = [](size_t n, char c) { return bytesOf(std::string(n, c)); };
  const std::pair<testutil::Bytes, uint32_t> cases[] = {
      {bytesOf("%PDF-1.7 twenty bytes"), kCvelContentPdf},  // 21 bytes
      {bytesOf("%PDF-1.7 twenty byte"), kCvelContentUnknown},  // 20 bytes are never classified
      {bytesOf("%PDX-1.7 looks like a PDF but is text"), kCvelContentText},
      {bytesOf("-----BEGIN CERTIFICATE-----\nMIIB"), kCvelContentPemCertificate},
      {bytesOf("-----begin certificate-----\nMIIB"), kCvelContentText},  // the begin line is case-sensitive
      {bytesOf("-----BEGIN X509 CRL-----\nMIIB"), kCvelContentPemCrl},
      {bytesOf("0 short-form length, and text"), kCvelContentText},
      {concat(testutil::hex("30 7F 06 09 2A 86 48 86 F7 0D 01 07 02 A0"), filler), kCvelContentUnknown},
      {concat(testutil::hex("30 80 06 09 2A 86 48 86 F7 0D 01 07 01 A0"), filler), kCvelContentPkcs7Data},
      {concat(testutil::hex("30 84 00 00 01 00 06 09 2A 86 48 86 F7 0D 01 07 06"), filler),
       kCvelContentPkcs7EncryptedData},
      {concat(testutil::hex("30 82 01 00 06 09 2A 86 48 86 F7 0D 01 07 07"), filler), kCvelContentUnknown},
      {concat(testutil::hex("30 85 00 00 00 01 00 06 09 2A 86 48 86 F7 0D 01 07 01"), filler), kCvelContentUnknown},
      // TIFF: "II" and 42 little-endian. 2A 80 is -42 in sign and magnitude, not 42 with its sign bit masked.
      // A big-endian TIFF starts with "M" and is first decoded as base64, which leaves no TIFF header.
      {concat(testutil::hex("49 49 2A 00"), filler), kCvelContentTiff},
      {concat(testutil::hex("49 49 2A 80"), filler), kCvelContentUnknown},
      {concat(testutil::hex("4D 4D 00 2A"), filler), kCvelContentUnknown},
      // Text: at least 0.8 x length text bytes, truncated (19 of 24 is enough); zero bytes count only in
      // the length; German letters of code page 437 and Latin-1 are text, other high bytes are not.
      {concat(text(20, 'a'), testutil::Bytes(5, 0x01)), kCvelContentText},
      {concat(text(19, 'a'), testutil::Bytes(6, 0x01)), kCvelContentUnknown},
      {concat(text(19, 'a'), testutil::Bytes(5, 0x01)), kCvelContentText},
      {concat(text(19, 'a'), testutil::Bytes(6, 0x00)), kCvelContentUnknown},
      {concat(text(18, 'a'), testutil::hex("E4 84 01 01 01 01 01")), kCvelContentText},
      {concat(text(18, 'a'), testutil::hex("E9 85 01 01 01 01 01")), kCvelContentUnknown}};
  for (const auto& [bytes, expected] : cases) {
    EXPECT_EQ(detectBuffer(bytes), expected) << testutil::toHex(bytes);
  }
}

TEST(CvelDataStreamDetect, RecognisesBase64OfPkcs7FromItsFirstTwentyCharacters) {
  // The body of a PEM PKCS7 made by openssl: "MIIH+gYJKoZIhvcNAQcCoII..." is base64 of 30 82 07 FA 06 09 ...
  const testutil::Bytes pem = testutil::readFile(testutil::dataPath("asn1crypto/pkcs7-signed.pem"));
  const std::string text(pem.begin(), pem.end());
  const size_t body = text.find('\n') + 1;
  ASSERT_EQ(text.compare(body, 2, "MI"), 0);
  EXPECT_EQ(detectBuffer(bytesOf(text.substr(body))), kCvelContentPkcs7SignedData);
}

}  // namespace
