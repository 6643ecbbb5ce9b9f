#include "x509/cvel_certificate.h"

#include <cstring>

#include <gtest/gtest.h>

#include "asn1/cvel_oid.h"
#include "support/test_util.h"

namespace {

using namespace testutil;
using C = CvelCertificate;

// Bytes or text into a certificate.
template <typename T> CvelResult parse(C& c, const T& b) { return c.parse(b.data(), static_cast<uint32_t>(b.size())); }
Bytes file(const char* name) { return readFile(dataPath(name)); }
Bytes cat(Bytes a, const Bytes& b) { a.insert(a.end(), b.begin(), b.end()); return a; }
// Hex of `n` bytes of a file from `from`, the positions taken from openssl asn1parse.
std::string at(const Bytes& f, long from, long n) { return toHex(Bytes(f.begin() + from, f.begin() + from + n)); }
// tag, 82 hi lo, content: every structure built here holds 256 bytes or more.
Bytes tlv(unsigned char tag, const Bytes& c) { return cat({tag, 0x82, uint8_t(c.size() >> 8), uint8_t(c.size())}, c); }
Bytes wrapped(const char* oidHex, const Bytes& certificate) { return tlv(0x30, cat(hex(oidHex), certificate)); }

TEST(CvelCertificate, SlicesOfAStructureWithUniqueIds) {
  const Bytes f = file("x509/unique-ids.der");
  C c;
  ASSERT_EQ(parse(c, f), kCvelOk);
  EXPECT_EQ(toHex(c.versionElement()), "A003020102");
  EXPECT_EQ(toHex(c.validity()) + toHex(c.subjectPublicKeyInfo()), at(f, 77, 34) + at(f, 139, 28));
  EXPECT_EQ(toHex(c.issuerUniqueId()) + toHex(c.subjectUniqueId()), "030300A1A2030400B1B2B3");  // contents
  EXPECT_EQ(toHex(c.extensionsElement()), at(f, 184, 19));
}

TEST(CvelCertificate, ParseOutcomes) {
  const Bytes root = file("x509/v1-self-signed.der"), ee = file("x509/ee-qc.der");
  const Bytes der = file("asn1crypto/test-der.crt"), pemFile = file("asn1crypto/test.crt");
  const std::string pem(pemFile.begin(), pemFile.end()), begin = "-----BEGIN CERTIFICATE-----";
  const size_t endAt = pem.find("-----END CERTIFICATE-----");
  const std::string body = pem.substr(begin.size() + 1, endAt - begin.size() - 1);
  std::string crlf;
  for (char ch : pem) crlf += ch == '\n' ? std::string("\r\n") : std::string(1, ch);
  auto text = [](const std::string& s) { return Bytes(s.begin(), s.end()); };
  auto changed = [](const char* name, size_t at, uint8_t was, uint8_t now) {
    Bytes f = file(name);
    EXPECT_EQ(f[at], was) << name;
    f[at] = now;
    return f;
  };
  const struct { const char* what; Bytes input; CvelResult result; uint8_t kind; int version; Bytes der; } cases[] = {
      {"PEM", text(pem), kCvelOk, C::kRoot, 3, der},
      {"CR LF", text(crlf), kCvelOk, C::kRoot, 3, der},
      {"lower", text("-----begin certificate-----" + body + "-----end certificate-----"), kCvelOk, C::kRoot, 3, der},
      {"text after the end marker", text(pem + "Trailing words\n"), kCvelOk, C::kRoot, 3, der},
      {"no end marker", text(pem.substr(0, endAt)), kCvelOk, C::kRoot, 3, der},
      {"bare base64 from M", text(body), kCvelOk, C::kRoot, 3, der},
      {"text before the marker", text("Certificate:\n" + pem), 0, C::kUnknown, 1, {}},
      {"base64 not from M", text("\n" + body), 0, C::kUnknown, 1, {}},
      {"marker alone", text(begin + "\n"), 0, C::kUnknown, 1, {}},
      {"nothing", {}, 0, C::kUnknown, 1, {}},
      // The primitive [1]/[2] that RFC 5280 writes are not taken, so they trail the key.
      {"primitive unique ids", file("x509/unique-ids-primitive.der"), 0, C::kUnknown, 3, {}},
      {"NULL after the extensions", file("x509/trailing-in-tbs.der"), 0, C::kUnknown, 3, {}},
      {"version no INTEGER", changed("x509/unique-ids.der", 8, 0x02, 0x04), 0, C::kRoot, 1, {}},  // both names empty
      {"key no SEQUENCE", changed("x509/v1-self-signed.der", 151, 0x30, 0x31), 0, C::kRoot, 1, {}},
      {"signature no BIT STRING", changed("x509/v1-self-signed.der", 328, 0x03, 0x04), 0, C::kUnknown, 1, {}},
      {"root wrapper", wrapped("06 07 02 82 06 01 0A 07 6A", ee), kCvelOk, C::kRoot, 3, ee},
      {"CA wrapper", wrapped("06 03 55 04 25", root), kCvelOk, C::kCaCertificate, 1, root},
      {"private wrapper", wrapped("06 07 02 82 06 01 0A 07 6B", root), kCvelOk, C::kSecondPrivateType, 1, root},
      {"user wrapper, self-issued", wrapped("06 03 55 04 24", root), kCvelOk, C::kUserCertificate, 1, root},
      {"unknown wrapper, self-issued", wrapped("06 03 2A 03 04", root), kCvelOk, C::kRoot, 1, root},
      // The attribute-certificate type sends even a public-key certificate down the attribute path, where its
      // serial 0x1234 is read as the version.
      {"attribute wrapper", wrapped("06 03 55 04 3A", root), 0, C::kAttributeCertificate, 0x1235, {}},
      {"wrapped SET", wrapped("06 03 55 04 24", cat({0x31}, Bytes(root.begin() + 1, root.end()))), 0,
       C::kUserCertificate, 1, {}},
      // SEQUENCE { [0] { TBSCertificate, algorithm, signature } }: the parse goes on inside [0].
      {"other first child", tlv(0x30, tlv(0xA0, Bytes(root.begin() + 4, root.end()))), kCvelOk, C::kRoot, 1, {}},
      {"attribute certificate, version 0", file("x509/ac-v1-base-id.der"), kCvelOk, C::kAttributeCertificate, 1, {}},
      {"attribute certificate, no version", file("x509/ac-v1-entity-name.der"), kCvelOk, C::kAttributeCertificate, 1,
       {}},
      // RFC 5755 writes the holder as a SEQUENCE: recognised as an attribute certificate, then refused.
      {"RFC 5755 attribute certificate", file("asn1crypto/example-attr-cert.der"), 0, C::kAttributeCertificate, 2,
       {}},
  };
  for (const auto& c : cases) {
    C cert;
    EXPECT_EQ(parse(cert, c.input), c.result) << c.what;
    EXPECT_EQ(cert.kind(), c.kind) << c.what;
    EXPECT_EQ(cert.version(), c.version) << c.what;
    EXPECT_TRUE(c.der.empty() || cert.encoded().equals(c.der.data(), static_cast<uint32_t>(c.der.size()))) << c.what;
  }
  for (size_t n = 0; n < ee.size(); ++n) EXPECT_EQ(C().parse(ee.data(), static_cast<uint32_t>(n)), 0u) << n;
}

// The validity times a certificate keeps: DER forms read in place (the century of a two-digit year from its
// first digit), other texts by the general reading, and a text that is no time leaves its fields cleared.
TEST(CvelCertificate, ValidityTimes) {
  struct Expected { int year, month, day, hour, minute, second, state; };
  const struct { const char* notBefore; Expected t; } cases[] = {
      {"261123023404Z", {2026, 11, 23, 2, 34, 4, CvelTime::kValid}},  // as the file holds it
      {"491231235959Z", {2049, 12, 31, 23, 59, 59, CvelTime::kValid}},
      {"500101000000Z", {1950, 1, 1, 0, 0, 0, CvelTime::kValid}},
      {"26112302+0100", {2026, 11, 23, 2, 0, 0, CvelTime::kValid}},  // offset cut off, missing digits zero
      {"26112302340AZ", {0, 0, 0, 0, 0, 0, CvelTime::kParsing}},
      {"2611230234045", {0, 0, 0, 0, 0, 0, CvelTime::kParsing}},  // thirteen digits, no Z
  };
  auto fields = [](const CvelTime& t) {
    return Expected{t.year(), t.month(), t.day(), t.hour(), t.minute(), t.second(), t.state()};
  };
  auto same = [](const Expected& a, const Expected& b) { return std::memcmp(&a, &b, sizeof a) == 0; };
  for (const auto& c : cases) {
    Bytes f = file("x509/v1-self-signed.der");  // notBefore UTCTime content at 77, 13 octets (asn1parse)
    std::memcpy(f.data() + 77, c.notBefore, 13);
    C cert;
    ASSERT_EQ(parse(cert, f), kCvelOk) << c.notBefore;
    EXPECT_TRUE(same(fields(cert.notBefore()), c.t)) << c.notBefore;
  }
}

// A time that does not decode leaves its field as the earlier parse set it, also when the earlier parse's
// times were never read before new bytes replaced its DER.
TEST(CvelCertificate, AnUndecodableTimeKeepsTheEarlierParsesValue) {
  const Bytes first = file("x509/v1-self-signed.der");
  Bytes second = first;
  std::memcpy(second.data() + 77, "500101000000Z", 13);
  second[90] = kTagSequence;  // notAfter's UTCTime tag (asn1parse: at 90, content at 92)
  C cert;
  ASSERT_EQ(parse(cert, first), kCvelOk);
  ASSERT_EQ(parse(cert, second), kCvelOk);
  C alone;
  ASSERT_EQ(parse(alone, first), kCvelOk);
  EXPECT_EQ(cert.notBefore().year(), 1950);
  EXPECT_EQ(cert.notAfter().state(), CvelTime::kValid);
  EXPECT_EQ(cert.notAfter().year(), alone.notAfter().year());
  EXPECT_EQ(cert.notAfter().second(), alone.notAfter().second());
}

TEST(CvelCertificate, ANewParseForgetsTheNamesAndExtensionsOfTheEarlierDer) {
  // Names and extensions view the certificate's own DER, which a new parse replaces: bytes that do not parse
  // leave none of them behind (under the sanitizer, a leftover view would read freed memory).
  const Bytes ee = file("x509/ee-qc.der");
  C c;
  ASSERT_EQ(parse(c, ee), kCvelOk);
  ASSERT_GT(c.issuerName().dname().size() * c.subjectName().dname().size() * c.extensions().size(), 0u);
  for (const Bytes& input : {hex("30 03 02 01 01"), hex("30 03 30 01 01")}) {
    EXPECT_EQ(parse(c, input), 0u);
    EXPECT_EQ(c.issuerName().dname().size() + c.subjectName().dname().size() + c.extensions().size(), 0u);
    EXPECT_TRUE(c.issuerName().dname().encoded().isEmpty() && c.subjectName().dname().encoded().isEmpty());
  }
  // Parsed again, the names hold the certificate's own bytes.
  ASSERT_EQ(parse(c, ee), kCvelOk);
  EXPECT_EQ(toHex(c.issuerName().dname().encoded()), toHex(c.issuer()));
  EXPECT_EQ(toHex(c.subjectName().dname().encoded()), toHex(c.subject()));
}

TEST(CvelCertificate, EndEntityLookups) {
  const Bytes f = file("x509/ee-qc.der");
  C c;
  ASSERT_EQ(parse(c, f), kCvelOk);
  CvelString oid, out;
  bool critical = false;
  assignHex(oid, "06 03 55 1D 0F");  // keyUsage: digitalSignature, nonRepudiation
  EXPECT_EQ(c.getExtension(oid, out, &critical, 0), kCvelOk);
  EXPECT_TRUE(critical);
  EXPECT_EQ(toHex(out), "0404030206C0");
  EXPECT_EQ(c.getIssuerSerial(out), kCvelOk);
  EXPECT_EQ(toHex(out), "304C" + at(f, 35, 66) + at(f, 13, 10));  // 66 + 10 = 0x4C

  // The extensions are there, but the lookup's count is held against the success code: policies and
  // statements stay empty, and the generation date (GeneralizedTime 20240101120000Z) is never read.
  for (int32_t id : {kOidCertificatePolicies, kOidQcStatements, kOidDateOfCertGeneration})
    EXPECT_EQ(c.extensions().countById(id, nullptr, 0), 1u) << id;
  EXPECT_EQ(c.policies().size() + c.qcStatements().size(), 0u);
  CvelTime date;
  EXPECT_EQ(c.getGenerationDate(date, -1), kCvelErrMalformed);
  EXPECT_EQ(date.state(), CvelTime::kNeverSet);
}

TEST(CvelCertificate, CopiesParseAgainAndAppendIdentifiersLastFirst) {
  C source;
  ASSERT_EQ(parse(source, wrapped("06 03 55 04 25", file("x509/ee-qc.der"))), kCvelOk);
  source.setFlag(7);
  for (const char* oid : {"1.2.3", "1.2.4", "1.2.5"}) ASSERT_EQ(source.oids().add(oid), kCvelOk);
  C copy(source);
  EXPECT_EQ(copy.kind(), C::kCaCertificate);
  EXPECT_EQ(toHex(copy.wrapperType()), "0603550425");
  EXPECT_NE(copy.encoded().data(), source.encoded().data());
  EXPECT_EQ(copy.tbs().data() - copy.encoded().data(), source.tbs().data() - source.encoded().data());
  EXPECT_EQ(copy.oids().indexOf("1.2.5"), 0);
  EXPECT_EQ(copy.oids().indexOf("1.2.3"), 2);

  // Appended to what the target holds; the first identifier it holds already ends the copy.
  C target, bad;
  ASSERT_EQ(target.oids().add("1.2.4"), kCvelOk);
  target = source;
  C& alias = target;
  target = alias;
  EXPECT_EQ(target.kind(), C::kCaCertificate);
  ASSERT_EQ(target.oids().size(), 2u);
  EXPECT_EQ(target.oids().indexOf("1.2.5"), 1);
  // A source that does not parse: the target takes its flag but keeps its own wrapper and identifiers.
  bad.setFlag(3);
  ASSERT_EQ(bad.oids().add("1.2.9"), kCvelOk);
  target = bad;
  EXPECT_EQ(target.flag(), 3);
  EXPECT_EQ(toHex(target.wrapperType()), "0603550425");
  EXPECT_EQ(target.oids().size(), 2u);
}

TEST(CvelCertificate, AttributeCertificates) {
  const Bytes f = file("x509/ac-v1-base-id.der");
  C c;
  ASSERT_EQ(parse(c, f), kCvelOk);
  EXPECT_EQ(toHex(c.issuerUniqueId()), "030300D1D2");
  // Attributes, then extensions, as one run of records; an attribute is not critical, its SET the value.
  EXPECT_EQ(toHex(c.extensionsElement()), at(f, 162, 56) + at(f, 227, 37));
  EXPECT_EQ(c.extensions().size(), 4u);
  CvelCertificateExtension* e = nullptr;
  ASSERT_EQ(c.extensions().get(0, e), kCvelOk);
  EXPECT_EQ(toHex(e->oid()) + toHex(e->value()), "0603550448" + at(f, 169, 26));
  EXPECT_FALSE(e->critical());
  CvelString issuer;  // the Name inside the single directoryName
  EXPECT_EQ(c.getIssuer(issuer), kCvelOk);
  EXPECT_EQ(toHex(issuer), at(f, 65, 40));
}

}  // namespace
