#include "inspect/certificate_view.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "asn1/cvel_string.h"
#include "asn1/cvel_time.h"
#include "inspect/name_text.h"
#include "inspect/oid_names.h"
#include "services/der_view.h"
#include "x509/cvel_certificate.h"

namespace {

constexpr uint8_t kDirectoryNameTag = 0xA4;

// One attribute of a name, as printed.
struct NameEntry {
  std::string oid;
  int32_t id;
  std::string value;  // the DER of the value in hex
  std::string text;   // the value decoded to UTF-8
  bool isText;
};

// One extension (or attribute of an attribute certificate), as printed.
struct ExtensionEntry {
  std::string oid;
  int32_t id;
  bool critical;
  std::string value;
};

// The algorithm of an AlgorithmIdentifier and the OID among its parameters (an EC key's named curve).
struct AlgorithmNames {
  std::string algorithm;  // name, else dotted, else empty
  std::string parameter;  // the same for a parameter that is an OID, else empty
};

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
    NameEntry entry{dottedText(rdn->type()), rdn->typeId(), rdn->value().toHex(), std::string(), false};
    entry.isText = directoryStringText(rdn->value(), entry.text);
    out.push_back(std::move(entry));
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
    out.push_back({dottedText(e->oid()), e->id(), e->critical(), e->value().toHex()});
  }
  return out;
}

// AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, parameters ANY OPTIONAL }.
AlgorithmNames algorithmNames(const CvelString& algorithmIdentifier) {
  AlgorithmNames names;
  std::vector<CvelString> parts;
  if (!childrenOf(algorithmIdentifier, kTagSequence, parts) || parts.empty() || parts.size() > 2 ||
      parts[0].isEmpty() || parts[0].data()[0] != kTagOid) {
    return names;
  }
  names.algorithm = oidNameOrDotted(parts[0]);
  if (parts.size() == 2 && !parts[1].isEmpty() && parts[1].data()[0] == kTagOid) {
    names.parameter = oidNameOrDotted(parts[1]);
  }
  return names;
}

// SubjectPublicKeyInfo ::= SEQUENCE { algorithm AlgorithmIdentifier, subjectPublicKey BIT STRING }.
AlgorithmNames publicKeyNames(const CvelString& subjectPublicKeyInfo) {
  std::vector<CvelString> parts;
  if (!childrenOf(subjectPublicKeyInfo, kTagSequence, parts) || parts.size() != 2) return AlgorithmNames();
  return algorithmNames(parts[0]);
}

Json nullable(const std::string& text) { return text.empty() ? Json() : Json(text); }

Json namesJson(const std::vector<NameEntry>& names) {
  Json list = Json::array();
  for (const NameEntry& n : names) {
    list.push_back(Json{{"oid", nullable(n.oid)},
                        {"id", n.id},
                        {"value", n.value},
                        {"text", n.isText ? Json(n.text) : Json()}});
  }
  return list;
}

void appendLine(std::string& out, const char* label, const std::string& value) {
  constexpr size_t kLabelWidth = 23;
  std::string line = std::string(label) + ":";
  line.resize(std::max(kLabelWidth, line.size() + 1), ' ');
  out += line + value + "\n";
}

void appendNames(std::string& out, const char* label, const std::string& rfc4514,
                 const std::vector<NameEntry>& names) {
  appendLine(out, label, rfc4514.empty() ? "-" : rfc4514);
  for (const NameEntry& n : names) {
    out += "  " + n.oid + " (" + std::to_string(n.id) + ") = " + (n.isText ? n.text : "#" + n.value) + "\n";
  }
}

}  // namespace

Json certificateJson(const CvelCertificate& c) {
  Json j;
  j["kind"] = c.kind();
  j["version"] = c.version();
  j["wrapperType"] = nullable(c.wrapperType().toHex());
  j["tbs"] = c.tbs().toHex();
  j["serialNumber"] = c.serialNumber().toHex();
  j["issuer"] = c.issuer().toHex();
  j["subject"] = c.subject().toHex();
  j["tbsSignatureAlgorithm"] = c.tbsSignatureAlgorithm().toHex();
  j["signatureAlgorithm"] = c.signatureAlgorithm().toHex();
  j["subjectPublicKeyInfo"] = c.subjectPublicKeyInfo().toHex();
  j["validity"] = c.validity().toHex();
  j["notBefore"] = nullable(timeText(c.notBefore()));
  j["notAfter"] = nullable(timeText(c.notAfter()));
  j["issuerForm"] = c.issuerName().form();
  j["subjectForm"] = c.subjectName().form();
  j["issuerNames"] = namesJson(issuerNames(c.issuerName()));
  j["subjectNames"] = namesJson(subjectNames(c.subjectName()));
  Json extensions = Json::array();
  for (const ExtensionEntry& e : extensionList(c.extensions())) {
    extensions.push_back(Json{{"oid", nullable(e.oid)}, {"id", e.id}, {"critical", e.critical}, {"value", e.value}});
  }
  j["extensions"] = std::move(extensions);
  j["signatureValue"] = c.signatureValue().toHex();
  j["issuerRfc4514"] = nullable(rfc4514Name(c.issuer()));
  j["subjectRfc4514"] = nullable(rfc4514Name(c.subject()));
  j["signatureAlgorithmName"] = nullable(algorithmNames(c.signatureAlgorithm()).algorithm);
  const AlgorithmNames key = publicKeyNames(c.subjectPublicKeyInfo());
  j["publicKeyAlgorithm"] = nullable(key.algorithm);
  j["publicKeyParameter"] = nullable(key.parameter);
  return j;
}

std::string certificateText(const CvelCertificate& c) {
  std::string out;
  appendLine(out, "kind", std::to_string(c.kind()));
  appendLine(out, "version", std::to_string(c.version()));
  if (!c.wrapperType().isEmpty()) appendLine(out, "wrapper type", dottedText(c.wrapperType()));
  appendLine(out, "serial number", c.serialNumber().toHex());
  const std::string signatureName = algorithmNames(c.signatureAlgorithm()).algorithm;
  appendLine(out, "signature algorithm", signatureName.empty() ? c.signatureAlgorithm().toHex() : signatureName);
  appendLine(out, "not before", timeText(c.notBefore()));
  appendLine(out, "not after", timeText(c.notAfter()));
  appendNames(out, "issuer", rfc4514Name(c.issuer()), issuerNames(c.issuerName()));
  appendNames(out, "subject", rfc4514Name(c.subject()), subjectNames(c.subjectName()));
  const AlgorithmNames key = publicKeyNames(c.subjectPublicKeyInfo());
  appendLine(out, "public key algorithm", key.algorithm.empty() ? "-" : key.algorithm);
  if (!key.parameter.empty()) appendLine(out, "public key parameter", key.parameter);
  appendLine(out, "subject public key", c.subjectPublicKeyInfo().toHex());
  out += "extensions:\n";
  for (const ExtensionEntry& e : extensionList(c.extensions())) {
    out += "  " + e.oid + " (" + std::to_string(e.id) + ")" + (e.critical ? " critical" : "") + " = " + e.value +
           "\n";
  }
  return out;
}

void printCertificate(const CvelCertificate& certificate, bool json) {
  const std::string text = json ? jsonDocument(certificateJson(certificate)) : certificateText(certificate);
  std::fputs(text.c_str(), stdout);
}
