#include "contents_tree.h"

#include <cstdio>

#include "inspect/json_output.h"

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

std::string InspectValue::scalarText() const {
  switch (kind_) {
    case kText: return text_;
    case kNumber: return std::to_string(number_);
    case kBool: return number_ != 0 ? "true" : "false";
    default: return "-";
  }
}

Json InspectValue::toJson() const {
  switch (kind_) {
    case kText: return Json(text_);
    case kNumber: return Json(number_);
    case kBool: return Json(number_ != 0);
    case kObject: {
      Json j = Json::object();
      for (const auto& [key, value] : members_) j[key] = value.toJson();
      return j;
    }
    case kArray: {
      Json j = Json::array();
      for (const InspectValue& item : items_) j.push_back(item.toJson());
      return j;
    }
    default: return Json();
  }
}

// key: value on one line for scalars; a nested value goes below its key, one level deeper. Array items are
// numbered from 1 so that a reader can refer to them.
void InspectValue::printText(std::string& out, int indent) const {
  if (kind_ == kObject) {
    for (const auto& [key, value] : members_) {
      pad(out, indent);
      out += key + ":";
      if (value.isScalar()) {
        out += " " + value.scalarText() + "\n";
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
        out += " " + items_[i].scalarText() + "\n";
      } else {
        out += "\n";
        items_[i].printText(out, indent + 1);
      }
    }
    return;
  }
  pad(out, indent);
  out += scalarText() + "\n";
}
