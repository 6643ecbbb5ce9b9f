// The PDF incremental update on hand-made files: where the last startxref points, field names, the inputs it
// refuses, and the byte range around the /Contents placeholder. (What every accepted update must hold, read back
// by qpdf with its repair off, is also asserted by fuzz/fuzz_pdf_update.cc, whose seeds the suite replays.)
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "pdf/pdf_update.h"

namespace {

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

// A one-page classic PDF: three objects, an xref table with their offsets, the trailer and startxref.
std::string classicPdf() {
  const char* objects[] = {"<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
                           "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 200] >>"};
  std::string pdf = "%PDF-1.4\n";
  std::string table = "xref\n0 4\n0000000000 65535 f \n";
  for (int i = 0; i < 3; ++i) {
    char entry[21];
    std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", pdf.size());
    table += entry;
    pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
  }
  const size_t xref = pdf.size();
  return pdf + table + "trailer\n<< /Size 4 /Root 1 0 R >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
}

TEST(PdfCrossReference, TheLastStartxrefThatReadersTake) {
  const std::string head = "%PDF-1.4\nxref\n";  // "xref" at offset 9
  const std::string stream = "%PDF-1.5\n1 0 obj\n<< /Type /XRef >>\n";
  const struct { const char* what; std::string pdf; bool found; size_t offset; bool isTable; } cases[] = {
      {"table", head + "startxref\n9\n%%EOF", true, 9, true},
      {"white space before the keyword it points at", "%PDF-1.4\n \r\nxref\nstartxref 9\n", true, 9, true},
      {"stream", stream + "startxref\n9\n%%EOF\n", true, 9, false},
      {"comment before the number", head + "startxref % a note\n9\n", true, 9, true},
      {"the last of two", head + "startxref\n0\n%%EOF\nstartxref\n9\n%%EOF\n", true, 9, true},
      {"a later real passed over", head + "startxref\n9\nstartxref\n9.5\n", true, 9, true},
      {"a number that runs into letters", head + "startxref\n9abc\n", false, 0, false},
      {"past the end of the file", head + "startxref\n999\n", false, 0, false},
      {"a later one past the end wins", head + "startxref\n9\nstartxref\n999\n", false, 0, false},
      {"negative", head + "startxref\n-9\n", false, 0, false},
      {"twenty digits", head + "startxref\n00000000000000000009\n", false, 0, false},
      {"no number", head + "startxref\n%%EOF\n", false, 0, false},
      {"no keyword", head + "%%EOF\n", false, 0, false},
      {"keyword at the very end", head + "startxref", false, 0, false},
  };
  for (const auto& c : cases) {
    size_t offset = 0;
    bool isTable = false;
    EXPECT_EQ(findLastCrossReference(bytesOf(c.pdf), offset, isTable), c.found) << c.what;
    if (!c.found) continue;
    EXPECT_EQ(offset, c.offset) << c.what;
    EXPECT_EQ(isTable, c.isTable) << c.what;
  }
}

TEST(PdfFieldName, PeriodsAndEmptyNamesAreRefused) {
  std::string error;
  EXPECT_TRUE(checkPdfFieldName("Signature1", error));
  EXPECT_FALSE(checkPdfFieldName("", error));
  EXPECT_EQ(error, "a field name cannot be empty");
  EXPECT_FALSE(checkPdfFieldName("a.b", error));
  EXPECT_EQ(error, "a field name cannot hold a period: it joins the names of nested fields");
}

TEST(PdfUpdate, RefusesWhatItCannotUpdateInPlace) {
  const std::string pdf = classicPdf();
  const struct {
    const char* what;
    std::string input;
    const char* error;
  } cases[] = {
      {"header not first", " " + pdf, "not a PDF that can be updated: the file does not begin with %PDF-N.N"},
      {"no version", "%PDF-x" + pdf.substr(6), "not a PDF that can be updated: the file does not begin with %PDF-N.N"},
      {"startxref out of the file", pdf.substr(0, pdf.rfind("startxref")) + "startxref\n99999\n%%EOF\n",
       "not a PDF that can be read: no startxref at its end that points into the file"},
  };
  for (const auto& c : cases) {
    PdfPreparedUpdate update;
    std::string error;
    EXPECT_FALSE(preparePdfUpdate(bytesOf(c.input), PdfSignatureFields(), 64, update, error)) << c.what;
    EXPECT_EQ(error, c.error) << c.what;
  }
}

// The input kept, then /ByteRange [0 start end rest] around a placeholder of 2 * capacity zeros in angle
// brackets, the spans hashed being exactly the bytes outside it; a CMS fills it in uppercase hex.
TEST(PdfUpdate, ByteRangeLeavesOutExactlyThePlaceholderThatTheCmsFills) {
  constexpr size_t kCapacity = 16;
  const std::string input = classicPdf();
  PdfPreparedUpdate update;
  std::string error;
  ASSERT_TRUE(preparePdfUpdate(bytesOf(input), PdfSignatureFields(), kCapacity, update, error)) << error;
  const std::string document(update.document.begin(), update.document.end());
  ASSERT_EQ(document.substr(0, input.size()), input);
  const size_t start = update.contentsStart;
  const size_t end = update.contentsEnd;
  EXPECT_EQ(document.substr(start, end - start), "<" + std::string(2 * kCapacity, '0') + ">");
  const char* p = document.c_str() + document.find("/ByteRange [") + 12;
  std::vector<size_t> range;
  for (char* next = nullptr; range.size() < 4; p = next) range.push_back(std::strtoull(p, &next, 10));
  EXPECT_EQ(range, (std::vector<size_t>{0, start, end, document.size() - end}));
  const std::vector<ByteSpan> spans = pdfSignedSpans(update);
  ASSERT_EQ(spans.size(), 2u);
  EXPECT_EQ(spans[0].data, update.document.data());
  EXPECT_EQ(spans[0].size, start);
  EXPECT_EQ(spans[1].data, update.document.data() + end);
  EXPECT_EQ(spans[1].size, document.size() - end);
  ASSERT_TRUE(fillPdfContents(update, {0x30, 0x03, 0x02, 0x01, 0xAF}, error)) << error;
  const std::string filled(update.document.begin(), update.document.end());
  EXPECT_EQ(filled.substr(start, end - start), "<30030201AF" + std::string(2 * kCapacity - 10, '0') + ">");
  EXPECT_FALSE(fillPdfContents(update, Bytes(kCapacity + 1, 0), error));
}

}  // namespace
