// kolvari sign-pdf: signs a PDF as a PAdES baseline signature. The PDF part (reading the input, the
// incremental update, the byte range) lives in tools/pdf; the CMS is built by the linked library as in `kolvari sign`,
// detached over the byte range, with no signing-time attribute (the time is the signature dictionary's /M).
// Given many PDFs and --out-dir it loads the keys, the certificates and the font once and signs --jobs PDFs at
// a time, each in its own qpdf objects.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <openssl/x509.h>

#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "cli/validators.h"
#include "command_list.h"
#include "host_crypto.h"
#include "io/input_file.h"
#include "pdf/pdf_long_term.h"
#include "pdf/pdf_update.h"
#include "pdf/truetype_font.h"
#include "services/sign_services.h"
#include "signing/batch_runner.h"
#include "signing/host_signer.h"
#include "signing/key_source.h"
#include "signing/output_file.h"
#include "signing/pass_phrase.h"
#include "signing/signature_builder.h"
#include "zarv_functions.h"

namespace {

// The library's opt-in for DER SET OF order of the signed attributes; on by default here.
constexpr char kDerOrderVariable[] = "KOLVARI_DER_ATTRIBUTE_ORDER";
// Room in /Contents beyond the certificates: the signature value (up to RSA 8192), the signed attributes and
// the SignedData's own structure.
constexpr size_t kContentsOverhead = 4096;
// Room for a time-stamp token: its TSTInfo, the authority's signature and its certificate chain.
constexpr size_t kTimeStampRoom = 16384;

struct SignPdfOptions {
  SignerSource signer;  // --key/--cert, --p12 or --pkcs11
  std::string pass;
  SignServices services;  // only the time stamp: long-term data would not fit a placeholder sized in advance
  std::string level;      // empty: B-T with --tsa, B-B without
  ValidationDataOptions validation;  // B-LT and B-LTA: the document security store
  std::vector<std::string> chain;
  std::string digest = "sha256";
  PdfSignatureFields fields;
  bool derOrder = true;
  bool force = false;
  bool quiet = false;
  std::string font;
  std::string outDir;
  unsigned jobs = defaultJobs();
  std::vector<std::string> files;  // IN.pdf OUT.pdf, or with --out-dir every PDF to sign
};

// "PAGE,X,Y,W,H": a page from 1 and a box of positive size, all within the largest page PDF allows. Returns
// what is wrong, or an empty text.
std::string readVisible(const std::string& text, PdfVisibleBox& box) {
  constexpr double kMaxUserUnits = 14400;
  int page = 0;
  double x = 0, y = 0, w = 0, h = 0;
  int used = 0;
  if (std::sscanf(text.c_str(), "%d,%lf,%lf,%lf,%lf%n", &page, &x, &y, &w, &h, &used) != 5 ||
      static_cast<size_t>(used) != text.size()) {
    return "needs PAGE,X,Y,W,H";
  }
  if (page < 1) return "the page counts from 1";
  for (double v : {x, y, w, h}) {
    if (!(v >= -kMaxUserUnits && v <= kMaxUserUnits)) return "a number beyond the largest page (14400)";
  }
  if (!(w > 0) || !(h > 0)) return "the width and the height must be above 0";
  box = {page, x, y, w, h};
  return std::string();
}

void defineOptions(CLI::App& app, SignPdfOptions& o) {
  const std::string signer = "signer";
  addSignerKeyOptions(app, o.signer, o.pass);

  const std::string content = "signature";
  addList(app, "--chain", o.chain, "CERTS", "more certificates for the SignedData (repeatable)")->group(content);
  addValue(app, "--digest", o.digest, "NAME", "sha256 (default), sha384 or sha512")
      ->check(digestName())
      ->group(content);
  app.add_flag_callback("--document-order", [&o] { o.derOrder = false; },
                        "signed attributes in the order they were added; by default they are in DER SET OF order "
                        "(KOLVARI_DER_ATTRIBUTE_ORDER=1), as validators that re-encode them expect")
      ->group(content);
  addTimeStampOptions(app, o.services);
  addValue(app, "--level", o.level, "LEVEL",
           "B-B, B-T (a signature time-stamp, from --tsa), B-LT (then a document security store update with the "
           "validation data of the signer's and the authority's chains) or B-LTA (then a document time-stamp "
           "from --tsa); default B-T with --tsa, B-B without")
      ->check(valueCheck("level", [](std::string& v) {
        PdfLevel level;
        return readPdfLevel(v, level) ? std::string() : "B-B, B-T, B-LT or B-LTA";
      }))
      ->group(content);
  addValidationDataOptions(app, o.validation);

  const std::string fields = "signature dictionary and field";
  addValue(app, "--reason", o.fields.reason, "TEXT", "/Reason of the signature dictionary")->group(fields);
  addValue(app, "--location", o.fields.location, "TEXT", "/Location")->group(fields);
  addValue(app, "--contact", o.fields.contactInfo, "TEXT", "/ContactInfo")->group(fields);
  addValue(app, "--name", o.fields.name, "TEXT",
           "/Name, and the name a visible signature shows (default: the certificate's CN)")
      ->group(fields);
  addValue(app, "--field", o.fields.fieldName, "NAME",
           "the signature field's name (default: the first free SignatureN); an empty signature field of that "
           "name in the form is filled, its widget kept (no --visible then); a signed or non-signature field is "
           "refused, and so is a name with a period")
      ->check(valueCheck("field", [](std::string& v) {
        std::string error;
        return checkPdfFieldName(v, error) ? std::string() : error;
      }))
      ->group(fields);
  app.add_option_function<std::string>(
         "--visible", [&o](const std::string& v) { o.fields.visible = readVisible(v, o.fields.box).empty(); },
         "a visible widget on page PAGE (from 1) at X,Y of size W x H points, showing the signer's name and the "
         "time (default: an invisible widget on the first page); Latin text in the standard Helvetica")
      ->option_text("PAGE,X,Y,W,H")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->check(valueCheck("visible", [](std::string& v) {
        PdfVisibleBox unused;
        return readVisible(v, unused);
      }))
      ->group(fields);
  addValue(app, "--font", o.font, "FILE.ttf",
           "with --visible: draw the text in this TrueType font, embedded whole, for any script it covers")
      ->needs("--visible")
      ->group(fields);

  const std::string output = "output";
  addFlag(app, "--force", o.force, "replace an existing OUT.pdf, or a PDF in DIR (never the input itself)")
      ->group(output);
  addValue(app, "--out-dir", o.outDir, "DIR",
           "sign every PDF given into DIR under its own file name (then each PDF is an input)")
      ->group(output);
  app.add_option("--jobs", o.jobs,
                 "with --out-dir, sign N PDFs at a time (default: the number of cores); messages and outputs are "
                 "the same as with --jobs 1")
      ->option_text("N")
      ->check(jobsCount())
      ->group(output);
  addFlag(app, "--quiet", o.quiet, "with --out-dir, no progress line (it is shown only on a terminal anyway)")
      ->group(output);
  addFiles(app, "PDF", o.files, "IN.pdf OUT.pdf: the PDF to sign and where the signed PDF goes; with --out-dir: "
                                "the PDFs to sign");
}

// The rules between options that CLI11's own do not say.
PdfLevel checkOptions(const SignPdfOptions& o) {
  const std::string keyFault = signerKeyFault(o.signer);
  if (!keyFault.empty()) throw UsageError(keyFault);
  if (o.outDir.empty() && o.files.size() == 1) throw UsageError("OUT.pdf is required (or --out-dir DIR)");
  if (o.outDir.empty() && o.files.size() > 2) throw UsageError("more than IN.pdf OUT.pdf needs --out-dir DIR");
  const bool stamped = !o.services.tsa.url.empty();
  PdfLevel level = stamped ? PdfLevel::kT : PdfLevel::kB;
  if (!o.level.empty()) readPdfLevel(o.level, level);
  if (level == PdfLevel::kB && stamped) throw UsageError("--level B-B: --tsa makes the signature B-T");
  if (level != PdfLevel::kB && !stamped) throw UsageError("--level " + o.level + ": needs --tsa URL");
  const ValidationDataOptions& v = o.validation;
  if (level < PdfLevel::kLT && (!v.ocspResponseFiles.empty() || !v.crlFiles.empty() || v.allowMissing)) {
    throw UsageError("--ocsp-response, --revocation-crl and --allow-missing-revocation need --level B-LT or B-LTA");
  }
  return level;
}

// B-LT and B-LTA: the updates after the signature's own, for the signature just made. notes receives a line
// for each certificate that went without revocation data.
bool addLongTermUpdates(const SignPdfOptions& o, PdfLevel level, Bytes& document, std::vector<std::string>& notes,
                        std::string& error) {
  PdfLongTermRequest request;
  request.validation = o.validation;
  request.validation.timeoutSeconds = o.services.tsa.timeoutSeconds;
  request.scope = PdfExtendScope::kNewest;
  request.documentTimeStamp = level == PdfLevel::kLTA;
  request.tsa = o.services.tsa;
  Bytes extended;
  if (!extendPdfLongTerm(document, request, extended, notes, error)) return false;
  document = std::move(extended);
  return true;
}

// The certificate subject's common name, else its whole subject line.
std::string signerName(const Bytes& certificate) {
  const unsigned char* p = certificate.data();
  X509* x509 = d2i_X509(nullptr, &p, static_cast<long>(certificate.size()));
  if (x509 == nullptr) return "unknown signer";
  char text[256] = {};
  X509_NAME* subject = X509_get_subject_name(x509);
  const int at = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
  unsigned char* utf8 = nullptr;
  // As UTF-8 whatever string type holds it (a BMPString's raw octets would be UTF-16).
  const int n = at < 0 ? -1 : ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at)));
  const char* line = n > 0 ? nullptr : X509_NAME_oneline(subject, text, sizeof text);
  std::string name = n > 0          ? std::string(reinterpret_cast<const char*>(utf8), static_cast<size_t>(n))
                     : line != nullptr ? std::string(line)
                                       : std::string("unknown signer");
  OPENSSL_free(utf8);
  X509_free(x509);
  return name;
}

// The signing time as /M and as the appearance shows it.
bool nowTexts(std::string& pdfTime, std::string& shown) {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  if (gmtime_r(&now, &utc) == nullptr) return false;
  char text[64];
  if (std::strftime(text, sizeof text, "D:%Y%m%d%H%M%S+00'00'", &utc) == 0) return false;
  pdfTime = text;
  if (std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc) == 0) return false;
  shown = text;
  return true;
}

// One signing run over a PDF: the signer and the hook after the signature come from the caller, so that a key
// file, a token and a time-stamp authority all go through the same steps. extraRoom is added to the /Contents
// placeholder for what the hook adds (a time-stamp token).
struct PdfSigningRun {
  const DigestChoice* digest = nullptr;
  HostSigner* signer = nullptr;
  Bytes signerCertificate;
  std::vector<Bytes> certificates;  // for the SignedData, the signer's first
  AfterSignature afterSignature;
  size_t extraRoom = 0;
  std::mutex* libraryLock = nullptr;  // the library's signer-info calls, one thread at a time
};

bool signPdf(const ZarvFunctions& zarv, const PdfSigningRun& run, const Bytes& input, PdfSignatureFields fields,
             Bytes& output, std::string& error) {
  size_t capacity = kContentsOverhead + run.extraRoom;
  for (const Bytes& c : run.certificates) capacity += c.size();
  if (!nowTexts(fields.pdfTime, fields.shownTime)) {
    error = "cannot read the clock";
    return false;
  }
  fields.shownSigner = fields.name.empty() ? signerName(run.signerCertificate) : fields.name;
  PdfPreparedUpdate update;
  if (!preparePdfUpdate(input, fields, capacity, update, error)) return false;

  SignerInfoRequest request;
  request.digest = run.digest;
  request.signer = run.signer;
  request.certificate = run.signerCertificate;
  request.withSigningTime = false;
  request.afterSignature = run.afterSignature;
  request.libraryLock = run.libraryLock;
  if (!digestSpans(*run.digest, pdfSignedSpans(update), request.messageDigest)) {
    error = "cannot hash: " + opensslError();
    return false;
  }
  ContainerRequest container;
  container.digest = run.digest;
  container.certificates = run.certificates;
  container.signerInfos.resize(1);
  Bytes cms;
  if (!buildSignerInfo(zarv, request, container.signerInfos[0], error) ||
      !buildContainer(zarv, container, cms, error) || !fillPdfContents(update, cms, error)) {
    return false;
  }
  output = std::move(update.document);
  return true;
}

// --font FILE: a TrueType font for the visible appearance (the option reader takes it only with --visible).
int loadFont(const SignPdfOptions& o, PdfSignatureFields& fields) {
  Bytes file;
  if (!readWholeFile(o.font, file)) {
    std::fprintf(stderr, "kolvari sign-pdf: --font %s: cannot read the file\n", o.font.c_str());
    return kExitFailure;
  }
  auto font = std::make_shared<TrueTypeFont>();
  std::string error;
  if (!font->read(std::move(file), error)) {
    std::fprintf(stderr, "kolvari sign-pdf: --font %s: %s\n", o.font.c_str(), error.c_str());
    return kExitUsage;
  }
  fields.font = std::move(font);
  return kExitOk;
}

int failed(const std::string& error) {
  std::fprintf(stderr, "kolvari sign-pdf: %s\n", error.c_str());
  return kExitFailure;
}

// One PDF of a run: where it is read from and where its signed copy goes.
struct PdfJob {
  std::string input;
  std::string output;
};

std::vector<PdfJob> jobsOf(const SignPdfOptions& o) {
  if (o.outDir.empty()) return {{o.files[0], o.files[1]}};
  std::vector<PdfJob> jobs;
  for (const std::string& input : o.files) jobs.push_back({input, batchOutputPath(o.outDir, input)});
  return jobs;
}

// What stays the same for every PDF of a run. The signer and the hook after the signature are called from
// every thread: a key file signs with a shared OpenSSL key, a token with a session per thread
// (signing/pkcs11_signer.h), and the hook only reads what it captured.
struct PdfRunSetup {
  PdfLevel level = PdfLevel::kB;
  PdfSigningRun run;
  std::mutex libraryLock;
};

// What one PDF gives back, for the report in the order of the PDFs.
struct PdfOutcome {
  bool done = false;
  std::string error;
  std::vector<std::string> notes;
};

// Signs one PDF: its input and output checked, the signature and the long-term updates made, the output
// written through a temporary file and a rename, so that a failure leaves no half-written file.
bool signOnePdf(const ZarvFunctions& zarv, const SignPdfOptions& o, const PdfRunSetup& s, const PdfJob& job,
                PdfOutcome& out) {
  std::string& error = out.error;
  Bytes input;
  if (!checkInputFile(job.input, error) || !checkOutput(job.output, job.input, o.force, error) ||
      !readInputFile(job.input, input, error)) {
    return false;
  }
  Bytes output;
  if (!signPdf(zarv, s.run, input, o.fields, output, error) ||
      (s.level >= PdfLevel::kLT && !addLongTermUpdates(o, s.level, output, out.notes, error))) {
    error = job.input + ": " + error;
    return false;
  }
  return writeOutputFile(job.output, job.input, output.data(), output.size(), o.force, error);
}

// Signs every PDF on the threads the run allows and reports each (its notes, then its error) in order.
int signJobs(const ZarvFunctions& zarv, const SignPdfOptions& o, const PdfRunSetup& setup,
             const std::vector<PdfJob>& jobs) {
  const bool batch = !o.outDir.empty();
  // The progress line is for a person watching a batch; a script reads only the messages and the status.
  ProgressLine progress(jobs.size(), batch && !o.quiet && isatty(STDERR_FILENO) != 0);
  std::vector<PdfOutcome> outcomes(jobs.size());
  size_t failures = 0;
  if (batch) setInterruptNote(batchInterruptNote("sign-pdf", "signed", 0, jobs.size(), ""));
  std::mutex noteLock;
  size_t signedCount = 0;
  const BatchWork work = [&](size_t item, unsigned) {
    outcomes[item].done = signOnePdf(zarv, o, setup, jobs[item], outcomes[item]);
    if (!outcomes[item].done || !batch) return;
    // The note counts every PDF in place, in the order they were finished.
    const std::lock_guard<std::mutex> hold(noteLock);
    setInterruptNote(batchInterruptNote("sign-pdf", "signed", ++signedCount, jobs.size(), jobs[item].input));
  };
  const BatchReport report = [&](size_t item) {
    const PdfOutcome& outcome = outcomes[item];
    if (!outcome.done || !outcome.notes.empty()) progress.clear();
    for (const std::string& note : outcome.notes) std::fprintf(stderr, "kolvari sign-pdf: note: %s\n", note.c_str());
    if (!outcome.done) {
      std::fprintf(stderr, "kolvari sign-pdf: %s\n", outcome.error.c_str());
      ++failures;
    }
    progress.step();
  };
  runBatch(jobs.size(), batchJobs(o.outDir, o.files, "", o.jobs), work, report);
  progress.finish();
  if (failures > 0 && jobs.size() > 1) {
    std::fprintf(stderr,
                 "kolvari sign-pdf: %zu of %zu PDFs not signed (each named above); the other %zu signed PDFs are "
                 "whole in %s\n",
                 failures, jobs.size(), jobs.size() - failures, o.outDir.c_str());
  }
  return failures == 0 ? kExitOk : kExitFailure;
}

// The signer's certificate, the --chain certificates and the font, read once for every PDF.
int loadSigningFiles(SignPdfOptions& o, PdfSigningRun& run, std::string& error) {
  run.signerCertificate = run.certificates.front();
  for (const std::string& path : o.chain) {
    std::vector<Bytes> file;
    if (!readCertificates(path, file, error)) return failed(error);
    addCertificates(file, run.certificates);
  }
  return o.font.empty() ? kExitOk : loadFont(o, o.fields);
}

int signPdfWith(SignPdfOptions o) {
  PdfRunSetup setup;
  setup.level = checkOptions(o);
  const std::vector<PdfJob> jobs = jobsOf(o);
  PdfSigningRun& run = setup.run;
  run.digest = findDigest(o.digest);
  std::string error;
  // Before any key is read or PIN asked for: the inputs open, and the one output may be written (a batch
  // checks each PDF's in turn, and skips the PDF that fails).
  for (const std::string& path : {o.signer.key, o.signer.cert, o.signer.p12, o.font}) {
    if (!path.empty() && !checkInputFile(path, error)) return failed(error);
  }
  if (o.outDir.empty() && (!checkInputFile(jobs[0].input, error) ||
                           !checkOutput(jobs[0].output, jobs[0].input, o.force, error))) {
    return failed(error);
  }
  PassPhrase pass(o.pass);
  std::unique_ptr<HostSigner> signer = openSigner(o.signer, pass, run.certificates, error);
  if (signer == nullptr) return failed(error);
  const int loaded = loadSigningFiles(o, run, error);
  if (loaded != kExitOk) return loaded;

  // Set before the first signing call: the library reads it whenever it builds the data to be signed.
  if (o.derOrder && setenv(kDerOrderVariable, "1", 1) != 0) return failed(std::string("cannot set ") + kDerOrderVariable);
  const ZarvFunctions& zarv = ZarvFunctions::linked();
  zarv.init();
  run.signer = signer.get();
  run.afterSignature = signServicesHook(o.services, run.certificates);
  if (!o.services.tsa.url.empty()) run.extraRoom = kTimeStampRoom;
  run.libraryLock = &setup.libraryLock;
  return signJobs(zarv, o, setup, jobs);
}

}  // namespace

ToolCommand signPdfCommand() {
  return {"sign-pdf", "sign a PDF (PAdES baseline, one incremental update)",
          "PDF... is IN.pdf OUT.pdf, or with --out-dir DIR the PDFs to sign. "
          "Writes OUT.pdf as the bytes of IN.pdf followed by one incremental update: a signature dictionary "
          "(/SubFilter /ETSI.CAdES.detached, /M the signing time), a signature field with its widget on the page "
          "and in /AcroForm (/SigFlags 3; existing fields kept), and a cross-reference section of the same form as "
          "the file's last one. The digest of the /ByteRange (the whole file but /Contents) goes to the library as "
          "the message digest; the detached CMS it builds (signing-certificate-v2, no signing-time attribute) is "
          "written into /Contents in hex. At --level B-LT a second update adds the document security store (the "
          "certificates and OCSP responses or CRLs of the signer's and the time-stamp authority's chains), and at "
          "B-LTA a third a document time-stamp. Earlier signatures stay valid. The signer is --key with --cert, "
          "--p12 or "
          "--pkcs11. Encrypted PDFs and PDFs whose cross-reference data cannot be read are refused, and OUT.pdf is "
          "not written; so is a key that does not belong to its certificate, and an existing OUT.pdf unless "
          "--force. Given --out-dir DIR, every PDF named is signed into DIR under its own file name, --jobs PDFs "
          "at a time, with the keys, the certificates and the font read once and the messages in the order of "
          "the PDFs; a PDF that cannot be signed is reported and skipped, and the exit status is 1 when any was.",
          "kolvari sign-pdf --key signer.key --cert signer.pem --chain ca.pem --reason Approved in.pdf signed.pdf\n"
          "pdfsig signed.pdf\n"
          "kolvari sign-pdf --key signer.key --cert signer.pem --chain ca.pem --jobs 4 --out-dir signed *.pdf",
          [](CLI::App& app) {
            auto o = std::make_shared<SignPdfOptions>();
            defineOptions(app, *o);
            return [o] { return signPdfWith(*o); };
          }};
}
