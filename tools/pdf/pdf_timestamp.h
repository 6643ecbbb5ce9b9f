// A document time-stamp: one incremental update with a new invisible signature field whose value is a
// signature dictionary of /Type /DocTimeStamp and /SubFilter /ETSI.RFC3161, and whose /Contents is an RFC 3161
// time-stamp token over the digest of the byte range (the whole file but /Contents), as the authority made it.
#ifndef KOLVARI_TOOLS_PDF_PDF_TIMESTAMP_H
#define KOLVARI_TOOLS_PDF_PDF_TIMESTAMP_H

#include <functional>
#include <string>

#include "host_crypto.h"

// Asks for a token over imprint, the digest of the byte range; false with a message.
using PdfTimeStamper = std::function<bool(const Bytes& imprint, Bytes& token, std::string& error)>;

// out is input followed by the time-stamp's update; digest hashes the byte range.
bool addPdfDocumentTimeStamp(const Bytes& input, const DigestChoice& digest, const PdfTimeStamper& stamp,
                             Bytes& out, std::string& error);

#endif  // KOLVARI_TOOLS_PDF_PDF_TIMESTAMP_H
