#include "signing/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

constexpr char kTemporarySuffix[] = ".XXXXXX";
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);

bool writeAll(int fd, const unsigned char* bytes, size_t size) {
  while (size > 0) {
    const ssize_t n = write(fd, bytes, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

bool writeWholeFile(const std::string& path, const void* bytes, size_t size, bool replace, std::string& error) {
  struct stat existing;
  if (!replace && lstat(path.c_str(), &existing) == 0) {
    error = path + " exists (--force replaces it)";
    return false;
  }
  // Beside the target, so that the rename stays within one file system. The dot keeps it out of listings.
  const size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  std::string temporary = directory + "." + name + kTemporarySuffix;
  std::vector<char> pattern(temporary.begin(), temporary.end());
  pattern.push_back('\0');
  const int fd = mkstemp(pattern.data());
  if (fd < 0) {
    error = "cannot write " + path + ": " + std::strerror(errno);
    return false;
  }
  temporary = pattern.data();
  constexpr mode_t kReadable = 0644;  // what a plain create gives under the usual umask
  const mode_t mask = umask(0);
  umask(mask);
  bool written = fchmod(fd, kReadable & ~mask) == 0 && writeAll(fd, static_cast<const unsigned char*>(bytes), size);
  written = close(fd) == 0 && written;
  // Without replace, link refuses a name that appeared since the check above; rename would overwrite it.
  bool placed = false;
  if (written && replace) {
    placed = rename(temporary.c_str(), path.c_str()) == 0;
  } else if (written) {
    placed = link(temporary.c_str(), path.c_str()) == 0;
  }
  const int why = errno;
  if (!placed || !replace) unlink(temporary.c_str());
  if (!placed) {
    error = why == EEXIST ? path + " exists (--force replaces it)" : "cannot write " + path + ": " + std::strerror(why);
    return false;
  }
  return true;
}

ProgressLine::ProgressLine(size_t total, bool shown)
    : total_(total), shown_(shown), start_(Clock::now()), lastDrawn_(start_) {}

void ProgressLine::step() {
  ++done_;
  if (shown_ && Clock::now() - lastDrawn_ >= kRedrawInterval) draw();
}

void ProgressLine::clear() {
  if (shown_) std::fprintf(stderr, "\r\033[K");
}

void ProgressLine::finish() {
  if (!shown_) return;
  draw();
  std::fprintf(stderr, "\n");
}

void ProgressLine::draw() {
  lastDrawn_ = Clock::now();
  const double seconds = std::chrono::duration<double>(lastDrawn_ - start_).count();
  const double rate = seconds > 0 ? static_cast<double>(done_) / seconds : 0;
  const double left = rate > 0 ? static_cast<double>(total_ - done_) / rate : 0;
  std::fprintf(stderr, "\r\033[K%zu/%zu  %.0f sig/s  %.0fs left", done_, total_, rate, left);
  std::fflush(stderr);
}
