#include "signing/byte_sink.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include <openssl/evp.h>

namespace {

constexpr size_t kPemLineLength = 64;
constexpr size_t kPemLineBytes = kPemLineLength / 4 * 3;  // 48 bytes make one full line
constexpr size_t kPemBatchText = 64 * 1024;              // encoded text written to the inner sink at once

}  // namespace

bool FdSink::write(const unsigned char* bytes, size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd_, bytes, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

PemSink::PemSink(ByteSink& inner, const char* label) : inner_(inner), label_(label) {
  carry_.reserve(kPemLineBytes);
  text_.reserve(kPemBatchText + kPemLineLength + 1);
}

void PemSink::begin() {
  if (begun_) return;
  begun_ = true;
  text_ += "-----BEGIN " + label_ + "-----\n";
}

bool PemSink::flushText() {
  const bool written = inner_.write(reinterpret_cast<const unsigned char*>(text_.data()), text_.size());
  text_.clear();
  return written;
}

// Encodes lines * 48 bytes as that many full lines.
bool PemSink::encodeLines(const unsigned char* bytes, size_t lines) {
  unsigned char line[kPemLineLength + 1];
  for (size_t i = 0; i < lines; ++i) {
    EVP_EncodeBlock(line, bytes + i * kPemLineBytes, static_cast<int>(kPemLineBytes));
    text_.append(reinterpret_cast<const char*>(line), kPemLineLength);
    text_.push_back('\n');
    if (text_.size() >= kPemBatchText && !flushText()) return false;
  }
  return true;
}

bool PemSink::write(const unsigned char* bytes, size_t size) {
  begin();
  if (!carry_.empty()) {
    const size_t taken = std::min(size, kPemLineBytes - carry_.size());
    carry_.insert(carry_.end(), bytes, bytes + taken);
    bytes += taken;
    size -= taken;
    if (carry_.size() < kPemLineBytes) return true;
    if (!encodeLines(carry_.data(), 1)) return false;
    carry_.clear();
  }
  const size_t lines = size / kPemLineBytes;
  if (!encodeLines(bytes, lines)) return false;
  carry_.assign(bytes + lines * kPemLineBytes, bytes + size);
  return true;
}

bool PemSink::finish() {
  begin();
  if (!carry_.empty()) {
    unsigned char line[kPemLineLength + 1];
    const int n = EVP_EncodeBlock(line, carry_.data(), static_cast<int>(carry_.size()));
    text_.append(reinterpret_cast<const char*>(line), static_cast<size_t>(n));
    text_.push_back('\n');
    carry_.clear();
  }
  text_ += "-----END " + label_ + "-----\n";
  return flushText();
}
