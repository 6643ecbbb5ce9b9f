#include "asn1/cvel_text_encoding.h"

#include <array>
#include <cstddef>
#include <stdexcept>
#include <vector>

namespace {

constexpr uint32_t kMaxLegalCodePoint = 0x10FFFF;
constexpr uint32_t kReplacementChar = 0xFFFD;
constexpr uint32_t kSurrogateFirst = 0xD800;
constexpr uint32_t kSurrogateLast = 0xDFFF;
constexpr uint32_t kContinuationMark = 0x80;
constexpr uint32_t kContinuationBits = 0x3F;
constexpr unsigned kBitsPerContinuation = 6;
constexpr unsigned kMaxSequence = 6;

// Lead-byte marks by sequence length 1 to 6 (index 0 unused).
constexpr std::array<uint8_t, kMaxSequence + 1> kFirstByteMark = {0x00, 0x00, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};

// What the summed bytes of a sequence with n trailing bytes carry beyond the code point: the lead marks and
// continuation marks, each shifted into place.
constexpr std::array<uint32_t, kMaxSequence> kOffsetsFromUtf8 = {0x00000000u, 0x00003080u, 0x000E2080u,
                                                                 0x03C82080u, 0xFA082080u, 0x82082080u};

constexpr std::array<uint8_t, 256> makeTrailingBytes() {
  std::array<uint8_t, 256> t{};
  for (unsigned b = 0; b < 256; ++b) {
    t[b] = b < 0xC0 ? 0 : b < 0xE0 ? 1 : b < 0xF0 ? 2 : b < 0xF8 ? 3 : b < 0xFC ? 4 : 5;
  }
  return t;
}

constexpr std::array<uint8_t, 256> kTrailingBytes = makeTrailingBytes();

unsigned utf8Length(uint32_t ch) {
  if (ch < 0x80) return 1;
  if (ch < 0x800) return 2;
  if (ch < 0x10000) return 3;
  return 4;
}

// The reference converter's legality check of one sequence of `length` bytes starting at s; sequences of
// five or six bytes are never legal.
bool isLegalUtf8(const uint8_t* s, unsigned length) {
  if (length < 1 || length > 4) return false;
  const uint8_t lead = s[0];
  for (unsigned i = length - 1; i >= 2; --i) {
    if (s[i] < 0x80 || s[i] > 0xBF) return false;
  }
  if (length >= 2) {
    // Deliberately stricter than the first published converter: the second byte is a continuation byte
    // whatever the lead, where that converter checked it only for leads without a narrower range (ED, F4
    // and the others) and so took ED 20 80 for U+B800.
    const uint8_t a = s[1];
    if (a < 0x80 || a > 0xBF) return false;
    switch (lead) {
      case 0xE0: if (a < 0xA0) return false; break;  // overlong 3-byte form
      case 0xED: if (a > 0x9F) return false; break;  // surrogates
      case 0xF0: if (a < 0x90) return false; break;  // overlong 4-byte form
      case 0xF4: if (a > 0x8F) return false; break;  // beyond U+10FFFF
      default: break;
    }
  }
  if (lead >= 0x80 && lead < 0xC2) return false;  // a stray continuation byte or an overlong 2-byte form
  return lead <= 0xF4;
}

[[noreturn]] void throwConversion(CvelConversionResult r) {
  static constexpr const char* kNames[] = {"conversion done", "source exhausted", "target exhausted",
                                           "source illegal"};
  throw std::runtime_error(std::string("text conversion failed: ") + kNames[r & 3u]);
}

}  // namespace

CvelConversionResult convertUtf32ToUtf8(const uint32_t** source, const uint32_t* sourceEnd, uint8_t** target,
                                        uint8_t* targetEnd, CvelConversionFlags flags) {
  CvelConversionResult result = kConversionOk;
  const uint32_t* s = *source;
  uint8_t* t = *target;
  while (s < sourceEnd) {
    uint32_t ch = *s;
    if (flags == kStrictConversion && ch >= kSurrogateFirst && ch <= kSurrogateLast) {
      result = kSourceIllegal;  // the source stays at the surrogate
      break;
    }
    if (ch > kMaxLegalCodePoint) {
      ch = kReplacementChar;    // written, and the conversion goes on
      result = kSourceIllegal;
    }
    const unsigned n = utf8Length(ch);
    if (static_cast<size_t>(targetEnd - t) < n) {
      result = kTargetExhausted;
      break;
    }
    for (unsigned i = n - 1; i > 0; --i) {
      t[i] = static_cast<uint8_t>((ch & kContinuationBits) | kContinuationMark);
      ch >>= kBitsPerContinuation;
    }
    t[0] = static_cast<uint8_t>(ch | kFirstByteMark[n]);
    t += n;
    ++s;
  }
  *source = s;
  *target = t;
  return result;
}

CvelConversionResult convertUtf8ToUtf32(const uint8_t** source, const uint8_t* sourceEnd, uint32_t** target,
                                        uint32_t* targetEnd, CvelConversionFlags flags) {
  CvelConversionResult result = kConversionOk;
  const uint8_t* s = *source;
  uint32_t* t = *target;
  while (s < sourceEnd) {
    const unsigned extra = kTrailingBytes[*s];
    if (extra >= static_cast<size_t>(sourceEnd - s)) {
      result = kSourceExhausted;
      break;
    }
    if (!isLegalUtf8(s, extra + 1)) {
      result = kSourceIllegal;
      break;
    }
    if (t >= targetEnd) {
      result = kTargetExhausted;
      break;
    }
    uint32_t ch = 0;
    for (unsigned i = 0; i <= extra; ++i) {
      ch = (ch << kBitsPerContinuation) + s[i];
    }
    ch -= kOffsetsFromUtf8[extra];
    if (ch >= kSurrogateFirst && ch <= kSurrogateLast) {
      // Unreachable through legal sequences (0xED limits them), kept as the reference converter has it.
      if (flags == kStrictConversion) {
        result = kSourceIllegal;
        break;
      }
      ch = kReplacementChar;
    }
    *t++ = ch;
    s += extra + 1;
  }
  *source = s;
  *target = t;
  return result;
}

std::wstring toWide(const std::string& text) {
  // One code point per input byte at most, plus the terminator.
  std::vector<uint32_t> buffer(text.size() + 1);
  const auto* s = reinterpret_cast<const uint8_t*>(text.data());
  uint32_t* t = buffer.data();
  const CvelConversionResult r =
      convertUtf8ToUtf32(&s, s + text.size(), &t, buffer.data() + text.size(), kStrictConversion);
  if (r != kConversionOk) throwConversion(r);
  *t = 0;
  return std::wstring(buffer.begin(), buffer.begin() + (t - buffer.data()));
}

std::string toUtf8(const std::wstring& wide) {
  std::vector<uint32_t> points(wide.begin(), wide.end());
  // Four bytes per code point at most, plus the terminator.
  std::vector<uint8_t> buffer(4 * points.size() + 1);
  const uint32_t* s = points.data();
  uint8_t* t = buffer.data();
  const CvelConversionResult r =
      convertUtf32ToUtf8(&s, s + points.size(), &t, buffer.data() + 4 * points.size(), kStrictConversion);
  if (r != kConversionOk) throwConversion(r);
  *t = 0;
  return std::string(reinterpret_cast<const char*>(buffer.data()), static_cast<size_t>(t - buffer.data()));
}
