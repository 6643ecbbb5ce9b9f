#include "base/cvel_system.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "base/cvel_last_error.h"

namespace {

// The loader wrappers are exercised by the thread registry's shared-root test.
TEST(CvelSystem, MutexKindsAndReportedFailures) {
  setLastError(ENOENT, 0, 0, 0x002);
  pthread_mutex_t mutex;
  EXPECT_EQ(mutexInit(&mutex, 2), -1);
  EXPECT_EQ(lastErrorRecord()->errorNumber, ENOENT);  // an unknown kind reports nothing
  ASSERT_EQ(mutexInit(&mutex, kCvelMutexRecursive), 0);
  EXPECT_EQ(mutexLock(&mutex), 0);
  EXPECT_EQ(mutexLock(&mutex), 0);  // taken again by its owner
  EXPECT_EQ(mutexUnlock(&mutex), 0);
  EXPECT_EQ(mutexUnlock(&mutex), 0);
  EXPECT_EQ(mutexUnlock(&mutex), EPERM);  // not held: reported, and the caller goes on
  EXPECT_STREQ(lastErrorRecord()->message, "Operation not permitted");
  EXPECT_EQ(mutexDestroy(&mutex), 0);
  ASSERT_EQ(mutexInit(&mutex, kCvelMutexNormal), 0);
  EXPECT_EQ(mutexLock(&mutex), 0);
  EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY);  // not recursive
  EXPECT_EQ(mutexUnlock(&mutex), 0);
  EXPECT_EQ(mutexDestroy(&mutex), 0);
}

}  // namespace
