#include "signing/output_file.h"

#include <fcntl.h>
#include <stdio.h>  // renameat2
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr mode_t kCreateMode = 0666;  // less the umask, as any created file
constexpr int kNameAttempts = 100;   // names left behind by an earlier process of the same id
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
  const FileFiller all = [bytes, size](int fd, std::string&) {
    return writeAll(fd, static_cast<const unsigned char*>(bytes), size);
  };
  return writeFileThrough(path, replace, all, error);
}

bool writeFileThrough(const std::string& path, bool replace, const FileFiller& fill, std::string& error) {
  struct stat existing;
  if (!replace && lstat(path.c_str(), &existing) == 0) {
    error = path + " exists (--force replaces it)";
    return false;
  }
  // Beside the target, so that the rename stays within one file system; the dot keeps it out of listings.
  // O_EXCL makes the name ours alone, and the mode is what a plain create under the umask gives.
  const size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const std::string stem = directory + "." + name + "." + std::to_string(getpid()) + ".";
  static unsigned counter = 0;
  std::string temporary;
  int fd = -1;
  for (int attempt = 0; fd < 0 && attempt < kNameAttempts; ++attempt) {
    temporary = stem + std::to_string(counter++);
    fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kCreateMode);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) {
    error = "cannot write " + path + ": " + std::strerror(errno);
    return false;
  }
  std::string fillError;
  const bool filled = fill(fd, fillError);
  const int fillErrno = errno;
  const bool written = close(fd) == 0 && filled;
  if (!filled) {
    unlink(temporary.c_str());
    error = !fillError.empty() ? fillError : "cannot write " + path + ": " + std::strerror(fillErrno);
    return false;
  }
  // Without replace, a name that appeared since the check above is refused, never overwritten.
  bool placed =
      written && renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, path.c_str(), replace ? 0 : RENAME_NOREPLACE) == 0;
  // A file system without RENAME_NOREPLACE: link refuses an existing name just the same.
  if (written && !placed && !replace && errno == EINVAL) {
    placed = link(temporary.c_str(), path.c_str()) == 0;
    const int why = errno;
    unlink(temporary.c_str());
    errno = why;
  }
  if (!placed) {
    const int why = errno;
    unlink(temporary.c_str());
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
