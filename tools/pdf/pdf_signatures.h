// The signatures of a PDF as `kolvari inspect` lists them: each signature field with a value, its signature
// dictionary's entries, its byte range and the CMS in its /Contents.
#ifndef KOLVARI_TOOLS_PDF_PDF_SIGNATURES_H
#define KOLVARI_TOOLS_PDF_PDF_SIGNATURES_H

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

// `kolvari inspect` on a PDF: one entry per signature with the decoded CMS under it. Returns the exit status.
int inspectPdf(const std::string& path, bool json, const CmsDecoder& decodeCms);

#endif  // KOLVARI_TOOLS_PDF_PDF_SIGNATURES_H
