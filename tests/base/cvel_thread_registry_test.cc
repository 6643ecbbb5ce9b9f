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
// Many registered threads at once, each seeing its own number, are the logger threads test's subject.
TEST(CvelThreadRegistry, MainUnknownRegisteredEndedAndInactive) {
  if (inSharedRootChild()) GTEST_SKIP();
  ASSERT_NE(currentThreadEntry(), nullptr);
  EXPECT_EQ(myNumber(), 0);
  EXPECT_EQ(registerCurrentThread(4), kCvelErrBadParameter);  // known already, as the main thread
  std::vector<int32_t> results;
  std::thread([&results] {
    results = {myNumber(), static_cast<int32_t>(registerCurrentThread(0)),
               static_cast<int32_t>(unregisterCurrentThread())};
    {
      CvelThreadRegistration registration(7);
      results.push_back(myNumber());
    }
    results.push_back(myNumber());  // gone when the registration ended
  }).join();
  const auto bad = static_cast<int32_t>(kCvelErrBadParameter);
  EXPECT_EQ(results, (std::vector<int32_t>{-1, bad, bad, 7, -1}));
  CvelThreadEntry entry{};
  entry.number = 5, entry.active = 1;
  EXPECT_EQ(threadNumber(&entry), 5);
  entry.state = -1;
  EXPECT_EQ(threadNumber(&entry), -1);
  entry.state = 0, entry.active = 0;
  EXPECT_EQ(threadNumber(&entry), -1);
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
