#include "base/cvel_thread_registry.h"

#include <dlfcn.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "base/cvel_system.h"
#include "support/test_util.h"

namespace {

int32_t myNumber() { return threadNumber(currentThreadEntry()); }

// The thread that first uses the registry becomes its main thread: here always the test program's own.
class CvelThreadRegistry : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("KOLVARI_SHARED_ROOT") != nullptr) GTEST_SKIP() << "only the shared-root test runs here";
    ASSERT_NE(currentThreadEntry(), nullptr);
  }
};

constexpr char kSharedRootTest[] = "CvelSharedThreadRoot.RegistryUsesTheRootTheProgramExports";

// Runs in a child of the next test, so that the registry is set up with the module already loaded.
TEST(CvelSharedThreadRoot, RegistryUsesTheRootTheProgramExports) {
  if (std::getenv("KOLVARI_SHARED_ROOT") == nullptr) GTEST_SKIP() << "runs in a child of the next test";
  void* module = loadLibrary(KOLVARI_SHARED_ROOT_PATH, RTLD_NOW | RTLD_GLOBAL);
  ASSERT_NE(module, nullptr) << dlerror();
  auto* root = static_cast<CvelThreadRoot*>(findSymbol(module, "__thrRoot"));
  ASSERT_NE(root, nullptr);
  // The program's root knows no main thread of ours, so the first thread is unknown here.
  EXPECT_EQ(currentThreadEntry(), nullptr);
  ASSERT_EQ(registerCurrentThread(3), kCvelOk);
  ASSERT_NE(root->head, nullptr);
  EXPECT_EQ(root->head->number, 3);
  EXPECT_EQ(currentThreadEntry(), root->head);
  EXPECT_EQ(myNumber(), 3);
  ASSERT_EQ(unregisterCurrentThread(), kCvelOk);
  EXPECT_EQ(root->head, nullptr);
}

TEST(CvelSharedThreadRoot, SharedRootInAChild) {
  if (std::getenv("KOLVARI_SHARED_ROOT") != nullptr) GTEST_SKIP();
  char self[4096] = {};
  ASSERT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
  const std::string command = std::string("KOLVARI_SHARED_ROOT=1 '") + self + "' --gtest_filter=" +
                              kSharedRootTest + " >/dev/null 2>&1";
  EXPECT_EQ(testutil::run(command), 0);
}

TEST_F(CvelThreadRegistry, MainThreadIsNumberZeroAndOthersAreUnknown) {
  EXPECT_EQ(myNumber(), 0);
  EXPECT_EQ(registerCurrentThread(4), kCvelErrBadParameter);  // already known, as the main thread
  int32_t other = 0;
  std::thread([&other] { other = myNumber(); }).join();
  EXPECT_EQ(other, -1);
  EXPECT_EQ(threadNumber(nullptr), -1);
}

TEST_F(CvelThreadRegistry, EndedOrInactiveEntriesHaveNoNumber) {
  CvelThreadEntry entry{};
  entry.number = 5;
  entry.active = 1;
  EXPECT_EQ(threadNumber(&entry), 5);
  entry.state = -1;
  EXPECT_EQ(threadNumber(&entry), -1);
  entry.state = 0;
  entry.active = 0;
  EXPECT_EQ(threadNumber(&entry), -1);
}

TEST_F(CvelThreadRegistry, RegisteredThreadsShowTheirOwnNumbers) {
  constexpr int kThreads = 8;
  std::vector<int32_t> seen(kThreads, -2);
  std::vector<int32_t> after(kThreads, -2);
  std::vector<CvelResult> refused(kThreads, kCvelOk);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([i, &seen, &after, &refused] {
      {
        CvelThreadRegistration registration(i + 1);
        if (registration.result() != kCvelOk) return;
        refused[i] = registerCurrentThread(i + 100);  // a second registration of the same thread
        for (int round = 0; round < 200; ++round) seen[i] = myNumber();
      }
      after[i] = myNumber();
    });
  }
  for (auto& t : threads) t.join();
  for (int i = 0; i < kThreads; ++i) {
    EXPECT_EQ(seen[i], i + 1);
    EXPECT_EQ(refused[i], kCvelErrBadParameter);
    EXPECT_EQ(after[i], -1);  // unregistered when the registration ended
  }
  EXPECT_EQ(myNumber(), 0);
}

TEST_F(CvelThreadRegistry, RefusesNumbersBelowOneAndUnknownUnregistration) {
  std::vector<CvelResult> results;
  std::thread([&results] {
    results = {registerCurrentThread(0), registerCurrentThread(-3), unregisterCurrentThread()};
  }).join();
  EXPECT_EQ(results, (std::vector<CvelResult>{kCvelErrBadParameter, kCvelErrBadParameter, kCvelErrBadParameter}));
}

}  // namespace
