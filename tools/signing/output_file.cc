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
  static std::atomic<unsigned> counter{0};
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
  setTemporary(temporary);
  std::string fillError;
  const bool filled = fill(fd, fillError);
  const int fillErrno = errno;
  const bool written = close(fd) == 0 && filled;
  if (!filled) {
    unlink(temporary.c_str());
    setTemporary(std::string());
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
    setTemporary(std::string());
    error = why == EEXIST ? path + " exists (--force replaces it)" : "cannot write " + path + ": " + std::strerror(why);
    return false;
  }
  setTemporary(std::string());
  return true;
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
