// kolvari sign: the reference host. It loads the plug-in with dlopen, plays the host's part with OpenSSL
// (keys, hashing, signing) and drives the library through the signing run: signed attributes, data to be
// signed, signature, SignerInfo, container.
#include <cstdio>
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
    "                    [--time YYYYMMDDhhmmssZ] [--attached] [--pem] [--out FILE] [--plugin PATH] FILE\n";
constexpr uint32_t kReplace = 1;
constexpr char kPemLabel[] = "PKCS7";

struct SignOptions {
  std::string key;
  std::string cert;
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
      !called("ZARV_SetContentType", zarv.setContentType(signer.get(), Bytes())) ||
      !called("ZARV_GetDTBS", zarv.getDTBS(signer.get(), &dtbs))) {
    return false;
  }
  Bytes signature;
  std::string error;
  if (!signBytes(key, digest, dtbs, signature, error)) {
    std::fprintf(stderr, "kolvari sign: %s\n", error.c_str());
    return false;
  }
  return called("ZARV_SetP1Signature", zarv.setP1Signature(signer.get(), signatureOid, signature)) &&
         called("ZARV_EncodeSignerInfo", zarv.encodeSignerInfo(signer.get(), &signerInfo));
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
                    const Bytes& signerInfo, Bytes& out) {
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
  return called("ZARV_AddSignerInfo", zarv.addSignerInfo(container.get(), signerInfo)) &&
         called("ZARV_EncodeP72", zarv.encodeP72(container.get(), &out));
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

  std::string error;
  PrivateKey key = readPrivateKey(o.key, error);
  std::vector<Bytes> certificates;
  std::vector<Bytes> crls;
  bool read = key != nullptr && readCertificates(o.cert, certificates, error);
  for (size_t i = 0; read && i < o.chain.size(); ++i) read = readCertificates(o.chain[i], certificates, error);
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

  ZarvPlugin zarv;
  if (!zarv.load(o.plugin.empty() ? defaultPluginPath() : o.plugin, error)) {
    std::fprintf(stderr, "kolvari sign: %s\n", error.c_str());
    return kExitFailure;
  }
  zarv.init();
  Bytes signerInfo;
  Bytes message;
  // The signer certificate is the first one of --cert; the rest of that file and --chain follow it.
  if (!buildSignerInfo(zarv, o, *digest, key.get(), certificates.front(), content, signerInfo) ||
      !buildContainer(zarv, o, *digest, certificates, crls, content, signerInfo, message)) {
    return kExitFailure;
  }
  if (!writeOutput(o, message)) {
    std::fprintf(stderr, "kolvari sign: cannot write the output\n");
    return kExitFailure;
  }
  return kExitOk;
}
