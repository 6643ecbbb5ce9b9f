#include "base/cvel_process.h"

#include <dlfcn.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <string>

#include "scratch_dir.h"
#include "support/test_util.h"

namespace {

std::string resolved(const char* path) {
  char out[PATH_MAX];
  return ::realpath(path, out) != nullptr ? out : "";
}

// Started by a relative name (see the next test) and then leaving its directory, or started as usual: the
// executable's path and the image path of the test's own code are the canonical /proc/self/exe.
TEST(CvelProcess, ExecutableAndImagePaths) {
  const std::string expected = resolved("/proc/self/exe");
  if (std::getenv("KOLVARI_RELATIVE_START") != nullptr) {
    ASSERT_EQ(::chdir("/"), 0);
  }
  char out[1024];
  ASSERT_EQ(executablePath(out, sizeof out), static_cast<int32_t>(expected.size()));
  EXPECT_EQ(std::string(out), expected);
  ASSERT_GT(imagePath(reinterpret_cast<const void*>(&resolved), out, sizeof out), 0);
  EXPECT_EQ(std::string(out), expected);
  ASSERT_GT(imagePath(reinterpret_cast<const void*>(&dlopen), out, sizeof out), 0);
  EXPECT_EQ(std::string(out), resolved(out));
  EXPECT_NE(std::string(out).find("/lib"), std::string::npos);
  EXPECT_EQ(imagePath(reinterpret_cast<const void*>(16), out, sizeof out), -1);
}

TEST(CvelProcess, StartedByARelativeName) {
  if (std::getenv("KOLVARI_RELATIVE_START") != nullptr) GTEST_SKIP();
  const std::string self = resolved("/proc/self/exe");
  const size_t slash = self.rfind('/');
  const std::string test = "CvelProcess.ExecutableAndImagePaths";
  std::string output;
  EXPECT_EQ(testutil::run("cd '" + self.substr(0, slash) + "' && KOLVARI_RELATIVE_START=1 ./" +
                              self.substr(slash + 1) + " --gtest_filter=" + test,
                          &output),
            0);
  EXPECT_NE(output.find("[       OK ] " + test), std::string::npos) << output;  // it ran, and passed
}

TEST(CvelProcess, CanonicalPath) {
  ScratchDir dir;
  ASSERT_TRUE(dir.ok());
  const std::string target = dir.write("target", "x");
  ASSERT_EQ(::symlink(target.c_str(), dir.file("link").c_str()), 0);
  const std::string viaLink = dir.path() + "/./link";
  const std::string none = dir.path() + "/../none";
  char out[PATH_MAX];
  EXPECT_EQ(canonicalPath(viaLink.c_str(), out, sizeof out), static_cast<int32_t>(target.size()));
  EXPECT_EQ(std::string(out), target);
  EXPECT_EQ(canonicalPath(none.c_str(), out, sizeof out), static_cast<int32_t>(none.size()));
  EXPECT_EQ(std::string(out), none);  // unresolvable: copied as it stands
  EXPECT_EQ(canonicalPath(none.c_str(), out, static_cast<uint32_t>(none.size())), -1);
  EXPECT_EQ(canonicalPath(viaLink.c_str(), out, static_cast<uint32_t>(target.size())), -1);
}

TEST(CvelProcess, HostProcessAndClock) {
  char name[256];
  ASSERT_EQ(hostName(name, sizeof name), kCvelOk);
  const testutil::Bytes kernelName = testutil::readFile("/proc/sys/kernel/hostname");
  EXPECT_EQ(std::string(name) + "\n", std::string(kernelName.begin(), kernelName.end()));
  EXPECT_EQ(processId(), ::getpid());
  std::tm now{};
  int32_t milliseconds = -1;
  const time_t before = std::time(nullptr);
  ASSERT_TRUE(localTimeNow(now, milliseconds));
  EXPECT_LE(std::abs(std::mktime(&now) - before), 2);
  EXPECT_TRUE(milliseconds >= 0 && milliseconds < 1000);
}

}  // namespace
