// Helpers every command shares: reading a file whole, reading options and their values.
#include <fstream>
#include <iterator>

#include "commands.h"

bool readWholeFile(const std::string& path, std::vector<unsigned char>& out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool optionValue(const Arguments& args, size_t& i, std::string& into) {
  if (i + 1 >= args.size()) return false;
  into = args[++i];
  return true;
}

bool parseFileAndJson(const Arguments& args, std::string& path, bool& json) {
  path.clear();
  json = false;
  for (const std::string& a : args) {
    if (a == "--json") {
      json = true;
    } else if (path.empty() && !a.empty() && a[0] != '-') {
      path = a;
    } else {
      path.clear();
      return false;
    }
  }
  return !path.empty();
}
