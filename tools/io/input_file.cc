#include "io/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr size_t kReadChunk = 64 * 1024;

// What kind of file st is, when it is one the tool does not read.
const char* refusedKind(const struct stat& st) {
  if (S_ISDIR(st.st_mode)) return "is a directory";
  if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode)) return "is a device";
  if (S_ISREG(st.st_mode) || S_ISFIFO(st.st_mode)) return nullptr;
  return "is not a file";
}

}  // namespace

InputFile::~InputFile() {
  if (fd_ >= 0) close(fd_);
}

bool InputFile::open(const std::string& path, std::string& error) {
  if (fd_ >= 0) close(fd_);
  path_ = path;
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (fd_ < 0) {
    error = path + ": " + std::strerror(errno);
    return false;
  }
  struct stat st;
  const char* refused = fstat(fd_, &st) != 0 ? std::strerror(errno) : refusedKind(st);
  if (refused != nullptr) {
    error = path + ": " + refused;
    close(fd_);
    fd_ = -1;
    return false;
  }
  return true;
}

long InputFile::read(unsigned char* buffer, size_t capacity) {
  for (;;) {
    const ssize_t n = ::read(fd_, buffer, capacity);
    if (n >= 0 || errno != EINTR) return static_cast<long>(n);
  }
}

bool InputFile::readAll(std::vector<unsigned char>& out, std::string& error) {
  for (;;) {
    const size_t used = out.size();
    out.resize(used + kReadChunk);
    const long n = read(out.data() + used, kReadChunk);
    out.resize(used + static_cast<size_t>(n > 0 ? n : 0));
    if (n == 0) return true;
    if (n < 0) {
      error = path_ + ": " + std::strerror(errno);
      return false;
    }
  }
}

bool readInputFile(const std::string& path, std::vector<unsigned char>& out, std::string& error) {
  InputFile file;
  out.clear();
  return file.open(path, error) && file.readAll(out, error);
}

bool readWholeFile(const std::string& path, std::vector<unsigned char>& out) {
  std::string unused;
  return readInputFile(path, out, unused);
}

bool checkInputFile(const std::string& path, std::string& error) {
  InputFile file;
  return file.open(path, error);
}
