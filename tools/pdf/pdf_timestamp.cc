#include "pdf/pdf_timestamp.h"

#include "pdf/pdf_update.h"

namespace {

// Room in /Contents for a token: its TSTInfo, the authority's signature and its certificate chain.
constexpr size_t kTokenRoom = 16384;

}  // namespace

bool addPdfDocumentTimeStamp(const Bytes& input, const DigestChoice& digest, const PdfTimeStamper& stamp,
                             Bytes& out, std::string& error) {
  PdfSignatureFields fields;
  fields.documentTimeStamp = true;
  PdfPreparedUpdate update;
  if (!preparePdfUpdate(input, fields, kTokenRoom, update, error)) return false;
  Bytes imprint;
  if (!digestSpans(digest, pdfSignedSpans(update), imprint)) {
    error = "cannot hash: " + opensslError();
    return false;
  }
  Bytes token;
  if (!stamp(imprint, token, error) || !fillPdfContents(update, token, error)) return false;
  out = std::move(update.document);
  return true;
}
