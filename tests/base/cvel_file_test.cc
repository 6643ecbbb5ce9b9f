#include "base/cvel_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "scratch_dir.h"

// fileSize is held to its bound by the log file's roll-over test.
namespace {

bool exists(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0;
}

TEST(CvelFile, Times) {
  ScratchDir dir;
  const std::string path = dir.write("f", "x");
  const timespec times[2] = {{1000000000, 123456789}, {1700000000, 999999999}};  // access, modification
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  CvelFileTime change{}, access{}, modification{};
  ASSERT_EQ(fileTimes(path.c_str(), &change, &access, &modification), kCvelOk);
  EXPECT_EQ(access.seconds, 1000000000);
  EXPECT_EQ(modification.subSecond, 999999);  // microseconds, cut
  EXPECT_GT(change.seconds, 1700000000);
  EXPECT_EQ(fileTimes(dir.file("none").c_str(), &change, nullptr, nullptr), kCvelErrMalformed);
  EXPECT_EQ(change.seconds, 0);  // zeroed first
}

TEST(CvelFile, RenameReplacesAndCopyCrossesChunks) {
  ScratchDir dir;
  std::string data;
  for (uint32_t i = 0; i < 3 * kCvelCopyChunk + 5; ++i) data.push_back(static_cast<char>(i * 7 + i / 251));
  const std::string source = dir.write("source", data);
  const std::string copy = dir.write("copy", "longer old content, not to survive the copy" + data);
  ASSERT_EQ(copyFile(source.c_str(), copy.c_str()), kCvelOk);
  EXPECT_EQ(dir.read("copy"), data);
  EXPECT_EQ(copyFile(source.c_str(), "/dev/full"), kCvelErrMalformed);  // the write falls short
  ASSERT_EQ(renameFile(source.c_str(), dir.write("target", "old").c_str()), kCvelOk);
  EXPECT_EQ(dir.read("target"), data);
  EXPECT_EQ(renameFile(source.c_str(), copy.c_str()), kCvelErrMalformed);
}

TEST(CvelFile, RemovePath) {
  ScratchDir dir;
  ASSERT_EQ(::mkdir(dir.file("empty").c_str(), 0700), 0);
  ASSERT_EQ(::mkdir(dir.file("full").c_str(), 0700), 0);
  dir.write("full/f", "x");
  ASSERT_EQ(::symlink(dir.file("empty").c_str(), dir.file("link").c_str()), 0);
  const std::pair<std::string, CvelResult> cases[] = {
      {dir.file("none"), kCvelErrNoSuchFile}, {dir.file("empty"), kCvelOk},
      {dir.file("full/f"), kCvelOk},          {dir.file("link"), kCvelOk},  // the link, not its target
      {dir.path(), kCvelErrMalformed},        {"", kCvelErrBadParameter}};
  for (const auto& [path, expected] : cases) {
    EXPECT_EQ(removePath(path.c_str()), expected) << path;
    EXPECT_EQ(exists(path), expected == kCvelErrMalformed) << path;
  }
}

TEST(CvelFile, OpenModes) {
  ScratchDir dir;
  const std::string path = dir.write("f", "abc");
  const struct { uint32_t mode, flags; const char *writes, *content; } cases[] = {
      {kCvelOpenWrite, 0, "x", "x"},      {kCvelOpenWrite, kCvelOpenAppend, "yz", "xyz"},
      {kCvelOpenReadWrite, 0, "A", "Ayz"}, {kCvelOpenReadWrite, kCvelOpenAppend, "B", "AyzB"},
      {kCvelOpenRead, 0, "C", "AyzB"}};
  for (const auto& c : cases) {
    CvelFile file;
    ASSERT_EQ(openFile(path.c_str(), c.mode, c.flags, file), kCvelOk);
    std::fputs(c.writes, file.stream());
    EXPECT_EQ(file.close(), kCvelOk);
    EXPECT_EQ(dir.read("f"), c.content) << c.mode << "/" << c.flags;
  }
  CvelFile file;
  EXPECT_EQ(openFile(path.c_str(), 4, 0, file), kCvelErrBadParameter);
  EXPECT_EQ(openFile(dir.file("none").c_str(), kCvelOpenReadWrite, 0, file), kCvelErrNoSuchFile);
  EXPECT_EQ(openFile(dir.path().c_str(), kCvelOpenWrite, 0, file), kCvelErrMalformed);
}

TEST(CvelFile, TemporaryFiles) {
  std::string name;
  ASSERT_EQ(makeTempName(name), kCvelOk);
  EXPECT_EQ(name.rfind("/tmp/vel", 0), 0u);
  EXPECT_FALSE(exists(name));
  ScratchDir dir;
  const std::string prefix = dir.file("t_");
  std::string kept;
  {
    CvelFile file;
    ASSERT_EQ(createTempFile(file, prefix.c_str(), false), kCvelOk);
    kept = file.path();
    EXPECT_EQ(kept.size(), prefix.size() + 6);
    std::fputs("data", file.stream());  // "rb+": read back through the same stream
    std::rewind(file.stream());
    EXPECT_EQ(std::fgetc(file.stream()), 'd');
  }
  EXPECT_FALSE(exists(kept));  // removed with the object
  CvelFile anonymous;
  ASSERT_EQ(createTempFile(anonymous, nullptr, true), kCvelOk);
  EXPECT_FALSE(exists(anonymous.path()));
  // At 1017 characters the name reaches mkstemp, which fails (its last part is too long for the file
  // system); at 1018 it is refused before the file system is touched.
  const std::string base = dir.path() + "/";
  EXPECT_EQ(createTempFile(anonymous, (base + std::string(kCvelMaxTempPrefix - base.size(), 'p')).c_str(), false),
            kCvelErrMalformed);
  EXPECT_EQ(createTempFile(anonymous, (base + std::string(kCvelMaxTempPrefix + 1 - base.size(), 'p')).c_str(), false),
            kCvelErrTooLong);
}

}  // namespace
