#include "base/cvel_thread_registry.h"

#include <dlfcn.h>

#include <cerrno>
#include <mutex>
#include <new>

#include "base/cvel_last_error.h"
#include "base/cvel_system.h"

namespace {

constexpr char kSharedRootName[] = "__thrRoot";

CvelThreadRoot gOwnRoot{nullptr, nullptr};
pthread_mutex_t gOwnRootMutex;
CvelThreadEntry gMainEntry;

// The registry in use: the program's shared root, our own, or null when it could not be set up.
CvelThreadRoot* gRoot = nullptr;
std::once_flag gStartOnce;

// The entry that registerCurrentThread made for this thread.
thread_local CvelThreadEntry* tOwnEntry = nullptr;

bool reportFailure(int result) {
  if (result != 0) setLastError(result, 0, 0, kCvelReportSystemText);
  return result == 0;
}

// Attributes, the two condition variables and their mutexes; the identity stays -1 meanwhile.
bool initEntry(CvelThreadEntry& entry, int32_t number) {
  entry.identity = static_cast<pthread_t>(-1);
  if (!reportFailure(pthread_attr_init(&entry.attributes))) return false;
  if (!reportFailure(pthread_cond_init(&entry.condition, nullptr))) return false;
  if (mutexInit(&entry.conditionMutex, kCvelMutexNormal) != 0) return false;
  if (!reportFailure(pthread_cond_init(&entry.condition2, nullptr))) return false;
  if (mutexInit(&entry.conditionMutex2, kCvelMutexNormal) != 0) return false;
  entry.next = nullptr;
  entry.reserved1 = nullptr;
  entry.reserved2 = nullptr;
  entry.state = 0;
  entry.active = 1;
  entry.number = number;
  entry.identity = pthread_self();
  return true;
}

void destroyEntry(CvelThreadEntry& entry) {
  pthread_attr_destroy(&entry.attributes);
  pthread_cond_destroy(&entry.condition);
  mutexDestroy(&entry.conditionMutex);
  pthread_cond_destroy(&entry.condition2);
  mutexDestroy(&entry.conditionMutex2);
}

// A root that the running program exports for all its libraries, if there is one.
CvelThreadRoot* findSharedRoot() {
  void* program = loadLibrary(nullptr, RTLD_NOW | RTLD_GLOBAL);
  if (program == nullptr) return nullptr;
  auto* root = static_cast<CvelThreadRoot*>(findSymbol(program, kSharedRootName));
  closeLibrary(program);
  return root;
}

void startRegistry() {
  if (CvelThreadRoot* shared = findSharedRoot()) {
    gRoot = shared;
    return;
  }
  setLastError(EINVAL, 0, 0, kCvelReportSystemText);
  // Our own registry; the thread that sets it up is the main thread.
  if (mutexInit(&gOwnRootMutex, kCvelMutexNormal) != 0) return;
  if (!initEntry(gMainEntry, 0)) return;
  gOwnRoot.mutex = &gOwnRootMutex;
  gOwnRoot.head = &gMainEntry;
  gRoot = &gOwnRoot;
}

CvelThreadRoot* registry() {
  std::call_once(gStartOnce, startRegistry);
  return gRoot;
}

CvelThreadEntry* findEntry(CvelThreadRoot& root, pthread_t self) {
  for (CvelThreadEntry* entry = root.head; entry != nullptr; entry = entry->next)
    if (pthread_equal(entry->identity, self)) return entry;
  return nullptr;
}

}  // namespace

CvelThreadEntry* currentThreadEntry() {
  const pthread_t self = pthread_self();
  CvelThreadRoot* root = registry();
  if (root == nullptr) return nullptr;
  CvelMutexLock lock(root->mutex);
  return findEntry(*root, self);
}

int32_t threadNumber(const CvelThreadEntry* entry) {
  if (entry == nullptr) return -1;
  CvelThreadRoot* root = registry();
  if (root == nullptr) return -1;
  {
    CvelMutexLock lock(root->mutex);
    if (root->head == nullptr) return -1;
  }
  if (entry->state < 0 || entry->active == 0) return -1;
  return entry->number;
}

CvelResult registerCurrentThread(int32_t number) {
  if (number <= 0 || tOwnEntry != nullptr) return kCvelErrBadParameter;
  CvelThreadRoot* root = registry();
  if (root == nullptr) return kCvelErrMalformed;
  auto* entry = new (std::nothrow) CvelThreadEntry();
  if (entry == nullptr) return kCvelErrNoMemory;
  if (!initEntry(*entry, number)) {
    delete entry;
    return kCvelErrMalformed;
  }
  {
    CvelMutexLock lock(root->mutex);
    if (findEntry(*root, entry->identity) != nullptr) {
      destroyEntry(*entry);
      delete entry;
      return kCvelErrBadParameter;
    }
    entry->next = root->head;
    root->head = entry;
  }
  tOwnEntry = entry;
  return kCvelOk;
}

CvelResult unregisterCurrentThread() {
  CvelThreadEntry* entry = tOwnEntry;
  CvelThreadRoot* root = registry();
  if (entry == nullptr || root == nullptr) return kCvelErrBadParameter;
  {
    CvelMutexLock lock(root->mutex);
    for (CvelThreadEntry** link = &root->head; *link != nullptr; link = &(*link)->next) {
      if (*link == entry) {
        *link = entry->next;
        break;
      }
    }
  }
  tOwnEntry = nullptr;
  entry->active = 0;
  entry->state = -1;
  destroyEntry(*entry);
  delete entry;
  return kCvelOk;
}
