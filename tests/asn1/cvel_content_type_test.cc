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
  EXPECT_EQ(s.assign(bytes.data(), static_cast<uint32_t>(bytes.size())), kCvelOk);
  CvelDataStream stream(&s);
  uint32_t type = 0;
  EXPECT_EQ(stream.detectType(&type), kCvelOk);
  return type;
}

testutil::Bytes bytesOf(const std::string& text) { return testutil::Bytes(text.begin(), text.end()); }

testutil::Bytes concat(testutil::Bytes a, const testutil::Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(CvelDataStreamDetect, NamesTheRefinedKindsOfRealFiles) {
  // Files made by other software (see tests/data); detect.sh names the common kinds through the tool, and
  // fuzz_detect_type holds the file and memory paths to agree.
  const std::pair<std::string, uint32_t> cases[] = {
      {"detect/timestamp-token.der", kCvelContentTimeStampToken},
      {"detect/detached.p7", kCvelContentDetachedSignedData},
      {"asn1crypto/mozilla-generated-by-openssl.pkcs7.der", kCvelContentDetachedSignedData},
      {"asn1crypto/cms-signed-indefinite-length.der", kCvelContentPkcs7SignedData},
      {"detect/sae116.der", kCvelContentPkcs7SignedAndEnvelopedData},
      {"detect/env119.der", kCvelContentEnvelopedSignedData},
      {"detect/env119-originator.der", kCvelContentEnvelopedSignedData}};
  for (const auto& [name, expected] : cases) {
    EXPECT_EQ(detectBuffer(testutil::readFile(testutil::dataPath(name))), expected) << name;
  }
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

TEST(CvelDataStreamDetect, RefinesSignedAndEnvelopedDataByTheirEncapsulatedContent) {
  // ContentInfo { signedData or envelopedData, [0] { SEQUENCE { INTEGER, SET or [0] SET, <tail> } } }, all
  // of indefinite length; the tail decides. The cursor is not limited to the encapsulated SEQUENCE, so an
  // empty one is followed by the element after it.
  const std::string signedHead = "30 80 06 09 2A 86 48 86 F7 0D 01 07 02 A0 80 30 80 02 01 01 31 00 ";
  const std::string envelopedHead = "30 80 06 09 2A 86 48 86 F7 0D 01 07 03 A0 80 30 80 02 01 00 ";
  const std::string tstInfoOid = "06 0B 2A 86 48 86 F7 0D 01 09 10 01 04 ";
  const std::pair<std::string, uint32_t> cases[] = {
      {signedHead + "30 0D " + tstInfoOid, kCvelContentTimeStampToken},
      {signedHead + "30 0F " + tstInfoOid + "A0 00", kCvelContentTimeStampToken},
      {signedHead + "30 0B 06 09 2A 86 48 86 F7 0D 01 07 01", kCvelContentDetachedSignedData},
      {signedHead + "30 0F 06 09 2A 86 48 86 F7 0D 01 07 01 A0 02 04 00", kCvelContentPkcs7SignedData},
      {signedHead + "30 03 02 01 00", kCvelContentUnknown},  // no OID first
      {signedHead + "30 00 A0 02 04 00", kCvelContentUnknown},
      {signedHead + "30 00 " + tstInfoOid, kCvelContentTimeStampToken},
      {signedHead + "31 00", kCvelContentPkcs7SignedData},  // a wrong tag on the way changes nothing
      {envelopedHead + "31 00 30 0B 06 09 2A 86 48 86 F7 0D 01 07 02", kCvelContentEnvelopedSignedData},
      {envelopedHead + "A0 00 31 00 30 0B 06 09 2A 86 48 86 F7 0D 01 07 02", kCvelContentEnvelopedSignedData},
      {envelopedHead + "31 00 30 00 06 09 2A 86 48 86 F7 0D 01 07 02", kCvelContentEnvelopedSignedData},
      {envelopedHead + "31 00 30 0B 06 09 2A 86 48 86 F7 0D 01 07 01", kCvelContentPkcs7EnvelopedData}};
  for (const auto& [der, expected] : cases) EXPECT_EQ(detectBuffer(testutil::hex(der)), expected) << der;
}

}  // namespace
