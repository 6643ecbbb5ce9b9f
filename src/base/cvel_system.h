// Thin wrappers over POSIX mutexes and the dynamic loader. The mutex calls report failures to the last-error
// record and return the system's answer; they never stop the caller.
#ifndef KOLVARI_BASE_CVEL_SYSTEM_H
#define KOLVARI_BASE_CVEL_SYSTEM_H

#include <pthread.h>

inline constexpr int kCvelMutexNormal = 0;
inline constexpr int kCvelMutexRecursive = 1;

// kind kCvelMutexNormal or kCvelMutexRecursive; any other kind returns -1 and leaves mutex untouched.
// Otherwise 0 or the system's error number.
int mutexInit(pthread_mutex_t* mutex, int kind);
int mutexLock(pthread_mutex_t* mutex);
int mutexUnlock(pthread_mutex_t* mutex);
int mutexDestroy(pthread_mutex_t* mutex);

// Holds a mutex for a scope through mutexLock and mutexUnlock.
class CvelMutexLock {
 public:
  explicit CvelMutexLock(pthread_mutex_t* mutex) : mutex_(mutex) { mutexLock(mutex_); }
  ~CvelMutexLock() { mutexUnlock(mutex_); }
  CvelMutexLock(const CvelMutexLock&) = delete;
  CvelMutexLock& operator=(const CvelMutexLock&) = delete;

 private:
  pthread_mutex_t* mutex_;
};

// dlopen, dlsym and dlclose as they stand.
void* loadLibrary(const char* path, int mode);
void* findSymbol(void* handle, const char* name);
int closeLibrary(void* handle);

#endif  // KOLVARI_BASE_CVEL_SYSTEM_H
