#include "signing/key_source.h"

#include <openssl/bio.h>
#include <openssl/decoder.h>
#include <openssl/err.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include <cstring>

#include "signing/pkcs11_signer.h"
#include "signing/pkcs11_uri.h"

namespace {

// What the trial signature of checkKeyBelongs signs; any bytes do.
constexpr char kTrialData[] = "kolvari: does this key belong to this certificate?";
constexpr char kTrialDigest[] = "sha256";

struct BioDeleter {
  void operator()(BIO* b) const { BIO_free(b); }
};
struct DecoderDeleter {
  void operator()(OSSL_DECODER_CTX* c) const { OSSL_DECODER_CTX_free(c); }
};
struct Pkcs12Deleter {
  void operator()(PKCS12* p) const { PKCS12_free(p); }
};
struct X509Deleter {
  void operator()(X509* x) const { X509_free(x); }
};
struct X509StackDeleter {
  void operator()(STACK_OF(X509) * s) const { sk_X509_pop_free(s, X509_free); }
};

// The state of one key file's pass-phrase callback: whether OpenSSL asked (the key is encrypted) and why no
// pass phrase could be given.
struct PassRequest {
  PassPhrase* pass;
  const std::string* path;
  bool asked = false;
  std::string error;
};

// OpenSSL's pem_password_cb: the pass phrase into buffer (not terminated), its length; -1 when there is none.
int passCallback(char* buffer, int size, int /*encrypting*/, void* context) {
  PassRequest& request = *static_cast<PassRequest*>(context);
  request.asked = true;
  std::string text;
  if (!request.pass->get(*request.path, text, request.error)) return -1;
  if (size < 0 || text.size() > static_cast<size_t>(size)) {
    OPENSSL_cleanse(text.data(), text.size());
    request.error = "the pass phrase for " + *request.path + " is longer than " + std::to_string(size) + " bytes";
    return -1;
  }
  std::memcpy(buffer, text.data(), text.size());
  OPENSSL_cleanse(text.data(), text.size());
  return static_cast<int>(text.size());
}

bool der(X509* certificate, Bytes& out) {
  unsigned char* bytes = nullptr;
  const int n = i2d_X509(certificate, &bytes);
  if (n > 0) out.assign(bytes, bytes + n);
  OPENSSL_free(bytes);
  return n > 0;
}

// The pass phrase that opens p12: none when its MAC verifies without one and --pass was not given, else the
// one --pass or the terminal gives, checked against the MAC.
bool pkcs12Password(PKCS12* p12, const std::string& path, PassPhrase& pass, std::string& password,
                    std::string& error) {
  password.clear();
  if (PKCS12_mac_present(p12) != 1) return !pass.given() || pass.get(path, password, error);
  if (!pass.given() && (PKCS12_verify_mac(p12, nullptr, 0) == 1 || PKCS12_verify_mac(p12, "", 0) == 1)) return true;
  if (!pass.get(path, password, error)) return false;
  if (PKCS12_verify_mac(p12, password.c_str(), static_cast<int>(password.size())) != 1) {
    ERR_clear_error();
    error = "wrong pass phrase for " + path;
    return false;
  }
  return true;
}

// The key of a PKCS #12 file with its certificate (when the file holds one) first, then the file's others.
PrivateKey readPkcs12(const std::string& path, PassPhrase& pass, std::vector<Bytes>& certificates,
                      std::string& error) {
  std::unique_ptr<BIO, BioDeleter> bio(BIO_new_file(path.c_str(), "rb"));
  std::unique_ptr<PKCS12, Pkcs12Deleter> p12(bio != nullptr ? d2i_PKCS12_bio(bio.get(), nullptr) : nullptr);
  if (p12 == nullptr) {
    error = bio == nullptr ? "cannot read " + path : path + " is not a PKCS #12 file: " + opensslError();
    ERR_clear_error();
    return nullptr;
  }
  std::string password;
  if (!pkcs12Password(p12.get(), path, pass, password, error)) return nullptr;
  EVP_PKEY* key = nullptr;
  X509* certificate = nullptr;
  STACK_OF(X509)* chain = nullptr;
  const bool parsed = PKCS12_parse(p12.get(), password.c_str(), &key, &certificate, &chain) == 1;
  OPENSSL_cleanse(password.data(), password.size());
  PrivateKey owned(key);
  std::unique_ptr<X509, X509Deleter> ownedCertificate(certificate);
  std::unique_ptr<STACK_OF(X509), X509StackDeleter> ownedChain(chain);
  if (!parsed || owned == nullptr) {
    error = parsed ? path + " holds no private key" : "cannot read " + path + ": " + opensslError();
    ERR_clear_error();
    return nullptr;
  }
  if (certificate != nullptr) {
    certificates.emplace_back();
    if (!der(certificate, certificates.back())) certificates.pop_back();
  }
  for (int i = 0; i < sk_X509_num(chain); ++i) {
    Bytes one;
    if (der(sk_X509_value(chain, i), one)) certificates.push_back(std::move(one));
  }
  return owned;
}

std::unique_ptr<HostSigner> openKeyFile(const SignerSource& source, PassPhrase& pass, std::vector<Bytes>& certificates,
                                        std::string& error) {
  PrivateKey key = readKeyFile(source.key, pass, error);
  if (key == nullptr || !readCertificates(source.cert, certificates, error)) return nullptr;
  auto signer = std::make_unique<KeyFileSigner>(std::move(key));
  if (!checkKeyBelongs(*signer, source.key, certificates.front(), source.cert, error)) return nullptr;
  return signer;
}

// A PKCS #12 file's key and certificates; --cert adds more, or gives the signer certificate when the file
// holds none for its key.
std::unique_ptr<HostSigner> openPkcs12(const SignerSource& source, PassPhrase& pass, std::vector<Bytes>& certificates,
                                       std::string& error) {
  std::vector<Bytes> fromFile;
  PrivateKey key = readPkcs12(source.p12, pass, fromFile, error);
  if (key == nullptr) return nullptr;
  std::vector<Bytes> fromCert;
  if (!source.cert.empty() && !readCertificates(source.cert, fromCert, error)) return nullptr;
  if (fromFile.empty() && fromCert.empty()) {
    error = source.p12 + " holds no certificate for its key (give --cert)";
    return nullptr;
  }
  // A file with a certificate: it signs and --cert only adds; a file without one: --cert names the signer's.
  const bool signerFromFile = !fromFile.empty();
  certificates = signerFromFile ? fromFile : fromCert;
  const std::vector<Bytes>& rest = signerFromFile ? fromCert : fromFile;
  certificates.insert(certificates.end(), rest.begin(), rest.end());
  auto signer = std::make_unique<KeyFileSigner>(std::move(key));
  if (!checkKeyBelongs(*signer, source.p12, certificates.front(), signerFromFile ? source.p12 : source.cert, error)) {
    return nullptr;
  }
  return signer;
}

// A token's key with its certificate from --cert, or else from the token.
std::unique_ptr<HostSigner> openToken(const SignerSource& source, std::vector<Bytes>& certificates,
                                      std::string& error) {
  Pkcs11Uri uri;
  if (!parsePkcs11Uri(source.pkcs11, uri, error)) return nullptr;
  std::unique_ptr<PKCS11Signer> signer = PKCS11Signer::open(source.pkcs11Module, uri, error);
  if (signer == nullptr) return nullptr;
  if (source.cert.empty()) {
    certificates.emplace_back();
    if (!signer->certificate(certificates.front(), error)) return nullptr;
  } else if (!readCertificates(source.cert, certificates, error)) {
    return nullptr;
  }
  const std::string certificateName = source.cert.empty() ? "on the token" : source.cert;
  if (!checkKeyBelongs(*signer, signer->name(), certificates.front(), certificateName, error)) return nullptr;
  return signer;
}

}  // namespace

bool namesOneKey(const SignerSource& source) {
  if (!source.pkcs11.empty()) return source.key.empty() && source.p12.empty();
  if (!source.pkcs11Module.empty()) return false;
  if (!source.p12.empty()) return source.key.empty();
  return !source.key.empty() && !source.cert.empty();
}

std::unique_ptr<HostSigner> openSigner(const SignerSource& source, PassPhrase& pass, std::vector<Bytes>& certificates,
                                       std::string& error) {
  certificates.clear();
  if (!source.pkcs11.empty()) return openToken(source, certificates, error);
  if (!source.p12.empty()) return openPkcs12(source, pass, certificates, error);
  return openKeyFile(source, pass, certificates, error);
}

PrivateKey readKeyFile(const std::string& path, PassPhrase& pass, std::string& error) {
  std::unique_ptr<BIO, BioDeleter> bio(BIO_new_file(path.c_str(), "rb"));
  if (bio == nullptr) {
    ERR_clear_error();
    error = "cannot read " + path;
    return nullptr;
  }
  // Any input type and structure: PEM or DER, traditional or PKCS #8, encrypted or not.
  EVP_PKEY* key = nullptr;
  std::unique_ptr<OSSL_DECODER_CTX, DecoderDeleter> decoder(
      OSSL_DECODER_CTX_new_for_pkey(&key, nullptr, nullptr, nullptr, EVP_PKEY_KEYPAIR, nullptr, nullptr));
  PassRequest request{&pass, &path, false, {}};
  const bool decoded = decoder != nullptr &&
                       OSSL_DECODER_CTX_set_pem_password_cb(decoder.get(), passCallback, &request) == 1 &&
                       OSSL_DECODER_from_bio(decoder.get(), bio.get()) == 1 && key != nullptr;
  PrivateKey owned(key);
  if (decoded) {
    ERR_clear_error();
    return owned;
  }
  if (!request.error.empty()) {
    error = request.error;
  } else if (request.asked) {
    error = "wrong pass phrase for " + path;
  } else {
    error = path + " holds no private key: " + opensslError();
  }
  ERR_clear_error();
  return nullptr;
}

bool checkKeyBelongs(HostSigner& signer, const std::string& keyName, const Bytes& certificate,
                     const std::string& certificateName, std::string& error) {
  PrivateKey publicKey = certificatePublicKey(certificate);
  if (publicKey == nullptr) {
    error = "cannot read the public key of certificate " + certificateName + ": " + opensslError();
    return false;
  }
  KeyMatch match = signer.matches(publicKey.get());
  ERR_clear_error();  // a parameter the comparison looked for and did not find is no failure of the run
  if (match == KeyMatch::kUnknown) {
    const DigestChoice& digest = *findDigest(kTrialDigest);
    const Bytes data(kTrialData, kTrialData + sizeof kTrialData - 1);
    Bytes signature;
    if (!signer.sign(digest, data, signature, error)) return false;
    match = verifyBytes(publicKey.get(), digest, data, signature) ? KeyMatch::kSame : KeyMatch::kDifferent;
  }
  if (match == KeyMatch::kSame) return true;
  error = "key " + keyName + " does not belong to certificate " + certificateName;
  return false;
}
