// The services `kolvari sign` can ask for each signature: a time-stamp token (--tsa) and long-term
// validation data (--ocsp-response, --revocation-crl, --fetch-revocation), parsed from the command line and
// run from the signing run's hook once the signature value is known.
#ifndef KOLVARI_TOOLS_SERVICES_SIGN_SERVICES_H
#define KOLVARI_TOOLS_SERVICES_SIGN_SERVICES_H

#include <cstddef>
#include <string>
#include <vector>

#include "commands.h"
#include "services/revocation_client.h"
#include "services/tsa_client.h"
#include "signing/signature_builder.h"

struct SignServices {
  TsaOptions tsa;  // no time stamp while its url is empty
  RevocationOptions revocation;
};

// The usage lines of these options.
extern const char kSignServicesUsage[];

// Reads the option at args[i] (advancing i past its value): 1 when it was one of these options, 0 when it is
// not, -1 when its value is missing or bad.
int parseSignServiceOption(const Arguments& args, size_t& i, SignServices& out);

// The hook that adds what was asked for, or an empty hook when nothing was. certificates are the ones the
// signature carries; they make up the certificate values beside the signer certificate.
AfterSignature signServicesHook(const SignServices& services, const std::vector<Bytes>& certificates);

#endif  // KOLVARI_TOOLS_SERVICES_SIGN_SERVICES_H
