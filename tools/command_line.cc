// Helpers every command shares: reading a file whole, hex digits, quoting JSON text.
#include <cstdio>

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

std::string jsonQuoted(const std::string& text, bool keepHighBytes) {
  constexpr unsigned char kFirstPrintable = 0x20;
  constexpr unsigned char kDelete = 0x7F;
  std::string out = "\"";
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out.push_back('\\');
      out.push_back(static_cast<char>(c));
    } else if (c < kFirstPrintable || (c >= kDelete && !keepHighBytes)) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
      out += escaped;
    } else {
      out.push_back(static_cast<char>(c));
    }
  }
  return out + "\"";
}
