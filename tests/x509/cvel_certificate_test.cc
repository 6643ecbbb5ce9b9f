#include "x509/cvel_certificate.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "asn1/cvel_oid.h"
#include "support/test_util.h"

namespace {

using testutil::Bytes;
using testutil::dataPath;
using testutil::hex;
using testutil::readFile;
using testutil::toHex;

constexpr char kMozillaRoots[] = "/usr/share/ca-certificates/mozilla";

CvelResult parseBytes(CvelCertificate& c, const Bytes& bytes) {
  return c.parse(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

CvelResult parseText(CvelCertificate& c, const std::string& text) {
  return c.parse(text.data(), static_cast<uint32_t>(text.size()));
}

std::string readText(const std::string& path) {
  Bytes b = readFile(path);
  return std::string(b.begin(), b.end());
}

// Hex of `length` bytes of a file from `offset`, the positions taken from openssl asn1parse.
std::string at(const Bytes& file, size_t offset, size_t length) {
  return toHex(Bytes(file.begin() + static_cast<long>(offset), file.begin() + static_cast<long>(offset + length)));
}

// DER length octets, written out by the rules (short form, 81 n, 82 n n).
Bytes lengthOctets(size_t n) {
  if (n < 0x80) return {static_cast<unsigned char>(n)};
  if (n < 0x100) return {0x81, static_cast<unsigned char>(n)};
  return {0x82, static_cast<unsigned char>(n >> 8), static_cast<unsigned char>(n)};
}

Bytes element(unsigned char tag, const Bytes& content) {
  Bytes out{tag};
  Bytes length = lengthOctets(content.size());
  out.insert(out.end(), length.begin(), length.end());
  out.insert(out.end(), content.begin(), content.end());
  return out;
}

// SEQUENCE { type OID, certificate }.
Bytes wrapped(const std::string& oidHex, const Bytes& certificate) {
  Bytes content = hex(oidHex);
  content.insert(content.end(), certificate.begin(), certificate.end());
  return element(0x30, content);
}

// The content of the certificate's outer SEQUENCE (it has a two-octet long length).
Bytes outerContent(const Bytes& certificate) { return Bytes(certificate.begin() + 4, certificate.end()); }

std::string timeText(const CvelTime& t) {
  CvelString text;
  t.toText(text);
  return std::string(text.c_str(), text.length());
}

bool inside(const CvelString& slice, const CvelString& whole) {
  return slice.isEmpty() ||
         (slice.data() >= whole.data() && slice.data() + slice.length() <= whole.data() + whole.length());
}

TEST(CvelCertificate, EverySliceOfAStructureWithUniqueIds) {
  const Bytes file = readFile(dataPath("x509/unique-ids.der"));
  ASSERT_EQ(file.size(), 226u);
  CvelCertificate c;
  ASSERT_EQ(parseBytes(c, file), kCvelOk);
  EXPECT_EQ(c.kind(), CvelCertificate::kUnknown);
  EXPECT_EQ(c.version(), 3);
  EXPECT_EQ(toHex(c.encoded()), toHex(file));
  EXPECT_EQ(toHex(c.tbs()), at(file, 3, 200));
  EXPECT_EQ(toHex(c.signatureAlgorithm()), at(file, 203, 15));
  EXPECT_EQ(toHex(c.signatureValue()), "0102030405");
  EXPECT_EQ(toHex(c.versionElement()), "A003020102");
  EXPECT_EQ(toHex(c.serialNumber()), "02090123456789ABCDEF01");
  EXPECT_EQ(toHex(c.tbsSignatureAlgorithm()), at(file, 22, 15));
  EXPECT_EQ(toHex(c.issuer()), at(file, 37, 40));
  EXPECT_EQ(toHex(c.validity()), at(file, 77, 34));
  EXPECT_EQ(toHex(c.subject()), at(file, 111, 28));
  EXPECT_EQ(toHex(c.subjectPublicKeyInfo()), at(file, 139, 28));
  EXPECT_EQ(toHex(c.issuerUniqueId()), "030300A1A2");
  EXPECT_EQ(toHex(c.subjectUniqueId()), "030400B1B2B3");
  EXPECT_EQ(toHex(c.extensionsElement()), at(file, 184, 19));
  EXPECT_EQ(timeText(c.notBefore()), "20240101120000Z");
  EXPECT_EQ(timeText(c.notAfter()), "20491231235959Z");
  EXPECT_EQ(c.issuerName().form(), CvelCertificateIssuer::kName);
  EXPECT_EQ(c.issuerName().dname().size(), 2u);
  EXPECT_EQ(c.subjectName().form(), CvelCertificateSubject::kName);
  ASSERT_EQ(c.extensions().size(), 1u);
  CvelCertificateExtension* e = nullptr;
  ASSERT_EQ(c.extensions().get(0, e), kCvelOk);
  EXPECT_EQ(e->id(), kOidBasicConstraints);
  EXPECT_TRUE(e->critical());
  EXPECT_EQ(toHex(e->value()), "04053003010101");
}

TEST(CvelCertificate, StructuralFaultsAfterTheOuterPartsFail) {
  // Unique identifiers are taken only in their constructed [1] and [2] forms; the primitive forms that
  // RFC 5280 writes are then elements after the key, which nothing may follow.
  CvelCertificate primitive;
  EXPECT_EQ(parseBytes(primitive, readFile(dataPath("x509/unique-ids-primitive.der"))), 0u);
  CvelCertificate trailing;
  EXPECT_EQ(parseBytes(trailing, readFile(dataPath("x509/trailing-in-tbs.der"))), 0u);

  // The INTEGER inside [0] turned into an OCTET STRING: the version does not decode.
  Bytes file = readFile(dataPath("x509/unique-ids.der"));
  ASSERT_EQ(file[8], 0x02);
  file[8] = 0x04;
  CvelCertificate badVersion;
  EXPECT_EQ(parseBytes(badVersion, file), 0u);
}

TEST(CvelCertificate, VersionOneWithoutVersionField) {
  const Bytes file = readFile(dataPath("x509/v1-self-signed.der"));
  CvelCertificate c;
  ASSERT_EQ(parseBytes(c, file), kCvelOk);
  EXPECT_EQ(c.version(), 1);
  EXPECT_TRUE(c.versionElement().isEmpty());
  EXPECT_EQ(toHex(c.serialNumber()), "02021234");
  EXPECT_EQ(toHex(c.issuer()), at(file, 27, 46));
  EXPECT_EQ(c.extensions().size(), 0u);
  EXPECT_TRUE(c.extensionsElement().isEmpty());
  EXPECT_EQ(c.kind(), CvelCertificate::kRoot);
}

TEST(CvelCertificate, SelfSignedButNotSelfIssuedIsNoRoot) {
  CvelCertificate c;
  ASSERT_EQ(parseBytes(c, readFile(dataPath("asn1crypto/self-signed-repeated-subject-fields.der"))), kCvelOk);
  EXPECT_EQ(c.kind(), CvelCertificate::kUnknown);
  EXPECT_EQ(c.version(), 1);
  ASSERT_EQ(c.subjectName().dname().size(), 11u);
  CvelRDName* dc = nullptr;
  ASSERT_EQ(c.subjectName().dname().get(10, dc), kCvelOk);
  EXPECT_EQ(dc->typeId(), 1018);
  EXPECT_EQ(toHex(dc->value()), "1603746C64");
  EXPECT_EQ(c.issuerName().dname().size(), 7u);
}

TEST(CvelCertificate, RootKindIsDecidedAfterAFailureFromTheTbsOn) {
  Bytes file = readFile(dataPath("x509/v1-self-signed.der"));
  // The SubjectPublicKeyInfo SEQUENCE turned into a SET: the TBSCertificate fails after issuer and subject.
  ASSERT_EQ(file[151], 0x30);
  file[151] = 0x31;
  CvelCertificate late;
  EXPECT_EQ(parseBytes(late, file), 0u);
  EXPECT_EQ(late.kind(), CvelCertificate::kRoot);

  // The outer BIT STRING turned into an OCTET STRING: the parse ends before the kind is looked at.
  file = readFile(dataPath("x509/v1-self-signed.der"));
  ASSERT_EQ(file[328], 0x03);
  file[328] = 0x04;
  CvelCertificate early;
  EXPECT_EQ(parseBytes(early, file), 0u);
  EXPECT_EQ(early.kind(), CvelCertificate::kUnknown);
}

TEST(CvelCertificate, GeneratedEndEntityCertificate) {
  const Bytes file = readFile(dataPath("x509/ee-qc.der"));
  CvelCertificate c;
  ASSERT_EQ(parseBytes(c, file), kCvelOk);
  EXPECT_EQ(c.kind(), CvelCertificate::kUnknown);
  EXPECT_EQ(c.version(), 3);
  EXPECT_EQ(toHex(c.serialNumber()), "020800AB12CD34EF5678");
  EXPECT_EQ(toHex(c.issuer()), at(file, 35, 66));
  EXPECT_EQ(toHex(c.subject()), at(file, 133, 63));
  EXPECT_EQ(toHex(c.subjectPublicKeyInfo()), at(file, 196, 91));
  ASSERT_EQ(c.extensions().size(), 9u);

  // Deliberately, the policies and QC statements are not decoded by the parse.
  EXPECT_EQ(c.policies().size(), 0u);
  EXPECT_EQ(c.qcStatements().size(), 0u);

  // The issuer is the CA's subject, PrintableStrings with runs of two spaces included.
  CvelCertificate ca;
  ASSERT_EQ(parseBytes(ca, readFile(dataPath("x509/ca-printable.der"))), kCvelOk);
  EXPECT_EQ(ca.kind(), CvelCertificate::kRoot);
  EXPECT_EQ(c.issuerName().dname().equals(ca.subjectName().dname()), 1);
  EXPECT_EQ(c.subjectName().dname().equals(ca.subjectName().dname()), 0);
}

TEST(CvelCertificate, GetExtensionByOidBytes) {
  const Bytes file = readFile(dataPath("x509/ee-qc.der"));
  CvelCertificate c;
  ASSERT_EQ(parseBytes(c, file), kCvelOk);
  CvelString oid, value;
  bool critical = true;
  testutil::assignHex(oid, "06 03 55 1D 11");
  EXPECT_EQ(c.getExtension(oid, value, &critical, 0), kCvelOk);
  EXPECT_FALSE(critical);
  EXPECT_EQ(toHex(value), at(file, 361, 158));
  EXPECT_EQ(c.getExtension(oid, value, &critical, 1), kCvelErrIncomplete);

  testutil::assignHex(oid, "06 03 55 1D 0F");
  EXPECT_EQ(c.getExtension(oid, value, &critical, 0), kCvelOk);
  EXPECT_TRUE(critical);
  EXPECT_EQ(toHex(value), "0404030206C0");

  CvelCertificate empty;
  EXPECT_EQ(empty.getExtension(oid, value, &critical, 0), kCvelErrIncomplete);
}

TEST(CvelCertificate, GenerationDateAlwaysFails) {
  // ee-qc.der carries 1.3.36.8.3.1 with GeneralizedTime 20240101120000Z; the lookup's count is still held
  // against the success code, so the date is never read.
  CvelCertificate c;
  ASSERT_EQ(parseBytes(c, readFile(dataPath("x509/ee-qc.der"))), kCvelOk);
  ASSERT_EQ(c.extensions().countById(kOidDateOfCertGeneration, nullptr, 0), 1u);
  CvelTime date;
  EXPECT_EQ(c.getGenerationDate(date, -1), kCvelErrMalformed);
  EXPECT_EQ(c.getGenerationDate(date, 0), kCvelErrMalformed);
  EXPECT_EQ(date.state(), CvelTime::kNeverSet);
}

TEST(CvelCertificate, IssuerSerialIsASequenceOfTheTwoElements) {
  const Bytes file = readFile(dataPath("x509/ee-qc.der"));
  CvelCertificate c;
  ASSERT_EQ(parseBytes(c, file), kCvelOk);
  CvelString out;
  EXPECT_EQ(c.getIssuerSerial(out), kCvelOk);
  // 66 bytes of issuer and 10 of serial: content 76 (0x4C).
  EXPECT_EQ(toHex(out), "304C" + at(file, 35, 66) + at(file, 13, 10));
  EXPECT_EQ(c.getIssuer(out), kCvelOk);
  EXPECT_EQ(toHex(out), at(file, 35, 66));
}

TEST(CvelCertificate, PemArmourAndBase64) {
  const Bytes der = readFile(dataPath("asn1crypto/test-der.crt"));
  const std::string pem = readText(dataPath("asn1crypto/test.crt"));
  const std::string begin = "-----BEGIN CERTIFICATE-----";
  const std::string end = "-----END CERTIFICATE-----";
  ASSERT_EQ(pem.compare(0, begin.size(), begin), 0);
  const size_t endAt = pem.find(end);
  ASSERT_NE(endAt, std::string::npos);
  const std::string body = pem.substr(begin.size() + 1, endAt - begin.size() - 1);

  std::string crlf;
  for (char ch : pem) crlf += ch == '\n' ? std::string("\r\n") : std::string(1, ch);
  std::string lower = "-----begin certificate-----" + pem.substr(begin.size(), endAt - begin.size()) +
                      "-----end certificate-----\n";
  const std::string accepted[] = {
      pem,
      lower,
      crlf,
      pem.substr(0, endAt),              // no end marker
      pem + "Trailing words\n",          // whatever follows the end marker
      body,                              // bare base64 with its line breaks
  };
  for (const std::string& text : accepted) {
    CvelCertificate c;
    EXPECT_EQ(parseText(c, text), kCvelOk) << text.substr(0, 40);
    EXPECT_EQ(toHex(c.encoded()), toHex(der));
  }

  const std::string refused[] = {
      "Certificate:\n" + pem,  // the marker must stand at the very start
      " " + body,              // base64 that does not start with "M" is taken as DER
      "QUJDRA==",
      begin + "\n",
      "",
  };
  for (const std::string& text : refused) {
    CvelCertificate c;
    EXPECT_EQ(parseText(c, text), 0u) << text.substr(0, 40);
  }
}

TEST(CvelCertificate, WrapperKinds) {
  const Bytes root = readFile(dataPath("x509/v1-self-signed.der"));
  struct Case {
    const char* oid;
    uint8_t kind;
  } cases[] = {
      {"06 07 02 82 06 01 0A 07 6A", CvelCertificate::kRoot},
      {"06 03 55 04 25", CvelCertificate::kCaCertificate},
      {"06 07 02 82 06 01 0A 07 6B", CvelCertificate::kSecondPrivateType},
      // Kept although the certificate is self-issued.
      {"06 03 55 04 24", CvelCertificate::kUserCertificate},
      // No kind for an unknown type, so the self-issued certificate becomes a root.
      {"06 03 2A 03 04", CvelCertificate::kRoot},
  };
  for (const Case& w : cases) {
    CvelCertificate c;
    ASSERT_EQ(parseBytes(c, wrapped(w.oid, root)), kCvelOk) << w.oid;
    EXPECT_EQ(c.kind(), w.kind) << w.oid;
    EXPECT_EQ(toHex(c.wrapperType()), toHex(hex(w.oid)));
    EXPECT_EQ(toHex(c.encoded()), toHex(root));
    EXPECT_TRUE(inside(c.issuer(), c.encoded()));
  }
  // The attribute-certificate type sends even a public-key certificate down the attribute path.
  CvelCertificate attribute;
  EXPECT_EQ(parseBytes(attribute, wrapped("06 03 55 04 3A", root)), 0u);
  EXPECT_EQ(attribute.kind(), CvelCertificate::kAttributeCertificate);

  // The wrapped element must be a SEQUENCE.
  Bytes notSequence = root;
  notSequence[0] = 0x31;
  CvelCertificate bad;
  EXPECT_EQ(parseBytes(bad, wrapped("06 03 55 04 24", notSequence)), 0u);
}

TEST(CvelCertificate, WrapperFromBase64AndPem) {
  const Bytes root = readFile(dataPath("x509/v1-self-signed.der"));
  const Bytes w = wrapped("06 03 55 04 24", root);
  const std::string path = std::string(::testing::TempDir()) + "/kolvari-wrapped.der";
  {
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fwrite(w.data(), 1, w.size(), f);
    std::fclose(f);
  }
  std::string base64;
  ASSERT_EQ(testutil::run("openssl base64 -in " + path, &base64), 0);
  std::remove(path.c_str());
  CvelCertificate bare;
  ASSERT_EQ(parseText(bare, base64), kCvelOk);
  EXPECT_EQ(bare.kind(), CvelCertificate::kUserCertificate);
  CvelCertificate armoured;
  ASSERT_EQ(parseText(armoured, "-----BEGIN CERTIFICATE-----\n" + base64 + "-----END CERTIFICATE-----\n"), kCvelOk);
  EXPECT_EQ(toHex(armoured.encoded()), toHex(root));
}

TEST(CvelCertificate, OtherFirstChildIsEntered) {
  // SEQUENCE { [0] { TBSCertificate, AlgorithmIdentifier, BIT STRING } }: the parse goes on inside [0].
  const Bytes root = readFile(dataPath("x509/v1-self-signed.der"));
  CvelCertificate c;
  ASSERT_EQ(parseBytes(c, element(0x30, element(0xA0, outerContent(root)))), kCvelOk);
  EXPECT_EQ(c.version(), 1);
  EXPECT_TRUE(c.wrapperType().isEmpty());
  // A ContentInfo is a wrapper whose second element is no SEQUENCE.
  CvelCertificate contentInfo;
  EXPECT_EQ(parseBytes(contentInfo, readFile(dataPath("asn1crypto/cms-signed.der"))), 0u);
}

TEST(CvelCertificate, CopiesParseAgainAndAppendIdentifiersLastFirst) {
  CvelCertificate source;
  ASSERT_EQ(parseBytes(source, wrapped("06 03 55 04 25", readFile(dataPath("x509/ee-qc.der")))), kCvelOk);
  source.setFlag(7);
  ASSERT_EQ(source.oids().add("1.2.3"), kCvelOk);
  ASSERT_EQ(source.oids().add("1.2.4"), kCvelOk);
  ASSERT_EQ(source.oids().add("1.2.5"), kCvelOk);

  CvelCertificate copy(source);
  EXPECT_EQ(copy.kind(), CvelCertificate::kCaCertificate);
  EXPECT_EQ(copy.flag(), 7);
  EXPECT_EQ(toHex(copy.wrapperType()), "0603550425");
  EXPECT_EQ(toHex(copy.encoded()), toHex(source.encoded()));
  EXPECT_NE(copy.encoded().data(), source.encoded().data());
  EXPECT_TRUE(inside(copy.tbs(), copy.encoded()));
  EXPECT_TRUE(inside(copy.subject(), copy.encoded()));
  EXPECT_EQ(copy.extensions().size(), 9u);
  ASSERT_EQ(copy.oids().size(), 3u);
  EXPECT_EQ(copy.oids().indexOf("1.2.5"), 0);
  EXPECT_EQ(copy.oids().indexOf("1.2.3"), 2);

  // Appending stops at the first identifier the target holds already.
  CvelCertificate target;
  ASSERT_EQ(target.oids().add("1.2.4"), kCvelOk);
  target = source;
  ASSERT_EQ(target.oids().size(), 2u);
  EXPECT_EQ(target.oids().indexOf("1.2.4"), 0);
  EXPECT_EQ(target.oids().indexOf("1.2.5"), 1);
  EXPECT_EQ(target.kind(), CvelCertificate::kCaCertificate);

  CvelCertificate& alias = target;
  target = alias;
  EXPECT_EQ(target.oids().size(), 2u);
  EXPECT_EQ(target.kind(), CvelCertificate::kCaCertificate);
}

TEST(CvelCertificate, CopyOfWhatDoesNotParseKeepsTheTargetsOwnMembers) {
  CvelCertificate target;
  ASSERT_EQ(parseBytes(target, wrapped("06 03 55 04 24", readFile(dataPath("x509/v1-self-signed.der")))), kCvelOk);
  ASSERT_EQ(target.oids().add("1.2.3"), kCvelOk);
  CvelCertificate source;
  source.setFlag(3);
  source.oids().add("1.2.9");
  EXPECT_EQ(parseText(source, "not a certificate"), 0u);
  target = source;
  EXPECT_EQ(target.flag(), 3);
  EXPECT_EQ(target.version(), 1);
  EXPECT_EQ(toHex(target.wrapperType()), "0603550424");
  ASSERT_EQ(target.oids().size(), 1u);
  EXPECT_EQ(target.oids().indexOf("1.2.3"), 0);
}

TEST(CvelCertificate, AttributeCertificateWithBaseCertificateId) {
  const Bytes file = readFile(dataPath("x509/ac-v1-base-id.der"));
  CvelCertificate c;
  ASSERT_EQ(parseBytes(c, file), kCvelOk);
  EXPECT_EQ(c.kind(), CvelCertificate::kAttributeCertificate);
  // Version INTEGER 0 is version 1.
  EXPECT_EQ(c.version(), 1);
  EXPECT_EQ(toHex(c.versionElement()), "020100");
  EXPECT_EQ(toHex(c.subject()), at(file, 11, 50));
  EXPECT_EQ(toHex(c.issuer()), at(file, 61, 44));
  EXPECT_EQ(toHex(c.serialNumber()), "02021001");
  EXPECT_EQ(toHex(c.validity()), at(file, 124, 36));
  EXPECT_EQ(timeText(c.notAfter()), "20341231235959Z");
  EXPECT_EQ(toHex(c.issuerUniqueId()), "030300D1D2");
  // Attributes and extensions side by side, as records.
  EXPECT_EQ(toHex(c.extensionsElement()), at(file, 162, 56) + at(file, 227, 37));
  ASSERT_EQ(c.extensions().size(), 4u);
  CvelCertificateExtension* e = nullptr;
  ASSERT_EQ(c.extensions().get(0, e), kCvelOk);
  EXPECT_EQ(toHex(e->oid()), "0603550448");
  EXPECT_EQ(toHex(e->value()), at(file, 169, 26));
  EXPECT_FALSE(e->critical());
  ASSERT_EQ(c.extensions().get(3, e), kCvelOk);
  EXPECT_EQ(e->id(), kOidCertificatePolicies);
  EXPECT_EQ(c.policies().size(), 0u);

  EXPECT_EQ(c.subjectName().form(), CvelCertificateSubject::kBaseCertificateId);
  EXPECT_EQ(toHex(c.subjectName().baseCertificateId().serial()), "020142");
  EXPECT_EQ(toHex(c.subjectName().baseCertificateId().issuerUid()), "00C1C2");
  EXPECT_EQ(c.issuerName().form(), CvelCertificateIssuer::kGeneralNames);
  // The issuer is the Name inside its single directoryName.
  CvelString issuer;
  EXPECT_EQ(c.getIssuer(issuer), kCvelOk);
  EXPECT_EQ(toHex(issuer), at(file, 65, 40));
}

TEST(CvelCertificate, AttributeCertificateWithEntityName) {
  const Bytes file = readFile(dataPath("x509/ac-v1-entity-name.der"));
  CvelCertificate c;
  ASSERT_EQ(parseBytes(c, file), kCvelOk);
  EXPECT_EQ(c.kind(), CvelCertificate::kAttributeCertificate);
  EXPECT_EQ(c.version(), 1);
  EXPECT_TRUE(c.versionElement().isEmpty());
  EXPECT_EQ(c.subjectName().form(), CvelCertificateSubject::kGeneralNames);
  EXPECT_EQ(c.issuerName().generalNames().size(), 2u);
  EXPECT_EQ(c.extensions().size(), 1u);
  EXPECT_EQ(toHex(c.serialNumber()), "02017F");
  // Two issuer names: no single Name to give.
  CvelString issuer;
  EXPECT_EQ(c.getIssuer(issuer), 0u);
}

TEST(CvelCertificate, HolderSequenceOfVersionTwoAttributeCertificatesIsNotTaken) {
  // RFC 5755 writes the holder as a SEQUENCE and the issuer as [0] V2Form; the structure is recognised as
  // an attribute certificate, whose holder must be [0] or [1].
  CvelCertificate c;
  EXPECT_EQ(parseBytes(c, readFile(dataPath("asn1crypto/example-attr-cert.der"))), 0u);
  EXPECT_EQ(c.kind(), CvelCertificate::kAttributeCertificate);
  EXPECT_EQ(c.version(), 2);
}

TEST(CvelCertificate, QcStatementCertificate) {
  CvelCertificate c;
  ASSERT_EQ(parseBytes(c, readFile(dataPath("asn1crypto/rfc3739.crt"))), kCvelOk);
  EXPECT_EQ(c.extensions().size(), 5u);
  EXPECT_EQ(c.extensions().countById(kOidQcStatements, nullptr, 0), 1u);
  EXPECT_EQ(c.qcStatements().size(), 0u);
  ASSERT_EQ(c.subjectName().dname().size(), 4u);
}

TEST(CvelCertificate, EveryPrefixFails) {
  const Bytes file = readFile(dataPath("x509/ee-qc.der"));
  for (size_t n = 0; n < file.size(); ++n) {
    CvelCertificate c;
    EXPECT_EQ(c.parse(file.data(), static_cast<uint32_t>(n)), 0u) << n;
  }
}

TEST(CvelCertificate, WalkLinkedGoesFromTheLastAndIntoEachEntry) {
  CvelCertificate top;
  auto a = std::make_shared<CvelCertificate>();
  auto b = std::make_shared<CvelCertificate>();
  auto c = std::make_shared<CvelCertificate>();
  a->setFlag('a');
  b->setFlag('b');
  c->setFlag('c');
  top.linked().add(a);
  top.linked().add(b);
  b->linked().add(c);

  std::string order;
  auto visit = [&](CvelCertificate& cert) {
    order += static_cast<char>(cert.flag());
    return kCvelOk;
  };
  EXPECT_EQ(top.walkLinked(visit, 0), kCvelOk);
  EXPECT_EQ(order, "bca");
  order.clear();
  EXPECT_EQ(top.walkLinked(visit, 1), kCvelOk);
  EXPECT_EQ(order, "b");

  order.clear();
  auto failAtC = [&](CvelCertificate& cert) {
    order += static_cast<char>(cert.flag());
    return cert.flag() == 'c' ? kCvelErrIncomplete : kCvelOk;
  };
  EXPECT_EQ(top.walkLinked(failAtC, 0), kCvelErrMalformed);
  EXPECT_EQ(order, "bc");

  // A parse empties the list.
  EXPECT_EQ(parseText(top, ""), 0u);
  EXPECT_EQ(top.linked().size(), 0u);
}

TEST(CvelCertificate, EveryMozillaRootParses) {
  if (!std::filesystem::is_directory(kMozillaRoots)) GTEST_SKIP() << kMozillaRoots << " is not installed";
  size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(kMozillaRoots)) {
    if (entry.path().extension() != ".crt") continue;
    ++count;
    const std::string name = entry.path().filename().string();
    CvelCertificate c;
    ASSERT_EQ(parseText(c, readText(entry.path().string())), kCvelOk) << name;
    EXPECT_TRUE(c.version() == 3 || c.version() == 1) << name;
    EXPECT_EQ(c.kind() == CvelCertificate::kRoot, c.issuer().equals(c.subject())) << name;
    EXPECT_TRUE(c.notBefore().isValid() && c.notAfter().isValid()) << name;
    EXPECT_NE(c.issuerName().form(), CvelCertificateIssuer::kInvalid) << name;
    EXPECT_NE(c.subjectName().form(), CvelCertificateSubject::kInvalid) << name;
    // The TBSCertificate is followed by the algorithm and the signature's BIT STRING, and nothing else.
    const uint32_t tbsEnd = static_cast<uint32_t>(c.tbs().data() - c.encoded().data()) + c.tbs().length();
    EXPECT_EQ(c.signatureAlgorithm().data(), c.encoded().data() + tbsEnd) << name;
    EXPECT_EQ(c.signatureValue().data() + c.signatureValue().length(), c.encoded().data() + c.encoded().length())
        << name;
  }
  EXPECT_GT(count, 100u);
  RecordProperty("roots", static_cast<int>(count));
}

}  // namespace
