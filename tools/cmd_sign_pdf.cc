// kolvari sign-pdf: signs a PDF as a PAdES baseline signature. The PDF part (reading the input, the
// incremental update, the byte range) lives in tools/pdf; the CMS is built by the linked library as in `kolvari sign`,
// detached over the byte range, with no signing-time attribute (the time is the signature dictionary's /M).
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
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
  std::string font;
  std::string input;
  std::string output;
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
  addFlag(app, "--force", o.force, "replace an existing OUT.pdf (never IN.pdf itself)")->group(output);
  addFile(app, "IN.pdf", o.input, "the PDF to sign");
  addFile(app, "OUT.pdf", o.output, "where the signed PDF goes");
}

// The rules between options that CLI11's own do not say.
PdfLevel checkOptions(const SignPdfOptions& o) {
  const std::string keyFault = signerKeyFault(o.signer);
  if (!keyFault.empty()) throw UsageError(keyFault);
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

// B-LT and B-LTA: the updates after the signature's own, for the signature just made.
bool addLongTermUpdates(const SignPdfOptions& o, PdfLevel level, Bytes& document, std::string& error) {
  PdfLongTermRequest request;
  request.validation = o.validation;
  request.validation.timeoutSeconds = o.services.tsa.timeoutSeconds;
  request.scope = PdfExtendScope::kNewest;
  request.documentTimeStamp = level == PdfLevel::kLTA;
  request.tsa = o.services.tsa;
  std::vector<std::string> notes;
  Bytes extended;
  if (!extendPdfLongTerm(document, request, extended, notes, error)) return false;
  for (const std::string& note : notes) std::fprintf(stderr, "kolvari sign-pdf: note: %s\n", note.c_str());
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

int signPdfWith(SignPdfOptions o) {
  const PdfLevel level = checkOptions(o);
  PdfSigningRun run;
  run.digest = findDigest(o.digest);
  std::string error;
  // Before any key is read or PIN asked for: the inputs open, and the output may be written.
  for (const std::string& path : {o.signer.key, o.signer.cert, o.signer.p12, o.font, o.input}) {
    if (!path.empty() && !checkInputFile(path, error)) return failed(error);
  }
  if (!checkOutput(o.output, o.input, o.force, error)) return failed(error);
  PassPhrase pass(o.pass);
  std::unique_ptr<HostSigner> signer = openSigner(o.signer, pass, run.certificates, error);
  if (signer == nullptr) return failed(error);
  run.signerCertificate = run.certificates.front();
  for (const std::string& path : o.chain) {
    std::vector<Bytes> file;
    if (!readCertificates(path, file, error)) return failed(error);
    addCertificates(file, run.certificates);
  }
  if (!o.font.empty()) {
    const int status = loadFont(o, o.fields);
    if (status != kExitOk) return status;
  }
  Bytes input;
  if (!readInputFile(o.input, input, error)) return failed(error);

  // Set before the first signing call: the library reads it whenever it builds the data to be signed.
  if (o.derOrder && setenv(kDerOrderVariable, "1", 1) != 0) return failed(std::string("cannot set ") + kDerOrderVariable);
  const ZarvFunctions& zarv = ZarvFunctions::linked();
  zarv.init();
  run.signer = signer.get();
  run.afterSignature = signServicesHook(o.services, run.certificates);
  if (!o.services.tsa.url.empty()) run.extraRoom = kTimeStampRoom;
  Bytes output;
  if (!signPdf(zarv, run, input, o.fields, output, error)) return failed(o.input + ": " + error);
  if (level >= PdfLevel::kLT && !addLongTermUpdates(o, level, output, error)) return failed(o.input + ": " + error);
  // Through a temporary file and a rename: a failed write leaves no half-written OUT.
  if (!writeOutputFile(o.output, o.input, output.data(), output.size(), o.force, error)) return failed(error);
  return kExitOk;
}

}  // namespace

ToolCommand signPdfCommand() {
  return {"sign-pdf", "sign a PDF (PAdES baseline, one incremental update)",
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
          "--force.",
          "kolvari sign-pdf --key signer.key --cert signer.pem --chain ca.pem --reason Approved in.pdf signed.pdf\n"
          "pdfsig signed.pdf",
          [](CLI::App& app) {
            auto o = std::make_shared<SignPdfOptions>();
            defineOptions(app, *o);
            return [o] { return signPdfWith(*o); };
          }};
}
