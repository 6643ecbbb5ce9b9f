#include "cli/validators.h"

#include "cli/signing_time.h"
#include "host_crypto.h"

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

CLI::Validator timeoutSeconds() {
  return valueCheck("seconds", [](std::string& v) {
    bool digits = !v.empty() && v.size() <= kMaxTimeoutDigits;
    for (char c : v) digits = digits && c >= '0' && c <= '9';
    const long seconds = digits ? std::stol(v) : 0;
    const bool inRange = seconds >= 1 && seconds <= kMaxTimeoutSeconds;
    return inRange ? std::string() : std::string("not whole seconds from 1 to 600");
  });
}
