// kolvari timestamp-pdf: a document time-stamp (/SubFilter /ETSI.RFC3161) added to a PDF, signed or not, as one
// incremental update (tools/pdf/pdf_timestamp.h).
#include <cstdio>
#include <memory>
#include <string>

#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "command_list.h"
#include "io/input_file.h"
#include "pdf/pdf_long_term.h"
#include "services/sign_services.h"
#include "signing/output_file.h"

namespace {

struct TimeStampPdfOptions {
  SignServices services;  // the time stamp only
  bool force = false;
  std::string input;
  std::string output;
};

int failed(const std::string& error) {
  std::fprintf(stderr, "kolvari timestamp-pdf: %s\n", error.c_str());
  return kExitFailure;
}

int timeStampPdfWith(const TimeStampPdfOptions& o) {
  if (o.services.tsa.url.empty()) throw UsageError("--tsa URL: the time-stamp authority is needed");
  std::string error;
  if (!checkInputFile(o.input, error) || !checkOutput(o.output, o.input, o.force, error)) return failed(error);
  Bytes input;
  Bytes output;
  if (!readInputFile(o.input, input, error)) return failed(error);
  if (!timeStampPdf(input, o.services.tsa, output, error)) return failed(o.input + ": " + error);
  if (!writeOutputFile(o.output, o.input, output.data(), output.size(), o.force, error)) return failed(error);
  return kExitOk;
}

}  // namespace

ToolCommand timeStampPdfCommand() {
  return {"timestamp-pdf", "add a document time-stamp to a PDF (one incremental update)",
          "Writes OUT.pdf as the bytes of IN.pdf followed by one incremental update: an invisible signature "
          "field whose signature dictionary has /Type /DocTimeStamp and /SubFilter /ETSI.RFC3161, and whose "
          "/Contents is the time-stamp token the authority at --tsa returns for the digest (--tsa-digest) of the "
          "byte range. IN.pdf may be signed or not; earlier signatures stay valid. When the authority fails, "
          "times out or answers with something other than a token over that digest, OUT.pdf is not written.",
          "kolvari timestamp-pdf --tsa http://tsa.example/ signed.pdf stamped.pdf",
          [](CLI::App& app) {
            auto o = std::make_shared<TimeStampPdfOptions>();
            addTimeStampOptions(app, o->services);
            addFlag(app, "--force", o->force, "replace an existing OUT.pdf (never IN.pdf itself)")->group("output");
            addFile(app, "IN.pdf", o->input, "the PDF to time-stamp");
            addFile(app, "OUT.pdf", o->output, "where the time-stamped PDF goes");
            return [o] { return timeStampPdfWith(*o); };
          }};
}
