#include "base/cvel_process.h"

#include <dlfcn.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>

#include "scratch_dir.h"
#include "support/test_util.h"

// hostName, processId and localTimeNow are held against the system by the log format's PID and time fields.
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
  const std::string self = resolved("/proc/self/exe"), test = "CvelProcess.ExecutableAndImagePaths";
  const size_t slash = self.rfind('/');
  std::string output;
  EXPECT_EQ(testutil::run("cd '" + self.substr(0, slash) + "' && KOLVARI_RELATIVE_START=1 ./" +
                              self.substr(slash + 1) + " --gtest_filter=" + test, &output), 0);
  EXPECT_NE(output.find("[       OK ] " + test), std::string::npos) << output;  // it ran, and passed
}

TEST(CvelProcess, CanonicalPath) {
  ScratchDir dir;
  const std::string target = dir.write("target", "x"), viaLink = dir.path() + "/./link",
                    none = dir.path() + "/../none";
  ASSERT_EQ(::symlink(target.c_str(), dir.file("link").c_str()), 0);
  char out[PATH_MAX];
  EXPECT_EQ(canonicalPath(viaLink.c_str(), out, sizeof out), static_cast<int32_t>(target.size()));
  EXPECT_EQ(std::string(out), target);
  EXPECT_EQ(canonicalPath(none.c_str(), out, sizeof out), static_cast<int32_t>(none.size()));
  EXPECT_EQ(std::string(out), none);  // unresolvable: copied as it stands
  EXPECT_EQ(canonicalPath(none.c_str(), out, static_cast<uint32_t>(none.size())), -1);
  EXPECT_EQ(canonicalPath(viaLink.c_str(), out, static_cast<uint32_t>(target.size())), -1);
}

}  // namespace
