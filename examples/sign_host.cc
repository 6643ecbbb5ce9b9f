// sign_host: the whole signing run of a host application, in one file. OpenSSL keeps the key, hashes the
// document and signs; the Kolvari plug-in (linked here; dlopen works the same way through the ZARV_*_t
// types) builds the signed attributes, the SignerInfo and the SignedData.
//
//   sign_host KEY.pem CERT.pem DOCUMENT OUT.p7s
//   openssl cms -verify -binary -inform DER -in OUT.p7s -content DOCUMENT -CAfile CA.pem
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "kolvari/zarv.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr char kSha256[] = "2.16.840.1.101.3.4.2.1";
constexpr char kSha256WithRsa[] = "1.2.840.113549.1.1.11";
constexpr char kEcdsaWithSha256[] = "1.2.840.10045.4.3.2";
// The digest algorithm as the container takes it: the OID's content octets, without tag and length.
const Bytes kSha256OidContent = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
constexpr uint32_t kReplace = 1;

bool readFile(const char* path, Bytes& out) {
  std::ifstream in(path, std::ios::binary);
  out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return in.good() || in.eof();
}

Bytes sha256(const Bytes& data) {
  Bytes md(EVP_MAX_MD_SIZE);
  unsigned int n = 0;
  if (EVP_Digest(data.data(), data.size(), md.data(), &n, EVP_sha256(), nullptr) != 1) return {};
  md.resize(n);
  return md;
}

Bytes sign(EVP_PKEY* key, const Bytes& data) {
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  size_t n = 0;
  Bytes signature;
  if (ctx != nullptr && EVP_DigestSignInit(ctx, nullptr, EVP_sha256(), nullptr, key) == 1 &&
      EVP_DigestSign(ctx, nullptr, &n, data.data(), data.size()) == 1) {
    signature.resize(n);
    if (EVP_DigestSign(ctx, signature.data(), &n, data.data(), data.size()) == 1) signature.resize(n);
    else signature.clear();
  }
  EVP_MD_CTX_free(ctx);
  return signature;
}

// The signing time as the library takes it: YYYYMMDDhhmmssZ, in UTC.
std::string utcNow() {
  std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  char text[16];
  std::strftime(text, sizeof text, "%Y%m%d%H%M%SZ", &utc);
  return text;
}

bool ok(const char* call, uint32_t result) {
  if (result != ZARV_OK) std::fprintf(stderr, "sign_host: %s returned 0x%08X\n", call, result);
  return result == ZARV_OK;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: sign_host KEY.pem CERT.pem DOCUMENT OUT.p7s\n");
    return 2;
  }
  // The host's part before the library: the key, the signer certificate in DER, the document's digest.
  FILE* keyFile = std::fopen(argv[1], "r");
  FILE* certFile = std::fopen(argv[2], "r");
  EVP_PKEY* key = keyFile != nullptr ? PEM_read_PrivateKey(keyFile, nullptr, nullptr, nullptr) : nullptr;
  X509* x509 = certFile != nullptr ? PEM_read_X509(certFile, nullptr, nullptr, nullptr) : nullptr;
  if (keyFile != nullptr) std::fclose(keyFile);
  if (certFile != nullptr) std::fclose(certFile);
  Bytes document;
  if (key == nullptr || x509 == nullptr || !readFile(argv[3], document)) {
    std::fprintf(stderr, "sign_host: cannot read the key, the certificate or the document\n");
    return 1;
  }
  unsigned char* der = nullptr;
  int derLength = i2d_X509(x509, &der);
  Bytes certificate(der, der + (derLength > 0 ? derLength : 0));
  OPENSSL_free(der);
  X509_free(x509);
  const char* signatureOid = EVP_PKEY_get_base_id(key) == EVP_PKEY_EC ? kEcdsaWithSha256 : kSha256WithRsa;

  // The signer: attributes, the data to be signed (DTBS), the host's signature over it, the SignerInfo.
  // Each handle belongs to the library from its Create call until its Release or Close call.
  ZARV_Init();
  SignerInfoRecord* signer = nullptr;
  Bytes dtbs;
  Bytes signerInfo;
  bool done = ok("ZARV_CreateSignerInfo", ZARV_CreateSignerInfo(&signer)) &&
              ok("ZARV_SetDataHash", ZARV_SetDataHash(signer, sha256(document), kSha256, kReplace)) &&
              ok("ZARV_SetSignerCertificate",
                 ZARV_SetSignerCertificate(signer, certificate, sha256(certificate), kSha256)) &&
              ok("ZARV_SetSigningTime", ZARV_SetSigningTime(signer, utcNow())) &&
              ok("ZARV_GetDTBS", ZARV_GetDTBS(signer, &dtbs)) &&
              ok("ZARV_SetP1Signature", ZARV_SetP1Signature(signer, signatureOid, sign(key, dtbs))) &&
              ok("ZARV_EncodeSignerInfo", ZARV_EncodeSignerInfo(signer, &signerInfo));
  if (signer != nullptr) ZARV_ReleaseSignerInfo(signer);
  EVP_PKEY_free(key);

  // The container: digest algorithm, certificate and SignerInfo in, the DER ContentInfo out. Without a
  // content info the signature is detached.
  P72Container* container = nullptr;
  Bytes message;
  done = done && ok("ZARV_CreateP72Container", ZARV_CreateP72Container(&container)) &&
         ok("ZARV_AddDigestAlgorithm", ZARV_AddDigestAlgorithm(container, kSha256OidContent)) &&
         ok("ZARV_AddCertificate", ZARV_AddCertificate(container, certificate)) &&
         ok("ZARV_AddSignerInfo", ZARV_AddSignerInfo(container, signerInfo)) &&
         ok("ZARV_EncodeP72", ZARV_EncodeP72(container, &message));
  if (container != nullptr) ZARV_CloseP72Container(container);
  if (!done) return 1;

  std::ofstream out(argv[4], std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(message.data()), static_cast<std::streamsize>(message.size()));
  if (!out.flush()) {
    std::fprintf(stderr, "sign_host: cannot write %s\n", argv[4]);
    return 1;
  }
  std::printf("%s: %zu bytes, detached signature of %s\n", argv[4], message.size(), argv[3]);
  return 0;
}
