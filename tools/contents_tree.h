// A small value tree that `kolvari inspect` fills once and prints either as an indented text tree or as JSON,
// so that both forms always carry the same fields.
#ifndef KOLVARI_TOOLS_CONTENTS_TREE_H
#define KOLVARI_TOOLS_CONTENTS_TREE_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

class InspectValue {
 public:
  enum Kind : uint8_t { kNull, kText, kNumber, kBool, kObject, kArray };

  InspectValue() = default;
  static InspectValue text(std::string t);
  static InspectValue number(int64_t n);
  static InspectValue boolean(bool b);
  static InspectValue object();
  static InspectValue array();

  // Adds a member (objects) or an item (arrays); returns the added value.
  InspectValue& set(const std::string& key, InspectValue value);
  InspectValue& push(InspectValue value);

  // The same fields as a JSON value (printed with jsonDocument, inspect/json_output.h).
  nlohmann::ordered_json toJson() const;
  void printText(std::string& out, int indent) const;

  Kind kind() const { return kind_; }

 private:
  Kind kind_ = kNull;
  std::string text_;
  int64_t number_ = 0;
  std::vector<std::pair<std::string, InspectValue>> members_;
  std::vector<InspectValue> items_;

  bool isScalar() const { return kind_ != kObject && kind_ != kArray; }
  std::string scalarText() const;
};

#endif  // KOLVARI_TOOLS_CONTENTS_TREE_H
