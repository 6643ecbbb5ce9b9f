#include "base/cvel_system.h"

#include <dlfcn.h>

#include <gtest/gtest.h>

#include <cerrno>

#include "base/cvel_last_error.h"

namespace {

TEST(CvelSystem, MutexKinds) {
  setLastError(ENOENT, 0, 0, 0x002);
  pthread_mutex_t mutex;
  EXPECT_EQ(mutexInit(&mutex, 2), -1);
  EXPECT_EQ(mutexInit(&mutex, -1), -1);
  EXPECT_EQ(lastErrorRecord()->errorNumber, ENOENT);  // an unknown kind reports nothing

  ASSERT_EQ(mutexInit(&mutex, kCvelMutexRecursive), 0);
  EXPECT_EQ(mutexLock(&mutex), 0);
  EXPECT_EQ(mutexLock(&mutex), 0);  // a recursive mutex is taken again by its owner
  EXPECT_EQ(mutexUnlock(&mutex), 0);
  EXPECT_EQ(mutexUnlock(&mutex), 0);
  // Unlocking a recursive mutex nobody holds fails; the failure is recorded and the caller goes on.
  EXPECT_EQ(mutexUnlock(&mutex), EPERM);
  EXPECT_EQ(lastErrorRecord()->errorNumber, EPERM);
  EXPECT_STREQ(lastErrorRecord()->message, "Operation not permitted");
  EXPECT_EQ(mutexDestroy(&mutex), 0);

  ASSERT_EQ(mutexInit(&mutex, kCvelMutexNormal), 0);
  EXPECT_EQ(mutexLock(&mutex), 0);
  EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY);  // not recursive
  EXPECT_EQ(mutexUnlock(&mutex), 0);
  EXPECT_EQ(mutexDestroy(&mutex), 0);
}

TEST(CvelSystem, LoaderWrappersReachThePlugIn) {
  void* plugin = loadLibrary(KOLVARI_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(plugin, nullptr) << dlerror();
  EXPECT_NE(findSymbol(plugin, "ZARV_Init"), nullptr);
  EXPECT_EQ(findSymbol(plugin, "__thrRoot"), nullptr);
  EXPECT_EQ(closeLibrary(plugin), 0);
  EXPECT_EQ(loadLibrary("/nonexistent/libnothing.so", RTLD_NOW), nullptr);
}

}  // namespace
