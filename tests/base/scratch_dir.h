// A fresh directory under /tmp for one test, removed with everything in it when the test ends, pass or fail.
#ifndef KOLVARI_TESTS_BASE_SCRATCH_DIR_H
#define KOLVARI_TESTS_BASE_SCRATCH_DIR_H

#include <ftw.h>
#include <stdlib.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

class ScratchDir {
 public:
  ScratchDir() {
    char pattern[] = "/tmp/kolvari_base_XXXXXX";
    if (mkdtemp(pattern) != nullptr) path_ = pattern;
  }
  ~ScratchDir() {
    if (!path_.empty()) nftw(path_.c_str(), [](const char* p, const struct stat*, int, FTW*) { return ::remove(p); }, 8,
                             FTW_DEPTH | FTW_PHYS);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  // Writes text to the file name in the directory and returns its path.
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(file(name), std::ios::binary) << text;
    return file(name);
  }
  std::string read(const std::string& name) const {
    std::ifstream in(file(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

 private:
  std::string path_;
};

#endif  // KOLVARI_TESTS_BASE_SCRATCH_DIR_H
