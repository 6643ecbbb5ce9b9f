#include "services/tsa_client.h"

#include <algorithm>

#include <openssl/rand.h>

#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_der.h"
#include "cms/cvel_tst_info.h"
#include "services/der_view.h"
#include "services/http_client.h"

namespace {

constexpr char kQueryType[] = "application/timestamp-query";
constexpr unsigned char kVersion1 = 1;
constexpr unsigned char kTrue = 0xFF;
// PKIStatus values that carry a token.
constexpr unsigned char kGranted = 0;
constexpr unsigned char kGrantedWithMods = 1;
constexpr unsigned char kPositiveTopBit = 0x40;
constexpr unsigned char kSignBits = 0x7F;

// The first text of a PKIFreeText, for the message of a refused request; empty when there is none.
std::string firstStatusText(const std::vector<CvelString>& statusInfo) {
  std::vector<CvelString> texts;
  if (statusInfo.size() < 2 || !childrenOf(statusInfo[1], kTagSequence, texts) || texts.empty()) return "";
  CvelString text;
  if (!contentOf(texts[0], kTagUtf8String, text)) return "";
  return std::string(reinterpret_cast<const char*>(text.data()), text.length());
}

bool sameBytes(const CvelString& a, const Bytes& b) {
  return a.length() == b.size() && std::equal(b.begin(), b.end(), a.data());
}

// The AlgorithmIdentifier names the algorithm oid; its parameters (absent or NULL) are not compared.
bool namesAlgorithm(const CvelString& algorithmIdentifier, const CvelString& oid) {
  std::vector<CvelString> parts;
  return childrenOf(algorithmIdentifier, kTagSequence, parts) && !parts.empty() && parts[0].equals(oid);
}

bool randomNonce(Bytes& nonce) {
  nonce.resize(kNonceLength);
  if (RAND_bytes(nonce.data(), static_cast<int>(nonce.size())) != 1) return false;
  // Positive, and no leading octet DER would drop: the bytes are the INTEGER's content as they stand.
  nonce[0] = static_cast<unsigned char>((nonce[0] & kSignBits) | kPositiveTopBit);
  return true;
}

}  // namespace

bool timeStampRequest(const DigestChoice& digest, const Bytes& imprint, const Bytes& nonce, Bytes& out) {
  CvelString oid;
  if (!oidElement(digest.digestOid, oid)) return false;
  // TimeStampReq ::= SEQUENCE { version INTEGER { v1(1) }, messageImprint MessageImprint,
  //   reqPolicy TSAPolicyId OPTIONAL, nonce INTEGER OPTIONAL, certReq BOOLEAN DEFAULT FALSE,
  //   extensions [0] IMPLICIT Extensions OPTIONAL }
  return cvelEncodeDer(out, [&](CvelDerWriter& w) {
           w.element(kTagSequence, [&] {
             w.element(kTagInteger, &kVersion1, 1);
             w.element(kTagSequence, [&] {
               w.element(kTagSequence, [&] {
                 w.bytes(oid);
                 w.bytes(kDerNull, sizeof kDerNull);
               });
               w.element(kTagOctetString, imprint.data(), imprint.size());
             });
             w.element(kTagInteger, nonce.data(), nonce.size());
             w.element(kTagBoolean, &kTrue, 1);
           });
         }) == kCvelOk;
}

bool checkTimeStampResponse(const Bytes& response, const DigestChoice& digest, const Bytes& imprint,
                            const Bytes& nonce, Bytes& token, std::string& error) {
  // TimeStampResp ::= SEQUENCE { status PKIStatusInfo, timeStampToken TimeStampToken OPTIONAL }
  // PKIStatusInfo ::= SEQUENCE { status PKIStatus, statusString PKIFreeText OPTIONAL, failInfo OPTIONAL }
  const CvelString der = copyOf(response);
  std::vector<CvelString> parts;
  std::vector<CvelString> statusInfo;
  CvelString status;
  if (!childrenOf(der, kTagSequence, parts) || parts.empty() || parts.size() > 2 ||
      !childrenOf(parts[0], kTagSequence, statusInfo) || statusInfo.empty() ||
      !contentOf(statusInfo[0], kTagInteger, status) || status.length() != 1) {
    error = "the time-stamp authority's answer is not a time-stamp response";
    return false;
  }
  if (status.data()[0] != kGranted && status.data()[0] != kGrantedWithMods) {
    const std::string text = firstStatusText(statusInfo);
    error = "the time-stamp authority refused the request (status " + std::to_string(status.data()[0]) +
            (text.empty() ? "" : ": " + text) + ")";
    return false;
  }
  CvelTSTInfo info;
  if (parts.size() != 2 || info.encoded().assign(parts[1]) != kCvelOk || info.decode() != kCvelOk) {
    error = "the time-stamp authority's answer holds no time-stamp token";
    return false;
  }
  CvelString oid;
  CvelString hashed;
  if (!oidElement(digest.digestOid, oid)) {
    error = std::string("cannot encode the digest OID ") + digest.digestOid;
    return false;
  }
  if (!namesAlgorithm(info.hashAlgorithm(), oid) ||
      !contentOf(info.hashedMessage(), kTagOctetString, hashed) || !sameBytes(hashed, imprint)) {
    error = "the time-stamp token's message imprint is not the hash of the signature value";
    return false;
  }
  if (!sameBytes(info.nonce(), nonce)) {
    error = "the time-stamp token's nonce is not the one sent";
    return false;
  }
  // certReq was true: the authority must put its certificate into the token.
  if (info.signedData().certificates().size() == 0) {
    error = "the time-stamp token carries no certificate although the request asked for one";
    return false;
  }
  token = bytesOf(parts[1]);
  return true;
}

bool requestTimeStampToken(const TsaOptions& options, const DigestChoice& digest, const Bytes& imprint,
                           Bytes& token, std::string& error) {
  Bytes nonce;
  HttpExchange exchange;
  if (!randomNonce(nonce) || !timeStampRequest(digest, imprint, nonce, exchange.body)) {
    error = "cannot make the time-stamp request: " + opensslError();
    return false;
  }
  exchange.url = options.url;
  exchange.timeoutSeconds = options.timeoutSeconds;
  exchange.contentType = kQueryType;
  Bytes response;
  std::string why;
  if (!httpExchange(exchange, response, why)) {
    error = "time-stamp authority: " + why;
    return false;
  }
  return checkTimeStampResponse(response, digest, imprint, nonce, token, error);
}

bool timeStampAttribute(const TsaOptions& options, const Bytes& signatureValue, ServiceAttribute& out,
                        std::string& error) {
  const DigestChoice* digest = findDigest(options.digest);
  if (digest == nullptr) {
    error = "unknown time-stamp digest '" + options.digest + "' (sha256, sha384 or sha512)";
    return false;
  }
  Bytes imprint;
  if (!digestBytes(*digest, signatureValue, imprint)) {
    error = "cannot make the time-stamp request: " + opensslError();
    return false;
  }
  out.oid = kOidTimeStampTokenAttribute;
  return requestTimeStampToken(options, *digest, imprint, out.value, error);
}
