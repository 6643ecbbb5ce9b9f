// OCSP responses: real responses of other people's software and responses made by `openssl ocsp` are held
// against what `openssl ocsp -resp_text` reports for them; hand-made responses cover the grammar's branches.
#include "x509/cvel_ocsp_response.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <dirent.h>
#include <map>
#include <sstream>
#include <string>

#include "support/openssl_text.h"
#include "support/test_util.h"
#include "x509/cvel_dname.h"

namespace {

using namespace testutil;

std::string opensslTime(const CvelString& element) {
  CvelTime t;
  return t.decode(element, nullptr) == kCvelOk ? testutil::opensslTime(t) : "(no time)";
}

// The first value of every "Key: value" line of openssl's report, and the number of certificates it prints.
std::map<std::string, std::string> opensslReport(const std::string& derPath) {
  std::string text;
  EXPECT_EQ(run("openssl ocsp -respin " + derPath + " -resp_text -noverify 2>/dev/null | sed -E "
                "'s/^ *([A-Za-z ]+): (.*)$/\\1=\\2/; s/^-----BEGIN CERTIFICATE-----$/certificate=/'",
                &text),
            0);
  std::map<std::string, std::string> fields;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    fields.emplace(line.substr(0, equals), line.substr(equals + 1));
    if (line == "certificate=") fields["certificates"] += "+";
  }
  return fields;
}

// The responder: the key hash in hex as openssl prints it, or the attribute values of the name.
std::string responderText(const CvelOCSPResponse& r) {
  CvelA1Context c;
  CvelString hash;
  CvelDName name;
  if (r.responderByName()) return name.parse(r.responderId()) == kCvelOk ? nameValues(name) : "(no name)";
  if (c.next(r.responderId()) != 0x04 || hash.setView(r.responderId(), &c) != kCvelOk) return "(no key hash)";
  return toHex(hash);
}

std::string statusText(uint32_t tag) {
  switch (tag) {
    case CvelOCSPResponse::kStatusGood: return "good";
    case CvelOCSPResponse::kStatusRevokedConstructed: return "revoked";
    case CvelOCSPResponse::kStatusUnknown: return "unknown";
    default: return "(tag " + std::to_string(tag) + ")";
  }
}

// Parses the DER file and compares it with openssl's report of it.
void expectAgreesWithOpenssl(const std::string& derPath, CvelOCSPResponse& r) {
  const Bytes der = readFile(derPath);
  ASSERT_FALSE(der.empty()) << derPath;
  ASSERT_EQ(r.parse(der.data(), static_cast<uint32_t>(der.size())), kCvelOk) << derPath;
  auto report = opensslReport(derPath);
  EXPECT_EQ(report["OCSP Response Status"].substr(0, 10), "successful") << derPath;
  EXPECT_EQ(r.status(), 0) << derPath;
  EXPECT_EQ(toHex(r.responseType()), "06092B0601050507300101") << derPath;
  EXPECT_EQ(opensslTime(r.producedAt()), report["Produced At"]) << derPath;
  EXPECT_EQ(opensslTime(r.thisUpdate()), report["This Update"]) << derPath;
  EXPECT_EQ(statusText(r.certStatusTag()), report["Cert Status"]) << derPath;
  const std::string& responder = report["Responder Id"];
  EXPECT_EQ(responderText(r), r.responderByName() ? opensslNameValues(responder) : responder) << derPath;
  EXPECT_EQ(std::string(r.certificates().size(), '+'), report["certificates"]) << derPath;
  if (r.certStatusTag() == CvelOCSPResponse::kStatusRevokedConstructed) {
    EXPECT_EQ(opensslTime(r.revocationTimeElement()), report["Revocation Time"]) << derPath;
    char reason[8];
    std::snprintf(reason, sizeof reason, "(0x%x)", r.revocationReason());
    EXPECT_NE(report["Revocation Reason"].find(reason), std::string::npos) << derPath;
  }
}

TEST(CvelOCSPResponse, RealResponsesAgreeWithOpenssl) {
  const std::string work = ::testing::TempDir() + "/kolvari_ocsp_corpus.der";
  uint32_t checked = 0;
  const std::string folder = dataPath("ocsp/openssl");
  DIR* dir = opendir(folder.c_str());
  ASSERT_NE(dir, nullptr);
  while (dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name.size() < 5 || name.substr(name.size() - 4) != ".ors") continue;
    ASSERT_EQ(run("openssl base64 -d -in " + folder + "/" + name + " -out " + work), 0) << name;
    CvelOCSPResponse r;
    expectAgreesWithOpenssl(work, r);
    ++checked;
  }
  closedir(dir);
  EXPECT_EQ(checked, 36u);
  for (const std::string& file : {dataPath("ocsp/pyhanko-ocsp.resp.der"), dataPath("asn1crypto/ocsp_response")}) {
    CvelOCSPResponse r;
    expectAgreesWithOpenssl(file, r);
  }
}

TEST(CvelOCSPResponse, OpensslResponderStatusesTimesAndReason) {
  const std::string dir = ::testing::TempDir() + "/kolvari_revocation";
  ASSERT_EQ(run("bash " + dataPath("ocsp/make_revocation.sh") + " " + dir), 0);
  // Status, times and the reason (keyCompromise for the revoked one) are held against openssl's report.
  for (const char* name : {"good", "revoked", "unknown"}) {
    CvelOCSPResponse r;
    expectAgreesWithOpenssl(dir + "/" + name + ".ocsp", r);
    EXPECT_TRUE(r.responderByName()) << name;
    ASSERT_EQ(r.certificates().size(), 1u) << name;  // the responder's certificate
    EXPECT_EQ(toHex(r.certificates().get(0)->encoded()), toHex(readFile(dir + "/responder.der"))) << name;
  }
}

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
  }
}

}  // namespace
