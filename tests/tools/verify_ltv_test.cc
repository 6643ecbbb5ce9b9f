// The long-term validation data a PDF carries, read back: the DSS (with its /VRI entries, decoded streams and
// their bound) and the kind of each later revision, for updates whose objects lie in a compressed object
// stream indexed by a cross-reference stream (the classic tables are the interop tests' PDFs). The PDFs are
// written here by hand, their offsets counted as the PDF rules count them.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <qpdf/Pl_Buffer.hh>
#include <qpdf/Pl_Flate.hh>

#include "pdf/pdf_dss_reader.h"
#include "verify/verify_pdf.h"
#include "verify/verify_revisions.h"

namespace {

using Objects = std::vector<std::pair<int, std::string>>;

std::string deflate(const std::string& data) {
  Pl_Buffer packed("packed");
  Pl_Flate flate("flate", &packed, Pl_Flate::a_deflate);
  flate.write(reinterpret_cast<const unsigned char*>(data.data()), data.size());
  flate.finish();
  std::unique_ptr<Buffer> out(packed.getBuffer());
  return std::string(reinterpret_cast<const char*>(out->getBuffer()), out->getSize());
}

// Appends one revision holding objects (ascending numbers below size): the streams as they are, the others
// in one compressed object stream (number size), all indexed by a cross-reference stream (size + 1) with
// /W [1 4 2], as qpdf and NSS write them.
std::string revision(std::string pdf, const Objects& objects, int size) {
  const size_t prev = pdf.empty() ? 0 : std::stoul(pdf.substr(pdf.rfind("startxref") + 10));
  if (pdf.empty()) pdf = "%PDF-1.5\n";
  std::string packed, header, entries, index;
  auto entry = [&](int type, size_t a, size_t b) {
    entries += {static_cast<char>(type), static_cast<char>(a >> 24), static_cast<char>(a >> 16),
                static_cast<char>(a >> 8), static_cast<char>(a), static_cast<char>(b >> 8), static_cast<char>(b)};
  };
  int count = 0;
  for (const auto& [n, body] : objects) {
    index += std::to_string(n) + " 1 ";
    if (body.find("endstream") == std::string::npos) {
      header += std::to_string(n) + " " + std::to_string(packed.size()) + " ";
      packed += body + "\n";
      entry(2, static_cast<size_t>(size), static_cast<size_t>(count++));
    } else {
      entry(1, pdf.size(), 0);
      pdf += std::to_string(n) + " 0 obj\n" + body + "\nendobj\n";
    }
  }
  entry(1, pdf.size(), 0);
  const std::string compressed = deflate(header + packed);
  pdf += std::to_string(size) + " 0 obj\n<< /Type /ObjStm /N " + std::to_string(count) + " /First " +
         std::to_string(header.size()) + " /Filter /FlateDecode /Length " + std::to_string(compressed.size()) +
         " >>\nstream\n" + compressed + "\nendstream\nendobj\n";
  const size_t at = pdf.size();
  entry(1, at, 0);
  index += std::to_string(size) + " 2";
  return pdf + std::to_string(size + 1) + " 0 obj\n<< /Type /XRef /W [1 4 2] /Index [" + index + "] /Size " +
         std::to_string(size + 2) + " /Root 1 0 R" + (prev != 0 ? " /Prev " + std::to_string(prev) : "") +
         " /Length " + std::to_string(entries.size()) + " >>\nstream\n" + entries + "\nendstream\nendobj\n" +
         "startxref\n" + std::to_string(at) + "\n%%EOF\n";
}

const Objects kBase = {
    {1, "<< /Type /Catalog /Pages 2 0 R /AcroForm << /Fields [4 0 R] >> >>"},
    {2, "<< /Type /Pages /Kids [3 0 R] /Count 1 >>"},
    {3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 10 10] >>"},
    {4, "<< /FT /Tx /T (name) /V (first) >>"},
};
const std::string kDssCatalog = "<< /Type /Catalog /Pages 2 0 R /AcroForm << /Fields [4 0 R] >> /DSS 5 0 R >>";

std::string stream(const std::string& dictionary, const std::string& data) {
  return "<< " + dictionary + " /Length " + std::to_string(data.size()) + " >>\nstream\n" + data + "\nendstream";
}

Bytes bytes(const std::string& s) { return Bytes(s.begin(), s.end()); }

TEST(VerifyRevisions, KindOfEachUpdateInTablesAndObjectStreams) {
  const struct {
    const char* what;
    Objects update;
    const char* kind;
  } cases[] = {
      {"DSS", {{1, kDssCatalog}, {5, "<< /Certs [6 0 R] /VRI << /AB << /Cert [6 0 R] >> >> >>"},
               {6, stream("", "certificate")}}, kChangeDss},
      {"a field's value", {{4, "<< /FT /Tx /T (name) /V (second) >>"}}, kChangeForm},
      {"an annotation", {{3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 10 10] /Annots [7 0 R] >>"},
                         {7, "<< /Type /Annot /Subtype /Text /Rect [0 0 1 1] >>"}}, kChangeAnnotations},
      {"the page box", {{3, "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 20 20] >>"}}, kChangeOther},
  };
  for (const auto& c : cases) {
    const Bytes file = bytes(revision(revision("", kBase, 5), c.update, 8));
    const std::vector<long long> ends = revisionEnds(file);
    ASSERT_EQ(ends.size(), 2u) << c.what;
    EXPECT_EQ(revisionKinds(file, ends, 1)[1], c.kind) << c.what;
  }
}

TEST(VerifyDss, ListsVriEntriesAndDecodedStreamsWithinTheirBound) {
  // A Flate stream that expands past the bound of one decoded stream (8 MiB) is left out.
  const std::string bomb = deflate(std::string(9u << 20, '\0'));
  const std::string pdf = revision(revision("", kBase, 5),
                                   {{1, kDssCatalog},
                                    {5, "<< /Certs [6 0 R 9 0 R] /OCSPs [7 0 R] /VRI << /ab01 << /CRL [8 0 R] >> >> >>"},
                                    {6, stream("/Filter /ASCIIHexDecode", "63 65 72 74>")},
                                    {7, stream("", "ocsp")},
                                    {8, stream("", "crl")},
                                    {9, stream("/Filter /FlateDecode", bomb)}},
                                   10);
  DocumentSecurityStore dss;
  std::string error;
  ASSERT_TRUE(readDss(bytes(pdf), dss, error)) << error;
  EXPECT_TRUE(dss.present);
  EXPECT_EQ(dss.data.certificates, std::vector<Bytes>{bytes("cert")});
  EXPECT_EQ(dss.data.ocsps, std::vector<Bytes>{bytes("ocsp")});
  ASSERT_EQ(dss.vri.count("AB01"), 1u);  // keys compared in upper case
  EXPECT_EQ(dss.vri["AB01"].crls, std::vector<Bytes>{bytes("crl")});
  // FIPS 180-2's SHA-1 of "abc".
  EXPECT_EQ(vriKey(reinterpret_cast<const unsigned char*>("abc"), 3), "A9993E364706816ABA3E25717850C26C9CD0D89D");
}

}  // namespace
