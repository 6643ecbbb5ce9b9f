#include "pdf/pdf_appearance.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "asn1/cvel_text_encoding.h"

namespace {

constexpr uint32_t kFirstPrintable = 0x20;
constexpr uint32_t kLastPrintable = 0x7E;
constexpr uint32_t kFirstLatin1Upper = 0xA0;  // WinAnsiEncoding equals Latin-1 from here to 0xFF
constexpr uint32_t kLastLatin1 = 0xFF;
constexpr char kUnknown = '?';

struct WinAnsiExtra {
  uint32_t codePoint;
  unsigned char byte;
};
// The characters WinAnsiEncoding (Windows code page 1252) places in 0x80 to 0x9F.
constexpr WinAnsiExtra kWinAnsiExtras[] = {
    {0x20AC, 0x80}, {0x201A, 0x82}, {0x0192, 0x83}, {0x201E, 0x84}, {0x2026, 0x85}, {0x2020, 0x86},
    {0x2021, 0x87}, {0x02C6, 0x88}, {0x2030, 0x89}, {0x0160, 0x8A}, {0x2039, 0x8B}, {0x0152, 0x8C},
    {0x017D, 0x8E}, {0x2018, 0x91}, {0x2019, 0x92}, {0x201C, 0x93}, {0x201D, 0x94}, {0x2022, 0x95},
    {0x2013, 0x96}, {0x2014, 0x97}, {0x02DC, 0x98}, {0x2122, 0x99}, {0x0161, 0x9A}, {0x203A, 0x9B},
    {0x0153, 0x9C}, {0x017E, 0x9E}, {0x0178, 0x9F},
};

char winAnsiByte(uint32_t c) {
  if ((c >= kFirstPrintable && c <= kLastPrintable) || (c >= kFirstLatin1Upper && c <= kLastLatin1)) {
    return static_cast<char>(c);
  }
  for (const WinAnsiExtra& e : kWinAnsiExtras) {
    if (e.codePoint == c) return static_cast<char>(e.byte);
  }
  return kUnknown;
}

std::string numberText(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", value);
  return text;
}

// The appearance's content: a pale box with a border and two lines of text.
std::string appearanceContent(const PdfSignatureFields& f) {
  constexpr double kMaxFontSize = 10;
  constexpr double kMargin = 4;
  const double w = f.box.width;
  const double h = f.box.height;
  const double size = std::max(1.0, std::min(kMaxFontSize, (h - 2 * kMargin) / 2.5));
  std::string s;
  s += "q 0.93 0.95 1 rg 0 0 " + numberText(w) + " " + numberText(h) + " re f Q\n";
  s += "q 0.1 0.2 0.5 RG 1 w 0.5 0.5 " + numberText(w - 1) + " " + numberText(h - 1) + " re S Q\n";
  s += "BT 0 0 0 rg /F1 " + numberText(size) + " Tf " + numberText(kMargin) + " " +
       numberText(h - kMargin - size) + " Td\n";
  s += pdfLiteralString(winAnsiBytes("Digitally signed by " + f.shownSigner)) + " Tj\n";
  s += "0 " + numberText(-1.3 * size) + " Td " + pdfLiteralString(winAnsiBytes("Date: " + f.shownTime)) +
       " Tj\nET\n";
  return s;
}

}  // namespace

std::string winAnsiBytes(const std::string& utf8) {
  std::string out;
  const uint8_t* p = reinterpret_cast<const uint8_t*>(utf8.data());
  const uint8_t* end = p + utf8.size();
  while (p < end) {
    uint32_t c = 0;
    uint32_t* target = &c;
    convertUtf8ToUtf32(&p, end, &target, &c + 1, kStrictConversion);
    if (target != &c) {
      out.push_back(winAnsiByte(c));
    } else {
      out.push_back(kUnknown);
      ++p;  // past the first byte of a sequence that is not UTF-8
    }
  }
  return out;
}

std::string pdfLiteralString(const std::string& bytes) {
  std::string out = "(";
  for (unsigned char c : bytes) {
    if (c == '(' || c == ')' || c == '\\') {
      out.push_back('\\');
      out.push_back(static_cast<char>(c));
    } else if (c >= kFirstPrintable && c <= kLastPrintable) {
      out.push_back(static_cast<char>(c));
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\%03o", c);
      out += escaped;
    }
  }
  return out + ")";
}

std::string pdfAppearanceStream(const PdfSignatureFields& f) {
  const std::string content = appearanceContent(f);
  return "<< /Type /XObject /Subtype /Form /BBox [0 0 " + numberText(f.box.width) + " " +
         numberText(f.box.height) +
         "] /Resources << /Font << /F1 << /Type /Font /Subtype /Type1 /BaseFont /Helvetica"
         " /Encoding /WinAnsiEncoding >> >> >> /Length " +
         std::to_string(content.size()) + " >>\nstream\n" + content + "endstream";
}
