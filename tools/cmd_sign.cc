// kolvari sign: the reference host. It plays the host's part with OpenSSL (keys, hashing, signing) or a
// PKCS#11 token (signing), and drives the library linked into the tool through the ZARV_ calls of the signing
// run: signed attributes, data to be signed, signature, SignerInfo, container. Given many files it loads the
// keys and the certificates once and signs each file in turn.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "cli/exit_status.h"
#include "cli/validators.h"
#include "cmd_sign.h"
#include "command_list.h"
#include "host_crypto.h"
#include "io/hex_text.h"
#include "io/input_file.h"
#include "services/sign_services.h"
#include "signing/batch_runner.h"
#include "signing/byte_sink.h"
#include "signing/content_stream.h"
#include "signing/host_signer.h"
#include "signing/key_source.h"
#include "signing/output_file.h"
#include "signing/pass_phrase.h"
#include "signing/signature_builder.h"
#include "zarv_functions.h"

namespace {

// The library's opt-in for DER SET OF order of the signed attributes.
constexpr char kDerOrderVariable[] = "KOLVARI_DER_ATTRIBUTE_ORDER";
constexpr char kPemLabel[] = "PKCS7";
constexpr char kSignatureSuffix[] = ".p7s";
// A test hook: "1" reads each input whole and has the library encode an attached content itself, the
// reference that the streamed output is compared with.
constexpr char kInMemoryVariable[] = "KOLVARI_IN_MEMORY";
constexpr mode_t kCreateMode = 0666;  // less the umask, as any created file

// One signer: its key file and its certificate file (the signer certificate first).
struct SignerFiles {
  std::string key;
  std::string cert;
};

struct SignOptions {
  SignerSource first;  // --key/--cert, --p12 or --pkcs11: the first signer
  std::string pass;
  std::vector<SignerFiles> moreSigners;
  std::vector<std::string> signedAttributeTexts;  // OID=HEXDER as given
  std::vector<std::string> unsignedAttributeTexts;
  std::vector<ExtraAttribute> signedAttributes;
  std::vector<ExtraAttribute> unsignedAttributes;
  SignServices services;
  bool derOrder = true;  // the order every verifier accepts; --document-order gives the library's own
  std::vector<std::string> chain;
  std::vector<std::string> crls;
  std::string digest = "sha256";
  std::string time;
  bool attached = false;
  bool pem = false;
  std::string out;
  std::string outDir;
  bool force = false;
  bool quiet = false;
  unsigned jobs = defaultJobs();
  std::vector<std::string> inputs;
};

// "KEY,CERT": both parts non-empty, split at the first comma.
bool isSigner(const std::string& text) {
  const size_t comma = text.find(',');
  return comma != std::string::npos && comma != 0 && comma + 1 != text.size();
}

SignerFiles parseSigner(const std::string& text) {
  const size_t comma = text.find(',');
  return {text.substr(0, comma), text.substr(comma + 1)};
}

// "OID=HEXDER": a dotted type and an even, non-empty run of hex digits. Whether the value is one DER element
// is left to the verifiers; the library takes the bytes as they are.
std::string attributeFault(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) return "not OID=HEXDER";
  const std::string digits = text.substr(equals + 1);
  if (digits.empty() || digits.size() % 2 != 0) return "the value is not an even number of hex digits";
  for (char c : digits) {
    if (hexDigitValue(c) < 0) return "the value is not an even number of hex digits";
  }
  return std::string();
}

CLI::Validator attributeCheck() {
  return valueCheck("attribute", [](std::string& v) { return attributeFault(v); });
}

ExtraAttribute parseAttribute(const std::string& text) {
  const size_t equals = text.find('=');
  ExtraAttribute out;
  out.oid = text.substr(0, equals);
  for (size_t i = equals + 1; i + 1 < text.size(); i += 2) {
    out.value.push_back(static_cast<unsigned char>(hexDigitValue(text[i]) * 16 + hexDigitValue(text[i + 1])));
  }
  return out;
}

void defineOptions(CLI::App& app, SignOptions& o) {
  const std::string signer = "signer";
  addSignerKeyOptions(app, o.first, o.pass);
  app.add_option_function<std::string>(
         "--signer", [&o](const std::string& v) { o.moreSigners.push_back(parseSigner(v)); },
         "one more signer in the same SignedData (repeatable; --pass serves its key too)")
      ->option_text("KEY,CERT")
      ->check(valueCheck("signer", [](std::string& v) { return isSigner(v) ? "" : "not KEY,CERT"; }))
      ->allow_extra_args(false)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->group(signer);

  const std::string content = "signature";
  addList(app, "--chain", o.chain, "CERTS", "more certificates for the SignedData (repeatable)")->group(content);
  addList(app, "--crl", o.crls, "CRL", "a CRL for the SignedData (repeatable)")->group(content);
  addValue(app, "--digest", o.digest, "NAME", "sha256 (default), sha384 or sha512")
      ->check(digestName())
      ->group(content);
  addValue(app, "--time", o.time, "TIME",
           "the signing time, YYYYMMDDhhmmssZ or YYMMDDhhmmssZ (YY below 50 is 20YY, else 19YY; default: now)")
      ->transform(signingTime())
      ->group(content);
  addFlag(app, "--attached", o.attached, "carry FILE inside the SignedData (default: detached)")->group(content);
  addList(app, "--signed-attr", o.signedAttributeTexts, "OID=HEXDER",
          "an extra signed attribute, its value one DER element in hex (repeatable)")
      ->check(attributeCheck())
      ->group(content);
  addList(app, "--unsigned-attr", o.unsignedAttributeTexts, "OID=HEXDER", "an extra unsigned attribute (repeatable)")
      ->check(attributeCheck())
      ->group(content);
  app.add_flag_callback("--document-order", [&o] { o.derOrder = false; },
                        "signed attributes in the order the library adds them; by default they are in DER SET OF "
                        "order (KOLVARI_DER_ATTRIBUTE_ORDER=1), which every verifier accepts and those that "
                        "re-encode the set (GnuTLS, BouncyCastle) need")
      ->group(content);
  app.add_flag_callback("--der-order", [] {}, "DER SET OF order, the default (accepted; changes nothing)")
      ->group(content);
  addTimeStampOptions(app, o.services);
  addRevocationOptions(app, o.services);

  const std::string output = "output";
  addValue(app, "--out", o.out, "FILE",
           "where to write the signature of the one FILE (default: standard output); an existing file is "
           "refused unless --force")
      ->group(output);
  addValue(app, "--out-dir", o.outDir, "DIR", "write one DIR/FILE.p7s per FILE")->group(output)->excludes("--out");
  addFlag(app, "--force", o.force, "replace an existing output file (never the input itself)")->group(output);
  addFlag(app, "--pem", o.pem, "write PEM instead of DER")->group(output);
  addFlag(app, "--quiet", o.quiet, "no progress line (it is shown only on a terminal anyway)")->group(output);
  app.add_option("--jobs", o.jobs,
                 "with --out-dir, sign N files at a time (default: the number of cores); messages and outputs "
                 "are the same as with --jobs 1")
      ->option_text("N")
      ->check(jobsCount())
      ->group(output);
  addFiles(app, "FILE", o.inputs, "the files to sign");
}

// The rules between options that CLI11's own do not say; a wrong command line is a UsageError.
void checkOptions(SignOptions& o) {
  const std::string keyFault = signerKeyFault(o.first);
  if (!keyFault.empty()) throw UsageError(keyFault);
  if (o.outDir.empty() && o.inputs.size() > 1) throw UsageError("more than one FILE needs --out-dir DIR");
  for (const std::string& text : o.signedAttributeTexts) o.signedAttributes.push_back(parseAttribute(text));
  for (const std::string& text : o.unsignedAttributeTexts) o.unsignedAttributes.push_back(parseAttribute(text));
}

// DIR/NAME.p7s for the input DIR2/NAME.
std::string outputPath(const std::string& directory, const std::string& input) {
  return batchOutputPath(directory, input, kSignatureSuffix);
}

// Writes a signature's bytes into a sink; false when the sink refused them (errno set) or, with a message in
// error, when the content could not be read.
using SignatureWriter = std::function<bool(ByteSink& sink, std::string& error)>;

// The signature of input: into --out-dir, into --out, or to standard output; as PEM text with --pem. A file
// is refused when it exists (unless --force) or is the input itself.
bool writeOutput(const SignOptions& o, const std::string& input, const SignatureWriter& produce, std::string& error) {
  const SignatureWriter encoded = !o.pem ? produce : [&produce](ByteSink& sink, std::string& e) {
    PemSink pem(sink, kPemLabel);
    return produce(pem, e) && pem.finish();
  };
  const FileFiller fill = [&encoded](int fd, std::string& e) {
    FdSink sink(fd);
    return encoded(sink, e);
  };
  if (!o.outDir.empty()) return writeOutputFile(outputPath(o.outDir, input), input, fill, o.force, error);
  // Only a plain file is replaced by a rename: through a symbolic link, a device or a pipe (--out /dev/stdout)
  // the bytes are written as they come, since a rename would put a file in place of the link or the device node.
  struct stat target;
  const bool notRegular = !o.out.empty() && lstat(o.out.c_str(), &target) == 0 && !S_ISREG(target.st_mode);
  if (!o.out.empty() && !notRegular) return writeOutputFile(o.out, input, fill, o.force, error);
  if (notRegular && !checkOutput(o.out, input, o.force, error)) return false;
  std::fflush(stdout);
  const int fd = notRegular ? open(o.out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kCreateMode)
                            : STDOUT_FILENO;
  std::string fillError;
  bool written = fd >= 0 && fill(fd, fillError);
  if (notRegular && fd >= 0) written = close(fd) == 0 && written;
  if (!written) error = !fillError.empty() ? fillError : "cannot write the output";
  return written;
}

// Every file the signers and the container are read from opens as an input (io/input_file.h), so that a
// directory or a device is named as such.
bool checkSignerInputs(const SignOptions& o, std::string& error) {
  std::vector<std::string> paths = {o.first.key, o.first.cert, o.first.p12};
  for (const SignerFiles& s : o.moreSigners) paths.insert(paths.end(), {s.key, s.cert});
  for (const auto* list : {&o.chain, &o.crls, &o.services.revocation.ocspResponseFiles,
                           &o.services.revocation.crlFiles}) {
    paths.insert(paths.end(), list->begin(), list->end());
  }
  for (const std::string& path : paths) {
    if (!path.empty() && !checkInputFile(path, error)) return false;
  }
  return true;
}

// What stays the same for every file of a run: the signers, their certificates and the container's
// certificates and CRLs.
struct SigningSetup {
  std::vector<std::unique_ptr<HostSigner>> signers;
  std::vector<Bytes> signerCertificates;
  std::vector<Bytes> certificateHashes;  // made once, for every file
  ContainerRequest container;           // without signer infos
  std::mutex libraryLock;               // the library's signer-info calls, one thread at a time
};

bool hashSignerCertificates(const DigestChoice& digest, SigningSetup& s, std::string& error) {
  s.certificateHashes.resize(s.signerCertificates.size());
  for (size_t i = 0; i < s.signerCertificates.size(); ++i) {
    if (!digestBytes(digest, s.signerCertificates[i], s.certificateHashes[i])) {
      error = "cannot hash: " + opensslError();
      return false;
    }
  }
  return true;
}

bool loadSigners(const SignOptions& o, SigningSetup& s, std::string& error) {
  // --key/--cert (or --p12, or --pkcs11) sign first, then each --signer in the order given; --pass serves
  // every encrypted key among them.
  std::vector<SignerSource> sources{o.first};
  for (const SignerFiles& files : o.moreSigners) sources.push_back({files.key, files.cert, {}, {}, {}});
  PassPhrase pass(o.pass);
  for (const SignerSource& source : sources) {
    std::vector<Bytes> file;
    std::unique_ptr<HostSigner> signer = openSigner(source, pass, file, error);
    if (signer == nullptr) return false;
    s.signers.push_back(std::move(signer));
    s.signerCertificates.push_back(file.front());
    addCertificates(file, s.container.certificates);
  }
  for (const std::string& chain : o.chain) {
    std::vector<Bytes> file;
    if (!readCertificates(chain, file, error)) return false;
    addCertificates(file, s.container.certificates);
  }
  for (const std::string& crl : o.crls) {
    if (!readCrls(crl, s.container.crls, error)) return false;
  }
  return true;
}

// An input as it is signed: streamed from its file, or held whole when the library encodes it (the test
// hook, or an attached signature of an input that cannot be read twice, a pipe).
struct InputContent {
  ContentFile file;
  Bytes whole;
  bool inMemory = false;
};

bool inMemoryRequested() {
  const char* value = std::getenv(kInMemoryVariable);
  return value != nullptr && std::strcmp(value, "1") == 0;
}

bool hashInput(const SignOptions& o, const DigestChoice& digest, const std::string& input, InputContent& content,
               Bytes& messageDigest, std::string& error) {
  if (!content.file.open(input, error)) return false;
  content.inMemory = inMemoryRequested() || (o.attached && !content.file.rereadable());
  if (!content.inMemory) return content.file.digest(digest, messageDigest, error);
  if (!content.file.readAll(content.whole, error)) return false;
  if (!digestBytes(digest, content.whole, messageDigest)) {
    error = "cannot hash: " + opensslError();
    return false;
  }
  return true;
}

// Writes the container: the library's encoding as it is, or, for content streamed from the file, the
// library's encoding around an empty content with the file's bytes spliced in.
bool writeContainer(const SignOptions& o, const std::string& input, const Bytes& message, InputContent& content,
                    std::string& error) {
  if (!o.attached || content.inMemory) {
    return writeOutput(o, input, [&message](ByteSink& sink, std::string&) { return sink.write(message); }, error);
  }
  SplicedContainer parts;
  if (!spliceContent(message, content.file.size(), parts, error)) return false;
  const SignatureWriter spliced = [&parts, &content](ByteSink& sink, std::string& e) {
    return sink.write(parts.head) && content.file.copyTo(sink, e) && sink.write(parts.tail);
  };
  return writeOutput(o, input, spliced, error);
}

// Signs one file with every signer and writes its signature. container is the caller's (one per thread):
// its certificates and CRLs are the same for every file, only its content and signer infos change.
bool signFile(const ZarvFunctions& zarv, const SignOptions& o, const DigestChoice* digest, SigningSetup& s,
              ContainerRequest& container, const std::string& input, std::string& error) {
  if (!o.outDir.empty() && !checkOutput(outputPath(o.outDir, input), input, o.force, error)) return false;
  InputContent content;
  Bytes messageDigest;
  if (!hashInput(o, *digest, input, content, messageDigest, error)) return false;
  container.digest = digest;
  container.signerInfos.assign(s.signers.size(), Bytes());
  for (size_t i = 0; i < s.signers.size(); ++i) {
    SignerInfoRequest request;
    request.digest = digest;
    request.signer = s.signers[i].get();
    request.certificate = s.signerCertificates[i];
    request.certificateHash = s.certificateHashes[i];
    request.messageDigest = messageDigest;
    request.time = o.time;
    request.signedAttributes = o.signedAttributes;
    request.unsignedAttributes = o.unsignedAttributes;
    request.afterSignature = signServicesHook(o.services, container.certificates);
    request.libraryLock = &s.libraryLock;
    if (!buildSignerInfo(zarv, request, container.signerInfos[i], error)) return false;
  }
  Bytes message;
  const Bytes emptyContent;
  container.attachedContent = !o.attached ? nullptr : content.inMemory ? &content.whole : &emptyContent;
  const bool built = buildContainer(zarv, container, message, error);
  container.attachedContent = nullptr;  // content does not outlive this call
  return built && writeContainer(o, input, message, content, error);
}

// What the interrupted batch has done, for the message a signal prints.
std::string interruptNote(size_t signedCount, size_t total, const std::string& last) {
  return batchInterruptNote("sign", "signed", signedCount, total, last);
}

int signWith(SignOptions& o) {
  checkOptions(o);
  const DigestChoice* digest = findDigest(o.digest);
  std::string error;
  SigningSetup setup;
  const bool oneOutput = o.outDir.empty() && !o.out.empty();
  if (!checkSignerInputs(o, error) || (oneOutput && !checkOutput(o.out, o.inputs.front(), o.force, error)) ||
      !loadSigners(o, setup, error) || !hashSignerCertificates(*digest, setup, error)) {
    std::fprintf(stderr, "kolvari sign: %s\n", error.c_str());
    return kExitFailure;
  }

  // Set before the first signing call: the library reads it whenever it builds the data to be signed.
  if (o.derOrder ? setenv(kDerOrderVariable, "1", 1) != 0 : unsetenv(kDerOrderVariable) != 0) {
    std::fprintf(stderr, "kolvari sign: cannot set %s\n", kDerOrderVariable);
    return kExitFailure;
  }
  const ZarvFunctions& zarv = ZarvFunctions::linked();
  zarv.init();
  // The progress line is for a person watching a batch; a script reads only the messages and the status.
  ProgressLine progress(o.inputs.size(), !o.outDir.empty() && !o.quiet && isatty(STDERR_FILENO) != 0);
  size_t failed = 0;
  size_t signedCount = 0;
  const bool batch = !o.outDir.empty();
  if (batch) setInterruptNote(interruptNote(0, o.inputs.size(), ""));
  const unsigned jobs = batchJobs(o.outDir, o.inputs, kSignatureSuffix, o.jobs);
  std::vector<ContainerRequest> containers(jobs, setup.container);
  std::vector<std::string> errors(o.inputs.size());
  std::vector<char> signedOk(o.inputs.size(), 0);
  std::mutex noteLock;
  const BatchWork work = [&](size_t item, unsigned worker) {
    signedOk[item] = signFile(zarv, o, digest, setup, containers[worker], o.inputs[item], errors[item]) ? 1 : 0;
    // The note counts every signature in place, in the order they were finished.
    if (signedOk[item] != 0 && batch) {
      const std::lock_guard<std::mutex> hold(noteLock);
      setInterruptNote(interruptNote(++signedCount, o.inputs.size(), o.inputs[item]));
    }
  };
  // Reported in the order of the inputs, whichever thread finished first.
  const BatchReport report = [&](size_t item) {
    if (signedOk[item] == 0) {
      progress.clear();
      std::fprintf(stderr, "kolvari sign: %s\n", errors[item].c_str());
      ++failed;
    }
    std::string().swap(errors[item]);
    progress.step();
  };
  runBatch(o.inputs.size(), jobs, work, report);
  progress.finish();
  if (failed > 0 && o.inputs.size() > 1) {
    std::fprintf(stderr,
                 "kolvari sign: %zu of %zu files not signed (each named above); the other %zu signatures are "
                 "whole in %s\n",
                 failed, o.inputs.size(), o.inputs.size() - failed, o.outDir.c_str());
  }
  return failed == 0 ? kExitOk : kExitFailure;
}

}  // namespace

ToolCommand signCommand() {
  return {"sign", "sign files through the library (OpenSSL hashes, a key file or a PKCS#11 token signs)",
          "The reference host: hashes FILE and the signer certificate with OpenSSL, has the "
          "library build the signed attributes, signs them (RSA PKCS #1 v1.5 or ECDSA) and has the library encode "
          "the SignerInfo and the SignedData. The signer is --key with --cert, --p12 or --pkcs11. Given many files "
          "with --out-dir, the keys and the certificates are loaded once and each FILE gets "
          "DIR/FILE.p7s, --jobs files at a time, with the messages in the order of the files; a file that cannot be read or signed is reported and skipped, and the exit status is 1 "
          "when any was. A key that does not belong to its certificate is refused before anything is written. An "
          "output appears whole or not at all, also on a full disk or when the run is interrupted.",
          "kolvari sign --key signer.key --cert signer.pem --chain ca.pem --out document.p7s document.txt\n"
          "openssl cms -verify -binary -inform DER -in document.p7s -content document.txt -CAfile ca.pem\n"
          "kolvari sign --pkcs11 'pkcs11:token=demo;object=signer?pin-source=file:pin.txt' --out-dir out *.txt\n"
          "kolvari sign --p12 signer.p12 --pass env:SIGNER_PASS --out document.p7s document.txt",
          [](CLI::App& app) {
            auto o = std::make_shared<SignOptions>();
            defineOptions(app, *o);
            return [o] { return signWith(*o); };
          }};
}

int runSign(const Arguments& args) {
  Arguments all = {"sign"};
  all.insert(all.end(), args.begin(), args.end());
  return runToolCommand({signCommand()}, all);
}
