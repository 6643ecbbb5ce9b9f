// kolvari extend-pdf: raises the signatures of a PDF, made by any signer, to PAdES B-LT (a document security
// store with their validation data) or B-LTA (and a document time-stamp over everything). Run on a B-LTA file
// it renews the archive (tools/pdf/pdf_long_term.h).
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "cli/validators.h"
#include "command_list.h"
#include "host_crypto.h"
#include "io/input_file.h"
#include "pdf/pdf_long_term.h"
#include "services/sign_services.h"
#include "signing/output_file.h"

namespace {

struct ExtendPdfOptions {
  std::string level;
  SignServices services;  // the time stamp only
  ValidationDataOptions validation;
  std::vector<std::string> chain;
  bool force = false;
  std::string input;
  std::string output;
};

int failed(const std::string& error) {
  std::fprintf(stderr, "kolvari extend-pdf: %s\n", error.c_str());
  return kExitFailure;
}

int extendPdfWith(const ExtendPdfOptions& o) {
  PdfLongTermRequest request;
  PdfLevel level = PdfLevel::kB;
  readPdfLevel(o.level, level);
  request.documentTimeStamp = level == PdfLevel::kLTA;
  if (request.documentTimeStamp && o.services.tsa.url.empty()) {
    throw UsageError("--level B-LTA: --tsa URL names the authority of the document time-stamp");
  }
  request.validation = o.validation;
  request.validation.timeoutSeconds = o.services.tsa.timeoutSeconds;
  request.tsa = o.services.tsa;
  std::string error;
  if (!checkInputFile(o.input, error) || !checkOutput(o.output, o.input, o.force, error)) return failed(error);
  Bytes input;
  Bytes output;
  std::vector<std::string> notes;
  if (!readInputFile(o.input, input, error)) return failed(error);
  for (const std::string& path : o.chain) {
    if (!readCertificates(path, request.issuers, error)) return failed(error);
  }
  if (!extendPdfLongTerm(input, request, output, notes, error)) return failed(o.input + ": " + error);
  if (!writeOutputFile(o.output, o.input, output.data(), output.size(), o.force, error)) return failed(error);
  for (const std::string& note : notes) std::fprintf(stderr, "kolvari extend-pdf: note: %s\n", note.c_str());
  return kExitOk;
}

}  // namespace

ToolCommand extendPdfCommand() {
  return {"extend-pdf", "extend the signatures of a PDF to B-LT or B-LTA, or renew its archive time-stamp",
          "Writes OUT.pdf as the bytes of IN.pdf followed by an incremental update that adds a document security "
          "store (/DSS in the catalog): the certificates of every signature and document time-stamp (the "
          "signer's chain and those of the time-stamp tokens it holds), an OCSP response or CRL for each that is "
          "not self-issued (from --ocsp-response and --revocation-crl, else asked of the responder or "
          "distribution point the certificate names), and a /VRI entry per signature. At B-LTA a document "
          "time-stamp from --tsa follows. On a file that holds a document time-stamp already, the data is "
          "gathered from the last document time-stamp on, and a new time-stamp covers everything: the archive "
          "is renewed. Nothing of IN.pdf changes; when a service fails, OUT.pdf is not written.",
          "kolvari extend-pdf --level B-LTA --tsa http://tsa.example/ signed.pdf archived.pdf\n"
          "kolvari extend-pdf --level B-LTA --tsa http://tsa.example/ archived.pdf renewed.pdf",
          [](CLI::App& app) {
            auto o = std::make_shared<ExtendPdfOptions>();
            addValue(app, "--level", o->level, "LEVEL", "B-LT (the store) or B-LTA (and a document time-stamp)")
                ->required()
                ->check(valueCheck("level", [](std::string& v) {
                  PdfLevel level;
                  return readPdfLevel(v, level) && level >= PdfLevel::kLT ? std::string() : "B-LT or B-LTA";
                }));
            addTimeStampOptions(app, o->services);
            addValidationDataOptions(app, o->validation);
            addList(app, "--chain", o->chain, "CERTS",
                    "issuer certificates for signatures that carry only the signer's own (repeatable)")
                ->group("long-term validation data");
            addFlag(app, "--force", o->force, "replace an existing OUT.pdf (never IN.pdf itself)")->group("output");
            addFile(app, "IN.pdf", o->input, "the signed PDF");
            addFile(app, "OUT.pdf", o->output, "where the extended PDF goes");
            return [o] { return extendPdfWith(*o); };
          }};
}
