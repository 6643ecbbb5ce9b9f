#include "verify/verify_path_cache.h"

#include <cstdint>

namespace {

// What the path cache keeps at most: far beyond the distinct paths of a real batch, small in memory.
constexpr size_t kMaxCachedPaths = 1024;
constexpr size_t kMaxCachedKeyBytes = 16u * 1024 * 1024;
constexpr unsigned kBitsPerOctet = 8;

// value as a fixed number of octets, most significant first: every field of a key has a known width or a
// length before it, so that two different questions never share a key.
void appendFixed(std::string& key, uint64_t value) {
  for (unsigned i = sizeof value; i > 0; --i) key.push_back(static_cast<char>(value >> ((i - 1) * kBitsPerOctet)));
}

// The certificate's DER after its length; false when it cannot be encoded.
bool appendCertificate(std::string& key, X509* certificate) {
  const int n = i2d_X509(certificate, nullptr);
  if (n <= 0) return false;
  appendFixed(key, static_cast<uint64_t>(n));
  const size_t at = key.size();
  key.resize(at + static_cast<size_t>(n));
  unsigned char* p = reinterpret_cast<unsigned char*>(key.data() + at);
  return i2d_X509(certificate, &p) == n;
}

bool keyOf(X509_STORE* store, X509* leaf, const std::vector<Certificate>& untrusted, time_t t, std::string& key) {
  appendFixed(key, static_cast<uint64_t>(reinterpret_cast<uintptr_t>(store)));
  appendFixed(key, static_cast<uint64_t>(static_cast<int64_t>(t)));
  appendFixed(key, static_cast<uint64_t>(untrusted.size()));
  if (!appendCertificate(key, leaf)) return false;
  for (const Certificate& c : untrusted) {
    if (!appendCertificate(key, c.get())) return false;
  }
  return true;
}

}  // namespace

PathResult PathCache::get(X509_STORE* store, X509* leaf, const std::vector<Certificate>& untrusted, time_t t) {
  std::string key;
  if (leaf == nullptr || !keyOf(store, leaf, untrusted, t, key)) return buildPath(store, leaf, untrusted, t);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = entries_.find(key);
    if (it != entries_.end()) return it->second;
  }
  // Built outside the lock: another thread may build the same path, and the first one stored wins.
  PathResult built = buildPath(store, leaf, untrusted, t);
  std::lock_guard<std::mutex> lock(mutex_);
  if (entries_.size() >= kMaxCachedPaths || bytes_ + key.size() > kMaxCachedKeyBytes) return built;
  const size_t keyBytes = key.size();
  const auto inserted = entries_.emplace(std::move(key), std::move(built));
  if (inserted.second) bytes_ += keyBytes;
  return inserted.first->second;
}

size_t PathCache::size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return entries_.size();
}
