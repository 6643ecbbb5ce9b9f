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
  char* r = ::realpath(path, nullptr);
  const std::string s = r != nullptr ? r : "";
  std::free(r);
  return s;
}

TEST(CvelProcess, ExecutableAndImagePaths) {
  char out[1024];
  const int32_t n = executablePath(out, sizeof out);
  const std::string expected = resolved("/proc/self/exe");
  ASSERT_EQ(n, static_cast<int32_t>(expected.size()));
  EXPECT_EQ(std::string(out), expected);
  EXPECT_EQ(executablePath(out, static_cast<uint32_t>(expected.size())), -1);  // no room for the zero
  EXPECT_EQ(executablePath(nullptr, sizeof out), -1);

  // Code of the test program lies in the executable, dlopen in the C library (or the loader library).
  ASSERT_GT(imagePath(reinterpret_cast<const void*>(&resolved), out, sizeof out), 0);
  EXPECT_EQ(std::string(out), expected);
  ASSERT_GT(imagePath(reinterpret_cast<const void*>(&dlopen), out, sizeof out), 0);
  EXPECT_EQ(out[0], '/');
  EXPECT_EQ(std::string(out), resolved(out));
  EXPECT_NE(std::string(out).find("lib"), std::string::npos);
  EXPECT_EQ(imagePath(reinterpret_cast<const void*>(16), out, sizeof out), -1);
}

// Run by the next test in a child started by a relative name, which then leaves the directory it started in.
TEST(CvelProcess, PathsAfterARelativeStart) {
  if (std::getenv("KOLVARI_RELATIVE_START") == nullptr) GTEST_SKIP() << "runs in a child of the next test";
  const std::string expected = resolved("/proc/self/exe");
  ASSERT_EQ(::chdir("/"), 0);
  char out[1024];
  ASSERT_GT(executablePath(out, sizeof out), 0);
  EXPECT_EQ(std::string(out), expected);
  ASSERT_GT(imagePath(reinterpret_cast<const void*>(&resolved), out, sizeof out), 0);
  EXPECT_EQ(std::string(out), expected);
}

TEST(CvelProcess, StartedByARelativeName) {
  if (std::getenv("KOLVARI_RELATIVE_START") != nullptr) GTEST_SKIP();
  const std::string self = resolved("/proc/self/exe");
  const size_t slash = self.rfind('/');
  const std::string command = "cd '" + self.substr(0, slash) + "' && KOLVARI_RELATIVE_START=1 ./" +
                              self.substr(slash + 1) + " --gtest_filter=CvelProcess.PathsAfterARelativeStart" +
                              " >/dev/null 2>&1";
  EXPECT_EQ(testutil::run(command), 0);
}

TEST(CvelProcess, CanonicalPath) {
  ScratchDir dir;
  ASSERT_TRUE(dir.ok());
  const std::string target = dir.write("target", "x");
  ASSERT_EQ(::symlink(target.c_str(), dir.file("link").c_str()), 0);
  char out[PATH_MAX];
  const std::string viaLink = dir.path() + "/./sub/../link";
  ASSERT_EQ(::mkdir(dir.file("sub").c_str(), 0700), 0);
  ASSERT_EQ(canonicalPath(viaLink.c_str(), out, sizeof out), static_cast<int32_t>(target.size()));
  EXPECT_EQ(std::string(out), target);
  // Unresolvable: copied as it stands.
  const std::string none = dir.path() + "/sub/../none";
  EXPECT_EQ(canonicalPath(none.c_str(), out, sizeof out), static_cast<int32_t>(none.size()));
  EXPECT_EQ(std::string(out), none);
  EXPECT_EQ(canonicalPath(none.c_str(), out, static_cast<uint32_t>(none.size())), -1);
  EXPECT_EQ(canonicalPath(viaLink.c_str(), out, static_cast<uint32_t>(target.size())), -1);
}

TEST(CvelProcess, HostProcessAndClock) {
  char name[256];
  ASSERT_EQ(hostName(name, sizeof name), kCvelOk);
  std::string kernelName;
  if (FILE* f = std::fopen("/proc/sys/kernel/hostname", "r")) {
    char line[256] = {};
    if (std::fgets(line, sizeof line, f) != nullptr) kernelName = line;
    std::fclose(f);
  }
  if (!kernelName.empty() && kernelName.back() == '\n') kernelName.pop_back();
  EXPECT_EQ(std::string(name), kernelName);
  EXPECT_EQ(hostName(nullptr, 10), kCvelErrBadParameter);

  char self[32] = {};
  ASSERT_GT(::readlink("/proc/self", self, sizeof self - 1), 0);
  EXPECT_EQ(std::to_string(processId()), self);

  std::tm now{};
  int32_t milliseconds = -1;
  const time_t before = std::time(nullptr);
  ASSERT_TRUE(localTimeNow(now, milliseconds));
  std::tm local{};
  ::localtime_r(&before, &local);
  EXPECT_LE(std::abs(std::mktime(&now) - before), 2);
  EXPECT_EQ(now.tm_isdst, local.tm_isdst);
  EXPECT_GE(milliseconds, 0);
  EXPECT_LT(milliseconds, 1000);
}

}  // namespace
