// The trust anchors of a run: --trust files (PEM with any number of certificates, or one DER certificate),
// the certificates of the files in --trust-dir, and with --system-trust OpenSSL's default locations
// (verify_system_trust.h).
#include <dirent.h>

#include <openssl/err.h>

#include "verify/verify_context.h"
#include "verify/verify_system_trust.h"

namespace {

// A trust folder holds at most this many files that are read.
constexpr size_t kMaxTrustDirFiles = 4096;

bool addFile(X509_STORE* store, CertificateCache& cache, const std::string& path, bool quietlySkip,
             std::string& error) {
  std::vector<Bytes> certificates;
  if (!readCertificates(path, certificates, error) || certificates.empty()) {
    if (quietlySkip) return true;
    error = path + ": not a certificate file" + (error.empty() ? "" : " (" + error + ")");
    return false;
  }
  for (const Bytes& der : certificates) {
    Certificate c = cache.get(der.data(), der.size());
    if (c) X509_STORE_add_cert(store, c.get());
  }
  ERR_clear_error();
  return true;
}

bool addDirectory(X509_STORE* store, CertificateCache& cache, const std::string& path, std::string& error) {
  DIR* dir = opendir(path.c_str());
  if (dir == nullptr) {
    error = path + ": not a readable folder";
    return false;
  }
  size_t files = 0;
  for (struct dirent* e = readdir(dir); e != nullptr && files < kMaxTrustDirFiles; e = readdir(dir)) {
    if (e->d_name[0] == '.') continue;
    ++files;
    std::string ignored;
    addFile(store, cache, path + "/" + e->d_name, true, ignored);
  }
  closedir(dir);
  return true;
}

}  // namespace

bool loadTrust(VerifyContext& context, std::string& error) {
  context.store.reset(X509_STORE_new());
  if (!context.store) {
    error = "out of memory";
    return false;
  }
  for (const std::string& file : context.options.trustFiles) {
    if (!addFile(context.store.get(), *context.certificates, file, false, error)) return false;
  }
  if (!context.options.trustDir.empty() &&
      !addDirectory(context.store.get(), *context.certificates, context.options.trustDir, error)) {
    return false;
  }
  if (context.options.systemTrust && !addSystemTrust(context.store.get(), context.certificates)) {
    error = "out of memory";
    return false;
  }
  ERR_clear_error();
  return true;
}
