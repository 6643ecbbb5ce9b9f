#include "support/openssl_text.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "asn1/cvel_a1_context.h"
#include "support/test_util.h"

namespace testutil {

std::string opensslTime(const CvelTime& t) {
  static const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  if (t.month() < 1 || t.month() > 12) return "(no time)";
  char text[40];
  std::snprintf(text, sizeof text, "%s %2d %02d:%02d:%02d %d GMT", kMonths[t.month() - 1], t.day(), t.hour(),
                t.minute(), t.second(), t.year());
  return text;
}

std::string nameValues(const CvelDName& name) {
  std::string values;
  for (uint32_t i = 0; i < name.size(); ++i) {
    CvelRDName* entry = nullptr;
    CvelA1Context c;
    CvelString value;
    if (name.get(i, entry) != kCvelOk || c.next(entry->value()) < 0 || value.setView(entry->value(), &c) != kCvelOk)
      return "(no value)";
    values += std::string(reinterpret_cast<const char*>(value.data()), value.length()) + "|";
  }
  return values;
}

std::string opensslNameValues(const std::string& text) {
  std::string values;
  for (size_t at = text.find(" = "); at != std::string::npos; at = text.find(" = ", at + 3)) {
    const size_t end = text.find_first_of(",\n", at + 3);
    values += text.substr(at + 3, end == std::string::npos ? std::string::npos : end - at - 3) + "|";
  }
  return values;
}

std::string tlv(const std::string& tag, const std::string& content) {
  const Bytes bytes = hex(content);
  EXPECT_LT(bytes.size(), 256u);
  const std::string length = toHex(Bytes{static_cast<unsigned char>(bytes.size())});
  return tag + (bytes.size() < 128 ? "" : "81") + length + toHex(bytes);
}

}  // namespace testutil
