#include "signing/pkcs11_uri.h"

#include <fstream>
#include <vector>

#include "io/hex_text.h"

namespace {

constexpr char kScheme[] = "pkcs11:";
constexpr char kFileScheme[] = "file:";
// The key type a URI may name; only private keys sign.
constexpr char kTypePrivate[] = "private";

// Decodes %XX escapes; a '%' not followed by two hex digits is an error.
bool percentDecode(const std::string& text, std::string& out) {
  out.clear();
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out.push_back(text[i]);
      continue;
    }
    if (i + 2 >= text.size()) return false;
    const int high = hexDigitValue(text[i + 1]);
    const int low = hexDigitValue(text[i + 2]);
    if (high < 0 || low < 0) return false;
    out.push_back(static_cast<char>(high * 16 + low));
    i += 2;
  }
  return true;
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (true) {
    const size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) return parts;
    start = end + 1;
  }
}

// Sets one value, refusing a second occurrence of the same attribute.
bool setOnce(std::string& field, bool& seen, const std::string& value) {
  if (seen) return false;
  seen = true;
  field = value;
  return true;
}

struct Seen {
  bool token = false;
  bool serial = false;
  bool object = false;
  bool id = false;
  bool type = false;
  bool pinValue = false;
  bool pinSource = false;
  bool modulePath = false;
};

// One name=value pair of the path (inPath) or of the query.
bool applyAttribute(const std::string& pair, bool inPath, Pkcs11Uri& out, Seen& seen, std::string& error) {
  const size_t equals = pair.find('=');
  if (equals == std::string::npos || equals == 0) {
    error = "malformed attribute '" + pair + "' in the PKCS#11 URI";
    return false;
  }
  const std::string name = pair.substr(0, equals);
  std::string value;
  if (!percentDecode(pair.substr(equals + 1), value)) {
    error = "bad %-escape in the PKCS#11 URI attribute " + name;
    return false;
  }
  bool once = true;
  std::string type;
  if (inPath && name == "token") {
    once = setOnce(out.token, seen.token, value);
  } else if (inPath && name == "serial") {
    once = setOnce(out.serial, seen.serial, value);
  } else if (inPath && name == "object") {
    once = setOnce(out.object, seen.object, value);
  } else if (inPath && name == "id") {
    std::string id;
    once = setOnce(id, seen.id, value);
    out.id.assign(id.begin(), id.end());
    out.hasId = true;
  } else if (inPath && name == "type") {
    once = setOnce(type, seen.type, value);
    if (once && type != kTypePrivate) {
      error = "the PKCS#11 URI names a " + type + " object; only a private key signs";
      return false;
    }
  } else if (!inPath && name == "pin-value") {
    once = setOnce(out.pinValue, seen.pinValue, value);
    out.hasPinValue = true;
  } else if (!inPath && name == "pin-source") {
    once = setOnce(out.pinSource, seen.pinSource, value);
  } else if (!inPath && name == "module-path") {
    once = setOnce(out.modulePath, seen.modulePath, value);
  } else {
    error = "the PKCS#11 URI attribute " + name + " is not supported here";
    return false;
  }
  if (!once) error = "the PKCS#11 URI gives " + name + " twice";
  return once;
}

}  // namespace

bool parsePkcs11Uri(const std::string& text, Pkcs11Uri& out, std::string& error) {
  out = Pkcs11Uri();
  const size_t schemeLength = sizeof kScheme - 1;
  if (text.compare(0, schemeLength, kScheme) != 0) {
    error = "a PKCS#11 URI starts with pkcs11:";
    return false;
  }
  const size_t question = text.find('?', schemeLength);
  const std::string path = text.substr(schemeLength, question == std::string::npos ? std::string::npos
                                                                                   : question - schemeLength);
  Seen seen;
  if (!path.empty()) {
    for (const std::string& pair : split(path, ';')) {
      if (!applyAttribute(pair, true, out, seen, error)) return false;
    }
  }
  if (question != std::string::npos) {
    for (const std::string& pair : split(text.substr(question + 1), '&')) {
      if (!applyAttribute(pair, false, out, seen, error)) return false;
    }
  }
  if (out.object.empty() && !out.hasId) {
    error = "the PKCS#11 URI names no key (object= or id=)";
    return false;
  }
  if (out.hasPinValue && !out.pinSource.empty()) {
    error = "the PKCS#11 URI gives both pin-value and pin-source";
    return false;
  }
  return true;
}

bool readPinSource(const std::string& source, std::string& pin, std::string& error) {
  const size_t fileSchemeLength = sizeof kFileScheme - 1;
  std::string path = source.compare(0, fileSchemeLength, kFileScheme) == 0 ? source.substr(fileSchemeLength) : source;
  // file:///path and file:/path both name /path.
  if (path.compare(0, 2, "//") == 0) path = path.substr(2);
  std::ifstream file(path);
  if (!file || !std::getline(file, pin)) {
    error = "cannot read the PIN from " + path;
    return false;
  }
  if (!pin.empty() && pin.back() == '\r') pin.pop_back();
  return true;
}
