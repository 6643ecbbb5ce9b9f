#include "base/cvel_configuration.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <new>

#include "base/cvel_last_error.h"

namespace {

constexpr char kBlank = ' ';
constexpr char kQuote = '"';
constexpr char kComment = '#';
constexpr char kAssign = '=';
constexpr char kSectionOpen = '[';
constexpr char kSectionClose = ']';

constexpr unsigned char kFirstAllowed = 26;
constexpr unsigned char kLastAllowed = 126;
// ä ö ü Ä Ö Ü ß in Latin-1.
constexpr unsigned char kAllowedLatin1[] = {0xE4, 0xF6, 0xFC, 0xC4, 0xD6, 0xDC, 0xDF};

constexpr size_t kReadChunk = 65536;

bool isWhite(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

std::string trimBlanks(const std::string& text) {
  const size_t first = text.find_first_not_of(kBlank);
  if (first == std::string::npos) return std::string();
  const size_t last = text.find_last_not_of(kBlank);
  return text.substr(first, last - first + 1);
}

// A text without a double quote is trimmed of blanks; with one quote only it is invalid; otherwise the text
// between the first two quotes is taken as it stands.
bool unquote(const std::string& text, std::string& out) {
  const size_t open = text.find(kQuote);
  if (open == std::string::npos) {
    out = trimBlanks(text);
    return true;
  }
  const size_t close = text.find(kQuote, open + 1);
  out.clear();
  if (close == std::string::npos) return false;
  out = text.substr(open + 1, close - open - 1);
  return true;
}

bool allAllowed(const std::string& text) {
  for (char c : text)
    if (!CvelConfiguration::allowedByte(static_cast<unsigned char>(c))) return false;
  return true;
}

// Only white space before the first '#'.
bool isCommentLine(const std::string& line) {
  for (char c : line) {
    if (c == kComment) return true;
    if (!isWhite(c)) return false;
  }
  return false;
}

// A trimmed line "[name]..." whose first ']' is not its second character, with allowed bytes up to that ']'
// and a name that is not blank.
bool readSectionHeader(const std::string& line, std::string& name) {
  if (line[0] != kSectionOpen) return false;
  const size_t close = line.find(kSectionClose);
  if (close == std::string::npos || close == 1) return false;
  for (size_t i = 0; i < close; ++i)
    if (!CvelConfiguration::allowedByte(static_cast<unsigned char>(line[i]))) return false;
  name = trimBlanks(line.substr(1, close - 1));
  return !name.empty();
}

// A trimmed key line: key, key = value, "key" = "value", with '#' starting a trailing comment outside quotes.
// False for a line to be ignored: one that starts with '=' or has an unpaired quote.
bool readKeyLine(const std::string& line, std::string& key, std::string& value) {
  if (line[0] == kAssign) return false;
  // A quoted key ends at its closing quote: an '=' or '#' inside it does not count.
  size_t keyEnd = 0;
  if (line[0] == kQuote) {
    const size_t close = line.find(kQuote, 1);
    if (close == std::string::npos) return false;
    keyEnd = close + 1;
  }
  const size_t assign = line.find(kAssign, keyEnd);
  const size_t comment = line.find(kComment, keyEnd);
  if (line[0] != kQuote) keyEnd = std::min(assign, comment);
  if (keyEnd == std::string::npos) keyEnd = line.size();
  if (!unquote(line.substr(0, keyEnd), key)) return false;

  value.clear();
  if (assign == std::string::npos) return true;
  // Taken as written, also when a '#' stands before the '=': the key ends at the '#' and the value still
  // starts after the '='.
  const size_t start = line.find_first_not_of("= ", assign + 1);
  if (start == std::string::npos) return true;
  size_t end = line.size();
  if (line[start] == kQuote) {
    const size_t close = line.find(kQuote, start + 1);
    if (close == std::string::npos) return false;
    end = close + 1;
  } else {
    end = std::min(line.find(kComment, start), line.size());
  }
  return unquote(line.substr(start, end - start), value);
}

}  // namespace

bool CvelConfiguration::allowedByte(unsigned char byte) {
  if (byte >= kFirstAllowed && byte <= kLastAllowed) return true;
  for (unsigned char letter : kAllowedLatin1)
    if (byte == letter) return true;
  return false;
}

CvelResult CvelConfiguration::parse(const void* text, size_t length, bool keep) {
  if (text == nullptr || length == 0) return kCvelErrBadParameter;
  try {
    if (!keep) sections_.clear();
    if (length > kMaxTextLength) return kCvelErrTooLong;
    return parseText(std::string(static_cast<const char*>(text), length), nullptr);
  } catch (...) {
    return kCvelErrMalformed;
  }
}

CvelResult CvelConfiguration::parseLines(const void* text, size_t length, const LineVisitor& visit) {
  if (text == nullptr || length == 0) return kCvelErrBadParameter;
  try {
    sections_.clear();
    if (length > kMaxTextLength) return kCvelErrTooLong;
    return parseText(std::string(static_cast<const char*>(text), length), &visit);
  } catch (...) {
    return kCvelErrMalformed;
  }
}

CvelResult CvelConfiguration::parseText(const std::string& original, const LineVisitor* visit) {
  std::string text = original;
  for (char& c : text) {
    if (c == '\r') c = '\n';
    if (c == '\t') c = kBlank;
  }
  CvelResult result = kCvelOk;
  std::string section;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find('\n', at);
    if (end == std::string::npos) end = text.size();
    const std::string raw = text.substr(at, end - at);
    const size_t lineStart = at;
    at = end + 1;
    if (raw.empty() || isCommentLine(raw)) continue;
    const std::string line = trimBlanks(raw);
    if (line.empty()) continue;

    std::string name;
    if (readSectionHeader(line, name)) {
      section = name;  // text after the ']' is ignored
      if (visit != nullptr) (*visit)({lineStart, true, section, std::string(), std::string()});
      continue;
    }
    std::string key;
    std::string value;
    if (!readKeyLine(line, key, value) || section.empty()) continue;
    if (visit != nullptr) (*visit)({lineStart, false, section, key, value});
    if (!allAllowed(section) || !allAllowed(key) || !allAllowed(value)) return kCvelErrForbiddenByte;
    result = setText(section.c_str(), key.c_str(), value.c_str());
  }
  return result;
}

const CvelConfiguration::Keys* CvelConfiguration::findSection(const char* section) const {
  const auto found = sections_.find(section);
  return found == sections_.end() ? nullptr : &found->second;
}

const std::string* CvelConfiguration::findKey(const Keys& keys, const char* key, bool ignoreCase) {
  if (!ignoreCase) {
    const auto found = keys.find(key);
    return found == keys.end() ? nullptr : &found->second;
  }
  const std::string wanted(key);
  for (const auto& [candidate, value] : keys) {
    if (candidate.size() != wanted.size()) continue;
    bool same = true;
    for (size_t i = 0; i < wanted.size() && same; ++i) {
      const auto a = static_cast<unsigned char>(candidate[i]);
      const auto b = static_cast<unsigned char>(wanted[i]);
      // ASCII letters only: the Latin-1 umlauts keep their case.
      same = a == b || (a < 0x80 && b < 0x80 && std::tolower(a) == std::tolower(b));
    }
    if (same) return &value;
  }
  return nullptr;
}

CvelResult CvelConfiguration::getText(const char* section, const char* key, std::string& out,
                                      bool ignoreCase) const {
  out.clear();
  if (section == nullptr || key == nullptr) return kCvelErrBadParameter;
  try {
    const Keys* keys = findSection(section);
    const std::string* value = keys == nullptr ? nullptr : findKey(*keys, key, ignoreCase);
    if (value == nullptr) return kCvelErrNotFound;
    out = *value;
    return kCvelOk;
  } catch (...) {
    return kCvelErrMalformed;
  }
}

bool CvelConfiguration::hasKey(const char* section, const char* key, bool ignoreCase) const {
  if (section == nullptr || key == nullptr || *section == '\0' || *key == '\0') return false;
  try {
    const Keys* keys = findSection(section);
    return keys != nullptr && findKey(*keys, key, ignoreCase) != nullptr;
  } catch (...) {
    return false;
  }
}

CvelResult CvelConfiguration::listKeys(const char* section, std::vector<std::string>& out) const {
  out.clear();
  if (section == nullptr) return kCvelErrBadParameter;
  try {
    const Keys* keys = findSection(section);
    if (keys == nullptr) return kCvelErrNotFound;
    for (const auto& entry : *keys) out.push_back(entry.first);
    return kCvelOk;
  } catch (...) {
    out.clear();
    return kCvelErrMalformed;
  }
}

CvelResult CvelConfiguration::setText(const char* section, const char* key, const char* value) {
  if (section == nullptr || key == nullptr || value == nullptr) return kCvelErrBadParameter;
  try {
    sections_[section][key] = value;
    return kCvelOk;
  } catch (...) {
    return kCvelErrMalformed;
  }
}

CvelResult CvelConfiguration::readFile(const char* path, std::vector<unsigned char>& out) {
  out.clear();
  if (path == nullptr || *path == '\0') return kCvelErrBadParameter;
  FILE* file = std::fopen(path, "rb");
  if (file == nullptr) {
    setLastError(errno, 0, 0, kCvelReportSystemText);
    return kCvelErrMalformed;
  }
  CvelResult result = kCvelOk;
  try {
    unsigned char chunk[kReadChunk];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0) out.insert(out.end(), chunk, chunk + n);
    if (std::ferror(file)) {
      setLastError(errno, 0, 0, kCvelReportSystemText);
      result = kCvelErrMalformed;
    }
  } catch (...) {
    result = kCvelErrMalformed;
  }
  std::fclose(file);
  if (result != kCvelOk) out.clear();
  return result;
}
