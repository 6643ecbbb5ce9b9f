#include "services/sign_services.h"

#include <cstdlib>

const char kSignServicesUsage[] =
    "                    [--tsa URL [--tsa-digest sha256|sha384|sha512] [--tsa-timeout SECONDS]]\n"
    "                    [--ocsp-response FILE]... [--revocation-crl FILE]... [--fetch-revocation]\n"
    "                    [--allow-revoked]\n";

namespace {

constexpr long kMaxTimeoutSeconds = 600;

// Whole seconds from 1 to kMaxTimeoutSeconds.
bool parseSeconds(const std::string& text, long& out) {
  if (text.empty() || text.size() > 3) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  out = std::strtol(text.c_str(), nullptr, 10);
  return out >= 1 && out <= kMaxTimeoutSeconds;
}

}  // namespace

int parseSignServiceOption(const Arguments& args, size_t& i, SignServices& out) {
  const std::string& a = args[i];
  const bool flag = a == "--fetch-revocation" || a == "--allow-revoked";
  const bool valued = a == "--tsa" || a == "--tsa-digest" || a == "--tsa-timeout" || a == "--ocsp-response" ||
                      a == "--revocation-crl";
  if (!flag && !valued) return 0;
  if (a == "--fetch-revocation") out.revocation.fetch = true;
  if (a == "--allow-revoked") out.revocation.allowRevoked = true;
  if (flag) return 1;
  if (i + 1 >= args.size()) return -1;
  const std::string& v = args[++i];
  if (a == "--tsa") {
    out.tsa.url = v;
  } else if (a == "--tsa-digest") {
    if (findDigest(v) == nullptr) return -1;
    out.tsa.digest = v;
  } else if (a == "--tsa-timeout") {
    // One limit for every HTTP exchange of the run: the time stamp and the revocation fetches.
    if (!parseSeconds(v, out.tsa.timeoutSeconds)) return -1;
    out.revocation.timeoutSeconds = out.tsa.timeoutSeconds;
  } else if (a == "--ocsp-response") {
    out.revocation.ocspResponseFiles.push_back(v);
  } else {
    out.revocation.crlFiles.push_back(v);
  }
  return 1;
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
