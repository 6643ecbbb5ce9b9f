// Signing with a key that stays on a PKCS#11 token: the module is loaded with dlopen, the tool logs in once,
// finds the key (and the certificate with the same id) and has the token sign each data to be signed.
#ifndef KOLVARI_TOOLS_SIGNING_PKCS11_SIGNER_H
#define KOLVARI_TOOLS_SIGNING_PKCS11_SIGNER_H

#include <memory>
#include <string>

#include "signing/host_signer.h"
#include "signing/pkcs11_uri.h"

class Pkcs11Session;

// The module used when neither --pkcs11-module nor module-path= names one: p11-kit's proxy, which
// reaches every module the system has registered.
extern const char kDefaultPkcs11Module[];

class PKCS11Signer : public HostSigner {
 public:
  ~PKCS11Signer() override;
  PKCS11Signer(const PKCS11Signer&) = delete;
  PKCS11Signer& operator=(const PKCS11Signer&) = delete;

  // Loads modulePath (empty: module-path= of the URI, else the default), logs in to the token the URI
  // names and finds its private key. Null with a one-line message ("C_Login: CKR_PIN_INCORRECT").
  static std::unique_ptr<PKCS11Signer> open(const std::string& modulePath, const Pkcs11Uri& uri, std::string& error);

  const char* signatureOid(const DigestChoice& digest) const override;
  bool sign(const DigestChoice& digest, const Bytes& data, Bytes& signature, std::string& error) override;
  // Compares the token's public half of the key (its public key object with the key's id, else the private key
  // object's own CKA_MODULUS or CKA_EC_POINT) with publicKey.
  KeyMatch matches(EVP_PKEY* publicKey) override;

  // The key as messages name it: "rsa on token demo" (its label, else its id in hex).
  std::string name() const;

  // The certificate object with the key's id (or, for a key without an id, its label), DER; false with a
  // message when the token holds none.
  bool certificate(Bytes& out, std::string& error);

 private:
  explicit PKCS11Signer(std::unique_ptr<Pkcs11Session> session);
  std::unique_ptr<Pkcs11Session> session_;
};

// The ECDSA-Sig-Value SEQUENCE { r INTEGER, s INTEGER } of a token's raw signature r||s (two halves of
// equal length); false for an empty or odd-sized one.
bool ecdsaSigValue(const Bytes& raw, Bytes& out);

// Reads a PIN from the terminal with echo off; false when standard input is not a terminal.
bool promptForPin(const std::string& prompt, std::string& pin);

#endif  // KOLVARI_TOOLS_SIGNING_PKCS11_SIGNER_H
