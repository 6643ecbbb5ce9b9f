// The key that signs the data to be signed, as the host holds it: a key file in this process or a key on a
// token. The library never sees it; it only gets the signature back.
#ifndef KOLVARI_TOOLS_SIGNING_HOST_SIGNER_H
#define KOLVARI_TOOLS_SIGNING_HOST_SIGNER_H

#include <string>

#include "host_crypto.h"

// Whether a signer's key is the private half of a certificate's public key. kUnknown: the signer cannot tell
// from what it can read (the caller then checks a trial signature instead).
enum class KeyMatch { kSame, kDifferent, kUnknown };

class HostSigner {
 public:
  virtual ~HostSigner() = default;
  // The dotted signature-algorithm OID this key makes with digest; null for a key type the tool does not offer.
  virtual const char* signatureOid(const DigestChoice& digest) const = 0;
  // Signs data (hashing it with digest): PKCS #1 v1.5 for RSA, a DER ECDSA-Sig-Value for EC keys.
  virtual bool sign(const DigestChoice& digest, const Bytes& data, Bytes& signature, std::string& error) = 0;
  // Compares the key with publicKey (a certificate's) without signing anything.
  virtual KeyMatch matches(EVP_PKEY* /*publicKey*/) { return KeyMatch::kUnknown; }
};

// A private key read from a file and used with OpenSSL in this process.
class KeyFileSigner : public HostSigner {
 public:
  explicit KeyFileSigner(PrivateKey key) : key_(std::move(key)) {}
  const char* signatureOid(const DigestChoice& digest) const override { return signatureOidFor(key_.get(), digest); }
  bool sign(const DigestChoice& digest, const Bytes& data, Bytes& signature, std::string& error) override {
    return signBytes(key_.get(), digest, data, signature, error);
  }
  KeyMatch matches(EVP_PKEY* publicKey) override {
    return EVP_PKEY_eq(key_.get(), publicKey) == 1 ? KeyMatch::kSame : KeyMatch::kDifferent;
  }

 private:
  PrivateKey key_;
};

#endif  // KOLVARI_TOOLS_SIGNING_HOST_SIGNER_H
