// Certificates for the benchmarks: the DER of every root of the machine's Mozilla store, read with OpenSSL, in
// file-name order; the PEM test certificates of the source tree when the store is absent.
#ifndef KOLVARI_BENCH_BENCH_ROOTS_H
#define KOLVARI_BENCH_BENCH_ROOTS_H

#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace bench {

using Der = std::vector<unsigned char>;

inline Der pemFileToDer(const std::string& path) {
  Der der;
  FILE* f = std::fopen(path.c_str(), "r");
  if (f == nullptr) return der;
  X509* cert = PEM_read_X509(f, nullptr, nullptr, nullptr);
  std::fclose(f);
  if (cert == nullptr) return der;
  unsigned char* bytes = nullptr;
  int n = i2d_X509(cert, &bytes);
  if (n > 0) der.assign(bytes, bytes + n);
  OPENSSL_free(bytes);
  X509_free(cert);
  return der;
}

inline const std::vector<Der>& roots() {
  static const std::vector<Der> der = [] {
    std::vector<std::string> paths;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/usr/share/ca-certificates/mozilla", ec)) {
      if (entry.path().extension() == ".crt") paths.push_back(entry.path().string());
    }
    std::sort(paths.begin(), paths.end());
    if (paths.empty()) {
      for (const char* name : {"test.crt", "9999-years-rsa-cert.pem"})
        paths.push_back(std::string(KOLVARI_SOURCE_DIR) + "/tests/data/asn1crypto/" + name);
    }
    std::vector<Der> out;
    for (const std::string& path : paths) {
      Der one = pemFileToDer(path);
      if (!one.empty()) out.push_back(std::move(one));
    }
    return out;
  }();
  return der;
}

}  // namespace bench

#endif  // KOLVARI_BENCH_BENCH_ROOTS_H
