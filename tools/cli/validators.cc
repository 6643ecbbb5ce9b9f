#include "cli/validators.h"

#include "cli/command_line.h"
#include "cli/signing_time.h"
#include "host_crypto.h"
#include "signing/batch_runner.h"
#include "signing/pass_phrase.h"

namespace {

constexpr long kMaxTimeoutSeconds = 600;
constexpr size_t kMaxTimeoutDigits = 3;

}  // namespace

CLI::Validator valueCheck(const std::string& name, std::function<std::string(std::string& value)> check) {
  return CLI::Validator(
      [check](std::string& value) {
        const std::string given = value;
        const std::string wrong = check(value);
        return wrong.empty() ? wrong : given + ": " + wrong;
      },
      "", name);
}

CLI::Validator digestName() {
  return valueCheck("digest", [](std::string& v) {
    return findDigest(v) != nullptr ? std::string() : std::string("not sha256, sha384 or sha512");
  });
}

CLI::Validator signingTime() {
  return valueCheck("time", [](std::string& v) {
    std::string longForm;
    std::string wrong = readSigningTime(v, longForm);
    if (wrong.empty()) v = longForm;
    return wrong;
  });
}

CLI::Validator jobsCount() {
  return valueCheck("count", [](std::string& v) {
    constexpr size_t kMostDigits = 2;
    bool digits = !v.empty() && v.size() <= kMostDigits;
    for (char c : v) digits = digits && c >= '0' && c <= '9';
    const unsigned long count = digits ? std::stoul(v) : 0;
    return count >= 1 && count <= kMostJobs ? std::string()
                                            : "not a whole number from 1 to " + std::to_string(kMostJobs);
  });
}

CLI::Validator timeoutSeconds() {
  return valueCheck("seconds", [](std::string& v) {
    bool digits = !v.empty() && v.size() <= kMaxTimeoutDigits;
    for (char c : v) digits = digits && c >= '0' && c <= '9';
    const long seconds = digits ? std::stol(v) : 0;
    const bool inRange = seconds >= 1 && seconds <= kMaxTimeoutSeconds;
    return inRange ? std::string() : std::string("not whole seconds from 1 to 600");
  });
}

CLI::Validator passSource() {
  return valueCheck("source", [](std::string& v) {
    return isPassSource(v) ? std::string() : std::string("not pass:TEXT, env:VAR, file:PATH, fd:N or stdin");
  });
}

void addSignerKeyOptions(CLI::App& app, SignerSource& source, std::string& pass) {
  const std::string group = "signer";
  addValue(app, "--key", source.key, "KEY",
           "the signer's private key: PEM or DER, traditional or PKCS #8, encrypted or not")
      ->group(group);
  addValue(app, "--cert", source.cert, "CERT",
           "the signer certificate first; further certificates in the file are added too (with --pkcs11: default "
           "the token's certificate with the key's id; with --p12: more certificates, or the signer certificate "
           "when the file holds none)")
      ->group(group);
  addValue(app, "--p12", source.p12, "FILE", "the key, its certificate and a chain from a PKCS #12 file")
      ->group(group)
      ->excludes("--key");
  addValue(app, "--pass", pass, "SOURCE",
           "the pass phrase of encrypted keys and PKCS #12 files, as openssl's -passin: pass:TEXT, env:VAR, "
           "file:PATH or fd:N (the first line), stdin (the first line); without it an encrypted key's pass phrase "
           "is asked for on the terminal")
      ->check(passSource())
      ->group(group);
  addValue(app, "--pkcs11", source.pkcs11, "URI",
           "sign with a key on a PKCS#11 token, named by an RFC 7512 URI: "
           "pkcs11:token=LABEL;object=KEYLABEL;id=%01?pin-value=PIN or ?pin-source=file:PATH; without a PIN in the "
           "URI it is asked for on the terminal")
      ->group(group)
      ->excludes("--key")
      ->excludes("--p12");
  addValue(app, "--pkcs11-module", source.pkcs11Module, "PATH",
           "the PKCS#11 module (default: module-path= of the URI, else p11-kit-proxy.so)")
      ->group(group)
      ->needs("--pkcs11");
}

std::string signerKeyFault(const SignerSource& source) {
  if (namesOneKey(source)) return std::string();
  if (!source.key.empty() && source.cert.empty()) return "--cert CERT is required";
  return "--key KEY with --cert CERT, --p12 FILE or --pkcs11 URI is required";
}
