// The document security store of a long-term PDF signature: one incremental update that gives the catalog a
// /DSS with /Certs, /OCSPs and /CRLs (arrays of Flate-compressed streams, each item once) and a /VRI entry
// per signature or time-stamp, keyed by the upper-case hex SHA-1 of its /Contents, whose /Cert, /OCSP and
// /CRL arrays name the streams that concern it. A store the file has already is merged: its streams are kept
// by reference and its entries are not written twice.
#ifndef KOLVARI_TOOLS_PDF_PDF_DSS_H
#define KOLVARI_TOOLS_PDF_PDF_DSS_H

#include <string>
#include <vector>

#include "host_crypto.h"

// The validation data of one signature or document time-stamp.
struct PdfValidationEntry {
  Bytes contents;  // the DER of its /Contents, without the padding
  std::vector<Bytes> certificates;
  std::vector<Bytes> ocspResponses;
  std::vector<Bytes> crls;
};

// The /VRI key of a signature: its /Contents' SHA-1 in upper-case hex.
std::string pdfVriKey(const Bytes& contents);

// out is input followed by the update; false with a message when input cannot take one.
bool addPdfDss(const Bytes& input, const std::vector<PdfValidationEntry>& entries, Bytes& out, std::string& error);

#endif  // KOLVARI_TOOLS_PDF_PDF_DSS_H
