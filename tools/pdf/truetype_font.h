// A TrueType font file read as far as drawing text with it in a PDF needs: the glyph of each character (the
// Unicode cmap, format 4 or 12), the advance widths and the metrics of the font descriptor. Every read is
// checked against the file's length and its tables' extents.
#ifndef KOLVARI_TOOLS_PDF_TRUETYPE_FONT_H
#define KOLVARI_TOOLS_PDF_TRUETYPE_FONT_H

#include <cstdint>
#include <string>
#include <vector>

#include "host_crypto.h"

class TrueTypeFont {
 public:
  // Reads file (kept whole, for embedding); false with a message when it is not a TrueType font with a
  // Unicode cmap of format 4 or 12 (OpenType with CFF outlines and font collections are refused).
  bool read(Bytes file, std::string& error);

  // The glyph of a Unicode code point; 0 (.notdef) for one the font does not have.
  uint16_t glyphOf(uint32_t codePoint) const;
  // The advance width of a glyph in thousandths of the em, as PDF widths are given.
  int advanceOf(uint16_t glyph) const;

  const Bytes& file() const { return file_; }
  // The font box, ascent and descent in thousandths of the em.
  int xMin() const { return scaled(xMin_); }
  int yMin() const { return scaled(yMin_); }
  int xMax() const { return scaled(xMax_); }
  int yMax() const { return scaled(yMax_); }
  int ascent() const { return scaled(ascent_); }
  int descent() const { return scaled(descent_); }

 private:
  struct Table {
    size_t offset = 0;
    size_t length = 0;
  };
  bool findTable(const char* tag, Table& out) const;
  bool readMetrics(std::string& error);
  bool findCmap(std::string& error);
  uint16_t glyphFormat4(uint32_t codePoint) const;
  uint16_t glyphFormat12(uint32_t codePoint) const;
  int scaled(int units) const;

  Bytes file_;
  uint16_t unitsPerEm_ = 0;
  uint16_t glyphCount_ = 0;
  int16_t xMin_ = 0, yMin_ = 0, xMax_ = 0, yMax_ = 0, ascent_ = 0, descent_ = 0;
  Table hmtx_;
  uint16_t hMetricCount_ = 0;
  Table cmapSubtable_;  // the chosen subtable, from its format field to the cmap table's end
  uint16_t cmapFormat_ = 0;
};

#endif  // KOLVARI_TOOLS_PDF_TRUETYPE_FONT_H
