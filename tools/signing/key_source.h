// Where a signer's key and certificates come from, as the options name them: a key file (encrypted or not)
// with its certificate file, a PKCS #12 file, or a key on a PKCS #11 token. Each way ends in a HostSigner and
// the signer certificate, checked to belong to the key before anything is signed.
#ifndef KOLVARI_TOOLS_SIGNING_KEY_SOURCE_H
#define KOLVARI_TOOLS_SIGNING_KEY_SOURCE_H

#include <memory>
#include <string>
#include <vector>

#include "host_crypto.h"
#include "signing/host_signer.h"
#include "signing/pass_phrase.h"

struct SignerSource {
  std::string key;           // --key: a private key, PEM or DER, traditional or PKCS #8, encrypted or not
  std::string cert;          // --cert: the signer certificate first (with --p12 or --pkcs11: more certificates,
                             // or the signer certificate when the file or the token has none)
  std::string p12;           // --p12: a PKCS #12 file with the key, its certificate and a chain
  std::string pkcs11;        // --pkcs11: an RFC 7512 URI
  std::string pkcs11Module;  // --pkcs11-module
};

// True when source names exactly one key: --key with --cert, --p12, or --pkcs11 (--pkcs11-module only with it).
bool namesOneKey(const SignerSource& source);

// Opens the signer and reads its certificates into certificates (the signer certificate first), then checks
// that the signer certificate's public key is the key's. pass serves encrypted key files and PKCS #12 files.
// Null with a one-line message ("key ec.key does not belong to certificate rsa.pem", "wrong pass phrase for
// signer.key").
std::unique_ptr<HostSigner> openSigner(const SignerSource& source, PassPhrase& pass, std::vector<Bytes>& certificates,
                                       std::string& error);

// Reads a private key file, encrypted or not; an encrypted one takes its pass phrase from pass. Null with a
// message: "wrong pass phrase for PATH" when the key is encrypted and the pass phrase does not open it.
PrivateKey readKeyFile(const std::string& path, PassPhrase& pass, std::string& error);

// Whether the key of signer is the private half of certificate's public key: compared directly where the signer
// can, else by a trial signature verified with the certificate's key. False with "key KEYNAME does not belong to
// certificate CERTNAME", or why it could not be checked.
bool checkKeyBelongs(HostSigner& signer, const std::string& keyName, const Bytes& certificate,
                     const std::string& certificateName, std::string& error);

#endif  // KOLVARI_TOOLS_SIGNING_KEY_SOURCE_H
