// Conversion between UTF-8 and wide strings of 32-bit code points, after the Unicode reference converter:
// two range converters with its four results, and the string helpers built on them in strict mode.
#ifndef KOLVARI_ASN1_CVEL_TEXT_ENCODING_H
#define KOLVARI_ASN1_CVEL_TEXT_ENCODING_H

#include <cstdint>
#include <string>

static_assert(sizeof(wchar_t) == 4, "wide strings hold 32-bit code points");

enum CvelConversionResult : uint32_t {
  kConversionOk = 0,        // all input converted
  kSourceExhausted = 1,     // the last UTF-8 sequence is cut off
  kTargetExhausted = 2,     // the output range is full; the source stays at the unconverted character
  kSourceIllegal = 3,       // an illegal sequence or code point; the source stays at it
};

enum CvelConversionFlags : uint32_t {
  kStrictConversion = 0,    // surrogate code points are illegal
  kLenientConversion = 1,   // surrogates are written (to UTF-8) or replaced by U+FFFD (from UTF-8)
};

// Both converters advance *source and *target past what they converted; the ends are exclusive.
CvelConversionResult convertUtf32ToUtf8(const uint32_t** source, const uint32_t* sourceEnd, uint8_t** target,
                                        uint8_t* targetEnd, CvelConversionFlags flags);
CvelConversionResult convertUtf8ToUtf32(const uint8_t** source, const uint8_t* sourceEnd, uint32_t** target,
                                        uint32_t* targetEnd, CvelConversionFlags flags);

// Strict conversions of whole strings; any result but kConversionOk throws std::runtime_error.
std::wstring toWide(const std::string& text);
std::string toUtf8(const std::wstring& wide);

#endif  // KOLVARI_ASN1_CVEL_TEXT_ENCODING_H
