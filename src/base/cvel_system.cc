#include "base/cvel_system.h"

#include <dlfcn.h>

#include "base/cvel_last_error.h"

namespace {

int reported(int result) {
  if (result != 0) setLastError(result, 0, 0, kCvelReportSystemText);
  return result;
}

}  // namespace

int mutexInit(pthread_mutex_t* mutex, int kind) {
  if (kind != kCvelMutexNormal && kind != kCvelMutexRecursive) return -1;
  pthread_mutexattr_t attributes;
  int result = pthread_mutexattr_init(&attributes);
  if (result != 0) return reported(result);
  result = pthread_mutexattr_settype(
      &attributes, kind == kCvelMutexRecursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_NORMAL);
  if (result == 0) result = pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return reported(result);
}

int mutexLock(pthread_mutex_t* mutex) { return reported(pthread_mutex_lock(mutex)); }
int mutexUnlock(pthread_mutex_t* mutex) { return reported(pthread_mutex_unlock(mutex)); }
int mutexDestroy(pthread_mutex_t* mutex) { return reported(pthread_mutex_destroy(mutex)); }

void* loadLibrary(const char* path, int mode) { return dlopen(path, mode); }
void* findSymbol(void* handle, const char* name) { return dlsym(handle, name); }
int closeLibrary(void* handle) { return dlclose(handle); }
