// Converts arbitrary text from dotted form, and looks arbitrary bytes up in the registry and prints them as
// dotted text. A registered identifier must print as its registry text.
#include <string>

#include "asn1/cvel_oid.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The bytes as DER, viewed without a terminator behind them, and as text, read up to a zero byte.
  CvelString view, der;
  if (!fuzzView(data, size, view, 4096)) return 0;
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string back;
  if (fromDotted(text.c_str(), der, 1) == kCvelOk) {
    kindOf(der);
    toDotted(der, back);
  }
  const int32_t kind = kindOf(view);
  const bool printed = toDotted(view, back);
  fuzzCheck(kind <= 0 || (printed && back == dottedOfKind(kind)));
  return 0;
}
