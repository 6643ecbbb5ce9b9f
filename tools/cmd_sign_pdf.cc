// kolvari sign-pdf: signs a PDF as a PAdES baseline signature. The PDF part (reading the input, the
// incremental update, the byte range) lives in tools/pdf; the CMS is built by the plug-in as in `kolvari sign`,
// detached over the byte range, with no signing-time attribute (the time is the signature dictionary's /M).
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include <openssl/x509.h>

#include "commands.h"
#include "host_crypto.h"
#include "pdf/pdf_update.h"
#include "pdf/truetype_font.h"
#include "services/sign_services.h"
#include "signing/host_signer.h"
#include "signing/key_source.h"
#include "signing/output_file.h"
#include "signing/pass_phrase.h"
#include "signing/signature_builder.h"
#include "zarv_plugin.h"

namespace {

constexpr char kUsage[] =
    "usage: kolvari sign-pdf (--key KEY --cert CERT | --p12 FILE [--cert CERT] |\n"
    "                         --pkcs11 URI [--pkcs11-module PATH] [--cert CERT]) [--pass SOURCE]\n"
    "                        [--chain CERTS]... [--digest sha256|sha384|sha512]\n"
    "                        [--tsa URL [--tsa-digest sha256|sha384|sha512] [--tsa-timeout SECONDS]]\n"
    "                        [--reason TEXT] [--location TEXT] [--contact TEXT] [--name TEXT] [--field NAME]\n"
    "                        [--visible PAGE,X,Y,W,H [--font FILE.ttf]] [--document-order] [--plugin PATH]\n"
    "                        IN.pdf OUT.pdf\n";
// The library's opt-in for DER SET OF order of the signed attributes; on by default here.
constexpr char kDerOrderVariable[] = "KOLVARI_DER_ATTRIBUTE_ORDER";
// Room in /Contents beyond the certificates: the signature value (up to RSA 8192), the signed attributes and
// the SignedData's own structure.
constexpr size_t kContentsOverhead = 4096;
// Room for a time-stamp token: its TSTInfo, the authority's signature and its certificate chain.
constexpr size_t kTimeStampRoom = 16384;

struct SignPdfOptions {
  std::string key;
  std::string cert;
  std::string p12;
  std::string pass;
  std::string pkcs11;
  std::string pkcs11Module;
  SignServices services;  // only the time stamp: long-term data would not fit a placeholder sized in advance
  std::vector<std::string> chain;
  std::string digest = "sha256";
  PdfSignatureFields fields;
  bool derOrder = true;
  std::string plugin;
  std::string font;
  std::string input;
  std::string output;
};

// "PAGE,X,Y,W,H": a page from 1 and a box of positive size, all within the largest page PDF allows.
bool parseVisible(const std::string& text, PdfVisibleBox& box) {
  constexpr double kMaxUserUnits = 14400;
  int page = 0;
  double x = 0, y = 0, w = 0, h = 0;
  int used = 0;
  if (std::sscanf(text.c_str(), "%d,%lf,%lf,%lf,%lf%n", &page, &x, &y, &w, &h, &used) != 5 ||
      static_cast<size_t>(used) != text.size() || page < 1) {
    return false;
  }
  for (double v : {x, y, w, h}) {
    if (!(v >= -kMaxUserUnits && v <= kMaxUserUnits)) return false;
  }
  if (!(w > 0) || !(h > 0)) return false;
  box = {page, x, y, w, h};
  return true;
}

bool parseOptions(const Arguments& args, SignPdfOptions& o) {
  std::vector<std::string> files;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](std::string& into) { return optionValue(args, i, into); };
    std::string v;
    bool ok = true;
    const int service = parseSignServiceOption(args, i, o.services);
    if (service != 0) {
      if (service < 0 || o.services.revocation.requested()) return false;
      continue;
    }
    if (a == "--key") {
      ok = value(o.key);
    } else if (a == "--cert") {
      ok = value(o.cert);
    } else if (a == "--p12") {
      ok = value(o.p12);
    } else if (a == "--pass") {
      ok = value(o.pass) && isPassSource(o.pass);
    } else if (a == "--pkcs11") {
      ok = value(o.pkcs11);
    } else if (a == "--pkcs11-module") {
      ok = value(o.pkcs11Module);
    } else if (a == "--chain") {
      ok = value(v);
      o.chain.push_back(v);
    } else if (a == "--digest") {
      ok = value(o.digest);
    } else if (a == "--reason") {
      ok = value(o.fields.reason);
    } else if (a == "--location") {
      ok = value(o.fields.location);
    } else if (a == "--contact") {
      ok = value(o.fields.contactInfo);
    } else if (a == "--name") {
      ok = value(o.fields.name);
    } else if (a == "--field") {
      ok = value(o.fields.fieldName) && !o.fields.fieldName.empty();
    } else if (a == "--visible") {
      ok = value(v) && parseVisible(v, o.fields.box);
      o.fields.visible = true;
    } else if (a == "--font") {
      ok = value(o.font);
    } else if (a == "--document-order") {
      o.derOrder = false;
    } else if (a == "--plugin") {
      ok = value(o.plugin);
    } else if (!a.empty() && a[0] == '-') {
      ok = false;
    } else {
      files.push_back(a);
    }
    if (!ok) return false;
  }
  if (files.size() != 2) return false;
  o.input = files[0];
  o.output = files[1];
  // A key file with its certificate, a PKCS #12 file, or a token (whose certificate --cert may name instead).
  return namesOneKey({o.key, o.cert, o.p12, o.pkcs11, o.pkcs11Module});
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

bool signPdf(const ZarvPlugin& zarv, const PdfSigningRun& run, const Bytes& input, PdfSignatureFields fields,
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

// --font FILE: a TrueType font for the visible appearance; only with --visible.
int loadFont(const SignPdfOptions& o, PdfSignatureFields& fields) {
  if (!fields.visible) {
    std::fprintf(stderr, "kolvari sign-pdf: --font %s: needs --visible\n", o.font.c_str());
    return kExitUsage;
  }
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

}  // namespace

int runSignPdf(const Arguments& args) {
  SignPdfOptions o;
  if (!parseOptions(args, o)) {
    std::fprintf(stderr, "%s", kUsage);
    return kExitUsage;
  }
  PdfSigningRun run;
  run.digest = findDigest(o.digest);
  if (run.digest == nullptr) {
    std::fprintf(stderr, "kolvari sign-pdf: unknown digest '%s' (sha256, sha384 or sha512)\n", o.digest.c_str());
    return kExitUsage;
  }
  std::string error;
  if (!o.fields.fieldName.empty() && !checkPdfFieldName(o.fields.fieldName, error)) {
    std::fprintf(stderr, "kolvari sign-pdf: --field %s: %s\n", o.fields.fieldName.c_str(), error.c_str());
    return kExitUsage;
  }
  PassPhrase pass(o.pass);
  std::unique_ptr<HostSigner> signer =
      openSigner({o.key, o.cert, o.p12, o.pkcs11, o.pkcs11Module}, pass, run.certificates, error);
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
  if (!readWholeFile(o.input, input)) return failed("cannot read " + o.input);

  // Set before the plug-in is loaded, so the library sees it when it builds the data to be signed.
  if (o.derOrder && setenv(kDerOrderVariable, "1", 1) != 0) return failed(std::string("cannot set ") + kDerOrderVariable);
  ZarvPlugin zarv;
  if (!zarv.load(o.plugin.empty() ? defaultPluginPath() : o.plugin, error)) return failed(error);
  zarv.init();
  run.signer = signer.get();
  run.afterSignature = signServicesHook(o.services, run.certificates);
  if (!o.services.tsa.url.empty()) run.extraRoom = kTimeStampRoom;
  Bytes output;
  if (!signPdf(zarv, run, input, o.fields, output, error)) return failed(o.input + ": " + error);
  // Through a temporary file and a rename: a failed write leaves no half-written OUT.
  if (!writeWholeFile(o.output, output.data(), output.size(), true, error)) return failed(error);
  return kExitOk;
}
