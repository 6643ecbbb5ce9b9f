#include "support/test_util.h"

#include <cctype>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sys/wait.h>

#include <gtest/gtest.h>

namespace testutil {

Bytes hex(const std::string& text) {
  Bytes out;
  std::string digits;
  for (char c : text)
    if (std::isxdigit(static_cast<unsigned char>(c))) digits += c;
  for (size_t i = 0; i + 1 < digits.size(); i += 2)
    out.push_back(static_cast<unsigned char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  return out;
}

std::string toHex(const Bytes& bytes) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string s;
  for (unsigned char b : bytes) s += {kDigits[b >> 4], kDigits[b & 15]};
  return s;
}

std::string toHex(const CvelString& s) { return toHex(toBytes(s)); }

void assignHex(CvelString& out, const std::string& text) {
  Bytes b = hex(text);
  if (out.assign(b.data(), static_cast<uint32_t>(b.size())) != kCvelOk) out.release();
}

CvelString hexString(const std::string& text) {
  CvelString out;
  assignHex(out, text);
  return out;
}

Bytes toBytes(const CvelString& s) {
  if (s.isEmpty()) return {};
  return Bytes(s.data(), s.data() + s.length());
}

std::string tlv(const std::string& tag, const std::string& content) {
  const Bytes bytes = hex(content);
  const size_t n = bytes.size();
  EXPECT_LT(n, 0x10000u);
  const auto octet = [](size_t v) { return static_cast<unsigned char>(v); };
  const Bytes length = n < 0x80    ? Bytes{octet(n)}
                       : n < 0x100 ? Bytes{0x81, octet(n)}
                                   : Bytes{0x82, octet(n >> 8), octet(n)};
  return tag + toHex(length) + toHex(bytes);
}

std::string dataPath(const std::string& name) { return std::string(KOLVARI_TEST_DATA) + "/" + name; }

Bytes readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

int run(const std::string& command, std::string* output) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return -1;
  char buffer[4096];
  for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
    if (output != nullptr) output->append(buffer, n);
  int status = pclose(pipe);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace testutil
