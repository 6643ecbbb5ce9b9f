// A module that exports a thread-registry root under "__thrRoot", as a host program does to share one
// registry between its libraries. The registry test loads it into the global scope.
#include <pthread.h>

#include "base/cvel_thread_registry.h"

namespace {
pthread_mutex_t gRootMutex = PTHREAD_MUTEX_INITIALIZER;
}  // namespace

extern "C" {
__attribute__((visibility("default"))) CvelThreadRoot __thrRoot = {nullptr, &gRootMutex};
}
