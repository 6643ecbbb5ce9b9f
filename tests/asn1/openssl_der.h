// DER produced and read by the openssl command, as the independent reference for the DER engine's tests.
#ifndef KOLVARI_TESTS_ASN1_OPENSSL_DER_H
#define KOLVARI_TESTS_ASN1_OPENSSL_DER_H

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_util.h"

namespace openssl_der {

inline bool available() { return testutil::run("openssl version >/dev/null 2>&1") == 0; }

// A private scratch file name for this process.
inline std::string scratch(const std::string& tag) {
  const char* dir = std::getenv("TMPDIR");
  return std::string(dir != nullptr ? dir : "/tmp") + "/kolvari_asn1_" + std::to_string(getpid()) + "_" + tag;
}

// DER built by `openssl asn1parse -genconf` from a configuration text whose top item is named asn1.
inline testutil::Bytes genconf(const std::string& config) {
  const std::string cfg = scratch("genconf.cnf");
  const std::string out = scratch("genconf.der");
  {
    std::ofstream f(cfg);
    f << config;
  }
  testutil::Bytes der;
  if (testutil::run("openssl asn1parse -genconf " + cfg + " -noout -out " + out + " 2>/dev/null") == 0)
    der = testutil::readFile(out);
  std::remove(cfg.c_str());
  std::remove(out.c_str());
  return der;
}

// One element line of `openssl asn1parse -i`: "  4:d=1  hl=4 l= 797 cons:  SEQUENCE".
struct Line {
  uint32_t offset = 0;
  uint32_t depth = 0;
  uint32_t headerLength = 0;
  uint32_t length = 0;
  bool constructed = false;
};

inline std::vector<Line> parseListing(const std::string& listing) {
  std::vector<Line> lines;
  std::istringstream in(listing);
  std::string row;
  while (std::getline(in, row)) {
    Line l;
    char kind[8] = {};
    if (std::sscanf(row.c_str(), " %u:d=%u hl=%u l=%u %4s", &l.offset, &l.depth, &l.headerLength, &l.length, kind) !=
        5)
      continue;
    l.constructed = std::string(kind) == "cons";
    lines.push_back(l);
  }
  return lines;
}

// The element lines openssl prints for a DER file.
inline std::vector<Line> asn1parse(const std::string& path) {
  std::string listing;
  if (testutil::run("openssl asn1parse -inform DER -i -in '" + path + "' 2>/dev/null", &listing) != 0) return {};
  return parseListing(listing);
}

}  // namespace openssl_der

#endif  // KOLVARI_TESTS_ASN1_OPENSSL_DER_H
