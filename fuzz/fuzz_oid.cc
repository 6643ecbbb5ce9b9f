// Converts arbitrary text from dotted form with both forms of output, and looks arbitrary bytes up in the
// registry and prints them as dotted text. Checks that the element form is the content form wrapped, and
// that a registered identifier prints as its registry text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "asn1/cvel_oid.h"
#include "asn1/cvel_string.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 4096) return 0;
  // The bytes as text (up to a zero byte, as the converter reads zero-terminated text).
  const std::string text(reinterpret_cast<const char*>(data), size);
  CvelString content;
  CvelString element;
  const CvelResult rc = fromDotted(text.c_str(), content, 0);
  const CvelResult re = fromDotted(text.c_str(), element, 1);
  check(rc == re);
  if (rc == kCvelOk) {
    check(element.length() > content.length() + 1);
    check(element.data()[0] == 0x06);
    check(std::memcmp(element.data() + element.length() - content.length(), content.data(), content.length()) == 0);
    const int32_t kind = kindOf(element);
    if (kind > 0) {
      const char* dotted = dottedOfKind(kind);
      check(dotted != nullptr);
    }
    std::string back;
    toDotted(element, back);
  } else {
    check(rc == 0);
  }

  // The bytes as DER, both as an owned string and as a view without a terminator.
  CvelString der;
  if (der.assign(data, static_cast<uint32_t>(size)) != kCvelOk) return 0;
  const int32_t kind = kindOf(der);
  CvelString view;
  view.setView(data, size);
  check(kindOf(view) == kind);
  if (size == 0) check(kind == 0);
  if (kind > 0) {
    const char* dotted = dottedOfKind(kind);
    check(dotted != nullptr);
    std::string back;
    check(toDotted(der, back));
    check(back == dotted);
  }
  std::string printed;
  toDotted(view, printed);
  return 0;
}
