// Dumps arbitrary bytes as the logger's DATA records show them and reads the dump back: the hex columns must
// give the bytes again, every line must have its offset and the full width, and the text column must show
// each byte (or '.') in order.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "log/cvel_logger.h"

namespace {

constexpr size_t kOffsetWidth = 10;  // " 0x00010: "
constexpr size_t kHexWidth = 51;     // hex area up to the text column, full or not
constexpr const char* kHeader = " ____ hex dump for 'f' ____";

void require(bool condition) {
  if (!condition) std::abort();
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;  // upper case is never written
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 4096) return 0;
  std::ostringstream out;
  CvelLogger::hexDump(data, static_cast<uint32_t>(size), "f", out);
  std::istringstream lines(out.str());
  std::string line;
  require(std::getline(lines, line).good());
  if (size == 0) {
    require(line == " ____ no data to hex dump for 'f' ____");
    return 0;
  }
  require(line == kHeader);
  size_t at = 0;
  while (at < size) {
    require(std::getline(lines, line).good());
    char offset[32];
    std::snprintf(offset, sizeof offset, " 0x%05zx: ", at);
    require(line.compare(0, kOffsetWidth, offset) == 0);
    const size_t count = size - at < 16 ? size - at : 16;
    require(line.size() == kOffsetWidth + kHexWidth + count);
    for (size_t i = 0; i < count; ++i, ++at) {
      // Each byte is a blank and two digits; the eight-byte groups are one blank apart.
      const size_t column = kOffsetWidth + i * 3 + (i >= 8 ? 1 : 0);
      require(line[column] == ' ');
      const int high = hexValue(line[column + 1]), low = hexValue(line[column + 2]);
      require(high >= 0 && low >= 0 && high * 16 + low == data[at]);
      const char shown = line[kOffsetWidth + kHexWidth + i];
      require(shown == (std::isprint(data[at]) != 0 ? static_cast<char>(data[at]) : '.'));
    }
  }
  require(std::getline(lines, line).good());
  require(line == " ---- end of hex dump (" + std::to_string(size) + " byte(s)) ----");
  require(!std::getline(lines, line));
  return 0;
}
