#include "inspect/name_text.h"

#include <vector>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_string.h"
#include "asn1/cvel_text_encoding.h"
#include "inspect/oid_names.h"
#include "services/der_view.h"

namespace {

constexpr uint8_t kTagNumericString = 0x12;
constexpr uint8_t kTagT61String = 0x14;
constexpr uint8_t kTagIa5String = 0x16;
constexpr uint8_t kTagVisibleString = 0x1A;
constexpr uint8_t kTagUniversalString = 0x1C;
constexpr uint8_t kTagBmpString = 0x1E;
constexpr uint32_t kReplacement = 0xFFFD;
constexpr uint32_t kLastAscii = 0x7F;
constexpr uint32_t kFirstPrintable = 0x20;
constexpr uint32_t kHighSurrogate = 0xD800;
constexpr uint32_t kLowSurrogate = 0xDC00;
constexpr uint32_t kSurrogateEnd = 0xE000;
constexpr uint32_t kSurrogateBits = 10;
constexpr uint32_t kSupplementaryBase = 0x10000;
constexpr uint32_t kLastCodePoint = 0x10FFFF;

// One code point appended as UTF-8; a code point that has none (a surrogate, beyond U+10FFFF) as U+FFFD.
void appendCodePoint(uint32_t c, std::string& out) {
  if (c > kLastCodePoint || (c >= kHighSurrogate && c < kSurrogateEnd)) c = kReplacement;
  uint8_t buffer[4];
  const uint32_t* source = &c;
  uint8_t* target = buffer;
  if (convertUtf32ToUtf8(&source, source + 1, &target, buffer + sizeof buffer, kStrictConversion) != kConversionOk) {
    appendCodePoint(kReplacement, out);
    return;
  }
  out.append(reinterpret_cast<const char*>(buffer), static_cast<size_t>(target - buffer));
}

// Big-endian code units of width bytes; UTF-16 surrogate pairs joined when width is 2.
bool appendWide(const uint8_t* p, uint32_t n, uint32_t width, std::string& out) {
  if (n % width != 0) return false;
  std::vector<uint32_t> units;
  for (uint32_t i = 0; i < n; i += width) {
    uint32_t u = 0;
    for (uint32_t k = 0; k < width; ++k) u = (u << 8) | p[i + k];
    units.push_back(u);
  }
  for (size_t i = 0; i < units.size(); ++i) {
    const uint32_t u = units[i];
    const bool pairs = width == 2 && u >= kHighSurrogate && u < kLowSurrogate && i + 1 < units.size() &&
                       units[i + 1] >= kLowSurrogate && units[i + 1] < kSurrogateEnd;
    if (pairs) {
      appendCodePoint(kSupplementaryBase + ((u - kHighSurrogate) << kSurrogateBits) + (units[++i] - kLowSurrogate),
                      out);
    } else {
      appendCodePoint(u, out);
    }
  }
  return true;
}

void appendSingleBytes(const uint8_t* p, uint32_t n, bool latin1, std::string& out) {
  for (uint32_t i = 0; i < n; ++i) appendCodePoint(latin1 || p[i] <= kLastAscii ? p[i] : kReplacement, out);
}

struct Keyword {
  const char* dotted;
  const char* keyword;
};
// The attribute type keywords of RFC 4514, section 3.
constexpr Keyword kRfc4514Keywords[] = {
    {"2.5.4.3", "CN"}, {"2.5.4.7", "L"},  {"2.5.4.8", "ST"},
    {"2.5.4.10", "O"}, {"2.5.4.11", "OU"}, {"2.5.4.6", "C"},
    {"2.5.4.9", "STREET"}, {"0.9.2342.19200300.100.1.25", "DC"}, {"0.9.2342.19200300.100.1.1", "UID"},
};

const char* rfc4514Keyword(const std::string& dotted) {
  for (const Keyword& k : kRfc4514Keywords) {
    if (dotted == k.dotted) return k.keyword;
  }
  return nullptr;
}

// An attribute value escaped as RFC 4514 section 2.4 asks: the special characters with a backslash, a
// leading space or '#' and a trailing space too, control characters as a backslash and two hex digits.
std::string rfc4514Escaped(const std::string& value) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (size_t i = 0; i < value.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(value[i]);
    const bool special = c == '"' || c == '+' || c == ',' || c == ';' || c == '<' || c == '>' || c == '\\';
    const bool edge = (i == 0 && (c == ' ' || c == '#')) || (i + 1 == value.size() && c == ' ');
    if (c < kFirstPrintable || c == kLastAscii) {
      out += '\\';
      out += kHex[c >> 4];
      out += kHex[c & 0x0F];
    } else {
      if (special || edge) out += '\\';
      out += static_cast<char>(c);
    }
  }
  return out;
}

bool hasControl(const std::string& text) {
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (c < kFirstPrintable || c == kLastAscii) return true;
  }
  return false;
}

// The type and value elements of each AttributeTypeAndValue, RDN by RDN; false when der is not a Name.
using Rdn = std::vector<std::pair<CvelString, CvelString>>;
bool readName(const CvelString& der, std::vector<Rdn>& out) {
  std::vector<CvelString> rdns;
  if (!childrenOf(der, kTagSequence, rdns)) return false;
  for (const CvelString& rdn : rdns) {
    std::vector<CvelString> attributes;
    if (!childrenOf(rdn, kTagSet, attributes)) return false;
    out.emplace_back();
    for (const CvelString& attribute : attributes) {
      std::vector<CvelString> parts;
      if (!childrenOf(attribute, kTagSequence, parts) || parts.size() != 2) return false;
      out.back().emplace_back(std::move(parts[0]), std::move(parts[1]));
    }
  }
  return true;
}

}  // namespace

std::string sanitizedUtf8(const std::string& bytes) {
  std::string out;
  const uint8_t* p = reinterpret_cast<const uint8_t*>(bytes.data());
  const uint8_t* end = p + bytes.size();
  while (p < end) {
    uint32_t c = 0;
    uint32_t* target = &c;
    convertUtf8ToUtf32(&p, end, &target, &c + 1, kStrictConversion);
    if (target != &c) {
      appendCodePoint(c, out);
    } else {
      appendCodePoint(kReplacement, out);
      ++p;  // past the first byte of the sequence that is not well-formed
    }
  }
  return out;
}

bool directoryStringText(const CvelString& element, std::string& utf8) {
  if (element.isEmpty()) return false;
  const uint8_t tag = element.data()[0];
  CvelString content;
  if (!contentOf(element, tag, content)) return false;
  const uint8_t* p = content.data();
  const uint32_t n = content.length();
  utf8.clear();
  switch (tag) {
    case kTagUtf8String:
      utf8 = sanitizedUtf8(std::string(reinterpret_cast<const char*>(p), n));
      return true;
    case kTagNumericString:
    case kTagPrintableString:
    case kTagIa5String:
    case kTagVisibleString:
      appendSingleBytes(p, n, false, utf8);
      return true;
    case kTagT61String:
      appendSingleBytes(p, n, true, utf8);
      return true;
    case kTagBmpString: return appendWide(p, n, 2, utf8);
    case kTagUniversalString: return appendWide(p, n, 4, utf8);
    default: return false;
  }
}

std::string rfc4514Name(const CvelString& der) {
  std::vector<Rdn> rdns;
  if (!readName(der, rdns)) return std::string();
  std::string out;
  for (auto rdn = rdns.rbegin(); rdn != rdns.rend(); ++rdn) {
    if (!out.empty()) out += ',';
    for (size_t i = 0; i < rdn->size(); ++i) {
      const auto& [type, value] = (*rdn)[i];
      const std::string dotted = dottedText(type);
      const char* keyword = rfc4514Keyword(dotted);
      std::string text;
      if (i != 0) out += '+';
      out += keyword != nullptr ? keyword : dotted;
      out += '=';
      out += keyword != nullptr && directoryStringText(value, text) ? rfc4514Escaped(text) : "#" + value.toHex();
    }
  }
  return out;
}

std::string listedName(const CvelString& der) {
  std::vector<Rdn> rdns;
  if (!readName(der, rdns)) return std::string();
  std::string out;
  for (const Rdn& rdn : rdns) {
    for (const auto& [type, value] : rdn) {
      const std::string dotted = dottedText(type);
      const char* label = oidName(dotted);
      std::string text;
      const bool isText = directoryStringText(value, text) && !hasControl(text);
      if (!out.empty()) out += ", ";
      out += std::string(label != nullptr ? label : dotted) + "=" + (isText ? text : "#" + value.toHex());
    }
  }
  return out;
}
