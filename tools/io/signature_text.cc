#include "io/signature_text.h"

#include <string>

#include <openssl/evp.h>

namespace {

constexpr unsigned char kFirstByteSequence = 0x30;
constexpr size_t kBase64Quantum = 4;
constexpr size_t kBase64Octets = 3;
constexpr size_t kMostPadding = 2;

}  // namespace

bool base64Bytes(std::string_view text, std::vector<unsigned char>& out) {
  std::string compact;
  for (char c : text) {
    if (c != ' ' && c != '\t' && c != '\r' && c != '\n') compact.push_back(c);
  }
  if (compact.empty() || compact.size() % kBase64Quantum != 0) return false;
  out.assign(compact.size() / kBase64Quantum * kBase64Octets, 0);
  const int n = EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(compact.data()),
                                static_cast<int>(compact.size()));
  if (n < 0) return false;
  size_t padding = 0;
  for (size_t i = compact.size(); i > 0 && compact[i - 1] == '=' && padding < kMostPadding; --i) ++padding;
  out.resize(static_cast<size_t>(n) - padding);
  return !out.empty();
}

bool signatureBytes(const std::vector<unsigned char>& raw, std::vector<unsigned char>& der) {
  if (!raw.empty() && raw[0] == kFirstByteSequence) {
    der = raw;
    return true;
  }
  std::string text(raw.begin(), raw.end());
  const size_t begin = text.find("-----BEGIN");
  if (begin != std::string::npos) {
    const size_t start = text.find('\n', begin);
    const size_t end = text.find("-----END", begin + 1);
    if (start == std::string::npos || end == std::string::npos || end < start) return false;
    text = text.substr(start + 1, end - start - 1);
  }
  return base64Bytes(text, der) && der[0] == kFirstByteSequence;
}
