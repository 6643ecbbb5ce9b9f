#include "contents_tree.h"

#include <cstdio>

#include "commands.h"

namespace {

void pad(std::string& out, int indent) { out.append(static_cast<size_t>(indent) * 2, ' '); }

}  // namespace

InspectValue InspectValue::text(std::string t) {
  InspectValue v;
  v.kind_ = kText;
  v.text_ = std::move(t);
  return v;
}

InspectValue InspectValue::number(int64_t n) {
  InspectValue v;
  v.kind_ = kNumber;
  v.number_ = n;
  return v;
}

InspectValue InspectValue::boolean(bool b) {
  InspectValue v;
  v.kind_ = kBool;
  v.number_ = b ? 1 : 0;
  return v;
}

InspectValue InspectValue::object() {
  InspectValue v;
  v.kind_ = kObject;
  return v;
}

InspectValue InspectValue::array() {
  InspectValue v;
  v.kind_ = kArray;
  return v;
}

InspectValue& InspectValue::set(const std::string& key, InspectValue value) {
  members_.emplace_back(key, std::move(value));
  return members_.back().second;
}

InspectValue& InspectValue::push(InspectValue value) {
  items_.push_back(std::move(value));
  return items_.back();
}

std::string InspectValue::scalarText(bool json) const {
  switch (kind_) {
    case kText: return json ? jsonQuoted(text_, false) : text_;
    case kNumber: return std::to_string(number_);
    case kBool: return number_ != 0 ? "true" : "false";
    default: return json ? "null" : "-";
  }
}

void InspectValue::printJson(std::string& out, int indent) const {
  if (isScalar()) {
    out += scalarText(true);
    return;
  }
  const bool isObject = kind_ == kObject;
  const size_t count = isObject ? members_.size() : items_.size();
  out += isObject ? "{" : "[";
  for (size_t i = 0; i < count; ++i) {
    out += i == 0 ? "\n" : ",\n";
    pad(out, indent + 1);
    if (isObject) out += jsonQuoted(members_[i].first, false) + ": ";
    (isObject ? members_[i].second : items_[i]).printJson(out, indent + 1);
  }
  if (count != 0) {
    out += "\n";
    pad(out, indent);
  }
  out += isObject ? "}" : "]";
}

// key: value on one line for scalars; a nested value goes below its key, one level deeper. Array items are
// numbered from 1 so that a reader can refer to them.
void InspectValue::printText(std::string& out, int indent) const {
  if (kind_ == kObject) {
    for (const auto& [key, value] : members_) {
      pad(out, indent);
      out += key + ":";
      if (value.isScalar()) {
        out += " " + value.scalarText(false) + "\n";
      } else if (value.kind_ == kArray && value.items_.empty()) {
        out += " none\n";
      } else {
        out += "\n";
        value.printText(out, indent + 1);
      }
    }
    return;
  }
  if (kind_ == kArray) {
    for (size_t i = 0; i < items_.size(); ++i) {
      pad(out, indent);
      out += "[" + std::to_string(i + 1) + "]";
      if (items_[i].isScalar()) {
        out += " " + items_[i].scalarText(false) + "\n";
      } else {
        out += "\n";
        items_[i].printText(out, indent + 1);
      }
    }
    return;
  }
  pad(out, indent);
  out += scalarText(false) + "\n";
}
