#include "base/cvel_thread_registry.h"

#include <dlfcn.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "base/cvel_system.h"
#include "support/test_util.h"

namespace {

int32_t myNumber() { return threadNumber(currentThreadEntry()); }
bool inSharedRootChild() { return std::getenv("KOLVARI_SHARED_ROOT") != nullptr; }

// The thread that first uses the registry becomes its main thread: here always the test program's own.
class CvelThreadRegistry : public ::testing::Test {
 protected:
  void SetUp() override {
    if (inSharedRootChild()) GTEST_SKIP();
    ASSERT_NE(currentThreadEntry(), nullptr);
  }
};

TEST_F(CvelThreadRegistry, MainUnknownEndedAndInactive) {
  EXPECT_EQ(myNumber(), 0);
  EXPECT_EQ(registerCurrentThread(4), kCvelErrBadParameter);  // known already, as the main thread
  std::vector<CvelResult> results;
  std::thread([&results] {
    results = {static_cast<CvelResult>(myNumber()), registerCurrentThread(0), unregisterCurrentThread()};
  }).join();
  EXPECT_EQ(results, (std::vector<CvelResult>{0xFFFFFFFF, kCvelErrBadParameter, kCvelErrBadParameter}));
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
  std::vector<int32_t> seen(kThreads, -2), after(kThreads, -2);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([i, &seen, &after] {
      {
        CvelThreadRegistration registration(i + 1);
        for (int round = 0; registration.result() == kCvelOk && round < 200; ++round) seen[i] = myNumber();
      }
      after[i] = myNumber();
    });
  }
  for (auto& t : threads) t.join();
  for (int i = 0; i < kThreads; ++i) {
    EXPECT_EQ(seen[i], i + 1);
    EXPECT_EQ(after[i], -1);  // gone when the registration ended
  }
}

// Runs in a child of the next test, so that the registry starts with the exporting module already loaded.
TEST(CvelSharedThreadRoot, RegistryTakesTheRootTheProgramExports) {
  if (!inSharedRootChild()) GTEST_SKIP() << "runs in a child of the next test";
  void* module = loadLibrary(KOLVARI_SHARED_ROOT_PATH, RTLD_NOW | RTLD_GLOBAL);
  ASSERT_NE(module, nullptr) << dlerror();
  auto* root = static_cast<CvelThreadRoot*>(findSymbol(module, "__thrRoot"));
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(currentThreadEntry(), nullptr);  // that root knows no main thread of ours
  ASSERT_EQ(registerCurrentThread(3), kCvelOk);
  ASSERT_NE(root->head, nullptr);
  EXPECT_EQ(currentThreadEntry(), root->head);
  EXPECT_EQ(myNumber(), 3);
  ASSERT_EQ(unregisterCurrentThread(), kCvelOk);
  EXPECT_EQ(root->head, nullptr);
}

TEST(CvelSharedThreadRoot, InAChild) {
  if (inSharedRootChild()) GTEST_SKIP();
  char self[4096] = {};
  ASSERT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
  const std::string test = "CvelSharedThreadRoot.RegistryTakesTheRootTheProgramExports";
  std::string output;
  EXPECT_EQ(testutil::run(std::string("KOLVARI_SHARED_ROOT=1 '") + self + "' --gtest_filter=" + test, &output), 0);
  EXPECT_NE(output.find("[       OK ] " + test), std::string::npos) << output;  // it ran, and passed
}

}  // namespace
