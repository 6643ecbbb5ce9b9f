// The signed attributes `kolvari inspect` decodes, each value built by hand from its ASN.1 (RFC 5652, RFC 2634,
// RFC 5035) and the expected JSON written from the same rules: a value that does not follow its grammar
// shows as null, never as a part of it.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "asn1/cvel_string.h"
#include "inspect/attribute_view.h"

namespace {

// One element in the short length form (all contents here are under 128 bytes).
std::string tlv(unsigned char tag, const std::string& content) {
  return std::string(1, static_cast<char>(tag)) + static_cast<char>(content.size()) + content;
}

const char kContentType[] = "1.2.840.113549.1.9.3";
const char kMessageDigest[] = "1.2.840.113549.1.9.4";
const char kSigningTime[] = "1.2.840.113549.1.9.5";
const char kSigningCertificate[] = "1.2.840.113549.1.9.16.2.12";
const char kSigningCertificateV2[] = "1.2.840.113549.1.9.16.2.47";

const std::string kIdData = tlv(0x06, "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x01");
const std::string kSha384 = tlv(0x30, tlv(0x06, "\x60\x86\x48\x01\x65\x03\x04\x02\x02"));
const std::string kHash = tlv(0x04, "\xAA\xBB");
// IssuerSerial: GeneralNames holding the directoryName CN=X, and serial number 5.
const std::string kIssuerSerial =
    tlv(0x30, tlv(0x30, tlv(0xA4, tlv(0x30, tlv(0x31, tlv(0x30, tlv(0x06, "\x55\x04\x03") + tlv(0x0C, "X")))))) +
                  tlv(0x02, "\x05"));

TEST(AttributeView, DecodesTheWellKnownAttributes) {
  const std::string hashOnlyV1 = R"([{"hashAlgorithm":{"oid":"1.3.14.3.2.26","name":"sha1"},"certHash":"AABB",)"
                                 R"("issuer":null,"serialNumber":null}])";
  const struct { const char *what, *type; std::string der; const char* json; } cases[] = {
      {"content type", kContentType, kIdData, R"({"oid":"1.2.840.113549.1.7.1","name":"data"})"},
      {"content type unnamed", kContentType, tlv(0x06, "\x2A\x03\x04"), R"({"oid":"1.2.3.4","name":null})"},
      {"content type not an OID", kContentType, tlv(0x04, ""), "null"},
      {"message digest", kMessageDigest, tlv(0x04, "\x01\x02\xFE"), R"("0102FE")"},
      {"message digest not an OCTET STRING", kMessageDigest, tlv(0x03, "\x00\x01"), "null"},
      {"UTCTime 49 is 2049", kSigningTime, tlv(0x17, "490101000000Z"), R"("20490101000000Z")"},
      {"UTCTime 50 is 1950", kSigningTime, tlv(0x17, "500101000000Z"), R"("19500101000000Z")"},
      {"GeneralizedTime", kSigningTime, tlv(0x18, "20240229120000Z"), R"("20240229120000Z")"},
      {"time as a string", kSigningTime, tlv(0x0C, "240101000000Z"), "null"},
      {"ESSCertID, hash only", kSigningCertificate, tlv(0x30, tlv(0x30, tlv(0x30, kHash))), hashOnlyV1.c_str()},
      {"ESSCertIDv2, default sha256, issuer and serial", kSigningCertificateV2,
       tlv(0x30, tlv(0x30, tlv(0x30, kHash + kIssuerSerial))),
       R"([{"hashAlgorithm":{"oid":"2.16.840.1.101.3.4.2.1","name":"sha256"},"certHash":"AABB",)"
       R"("issuer":"CN=X","serialNumber":"05"}])"},
      {"ESSCertIDv2, sha384 named", kSigningCertificateV2, tlv(0x30, tlv(0x30, tlv(0x30, kSha384 + kHash))),
       R"([{"hashAlgorithm":{"oid":"2.16.840.1.101.3.4.2.2","name":"sha384"},"certHash":"AABB",)"
       R"("issuer":null,"serialNumber":null}])"},
      {"ESSCertID with an element after IssuerSerial", kSigningCertificate,
       tlv(0x30, tlv(0x30, tlv(0x30, kHash + kIssuerSerial + tlv(0x05, "")))), "null"},
      {"ESSCertID without a hash", kSigningCertificate, tlv(0x30, tlv(0x30, tlv(0x30, ""))), "null"},
      {"policies after the certs", kSigningCertificate,
       tlv(0x30, tlv(0x30, tlv(0x30, kHash)) + tlv(0x30, "")), hashOnlyV1.c_str()},
      {"a third element", kSigningCertificate, tlv(0x30, tlv(0x30, tlv(0x30, kHash)) + tlv(0x30, "") + tlv(0x30, "")),
       "null"},
      {"another attribute", "1.2.840.113549.1.9.6", tlv(0x04, "\x01"), "null"},
  };
  for (const auto& c : cases) {
    CvelString value;
    ASSERT_EQ(value.assign(c.der.data(), static_cast<uint32_t>(c.der.size())), kCvelOk);
    EXPECT_EQ(decodedAttribute(c.type, value).toJson().dump(), c.json) << c.what;
  }
}

}  // namespace
