#include "services/sign_services.h"

#include <string>

#include "cli/validators.h"

void addTimeStampOptions(CLI::App& app, SignServices& out) {
  const std::string group = "time stamp";
  addValue(app, "--tsa", out.tsa.url, "URL",
           "add an RFC 3161 time-stamp token over the signature value, asked of the time-stamp authority at URL "
           "(HTTP POST, a random nonce, certReq)")
      ->group(group);
  addValue(app, "--tsa-digest", out.tsa.digest, "NAME",
           "the hash of the signature value the token covers: sha256 (default), sha384, sha512")
      ->check(digestName())
      ->group(group);
  // One limit for every HTTP exchange of the run: the time stamp and the revocation fetches.
  app.add_option_function<std::string>(
         "--tsa-timeout",
         [&out](const std::string& v) { out.tsa.timeoutSeconds = out.revocation.timeoutSeconds = std::stol(v); },
         "time limit of each HTTP exchange, time stamp and revocation fetches (default 10)")
      ->option_text("SECONDS")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->check(timeoutSeconds())
      ->group(group);
}

void addRevocationOptions(CLI::App& app, SignServices& out) {
  const std::string group = "long-term validation data";
  addList(app, "--ocsp-response", out.revocation.ocspResponseFiles, "FILE",
          "an OCSP response (DER) for the signer certificate, kept in the revocation values (repeatable)")
      ->group(group);
  addList(app, "--revocation-crl", out.revocation.crlFiles, "FILE",
          "a CRL (PEM or DER) for the signer certificate, kept in the revocation values (repeatable; --crl only "
          "puts CRLs into the SignedData)")
      ->group(group);
  addFlag(app, "--fetch-revocation", out.revocation.fetch,
          "ask the OCSP responder of the signer certificate's Authority Information Access, or failing that its "
          "CRL distribution point, and keep the answer")
      ->group(group);
  addFlag(app, "--allow-revoked", out.revocation.allowRevoked,
          "sign even when a source says the signer certificate is revoked. With any of these options the "
          "certificate values (the signer certificate and the others given) and the revocation values are added "
          "as unsigned attributes")
      ->group(group);
}

AfterSignature signServicesHook(const SignServices& services, const std::vector<Bytes>& certificates) {
  if (services.tsa.url.empty() && !services.revocation.requested()) return AfterSignature();
  return [services, certificates](const Bytes& signatureValue, const Bytes& signerCertificate,
                                  std::vector<ExtraAttribute>& unsignedAttributes, std::string& error) {
    std::vector<ServiceAttribute> made;
    if (!services.tsa.url.empty()) {
      made.emplace_back();
      if (!timeStampAttribute(services.tsa, signatureValue, made.back(), error)) return false;
    }
    if (services.revocation.requested() &&
        !longTermAttributes(services.revocation, signerCertificate, certificates, made, error)) {
      return false;
    }
    for (ServiceAttribute& m : made) unsignedAttributes.push_back(ExtraAttribute{m.oid, std::move(m.value)});
    return true;
  };
}
