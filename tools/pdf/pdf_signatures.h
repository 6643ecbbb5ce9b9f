// The signatures of a PDF as `kolvari inspect` lists them: each signature field with a value, its signature
// dictionary's entries, its byte range and the CMS in its /Contents.
#ifndef KOLVARI_TOOLS_PDF_PDF_SIGNATURES_H
#define KOLVARI_TOOLS_PDF_PDF_SIGNATURES_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "contents_tree.h"
#include "host_crypto.h"

struct PdfSignatureEntry {
  std::string fieldName;
  std::string name;     // /Name, when the dictionary has one
  std::string time;     // /M
  std::string subFilter;
  std::vector<long long> byteRange;
  bool coversWholeFile = false;  // [0 a b c] with a < b and b + c the file's length
  Bytes cms;                     // /Contents up to the end of its DER or BER element (the padding left out)
  std::string problem;           // why cms is empty, when it is
};

// The signature fields of a PDF, in the order of /AcroForm /Fields; false with a message when the file
// cannot be read.
bool listPdfSignatures(const Bytes& file, std::vector<PdfSignatureEntry>& out, std::string& error);

// Decodes one signature's CMS into a value tree; false when the library cannot decode it.
using CmsDecoder = std::function<bool(const Bytes& der, InspectValue& out)>;

// The lists of a document security store, and a decoder for their items: false when the library cannot
// decode the item; label names the item in a /VRI entry's list.
enum class PdfDssList : uint8_t { kCertificates, kOcsps, kCrls };
using DssItemDecoder = std::function<bool(PdfDssList list, const Bytes& der, InspectValue& out, std::string& label)>;

// `kolvari inspect` on a PDF: one entry per signature with the decoded CMS under it, then the document
// security store of the last revision (null when there is none) with its items decoded and its /VRI entries
// tied to the signatures they name. Returns the exit status.
int inspectPdf(const std::string& path, bool json, const CmsDecoder& decodeCms, const DssItemDecoder& decodeDssItem);

#endif  // KOLVARI_TOOLS_PDF_PDF_SIGNATURES_H
