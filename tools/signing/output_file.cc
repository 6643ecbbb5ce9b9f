#include "signing/output_file.h"

#include <fcntl.h>
#include <stdio.h>  // renameat2
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "signing/batch_runner.h"

namespace {

// What a signal handler may read: fixed buffers, each valid while its length is not zero. Each thread that
// writes an output has a slot of its own for its temporary file (a batch writes on many threads at once).
constexpr size_t kTemporarySlots = kMostJobs + 1;  // the workers of a batch and the main thread
char gTemporaries[kTemporarySlots][PATH_MAX];
volatile sig_atomic_t gTemporaryLengths[kTemporarySlots] = {};
std::atomic<size_t> gSlotsTaken{0};
constexpr size_t kNoteCapacity = 1024;
char gNote[kNoteCapacity];
volatile sig_atomic_t gNoteLength = 0;
constexpr int kInterruptSignals[] = {SIGINT, SIGTERM, SIGHUP};

void onInterrupt(int signal) {
  for (size_t slot = 0; slot < kTemporarySlots; ++slot) {
    if (gTemporaryLengths[slot] > 0) unlink(gTemporaries[slot]);
  }
  if (gNoteLength > 0) {
    const ssize_t ignored = write(STDERR_FILENO, gNote, static_cast<size_t>(gNoteLength));
    static_cast<void>(ignored);
  }
  std::signal(signal, SIG_DFL);
  raise(signal);
}

void installInterruptHandlers() {
  static std::once_flag installed;
  std::call_once(installed, [] {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    for (int s : kInterruptSignals) sigaddset(&action.sa_mask, s);
    for (int s : kInterruptSignals) sigaction(s, &action, nullptr);
  });
}

// This thread's slot, taken on its first output; kTemporarySlots when every slot is taken (a thread beyond
// the batch's bound, whose temporary file a signal then leaves behind).
size_t temporarySlot() {
  thread_local const size_t slot = std::min(gSlotsTaken.fetch_add(1), kTemporarySlots);
  return slot;
}

// The temporary file a signal removes; an empty path for none.
void setTemporary(const std::string& path) {
  const size_t slot = temporarySlot();
  if (slot == kTemporarySlots) return;
  gTemporaryLengths[slot] = 0;
  if (path.empty() || path.size() >= sizeof gTemporaries[slot]) return;
  installInterruptHandlers();
  std::memcpy(gTemporaries[slot], path.c_str(), path.size() + 1);
  gTemporaryLengths[slot] = static_cast<sig_atomic_t>(path.size());
}

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

namespace {

// The folder of path, as open(2) takes it: "." for a bare name.
std::string folderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Whether an unnamed file can be given a name: linkat reaches its descriptor through /proc (linking it by
// the descriptor itself, AT_EMPTY_PATH, takes a privilege).
bool procFdsMounted() {
  static const bool mounted = access("/proc/self/fd", F_OK) == 0;
  return mounted;
}

// An unnamed file in path's folder (O_TMPFILE): nothing to remove on a failure or a signal, since the file
// vanishes with its descriptor. -1 with errno set; kNoUnnamedFiles when the file system (or the kernel)
// has none, or /proc is not there to name one.
constexpr int kNoUnnamedFiles = -2;
int openUnnamed(const std::string& path) {
  if (!procFdsMounted()) return kNoUnnamedFiles;
  const int fd = open(folderOf(path).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, kCreateMode);
  if (fd < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) return kNoUnnamedFiles;
  return fd;
}

// Names the unnamed file fd as path; refuses an existing name (EEXIST).
bool nameUnnamed(int fd, const std::string& path) {
  const std::string self = "/proc/self/fd/" + std::to_string(fd);
  return linkat(AT_FDCWD, self.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

// A name for a temporary file beside path (the dot keeps it out of listings), a new one on every call.
std::string temporaryName(const std::string& path) {
  static const std::string pid = std::to_string(getpid());
  static std::atomic<unsigned> counter{0};
  const size_t slash = path.rfind('/');
  const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
  return path.substr(0, nameStart) + "." + path.substr(nameStart) + "." + pid + "." + std::to_string(counter++);
}

// Puts the written unnamed file fd in place of a file that appeared at path while it was written: named
// under a temporary name, then renamed over it, so that a reader sees the old file or the new one. A
// signal between the two steps removes the temporary name.
bool replaceWithUnnamed(int fd, const std::string& path) {
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    const std::string temporary = temporaryName(path);
    if (!nameUnnamed(fd, temporary)) {
      if (errno == EEXIST) continue;
      return false;
    }
    setTemporary(temporary);
    const bool renamed = rename(temporary.c_str(), path.c_str()) == 0;
    const int why = errno;
    if (!renamed) unlink(temporary.c_str());
    setTemporary(std::string());
    errno = why;
    return renamed;
  }
  return false;
}

std::string writeFailure(const std::string& path, int why) {
  return why == EEXIST ? path + " exists (--force replaces it)" : "cannot write " + path + ": " + std::strerror(why);
}

// writeFileThrough on a file system with unnamed files: one directory operation for a new output.
bool writeThroughUnnamed(int fd, const std::string& path, bool replace, const FileFiller& fill, std::string& error) {
  std::string fillError;
  if (!fill(fd, fillError)) {
    const int why = errno;
    close(fd);
    error = !fillError.empty() ? fillError : writeFailure(path, why);
    return false;
  }
  // Without replace, an existing name is refused, never overwritten.
  bool placed = nameUnnamed(fd, path);
  if (!placed && replace && errno == EEXIST) placed = replaceWithUnnamed(fd, path);
  const int why = errno;
  // A file system reports a failed write as late as the close; the name then goes again.
  if (close(fd) != 0 && placed) {
    error = writeFailure(path, errno);
    unlink(path.c_str());
    return false;
  }
  if (!placed) error = writeFailure(path, why);
  return placed;
}

// writeFileThrough with a named temporary file, for file systems without unnamed files.
bool writeThroughTemporary(const std::string& path, bool replace, const FileFiller& fill, std::string& error) {
  // O_EXCL makes the name ours alone, and the mode is what a plain create under the umask gives.
  std::string temporary;
  int fd = -1;
  for (int attempt = 0; fd < 0 && attempt < kNameAttempts; ++attempt) {
    temporary = temporaryName(path);
    fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kCreateMode);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) {
    error = "cannot write " + path + ": " + std::strerror(errno);  // EEXIST: every name taken
    return false;
  }
  setTemporary(temporary);
  std::string fillError;
  const bool filled = fill(fd, fillError);
  const int fillErrno = errno;
  const bool written = close(fd) == 0 && filled;
  if (!filled) {
    unlink(temporary.c_str());
    setTemporary(std::string());
    error = !fillError.empty() ? fillError : writeFailure(path, fillErrno);
    return false;
  }
  // Without replace, a name that appeared since the caller's check is refused, never overwritten.
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
    setTemporary(std::string());
    error = writeFailure(path, why);
    return false;
  }
  setTemporary(std::string());
  return true;
}

}  // namespace

// The content goes into an unnamed file in the target's folder that is then named, so that a reader sees
// either nothing or the whole file: one directory operation where a named temporary file takes two (its
// creation and its rename), and nothing to remove when the process ends half-way. An existing name is
// refused by the naming itself (no check beforehand, which a name appearing meanwhile would pass).
bool writeFileThrough(const std::string& path, bool replace, const FileFiller& fill, std::string& error) {
  // Over an existing file (--force) a temporary file renamed into place costs less than an unnamed one
  // named twice (under a temporary name, then over the old file).
  struct stat existing;
  if (replace && lstat(path.c_str(), &existing) == 0) return writeThroughTemporary(path, replace, fill, error);
  const int fd = openUnnamed(path);
  if (fd == kNoUnnamedFiles) return writeThroughTemporary(path, replace, fill, error);
  if (fd < 0) {
    error = writeFailure(path, errno);
    return false;
  }
  return writeThroughUnnamed(fd, path, replace, fill, error);
}

bool checkOutput(const std::string& path, const std::string& input, bool replace, std::string& error) {
  struct stat out;
  if (stat(path.c_str(), &out) != 0) return true;  // nothing there yet (or not reachable: the write says why)
  struct stat in;
  if (!input.empty() && stat(input.c_str(), &in) == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino) {
    error = path + " is the input " + input + " itself";
    return false;
  }
  if (S_ISDIR(out.st_mode)) {
    error = path + ": is a directory";
    return false;
  }
  if (S_ISREG(out.st_mode) && !replace) {
    error = path + " exists (--force replaces it)";
    return false;
  }
  return true;
}

bool writeOutputFile(const std::string& path, const std::string& input, const void* bytes, size_t size,
                     bool replace, std::string& error) {
  return checkOutput(path, input, replace, error) && writeWholeFile(path, bytes, size, replace, error);
}

bool writeOutputFile(const std::string& path, const std::string& input, const FileFiller& fill, bool replace,
                     std::string& error) {
  return checkOutput(path, input, replace, error) && writeFileThrough(path, replace, fill, error);
}

void setInterruptNote(const std::string& note) {
  installInterruptHandlers();
  gNoteLength = 0;
  const size_t length = std::min(note.size(), kNoteCapacity);
  std::memcpy(gNote, note.data(), length);
  gNoteLength = static_cast<sig_atomic_t>(length);
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
