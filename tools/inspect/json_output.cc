#include "inspect/json_output.h"

std::string jsonDocument(const Json& value) {
  constexpr int kIndent = 2;
  constexpr bool kEnsureAscii = false;
  return value.dump(kIndent, ' ', kEnsureAscii, nlohmann::json::error_handler_t::replace) + "\n";
}
