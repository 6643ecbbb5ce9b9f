// kolvari extend: raises an existing CMS signature, made by anyone, to CAdES level T, LT or LTA
// (signing/cms_extend.h does the work), or a batch of them on --jobs threads. Each thread has its own
// SignedData images and OpenSSL objects; the request, the services' options and the library's decoders are
// only read (no OID text conversion, the library's one process-wide state, is on this path).
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "cli/validators.h"
#include "command_list.h"
#include "io/input_file.h"
#include "io/signature_text.h"
#include "signing/batch_runner.h"
#include "signing/cms_extend.h"
#include "signing/output_file.h"

namespace {

constexpr size_t kMaxSignatureFile = 512u * 1024 * 1024;
constexpr char kPrefix[] = "kolvari extend: ";

struct ExtendOptions {
  std::string level;
  ExtendRequest request;
  std::vector<std::string> inputs;
  std::string out;
  std::string outDir;
  bool force = false;
  bool quiet = false;
  unsigned jobs = defaultJobs();
};

// What the extension of one file came to: its exit status and the lines it prints on standard error, kept
// until the files before it are reported.
struct FileOutcome {
  int status = kExitOk;
  std::vector<std::string> lines;

  int fail(int exitStatus, const std::string& line) {
    lines.push_back(kPrefix + line);
    return status = exitStatus;
  }
};

ExtendLevel levelNamed(const std::string& name) {
  if (name == "T") return ExtendLevel::kT;
  return name == "LT" ? ExtendLevel::kLT : ExtendLevel::kLTA;
}

// DIR/NAME for the input DIR2/NAME: an extended signature keeps its file's name.
std::string outputPath(const std::string& directory, const std::string& input) {
  return batchOutputPath(directory, input);
}

std::string outputOf(const ExtendOptions& o, const std::string& input) {
  return o.outDir.empty() ? o.out : outputPath(o.outDir, input);
}

bool sameFile(const std::string& a, const std::string& b) {
  struct stat first;
  struct stat second;
  return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

// The rules between options that CLI11's own do not say; a wrong command line is a UsageError.
void checkOptions(const ExtendOptions& o) {
  if (o.out.empty() && o.outDir.empty()) throw UsageError("give --out FILE, or --out-dir DIR for many FILEs");
  if (o.outDir.empty() && o.inputs.size() > 1) throw UsageError("more than one FILE needs --out-dir DIR");
  if (!o.request.contentPath.empty() && o.inputs.size() > 1) {
    throw UsageError("--content names the signed file of one FILE; " + std::to_string(o.inputs.size()) +
                     " FILEs given");
  }
  for (const std::string& input : o.inputs) {
    if (!o.outDir.empty() && sameFile(input, outputPath(o.outDir, input))) {
      throw UsageError("--out-dir " + o.outDir + " holds the input " + input + ", which its output would replace");
    }
  }
}

// Reads, extends and writes one file; the output appears whole or not at all.
int extendFile(const ExtendOptions& o, const std::string& input, FileOutcome& r) {
  const std::string out = outputOf(o, input);
  std::string error;
  Bytes raw;
  Bytes der;
  SignedDataImage image;
  if (!readInputFile(input, raw, error) || !checkOutput(out, input, o.force, error)) {
    return r.fail(kExitUsage, error);
  }
  if (raw.size() > kMaxSignatureFile || !signatureBytes(raw, der) || !readSignedData(der, image, error)) {
    if (error.empty()) error = "not a CMS signature (DER, BER, PEM or base64)";
    return r.fail(kExitUsage, input + ": " + error);
  }
  if (o.request.level == ExtendLevel::kLTA && !image.attached && o.request.contentPath.empty()) {
    return r.fail(kExitUsage, input + ": a detached signature: LTA needs its content, --content FILE");
  }
  Bytes extended;
  std::vector<std::string> missing;
  if (!extendSignedData(o.request, image, missing, error) || !writeSignedData(image, extended) ||
      !writeOutputFile(out, input, extended.data(), extended.size(), o.force, error)) {
    if (error.empty()) error = "cannot encode the extended SignedData";
    return r.fail(kExitFailure, input + ": " + error);
  }
  for (const std::string& subject : missing) {
    r.lines.push_back(kPrefix + input + ": no revocation data for " + subject + ", which names no responder");
  }
  return kExitOk;
}

// What the interrupted batch has done, for the message a signal prints.
std::string interruptNote(size_t extendedCount, size_t total, const std::string& last) {
  return batchInterruptNote("extend", "extended", extendedCount, total, last);
}

// Extends every FILE on --jobs threads (batchJobs); the messages come in the order of the files, as with one thread.
int extendWith(ExtendOptions& o) {
  checkOptions(o);
  o.request.level = levelNamed(o.level);
  std::string error;
  if (!o.request.contentPath.empty() && !checkInputFile(o.request.contentPath, error)) {
    std::fprintf(stderr, "%s--content %s\n", kPrefix, error.c_str());
    return kExitUsage;
  }
  const size_t total = o.inputs.size();
  const bool batch = !o.outDir.empty();
  ProgressLine progress(total, batch && !o.quiet && isatty(STDERR_FILENO) != 0);
  if (batch) setInterruptNote(interruptNote(0, total, ""));
  std::vector<FileOutcome> outcomes(total);
  std::mutex noteLock;
  size_t extendedCount = 0;
  const BatchWork work = [&](size_t item, unsigned) {
    if (extendFile(o, o.inputs[item], outcomes[item]) != kExitOk || !batch) return;
    const std::lock_guard<std::mutex> hold(noteLock);
    setInterruptNote(interruptNote(++extendedCount, total, o.inputs[item]));
  };
  size_t failed = 0;
  const BatchReport report = [&](size_t item) {
    if (!outcomes[item].lines.empty()) progress.clear();
    for (const std::string& line : outcomes[item].lines) std::fprintf(stderr, "%s\n", line.c_str());
    if (outcomes[item].status != kExitOk) ++failed;
    progress.step();
  };
  runBatch(total, batchJobs(o.outDir, o.inputs, "", o.jobs), work, report);
  progress.finish();
  if (total == 1) return outcomes.front().status;
  if (failed > 0) {
    std::fprintf(stderr,
                 "%s%zu of %zu files not extended (each named above); the other %zu extended signatures are "
                 "whole in %s\n",
                 kPrefix, failed, total, total - failed, o.outDir.c_str());
  }
  return failed == 0 ? kExitOk : kExitFailure;
}

}  // namespace

ToolCommand extendCommand() {
  return {"extend", "raise a CMS signature made by anyone to CAdES level T, LT or LTA",
          "Adds to every SignerInfo of FILE what the level needs, as unsigned attributes: T a signature "
          "time-stamp over the signature value (unless one is there); LT also the certificate values and the "
          "revocation values of the signer certificate, read from the files given or asked of the responders the "
          "certificate names; LTA also an archive-time-stamp-v3 with its ats-hash-index-v3 over the content, the "
          "signer's fields and everything the signature carries. The signed attributes, the signature value and "
          "every other field of the SignedData keep their bytes. A service that fails is named with its URL and "
          "the signer's certificate, and nothing is written. Given many files with --out-dir, each FILE gets "
          "DIR/FILE (the same name), --jobs files at a time, with the messages in the order of the files; a file "
          "that fails is reported and skipped, and the exit status is 1 when any did.",
          "kolvari extend --level T --tsa http://tsa.example/ document.p7s --out document-t.p7s\n"
          "kolvari extend --level LTA --tsa http://tsa.example/ --content document.txt document.p7s --out a.p7s\n"
          "kolvari extend --level LT --tsa http://tsa.example/ --jobs 8 --out-dir archive-lt archive/*.p7s",
          [](CLI::App& app) {
            auto o = std::make_shared<ExtendOptions>();
            addValue(app, "--level", o->level, "LEVEL", "T, LT or LTA")
                ->required()
                ->check(CLI::IsMember({"T", "LT", "LTA"}));
            addValue(app, "--content", o->request.contentPath, "FILE",
                     "the signed file of a detached signature (LTA hashes it)");
            addTimeStampOptions(app, o->request.services);
            addRevocationOptions(app, o->request.services);
            addFlag(app, "--allow-missing-revocation", o->request.services.revocation.allowMissing,
                    "go on when a time-stamping authority's certificate names no OCSP responder and no CRL "
                    "distribution point (each is named on standard error)")
                ->group("long-term validation data");
            addValue(app, "--out", o->out, "FILE", "where to write the extended signature of the one FILE (DER)");
            addValue(app, "--out-dir", o->outDir, "DIR", "write one DIR/FILE per FILE, named as FILE is")
                ->excludes("--out");
            addFlag(app, "--force", o->force, "replace an existing output file (never the input itself)");
            addFlag(app, "--quiet", o->quiet, "no progress line (it is shown only on a terminal anyway)");
            app.add_option("--jobs", o->jobs,
                           "with --out-dir, extend N files at a time (default: the number of cores); messages "
                           "and outputs are the same as with --jobs 1")
                ->option_text("N")
                ->check(jobsCount());
            addFiles(app, "FILE", o->inputs, "the signatures to extend (DER, BER, PEM or base64)");
            return [o] { return extendWith(*o); };
          }};
}
