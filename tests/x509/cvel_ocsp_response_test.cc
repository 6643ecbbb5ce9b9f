// OCSP responses: hand-made responses through the grammar's branches. Real responses are held against
// `openssl ocsp -resp_text` by tests/interop/contents.sh.
#include "x509/cvel_ocsp_response.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "support/test_util.h"

namespace {

using namespace testutil;

// Hand-made responses.
const std::string kTime = "180F" "32303234303130313132303030305A";       // GeneralizedTime 20240101120000Z
const std::string kRevokedAt = "180F" "32303233303630313030303030305A";  // 20230601000000Z
const std::string kSha256Rsa = tlv("30", "06092A864886F70D01010B 0500");
const std::string kByKey = tlv("A2", tlv("04", "AABBCCDD"));

std::string single(const std::string& status) { return tlv("30", "3000" + status + kTime); }
std::string basic(const std::string& responder, const std::string& singles, const std::string& after = "") {
  return tlv("30", tlv("30", responder + kTime + tlv("30", singles)) + kSha256Rsa + tlv("03", "00AB") + after);
}
std::string full(const std::string& basicDer) {
  return tlv("30", "0A0100" + tlv("A0", tlv("30", "06092B0601050507300101" + tlv("04", basicDer))));
}

TEST(CvelOCSPResponse, GrammarBranches) {
  const std::string good = single("8000");
  const std::string revokedWithReason = single(tlv("A1", kRevokedAt + tlv("A0", "0A0104")));
  const struct { std::string der; CvelResult result; uint32_t statusTag; uint8_t reason; const char* why; } cases[] = {
      {basic(kByKey, good), kCvelOk, 0x80, 0, "a bare BasicOCSPResponse"},
      {full(basic(kByKey, good)), kCvelOk, 0x80, 0, "a complete OCSPResponse"},
      {tlv("30", tlv("04", basic(kByKey, good))), kCvelOk, 0x80, 0, "an OCTET STRING around the basic response"},
      {tlv("30", "0A0103"), kCvelOk, 0, 0, "tryLater without responseBytes"},
      {tlv("30", "0A0100"), 0, 0, 0, "successful without responseBytes"},
      {tlv("30", "0A020003"), 0, 0, 0, "a status of two octets"},
      {tlv("30", "0A0100" + tlv("A0", tlv("30", "0500" + tlv("04", basic(kByKey, good))))), 0, 0, 0, "no OID"},
      {basic(kByKey, good + revokedWithReason), kCvelOk, 0x80, 0, "only the first SingleResponse counts"},
      {basic(kByKey, revokedWithReason), kCvelOk, 0xA1, 4, "revoked for superseded"},
      {basic(kByKey, single(tlv("A1", kRevokedAt))), kCvelOk, 0xA1, 0, "revoked without a reason"},
      {basic(kByKey, single(tlv("A1", kRevokedAt + tlv("A0", "0A020004")))), 0, 0xA1, 0, "a reason of two octets"},
      {basic(kByKey, single(tlv("A1", kRevokedAt + tlv("A0", "020104")))), 0, 0xA1, 0, "a reason not ENUMERATED"},
      {basic(kByKey, single("8100")), 0, 0x81, 0, "a primitive revoked status"},
      {basic(kByKey, single("A200")), kCvelOk, 0xA2, 0, "a constructed unknown status"},
      {basic(kByKey, single("8300")), 0, 0, 0, "a status tag of no CertStatus"},
      {basic(tlv("A3", tlv("04", "AA")), good), 0, 0, 0, "a responder tagged [3]"},
      {basic(tlv("A1", "3000"), good), kCvelOk, 0x80, 0, "a responder by name"},
      {basic(kByKey, good, tlv("A0", tlv("30", "3000"))), 0, 0, 0, "certs holding no certificate"},
      {basic(kByKey, good, tlv("A0", "3000")), kCvelOk, 0x80, 0, "certs empty"},
      {"", 0, 0, 0, "nothing"},
      {"3003020105", 0, 0, 0, "no BasicOCSPResponse"},
  };
  for (const auto& c : cases) {
    CvelOCSPResponse r;
    const Bytes der = hex(c.der);
    EXPECT_EQ(r.parse(der.data(), static_cast<uint32_t>(der.size())), c.result) << c.why;
    EXPECT_EQ(r.certStatusTag(), c.statusTag) << c.why;
    EXPECT_EQ(r.revocationReason(), c.reason) << c.why;
    // Every parsed response names a type, id-pkix-ocsp-basic when it carries none (an error response too).
    if (c.result == kCvelOk) {
      EXPECT_EQ(toHex(r.responseType()), "06092B0601050507300101") << c.why;
    }
  }
}

TEST(CvelOCSPResponse, UpdateTimesOfTheFirstSingleResponse) {
  const std::string next = "180F" "32303234303230313132303030305A";  // 20240201120000Z
  const Bytes der = hex(basic(kByKey, tlv("30", "3000" "8000" + kTime + tlv("A0", next))));
  CvelOCSPResponse r;
  ASSERT_EQ(r.parse(der.data(), static_cast<uint32_t>(der.size())), kCvelOk);
  // thisUpdate is the whole element, nextUpdate the content of its [0].
  EXPECT_EQ(std::make_pair(toHex(r.thisUpdate()), toHex(r.nextUpdate())),
            std::make_pair(toHex(hex(kTime)), toHex(hex(next))));
}

}  // namespace
