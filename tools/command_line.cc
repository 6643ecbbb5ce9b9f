// Helpers every command shares: reading a file whole, hex digits.

#include "commands.h"
#include "io/input_file.h"

bool readWholeFile(const std::string& path, std::vector<unsigned char>& out) {
  std::string unused;
  return readInputFile(path, out, unused);
}

int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
