// JSON as every `--json` of the tool writes it: through nlohmann-json, members in the order they were set.
#ifndef KOLVARI_TOOLS_INSPECT_JSON_OUTPUT_H
#define KOLVARI_TOOLS_INSPECT_JSON_OUTPUT_H

#include <string>

#include <nlohmann/json.hpp>

using Json = nlohmann::ordered_json;

// The document as text with a final newline: indented by two spaces, strings carrying their UTF-8 text with
// only what JSON requires escaped (quote, backslash, control characters). A string that is not well-formed
// UTF-8 (a file name is whatever bytes the system gives) has each sequence that is not replaced by U+FFFD.
std::string jsonDocument(const Json& value);

#endif  // KOLVARI_TOOLS_INSPECT_JSON_OUTPUT_H
