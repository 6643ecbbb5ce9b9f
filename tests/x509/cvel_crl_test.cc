// CRLs and revocation values: real CRLs (asn1crypto's eid2011.crl, one made by `openssl ca -gencrl`) held
// against what openssl reports of them, and RevocationValues whose encoding openssl's asn1parse takes apart.
#include "x509/cvel_crl.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_util.h"

namespace {

using namespace testutil;

// Elements of up to 255 content octets: tag and content in hex, the length counted here (81 nn above 127).
std::string tlv(const std::string& tag, const std::string& content) {
  const Bytes bytes = hex(content);
  EXPECT_LT(bytes.size(), 256u);
  const std::string length = toHex(Bytes{static_cast<unsigned char>(bytes.size())});
  return tag + (bytes.size() < 128 ? "" : "81") + length + toHex(bytes);
}

// A minimal BasicOCSPResponse: responder by key, one good SingleResponse.
const std::string kTime = "180F" "32303234303130313132303030305A";  // 20240101120000Z
const std::string kBasic =
    tlv("30", tlv("30", tlv("A2", "0404AABBCCDD") + kTime + tlv("30", tlv("30", "3000" "8000" + kTime))) +
                  "300D06092A864886F70D01010B0500" "030200AB");

std::string opensslTime(const CvelTime& t) {
  static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  if (t.month() < 1 || t.month() > 12) return "(no time)";
  char text[40];
  std::snprintf(text, sizeof text, "%s %2d %02d:%02d:%02d %d GMT", kMonths[t.month() - 1], t.day(), t.hour(),
                t.minute(), t.second(), t.year());
  return text;
}

std::string revocationDir() {
  static const std::string dir = [] {
    const std::string d = ::testing::TempDir() + "/kolvari_crl_revocation";
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
    // The issuer's attribute values, in order, as openssl prints them after each " = ".
    const std::string text = openssl("-issuer");
    std::string ours;
    for (uint32_t i = 0; i < crl.issuerName().size(); ++i) {
      CvelRDName* entry = nullptr;
      ASSERT_EQ(crl.issuerName().get(i, entry), kCvelOk);
      CvelA1Context c;
      CvelString value;
      c.next(entry->value());
      value.setView(entry->value(), &c);
      ours += std::string(reinterpret_cast<const char*>(value.data()), value.length()) + "|";
    }
    std::string theirs;
    for (size_t at = text.find(" = "); at != std::string::npos; at = text.find(" = ", at + 3)) {
      size_t end = text.find_first_of(",\n", at + 3);
      theirs += text.substr(at + 3, end - at - 3) + "|";
    }
    EXPECT_EQ(ours, theirs) << path;
  }
  // The CRL made here carries the authority key identifier and the CRL number, in that order.
  const Bytes der = readFile(revocationDir() + "/crl.der");
  CvelCRL crl;
  ASSERT_EQ(crl.parse(der.data(), static_cast<uint32_t>(der.size())), kCvelOk);
  std::string oids;
  CvelCertificateExtension* e = nullptr;
  for (uint32_t i = 0; i < crl.extensions().size() && crl.extensions().get(i, e) == kCvelOk; ++i) oids += toHex(e->oid());
  EXPECT_EQ(oids, "0603551D23" "0603551D14");
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
  CvelString first, second, other;
  assignHex(first, "3000");
  assignHex(second, "300D310B300906035504030C024341");
  assignHex(other, "300D310B300906035504030C024342");
  CvelCRLs list;
  for (CvelString* issuer : {&first, &second}) {
    CvelCRL* crl = new CvelCRL();
    ASSERT_EQ(crl->setIssuer(*issuer), kCvelOk);
    list.add(crl);
  }
  CvelCRL* found = nullptr;
  EXPECT_EQ(list.findByIssuer(second, 0, nullptr), kCvelErrBadParameter);
  ASSERT_EQ(list.findByIssuer(second, 0, &found), kCvelOk);
  EXPECT_EQ(toHex(found->issuer()), toHex(second));
  EXPECT_EQ(list.findByIssuer(other, 0, &found), 0u);  // no match without the create flag
  EXPECT_EQ(found, nullptr);
  ASSERT_EQ(list.findByIssuer(other, CvelCRLs::kCreate, &found), kCvelOk);  // made and appended
  EXPECT_EQ(list.size(), 3u);
  CvelCRL* again = nullptr;
  ASSERT_EQ(list.findByIssuer(other, 0, &again), kCvelOk);
  EXPECT_EQ(again, found);
  EXPECT_TRUE(found->encoded().isEmpty());
  list.add(nullptr);
  EXPECT_EQ(list.findByIssuer(second, 0, &found), kCvelOk);  // met before the empty slot
  CvelString missing;
  assignHex(missing, "3100");
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

// Adds a copy of a whole DER file as a stored value.
void addTriple(CvelEtsRevocationValues::Triples& list, const CvelString& der) {
  CvelA1Context c;
  ASSERT_GE(c.next(der), 0);
  auto* triple = new CvelEtsRevocationValues::CvelEtsTriple();
  ASSERT_EQ(triple->assign(der, c), kCvelOk);
  list.add(triple);
}

TEST(CvelEtsRevocationValues, RealValuesSurviveEncodeAndDecode) {
  const std::string dir = revocationDir();
  CvelEtsRevocationValues values;
  std::vector<Bytes> inputs;  // every value in the order it must come out
  for (const std::string& path : {dir + "/crl.der", dataPath("asn1crypto/eid2011.crl")}) {
    inputs.push_back(readFile(path));
    CvelString der;
    ASSERT_EQ(der.assign(inputs.back().data(), static_cast<uint32_t>(inputs.back().size())), kCvelOk);
    addTriple(values.crlValues(), der);
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
  CvelString other;
  assignHex(other, "3006060128040100");
  inputs.push_back(toBytes(other));
  addTriple(values.otherValues(), other);

  CvelString encoded;
  ASSERT_EQ(values.encode(encoded, CvelEtsRevocationValues::kModeAttribute), kCvelOk);
  const std::string file = ::testing::TempDir() + "/kolvari_revocation_values.der";
  {
    FILE* f = std::fopen(file.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(std::fwrite(encoded.data(), 1, encoded.length(), f), encoded.length());
    std::fclose(f);
  }
  // openssl's view of the elements down to depth 5: the frame down to depth 4, then one element per value.
  std::string text;
  ASSERT_EQ(run("openssl asn1parse -inform DER -in " + file, &text), 0);
  std::istringstream lines(text);
  std::string line, frame;
  std::vector<Bytes> outputs;
  uint32_t valuesOffset = 0;
  while (std::getline(lines, line)) {
    unsigned offset = 0, depth = 0, header = 0, length = 0;
    ASSERT_EQ(std::sscanf(line.c_str(), " %u:d=%u hl=%u l=%u", &offset, &depth, &header, &length), 4) << line;
    if (depth > 5) continue;
    if (depth == 5) {
      ASSERT_LE(offset + header + length, encoded.length());
      outputs.emplace_back(encoded.data() + offset, encoded.data() + offset + header + length);
      continue;
    }
    if (depth == 2) valuesOffset = offset;
    const size_t type = line.find(": ", line.find("l=")) + 2;
    std::string kind = line.substr(type);
    kind.erase(kind.find_last_not_of(' ') + 1);
    frame += std::to_string(depth) + " " + kind + "\n";
  }
  EXPECT_EQ(frame,
            "0 SEQUENCE\n1 OBJECT            :id-smime-aa-ets-revocationValues\n1 SET\n2 SEQUENCE\n"
            "3 cont [ 0 ]\n4 SEQUENCE\n3 cont [ 1 ]\n4 SEQUENCE\n3 cont [ 2 ]\n4 SEQUENCE\n");
  ASSERT_EQ(outputs.size(), inputs.size());
  for (size_t i = 0; i < inputs.size(); ++i) EXPECT_TRUE(outputs[i] == inputs[i]) << "value " << i;

  // The RevocationValues inside the attribute decodes to the same lists and encodes to the same bytes.
  CvelString inner;
  ASSERT_EQ(inner.setView(encoded, valuesOffset, encoded.length() - valuesOffset), kCvelOk);
  CvelEtsRevocationValues decoded;
  ASSERT_EQ(decoded.decode(inner), kCvelOk);
  EXPECT_EQ(decoded.crlValues().size(), 2u);
  EXPECT_EQ(decoded.ocspValues().size(), 3u);
  EXPECT_EQ(decoded.otherValues().size(), 1u);
  CvelString again;
  ASSERT_EQ(decoded.encode(again, CvelEtsRevocationValues::kModeAttribute), kCvelOk);
  EXPECT_TRUE(again.equals(encoded));
}

}  // namespace
