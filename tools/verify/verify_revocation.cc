#include "verify/verify_revocation.h"

#include <openssl/err.h>
#include <openssl/ocsp.h>
#include <openssl/x509v3.h>

#include "services/http_client.h"
#include "services/revocation_client.h"

namespace {

// More sources than this for one certificate are not examined.
constexpr size_t kMaxSources = 64;
// A larger CRL (some hundred thousand entries) is not parsed: OpenSSL would hold every entry as an object.
constexpr size_t kMaxCrlBytes = 8u * 1024 * 1024;
constexpr const char* kRevocation = "revocation";

// What one source says of the certificate.
struct Statement {
  enum Kind { kNone, kGood, kRevoked } kind = kNone;
  bool about = false;  // the source speaks of the certificate (whether or not current at t)
  bool goodBefore = false;  // it says good, but only for a time before t
  time_t revokedAt = 0;
  std::string source;  // "OCSP response", "CRL"
};

// A response is current at t when t lies between its thisUpdate and nextUpdate, or when it was made after
// t: a later statement of a status speaks for t too (revocation is not undone).
bool currentAt(const ASN1_TIME* thisUpdate, const ASN1_TIME* nextUpdate, time_t t) {
  time_t from = 0;
  time_t until = 0;
  if (!timeOf(thisUpdate, from)) return false;
  if (from >= t) return true;
  return nextUpdate == nullptr || (timeOf(nextUpdate, until) && t <= until);
}

// The issuer itself, or a certificate the issuer issued for OCSP signing.
bool authorisedResponder(X509* responder, X509* issuer) {
  if (X509_cmp(responder, issuer) == 0) return true;
  const bool issued = X509_check_issued(issuer, responder) == X509_V_OK &&
                      X509_verify(responder, X509_get0_pubkey(issuer)) == 1;
  return issued && (X509_get_extension_flags(responder) & EXFLAG_XKUSAGE) != 0 &&
         (X509_get_extended_key_usage(responder) & XKU_OCSP_SIGN) != 0;
}

OCSP_BASICRESP* basicResponseOf(const Bytes& der) {
  const unsigned char* p = der.data();
  OCSP_BASICRESP* basic = d2i_OCSP_BASICRESP(nullptr, &p, static_cast<long>(der.size()));
  if (basic != nullptr) return basic;
  p = der.data();
  OCSP_RESPONSE* response = d2i_OCSP_RESPONSE(nullptr, &p, static_cast<long>(der.size()));
  if (response != nullptr && OCSP_response_status(response) == OCSP_RESPONSE_STATUS_SUCCESSFUL) {
    basic = OCSP_response_get1_basic(response);
  }
  OCSP_RESPONSE_free(response);
  return basic;
}

Statement ocspStatement(const Bytes& der, X509* certificate, X509* issuer, time_t t) {
  Statement s;
  s.source = "OCSP response";
  OCSP_BASICRESP* basic = basicResponseOf(der);
  if (basic == nullptr) return s;
  STACK_OF(X509)* known = sk_X509_new_null();
  sk_X509_push(known, issuer);
  X509* responder = nullptr;
  const bool signedByAuthority =
      OCSP_resp_get0_signer(basic, &responder, known) == 1 && authorisedResponder(responder, issuer) &&
      OCSP_basic_verify(basic, known, nullptr, OCSP_NOVERIFY | OCSP_NOCHECKS | OCSP_NOEXPLICIT) == 1;
  for (int i = 0; signedByAuthority && i < OCSP_resp_count(basic) && s.kind == Statement::kNone; ++i) {
    OCSP_SINGLERESP* single = OCSP_resp_get0(basic, i);
    ASN1_OBJECT* mdObject = nullptr;
    OCSP_id_get0_info(nullptr, &mdObject, nullptr, nullptr, const_cast<OCSP_CERTID*>(OCSP_SINGLERESP_get0_id(single)));
    const EVP_MD* md = mdObject == nullptr ? nullptr : EVP_get_digestbyobj(mdObject);
    OCSP_CERTID* mine = md == nullptr ? nullptr : OCSP_cert_to_id(md, certificate, issuer);
    const bool ours = mine != nullptr && OCSP_id_cmp(mine, OCSP_SINGLERESP_get0_id(single)) == 0;
    OCSP_CERTID_free(mine);
    if (!ours) continue;
    s.about = true;
    int reason = 0;
    ASN1_GENERALIZEDTIME* revokedAt = nullptr;
    ASN1_GENERALIZEDTIME* thisUpdate = nullptr;
    ASN1_GENERALIZEDTIME* nextUpdate = nullptr;
    const int status = OCSP_single_get0_status(single, &reason, &revokedAt, &thisUpdate, &nextUpdate);
    if (status == V_OCSP_CERTSTATUS_REVOKED && timeOf(revokedAt, s.revokedAt)) {
      s.kind = Statement::kRevoked;
    } else if (status == V_OCSP_CERTSTATUS_GOOD) {
      s.kind = currentAt(thisUpdate, nextUpdate, t) ? Statement::kGood : Statement::kNone;
      s.goodBefore = s.kind == Statement::kNone;
    }
  }
  sk_X509_free(known);
  OCSP_BASICRESP_free(basic);
  ERR_clear_error();
  return s;
}

Statement crlStatement(const Bytes& der, X509* certificate, X509* issuer, time_t t) {
  Statement s;
  s.source = "CRL";
  if (der.size() > kMaxCrlBytes) return s;
  const unsigned char* p = der.data();
  X509_CRL* crl = d2i_X509_CRL(nullptr, &p, static_cast<long>(der.size()));
  if (crl == nullptr) return s;
  if (X509_NAME_cmp(X509_CRL_get_issuer(crl), X509_get_subject_name(issuer)) == 0 &&
      X509_CRL_verify(crl, X509_get0_pubkey(issuer)) == 1) {
    s.about = true;
    X509_REVOKED* entry = nullptr;
    if (X509_CRL_get0_by_cert(crl, &entry, certificate) == 1 &&
        timeOf(X509_REVOKED_get0_revocationDate(entry), s.revokedAt)) {
      s.kind = Statement::kRevoked;
    } else {
      s.kind = currentAt(X509_CRL_get0_lastUpdate(crl), X509_CRL_get0_nextUpdate(crl), t) ? Statement::kGood
                                                                                         : Statement::kNone;
      s.goodBefore = s.kind == Statement::kNone;
    }
  }
  X509_CRL_free(crl);
  ERR_clear_error();
  return s;
}

Bytes derOf(X509* certificate) {
  unsigned char* out = nullptr;
  const int n = i2d_X509(certificate, &out);
  Bytes der(out, out + (n > 0 ? n : 0));
  OPENSSL_free(out);
  return der;
}

// Asks the certificate's OCSP responders, then its CRL distribution points, through the tool's HTTP client;
// false when the certificate names neither.
bool fetch(const VerifyContext& context, X509* certificate, X509* issuer, RevocationData& data) {
  const Bytes leaf = derOf(certificate);
  std::vector<std::string> ocspUrls;
  std::vector<std::string> crlUrls;
  serviceUrls(leaf, ocspUrls, crlUrls);
  RevocationSubject subject;
  std::string error;
  Bytes request;
  if (revocationSubject(leaf, {derOf(issuer)}, subject, error) && ocspRequest(subject, request)) {
    for (const std::string& url : ocspUrls) {
      Bytes response;
      HttpExchange exchange{url, context.options.timeoutSeconds, "application/ocsp-request", request};
      if (httpExchange(exchange, response, error)) data.ocsp.push_back(response);
    }
  }
  for (const std::string& url : crlUrls) {
    Bytes response;
    if (httpExchange(HttpExchange{url, context.options.timeoutSeconds, "", {}}, response, error)) {
      data.crls.push_back(response);
    }
  }
  return !ocspUrls.empty() || !crlUrls.empty();
}

bool expiredBy(X509* certificate, time_t now) { return X509_cmp_time(X509_get0_notAfter(certificate), &now) < 0; }

// The check of one certificate. past: it has expired by the current time and is judged at an earlier
// proof of existence t, so it needs a source current at t that says good.
void checkOne(const VerifyContext& context, X509* certificate, X509* issuer, const RevocationData& embedded,
              time_t t, bool past, SignatureReport& report) {
  const std::string who = subjectText(certificate) + ": ";
  if (context.options.revocation == RevocationMode::kNone) {
    report.add(kRevocation, Outcome::kSkipped, who + "not checked (--revocation none)");
    return;
  }
  RevocationData fetched;
  const bool named =
      context.options.revocation == RevocationMode::kFetch && fetch(context, certificate, issuer, fetched);
  std::vector<Statement> statements;
  for (const RevocationData* data : {static_cast<const RevocationData*>(&fetched), &embedded}) {
    for (size_t i = 0; i < data->ocsp.size() && i < kMaxSources; ++i) {
      statements.push_back(ocspStatement(data->ocsp[i], certificate, issuer, t));
    }
    for (size_t i = 0; i < data->crls.size() && i < kMaxSources; ++i) {
      statements.push_back(crlStatement(data->crls[i], certificate, issuer, t));
    }
  }
  const Statement* good = nullptr;
  const Statement* goodBefore = nullptr;
  bool about = false;
  for (const Statement& s : statements) {
    if (s.kind == Statement::kRevoked && s.revokedAt <= t) {
      report.add(kRevocation, Outcome::kIndeterminate,
                 who + "an " + s.source + " says it was revoked at " + isoTime(s.revokedAt) +
                     ", before the validation time",
                 "REVOKED_NO_POE");
      return;
    }
    if (s.kind == Statement::kRevoked) {
      report.add(kRevocation, Outcome::kPassed,
                 who + "revoked at " + isoTime(s.revokedAt) + ", after the validation time " + isoTime(t));
      return;
    }
    if (s.kind == Statement::kGood && good == nullptr) good = &s;
    if (s.goodBefore && goodBefore == nullptr) goodBefore = &s;
    about = about || s.about;
  }
  if (good != nullptr) {
    report.add(kRevocation, Outcome::kPassed, who + "a signed " + good->source + " says good at the validation time");
  } else if (past) {
    report.add(kRevocation, Outcome::kIndeterminate,
               who + "expired before the current time, and no OCSP response or CRL current at the validation time " +
                   isoTime(t) + " says it was not revoked then",
               "OUT_OF_BOUNDS_NO_POE");
  } else if (goodBefore != nullptr && !named) {
    // Offline, a statement that the certificate was good before t tells more than none, which is skipped
    // too; judged at an earlier proof of existence (past) it must be current, and an answer asked for
    // (--revocation fetch) must have come.
    report.add(kRevocation, Outcome::kSkipped,
               who + "the embedded " + goodBefore->source + " says good only before the validation time " +
                   isoTime(t) + "; --revocation fetch asks for a current one");
  } else if (named || about) {
    report.add(kRevocation, Outcome::kIndeterminate,
               who + (statements.empty() ? "no OCSP response or CRL could be fetched"
                                         : "no OCSP response or CRL signed by the issuer and current at the "
                                           "validation time"),
               "TRY_LATER");
  } else {
    report.add(kRevocation, Outcome::kSkipped,
               who + (context.options.revocation == RevocationMode::kFetch
                          ? "names no OCSP responder or CRL distribution point"
                          : "no OCSP response or CRL for it is embedded"));
  }
}

}  // namespace

void checkRevocation(const VerifyContext& context, X509* certificate, X509* issuer, RevocationData data,
                     time_t t, SignatureReport& report) {
  checkOne(context, certificate, issuer, data, t, t < context.now && expiredBy(certificate, context.now), report);
}

void checkChainRevocation(const VerifyContext& context, const std::vector<Certificate>& chain,
                          const RevocationData& data, time_t t, SignatureReport& report) {
  if (chain.size() < 2) {
    report.add(kRevocation, Outcome::kSkipped, "the certificate is itself a trust anchor");
    return;
  }
  for (size_t i = 0; i + 1 < chain.size(); ++i) {
    X509* certificate = chain[i].get();
    checkOne(context, certificate, chain[i + 1].get(), data, t, t < context.now && expiredBy(certificate, context.now),
             report);
  }
}
