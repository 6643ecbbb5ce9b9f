#include "io/hex_text.h"

namespace {

constexpr int kFirstLetterValue = 10;

}  // namespace

int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + kFirstLetterValue;
  if (c >= 'A' && c <= 'F') return c - 'A' + kFirstLetterValue;
  return -1;
}
