#include "base/cvel_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "base/cvel_last_error.h"
#include "base/cvel_system.h"

namespace {

constexpr char kTempPattern[] = "/tmp/velXXXXXX";
constexpr char kUniqueSuffix[] = "XXXXXX";
constexpr int64_t kNanosecondsPerMicrosecond = 1000;
constexpr mode_t kNewFileMode = 0666;

pthread_mutex_t gFileMutex;
bool gFileMutexReady = false;
std::once_flag gFileMutexOnce;

// Holds the process-wide file-operations mutex, if it could be set up.
class FileOperationsLock {
 public:
  FileOperationsLock() {
    std::call_once(gFileMutexOnce, [] { gFileMutexReady = mutexInit(&gFileMutex, kCvelMutexNormal) == 0; });
    if (gFileMutexReady) mutexLock(&gFileMutex);
  }
  ~FileOperationsLock() {
    if (gFileMutexReady) mutexUnlock(&gFileMutex);
  }
  FileOperationsLock(const FileOperationsLock&) = delete;
  FileOperationsLock& operator=(const FileOperationsLock&) = delete;
};

bool missing(const char* path) { return path == nullptr || *path == '\0'; }

CvelResult systemFailure() {
  setLastError(errno, 0, 0, kCvelReportSystemText);
  return kCvelErrMalformed;
}

void setTime(CvelFileTime* out, const timespec& time) {
  if (out == nullptr) return;
  out->seconds = time.tv_sec;
  out->subSecond = time.tv_nsec / kNanosecondsPerMicrosecond;
}

// Writes all n bytes, resuming after interruptions; false on a short write.
bool writeAll(int fd, const unsigned char* bytes, size_t n) {
  while (n > 0) {
    const ssize_t written = ::write(fd, bytes, n);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes += written;
    n -= static_cast<size_t>(written);
  }
  return true;
}

CvelResult copyOpen(int in, int out) {
  unsigned char chunk[kCvelCopyChunk];
  for (;;) {
    const ssize_t n = ::read(in, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return systemFailure();
    if (n == 0) return kCvelOk;
    if (!writeAll(out, chunk, static_cast<size_t>(n))) return systemFailure();
  }
}

const char* openMode(uint32_t mode, uint32_t flags) {
  const bool append = (flags & kCvelOpenAppend) != 0;
  switch (mode) {
    case kCvelOpenRead:
      return "r";
    case kCvelOpenWrite:
      return append ? "a" : "w";
    case kCvelOpenReadWrite:
      return append ? "a+" : "r+";
    default:
      return nullptr;
  }
}

}  // namespace

CvelResult CvelFile::attach(FILE* stream, const char* path, bool deleteOnClose) {
  // The stream is taken in any case: closed here too when the previous one fails to close.
  const CvelResult closed = close();
  if (closed != kCvelOk) {
    if (stream != nullptr) std::fclose(stream);
    return closed;
  }
  try {
    path_ = path;
  } catch (...) {
    std::fclose(stream);
    if (deleteOnClose) ::unlink(path);
    return kCvelErrNoMemory;
  }
  stream_ = stream;
  deleteOnClose_ = deleteOnClose;
  return kCvelOk;
}

CvelResult CvelFile::close() {
  if (stream_ == nullptr) return kCvelOk;
  CvelResult result = std::fclose(stream_) == 0 ? kCvelOk : systemFailure();
  stream_ = nullptr;
  if (deleteOnClose_) {
    const CvelResult removed = removePath(path_.c_str());
    if (result == kCvelOk) result = removed;
  }
  deleteOnClose_ = false;
  return result;
}

CvelResult fileTimes(const char* path, CvelFileTime* changeTime, CvelFileTime* accessTime,
                     CvelFileTime* modificationTime) {
  for (CvelFileTime* t : {changeTime, accessTime, modificationTime})
    if (t != nullptr) *t = CvelFileTime{0, 0};
  if (path == nullptr) return kCvelErrBadParameter;
  FileOperationsLock lock;
  struct stat status;
  if (::stat(path, &status) != 0) return systemFailure();
  setTime(changeTime, status.st_ctim);
  setTime(accessTime, status.st_atim);
  setTime(modificationTime, status.st_mtim);
  return kCvelOk;
}

CvelResult fileSize(const char* path, uint64_t& size) {
  size = 0;
  if (path == nullptr) return kCvelErrBadParameter;
  FileOperationsLock lock;
  struct stat status;
  if (::stat(path, &status) != 0) return systemFailure();
  size = static_cast<uint64_t>(status.st_size);
  return kCvelOk;
}

CvelResult renameFile(const char* oldPath, const char* newPath) {
  if (oldPath == nullptr || newPath == nullptr) return kCvelErrBadParameter;
  FileOperationsLock lock;
  return std::rename(oldPath, newPath) == 0 ? kCvelOk : systemFailure();
}

CvelResult copyFile(const char* source, const char* destination) {
  if (missing(source) || missing(destination)) return kCvelErrBadParameter;
  const int in = ::open(source, O_RDONLY | O_CLOEXEC);
  if (in < 0) return systemFailure();
  const int out = ::open(destination, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kNewFileMode);
  if (out < 0) {
    const CvelResult result = systemFailure();
    ::close(in);
    return result;
  }
  CvelResult result = copyOpen(in, out);
  ::close(in);
  if (::close(out) != 0 && result == kCvelOk) result = systemFailure();
  return result;
}

CvelResult removePath(const char* path) {
  if (missing(path)) return kCvelErrBadParameter;
  int error = 0;
  if (::rmdir(path) == 0) return kCvelOk;
  error = errno;
  if (error == ENOTDIR || error == ENOENT) {
    if (::unlink(path) == 0) return kCvelOk;
    error = errno;
  }
  setLastError(error, 0, 0, kCvelReportSystemText);
  if (error == ENOENT) return kCvelErrNoSuchFile;
  if (error == EROFS) return kCvelErrReadOnly;
  return kCvelErrMalformed;
}

CvelResult openFile(const char* path, uint32_t mode, uint32_t flags, CvelFile& file) {
  const char* fopenMode = openMode(mode, flags);
  if (missing(path) || fopenMode == nullptr) return kCvelErrBadParameter;
  FILE* stream = std::fopen(path, fopenMode);
  if (stream == nullptr) {
    const int error = errno;
    setLastError(error, 0, 0, kCvelReportSystemText);
    return error == ENOENT ? kCvelErrNoSuchFile : kCvelErrMalformed;
  }
  return file.attach(stream, path, false);
}

CvelResult makeTempName(std::string& out) {
  out.clear();
  // The unique name comes from mkstemp, which makes the file; it is removed again at once, so that only the
  // name is handed out (mktemp, which makes names only, is not safe to link against).
  char name[sizeof kTempPattern];
  std::memcpy(name, kTempPattern, sizeof kTempPattern);
  const int fd = ::mkstemp(name);
  if (fd < 0) return systemFailure();
  ::close(fd);
  if (::unlink(name) != 0) return systemFailure();
  out = name;
  return kCvelOk;
}

CvelResult createTempFile(CvelFile& file, const char* prefix, bool removeNow) {
  char name[kCvelMaxTempPrefix + sizeof kUniqueSuffix];
  if (missing(prefix)) {
    std::memcpy(name, kTempPattern, sizeof kTempPattern);
  } else {
    const size_t length = std::strlen(prefix);
    if (length > kCvelMaxTempPrefix) return kCvelErrTooLong;
    std::memcpy(name, prefix, length);
    std::memcpy(name + length, kUniqueSuffix, sizeof kUniqueSuffix);
  }
  const int fd = ::mkstemp(name);
  if (fd < 0) return systemFailure();
  FILE* stream = ::fdopen(fd, "rb+");
  if (stream == nullptr) {
    const CvelResult result = systemFailure();
    ::close(fd);
    ::unlink(name);
    return result;
  }
  if (removeNow) {
    const CvelResult removed = removePath(name);
    if (removed != kCvelOk) {
      std::fclose(stream);
      return removed;
    }
  }
  return file.attach(stream, name, !removeNow);
}
