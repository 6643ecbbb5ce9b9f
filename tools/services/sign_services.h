// The services `kolvari sign` can ask for each signature: a time-stamp token (--tsa) and long-term
// validation data (--ocsp-response, --revocation-crl, --fetch-revocation), parsed from the command line and
// run from the signing run's hook once the signature value is known.
#ifndef KOLVARI_TOOLS_SERVICES_SIGN_SERVICES_H
#define KOLVARI_TOOLS_SERVICES_SIGN_SERVICES_H

#include <cstddef>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "services/revocation_client.h"
#include "services/tsa_client.h"
#include "signing/signature_builder.h"

struct SignServices {
  TsaOptions tsa;  // no time stamp while its url is empty
  RevocationOptions revocation;
};

// The time-stamp options (--tsa, --tsa-digest, --tsa-timeout) and the long-term validation options
// (--ocsp-response, --revocation-crl, --fetch-revocation, --allow-revoked), declared on a command's options.
void addTimeStampOptions(CLI::App& app, SignServices& out);
void addRevocationOptions(CLI::App& app, SignServices& out);

// The hook that adds what was asked for, or an empty hook when nothing was. certificates are the ones the
// signature carries; they make up the certificate values beside the signer certificate.
AfterSignature signServicesHook(const SignServices& services, const std::vector<Bytes>& certificates);

#endif  // KOLVARI_TOOLS_SERVICES_SIGN_SERVICES_H
