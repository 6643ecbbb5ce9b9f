// kolvari sign: the reference host. It loads the plug-in with dlopen, plays the host's part with OpenSSL
// (keys, hashing, signing) or a PKCS#11 token (signing), and drives the library through the signing run:
// signed attributes, data to be signed, signature, SignerInfo, container. Given many files it loads the
// plug-in, the keys and the certificates once and signs each file in turn.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "host_crypto.h"
#include "services/sign_services.h"
#include "signing/byte_sink.h"
#include "signing/content_stream.h"
#include "signing/host_signer.h"
#include "signing/output_file.h"
#include "signing/pkcs11_signer.h"
#include "signing/pkcs11_uri.h"
#include "signing/signature_builder.h"
#include "zarv_plugin.h"

namespace {

constexpr char kUsage[] =
    "usage: kolvari sign (--key KEY --cert CERT | --pkcs11 URI [--pkcs11-module PATH] [--cert CERT])\n"
    "                    [--chain CERTS]... [--crl CRL]... [--digest sha256|sha384|sha512]\n"
    "                    [--time YYYYMMDDhhmmssZ] [--attached] [--pem] [--plugin PATH]\n"
    "                    [--signer KEY,CERT]... [--signed-attr OID=HEXDER]... [--unsigned-attr OID=HEXDER]...\n"
    "                    [--der-order] [--out FILE] FILE\n"
    "       kolvari sign ... --out-dir DIR [--force] [--quiet] FILE...\n";
// The library's opt-in for DER SET OF order of the signed attributes.
constexpr char kDerOrderVariable[] = "KOLVARI_DER_ATTRIBUTE_ORDER";
constexpr char kPemLabel[] = "PKCS7";
constexpr char kSignatureSuffix[] = ".p7s";
// A test hook: "1" reads each input whole and has the plug-in encode an attached content itself, the
// reference that the streamed output is compared with.
constexpr char kInMemoryVariable[] = "KOLVARI_IN_MEMORY";
constexpr mode_t kCreateMode = 0666;  // less the umask, as any created file

// One signer: its key file and its certificate file (the signer certificate first).
struct SignerFiles {
  std::string key;
  std::string cert;
};

struct SignOptions {
  std::string key;
  std::string cert;
  std::vector<SignerFiles> moreSigners;
  std::vector<ExtraAttribute> signedAttributes;
  std::vector<ExtraAttribute> unsignedAttributes;
  SignServices services;
  bool derOrder = false;
  std::vector<std::string> chain;
  std::vector<std::string> crls;
  std::string digest = "sha256";
  std::string time;
  bool attached = false;
  bool pem = false;
  std::string out;
  std::string plugin;
  std::string pkcs11;
  std::string pkcs11Module;
  std::string outDir;
  bool force = false;
  bool quiet = false;
  std::vector<std::string> inputs;
};

// "KEY,CERT": both parts non-empty, split at the first comma.
bool parseSigner(const std::string& text, SignerFiles& out) {
  const size_t comma = text.find(',');
  if (comma == std::string::npos || comma == 0 || comma + 1 == text.size()) return false;
  out.key = text.substr(0, comma);
  out.cert = text.substr(comma + 1);
  return true;
}

// "OID=HEXDER": a dotted type and an even, non-empty run of hex digits. Whether the value is one DER element
// is left to the verifiers; the library takes the bytes as they are.
bool parseAttribute(const std::string& text, ExtraAttribute& out) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) return false;
  const std::string digits = text.substr(equals + 1);
  if (digits.empty() || digits.size() % 2 != 0) return false;
  out.oid = text.substr(0, equals);
  out.value.clear();
  for (size_t i = 0; i < digits.size(); i += 2) {
    const int high = hexDigitValue(digits[i]);
    const int low = hexDigitValue(digits[i + 1]);
    if (high < 0 || low < 0) return false;
    out.value.push_back(static_cast<unsigned char>(high * 16 + low));
  }
  return true;
}

// A signing time as the library takes it: YYYYMMDDhhmmssZ, or YYMMDDhhmmssZ.
bool isSigningTime(const std::string& t) {
  constexpr size_t kLongForm = 15;
  constexpr size_t kShortForm = 13;
  if ((t.size() != kLongForm && t.size() != kShortForm) || t.back() != 'Z') return false;
  for (size_t i = 0; i + 1 < t.size(); ++i) {
    if (t[i] < '0' || t[i] > '9') return false;
  }
  return true;
}

bool parseOptions(const Arguments& args, SignOptions& o) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](std::string& into) { return optionValue(args, i, into); };
    std::string v;
    const int service = parseSignServiceOption(args, i, o.services);
    if (service < 0) return false;
    if (service > 0) continue;
    if (a == "--key") {
      if (!value(o.key)) return false;
    } else if (a == "--cert") {
      if (!value(o.cert)) return false;
    } else if (a == "--chain") {
      if (!value(v)) return false;
      o.chain.push_back(v);
    } else if (a == "--crl") {
      if (!value(v)) return false;
      o.crls.push_back(v);
    } else if (a == "--digest") {
      if (!value(o.digest)) return false;
    } else if (a == "--time") {
      if (!value(o.time)) return false;
    } else if (a == "--out") {
      if (!value(o.out)) return false;
    } else if (a == "--plugin") {
      if (!value(o.plugin)) return false;
    } else if (a == "--pkcs11") {
      if (!value(o.pkcs11)) return false;
    } else if (a == "--pkcs11-module") {
      if (!value(o.pkcs11Module)) return false;
    } else if (a == "--out-dir") {
      if (!value(o.outDir)) return false;
    } else if (a == "--force") {
      o.force = true;
    } else if (a == "--quiet") {
      o.quiet = true;
    } else if (a == "--signer") {
      SignerFiles signer;
      if (!value(v) || !parseSigner(v, signer)) return false;
      o.moreSigners.push_back(signer);
    } else if (a == "--signed-attr" || a == "--unsigned-attr") {
      ExtraAttribute attribute;
      if (!value(v) || !parseAttribute(v, attribute)) return false;
      (a == "--signed-attr" ? o.signedAttributes : o.unsignedAttributes).push_back(attribute);
    } else if (a == "--der-order") {
      o.derOrder = true;
    } else if (a == "--attached") {
      o.attached = true;
    } else if (a == "--pem") {
      o.pem = true;
    } else if (!a.empty() && a[0] == '-') {
      return false;
    } else {
      o.inputs.push_back(a);
    }
  }
  // The first signer's key is a key file (with its certificate) or a key on a token, never both.
  const bool oneKey = o.pkcs11.empty() ? !o.key.empty() && !o.cert.empty() : o.key.empty();
  // Many files need a directory for their signatures; --out names the one output of one file.
  const bool outputs = o.outDir.empty() ? o.inputs.size() == 1 : o.out.empty();
  return oneKey && outputs && !o.inputs.empty() && (o.pkcs11Module.empty() || !o.pkcs11.empty()) &&
         (o.time.empty() || isSigningTime(o.time));
}

// DIR/NAME.p7s for the input DIR2/NAME.
std::string outputPath(const std::string& directory, const std::string& input) {
  const size_t slash = input.rfind('/');
  const std::string name = slash == std::string::npos ? input : input.substr(slash + 1);
  return directory + "/" + name + kSignatureSuffix;
}

// Writes a signature's bytes into a sink; false when the sink refused them (errno set) or, with a message in
// error, when the content could not be read.
using SignatureWriter = std::function<bool(ByteSink& sink, std::string& error)>;

// The signature of input: into --out-dir (never over an existing file unless --force), into --out, or to
// standard output; as PEM text with --pem.
bool writeOutput(const SignOptions& o, const std::string& input, const SignatureWriter& produce, std::string& error) {
  const SignatureWriter encoded = !o.pem ? produce : [&produce](ByteSink& sink, std::string& e) {
    PemSink pem(sink, kPemLabel);
    return produce(pem, e) && pem.finish();
  };
  const FileFiller fill = [&encoded](int fd, std::string& e) {
    FdSink sink(fd);
    return encoded(sink, e);
  };
  if (!o.outDir.empty()) return writeFileThrough(outputPath(o.outDir, input), o.force, fill, error);
  // --out has always replaced its file's content. Only a plain file is replaced by a rename: through a
  // symbolic link, a device or a pipe (--out /dev/stdout) the bytes are written as they always were, since a
  // rename would put a file in place of the link or the device node.
  struct stat target;
  const bool notRegular = !o.out.empty() && lstat(o.out.c_str(), &target) == 0 && !S_ISREG(target.st_mode);
  if (!o.out.empty() && !notRegular) return writeFileThrough(o.out, true, fill, error);
  std::fflush(stdout);
  const int fd = notRegular ? open(o.out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kCreateMode)
                            : STDOUT_FILENO;
  std::string fillError;
  bool written = fd >= 0 && fill(fd, fillError);
  if (notRegular && fd >= 0) written = close(fd) == 0 && written;
  if (!written) error = !fillError.empty() ? fillError : "cannot write the output";
  return written;
}

// What stays the same for every file of a run: the signers, their certificates and the container's
// certificates and CRLs.
struct SigningSetup {
  std::vector<std::unique_ptr<HostSigner>> signers;
  std::vector<Bytes> signerCertificates;
  std::vector<Bytes> certificateHashes;  // made by the first file's run, for all the others
  ContainerRequest container;
};

// The first signer from a token: its certificate from --cert, or else from the token.
bool openTokenSigner(const SignOptions& o, SigningSetup& s, std::string& error) {
  Pkcs11Uri uri;
  if (!parsePkcs11Uri(o.pkcs11, uri, error)) return false;
  std::unique_ptr<PKCS11Signer> signer = PKCS11Signer::open(o.pkcs11Module, uri, error);
  if (signer == nullptr) return false;
  std::vector<Bytes> file;
  if (o.cert.empty()) {
    file.emplace_back();
    if (!signer->certificate(file.front(), error)) return false;
  } else if (!readCertificates(o.cert, file, error)) {
    return false;
  }
  s.signers.push_back(std::move(signer));
  s.signerCertificates.push_back(file.front());
  addCertificates(file, s.container.certificates);
  return true;
}

bool loadSigners(const SignOptions& o, SigningSetup& s, std::string& error) {
  // --key/--cert (or --pkcs11) sign first, then each --signer in the order given.
  std::vector<SignerFiles> signerFiles;
  if (o.pkcs11.empty()) signerFiles.push_back({o.key, o.cert});
  signerFiles.insert(signerFiles.end(), o.moreSigners.begin(), o.moreSigners.end());
  if (!o.pkcs11.empty() && !openTokenSigner(o, s, error)) return false;
  for (const SignerFiles& files : signerFiles) {
    PrivateKey key = readPrivateKey(files.key, error);
    std::vector<Bytes> file;
    if (key == nullptr || !readCertificates(files.cert, file, error)) return false;
    s.signers.push_back(std::make_unique<KeyFileSigner>(std::move(key)));
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

// An input as it is signed: streamed from its file, or held whole when the plug-in encodes it (the test
// hook, or an attached signature of an input that cannot be read twice, such as a pipe).
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

// Writes the container: the plug-in's encoding as it is, or, for content streamed from the file, the
// plug-in's encoding around an empty content with the file's bytes spliced in.
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

// Signs one file with every signer and writes its signature.
bool signFile(const ZarvPlugin& zarv, const SignOptions& o, const DigestChoice* digest, SigningSetup& s,
              const std::string& input, std::string& error) {
  InputContent content;
  Bytes messageDigest;
  if (!hashInput(o, *digest, input, content, messageDigest, error)) return false;
  // The container's certificates and CRLs are the same for every file: only its content and signer infos change.
  ContainerRequest& container = s.container;
  container.digest = digest;
  container.signerInfos.assign(s.signers.size(), Bytes());
  for (size_t i = s.certificateHashes.size(); i < s.signers.size(); ++i) {
    s.certificateHashes.emplace_back();
    if (!digestBytes(*digest, s.signerCertificates[i], s.certificateHashes.back())) {
      s.certificateHashes.pop_back();
      error = "cannot hash: " + opensslError();
      return false;
    }
  }
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
    if (!buildSignerInfo(zarv, request, container.signerInfos[i], error)) return false;
  }
  Bytes message;
  const Bytes emptyContent;
  container.attachedContent = !o.attached ? nullptr : content.inMemory ? &content.whole : &emptyContent;
  const bool built = buildContainer(zarv, container, message, error);
  container.attachedContent = nullptr;  // content does not outlive this call
  return built && writeContainer(o, input, message, content, error);
}

}  // namespace

int runSign(const Arguments& args) {
  SignOptions o;
  if (!parseOptions(args, o)) {
    std::fprintf(stderr, "%s%s", kUsage, kSignServicesUsage);
    return kExitUsage;
  }
  const DigestChoice* digest = findDigest(o.digest);
  if (digest == nullptr) {
    std::fprintf(stderr, "kolvari sign: unknown digest '%s' (sha256, sha384 or sha512)\n", o.digest.c_str());
    return kExitUsage;
  }

  std::string error;
  SigningSetup setup;
  if (!loadSigners(o, setup, error)) {
    std::fprintf(stderr, "kolvari sign: %s\n", error.c_str());
    return kExitFailure;
  }

  // Set before the plug-in is loaded, so the library sees it when it builds the data to be signed.
  if (o.derOrder && setenv(kDerOrderVariable, "1", 1) != 0) {
    std::fprintf(stderr, "kolvari sign: cannot set %s\n", kDerOrderVariable);
    return kExitFailure;
  }
  ZarvPlugin zarv;
  if (!zarv.load(o.plugin.empty() ? defaultPluginPath() : o.plugin, error)) {
    std::fprintf(stderr, "kolvari sign: %s\n", error.c_str());
    return kExitFailure;
  }
  zarv.init();
  // The progress line is for a person watching a batch; a script reads only the messages and the status.
  ProgressLine progress(o.inputs.size(), !o.outDir.empty() && !o.quiet && isatty(STDERR_FILENO) != 0);
  size_t failed = 0;
  for (const std::string& input : o.inputs) {
    if (!signFile(zarv, o, digest, setup, input, error)) {
      progress.clear();
      std::fprintf(stderr, "kolvari sign: %s\n", error.c_str());
      ++failed;
    }
    progress.step();
  }
  progress.finish();
  if (failed > 0 && o.inputs.size() > 1) {
    std::fprintf(stderr, "kolvari sign: %zu of %zu files not signed\n", failed, o.inputs.size());
  }
  return failed == 0 ? kExitOk : kExitFailure;
}
