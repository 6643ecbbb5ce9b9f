#include "host_crypto.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstring>

namespace {

constexpr DigestChoice kDigests[] = {
    {"sha256", "2.16.840.1.101.3.4.2.1", "1.2.840.113549.1.1.11", "1.2.840.10045.4.3.2", EVP_sha256},
    {"sha384", "2.16.840.1.101.3.4.2.2", "1.2.840.113549.1.1.12", "1.2.840.10045.4.3.3", EVP_sha384},
    {"sha512", "2.16.840.1.101.3.4.2.3", "1.2.840.113549.1.1.13", "1.2.840.10045.4.3.4", EVP_sha512},
};
constexpr size_t kPemLineLength = 64;

struct BioDeleter {
  void operator()(BIO* b) const { BIO_free(b); }
};
using BioPtr = std::unique_ptr<BIO, BioDeleter>;

BioPtr openFile(const std::string& path, std::string& error) {
  BioPtr bio(BIO_new_file(path.c_str(), "rb"));
  if (bio == nullptr) error = "cannot read " + path;
  return bio;
}

// Reads PEM objects of one type until none is left; when the first read finds none, retries the file as DER.
template <typename T, typename PemRead, typename DerRead, typename ToDer, typename Free>
bool readObjects(const std::string& path, const char* what, std::vector<Bytes>& out, std::string& error,
                 PemRead pemRead, DerRead derRead, ToDer toDer, Free freeObject) {
  BioPtr bio = openFile(path, error);
  if (bio == nullptr) return false;
  auto keep = [&](T* object) {
    unsigned char* der = nullptr;
    int n = toDer(object, &der);
    if (n > 0) out.emplace_back(der, der + n);
    OPENSSL_free(der);
    freeObject(object);
    return n > 0;
  };
  size_t before = out.size();
  while (T* object = pemRead(bio.get(), nullptr, nullptr, nullptr)) {
    if (!keep(object)) break;
  }
  ERR_clear_error();
  if (out.size() > before) return true;
  bio = openFile(path, error);
  if (bio == nullptr) return false;
  T* object = derRead(bio.get(), nullptr);
  if (object == nullptr || !keep(object)) {
    error = path + " holds no " + what + " in PEM or DER: " + opensslError();
    return false;
  }
  return true;
}

}  // namespace

const DigestChoice* findDigest(const std::string& name) {
  for (const DigestChoice& d : kDigests) {
    if (name == d.name) return &d;
  }
  return nullptr;
}

PrivateKey readPrivateKey(const std::string& path, std::string& error) {
  BioPtr bio = openFile(path, error);
  if (bio == nullptr) return nullptr;
  PrivateKey key(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
  if (key != nullptr) return key;
  bio = openFile(path, error);
  if (bio == nullptr) return nullptr;
  key.reset(d2i_PrivateKey_bio(bio.get(), nullptr));
  if (key == nullptr) error = path + " holds no private key: " + opensslError();
  return key;
}

PrivateKey certificatePublicKey(const Bytes& certificate) {
  const unsigned char* p = certificate.data();
  std::unique_ptr<X509, decltype(&X509_free)> x509(d2i_X509(nullptr, &p, static_cast<long>(certificate.size())),
                                                   X509_free);
  if (x509 == nullptr) return nullptr;
  return PrivateKey(X509_get_pubkey(x509.get()));
}

bool verifyBytes(EVP_PKEY* key, const DigestChoice& digest, const Bytes& data, const Bytes& signature) {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  const bool verified = ctx != nullptr && EVP_DigestVerifyInit(ctx.get(), nullptr, digest.md(), nullptr, key) == 1 &&
                        EVP_DigestVerify(ctx.get(), signature.data(), signature.size(), data.data(), data.size()) == 1;
  ERR_clear_error();
  return verified;
}

bool readCertificates(const std::string& path, std::vector<Bytes>& out, std::string& error) {
  return readObjects<X509>(path, "certificate", out, error, PEM_read_bio_X509, d2i_X509_bio,
                           [](X509* x, unsigned char** der) { return i2d_X509(x, der); }, X509_free);
}

bool readCrls(const std::string& path, std::vector<Bytes>& out, std::string& error) {
  return readObjects<X509_CRL>(path, "CRL", out, error, PEM_read_bio_X509_CRL, d2i_X509_CRL_bio,
                               [](X509_CRL* c, unsigned char** der) { return i2d_X509_CRL(c, der); },
                               X509_CRL_free);
}

bool digestBytes(const DigestChoice& digest, const Bytes& data, Bytes& out) {
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  if (EVP_Digest(data.data(), data.size(), md, &n, digest.md(), nullptr) != 1) return false;
  out.assign(md, md + n);
  return true;
}

bool digestSpans(const DigestChoice& digest, const std::vector<ByteSpan>& spans, Bytes& out) {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  if (ctx == nullptr || EVP_DigestInit_ex(ctx.get(), digest.md(), nullptr) != 1) return false;
  for (const ByteSpan& span : spans) {
    if (EVP_DigestUpdate(ctx.get(), span.data, span.size) != 1) return false;
  }
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  if (EVP_DigestFinal_ex(ctx.get(), md, &n) != 1) return false;
  out.assign(md, md + n);
  return true;
}

const char* signatureOidFor(EVP_PKEY* key, const DigestChoice& digest) {
  switch (EVP_PKEY_get_base_id(key)) {
    case EVP_PKEY_RSA: return digest.rsaSignatureOid;
    case EVP_PKEY_EC: return digest.ecdsaSignatureOid;
    default: return nullptr;
  }
}

bool signBytes(EVP_PKEY* key, const DigestChoice& digest, const Bytes& data, Bytes& signature, std::string& error) {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  size_t n = 0;
  if (ctx == nullptr || EVP_DigestSignInit(ctx.get(), nullptr, digest.md(), nullptr, key) != 1 ||
      EVP_DigestSign(ctx.get(), nullptr, &n, data.data(), data.size()) != 1) {
    error = "cannot sign: " + opensslError();
    return false;
  }
  signature.resize(n);
  if (EVP_DigestSign(ctx.get(), signature.data(), &n, data.data(), data.size()) != 1) {
    error = "cannot sign: " + opensslError();
    return false;
  }
  signature.resize(n);
  return true;
}

std::string toPem(const Bytes& der, const char* label) {
  std::string text = std::string("-----BEGIN ") + label + "-----\n";
  for (size_t at = 0; at < der.size(); at += kPemLineLength / 4 * 3) {
    size_t chunk = std::min(der.size() - at, kPemLineLength / 4 * 3);
    unsigned char line[kPemLineLength + 1];
    int n = EVP_EncodeBlock(line, der.data() + at, static_cast<int>(chunk));
    text.append(reinterpret_cast<const char*>(line), static_cast<size_t>(n));
    text.push_back('\n');
  }
  text += std::string("-----END ") + label + "-----\n";
  return text;
}

std::string opensslError() {
  unsigned long code = ERR_get_error();
  if (code == 0) return "no detail";
  char text[256];
  ERR_error_string_n(code, text, sizeof text);
  ERR_clear_error();
  return text;
}
