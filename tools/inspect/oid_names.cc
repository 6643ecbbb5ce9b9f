#include "inspect/oid_names.h"

#include "asn1/cvel_oid.h"
#include "asn1/cvel_string.h"

namespace {

struct OidName {
  const char* dotted;
  const char* name;
};

constexpr OidName kOidNames[] = {
    {"1.2.840.113549.1.7.1", "data"},
    {"1.2.840.113549.1.7.2", "signedData"},
    {"1.2.840.113549.1.9.16.1.4", "id-ct-TSTInfo"},
    {"1.2.840.113549.1.9.3", "contentType"},
    {"1.2.840.113549.1.9.4", "messageDigest"},
    {"1.2.840.113549.1.9.5", "signingTime"},
    {"1.2.840.113549.1.9.6", "countersignature"},
    {"1.2.840.113549.1.9.15", "smimeCapabilities"},
    {"1.2.840.113549.1.9.52", "cmsAlgorithmProtect"},
    {"1.2.840.113549.1.9.16.2.12", "signingCertificate"},
    {"1.2.840.113549.1.9.16.2.47", "signingCertificateV2"},
    {"1.2.840.113549.1.9.16.2.14", "timeStampToken"},
    {"1.2.840.113549.1.9.16.2.15", "sigPolicyId"},
    {"1.2.840.113549.1.9.16.2.23", "certificateValues"},
    {"1.2.840.113549.1.9.16.2.24", "revocationValues"},
    {"1.2.840.113549.1.9.16.2.22", "revocationRefs"},
    {"1.2.840.113549.1.9.16.2.21", "completeCertificateRefs"},
    {"1.3.6.1.4.1.47731.1", "signatureCreationEnvironment"},
    {"1.3.14.3.2.26", "sha1"},
    {"2.16.840.1.101.3.4.2.4", "sha224"},
    {"2.16.840.1.101.3.4.2.1", "sha256"},
    {"2.16.840.1.101.3.4.2.2", "sha384"},
    {"2.16.840.1.101.3.4.2.3", "sha512"},
    {"1.2.840.113549.2.5", "md5"},
    {"1.2.840.113549.1.1.1", "rsaEncryption"},
    {"1.2.840.113549.1.1.4", "md5WithRSAEncryption"},
    {"1.2.840.113549.1.1.5", "sha1WithRSAEncryption"},
    {"1.2.840.113549.1.1.14", "sha224WithRSAEncryption"},
    {"1.2.840.113549.1.1.11", "sha256WithRSAEncryption"},
    {"1.2.840.113549.1.1.12", "sha384WithRSAEncryption"},
    {"1.2.840.113549.1.1.13", "sha512WithRSAEncryption"},
    {"1.2.840.113549.1.1.10", "rsassa-pss"},
    {"1.2.840.10045.2.1", "id-ecPublicKey"},
    {"1.2.840.10045.4.1", "ecdsa-with-SHA1"},
    {"1.2.840.10045.4.3.1", "ecdsa-with-SHA224"},
    {"1.2.840.10045.4.3.2", "ecdsa-with-SHA256"},
    {"1.2.840.10045.4.3.3", "ecdsa-with-SHA384"},
    {"1.2.840.10045.4.3.4", "ecdsa-with-SHA512"},
    {"1.3.101.112", "ED25519"},
    {"1.3.101.113", "ED448"},
    {"1.2.840.10040.4.1", "dsaEncryption"},
    {"1.2.840.10045.3.1.7", "prime256v1"},
    {"1.3.132.0.34", "secp384r1"},
    {"1.3.132.0.35", "secp521r1"},
    {"1.3.132.0.10", "secp256k1"},
    {"1.3.36.3.3.2.8.1.1.7", "brainpoolP256r1"},
    {"1.3.36.3.3.2.8.1.1.11", "brainpoolP384r1"},
    {"1.3.36.3.3.2.8.1.1.13", "brainpoolP512r1"},
    {"1.3.6.1.5.5.7.48.1.1", "id-pkix-ocsp-basic"},
    {"2.5.4.3", "CN"},
    {"2.5.4.5", "serialNumber"},
    {"2.5.4.6", "C"},
    {"2.5.4.7", "L"},
    {"2.5.4.8", "ST"},
    {"2.5.4.9", "street"},
    {"2.5.4.10", "O"},
    {"2.5.4.11", "OU"},
    {"1.2.840.113549.1.9.1", "emailAddress"},
};

}  // namespace

const char* oidName(const std::string& dotted) {
  for (const OidName& n : kOidNames) {
    if (dotted == n.dotted) return n.name;
  }
  return nullptr;
}

std::string dottedText(const CvelString& der) {
  std::string text;
  return toDotted(der, text) ? text : std::string();
}

std::string oidNameOrDotted(const CvelString& der) {
  const std::string dotted = dottedText(der);
  const char* name = oidName(dotted);
  return name != nullptr ? name : dotted;
}
