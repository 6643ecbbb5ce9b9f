// kolvari cert: parses a certificate file (DER, PEM or bare base64) as the library does and prints its parts,
// as text or, with --json, as one JSON object whose byte fields are the hex of whole DER elements.
#include <cstdio>
#include <string>
#include <vector>

#include "asn1/cvel_oid.h"
#include "asn1/cvel_string.h"
#include "asn1/cvel_time.h"
#include "cli/command_line.h"
#include "commands.h"
#include "io/input_file.h"
#include "x509/cvel_certificate.h"

namespace {

constexpr uint8_t kDirectoryNameTag = 0xA4;

// One attribute of a name, as printed.
struct NameEntry {
  std::string oid;
  int32_t id;
  std::string value;
};

// One extension (or attribute of an attribute certificate), as printed.
struct ExtensionEntry {
  std::string oid;
  int32_t id;
  bool critical;
  std::string value;
};

std::string dotted(const CvelString& der) {
  std::string text;
  return toDotted(der, text) ? text : std::string();
}

std::string timeText(const CvelTime& time) {
  if (!time.isValid()) return std::string();
  CvelString text;
  if (time.toText(text) != kCvelOk) return std::string();
  return std::string(text.c_str(), text.length());
}

void addNames(const CvelDName& name, std::vector<NameEntry>& out) {
  for (uint32_t i = 0; i < name.size(); ++i) {
    CvelRDName* rdn = nullptr;
    if (name.get(i, rdn) != kCvelOk || rdn == nullptr) continue;
    out.push_back({dotted(rdn->type()), rdn->typeId(), rdn->value().toHex()});
  }
}

// The attributes of every directoryName among general names.
void addDirectoryNames(const CvelGeneralNames& names, std::vector<NameEntry>& out) {
  for (uint32_t i = 0; i < names.size(); ++i) {
    CvelGeneralName* name = nullptr;
    if (names.get(i, name) != kCvelOk || name == nullptr || name->tag() != kDirectoryNameTag) continue;
    addNames(name->directoryName(), out);
  }
}

std::vector<NameEntry> issuerNames(const CvelCertificateIssuer& issuer) {
  std::vector<NameEntry> out;
  if (issuer.form() == CvelCertificateIssuer::kName) addNames(issuer.dname(), out);
  if (issuer.form() == CvelCertificateIssuer::kGeneralNames) addDirectoryNames(issuer.generalNames(), out);
  return out;
}

std::vector<NameEntry> subjectNames(const CvelCertificateSubject& subject) {
  std::vector<NameEntry> out;
  switch (subject.form()) {
    case CvelCertificateSubject::kName:
      addNames(subject.dname(), out);
      break;
    case CvelCertificateSubject::kBaseCertificateId:
      addDirectoryNames(subject.baseCertificateId().issuer(), out);
      break;
    case CvelCertificateSubject::kGeneralNames:
      addDirectoryNames(subject.generalNames(), out);
      break;
    default:
      break;
  }
  return out;
}

std::vector<ExtensionEntry> extensionList(const CvelCertificateExtensions& extensions) {
  std::vector<ExtensionEntry> out;
  for (uint32_t i = 0; i < extensions.size(); ++i) {
    CvelCertificateExtension* e = nullptr;
    if (extensions.get(i, e) != kCvelOk || e == nullptr) continue;
    out.push_back({dotted(e->oid()), e->id(), e->critical(), e->value().toHex()});
  }
  return out;
}

// JSON text of a string; the texts printed here are hex, dotted OIDs and times, but quote anyway.
std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

std::string nullable(const std::string& text) { return text.empty() ? "null" : quoted(text); }

void printJsonNames(const char* key, const std::vector<NameEntry>& names) {
  std::printf("  \"%s\": [", key);
  for (size_t i = 0; i < names.size(); ++i) {
    std::printf("%s\n    {\"oid\": %s, \"id\": %d, \"value\": %s}", i == 0 ? "" : ",", nullable(names[i].oid).c_str(),
                names[i].id, quoted(names[i].value).c_str());
  }
  std::printf("%s],\n", names.empty() ? "" : "\n  ");
}

void printJson(const CvelCertificate& c) {
  std::printf("{\n");
  std::printf("  \"kind\": %u,\n", c.kind());
  std::printf("  \"version\": %d,\n", c.version());
  std::printf("  \"wrapperType\": %s,\n", nullable(c.wrapperType().toHex()).c_str());
  std::printf("  \"tbs\": %s,\n", quoted(c.tbs().toHex()).c_str());
  std::printf("  \"serialNumber\": %s,\n", quoted(c.serialNumber().toHex()).c_str());
  std::printf("  \"issuer\": %s,\n", quoted(c.issuer().toHex()).c_str());
  std::printf("  \"subject\": %s,\n", quoted(c.subject().toHex()).c_str());
  std::printf("  \"tbsSignatureAlgorithm\": %s,\n", quoted(c.tbsSignatureAlgorithm().toHex()).c_str());
  std::printf("  \"signatureAlgorithm\": %s,\n", quoted(c.signatureAlgorithm().toHex()).c_str());
  std::printf("  \"subjectPublicKeyInfo\": %s,\n", quoted(c.subjectPublicKeyInfo().toHex()).c_str());
  std::printf("  \"validity\": %s,\n", quoted(c.validity().toHex()).c_str());
  std::printf("  \"notBefore\": %s,\n", nullable(timeText(c.notBefore())).c_str());
  std::printf("  \"notAfter\": %s,\n", nullable(timeText(c.notAfter())).c_str());
  std::printf("  \"issuerForm\": %d,\n", c.issuerName().form());
  std::printf("  \"subjectForm\": %d,\n", c.subjectName().form());
  printJsonNames("issuerNames", issuerNames(c.issuerName()));
  printJsonNames("subjectNames", subjectNames(c.subjectName()));
  std::vector<ExtensionEntry> extensions = extensionList(c.extensions());
  std::printf("  \"extensions\": [");
  for (size_t i = 0; i < extensions.size(); ++i) {
    const ExtensionEntry& e = extensions[i];
    std::printf("%s\n    {\"oid\": %s, \"id\": %d, \"critical\": %s, \"value\": %s}", i == 0 ? "" : ",",
                nullable(e.oid).c_str(), e.id, e.critical ? "true" : "false", quoted(e.value).c_str());
  }
  std::printf("%s],\n", extensions.empty() ? "" : "\n  ");
  std::printf("  \"signatureValue\": %s\n", quoted(c.signatureValue().toHex()).c_str());
  std::printf("}\n");
}

void printTextNames(const char* label, const std::vector<NameEntry>& names) {
  std::printf("%s:\n", label);
  for (const NameEntry& n : names) std::printf("  %s (%d) = %s\n", n.oid.c_str(), n.id, n.value.c_str());
}

void printText(const CvelCertificate& c) {
  std::printf("kind:                  %u\n", c.kind());
  std::printf("version:               %d\n", c.version());
  if (!c.wrapperType().isEmpty()) std::printf("wrapper type:          %s\n", dotted(c.wrapperType()).c_str());
  std::printf("serial number:         %s\n", c.serialNumber().toHex().c_str());
  std::printf("signature algorithm:   %s\n", c.signatureAlgorithm().toHex().c_str());
  std::printf("not before:            %s\n", timeText(c.notBefore()).c_str());
  std::printf("not after:             %s\n", timeText(c.notAfter()).c_str());
  printTextNames("issuer", issuerNames(c.issuerName()));
  printTextNames("subject", subjectNames(c.subjectName()));
  std::printf("subject public key:    %s\n", c.subjectPublicKeyInfo().toHex().c_str());
  std::printf("extensions:\n");
  for (const ExtensionEntry& e : extensionList(c.extensions())) {
    std::printf("  %s (%d)%s = %s\n", e.oid.c_str(), e.id, e.critical ? " critical" : "", e.value.c_str());
  }
}

}  // namespace

void printCertificate(const CvelCertificate& certificate, bool json) {
  if (json) {
    printJson(certificate);
  } else {
    printText(certificate);
  }
}

namespace {

struct CertOptions {
  std::string path;
  bool json = false;
};

int runCert(const CertOptions& o) {
  const std::string& path = o.path;
  const bool json = o.json;
  std::vector<unsigned char> bytes;
  std::string error;
  if (!readInputFile(path, bytes, error)) {
    std::fprintf(stderr, "kolvari cert: %s\n", error.c_str());
    return kExitFailure;
  }
  if (bytes.size() >= CvelString::kViewCapacity - 1) {
    std::fprintf(stderr, "kolvari cert: %s is too large\n", path.c_str());
    return kExitFailure;
  }
  CvelCertificate certificate;
  if (certificate.parse(bytes.data(), static_cast<uint32_t>(bytes.size())) != kCvelOk) {
    std::fprintf(stderr, "kolvari cert: %s is not a certificate the library can parse\n", path.c_str());
    return kExitUsage;
  }
  printCertificate(certificate, json);
  return kExitOk;
}

}  // namespace

ToolCommand certCommand() {
  return {"cert", "parse a certificate (DER, PEM or base64) and print its parts",
          "Parses a certificate in DER, PEM or bare base64 with the library and prints its parts. A file that is "
          "not a certificate the library parses: exit status 2.",
          "kolvari cert --json signer.pem", [](CLI::App& app) {
            auto o = std::make_shared<CertOptions>();
            addFlag(app, "--json", o->json,
                    "one object with the DER of each part in hex, the times, the name attributes, the extensions");
            addFile(app, "FILE", o->path, "the certificate");
            return [o] { return runCert(*o); };
          }};
}
