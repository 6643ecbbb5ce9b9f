// What every signature of one `kolvari verify` run is judged against: the trust anchors, the time, the
// revocation policy, and the certificates and revocation data that lie beside the signatures (a PDF's DSS).
#ifndef KOLVARI_TOOLS_VERIFY_VERIFY_CONTEXT_H
#define KOLVARI_TOOLS_VERIFY_VERIFY_CONTEXT_H

#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <openssl/x509.h>

#include "verify/verify_crypto.h"
#include "verify/verify_path_cache.h"

enum class RevocationMode { kNone, kEmbedded, kFetch };

struct VerifyOptions {
  std::vector<std::string> trustFiles;
  std::string trustDir;
  bool systemTrust = false;
  std::optional<time_t> at;
  RevocationMode revocation = RevocationMode::kEmbedded;
  long timeoutSeconds = 10;
};

struct StoreDeleter {
  void operator()(X509_STORE* s) const { X509_STORE_free(s); }
};

struct VerifyContext {
  VerifyOptions options;
  std::unique_ptr<X509_STORE, StoreDeleter> store;
  time_t now = 0;                       // --at, else the time the run started
  // Every certificate the run reads (trust anchors, signatures, DSS) goes through this one cache.
  std::shared_ptr<CertificateCache> certificates = std::make_shared<CertificateCache>();
  // Every path the run builds on store is remembered here, for the files of a batch that ask again.
  std::shared_ptr<PathCache> paths = std::make_shared<PathCache>();
  std::vector<Certificate> extraCertificates;  // from the PDF's DSS
  std::vector<Bytes> extraOcsp;                // from the PDF's DSS
  std::vector<Bytes> extraCrls;                // from the PDF's DSS
  // The time of the earliest later document time-stamp that passed: a proof that the signature being
  // judged existed then (PDF).
  std::optional<time_t> proofOfExistence;
};

// Loads the trust anchors the options name into a new store; false with a message naming the file.
bool loadTrust(VerifyContext& context, std::string& error);

// Feeds the signed content to sink in chunks; false when it cannot be read.
using ChunkSink = std::function<void(const unsigned char*, size_t)>;
using ContentFeed = std::function<bool(const ChunkSink&)>;

#endif  // KOLVARI_TOOLS_VERIFY_VERIFY_CONTEXT_H
