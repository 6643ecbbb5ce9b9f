#include "services/validation_data.h"

#include <algorithm>
#include <memory>

#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include "host_crypto.h"
#include "io/input_file.h"
#include "services/http_client.h"
#include "services/revocation_client.h"
#include "x509/cvel_certificate.h"

namespace {

constexpr char kOcspRequestType[] = "application/ocsp-request";
constexpr size_t kMaxFileSize = 16u * 1024 * 1024;

void addOnce(const Bytes& item, std::vector<Bytes>& list) {
  if (std::find(list.begin(), list.end(), item) == list.end()) list.push_back(item);
}

struct CmsDeleter {
  void operator()(CMS_ContentInfo* c) const { CMS_ContentInfo_free(c); }
};
using CmsHandle = std::unique_ptr<CMS_ContentInfo, CmsDeleter>;

CmsHandle readCms(const unsigned char* der, size_t n) {
  const unsigned char* p = der;
  return CmsHandle(d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(n)));
}

void appendCertificates(CMS_ContentInfo* cms, std::vector<Bytes>& out) {
  STACK_OF(X509)* certificates = CMS_get1_certs(cms);
  for (int i = 0; i < sk_X509_num(certificates); ++i) {
    unsigned char* der = nullptr;
    const int n = i2d_X509(sk_X509_value(certificates, i), &der);
    if (n > 0) addOnce(Bytes(der, der + n), out);
    OPENSSL_free(der);
  }
  sk_X509_pop_free(certificates, X509_free);
}

// The time-stamp tokens (id-aa-timeStampToken) among the unsigned attributes of cms's signers.
std::vector<Bytes> timeStampTokens(CMS_ContentInfo* cms) {
  std::vector<Bytes> tokens;
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms);
  for (int i = 0; i < sk_CMS_SignerInfo_num(signers); ++i) {
    CMS_SignerInfo* si = sk_CMS_SignerInfo_value(signers, i);
    for (int at = CMS_unsigned_get_attr_by_NID(si, NID_id_smime_aa_timeStampToken, -1); at >= 0;
         at = CMS_unsigned_get_attr_by_NID(si, NID_id_smime_aa_timeStampToken, at)) {
      X509_ATTRIBUTE* attribute = CMS_unsigned_get_attr(si, at);
      for (int v = 0; v < X509_ATTRIBUTE_count(attribute); ++v) {
        ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, v);
        if (value == nullptr || value->type != V_ASN1_SEQUENCE) continue;
        const ASN1_STRING* s = value->value.sequence;
        tokens.emplace_back(ASN1_STRING_get0_data(s), ASN1_STRING_get0_data(s) + ASN1_STRING_length(s));
      }
    }
  }
  return tokens;
}

bool selfIssued(const Bytes& certificate) {
  CvelCertificate c;
  return c.parse(certificate.data(), static_cast<uint32_t>(certificate.size())) == kCvelOk &&
         c.subject().equals(c.issuer());
}

bool readFileBounded(const std::string& path, Bytes& out, std::string& error) {
  if (!readWholeFile(path, out) || out.size() > kMaxFileSize) {
    error = "cannot read " + path;
    return false;
  }
  return true;
}

}  // namespace

void addValidationDataOptions(CLI::App& app, ValidationDataOptions& out) {
  const std::string group = "long-term validation data";
  addList(app, "--ocsp-response", out.ocspResponseFiles, "FILE",
          "an OCSP response (DER) for one of the certificates, used instead of asking its responder (repeatable)")
      ->group(group);
  addList(app, "--revocation-crl", out.crlFiles, "FILE",
          "a CRL (PEM or DER) for one of the certificates, used instead of asking (repeatable)")
      ->group(group);
  addFlag(app, "--allow-missing-revocation", out.allowMissing,
          "go on without revocation data for a certificate that names no OCSP responder and no CRL distribution "
          "point (each is named on standard error)")
      ->group(group);
  addFlag(app, "--allow-revoked", out.allowRevoked, "keep going when a source says a certificate is revoked")
      ->group(group);
}

bool cmsCertificates(const Bytes& cms, std::vector<Bytes>& out, std::string& error) {
  CmsHandle outer = readCms(cms.data(), cms.size());
  if (outer == nullptr) {
    error = "the signature's CMS does not decode: " + opensslError();
    return false;
  }
  appendCertificates(outer.get(), out);
  for (const Bytes& token : timeStampTokens(outer.get())) {
    CmsHandle inner = readCms(token.data(), token.size());
    if (inner == nullptr) {
      error = "a time-stamp token in the signature does not decode: " + opensslError();
      return false;
    }
    appendCertificates(inner.get(), out);
  }
  return true;
}

void addIssuers(std::vector<Bytes>& certificates, const std::vector<Bytes>& candidates) {
  // Each round adds a certificate or ends, so the loop ends after at most candidates.size() rounds.
  for (size_t i = 0; i < certificates.size(); ++i) {
    CvelCertificate c;
    if (c.parse(certificates[i].data(), static_cast<uint32_t>(certificates[i].size())) != kCvelOk) continue;
    for (const Bytes& candidate : candidates) {
      CvelCertificate issuer;
      if (issuer.parse(candidate.data(), static_cast<uint32_t>(candidate.size())) == kCvelOk &&
          issuer.subject().equals(c.issuer()) &&
          std::find(certificates.begin(), certificates.end(), candidate) == certificates.end()) {
        certificates.push_back(candidate);
      }
    }
  }
}

std::string certificateName(const Bytes& certificate) {
  const unsigned char* p = certificate.data();
  X509* x509 = d2i_X509(nullptr, &p, static_cast<long>(certificate.size()));
  if (x509 == nullptr) return "an unreadable certificate";
  char text[256] = {};
  const char* line = X509_NAME_oneline(X509_get_subject_name(x509), text, sizeof text);
  std::string name = line != nullptr ? line : "a certificate without a readable subject";
  X509_free(x509);
  return name;
}

bool ValidationGatherer::readFiles(std::string& error) {
  for (const std::string& path : options_.ocspResponseFiles) {
    Bytes response;
    if (!readFileBounded(path, response, error)) return false;
    ocspFiles_.emplace_back(path, std::move(response));
  }
  for (const std::string& path : options_.crlFiles) {
    std::vector<Bytes> crls;
    if (!readCrls(path, crls, error)) return false;
    for (Bytes& crl : crls) crlFiles_.emplace_back(path, std::move(crl));
  }
  ocspUsed_.assign(ocspFiles_.size(), false);
  crlUsed_.assign(crlFiles_.size(), false);
  return true;
}

std::vector<std::string> ValidationGatherer::unusedFiles() const {
  std::vector<std::string> unused;
  for (size_t i = 0; i < ocspFiles_.size(); ++i) {
    if (!ocspUsed_[i]) unused.push_back(ocspFiles_[i].first);
  }
  for (size_t i = 0; i < crlFiles_.size(); ++i) {
    if (!crlUsed_[i] && std::find(unused.begin(), unused.end(), crlFiles_[i].first) == unused.end()) {
      unused.push_back(crlFiles_[i].first);
    }
  }
  return unused;
}

bool ValidationGatherer::gather(const std::vector<Bytes>& certificates, ValidationData& data, std::string& error) {
  for (const Bytes& certificate : certificates) {
    addOnce(certificate, data.certificates);
    if (selfIssued(certificate)) continue;  // a trust anchor: nothing says it is revoked
    auto known = done_.find(certificate);
    if (known == done_.end()) {
      Found found;
      if (!revocationFor(certificate, certificates, found, error)) return false;
      known = done_.emplace(certificate, std::move(found)).first;
    }
    for (const Bytes& r : known->second.ocspResponses) addOnce(r, data.ocspResponses);
    for (const Bytes& c : known->second.crls) addOnce(c, data.crls);
  }
  return true;
}

bool ValidationGatherer::revocationFor(const Bytes& certificate, const std::vector<Bytes>& pool, Found& found,
                                       std::string& error) {
  if (!fromFiles(certificate, pool, found, error)) return false;
  if (!found.ocspResponses.empty() || !found.crls.empty()) return true;
  return fetch(certificate, pool, found, error);
}

// Takes every given response and CRL that speaks of the certificate.
bool ValidationGatherer::fromFiles(const Bytes& certificate, const std::vector<Bytes>& pool, Found& found,
                                   std::string& error) {
  if (ocspFiles_.empty() && crlFiles_.empty()) return true;
  RevocationSubject subject;
  if (!revocationSubject(certificate, pool, subject, error)) {
    error = certificateName(certificate) + ": cannot read the certificate";
    return false;
  }
  auto accept = [&](RevocationVerdict verdict, const std::string& source) {
    if (verdict == RevocationVerdict::kRevoked && !options_.allowRevoked) {
      error = source + " says " + certificateName(certificate) + " is revoked (--allow-revoked goes on)";
      return false;
    }
    return true;
  };
  for (size_t i = 0; i < ocspFiles_.size(); ++i) {
    Bytes basic;
    const RevocationVerdict verdict = ocspVerdict(ocspFiles_[i].second, subject, basic);
    if (verdict == RevocationVerdict::kNotCovered) continue;
    if (!accept(verdict, "the OCSP response " + ocspFiles_[i].first)) return false;
    ocspUsed_[i] = true;
    found.ocspResponses.push_back(ocspFiles_[i].second);
  }
  for (size_t i = 0; i < crlFiles_.size(); ++i) {
    const RevocationVerdict verdict = crlVerdict(crlFiles_[i].second, subject);
    if (verdict == RevocationVerdict::kNotCovered) continue;
    if (!accept(verdict, "the CRL " + crlFiles_[i].first)) return false;
    crlUsed_[i] = true;
    found.crls.push_back(crlFiles_[i].second);
  }
  return true;
}

// The certificate's OCSP responders first, its CRL distribution points second, until one source covers it.
bool ValidationGatherer::fetch(const Bytes& certificate, const std::vector<Bytes>& pool, Found& found,
                               std::string& error) {
  const std::string name = certificateName(certificate);
  std::vector<std::string> ocspUrls;
  std::vector<std::string> crlUrls;
  serviceUrls(certificate, ocspUrls, crlUrls);
  if (ocspUrls.empty() && crlUrls.empty()) {
    if (options_.allowMissing) {
      uncovered_.push_back(name);
      return true;
    }
    error = name + " names no OCSP responder and no CRL distribution point (--allow-missing-revocation goes on)";
    return false;
  }
  RevocationSubject subject;
  if (!revocationSubject(certificate, pool, subject, error)) {
    error = name + ": cannot read the certificate";
    return false;
  }
  std::string reasons;
  auto failed = [&](const std::string& why) { reasons += (reasons.empty() ? "" : "; ") + why; };
  auto accept = [&](RevocationVerdict verdict, const std::string& url) {
    if (verdict == RevocationVerdict::kRevoked && !options_.allowRevoked) {
      error = url + " says " + name + " is revoked (--allow-revoked goes on)";
      return false;
    }
    return true;
  };
  for (const std::string& url : ocspUrls) {
    HttpExchange exchange{url, options_.timeoutSeconds, kOcspRequestType, {}};
    if (!ocspRequest(subject, exchange.body)) {
      failed("OCSP " + url + ": the issuer certificate is not at hand");
      continue;
    }
    Bytes response;
    Bytes basic;
    std::string why;
    if (!httpExchange(exchange, response, why)) {
      failed("OCSP " + why);
      continue;
    }
    const RevocationVerdict verdict = ocspVerdict(response, subject, basic);
    if (verdict == RevocationVerdict::kNotCovered) {
      failed("OCSP " + url + ": the answer is not a response for the certificate");
      continue;
    }
    if (!accept(verdict, url)) return false;
    found.ocspResponses.push_back(std::move(response));
    return true;
  }
  for (const std::string& url : crlUrls) {
    HttpExchange exchange{url, options_.timeoutSeconds, "", {}};
    Bytes crl;
    std::string why;
    if (!httpExchange(exchange, crl, why)) {
      failed("CRL " + why);
      continue;
    }
    const RevocationVerdict verdict = crlVerdict(crl, subject);
    if (verdict == RevocationVerdict::kNotCovered) {
      failed("CRL " + url + ": the answer is not a CRL of the certificate's issuer");
      continue;
    }
    if (!accept(verdict, url)) return false;
    found.crls.push_back(std::move(crl));
    return true;
  }
  error = "no revocation data for " + name + ": " + reasons;
  return false;
}
