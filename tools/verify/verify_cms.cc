#include "verify/verify_cms.h"

#include <algorithm>
#include <cstring>
#include <map>

#include <openssl/err.h>
#include <openssl/ess.h>
#include <openssl/objects.h>
#include <openssl/ts.h>
#include <openssl/x509v3.h>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_oid.h"
#include "cms/cvel_a1_p72.h"
#include "cms/cvel_tsp_response.h"
#include "cms/cvel_tst_info.h"
#include "services/der_view.h"
#include "signing/archive_timestamp.h"
#include "verify/verify_revocation.h"
#include "x509/cvel_ocsp_response.h"

namespace {

constexpr int32_t kTagOctetString = 0x04;
constexpr unsigned char kTagOid = 0x06;
constexpr int32_t kTagSequence = 0x30;
constexpr unsigned char kTagSet = 0x31;
constexpr unsigned char kTagContextZero = 0x80;
// A signature with more certificates than this is refused: no real chain needs them, and each costs a parse.
constexpr uint32_t kMaxCertificates = 256;
// Signers and time-stamp tokens judged per SignedData.
constexpr uint32_t kMaxSigners = 64;
constexpr uint32_t kMaxTokens = 8;
// Content that is signed without signed attributes is held in memory for the one-shot verification.
constexpr size_t kMaxContentWithoutAttributes = 64u * 1024 * 1024;
constexpr size_t kChunk = 64 * 1024;

constexpr const char* kOidContentType = "1.2.840.113549.1.9.3";
constexpr const char* kOidMessageDigest = "1.2.840.113549.1.9.4";
constexpr const char* kOidSigningTime = "1.2.840.113549.1.9.5";
constexpr const char* kOidSigningCertificate = "1.2.840.113549.1.9.16.2.12";
constexpr const char* kOidSigningCertificateV2 = "1.2.840.113549.1.9.16.2.47";

constexpr const char* kFormat = "format";
constexpr const char* kIntegrity = "integrity";
constexpr const char* kIdentification = "signer identification";
constexpr const char* kPath = "certificate path";
constexpr const char* kTimeStamp = "time-stamp";

// Signed attributes by dotted OID, each with its values as whole elements.
using Attributes = std::map<std::string, std::vector<CvelString>>;

std::string dottedOf(const CvelString& oidElement) {
  std::string text;
  if (oidElement.isEmpty() || oidElement.data()[0] != kTagOid || !toDotted(oidElement, text)) text.clear();
  return text;
}

bool readAttributes(const Bytes& set, Attributes& out) {
  std::vector<CvelString> list;
  if (!childrenOf(copyOf(set), kTagSet, list)) return false;
  for (const CvelString& attribute : list) {
    std::vector<CvelString> parts;
    std::vector<CvelString> values;
    if (!childrenOf(attribute, kTagSequence, parts) || parts.size() != 2 || !childrenOf(parts[1], kTagSet, values)) {
      return false;
    }
    std::vector<CvelString>& slot = out[dottedOf(parts[0])];
    if (!slot.empty()) return false;  // an attribute type appears once
    for (CvelString& v : values) slot.push_back(std::move(v));
  }
  return true;
}

const CvelString* singleValue(const Attributes& attributes, const char* oid) {
  auto it = attributes.find(oid);
  return it != attributes.end() && it->second.size() == 1 ? &it->second[0] : nullptr;
}

bool digestOf(const EVP_MD* md, const ContentFeed& feed, Bytes& out) {
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  bool ok = ctx != nullptr && EVP_DigestInit_ex(ctx, md, nullptr) == 1;
  ok = ok && feed([&](const unsigned char* p, size_t n) { EVP_DigestUpdate(ctx, p, n); });
  unsigned int n = 0;
  out.assign(EVP_MAX_MD_SIZE, 0);
  ok = ok && EVP_DigestFinal_ex(ctx, out.data(), &n) == 1;
  out.resize(ok ? n : 0);
  EVP_MD_CTX_free(ctx);
  return ok;
}

ContentFeed bytesFeed(const unsigned char* data, size_t n) {
  return [data, n](const ChunkSink& sink) {
    sink(data, n);
    return true;
  };
}

// Everything one SignedData offers its signers.
struct SignedDataView {
  const CvelA1P72& p72;
  const ContentFeed* content;  // null for a detached signature judged without its content
  std::vector<Certificate> certificates;
  std::vector<Bytes> crls;
};

enum class Role { kSigner, kTimeStampAuthority };

// What a signer's checks found out, for the later ones.
struct SignerState {
  Certificate certificate;
  std::vector<Certificate> chain;
  time_t validationTime = 0;
};

// The certificate whose issuer is the very DER of issuer and whose serial number is serial: the usual case, in
// which the signer copied the name from the certificate, found without decoding the name.
Certificate findByIssuerBytes(const CvelString& issuer, const ASN1_INTEGER* serial,
                              const std::vector<Certificate>& certificates) {
  for (const Certificate& c : certificates) {
    const unsigned char* der = nullptr;
    size_t n = 0;
    if (X509_NAME_get0_der(X509_get_issuer_name(c.get()), &der, &n) == 1 &&
        issuer.equals(der, static_cast<uint32_t>(n)) &&
        ASN1_INTEGER_cmp(serial, X509_get0_serialNumber(c.get())) == 0) {
      return c;
    }
  }
  return nullptr;
}

Certificate findSigner(const CvelString& sid, const std::vector<Certificate>& certificates) {
  if (sid.isEmpty()) return nullptr;
  std::vector<CvelString> parts;
  if (sid.data()[0] == kTagSequence && childrenOf(sid, kTagSequence, parts) && parts.size() == 2) {
    const unsigned char* p = parts[1].data();
    ASN1_INTEGER* serial = d2i_ASN1_INTEGER(nullptr, &p, static_cast<long>(parts[1].length()));
    Certificate found = serial == nullptr ? nullptr : findByIssuerBytes(parts[0], serial, certificates);
    if (found || serial == nullptr) {
      ASN1_INTEGER_free(serial);
      return found;
    }
    // Names that differ in bytes may still be the same name (X509_NAME_cmp compares them canonically).
    p = parts[0].data();
    X509_NAME* issuer = d2i_X509_NAME(nullptr, &p, static_cast<long>(parts[0].length()));
    for (const Certificate& c : certificates) {
      if (issuer != nullptr && serial != nullptr && X509_NAME_cmp(issuer, X509_get_issuer_name(c.get())) == 0 &&
          ASN1_INTEGER_cmp(serial, X509_get0_serialNumber(c.get())) == 0) {
        found = c;
        break;
      }
    }
    X509_NAME_free(issuer);
    ASN1_INTEGER_free(serial);
    return found;
  }
  CvelString keyId;
  if (sid.data()[0] != kTagContextZero || !contentOf(sid, kTagContextZero, keyId)) return nullptr;
  for (const Certificate& c : certificates) {
    const ASN1_OCTET_STRING* id = X509_get0_subject_key_id(c.get());
    if (id != nullptr && static_cast<uint32_t>(ASN1_STRING_length(id)) == keyId.length() &&
        std::memcmp(ASN1_STRING_get0_data(id), keyId.data(), keyId.length()) == 0) {
      return c;
    }
  }
  return nullptr;
}

// Format: the parts the later checks read are there and well formed.
bool checkFormat(const SignedDataView& sd, const CvelP7SignerInfo& si, Attributes& attributes,
                 const EVP_MD*& md, SignatureReport& r) {
  md = digestOfAlgorithm(si.digestAlgorithm());
  std::string fault;
  if (sd.p72.certificates().size() > kMaxCertificates) {
    fault = "more than " + std::to_string(kMaxCertificates) + " certificates";
  } else if (md == nullptr) {
    fault = "the digest algorithm is not one OpenSSL offers";
  } else if (!si.signedAttributes().isEmpty()) {
    if (!readAttributes(signedAttributesAsSigned(si.signedAttributes().data(), si.signedAttributes().length()),
                               attributes)) {
      fault = "the signed attributes do not decode (or one type appears twice)";
    } else if (singleValue(attributes, kOidMessageDigest) == nullptr ||
               singleValue(attributes, kOidContentType) == nullptr) {
      fault = "the signed attributes lack a single content-type or message-digest value";
    } else if (!singleValue(attributes, kOidContentType)->equals(sd.p72.contentInfo().contentType())) {
      fault = "the content-type attribute differs from the encapsulated content type";
    }
  }
  if (fault.empty() && sd.content == nullptr) fault = "a detached signature: name the signed file with --content";
  if (!fault.empty()) {
    r.add(kFormat, Outcome::kIndeterminate, fault, "FORMAT_FAILURE");
    return false;
  }
  r.add(kFormat, Outcome::kPassed, "the SignedData and the SignerInfo decode");
  return true;
}

void checkIntegrity(const SignedDataView& sd, const CvelP7SignerInfo& si, const Attributes& attributes,
                    const EVP_MD* md, X509* signer, SignatureReport& r) {
  const Bytes algorithm = bytesOf(si.signatureAlgorithm());
  const Bytes signature = bytesOf(si.signatureValue());
  std::string reason;
  int verified = -1;
  if (!si.signedAttributes().isEmpty()) {
    Bytes digest;
    CvelString expected;
    if (!digestOf(md, *sd.content, digest)) {
      r.add(kIntegrity, Outcome::kIndeterminate, "the content cannot be read", "SIGNED_DATA_NOT_FOUND");
      return;
    }
    if (!contentOf(*singleValue(attributes, kOidMessageDigest), kTagOctetString, expected) ||
        !expected.equals(digest.data(), static_cast<uint32_t>(digest.size()))) {
      r.add(kIntegrity, Outcome::kFailed, "the message digest differs from the digest of the content",
            "HASH_FAILURE");
      return;
    }
    if (signer == nullptr) {
      r.add(kIntegrity, Outcome::kIndeterminate, "the message digest matches; no certificate to check the "
            "signature value with", "NO_SIGNING_CERTIFICATE_FOUND");
      return;
    }
    const Bytes set = signedAttributesAsSigned(si.signedAttributes().data(), si.signedAttributes().length());
    verified = verifySignatureValue(X509_get0_pubkey(signer), algorithm, md, set.data(), set.size(), signature,
                                    reason);
    if (verified == 1) reason = "the message digest matches and the signature over the signed attributes verifies";
  } else {
    Bytes content;
    bool tooLarge = false;
    if (!(*sd.content)([&](const unsigned char* p, size_t n) {
          if (content.size() + n > kMaxContentWithoutAttributes) tooLarge = true;
          if (!tooLarge) content.insert(content.end(), p, p + n);
        }) || tooLarge) {
      r.add(kIntegrity, Outcome::kIndeterminate, "the content cannot be read, or is too large to verify without "
            "signed attributes", "SIGNED_DATA_NOT_FOUND");
      return;
    }
    if (signer == nullptr) {
      r.add(kIntegrity, Outcome::kIndeterminate, "no certificate to check the signature value with",
            "NO_SIGNING_CERTIFICATE_FOUND");
      return;
    }
    verified = verifySignatureValue(X509_get0_pubkey(signer), algorithm, md, content.data(), content.size(),
                                    signature, reason);
    if (verified == 1) reason = "the signature over the content verifies (no signed attributes)";
  }
  if (verified == 1) {
    r.add(kIntegrity, Outcome::kPassed, reason);
  } else if (verified == 0) {
    r.add(kIntegrity, Outcome::kFailed, reason, "SIG_CRYPTO_FAILURE");
  } else {
    r.add(kIntegrity, Outcome::kIndeterminate, reason, "CRYPTO_CONSTRAINTS_FAILURE");
  }
}

void checkIdentification(const Attributes& attributes, const Certificate& signer,
                         const std::vector<Certificate>& certificates, SignatureReport& r) {
  if (!signer) {
    r.add(kIdentification, Outcome::kIndeterminate, "no certificate in the signature matches the signer identifier",
          "NO_SIGNING_CERTIFICATE_FOUND");
    return;
  }
  const CvelString* v2 = singleValue(attributes, kOidSigningCertificateV2);
  const CvelString* v1 = singleValue(attributes, kOidSigningCertificate);
  if (v2 == nullptr && v1 == nullptr) {
    r.add(kIdentification, Outcome::kPassed, "the signer identifier matches a certificate (no signing-certificate "
          "attribute)");
    return;
  }
  const unsigned char* p = v2 != nullptr ? v2->data() : v1->data();
  const long n = static_cast<long>(v2 != nullptr ? v2->length() : v1->length());
  ESS_SIGNING_CERT_V2* ss2 = v2 != nullptr ? d2i_ESS_SIGNING_CERT_V2(nullptr, &p, n) : nullptr;
  ESS_SIGNING_CERT* ss1 = v2 == nullptr ? d2i_ESS_SIGNING_CERT(nullptr, &p, n) : nullptr;
  STACK_OF(X509)* chain = sk_X509_new_null();
  sk_X509_push(chain, signer.get());
  for (const Certificate& c : certificates) {
    if (c != signer) sk_X509_push(chain, c.get());
  }
  const bool matches = (ss1 != nullptr || ss2 != nullptr) && OSSL_ESS_check_signing_certs(ss1, ss2, chain, 1) > 0;
  sk_X509_free(chain);
  ESS_SIGNING_CERT_free(ss1);
  ESS_SIGNING_CERT_V2_free(ss2);
  ERR_clear_error();
  const std::string attribute = v2 != nullptr ? "signing-certificate-v2" : "signing-certificate";
  if (matches) {
    r.add(kIdentification, Outcome::kPassed, "the signer identifier and the " + attribute + " attribute name the "
          "signer certificate");
  } else {
    r.add(kIdentification, Outcome::kIndeterminate, "the " + attribute + " attribute names another certificate",
          "NO_SIGNING_CERTIFICATE_FOUND");
  }
}

std::string pathSubIndication(int error) {
  switch (error) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID: return "OUT_OF_BOUNDS_NO_POE";
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_CERT_UNTRUSTED:
    case X509_V_ERR_CERT_CHAIN_TOO_LONG: return "NO_CERTIFICATE_CHAIN_FOUND";
    default: return "CERTIFICATE_CHAIN_GENERAL_FAILURE";
  }
}

// The key usage a signer needs: digitalSignature or nonRepudiation when the extension is there; a
// time-stamping authority needs the timeStamping extended key usage.
bool usageFits(X509* certificate, Role role, std::string& reason) {
  const uint32_t flags = X509_get_extension_flags(certificate);
  if (role == Role::kTimeStampAuthority) {
    const bool fits = (flags & EXFLAG_XKUSAGE) != 0 && (X509_get_extended_key_usage(certificate) & XKU_TIMESTAMP) != 0;
    reason = fits ? "" : "the time-stamping authority's certificate lacks the timeStamping extended key usage";
    return fits;
  }
  const bool fits = (flags & EXFLAG_KUSAGE) == 0 ||
                    (X509_get_key_usage(certificate) & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) != 0;
  reason = fits ? "" : "the signer certificate's key usage allows neither digitalSignature nor nonRepudiation";
  return fits;
}

void checkPath(const SignedDataView& sd, const VerifyContext& context, Role role, SignerState& state,
               SignatureReport& r) {
  if (!state.certificate) {
    r.add(kPath, Outcome::kSkipped, "no signer certificate");
    return;
  }
  std::vector<Certificate> untrusted = sd.certificates;
  untrusted.insert(untrusted.end(), context.extraCertificates.begin(), context.extraCertificates.end());
  PathResult path = context.paths->get(context.store.get(), state.certificate.get(), untrusted, state.validationTime);
  const std::string at = " at " + isoTime(state.validationTime);
  std::string reason;
  if (path.error != X509_V_OK) {
    r.add(kPath, Outcome::kIndeterminate, path.errorText + at, pathSubIndication(path.error));
  } else if (!usageFits(state.certificate.get(), role, reason)) {
    r.add(kPath, Outcome::kIndeterminate, reason, "CHAIN_CONSTRAINTS_FAILURE");
  } else {
    r.add(kPath, Outcome::kPassed, "a path of " + std::to_string(path.chain.size()) + " certificates to " +
          subjectText(path.chain.back().get()) + at);
    state.chain = std::move(path.chain);
  }
}

void judgeSigner(const SignedDataView& sd, const CvelP7SignerInfo& si, const VerifyContext& context, Role role,
                 SignatureReport& r);

// The imprint of a token's TSTInfo against what it covers, and the time it gives.
void checkImprint(const CvelTSTInfo& token, const ContentFeed& covered, SignatureReport& r, time_t& genTime) {
  const CvelString& info = token.content();
  const unsigned char* p = info.data();
  TS_TST_INFO* tst = d2i_TS_TST_INFO(nullptr, &p, static_cast<long>(info.length()));
  TS_MSG_IMPRINT* imprint = tst == nullptr ? nullptr : TS_TST_INFO_get_msg_imprint(tst);
  const EVP_MD* md = imprint == nullptr ? nullptr : EVP_get_digestbyobj(TS_MSG_IMPRINT_get_algo(imprint)->algorithm);
  Bytes digest;
  if (md == nullptr || !timeOf(TS_TST_INFO_get_time(tst), genTime) || !digestOf(md, covered, digest)) {
    r.add("imprint", Outcome::kIndeterminate, "the TSTInfo or its imprint cannot be read", "FORMAT_FAILURE");
  } else {
    const ASN1_OCTET_STRING* hashed = TS_MSG_IMPRINT_get_msg(imprint);
    const bool equal = static_cast<size_t>(ASN1_STRING_length(hashed)) == digest.size() &&
                       std::memcmp(ASN1_STRING_get0_data(hashed), digest.data(), digest.size()) == 0;
    if (equal) {
      r.add("imprint", Outcome::kPassed, "the message imprint matches what the token covers");
    } else {
      r.add("imprint", Outcome::kFailed, "the message imprint differs from the digest of what the token covers",
            "HASH_FAILURE");
    }
  }
  TS_TST_INFO_free(tst);
  ERR_clear_error();
}

// A time-stamp token judged as a signature of its authority, then its imprint over covered.
void judgeToken(const CvelTSTInfo& token, const ContentFeed& covered, const VerifyContext& context,
                SignatureReport& r, time_t& genTime) {
  r.kind = "time-stamp token";
  const CvelA1P72& p72 = token.signedData();
  const ContentFeed tstInfo = bytesFeed(token.content().data(), token.content().length());
  SignedDataView sd{p72, &tstInfo, {}, {}};
  for (uint32_t i = 0; i < p72.certificates().size() && i <= kMaxCertificates; ++i) {
    const CvelString& der = p72.certificates().get(i)->encoded();
    Certificate c = context.certificates->get(der.data(), der.length());
    if (c) sd.certificates.push_back(c);
  }
  CvelP7SignerInfo* si = nullptr;
  genTime = 0;
  if (p72.signerInfos().size() != 1 || p72.signerInfos().get(0, si) != kCvelOk || si == nullptr) {
    r.add(kFormat, Outcome::kIndeterminate, "the time-stamp token does not have exactly one signer",
          "FORMAT_FAILURE");
    return;
  }
  judgeSigner(sd, *si, context, Role::kTimeStampAuthority, r);
  checkImprint(token, covered, r, genTime);
}

// The signature time-stamps of the unsigned attributes: the earliest that passes sets the validation time.
void checkTimeStamps(const CvelP7SignerInfo& si, const VerifyContext& context, SignerState& state,
                     SignatureReport& r) {
  const ContentFeed signatureValue = bytesFeed(si.signatureValue().data(), si.signatureValue().length());
  std::vector<SignatureReport> tokens;
  time_t best = 0;
  for (uint32_t i = 0; i < si.timeStamps().size() && i < kMaxTokens; ++i) {
    CvelTSPResponse* response = nullptr;
    if (si.timeStamps().get(i, response) != kCvelOk || response == nullptr || response->fromSignedAttributes()) {
      continue;
    }
    tokens.emplace_back();
    time_t genTime = 0;
    judgeToken(response->token(), signatureValue, context, tokens.back(), genTime);
    if (tokens.back().indication() == Indication::kTotalPassed && (best == 0 || genTime < best)) best = genTime;
  }
  if (tokens.empty()) {
    r.add(kTimeStamp, Outcome::kSkipped, "no signature time-stamp");
    return;
  }
  if (best != 0) {
    state.validationTime = best;
    r.timestamp = isoTime(best);
    r.add(kTimeStamp, Outcome::kPassed, "a signature time-stamp of " + r.timestamp + " by " + tokens[0].signer);
    return;
  }
  const SignatureReport& first = tokens[0];
  for (const Check& c : first.checks) {
    if (c.outcome == Outcome::kFailed || c.outcome == Outcome::kIndeterminate) {
      r.add(kTimeStamp, c.outcome, "signature time-stamp, " + c.name + ": " + c.reason, c.subIndication);
      return;
    }
  }
}

// The imprint input of an archive-time-stamp-v3, computed again from the decoded fields and the hash index
// its token's signer carries; empty with a reason when the token or the index cannot be read.
std::string archiveInput(const SignedDataView& sd, const CvelP7SignerInfo& si, const CvelTSTInfo& token,
                         Bytes& input) {
  CvelP7SignerInfo* tokenSigner = nullptr;
  std::vector<CvelString> index;
  const EVP_MD* md = digestOfAlgorithm(token.hashAlgorithm());
  Bytes contentHash;
  if (md == nullptr || token.signedData().signerInfos().size() != 1 ||
      token.signedData().signerInfos().get(0, tokenSigner) != kCvelOk || tokenSigner == nullptr ||
      !attributeValues(tokenSigner->unsignedAttributes(), kOidAtsHashIndexV3, index) || index.size() != 1) {
    return "the token has no single signer with one ats-hash-index-v3";
  }
  std::vector<Bytes> certificates;
  std::string reason;
  for (uint32_t i = 0; i < sd.p72.certificates().size() && i <= kMaxCertificates; ++i) {
    certificates.push_back(bytesOf(sd.p72.certificates().get(i)->encoded()));
  }
  if (!hashIndexMatches(index[0], certificates, sd.crls, si.unsignedAttributes(), reason)) return reason;
  if (!digestOf(md, *sd.content, contentHash)) return "the content cannot be read";
  if (!archiveImprintInput(sd.p72.contentInfo().contentType(), contentHash, si, bytesOf(index[0]), input)) {
    return "the SignerInfo's fields cannot be encoded";
  }
  return "";
}

// Each archive-time-stamp-v3 of the unsigned attributes, judged as a signature time-stamp is, over the
// imprint input computed again; no check at all for a signer without one.
void checkArchiveTimeStamps(const SignedDataView& sd, const CvelP7SignerInfo& si, const VerifyContext& context,
                            SignatureReport& r) {
  constexpr const char* kArchive = "archive time-stamp";
  std::vector<CvelString> tokens;
  if (!attributeValues(si.unsignedAttributes(), kOidArchiveTimeStampV3, tokens)) return;
  for (size_t i = 0; i < tokens.size() && i < kMaxTokens; ++i) {
    CvelTSTInfo token;
    Bytes input;
    std::string fault = token.encoded().assign(tokens[i]) == kCvelOk && token.decode() == kCvelOk
                            ? archiveInput(sd, si, token, input)
                            : "the attribute's value is not a time-stamp token";
    if (!fault.empty()) {
      r.add(kArchive, Outcome::kIndeterminate, fault, "FORMAT_FAILURE");
      continue;
    }
    SignatureReport judged;
    time_t genTime = 0;
    judgeToken(token, bytesFeed(input.data(), input.size()), context, judged, genTime);
    if (judged.indication() == Indication::kTotalPassed) {
      r.add(kArchive, Outcome::kPassed, "an archive time-stamp of " + isoTime(genTime) + " by " + judged.signer +
            " over the content, the signer's fields and its hash index");
      continue;
    }
    for (const Check& c : judged.checks) {
      if (c.outcome == Outcome::kFailed || c.outcome == Outcome::kIndeterminate) {
        r.add(kArchive, c.outcome, c.name + ": " + c.reason, c.subIndication);
        break;
      }
    }
  }
}

RevocationData revocationDataOf(const SignedDataView& sd, const CvelP7SignerInfo& si, const VerifyContext& context) {
  RevocationData data;
  const CvelEtsRevocationValues& values = si.revocationValues();
  for (uint32_t i = 0; i < values.ocspValues().size(); ++i) {
    CvelOCSPResponse* o = nullptr;
    if (values.ocspValues().get(i, o) == kCvelOk && o != nullptr) data.ocsp.push_back(bytesOf(o->encoded()));
  }
  for (uint32_t i = 0; i < values.crlValues().size(); ++i) {
    CvelEtsRevocationValues::CvelEtsTriple* t = nullptr;
    if (values.crlValues().get(i, t) == kCvelOk && t != nullptr) data.crls.push_back(bytesOf(t->element()));
  }
  data.crls.insert(data.crls.end(), sd.crls.begin(), sd.crls.end());
  data.ocsp.insert(data.ocsp.end(), context.extraOcsp.begin(), context.extraOcsp.end());
  data.crls.insert(data.crls.end(), context.extraCrls.begin(), context.extraCrls.end());
  return data;
}

void judgeSigner(const SignedDataView& sd, const CvelP7SignerInfo& si, const VerifyContext& context, Role role,
                 SignatureReport& r) {
  Attributes attributes;
  const EVP_MD* md = nullptr;
  if (!checkFormat(sd, si, attributes, md, r)) return;
  SignerState state;
  state.validationTime = context.now;
  std::vector<Certificate> all = sd.certificates;
  all.insert(all.end(), context.extraCertificates.begin(), context.extraCertificates.end());
  state.certificate = findSigner(si.signerIdentifier(), all);
  if (state.certificate) r.signer = subjectText(state.certificate.get());
  time_t signingTime = 0;
  const CvelString* time = singleValue(attributes, kOidSigningTime);
  if (time != nullptr && timeOfElement(time->data(), time->length(), signingTime)) r.signingTime = isoTime(signingTime);

  checkIntegrity(sd, si, attributes, md, state.certificate.get(), r);
  checkIdentification(attributes, state.certificate, all, r);
  // The time-stamps come before the path, whose validation time they give, and are reported after it.
  SignatureReport stamps;
  if (role == Role::kSigner) checkTimeStamps(si, context, state, stamps);
  if (role == Role::kSigner) checkArchiveTimeStamps(sd, si, context, stamps);
  r.timestamp = stamps.timestamp;
  // A later document time-stamp proves that the signature existed at its time: the path is judged then.
  const bool proven = context.proofOfExistence && *context.proofOfExistence < state.validationTime;
  if (proven) state.validationTime = *context.proofOfExistence;
  checkPath(sd, context, role, state, r);
  if (proven) r.checks.back().reason += " (the time of a later document time-stamp)";
  r.checks.insert(r.checks.end(), stamps.checks.begin(), stamps.checks.end());
  if (state.chain.empty()) {
    r.add("revocation", Outcome::kSkipped, "no certificate path to check");
    return;
  }
  checkChainRevocation(context, state.chain, revocationDataOf(sd, si, context), state.validationTime, r);
}

// The encapsulated content as a feed, reading content left in the input piece by piece.
ContentFeed encapsulatedFeed(const CvelP71& info, CvelA1Input& in) {
  if (info.contentMode() == CvelP71::kContentInMemory) return bytesFeed(info.content().data(), info.content().length());
  return [&info, &in](const ChunkSink& sink) {
    Bytes buffer(kChunk);
    const uint32_t total = static_cast<uint32_t>(info.contentLength());
    for (uint32_t offset = 0; offset < total;) {
      uint32_t got = 0;
      const uint32_t want = static_cast<uint32_t>(std::min<size_t>(kChunk, total - offset));
      if (info.readLargeContent(in, offset, buffer.data(), want, &got) != kCvelOk || got == 0) return false;
      sink(buffer.data(), got);
      offset += got;
    }
    return true;
  };
}

bool decodeSignedData(const CvelString& der, CvelA1InputString& in, CvelA1P72& p72) {
  CvelA1StreamCursor cursor;
  return p72.decode(in, cursor) == kCvelOk && !p72.contentInfo().contentType().isEmpty() &&
         p72.signerInfos().size() > 0 && der.length() > 0;
}

}  // namespace

bool verifyCms(const Bytes& der, const ContentFeed* detached, const VerifyContext& context,
               std::vector<SignatureReport>& out) {
  const CvelString whole = copyOf(der);
  CvelA1InputString in(whole, 0, whole.length());
  CvelA1P72 p72;
  if (!decodeSignedData(whole, in, p72)) return false;
  ContentFeed encapsulated;
  const bool hasContent = p72.contentInfo().contentMode() != CvelP71::kNoContent;
  if (hasContent) encapsulated = encapsulatedFeed(p72.contentInfo(), in);
  SignedDataView sd{p72, detached != nullptr ? detached : (hasContent ? &encapsulated : nullptr), {}, {}};
  for (uint32_t i = 0; i < p72.certificates().size() && i <= kMaxCertificates; ++i) {
    const CvelString& c = p72.certificates().get(i)->encoded();
    Certificate x = context.certificates->get(c.data(), c.length());
    if (x) sd.certificates.push_back(x);
  }
  for (uint32_t i = 0; i < p72.crls().size() && i <= kMaxCertificates; ++i) {
    CvelCRL* crl = nullptr;
    if (p72.crls().get(i, crl) == kCvelOk && crl != nullptr) sd.crls.push_back(bytesOf(crl->encoded()));
  }
  for (uint32_t i = 0; i < p72.signerInfos().size() && i < kMaxSigners; ++i) {
    CvelP7SignerInfo* si = nullptr;
    out.emplace_back();
    if (p72.signerInfos().get(i, si) != kCvelOk || si == nullptr) {
      out.back().add(kFormat, Outcome::kIndeterminate, "the SignerInfo cannot be read", "FORMAT_FAILURE");
      continue;
    }
    judgeSigner(sd, *si, context, Role::kSigner, out.back());
  }
  return true;
}

bool verifyTimeStampToken(const Bytes& der, const ContentFeed& covered, const VerifyContext& context,
                          SignatureReport& out) {
  CvelTSTInfo token;
  if (token.encoded().assign(der.data(), static_cast<uint32_t>(der.size())) != kCvelOk || token.decode() != kCvelOk) {
    return false;
  }
  time_t genTime = 0;
  judgeToken(token, covered, context, out, genTime);
  out.kind = "document time-stamp";
  if (genTime != 0) out.timestamp = isoTime(genTime);
  return true;
}
