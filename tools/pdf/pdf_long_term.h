// Long-term PDF signatures (PAdES B-LT and B-LTA): the validation data of a file's signatures and document
// time-stamps gathered into a document security store update, then a document time-stamp over everything.
// Each update is appended: the input's bytes stay the output's first bytes.
#ifndef KOLVARI_TOOLS_PDF_PDF_LONG_TERM_H
#define KOLVARI_TOOLS_PDF_PDF_LONG_TERM_H

#include <string>
#include <vector>

#include "host_crypto.h"
#include "services/tsa_client.h"
#include "services/validation_data.h"

// The PAdES baseline levels, each one the one before and more.
enum class PdfLevel { kB, kT, kLT, kLTA };

// "B-B", "B-T", "B-LT" or "B-LTA"; false for any other text.
bool readPdfLevel(const std::string& text, PdfLevel& out);

// Which signatures of the file get their validation data into the store.
enum class PdfExtendScope {
  kNewest,   // the last one (the signature sign-pdf just made)
  kRenewal,  // from the last document time-stamp on when there is one (a renewal), every one otherwise
};

struct PdfLongTermRequest {
  ValidationDataOptions validation;
  std::vector<Bytes> issuers;  // certificates that complete the chains the signatures carry
  PdfExtendScope scope = PdfExtendScope::kRenewal;
  bool documentTimeStamp = false;  // B-LTA
  TsaOptions tsa;                  // the authority of the document time-stamp
};

// Appends the store update and, when asked, the document time-stamp. notes receives one line for each
// certificate that went without revocation data (--allow-missing-revocation). False with one line.
bool extendPdfLongTerm(const Bytes& input, const PdfLongTermRequest& request, Bytes& out,
                       std::vector<std::string>& notes, std::string& error);

// Appends a document time-stamp from the authority of tsa.
bool timeStampPdf(const Bytes& input, const TsaOptions& tsa, Bytes& out, std::string& error);

#endif  // KOLVARI_TOOLS_PDF_PDF_LONG_TERM_H
