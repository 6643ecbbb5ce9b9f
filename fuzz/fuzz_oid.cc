// Converts arbitrary text from dotted form, and looks arbitrary bytes up in the registry and prints them as
// dotted text. A registered identifier must print as its registry text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "asn1/cvel_oid.h"
#include "asn1/cvel_string.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 4096) return 0;
  // The bytes as text, read up to a zero byte as C text is.
  const std::string text(reinterpret_cast<const char*>(data), size);
  CvelString der;
  std::string back;
  if (fromDotted(text.c_str(), der, 1) == kCvelOk) {
    kindOf(der);
    toDotted(der, back);
  }
  // The bytes as DER, viewed without a terminator behind them.
  CvelString view;
  if (view.setView(data, size) != kCvelOk) return 0;
  const int32_t kind = kindOf(view);
  const bool printed = toDotted(view, back);
  if (kind > 0 && (!printed || back != dottedOfKind(kind))) std::abort();
  return 0;
}
