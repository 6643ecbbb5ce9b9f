// Parses arbitrary text as a configuration. Whatever was stored (also before a rejected line) holds only
// allowed bytes, and written out again as "[section]" and "key"="value" lines it parses to the same content.
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "base/cvel_configuration.h"
#include "fuzz_input.h"

using Content = std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>>;

static bool allowed(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return CvelConfiguration::allowedByte(static_cast<unsigned char>(c)); });
}

// Every section with its keys and values, in order; ends the run on a lookup that disagrees with the listing.
static Content contentOf(const CvelConfiguration& config, const std::vector<std::string>& sections) {
  Content content;
  for (const std::string& section : sections) {
    std::vector<std::string> keys;
    if (config.listKeys(section.c_str(), keys) != kCvelOk) continue;
    content.push_back({section, {}});
    for (const std::string& key : keys) {
      std::string value;
      fuzzCheck(config.getText(section.c_str(), key.c_str(), value) == kCvelOk && allowed(section) &&
                allowed(key) && allowed(value));
      content.back().second.push_back({key, value});
    }
  }
  return content;
}

// The section names that the text could have declared: every "[...]" between a '[' and the next ']', each
// name once (a text that repeats one header would otherwise list its keys once per repetition, quadratically).
static std::vector<std::string> candidateSections(const std::string& text) {
  std::vector<std::string> names;
  std::set<std::string> seen;
  for (size_t open = text.find('['); open != std::string::npos; open = text.find('[', open + 1)) {
    const size_t close = text.find(']', open);
    if (close == std::string::npos) break;
    std::string name = text.substr(open + 1, close - open - 1);
    std::replace(name.begin(), name.end(), '\t', ' ');
    const size_t first = name.find_first_not_of(' ');
    // A stored name never holds a zero byte, and the lookups would end the name there.
    if (first == std::string::npos || name.find('\0') != std::string::npos) continue;
    std::string trimmed = name.substr(first, name.find_last_not_of(' ') - first + 1);
    if (seen.insert(trimmed).second) names.push_back(std::move(trimmed));
  }
  return names;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kFuzzMaxInput) return 0;
  CvelConfiguration config, again;
  static_cast<void>(config.parse(data, size));
  const Content content = contentOf(config, candidateSections(std::string(reinterpret_cast<const char*>(data), size)));
  std::string written;
  std::vector<std::string> sections;
  for (const auto& [section, keys] : content) {
    sections.push_back(section);
    written += "[" + section + "]\n";
    for (const auto& [key, value] : keys) written += "\"" + key + "\"=\"" + value + "\"\n";
  }
  fuzzCheck(written.empty() || again.parse(written.data(), written.size()) == kCvelOk);
  fuzzCheck(contentOf(again, sections) == content);
  return 0;
}
