// The certificate paths one `kolvari verify` run has built. The signatures of a batch name the same signer
// and intermediate certificates again and again, and X509_verify_cert checks every certificate's signature
// on each call: the run builds a path once and reuses its result for the same question.
#ifndef KOLVARI_TOOLS_VERIFY_VERIFY_PATH_CACHE_H
#define KOLVARI_TOOLS_VERIFY_VERIFY_PATH_CACHE_H

#include <ctime>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <openssl/x509.h>

#include "verify/verify_crypto.h"

// Path results keyed by everything that decides them: the trust store, the leaf's DER, the DERs of the
// untrusted certificates in the order offered (OpenSSL takes the first issuer that fits) and the validation
// time. Only the result is kept (error, its text, the chain), so that a hit reports what a miss would.
// Bounded in entries and key bytes, beyond which paths are built without being kept. Safe to share between
// threads.
class PathCache {
 public:
  // The path from leaf to a trust anchor of store through untrusted at t, remembered or built by buildPath.
  PathResult get(X509_STORE* store, X509* leaf, const std::vector<Certificate>& untrusted, time_t t);
  size_t size() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, PathResult, std::less<>> entries_;
  size_t bytes_ = 0;
};

#endif  // KOLVARI_TOOLS_VERIFY_VERIFY_PATH_CACHE_H
