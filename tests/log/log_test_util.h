// Helpers of the logging tests: a scratch folder that always goes away, whole-file text, configurations.
#ifndef KOLVARI_TESTS_LOG_LOG_TEST_UTIL_H
#define KOLVARI_TESTS_LOG_LOG_TEST_UTIL_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "base/cvel_configuration.h"

namespace logtest {

// A fresh folder under /tmp, removed with its contents when the object goes, also when a test fails.
struct TempDir {
  std::string path;
  TempDir() {
    char pattern[] = "/tmp/kolvari-log-XXXXXX";
    path = mkdtemp(pattern) != nullptr ? pattern : "/nonexistent";
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::string operator/(const std::string& name) const { return path + "/" + name; }
};

inline void writeText(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

inline std::string readText(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

inline void parseInto(CvelConfiguration& configuration, const std::string& text) {
  configuration.parse(text.data(), text.size());
}

}  // namespace logtest

#endif  // KOLVARI_TESTS_LOG_LOG_TEST_UTIL_H
