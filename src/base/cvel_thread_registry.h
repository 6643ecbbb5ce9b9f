// The thread registry: a list of known threads, each with a number that log lines show. The thread that first
// uses the registry is the main thread, number 0; a host numbers its other threads 1, 2, ... by registering
// them. Several libraries of one process share one registry when the program exports a root named "__thrRoot"
// (see CvelThreadRoot).
#ifndef KOLVARI_BASE_CVEL_THREAD_REGISTRY_H
#define KOLVARI_BASE_CVEL_THREAD_REGISTRY_H

#include <pthread.h>

#include <cstdint>

#include "base/cvel_base_result.h"

struct CvelThreadEntry {
  CvelThreadEntry* next;
  CvelThreadEntry* reserved1;
  CvelThreadEntry* reserved2;
  int32_t state;   // negative once the thread has ended
  int32_t active;  // non-zero while registered
  pthread_t identity;
  pthread_attr_t attributes;
  pthread_cond_t condition;
  pthread_mutex_t conditionMutex;
  pthread_cond_t condition2;
  pthread_mutex_t conditionMutex2;
  int32_t number;
};

// The registry's root. A program that wants every library in it to share one registry exports an object of
// this layout under the C name "__thrRoot" (e.g. `extern "C" CvelThreadRoot __thrRoot` with its mutex
// initialised and its head null, linked with -rdynamic so that the loader can find it): the mutex pointer
// lies right after the list head.
struct CvelThreadRoot {
  CvelThreadEntry* head;
  pthread_mutex_t* mutex;
};

// The registry entry of the calling thread, or null when the thread is unknown or the registry could not be
// set up. The first call sets the registry up.
CvelThreadEntry* currentThreadEntry();
// -1 for a null entry, a registry not set up or empty, or an entry that has ended or is not active;
// otherwise the entry's number (0 for the main thread).
int32_t threadNumber(const CvelThreadEntry* entry);

// Registers the calling thread under number (greater than 0), active with state 0, so that log lines show
// that number. kCvelErrBadParameter for a number of 0 or less or a thread that is already registered,
// kCvelErrNoMemory when no entry can be made, kCvelErrMalformed when the registry could not be set up.
// Unregister before the thread ends: the system may hand its identity to a later thread.
CvelResult registerCurrentThread(int32_t number);
// Removes the entry that registerCurrentThread made for the calling thread; kCvelErrBadParameter if none.
CvelResult unregisterCurrentThread();

// Registers the calling thread for the lifetime of the object.
class CvelThreadRegistration {
 public:
  explicit CvelThreadRegistration(int32_t number) : result_(registerCurrentThread(number)) {}
  ~CvelThreadRegistration() {
    if (result_ == kCvelOk) static_cast<void>(unregisterCurrentThread());  // no caller left to tell
  }
  CvelThreadRegistration(const CvelThreadRegistration&) = delete;
  CvelThreadRegistration& operator=(const CvelThreadRegistration&) = delete;

  CvelResult result() const { return result_; }

 private:
  CvelResult result_;
};

#endif  // KOLVARI_BASE_CVEL_THREAD_REGISTRY_H
