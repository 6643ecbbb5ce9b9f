// The checks of one CMS SignedData, per signer: format, integrity, signer identification, certificate path,
// signature time-stamps and revocation (see verify_report.h for how they make the verdict).
#ifndef KOLVARI_TOOLS_VERIFY_VERIFY_CMS_H
#define KOLVARI_TOOLS_VERIFY_VERIFY_CMS_H

#include <vector>

#include "verify/verify_context.h"
#include "verify/verify_report.h"

// Judges every signer of der, a ContentInfo of type signedData, over detached content when given (else its
// encapsulated content). False when der is not a SignedData with a signer that the library decodes.
bool verifyCms(const Bytes& der, const ContentFeed* detached, const VerifyContext& context,
               std::vector<SignatureReport>& out);

// Judges der as a time-stamp token whose imprint covers the content (a PDF document time-stamp). False
// when der is not a time-stamp token the library decodes.
bool verifyTimeStampToken(const Bytes& der, const ContentFeed& covered, const VerifyContext& context,
                          SignatureReport& out);

#endif  // KOLVARI_TOOLS_VERIFY_VERIFY_CMS_H
