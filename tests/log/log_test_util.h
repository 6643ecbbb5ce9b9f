// Helpers of the logging tests, beside the scratch folder of tests/base: whole-file text and configurations.
#ifndef KOLVARI_TESTS_LOG_LOG_TEST_UTIL_H
#define KOLVARI_TESTS_LOG_LOG_TEST_UTIL_H

#include <fstream>
#include <sstream>
#include <string>

#include "base/cvel_configuration.h"
#include "base/scratch_dir.h"

namespace logtest {

inline void writeText(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

inline std::string readText(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

inline void parseInto(CvelConfiguration& configuration, const std::string& text) {
  // Texts with faults on purpose are parsed too: what the configuration kept is what the tests look at.
  static_cast<void>(configuration.parse(text.data(), text.size()));
}

}  // namespace logtest

#endif  // KOLVARI_TESTS_LOG_LOG_TEST_UTIL_H
