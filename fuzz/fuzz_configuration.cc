// Parses arbitrary text as a configuration. Whatever was stored (also before a rejected line) holds only
// allowed bytes, and written out again as "[section]" and "key"="value" lines it parses to the same content.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/cvel_configuration.h"

namespace {

using Content = std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>>;

bool allowed(const std::string& text) {
  for (char c : text)
    if (!CvelConfiguration::allowedByte(static_cast<unsigned char>(c))) return false;
  return true;
}

// Every section with its keys and values, in order; aborts on a lookup that disagrees with the listing.
Content contentOf(const CvelConfiguration& config, const std::vector<std::string>& sections) {
  Content content;
  for (const std::string& section : sections) {
    std::vector<std::string> keys;
    if (config.listKeys(section.c_str(), keys) != kCvelOk) continue;
    content.push_back({section, {}});
    for (const std::string& key : keys) {
      std::string value;
      if (config.getText(section.c_str(), key.c_str(), value) != kCvelOk) std::abort();
      if (!allowed(section) || !allowed(key) || !allowed(value)) std::abort();
      content.back().second.push_back({key, value});
    }
  }
  return content;
}

// The section names that the text could have declared: every "[...]" between a '[' and the next ']'.
std::vector<std::string> candidateSections(const std::string& text) {
  std::vector<std::string> names;
  for (size_t open = text.find('['); open != std::string::npos; open = text.find('[', open + 1)) {
    const size_t close = text.find(']', open);
    if (close == std::string::npos) break;
    std::string name = text.substr(open + 1, close - open - 1);
    for (char& c : name)
      if (c == '\t') c = ' ';
    const size_t first = name.find_first_not_of(' ');
    // A stored name never holds a zero byte, and the lookups would end the name there.
    if (first == std::string::npos || name.find('\0') != std::string::npos) continue;
    names.push_back(name.substr(first, name.find_last_not_of(' ') - first + 1));
  }
  return names;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 0x10000) return 0;
  CvelConfiguration config;
  config.parse(data, size);
  const std::string text(reinterpret_cast<const char*>(data), size);
  const Content content = contentOf(config, candidateSections(text));

  std::string written;
  std::vector<std::string> sections;
  for (const auto& [section, keys] : content) {
    sections.push_back(section);
    written += "[" + section + "]\n";
    for (const auto& [key, value] : keys) written += "\"" + key + "\"=\"" + value + "\"\n";
  }
  CvelConfiguration again;
  if (!written.empty() && again.parse(written.data(), written.size()) != kCvelOk) std::abort();
  if (contentOf(again, sections) != content) std::abort();
  return 0;
}
