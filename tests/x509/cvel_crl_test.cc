// CRLs and revocation values: real CRLs (asn1crypto's eid2011.crl, one made by `openssl ca -gencrl`) held
// against what openssl reports of them, and RevocationValues whose encoding openssl's asn1parse takes apart.
#include "x509/cvel_crl.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/openssl_text.h"
#include "support/test_util.h"

namespace {

using namespace testutil;

// A minimal BasicOCSPResponse: responder by key, one good SingleResponse.
const std::string kTime = "180F" "32303234303130313132303030305A";  // 20240101120000Z
const std::string kBasic =
    tlv("30", tlv("30", tlv("A2", "0404AABBCCDD") + kTime + tlv("30", tlv("30", "3000" "8000" + kTime))) +
                  "300D06092A864886F70D01010B0500" "030200AB");

std::string revocationDir() {
  static const std::string dir = [] {
    // One folder per test process: ctest runs the tests that make it side by side.
    const std::string d = ::testing::TempDir() + "/kolvari_crl_revocation_" + std::to_string(getpid());
    EXPECT_EQ(run("bash " + dataPath("ocsp/make_revocation.sh") + " " + d), 0);
    return d;
  }();
  return dir;
}

uint32_t children(const CvelString& element) {
  CvelA1Context outer;
  if (outer.next(element) < 0) return 0;
  CvelA1Context c;
  c = outer;
  uint32_t n = 0;
  while (c.next(element) >= 0) ++n;
  return n;
}

TEST(CvelCRL, RealCrlsAgreeWithOpenssl) {
  for (const std::string& path : {dataPath("asn1crypto/eid2011.crl"), revocationDir() + "/crl.der"}) {
    const Bytes der = readFile(path);
    CvelCRL crl;
    ASSERT_EQ(crl.parse(der.data(), static_cast<uint32_t>(der.size())), kCvelOk) << path;
    auto openssl = [&](const std::string& arguments) {
      std::string out;
      EXPECT_EQ(run("openssl crl -inform DER -in " + path + " -noout " + arguments, &out), 0) << arguments;
      return out;
    };
    EXPECT_EQ("lastUpdate=" + opensslTime(crl.thisUpdate()) + "\nnextUpdate=" + opensslTime(crl.nextUpdate()) + "\n",
              openssl("-lastupdate -nextupdate"))
        << path;
    EXPECT_EQ(std::to_string(children(crl.revokedCertificates())) + "\n", openssl("-text | grep -c 'Serial Number:'"))
        << path;
    EXPECT_EQ(nameValues(crl.issuerName()), opensslNameValues(openssl("-issuer"))) << path;
  }
}

TEST(CvelCRL, MalformedListsAreRefused) {
  const std::string tbs = tlv("30", "300D06092A864886F70D01010B0500" + tlv("30", "") + "170D3234303130313132303030305A");
  const std::string tail = "300D06092A864886F70D01010B0500" "030200AB";
  const std::pair<std::string, CvelResult> cases[] = {
      {tlv("30", tbs + tail), kCvelOk},                                  // v1: no version, no nextUpdate
      {tlv("30", tbs + tail + "0500"), 0},                               // a fourth element
      {tlv("30", tbs + "300D06092A864886F70D01010B0500"), 0},            // no signature
      {tlv("30", tlv("30", "020101300D06092A864886F70D01010B0500" + tlv("30", "") + "0500") + tail), 0},  // no time
      {"", 0}, {"3000", 0}, {"0500", 0}};
  for (const auto& [hexDer, result] : cases) {
    const Bytes der = hex(hexDer);
    CvelCRL crl;
    EXPECT_EQ(crl.parse(der.data(), static_cast<uint32_t>(der.size())), result) << hexDer;
  }
}

TEST(CvelCRLs, FindByIssuer) {
  CvelString first, other, missing;
  assignHex(first, "300D310B300906035504030C024341");
  assignHex(other, "300D310B300906035504030C024342");
  assignHex(missing, "3100");
  CvelCRLs list;
  list.add(new CvelCRL());
  ASSERT_EQ(list.findByIssuer(first, CvelCRLs::kCreate, nullptr), kCvelErrBadParameter);
  CvelCRL *found = nullptr, *again = nullptr;
  ASSERT_EQ(list.findByIssuer(first, CvelCRLs::kCreate, &found), kCvelOk);  // none yet: made and appended
  ASSERT_EQ(list.size(), 2u);
  ASSERT_EQ(list.findByIssuer(first, 0, &again), kCvelOk);
  EXPECT_EQ(again, found);
  EXPECT_EQ(toHex(found->issuer()), toHex(first));
  EXPECT_EQ(list.findByIssuer(other, 0, &found), 0u);  // no match without the create flag
  EXPECT_EQ(found, nullptr);
  list.add(nullptr);
  EXPECT_EQ(list.findByIssuer(first, 0, &found), kCvelOk);  // met before the empty slot
  EXPECT_EQ(list.findByIssuer(missing, 0, &found), kCvelErrMalformed);
}

TEST(CvelEtsRevocationValues, EncodesBothModesByHand) {
  CvelEtsRevocationValues values;
  CvelString out;
  ASSERT_EQ(values.encode(out, CvelEtsRevocationValues::kModeAttribute), kCvelOk);
  EXPECT_EQ(toHex(out), "3011" "060B2A864886F70D0109100218" "31023000");
  ASSERT_EQ(values.encode(out, CvelEtsRevocationValues::kModeValue), kCvelOk);
  EXPECT_EQ(toHex(out), "31043002" "3000");  // mode 0: one SEQUENCE more
  CvelString der;
  assignHex(der, tlv("30", tlv("A2", tlv("30", "3000" "0500" "3100"))));  // [2] holding two SEQUENCEs around NULL
  ASSERT_EQ(values.decode(der), kCvelOk);
  ASSERT_EQ(values.otherValues().size(), 1u);  // only SEQUENCEs are values
  ASSERT_EQ(values.encode(out, CvelEtsRevocationValues::kModeValue), kCvelOk);
  EXPECT_EQ(toHex(out), "310A" "3008" "3006" "A204" "3002" "3000");
  CvelString target;  // the same bytes through a sink
  CvelA1OutputString sink(&target);
  ASSERT_EQ(values.encode(sink, CvelEtsRevocationValues::kModeValue), kCvelOk);
  EXPECT_EQ(toHex(target), toHex(out));
}

TEST(CvelEtsRevocationValues, DecodeResults) {
  const struct { std::string der; CvelResult result; uint32_t crls, ocsps, others; const char* why; } cases[] = {
      {"3000", kCvelOk, 0, 0, 0, "nothing revoked"},
      {tlv("30", tlv("A1", tlv("30", kBasic + "3003020105" + kBasic))), kCvelOk, 0, 2, 0,
       "only [1], the response that does not parse dropped"},
      {tlv("30", tlv("A0", tlv("30", "3000" "3000")) + tlv("A2", tlv("30", "3000"))), kCvelOk, 2, 0, 1,
       "[0] and [2]"},
      {tlv("30", tlv("A2", tlv("30", "3000")) + "0500"), 0, 0, 0, 1, "an element after [2]"},
      {tlv("30", tlv("A1", tlv("30", kBasic)) + tlv("A0", tlv("30", "3000"))), 0, 0, 1, 0, "[0] after [1]"},
      {tlv("30", tlv("A0", "0500")), 0, 0, 0, 0, "[0] without its SEQUENCE"},
      {"3100", 0, 0, 0, 0, "a SET"}, {"", 0, 0, 0, 0, "nothing"},
  };
  for (const auto& c : cases) {
    CvelString der;
    assignHex(der, c.der);
    CvelEtsRevocationValues values;
    EXPECT_EQ(values.decode(der), c.result) << c.why;
    EXPECT_EQ(values.crlValues().size(), c.crls) << c.why;
    EXPECT_EQ(values.ocspValues().size(), c.ocsps) << c.why;
    EXPECT_EQ(values.otherValues().size(), c.others) << c.why;
    EXPECT_EQ(values.state(), c.result == kCvelOk ? CvelEtsRevocationValues::kDecoded
                                                  : CvelEtsRevocationValues::kNotDecoded)
        << c.why;
  }
}

// Adds a copy of a whole element as a stored value.
void addTriple(CvelEtsRevocationValues::Triples& list, const Bytes& bytes) {
  CvelString der;
  CvelA1Context c;
  ASSERT_EQ(der.assign(bytes.data(), static_cast<uint32_t>(bytes.size())), kCvelOk);
  ASSERT_GE(c.next(der), 0);
  auto* triple = new CvelEtsRevocationValues::CvelEtsTriple();
  list.add(triple);
  ASSERT_EQ(triple->assign(der, c), kCvelOk);
}

TEST(CvelEtsRevocationValues, RealValuesSurviveEncodeAndDecode) {
  const std::string dir = revocationDir();
  CvelEtsRevocationValues values;
  std::vector<Bytes> inputs;  // every value in the order it must come out
  for (const std::string& path : {dir + "/crl.der", dataPath("asn1crypto/eid2011.crl")}) {
    inputs.push_back(readFile(path));
    addTriple(values.crlValues(), inputs.back());
  }
  for (const std::string& path : {dir + "/revoked.ocsp", dir + "/good.ocsp", dataPath("ocsp/pyhanko-ocsp.resp.der")}) {
    const Bytes full = readFile(path);
    CvelOCSPResponse whole;
    ASSERT_EQ(whole.parse(full.data(), static_cast<uint32_t>(full.size())), kCvelOk) << path;
    auto* basic = new CvelOCSPResponse();
    ASSERT_EQ(basic->parse(whole.basicResponse().data(), whole.basicResponse().length()), kCvelOk) << path;
    inputs.push_back(toBytes(whole.basicResponse()));
    values.ocspValues().add(basic);
  }
  inputs.push_back(hex("3006060128040100"));
  addTriple(values.otherValues(), inputs.back());

  CvelString encoded;
  ASSERT_EQ(values.encode(encoded, CvelEtsRevocationValues::kModeAttribute), kCvelOk);
  const std::string file = ::testing::TempDir() + "/kolvari_revocation_values.der";
  std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(encoded.data()), encoded.length());
  // openssl's view of the elements down to depth 5: the frame down to depth 4, then one element per value.
  std::string text;
  ASSERT_EQ(run("openssl asn1parse -inform DER -in " + file + " | sed -E 's/^ *([0-9]+):d=([0-9]+) +hl=([0-9]+) +"
                "l= *([0-9]+) +(cons|prim): +(.*[^ ]) *$/\\2 \\1 \\3 \\4 \\6/' | awk '$1 <= 5'",
                &text),
            0);
  std::istringstream lines(text);
  std::string frame, kind;
  std::vector<Bytes> outputs;
  uint32_t depth = 0, offset = 0, header = 0, length = 0;
  while (lines >> depth >> offset >> header >> length && std::getline(lines, kind)) {
    ASSERT_LE(offset + header + length, encoded.length());
    if (depth == 5) outputs.emplace_back(encoded.data() + offset, encoded.data() + offset + header + length);
    if (depth < 5) frame += std::to_string(depth) + kind + "\n";
  }
  EXPECT_EQ(frame,
            "0 SEQUENCE\n1 OBJECT            :id-smime-aa-ets-revocationValues\n1 SET\n2 SEQUENCE\n"
            "3 cont [ 0 ]\n4 SEQUENCE\n3 cont [ 1 ]\n4 SEQUENCE\n3 cont [ 2 ]\n4 SEQUENCE\n");
  ASSERT_EQ(outputs.size(), inputs.size());
  for (size_t i = 0; i < inputs.size(); ++i) EXPECT_TRUE(outputs[i] == inputs[i]) << "value " << i;
  // Decoding the attribute back is the property fuzz_revocation_values holds, on real values among its seeds.
}

}  // namespace
