// CvelConfiguration: an INI-like configuration of named sections holding keys with text values, parsed
// from a whole file held in memory. The logger reads its configuration file through it.
#ifndef KOLVARI_BASE_CVEL_CONFIGURATION_H
#define KOLVARI_BASE_CVEL_CONFIGURATION_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "asn1/cvel_non_copy_object.h"
#include "base/cvel_base_result.h"

class CvelConfiguration : public CvelNonCopyObject {
 public:
  // A text longer than this is refused as a whole.
  static constexpr size_t kMaxTextLength = 0x400000;

  // Parses length bytes of text. Unless keep is set, what was stored before is dropped first.
  // kCvelErrBadParameter for null text or length 0, kCvelErrTooLong over kMaxTextLength,
  // kCvelErrForbiddenByte when a stored section, key or value would hold a byte outside the allowed set
  // (the lines before it stay stored), kCvelErrMalformed when memory runs out.
  CvelResult parse(const void* text, size_t length, bool keep = false);
  CvelResult parse(const std::vector<unsigned char>& text, bool keep = false) {
    return parse(text.data(), text.size(), keep);
  }

  // One line as the reader takes it: a section header, or a key line that it stores or refuses.
  struct ReadLine {
    size_t offset = 0;    // where the line starts in the text
    bool header = false;
    std::string section;  // the header's name, or the section that the key goes into
    std::string key;
    std::string value;
  };
  using LineVisitor = std::function<void(const ReadLine&)>;
  // As parse (what was stored before is dropped), handing each header and each key line to visit in text
  // order: a checker learns where every key stands, and after kCvelErrForbiddenByte the last line visited
  // is the one refused, all in the one pass.
  CvelResult parseLines(const void* text, size_t length, const LineVisitor& visit);

  // out is emptied, then receives the value. kCvelErrBadParameter for a null section or key,
  // kCvelErrNotFound when either is missing. With ignoreCase the first key of the section (in byte order)
  // that equals key apart from ASCII letter case is taken.
  CvelResult getText(const char* section, const char* key, std::string& out, bool ignoreCase = false) const;
  // True when section and key are non-empty and the key is present; the value is not looked at.
  bool hasKey(const char* section, const char* key, bool ignoreCase = false) const;
  // out receives the keys of section in ascending byte order; kCvelErrNotFound when there is no such section.
  CvelResult listKeys(const char* section, std::vector<std::string>& out) const;
  // Stores value under section and key, creating both as needed and replacing an earlier value.
  // kCvelErrBadParameter for a null argument, kCvelErrMalformed when memory runs out.
  CvelResult setText(const char* section, const char* key, const char* value);

  // out receives every byte of the file at path. kCvelErrBadParameter for a null or empty path,
  // kCvelErrMalformed when the file cannot be opened or read (recorded as the last error).
  static CvelResult readFile(const char* path, std::vector<unsigned char>& out);

  // Whether byte may appear in a section name, key or value: 26 to 126 and the German umlauts and sharp s
  // of Latin-1.
  static bool allowedByte(unsigned char byte);

  void clear() { sections_.clear(); }

 private:
  using Keys = std::map<std::string, std::string>;

  CvelResult parseText(const std::string& text, const LineVisitor* visit);
  const Keys* findSection(const char* section) const;
  static const std::string* findKey(const Keys& keys, const char* key, bool ignoreCase);

  std::map<std::string, Keys> sections_;
};

#endif  // KOLVARI_BASE_CVEL_CONFIGURATION_H
