// The time-stamp client (RFC 3161): asks a time-stamp authority over HTTP for a token over the hash of a
// signature value, checks the answer with the library's decoders and makes the signature-time-stamp
// attribute from the token.
#ifndef KOLVARI_TOOLS_SERVICES_TSA_CLIENT_H
#define KOLVARI_TOOLS_SERVICES_TSA_CLIENT_H

#include <string>
#include <vector>

#include "host_crypto.h"
#include "services/service_attribute.h"

struct TsaOptions {
  std::string url;
  std::string digest = "sha256";
  long timeoutSeconds = 10;
};

// The nonce of a request: eight random bytes, a positive INTEGER's minimal content octets.
inline constexpr size_t kNonceLength = 8;

// TimeStampReq { v1, messageImprint { digest, imprint }, nonce, certReq TRUE }.
bool timeStampRequest(const DigestChoice& digest, const Bytes& imprint, const Bytes& nonce, Bytes& out);
// Checks a TimeStampResp against the request: status granted (or granted with modifications), a token whose
// content is a TSTInfo, the same digest algorithm, imprint and nonce. token receives the token's DER.
bool checkTimeStampResponse(const Bytes& response, const DigestChoice& digest, const Bytes& imprint,
                            const Bytes& nonce, Bytes& token, std::string& error);
// Asks the authority for a token over imprint, the digest of the data to be time-stamped; token receives the
// checked token's DER (a ContentInfo holding SignedData).
bool requestTimeStampToken(const TsaOptions& options, const DigestChoice& digest, const Bytes& imprint,
                           Bytes& token, std::string& error);
// The whole exchange for one signature value; out is the attribute holding the token.
bool timeStampAttribute(const TsaOptions& options, const Bytes& signatureValue, ServiceAttribute& out,
                        std::string& error);

#endif  // KOLVARI_TOOLS_SERVICES_TSA_CLIENT_H
