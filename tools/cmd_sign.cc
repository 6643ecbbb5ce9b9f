// kolvari sign: the reference host. It loads the plug-in with dlopen, plays the host's part with OpenSSL
// (keys, hashing, signing) and drives the library through the signing run: signed attributes, data to be
// signed, signature, SignerInfo, container.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "asn1/cvel_a1_node.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_oid.h"
#include "asn1/cvel_time.h"
#include "commands.h"
#include "host_crypto.h"
#include "zarv_plugin.h"

namespace {

constexpr char kUsage[] =
    "usage: kolvari sign --key KEY --cert CERT [--chain CERTS]... [--crl CRL]... [--digest sha256|sha384|sha512]\n"
    "                    [--time YYYYMMDDhhmmssZ] [--attached] [--pem] [--out FILE] [--plugin PATH]\n"
    "                    [--signer KEY,CERT]... [--signed-attr OID=HEXDER]... [--unsigned-attr OID=HEXDER]...\n"
    "                    [--der-order] FILE\n";
constexpr uint32_t kReplace = 1;
// Extra attributes are added beside what is already there, never in place of it.
constexpr uint32_t kAddValue = 0;
// The library's opt-in for DER SET OF order of the signed attributes.
constexpr char kDerOrderVariable[] = "KOLVARI_DER_ATTRIBUTE_ORDER";
constexpr char kPemLabel[] = "PKCS7";

// One signer: its key file and its certificate file (the signer certificate first).
struct SignerFiles {
  std::string key;
  std::string cert;
};

// An extra attribute: dotted type and one complete DER value.
struct ExtraAttribute {
  std::string oid;
  Bytes value;
};

struct SignOptions {
  std::string key;
  std::string cert;
  std::vector<SignerFiles> moreSigners;
  std::vector<ExtraAttribute> signedAttributes;
  std::vector<ExtraAttribute> unsignedAttributes;
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

// Reports a failed library call; true when the call succeeded.
bool called(const char* function, uint32_t result) {
  if (result == ZARV_OK) return true;
  std::fprintf(stderr, "kolvari sign: %s returned %s\n", function, describeResult(result).c_str());
  return false;
}

// Owns a signer-info or container handle for the length of a run, and gives it back to the plug-in.
template <typename Record>
class OwnedHandle {
 public:
  using Release = uint32_t (*)(Record*);
  explicit OwnedHandle(Release release) : release_(release) {}
  OwnedHandle(const OwnedHandle&) = delete;
  OwnedHandle& operator=(const OwnedHandle&) = delete;
  ~OwnedHandle() {
    if (handle_ != nullptr) release_(handle_);
  }
  Record** out() { return &handle_; }
  Record* get() const { return handle_; }

 private:
  Release release_;
  Record* handle_ = nullptr;
};

// The encoded SignerInfo for content, made by the library around the host's signature.
bool buildSignerInfo(const ZarvPlugin& zarv, const SignOptions& o, const DigestChoice& digest, EVP_PKEY* key,
                     const Bytes& certificate, const Bytes& content, Bytes& signerInfo) {
  Bytes messageDigest;
  Bytes certificateHash;
  if (!digestBytes(digest, content, messageDigest) || !digestBytes(digest, certificate, certificateHash)) {
    std::fprintf(stderr, "kolvari sign: cannot hash: %s\n", opensslError().c_str());
    return false;
  }
  const char* signatureOid = signatureOidFor(key, digest);
  if (signatureOid == nullptr) {
    std::fprintf(stderr, "kolvari sign: only RSA and EC keys are supported\n");
    return false;
  }
  std::string time = o.time;
  if (time.empty()) {
    CvelString now;
    if (currentTime(now, 0) != kCvelOk) {
      std::fprintf(stderr, "kolvari sign: cannot read the clock\n");
      return false;
    }
    time = now.c_str();
  }

  OwnedHandle<SignerInfoRecord> signer(zarv.releaseSignerInfo);
  Bytes dtbs;
  if (!called("ZARV_CreateSignerInfo", zarv.createSignerInfo(signer.out())) ||
      !called("ZARV_SetDataHash", zarv.setDataHash(signer.get(), messageDigest, digest.digestOid, kReplace)) ||
      !called("ZARV_SetSignerCertificate",
              zarv.setSignerCertificate(signer.get(), certificate, certificateHash, digest.digestOid)) ||
      !called("ZARV_SetSigningTime", zarv.setSigningTime(signer.get(), time)) ||
      !called("ZARV_SetContentType", zarv.setContentType(signer.get(), Bytes()))) {
    return false;
  }
  for (const ExtraAttribute& a : o.signedAttributes) {
    if (!called("ZARV_AddSignedAttribute", zarv.addSignedAttribute(signer.get(), a.oid, a.value, kAddValue))) {
      return false;
    }
  }
  if (!called("ZARV_GetDTBS", zarv.getDTBS(signer.get(), &dtbs))) return false;
  Bytes signature;
  std::string error;
  if (!signBytes(key, digest, dtbs, signature, error)) {
    std::fprintf(stderr, "kolvari sign: %s\n", error.c_str());
    return false;
  }
  if (!called("ZARV_SetP1Signature", zarv.setP1Signature(signer.get(), signatureOid, signature))) return false;
  for (const ExtraAttribute& a : o.unsignedAttributes) {
    if (!called("ZARV_AddUnsignedAttribute", zarv.addUnsignedAttribute(signer.get(), a.oid, a.value, kAddValue))) {
      return false;
    }
  }
  return called("ZARV_EncodeSignerInfo", zarv.encodeSignerInfo(signer.get(), &signerInfo));
}

// ContentInfo { id-data, [0] { OCTET STRING content } } for attached signing.
bool attachedContentInfo(const Bytes& content, Bytes& out) {
  CvelA1Node info = CvelA1Node::constructed(
      kTagSequence,
      {CvelA1Node::raw(kDerOidData, sizeof kDerOidData),
       CvelA1Node::constructed(kTagContext0, {CvelA1Node::primitive(kTagOctetString, content.data(), content.size())})});
  return info.appendTo(out) == kCvelOk;
}

bool buildContainer(const ZarvPlugin& zarv, const SignOptions& o, const DigestChoice& digest,
                    const std::vector<Bytes>& certificates, const std::vector<Bytes>& crls, const Bytes& content,
                    const std::vector<Bytes>& signerInfos, Bytes& out) {
  CvelString digestOid;
  if (fromDotted(digest.digestOid, digestOid, 0) != kCvelOk) return false;
  Bytes digestOctets(digestOid.data(), digestOid.data() + digestOid.length());

  OwnedHandle<P72Container> container(zarv.closeP72Container);
  if (!called("ZARV_CreateP72Container", zarv.createP72Container(container.out()))) return false;
  if (o.attached) {
    Bytes info;
    if (!attachedContentInfo(content, info)) {
      std::fprintf(stderr, "kolvari sign: content too large\n");
      return false;
    }
    if (!called("ZARV_SetContentInfo", zarv.setContentInfo(container.get(), info))) return false;
  }
  if (!called("ZARV_AddDigestAlgorithm", zarv.addDigestAlgorithm(container.get(), digestOctets))) return false;
  for (const Bytes& c : certificates) {
    if (!called("ZARV_AddCertificate", zarv.addCertificate(container.get(), c))) return false;
  }
  for (const Bytes& c : crls) {
    if (!called("ZARV_AddCRL", zarv.addCRL(container.get(), c))) return false;
  }
  for (const Bytes& signerInfo : signerInfos) {
    if (!called("ZARV_AddSignerInfo", zarv.addSignerInfo(container.get(), signerInfo))) return false;
  }
  return called("ZARV_EncodeP72", zarv.encodeP72(container.get(), &out));
}

// Appends the certificates of a file to the container's list; one already there is not added twice (two
// signers may share a chain).
void addCertificates(const std::vector<Bytes>& file, std::vector<Bytes>& certificates) {
  for (const Bytes& c : file) {
    bool known = false;
    for (const Bytes& k : certificates) known = known || k == c;
    if (!known) certificates.push_back(c);
  }
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
    std::fprintf(stderr, "%s", kUsage);
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
  std::vector<PrivateKey> keys;
  std::vector<Bytes> signerCertificates;
  std::vector<Bytes> certificates;
  std::vector<Bytes> crls;
  bool read = true;
  for (size_t i = 0; read && i < signerFiles.size(); ++i) {
    keys.push_back(readPrivateKey(signerFiles[i].key, error));
    std::vector<Bytes> file;
    read = keys.back() != nullptr && readCertificates(signerFiles[i].cert, file, error);
    if (read) {
      signerCertificates.push_back(file.front());
      addCertificates(file, certificates);
    }
  }
  for (size_t i = 0; read && i < o.chain.size(); ++i) {
    std::vector<Bytes> file;
    read = readCertificates(o.chain[i], file, error);
    if (read) addCertificates(file, certificates);
  }
  for (size_t i = 0; read && i < o.crls.size(); ++i) read = readCrls(o.crls[i], crls, error);
  Bytes content;
  if (read && !readWholeFile(o.input, content)) {
    error = "cannot read " + o.input;
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
  std::vector<Bytes> signerInfos(signerFiles.size());
  for (size_t i = 0; i < signerFiles.size(); ++i) {
    if (!buildSignerInfo(zarv, o, *digest, keys[i].get(), signerCertificates[i], content, signerInfos[i])) {
      return kExitFailure;
    }
  }
  Bytes message;
  if (!buildContainer(zarv, o, *digest, certificates, crls, content, signerInfos, message)) return kExitFailure;
  if (!writeOutput(o, message)) {
    std::fprintf(stderr, "kolvari sign: cannot write the output\n");
    return kExitFailure;
  }
  return kExitOk;
}
