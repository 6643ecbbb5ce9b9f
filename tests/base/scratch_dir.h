// A fresh directory under /tmp for one test, removed with everything in it when the test ends, pass or fail.
#ifndef KOLVARI_TESTS_BASE_SCRATCH_DIR_H
#define KOLVARI_TESTS_BASE_SCRATCH_DIR_H

#include <ftw.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <string>

class ScratchDir {
 public:
  ScratchDir() {
    char pattern[] = "/tmp/kolvari_base_XXXXXX";
    if (mkdtemp(pattern) != nullptr) path_ = pattern;
  }
  ~ScratchDir() {
    if (!path_.empty()) nftw(path_.c_str(), removeOne, 8, FTW_DEPTH | FTW_PHYS);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  bool ok() const { return !path_.empty(); }
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

  // Writes text to name in the directory; returns the file's path.
  std::string write(const std::string& name, const std::string& text) const {
    const std::string target = file(name);
    if (FILE* f = std::fopen(target.c_str(), "wb")) {
      std::fwrite(text.data(), 1, text.size(), f);
      std::fclose(f);
    }
    return target;
  }

 private:
  static int removeOne(const char* path, const struct stat*, int, struct FTW*) { return ::remove(path); }

  std::string path_;
};

#endif  // KOLVARI_TESTS_BASE_SCRATCH_DIR_H
