#include "pdf/truetype_font.h"

#include <cstring>

namespace {

constexpr uint32_t kTrueTypeVersion = 0x00010000;
constexpr uint32_t kAppleTrueType = 0x74727565;  // 'true'
constexpr uint32_t kCffOutlines = 0x4F54544F;    // 'OTTO'
constexpr uint32_t kCollection = 0x74746366;     // 'ttcf'
constexpr size_t kTableDirectory = 12;
constexpr size_t kTableRecord = 16;
constexpr size_t kCmapRecord = 8;
constexpr uint16_t kFormatSegments = 4;
constexpr uint16_t kFormatGroups = 12;
constexpr uint32_t kLastBmp = 0xFFFF;
constexpr int kThousand = 1000;
constexpr uint16_t kMinUnitsPerEm = 16;
constexpr uint16_t kMaxUnitsPerEm = 16384;
// Offsets within tables: head's unitsPerEm and font box, hhea's ascender, descender and numberOfHMetrics,
// maxp's numGlyphs.
constexpr size_t kHeadUnitsPerEm = 18;
constexpr size_t kHeadXMin = 36;
constexpr size_t kHheaAscender = 4;
constexpr size_t kHheaDescender = 6;
constexpr size_t kHheaMetricCount = 34;
constexpr size_t kMaxpGlyphCount = 4;
constexpr size_t kLongMetric = 4;  // advanceWidth and lsb

// Big-endian reads within [0, end) of data; false past the end.
bool read16(const Bytes& data, size_t end, size_t at, uint16_t& v) {
  if (end > data.size() || at > end || end - at < 2) return false;
  v = static_cast<uint16_t>(data[at] << 8 | data[at + 1]);
  return true;
}

bool read32(const Bytes& data, size_t end, size_t at, uint32_t& v) {
  uint16_t high = 0;
  uint16_t low = 0;
  if (!read16(data, end, at, high) || !read16(data, end, at + 2, low)) return false;
  v = static_cast<uint32_t>(high) << 16 | low;
  return true;
}

int16_t signed16(uint16_t v) { return static_cast<int16_t>(v); }

struct CmapChoice {
  uint16_t platform;
  uint16_t encoding;
  uint16_t format;
};
// Unicode subtables in order of preference: full repertoire first, then the Basic Multilingual Plane.
constexpr CmapChoice kCmapChoices[] = {
    {3, 10, kFormatGroups}, {0, 4, kFormatGroups}, {0, 6, kFormatGroups},
    {3, 1, kFormatSegments}, {0, 3, kFormatSegments}, {0, 4, kFormatSegments},
};

}  // namespace

bool TrueTypeFont::read(Bytes file, std::string& error) {
  file_ = std::move(file);
  uint32_t version = 0;
  if (!read32(file_, file_.size(), 0, version)) {
    error = "too short for a font";
    return false;
  }
  if (version == kCffOutlines || version == kCollection) {
    error = version == kCffOutlines ? "an OpenType font with CFF outlines, not TrueType" : "a font collection";
    return false;
  }
  if (version != kTrueTypeVersion && version != kAppleTrueType) {
    error = "not a TrueType font";
    return false;
  }
  return readMetrics(error) && findCmap(error);
}

bool TrueTypeFont::findTable(const char* tag, Table& out) const {
  uint16_t count = 0;
  if (!read16(file_, file_.size(), 4, count)) return false;
  for (size_t i = 0; i < count; ++i) {
    const size_t record = kTableDirectory + i * kTableRecord;
    uint32_t offset = 0;
    uint32_t length = 0;
    if (record + kTableRecord > file_.size() || !read32(file_, file_.size(), record + 8, offset) ||
        !read32(file_, file_.size(), record + 12, length)) {
      return false;
    }
    if (std::memcmp(file_.data() + record, tag, 4) != 0) continue;
    if (offset > file_.size() || length > file_.size() - offset) return false;
    out = {offset, length};
    return true;
  }
  return false;
}

bool TrueTypeFont::readMetrics(std::string& error) {
  Table head;
  Table hhea;
  Table maxp;
  uint16_t box[4] = {};
  uint16_t ascent = 0;
  uint16_t descent = 0;
  bool ok = findTable("head", head) && findTable("hhea", hhea) && findTable("maxp", maxp) &&
            findTable("hmtx", hmtx_);
  const size_t headEnd = head.offset + head.length;
  const size_t hheaEnd = hhea.offset + hhea.length;
  ok = ok && read16(file_, headEnd, head.offset + kHeadUnitsPerEm, unitsPerEm_);
  for (size_t i = 0; ok && i < 4; ++i) ok = read16(file_, headEnd, head.offset + kHeadXMin + 2 * i, box[i]);
  ok = ok && read16(file_, hheaEnd, hhea.offset + kHheaAscender, ascent) &&
       read16(file_, hheaEnd, hhea.offset + kHheaDescender, descent) &&
       read16(file_, hheaEnd, hhea.offset + kHheaMetricCount, hMetricCount_) &&
       read16(file_, maxp.offset + maxp.length, maxp.offset + kMaxpGlyphCount, glyphCount_);
  if (!ok || unitsPerEm_ < kMinUnitsPerEm || unitsPerEm_ > kMaxUnitsPerEm || hMetricCount_ == 0 ||
      hmtx_.length / kLongMetric < hMetricCount_) {
    error = "its head, hhea, maxp or hmtx table is missing or cut short";
    return false;
  }
  xMin_ = signed16(box[0]);
  yMin_ = signed16(box[1]);
  xMax_ = signed16(box[2]);
  yMax_ = signed16(box[3]);
  ascent_ = signed16(ascent);
  descent_ = signed16(descent);
  return true;
}

bool TrueTypeFont::findCmap(std::string& error) {
  Table cmap;
  uint16_t count = 0;
  if (!findTable("cmap", cmap) || !read16(file_, cmap.offset + cmap.length, cmap.offset + 2, count)) {
    error = "it has no cmap table";
    return false;
  }
  const size_t cmapEnd = cmap.offset + cmap.length;
  for (const CmapChoice& choice : kCmapChoices) {
    for (size_t i = 0; i < count; ++i) {
      const size_t record = cmap.offset + 4 + i * kCmapRecord;
      uint16_t platform = 0;
      uint16_t encoding = 0;
      uint32_t offset = 0;
      uint16_t format = 0;
      if (!read16(file_, cmapEnd, record, platform) || !read16(file_, cmapEnd, record + 2, encoding) ||
          !read32(file_, cmapEnd, record + 4, offset)) {
        break;
      }
      if (platform != choice.platform || encoding != choice.encoding || offset >= cmap.length ||
          !read16(file_, cmapEnd, cmap.offset + offset, format) || format != choice.format) {
        continue;
      }
      cmapSubtable_ = {cmap.offset + offset, cmap.length - offset};
      cmapFormat_ = format;
      return true;
    }
  }
  error = "it has no Unicode cmap subtable of format 4 or 12";
  return false;
}

// Format 4: segCountX2 at 6, then endCode[], a pad, startCode[], idDelta[], idRangeOffset[], glyphIdArray[].
uint16_t TrueTypeFont::glyphFormat4(uint32_t c) const {
  const size_t base = cmapSubtable_.offset;
  const size_t end = base + cmapSubtable_.length;
  uint16_t doubled = 0;
  if (c > kLastBmp || !read16(file_, end, base + 6, doubled)) return 0;
  const size_t segments = doubled / 2;
  const size_t ends = base + 14;
  const size_t starts = ends + doubled + 2;
  const size_t deltas = starts + doubled;
  const size_t rangeOffsets = deltas + doubled;
  for (size_t i = 0; i < segments; ++i) {
    uint16_t last = 0;
    uint16_t first = 0;
    uint16_t delta = 0;
    uint16_t rangeOffset = 0;
    if (!read16(file_, end, ends + 2 * i, last)) return 0;
    if (last < c) continue;
    if (!read16(file_, end, starts + 2 * i, first) || first > c || !read16(file_, end, deltas + 2 * i, delta) ||
        !read16(file_, end, rangeOffsets + 2 * i, rangeOffset)) {
      return 0;
    }
    if (rangeOffset == 0) return static_cast<uint16_t>(c + delta);
    uint16_t glyph = 0;
    if (!read16(file_, end, rangeOffsets + 2 * i + rangeOffset + 2 * (c - first), glyph) || glyph == 0) return 0;
    return static_cast<uint16_t>(glyph + delta);
  }
  return 0;
}

// Format 12: numGroups at 12, then groups of startCharCode, endCharCode, startGlyphID.
uint16_t TrueTypeFont::glyphFormat12(uint32_t c) const {
  constexpr size_t kGroup = 12;
  const size_t base = cmapSubtable_.offset;
  const size_t end = base + cmapSubtable_.length;
  uint32_t groups = 0;
  if (!read32(file_, end, base + 12, groups) || groups > (end - base) / kGroup) return 0;
  for (size_t i = 0; i < groups; ++i) {
    const size_t group = base + 16 + i * kGroup;
    uint32_t first = 0;
    uint32_t last = 0;
    uint32_t glyph = 0;
    if (!read32(file_, end, group, first) || !read32(file_, end, group + 4, last) ||
        !read32(file_, end, group + 8, glyph)) {
      return 0;
    }
    if (c >= first && c <= last) return static_cast<uint16_t>(glyph + (c - first));
  }
  return 0;
}

uint16_t TrueTypeFont::glyphOf(uint32_t codePoint) const {
  const uint16_t glyph = cmapFormat_ == kFormatGroups ? glyphFormat12(codePoint) : glyphFormat4(codePoint);
  return glyph < glyphCount_ ? glyph : 0;
}

int TrueTypeFont::advanceOf(uint16_t glyph) const {
  // Glyphs past the last long metric share its advance.
  const size_t index = glyph < hMetricCount_ ? glyph : hMetricCount_ - 1u;
  uint16_t advance = 0;
  read16(file_, hmtx_.offset + hmtx_.length, hmtx_.offset + index * kLongMetric, advance);
  return scaled(advance);
}

int TrueTypeFont::scaled(int units) const {
  const int scaled = units * kThousand;
  return scaled >= 0 ? (scaled + unitsPerEm_ / 2) / unitsPerEm_ : -((-scaled + unitsPerEm_ / 2) / unitsPerEm_);
}
