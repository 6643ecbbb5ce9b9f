// The revocation check of the certificates of a path: the OCSP responses and CRLs at hand (and, when asked, those
// fetched from the certificate's responder or distribution point) that its issuer or an authorised responder
// signed and that are current at the validation time.
#ifndef KOLVARI_TOOLS_VERIFY_VERIFY_REVOCATION_H
#define KOLVARI_TOOLS_VERIFY_VERIFY_REVOCATION_H

#include <ctime>
#include <vector>

#include "verify/verify_context.h"
#include "verify/verify_report.h"

struct RevocationData {
  std::vector<Bytes> ocsp;  // OCSPResponse or BasicOCSPResponse
  std::vector<Bytes> crls;
};

// Adds the revocation check for certificate, issued by issuer, at time t to report. A certificate that has
// expired by the current time (context.now) and is judged at an earlier t (a proof of existence) needs a source
// current at t that says good; without one the check is INDETERMINATE OUT_OF_BOUNDS_NO_POE.
void checkRevocation(const VerifyContext& context, X509* certificate, X509* issuer, RevocationData data,
                     time_t t, SignatureReport& report);

// The revocation check of every certificate of chain (the signer first) but the trust anchor that ends it,
// each against the certificate after it, one check per certificate.
void checkChainRevocation(const VerifyContext& context, const std::vector<Certificate>& chain,
                          const RevocationData& data, time_t t, SignatureReport& report);

#endif  // KOLVARI_TOOLS_VERIFY_VERIFY_REVOCATION_H
