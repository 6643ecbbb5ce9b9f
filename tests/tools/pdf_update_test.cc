// The PDF incremental update on hand-made files: where the last startxref points, the appended objects and
// their cross-reference table, the byte range around the /Contents placeholder and the CMS written into it.
// Offsets are found in the bytes by the test itself, following the PDF rules for the xref table (20-byte
// entries ending in SP CR, SP LF or CR LF) and the trailer.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "pdf/pdf_update.h"

namespace {

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }
std::string textOf(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

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
      {"a later word passed over", head + "startxref\n9\nstartxref9\n", true, 9, true},
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

// The integers after key (a PDF array or a single number) in text from position from.
std::vector<long long> numbersAfter(const std::string& text, const std::string& key, size_t from = 0) {
  size_t at = text.find(key, from);
  std::vector<long long> numbers;
  if (at == std::string::npos) return numbers;
  const char* p = text.c_str() + at + key.size();
  char* end = nullptr;
  for (long long n = std::strtoll(p, &end, 10); end != p; n = std::strtoll(p, &end, 10)) {
    numbers.push_back(n);
    p = end;
  }
  return numbers;
}

class PdfUpdateOfClassic : public testing::Test {
 protected:
  static constexpr size_t kCapacity = 16;
  void SetUp() override {
    input_ = classicPdf();
    std::string error;
    ASSERT_TRUE(preparePdfUpdate(bytesOf(input_), PdfSignatureFields(), kCapacity, update_, error)) << error;
    document_ = textOf(update_.document);
  }
  std::string input_;
  PdfPreparedUpdate update_;
  std::string document_;
};

TEST_F(PdfUpdateOfClassic, AppendsAfterTheInputATableOfEveryObjectAtItsOffset) {
  EXPECT_EQ(update_.fieldName, "Signature1");  // the first free name
  ASSERT_EQ(document_.substr(0, input_.size()), input_);
  size_t offset = 0;
  bool isTable = false;
  ASSERT_TRUE(findLastCrossReference(update_.document, offset, isTable));
  ASSERT_TRUE(isTable);
  ASSERT_GT(offset, input_.size());
  ASSERT_EQ(document_.compare(offset, 5, "xref\n"), 0);
  size_t at = offset + 5;
  size_t listed = 0;
  // Subsections "first count" and their 20-byte entries, up to the trailer.
  while (document_.compare(at, 7, "trailer") != 0) {
    const std::vector<long long> header = numbersAfter(document_.substr(at, document_.find('\n', at) - at), "");
    ASSERT_EQ(header.size(), 2u) << document_.substr(at, 20);
    at = document_.find('\n', at) + 1;
    for (long long i = 0; i < header[1]; ++i, at += 20) {
      const std::string entry = document_.substr(at, 20);
      ASSERT_EQ(entry.substr(10, 8), " 00000 n") << entry;
      const std::string end = entry.substr(18);  // two bytes: SP CR, SP LF or CR LF
      ASSERT_TRUE(end == " \r" || end == " \n" || end == "\r\n") << entry;
      const std::string object = std::to_string(header[0] + i) + " 0 obj\n";
      EXPECT_EQ(document_.compare(std::stoull(entry.substr(0, 10)), object.size(), object), 0) << entry;
      ++listed;
    }
  }
  // The signature, its widget, and the rewritten page and catalog.
  EXPECT_EQ(listed, 4u);
  const std::string trailer = document_.substr(at);
  EXPECT_NE(trailer.find("/Root 1 0 R"), std::string::npos) << trailer;
  EXPECT_EQ(numbersAfter(trailer, "/Prev "), std::vector<long long>{static_cast<long long>(input_.find("xref"))});
  EXPECT_EQ(numbersAfter(trailer, "/Size "), std::vector<long long>{6});
}

TEST_F(PdfUpdateOfClassic, TheByteRangeLeavesOutExactlyThePlaceholder) {
  ASSERT_EQ(update_.contentsEnd - update_.contentsStart, 2 * kCapacity + 2);
  EXPECT_EQ(document_[update_.contentsStart], '<');
  EXPECT_EQ(document_[update_.contentsEnd - 1], '>');
  EXPECT_EQ(document_.substr(update_.contentsStart + 1, 2 * kCapacity), std::string(2 * kCapacity, '0'));
  const std::vector<long long> range = numbersAfter(document_, "/ByteRange [");
  const std::vector<long long> expected = {0, static_cast<long long>(update_.contentsStart),
                                           static_cast<long long>(update_.contentsEnd),
                                           static_cast<long long>(document_.size() - update_.contentsEnd)};
  EXPECT_EQ(range, expected);
  const std::vector<ByteSpan> spans = pdfSignedSpans(update_);
  ASSERT_EQ(spans.size(), 2u);
  EXPECT_EQ(spans[0].data, update_.document.data());
  EXPECT_EQ(spans[0].size, update_.contentsStart);
  EXPECT_EQ(spans[1].data, update_.document.data() + update_.contentsEnd);
  EXPECT_EQ(spans[0].size + spans[1].size + 2 * kCapacity + 2, update_.document.size());
}

TEST_F(PdfUpdateOfClassic, TheCmsFillsThePlaceholderInUppercaseHex) {
  std::string error;
  ASSERT_TRUE(fillPdfContents(update_, {0x30, 0x03, 0x02, 0x01, 0xAF}, error)) << error;
  EXPECT_EQ(textOf(update_.document).substr(update_.contentsStart, 2 * kCapacity + 2),
            "<30030201AF" + std::string(2 * kCapacity - 10, '0') + ">");
  EXPECT_TRUE(fillPdfContents(update_, Bytes(kCapacity, 0xFF), error));
  EXPECT_FALSE(fillPdfContents(update_, Bytes(kCapacity + 1, 0), error));
  EXPECT_EQ(error, "the signature (17 bytes) does not fit the 16 bytes set aside for it");
}

}  // namespace
