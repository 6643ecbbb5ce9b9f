// The signatures and document time-stamps of a PDF: each one's /ByteRange against the file and its
// revisions, the CMS checks over that byte range, and what later revisions changed.
#ifndef KOLVARI_TOOLS_VERIFY_VERIFY_PDF_H
#define KOLVARI_TOOLS_VERIFY_VERIFY_PDF_H

#include <string>
#include <vector>

#include "verify/verify_context.h"
#include "verify/verify_report.h"

// Judges every signature of file in document order; false with a message when file cannot be read as a PDF.
bool verifyPdf(const Bytes& file, VerifyContext& context, std::vector<SignatureReport>& out, std::string& error);

// The offsets just after each %%EOF marker and its end of line, in file order.
std::vector<long long> revisionEnds(const Bytes& file);

// The /ByteRange [0 a b c] leaves out exactly the hex string /Contents (from '<' to '>') and ends where a
// revision ends (one of ends); the index of that revision, or a reason.
bool checkByteRange(const Bytes& file, const std::vector<long long>& range, const std::vector<long long>& ends,
                    size_t& revision, std::string& reason);

#endif  // KOLVARI_TOOLS_VERIFY_VERIFY_PDF_H
