#include "signing/pass_phrase.h"

#include <unistd.h>

#include <openssl/crypto.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>

#include "signing/pkcs11_signer.h"

namespace {

constexpr char kPassPrefix[] = "pass:";
constexpr char kEnvPrefix[] = "env:";
constexpr char kFilePrefix[] = "file:";
constexpr char kFdPrefix[] = "fd:";
constexpr char kStdin[] = "stdin";

bool startsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

std::string after(const std::string& text, const char* prefix) { return text.substr(std::strlen(prefix)); }

// The descriptor number of "fd:N": digits only, within int; -1 otherwise.
int descriptorNumber(const std::string& digits) {
  constexpr int kMaxDescriptor = 1 << 20;
  if (digits.empty() || digits.size() > std::to_string(kMaxDescriptor).size()) return -1;
  int n = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return -1;
    n = n * 10 + (c - '0');
  }
  return n <= kMaxDescriptor ? n : -1;
}

// The first line of descriptor fd, read a byte at a time so that nothing after the line is taken from a pipe
// or a terminal that others read on. A line longer than the limit is refused rather than cut.
bool readFirstLine(int fd, const std::string& source, std::string& line, std::string& error) {
  line.clear();
  for (;;) {
    char c = 0;
    const ssize_t n = read(fd, &c, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      error = "--pass " + source + ": cannot read: " + std::strerror(errno);
      return false;
    }
    if (n == 0 || c == '\n') break;
    if (line.size() == kMaxPassPhraseLength) {
      OPENSSL_cleanse(line.data(), line.size());
      error = "--pass " + source + ": the pass phrase is longer than " + std::to_string(kMaxPassPhraseLength) +
              " bytes";
      return false;
    }
    line.push_back(c);
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return true;
}

}  // namespace

bool isPassSource(const std::string& source) {
  if (startsWith(source, kPassPrefix) || source == kStdin) return true;
  if (startsWith(source, kEnvPrefix) || startsWith(source, kFilePrefix)) return source.find(':') + 1 < source.size();
  return startsWith(source, kFdPrefix) && descriptorNumber(after(source, kFdPrefix)) >= 0;
}

PassPhrase::~PassPhrase() { OPENSSL_cleanse(value_.data(), value_.size()); }

bool PassPhrase::readSource(std::string& error) {
  if (!isPassSource(source_)) {
    error = "--pass " + source_ + ": not pass:TEXT, env:VAR, file:PATH, fd:N or stdin";
    return false;
  }
  if (startsWith(source_, kPassPrefix)) {
    value_ = after(source_, kPassPrefix);
    return true;
  }
  if (startsWith(source_, kEnvPrefix)) {
    const std::string name = after(source_, kEnvPrefix);
    const char* value = std::getenv(name.c_str());
    if (value == nullptr) {
      error = "--pass " + source_ + ": " + name + " is not set";
      return false;
    }
    value_ = value;
    return true;
  }
  if (source_ == kStdin) return readFirstLine(STDIN_FILENO, source_, value_, error);
  if (startsWith(source_, kFdPrefix)) return readFirstLine(descriptorNumber(after(source_, kFdPrefix)), source_, value_, error);
  const std::string path = after(source_, kFilePrefix);
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = "--pass " + source_ + ": cannot read " + path + ": " + std::strerror(errno);
    return false;
  }
  const bool read = readFirstLine(fd, source_, value_, error);
  close(fd);
  return read;
}

bool PassPhrase::get(const std::string& path, std::string& out, std::string& error) {
  if (source_.empty()) {
    if (promptForPin("Enter pass phrase for " + path + ": ", out)) return true;
    error = path + " is encrypted and there is no terminal to ask on: give --pass (pass:TEXT, env:VAR, "
            "file:PATH, fd:N or stdin)";
    return false;
  }
  if (!read_) {
    if (!readSource(error)) return false;
    read_ = true;
  }
  out = value_;
  return true;
}
