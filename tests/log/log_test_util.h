// Helpers of the logging tests: a scratch folder that always goes away, whole-file text, and configurations
// parsed from text.
#ifndef KOLVARI_TESTS_LOG_LOG_TEST_UTIL_H
#define KOLVARI_TESTS_LOG_LOG_TEST_UTIL_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "base/cvel_configuration.h"

namespace logtest {

// A fresh folder under /tmp, removed with everything in it when the object goes (also when a test fails).
class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/kolvari-log-XXXXXX";
    const char* made = mkdtemp(pattern);
    path_ = made != nullptr ? made : "";
  }
  ~TempDir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

inline void writeText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// The whole file; empty when it cannot be read.
inline std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

inline bool parseInto(CvelConfiguration& configuration, const std::string& text) {
  return configuration.parse(text.data(), text.size()) == kCvelOk;
}

}  // namespace logtest

#endif  // KOLVARI_TESTS_LOG_LOG_TEST_UTIL_H
