// kolvari verify: judges every signer of a CMS SignedData (DER, PEM or base64) and every signature and
// document time-stamp of a PDF, for one FILE or a batch of them on --jobs threads, and prints the reports as
// text or JSON (tools/verify/ holds the checks).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "cli/validators.h"
#include "command_list.h"
#include "io/input_file.h"
#include "signing/batch_runner.h"
#include "verify/verify_file.h"

namespace {

constexpr size_t kContentChunk = 64 * 1024;
constexpr long kMaxTimeoutSeconds = 600;

// YYYYMMDDhhmmssZ or YYYY-MM-DDThh:mm:ssZ.
bool parseTime(std::string text, time_t& out) {
  std::string digits;
  for (char c : text) {
    if (c != '-' && c != ':' && c != 'T') digits.push_back(c);
  }
  return timeOfGeneralized(digits, out);
}

// The command line as it is read, before its values become VerifyOptions.
struct VerifyCommandOptions {
  std::vector<std::string> files;
  std::string content;
  std::vector<std::string> trustFiles;
  std::string trustDir;
  bool systemTrust = false;
  std::string at;
  std::string revocation = "embedded";
  std::string timeout;
  bool json = false;
  unsigned jobs = defaultJobs();
};

// A fault of the command line found after it was read (a trust file that cannot be used), reported as the
// reader reports its own.
int usageFault(const std::string& message) {
  std::fprintf(stderr, "kolvari verify: %s\nsee 'kolvari verify --help'\n", message.c_str());
  return kExitUsage;
}

RevocationMode revocationMode(const std::string& name) {
  if (name == "none") return RevocationMode::kNone;
  return name == "fetch" ? RevocationMode::kFetch : RevocationMode::kEmbedded;
}

ContentFeed fileFeed(const std::string& path) {
  return [path](const ChunkSink& sink) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return false;
    Bytes buffer(kContentChunk);
    size_t n = 0;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), f)) > 0) sink(buffer.data(), n);
    const bool ok = std::ferror(f) == 0;
    std::fclose(f);
    return ok;
  };
}

// The run's context: the options, the time and the trust anchors every file is judged against.
bool runContext(const VerifyCommandOptions& c, VerifyContext& context, std::string& error) {
  context.options.trustFiles = c.trustFiles;
  context.options.trustDir = c.trustDir;
  context.options.systemTrust = c.systemTrust;
  context.options.revocation = revocationMode(c.revocation);
  if (!c.timeout.empty()) context.options.timeoutSeconds = std::atol(c.timeout.c_str());
  if (!c.at.empty()) {
    time_t t = 0;
    parseTime(c.at, t);  // checked when the command line was read
    context.options.at = t;
  }
  context.now = context.options.at ? *context.options.at : std::time(nullptr);
  return loadTrust(context, error);
}

// 2 when the file was not judged, 1 when a signature did not pass (or there is none), else 0.
int exitOf(const FileReport& f) {
  if (!f.error.empty()) return kExitUsage;
  bool allPassed = !f.signatures.empty();
  for (const SignatureReport& r : f.signatures) allPassed = allPassed && r.indication() == Indication::kTotalPassed;
  return allPassed ? kExitOk : kExitFailure;
}

// The report of one file, as the run of a single FILE prints it.
void printSingle(const FileReport& f, bool json) {
  std::fputs((json ? reportJson(f.signatures) : reportText(f.signatures)).c_str(), stdout);
  if (!json && f.signatures.empty()) std::printf("no signatures\n");
}

// Judges the files on --jobs threads; the verdicts and the messages come in the order of the files. The
// checks make no call to the library that converts OID text (its one process-wide state, include/kolvari/
// zarv.h): the decoders, toDotted and kindOf only read, so the threads need no lock around them.
int runVerify(const VerifyCommandOptions& c) {
  VerifyContext context;
  std::string error;
  if (!runContext(c, context, error)) return usageFault(error);
  if (!c.content.empty() && !checkInputFile(c.content, error)) {
    std::fprintf(stderr, "kolvari verify: --content %s\n", error.c_str());
    return kExitUsage;
  }
  const ContentFeed content = fileFeed(c.content);
  const bool batch = c.files.size() > 1;
  std::vector<FileReport> reports(c.files.size());
  std::vector<std::string> texts(c.files.size());  // a batch's text blocks, rendered on the worker threads
  int status = kExitOk;
  const BatchWork work = [&](size_t item, unsigned) {
    reports[item] = verifyFile(c.files[item], c.content.empty() ? nullptr : &content, context);
    if (batch && !c.json) texts[item] = (item == 0 ? "" : "\n") + reportText(reports[item]);
  };
  const BatchReport report = [&](size_t item) {
    const FileReport& f = reports[item];
    if (!f.error.empty()) std::fprintf(stderr, "kolvari verify: %s\n", f.error.c_str());
    status = std::max(status, exitOf(f));
    if (!batch) {
      printSingle(f, c.json);
    } else if (!c.json) {
      std::fputs(texts[item].c_str(), stdout);
      reports[item] = FileReport();
      std::string().swap(texts[item]);
    }
  };
  runBatch(c.files.size(), c.jobs, work, report);
  if (batch && c.json) std::fputs(reportJson(reports).c_str(), stdout);
  return status;
}

}  // namespace

ToolCommand verifyCommand() {
  return {"verify", "tell whether the signatures of CMS files or PDFs are valid, and why",
          "Judges every signer of a CMS SignedData (DER, PEM or base64; definite or indefinite length) and every "
          "signature and document time-stamp of a PDF: format, integrity, signer identification, certificate "
          "path, time-stamps and revocation, in that order. Each gets an indication (TOTAL_PASSED, TOTAL_FAILED, "
          "INDETERMINATE) with a sub-indication and one line per check. Several FILEs are judged against one trust "
          "set, --jobs files at a time, each report under its file's name in the order of the files. Exit status "
          "0 when every signature is TOTAL_PASSED, 1 when any is not, 2 for a wrong command line or a file that "
          "cannot be read as a signature (the other files are still judged).",
          "kolvari verify --trust ca.pem --content document.txt document.p7s\n"
          "kolvari verify --system-trust --json signed.pdf\n"
          "kolvari verify --trust ca.pem --jobs 4 *.p7s *.pdf",
          [](CLI::App& app) {
            auto o = std::make_shared<VerifyCommandOptions>();
            addValue(app, "--content", o->content, "FILE", "the signed file of a detached signature (read as a stream)");
            addList(app, "--trust", o->trustFiles, "CERTS", "trust anchors, PEM or DER (repeatable)");
            addValue(app, "--trust-dir", o->trustDir, "DIR", "every certificate file in DIR is a trust anchor");
            addFlag(app, "--system-trust", o->systemTrust, "trust OpenSSL's default store as well");
            addValue(app, "--at", o->at, "TIME",
                     "the validation time when no time-stamp gives one, YYYYMMDDhhmmssZ or YYYY-MM-DDThh:mm:ssZ "
                     "(default: now)")
                ->check(valueCheck("TIME", [](std::string& v) {
                  time_t t = 0;
                  return parseTime(v, t) ? std::string() : v + ": not a time YYYYMMDDhhmmssZ";
                }));
            addValue(app, "--revocation", o->revocation, "MODE",
                     "none, embedded (default: the responses and CRLs the signature or the PDF carries) or fetch "
                     "(also ask the certificates' responders and distribution points)")
                ->check(CLI::IsMember({"none", "embedded", "fetch"}));
            addValue(app, "--timeout", o->timeout, "SECONDS", "time limit of each fetch (default 10)")
                ->check(timeoutSeconds());
            addFlag(app, "--json", o->json, "the report as one JSON document (schema in README.md)");
            app.add_option("--jobs", o->jobs,
                           "with several FILEs, judge N files at a time (default: the number of cores); the "
                           "reports are in the order of the files, the same as with --jobs 1")
                ->option_text("N")
                ->check(jobsCount());
            addFiles(app, "FILE", o->files, "the CMS signatures and PDFs, judged against one trust set");
            return [o] {
              if (!o->content.empty() && o->files.size() > 1) {
                throw UsageError("--content names the signed file of one FILE; " + std::to_string(o->files.size()) +
                                 " FILEs given");
              }
              return runVerify(*o);
            };
          }};
}
