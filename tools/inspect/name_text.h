// Text of X.500 names and their attribute values: the directory string types decoded to UTF-8, a Name as an
// RFC 4514 string (`CN=Jürgen,O=Org,C=DE`) and as the left-to-right list `kolvari inspect` shows.
#ifndef KOLVARI_TOOLS_INSPECT_NAME_TEXT_H
#define KOLVARI_TOOLS_INSPECT_NAME_TEXT_H

#include <cstdint>
#include <string>

class CvelString;

// The value of one string element as UTF-8: UTF8String (invalid sequences replaced by U+FFFD), the ASCII
// types (PrintableString, IA5String, VisibleString, NumericString; bytes above 0x7F replaced), T61String
// read as Latin-1, BMPString (UTF-16BE) and UniversalString (UTF-32BE). False for any other element.
bool directoryStringText(const CvelString& element, std::string& utf8);

// bytes with every sequence that is not well-formed UTF-8 replaced by U+FFFD.
std::string sanitizedUtf8(const std::string& bytes);

// A Name element as RFC 4514 gives it: the last RDN first, RDNs joined by ',', the attributes of a
// multi-valued RDN by '+'; the RFC's keywords (CN, L, ST, O, OU, C, STREET, DC, UID) and dotted OIDs for the
// other types; a value that is not a string, or of a type without a keyword, as '#' and the hex of its DER.
// Empty when der is not a Name.
std::string rfc4514Name(const CvelString& der);

// A Name element in encoding order, "C=DE, O=Org, CN=Name": short names where known, else dotted; a value
// that is not text (or holds control characters) as '#' and its DER hex. Empty when der is not a Name.
std::string listedName(const CvelString& der);

#endif  // KOLVARI_TOOLS_INSPECT_NAME_TEXT_H
