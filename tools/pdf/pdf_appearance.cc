#include "pdf/pdf_appearance.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>

#include "asn1/cvel_text_encoding.h"
#include "pdf/truetype_font.h"

namespace {

constexpr uint32_t kFirstPrintable = 0x20;
constexpr uint32_t kLastPrintable = 0x7E;
constexpr uint32_t kFirstLatin1Upper = 0xA0;  // WinAnsiEncoding equals Latin-1 from here to 0xFF
constexpr uint32_t kLastLatin1 = 0xFF;
constexpr char kUnknown = '?';
constexpr uint32_t kReplacement = 0xFFFD;
constexpr uint32_t kLastBmpUnit = 0xFFFF;
constexpr uint32_t kSupplementaryBase = 0x10000;
constexpr uint32_t kHighSurrogate = 0xD800;
constexpr uint32_t kLowSurrogate = 0xDC00;
constexpr uint32_t kSurrogateBits = 10;
constexpr uint32_t kSurrogateMask = 0x3FF;
// The embedded font's PostScript name in the PDF; the font's own is not read.
constexpr char kEmbeddedFontName[] = "/KolvariSignatureFont";
constexpr int kSymbolicFlag = 4;  // glyphs outside the standard Latin set
constexpr int kStemV = 80;        // a typical stem width; readers use it only when the font is missing

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

std::vector<uint32_t> codePoints(const std::string& utf8) {
  std::vector<uint32_t> out;
  const uint8_t* p = reinterpret_cast<const uint8_t*>(utf8.data());
  const uint8_t* end = p + utf8.size();
  while (p < end) {
    uint32_t c = 0;
    uint32_t* target = &c;
    convertUtf8ToUtf32(&p, end, &target, &c + 1, kStrictConversion);
    if (target == &c) {
      c = kReplacement;
      ++p;  // past the first byte of a sequence that is not UTF-8
    }
    out.push_back(c);
  }
  return out;
}

// A line of text as a string operand for Tj, in the font's encoding.
using ShowText = std::function<std::string(const std::string& utf8)>;

// The appearance's content: a pale box with a border and two lines of text.
std::string appearanceContent(const PdfSignatureFields& f, const ShowText& show) {
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
  s += show("Digitally signed by " + f.shownSigner) + " Tj\n";
  s += "0 " + numberText(-1.3 * size) + " Td " + show("Date: " + f.shownTime) + " Tj\nET\n";
  return s;
}

std::string stream(const std::string& dictionaryEntries, const std::string& content) {
  return "<< " + dictionaryEntries + " /Length " + std::to_string(content.size()) + " >>\nstream\n" + content +
         "\nendstream";
}

std::string formXObject(const PdfSignatureFields& f, const std::string& font, const std::string& content) {
  return stream("/Type /XObject /Subtype /Form /BBox [0 0 " + numberText(f.box.width) + " " +
                    numberText(f.box.height) + "] /Resources << /Font << /F1 " + font + " >> >>",
                content);
}

std::string hex4(uint32_t v) {
  char text[8];
  std::snprintf(text, sizeof text, "%04X", v & kLastBmpUnit);
  return text;
}

// A code point as UTF-16BE hex, as ToUnicode maps give the destination.
std::string utf16Hex(uint32_t c) {
  if (c <= kLastBmpUnit) return hex4(c);
  const uint32_t v = c - kSupplementaryBase;
  return hex4(kHighSurrogate + (v >> kSurrogateBits)) + hex4(kLowSurrogate + (v & kSurrogateMask));
}

// The glyphs a line uses, and for each the character it stands for (the first one met).
using GlyphCharacters = std::map<uint16_t, uint32_t>;

std::string toUnicodeMap(const GlyphCharacters& glyphs) {
  constexpr size_t kMaxEntriesPerBlock = 100;  // a bfchar block holds at most 100 entries
  std::string m =
      "/CIDInit /ProcSet findresource begin\n12 dict begin\nbegincmap\n"
      "/CIDSystemInfo << /Registry (Adobe) /Ordering (UCS) /Supplement 0 >> def\n"
      "/CMapName /Adobe-Identity-UCS def\n/CMapType 2 def\n"
      "1 begincodespacerange\n<0000> <FFFF>\nendcodespacerange\n";
  auto it = glyphs.begin();
  while (it != glyphs.end()) {
    std::string block;
    size_t n = 0;
    for (; it != glyphs.end() && n < kMaxEntriesPerBlock; ++it, ++n) {
      block += "<" + hex4(it->first) + "> <" + utf16Hex(it->second) + ">\n";
    }
    m += std::to_string(n) + " beginbfchar\n" + block + "endbfchar\n";
  }
  return m + "endcmap\nCMapName currentdict /CMapResource defineresource pop\nend\nend";
}

std::string widths(const TrueTypeFont& font, const GlyphCharacters& glyphs) {
  std::string w = "[";
  for (const auto& entry : glyphs) {
    w += std::to_string(entry.first) + " [" + std::to_string(font.advanceOf(entry.first)) + "] ";
  }
  return w + "]";
}

std::string reference(int number) { return std::to_string(number) + " 0 R"; }

// The appearance in the embedded TrueType font: glyph ids as two-byte codes under Identity-H.
std::vector<std::string> embeddedFontObjects(const PdfSignatureFields& f, int first) {
  const TrueTypeFont& font = *f.font;
  GlyphCharacters used;
  const std::string content = appearanceContent(f, [&](const std::string& utf8) {
    std::string hex = "<";
    for (uint32_t c : codePoints(utf8)) {
      const uint16_t glyph = font.glyphOf(c);
      if (glyph != 0) used.emplace(glyph, c);  // .notdef stands for no character
      hex += hex4(glyph);
    }
    return hex + ">";
  });
  const int type0 = first + 1;
  const int cidFont = first + 2;
  const int descriptor = first + 3;
  const int file = first + 4;
  const int toUnicode = first + 5;
  const std::string box = "[" + std::to_string(font.xMin()) + " " + std::to_string(font.yMin()) + " " +
                          std::to_string(font.xMax()) + " " + std::to_string(font.yMax()) + "]";
  const std::string fileBytes(font.file().begin(), font.file().end());
  return {
      formXObject(f, reference(type0), content),
      "<< /Type /Font /Subtype /Type0 /BaseFont " + std::string(kEmbeddedFontName) +
          " /Encoding /Identity-H /DescendantFonts [" + reference(cidFont) + "] /ToUnicode " +
          reference(toUnicode) + " >>",
      "<< /Type /Font /Subtype /CIDFontType2 /BaseFont " + std::string(kEmbeddedFontName) +
          " /CIDSystemInfo << /Registry (Adobe) /Ordering (Identity) /Supplement 0 >> /FontDescriptor " +
          reference(descriptor) + " /CIDToGIDMap /Identity /W " + widths(font, used) + " >>",
      "<< /Type /FontDescriptor /FontName " + std::string(kEmbeddedFontName) + " /Flags " +
          std::to_string(kSymbolicFlag) + " /FontBBox " + box + " /ItalicAngle 0 /Ascent " +
          std::to_string(font.ascent()) + " /Descent " + std::to_string(font.descent()) + " /CapHeight " +
          std::to_string(font.ascent()) + " /StemV " + std::to_string(kStemV) + " /FontFile2 " +
          reference(file) + " >>",
      stream("/Length1 " + std::to_string(fileBytes.size()), fileBytes),
      stream("", toUnicodeMap(used)),
  };
}

}  // namespace

std::string winAnsiBytes(const std::string& utf8) {
  std::string out;
  for (uint32_t c : codePoints(utf8)) out.push_back(winAnsiByte(c));
  return out;
}

std::string pdfLiteralString(const std::string& bytes) {
  std::string out = "(";
  for (const char ch : bytes) {
    const auto c = static_cast<unsigned char>(ch);
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

std::vector<std::string> pdfAppearanceObjects(const PdfSignatureFields& f, int first) {
  if (f.font != nullptr) return embeddedFontObjects(f, first);
  const std::string content =
      appearanceContent(f, [](const std::string& utf8) { return pdfLiteralString(winAnsiBytes(utf8)); });
  return {formXObject(f, "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>",
                      content)};
}
