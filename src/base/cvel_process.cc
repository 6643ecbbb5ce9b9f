#include "base/cvel_process.h"

#include <dlfcn.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/cvel_last_error.h"

namespace {

// The kernel's link to the running program's file.
constexpr char kSelfExecutable[] = "/proc/self/exe";
constexpr int32_t kFailed = -1;
constexpr int32_t kMicrosecondsPerMillisecond = 1000;

// Copies text with its terminating zero into out, if it fits; returns its length or kFailed.
int32_t copyPath(const char* text, char* out, uint32_t size) {
  const size_t length = std::strlen(text);
  if (length >= size || length > INT32_MAX) return kFailed;
  std::memcpy(out, text, length + 1);
  return static_cast<int32_t>(length);
}

bool readable(const char* path) {
  FILE* file = std::fopen(path, "r");
  if (file == nullptr) return false;
  std::fclose(file);
  return true;
}

}  // namespace

int32_t canonicalPath(const char* path, char* out, uint32_t size) {
  if (path == nullptr || out == nullptr || size == 0) return kFailed;
  out[0] = '\0';
  char* resolved = ::realpath(path, nullptr);
  if (resolved == nullptr) return copyPath(path, out, size);
  int32_t length = copyPath(resolved, out, size);
  if (length != kFailed && !readable(resolved)) length = kFailed;
  std::free(resolved);
  return length;
}

int32_t imagePath(const void* address, char* out, uint32_t size) {
  if (out == nullptr || size == 0) return kFailed;
  out[0] = '\0';
  Dl_info info;
  if (::dladdr(address, &info) == 0 || info.dli_fname == nullptr || info.dli_fname[0] == '\0') return kFailed;
  // For the main program the loader names the image by the command's first word, which may be relative to a
  // directory the process has left since; the kernel knows its real file.
  if (info.dli_fname[0] != '/' && std::strcmp(info.dli_fname, program_invocation_name) == 0)
    return executablePath(out, size);
  return canonicalPath(info.dli_fname, out, size);
}

int32_t executablePath(char* out, uint32_t size) {
  if (out == nullptr || size == 0) return kFailed;
  out[0] = '\0';
  char target[PATH_MAX];
  const ssize_t n = ::readlink(kSelfExecutable, target, sizeof target - 1);
  if (n <= 0) {
    setLastError(errno, 0, 0, kCvelReportSystemText);
    return kFailed;
  }
  target[n] = '\0';
  if (target[0] != '/') return kFailed;
  return canonicalPath(target, out, size);
}

CvelResult hostName(char* buffer, uint32_t size) {
  if (buffer == nullptr || size == 0) return kCvelErrBadParameter;
  if (::gethostname(buffer, size) != 0) {
    setLastError(errno, 0, 0, kCvelReportSystemText);
    buffer[0] = '\0';
    return kCvelErrMalformed;
  }
  buffer[size - 1] = '\0';  // a name cut to fit carries no terminator
  return kCvelOk;
}

int32_t processId() { return static_cast<int32_t>(::getpid()); }

bool localTimeNow(std::tm& time, int32_t& milliseconds) {
  timeval now;
  if (::gettimeofday(&now, nullptr) != 0) return false;
  const time_t seconds = now.tv_sec;
  if (::localtime_r(&seconds, &time) == nullptr) return false;
  milliseconds = static_cast<int32_t>(now.tv_usec / kMicrosecondsPerMillisecond);
  return true;
}
