// A fresh directory under /tmp for one test, removed with everything in it when the test ends, pass or fail;
// whole-file text, and a configuration from text.
#ifndef KOLVARI_TESTS_BASE_SCRATCH_DIR_H
#define KOLVARI_TESTS_BASE_SCRATCH_DIR_H

#include <ftw.h>
#include <stdlib.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "base/cvel_configuration.h"

inline void writeText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string readText(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

inline void parseInto(CvelConfiguration& configuration, const std::string& text) {
  // Texts with faults on purpose are parsed too: what the configuration kept is what the tests look at.
  static_cast<void>(configuration.parse(text.data(), text.size()));
}

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
    writeText(file(name), text);
    return file(name);
  }
  std::string read(const std::string& name) const { return readText(file(name)); }

 private:
  std::string path_;
};

#endif  // KOLVARI_TESTS_BASE_SCRATCH_DIR_H
