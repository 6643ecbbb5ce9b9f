// kolvari sign: the reference host. It loads the plug-in with dlopen, plays the host's part with OpenSSL
// (keys, hashing, signing) and drives the library through the signing run: signed attributes, data to be
// signed, signature, SignerInfo, container.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "host_crypto.h"
#include "services/sign_services.h"
#include "signing/host_signer.h"
#include "signing/signature_builder.h"
#include "zarv_plugin.h"

namespace {

constexpr char kUsage[] =
    "usage: kolvari sign --key KEY --cert CERT [--chain CERTS]... [--crl CRL]... [--digest sha256|sha384|sha512]\n"
    "                    [--time YYYYMMDDhhmmssZ] [--attached] [--pem] [--out FILE] [--plugin PATH]\n"
    "                    [--signer KEY,CERT]... [--signed-attr OID=HEXDER]... [--unsigned-attr OID=HEXDER]...\n"
    "                    [--der-order] FILE\n";
// The library's opt-in for DER SET OF order of the signed attributes.
constexpr char kDerOrderVariable[] = "KOLVARI_DER_ATTRIBUTE_ORDER";
constexpr char kPemLabel[] = "PKCS7";

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
  std::string input;
};

// "KEY,CERT": both parts non-empty, split at the first comma.
bool parseSigner(const std::string& text, SignerFiles& out) {
  const size_t comma = text.find(',');
  if (comma == std::string::npos || comma == 0 || comma + 1 == text.size()) return false;
  out.key = text.substr(0, comma);
  out.cert = text.substr(comma + 1);
  return true;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
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
    const int high = hexDigit(digits[i]);
    const int low = hexDigit(digits[i + 1]);
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
    auto value = [&](std::string& into) {
      if (i + 1 >= args.size()) return false;
      into = args[++i];
      return true;
    };
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
    } else if (o.input.empty()) {
      o.input = a;
    } else {
      return false;
    }
  }
  return !o.key.empty() && !o.cert.empty() && !o.input.empty() && (o.time.empty() || isSigningTime(o.time));
}

bool writeOutput(const SignOptions& o, const Bytes& der) {
  std::string pem;
  const char* bytes = reinterpret_cast<const char*>(der.data());
  size_t size = der.size();
  if (o.pem) {
    pem = toPem(der, kPemLabel);
    bytes = pem.data();
    size = pem.size();
  }
  if (o.out.empty()) return std::fwrite(bytes, 1, size, stdout) == size && std::fflush(stdout) == 0;
  std::ofstream file(o.out, std::ios::binary | std::ios::trunc);
  file.write(bytes, static_cast<std::streamsize>(size));
  return static_cast<bool>(file.flush());
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

  // --key/--cert sign first, then each --signer in the order given.
  std::vector<SignerFiles> signerFiles{{o.key, o.cert}};
  signerFiles.insert(signerFiles.end(), o.moreSigners.begin(), o.moreSigners.end());
  std::string error;
  std::vector<std::unique_ptr<HostSigner>> signers;
  std::vector<Bytes> signerCertificates;
  ContainerRequest container;
  container.digest = digest;
  bool read = true;
  for (size_t i = 0; read && i < signerFiles.size(); ++i) {
    PrivateKey key = readPrivateKey(signerFiles[i].key, error);
    std::vector<Bytes> file;
    read = key != nullptr && readCertificates(signerFiles[i].cert, file, error);
    if (read) {
      signers.push_back(std::make_unique<KeyFileSigner>(std::move(key)));
      signerCertificates.push_back(file.front());
      addCertificates(file, container.certificates);
    }
  }
  for (size_t i = 0; read && i < o.chain.size(); ++i) {
    std::vector<Bytes> file;
    read = readCertificates(o.chain[i], file, error);
    if (read) addCertificates(file, container.certificates);
  }
  for (size_t i = 0; read && i < o.crls.size(); ++i) read = readCrls(o.crls[i], container.crls, error);
  Bytes content;
  if (read && !readWholeFile(o.input, content)) {
    error = "cannot read " + o.input;
    read = false;
  }
  Bytes messageDigest;
  if (read && !digestBytes(*digest, content, messageDigest)) {
    error = "cannot hash: " + opensslError();
    read = false;
  }
  if (!read) {
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
  container.signerInfos.resize(signers.size());
  for (size_t i = 0; i < signers.size(); ++i) {
    SignerInfoRequest request;
    request.digest = digest;
    request.signer = signers[i].get();
    request.certificate = signerCertificates[i];
    request.messageDigest = messageDigest;
    request.time = o.time;
    request.signedAttributes = o.signedAttributes;
    request.unsignedAttributes = o.unsignedAttributes;
    request.afterSignature = signServicesHook(o.services, container.certificates);
    if (!buildSignerInfo(zarv, request, container.signerInfos[i], error)) {
      std::fprintf(stderr, "kolvari sign: %s\n", error.c_str());
      return kExitFailure;
    }
  }
  if (o.attached) container.attachedContent = &content;
  Bytes message;
  if (!buildContainer(zarv, container, message, error)) {
    std::fprintf(stderr, "kolvari sign: %s\n", error.c_str());
    return kExitFailure;
  }
  if (!writeOutput(o, message)) {
    std::fprintf(stderr, "kolvari sign: cannot write the output\n");
    return kExitFailure;
  }
  return kExitOk;
}
