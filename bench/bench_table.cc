// One table of the hot paths side by side with OpenSSL 3 (libcrypto), on the same bytes in one run:
// certificate parsing (with a plain TLV walk as the floor), the signer round trip with a precomputed
// signature, container encoding for 1 to 1000 certificates and 0 to 10 CRLs (with memcpy of the output as the
// floor), and the decoders of signedData, OCSP responses and time-stamp tokens.
//
// Every input is loaded once. Before any timing each side runs its operation once and must succeed, and the
// decoders of both sides must find the same (certificates, CRLs, signers), so that an early quiet stop cannot
// pass for speed. Each side is then timed in samples of a calibrated number of runs, the sides of one row
// taking turns, and the table shows the median CPU time per operation of the samples, the ratio ours/theirs and
// the heap allocations one operation makes (malloc, calloc and realloc calls, counted by this program's own
// malloc, which every allocation of the process goes through, OpenSSL's and operator new's included).
//   bench_table [--quick] [--filter TEXT]
#include <openssl/asn1.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/ocsp.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_string.h"
#include "bench_roots.h"
#include "cms/cvel_a1_p72.h"
#include "cms/cvel_tst_info.h"
#include "kolvari/zarv.h"
#include "x509/cvel_certificate.h"
#include "x509/cvel_ocsp_response.h"
#include "verify/verify_file.h"

// ---- counting allocator ----
// glibc's own entry points stay reachable under these names; the definitions below take the place of malloc
// and its relatives for the whole process and count each call that obtains a block.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);
}

namespace {
std::atomic<uint64_t> gAllocations{0};
}  // namespace

extern "C" {
void* malloc(size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) {
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(block, size);
}
void free(void* block) { __libc_free(block); }
}

namespace {

using Bytes = std::vector<unsigned char>;

// ---- options ----

struct Options {
  int samples = 9;           // samples per side; the table shows their median
  double sampleNs = 20e6;    // the runs of one sample take at least this long
  std::string filter;        // only rows whose name contains this text
};

Options gOptions;

// ---- inputs ----

std::string dataPath(const std::string& name) { return std::string(KOLVARI_SOURCE_DIR) + "/tests/data/" + name; }

Bytes readFile(const std::string& path) {
  Bytes bytes;
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return bytes;
  unsigned char buffer[8192];
  size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) bytes.insert(bytes.end(), buffer, buffer + n);
  std::fclose(f);
  return bytes;
}

// The OCSP test set keeps its responses as base64 text, one line per 64 characters.
Bytes readBase64File(const std::string& path) {
  const Bytes text = readFile(path);
  Bytes der(text.size());
  EVP_ENCODE_CTX* ctx = EVP_ENCODE_CTX_new();
  if (ctx == nullptr) return {};
  int n = 0;
  int last = 0;
  EVP_DecodeInit(ctx);
  const bool ok = EVP_DecodeUpdate(ctx, der.data(), &n, text.data(), static_cast<int>(text.size())) >= 0 &&
                  EVP_DecodeFinal(ctx, der.data() + n, &last) == 1;
  EVP_ENCODE_CTX_free(ctx);
  if (!ok) return {};
  der.resize(static_cast<size_t>(n + last));
  return der;
}

Bytes pemCrlToDer(const std::string& path) {
  Bytes der;
  FILE* f = std::fopen(path.c_str(), "r");
  if (f == nullptr) return der;
  X509_CRL* crl = PEM_read_X509_CRL(f, nullptr, nullptr, nullptr);
  std::fclose(f);
  unsigned char* bytes = nullptr;
  const int n = crl == nullptr ? 0 : i2d_X509_CRL(crl, &bytes);
  if (n > 0) der.assign(bytes, bytes + n);
  OPENSSL_free(bytes);
  X509_CRL_free(crl);
  return der;
}

// Length of the whole definite-length element at p (header and content), 0 when none can be read there.
long elementLength(const unsigned char* p, long available) {
  const unsigned char* q = p;
  long length = 0;
  int tag = 0;
  int cls = 0;
  const int flags = ASN1_get_object(&q, &length, &tag, &cls, available);
  if ((flags & 0x80) != 0 || (flags & 0x01) != 0) return 0;  // error, or indefinite length
  return static_cast<long>(q - p) + length;
}

// TimeStampResp ::= SEQUENCE { status PKIStatusInfo, timeStampToken TimeStampToken OPTIONAL }: the token's
// bytes as they stand in the response.
Bytes tokenOfResponse(const Bytes& response) {
  const unsigned char* p = response.data();
  const long size = static_cast<long>(response.size());
  long length = 0;
  int tag = 0;
  int cls = 0;
  const unsigned char* content = p;
  if ((ASN1_get_object(&content, &length, &tag, &cls, size) & 0x81) != 0) return {};
  const long end = static_cast<long>(content - p) + length;
  if (end > size) return {};
  const long statusLength = elementLength(content, end - (content - p));
  if (statusLength == 0) return {};
  const unsigned char* token = content + statusLength;
  const long tokenLength = elementLength(token, end - (token - p));
  if (tokenLength == 0) return {};
  return Bytes(token, token + tokenLength);
}

// Two CRLs made by `openssl ca -gencrl`, of two different CAs; m CRLs take them in turn.
std::vector<Bytes> crlsOf(size_t m) {
  static const std::vector<Bytes> two = {readFile(dataPath("tsp/crl.der")), pemCrlToDer(dataPath("detect/crl.pem"))};
  std::vector<Bytes> out;
  for (size_t i = 0; i < m; ++i) out.push_back(two[i % two.size()]);
  return out;
}

// n Mozilla roots in file-name order, from the first again when there are fewer. OpenSSL refuses a certificate
// a container already holds, so each further round changes the last octet of the signature value (the round
// number XORed in): still a well-formed certificate, of other bytes.
std::vector<Bytes> certificatesOf(size_t n) {
  const std::vector<bench::Der>& roots = bench::roots();
  std::vector<Bytes> out;
  for (size_t i = 0; i < n && !roots.empty(); ++i) {
    out.push_back(roots[i % roots.size()]);
    out.back().back() ^= static_cast<unsigned char>(i / roots.size());
  }
  return out;
}

// id-sha256, content octets only, as the container takes digest algorithms.
const Bytes kSha256Oid = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
const std::string kSha256Text = "2.16.840.1.101.3.4.2.1";
const std::string kEcdsaSha256Text = "1.2.840.10045.4.3.2";

// A container of the given certificates and CRLs with SHA-256 and no signer (an empty SET); null on failure.
P72Container* buildContainer(const std::vector<Bytes>& certs, const std::vector<Bytes>& crls) {
  P72Container* h = nullptr;
  if (ZARV_CreateP72Container(&h) != ZARV_OK) return nullptr;
  bool ok = ZARV_AddDigestAlgorithm(h, kSha256Oid) == ZARV_OK;
  for (const Bytes& cert : certs) ok = ok && ZARV_AddCertificate(h, cert) == ZARV_OK;
  for (const Bytes& crl : crls) ok = ok && ZARV_AddCRL(h, crl) == ZARV_OK;
  if (!ok) {
    ZARV_CloseP72Container(h);
    return nullptr;
  }
  return h;
}

Bytes encodeContainer(const std::vector<Bytes>& certs, const std::vector<Bytes>& crls) {
  Bytes out;
  P72Container* h = buildContainer(certs, crls);
  if (h == nullptr) return out;
  if (ZARV_EncodeP72(h, &out) != ZARV_OK) out.clear();
  ZARV_CloseP72Container(h);
  return out;
}

// OpenSSL's objects of DER bytes, parsed once.
struct X509Free {
  void operator()(X509* x) const { X509_free(x); }
};
struct X509CrlFree {
  void operator()(X509_CRL* x) const { X509_CRL_free(x); }
};
struct CmsFree {
  void operator()(CMS_ContentInfo* c) const { CMS_ContentInfo_free(c); }
};
struct PkeyFree {
  void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};
using X509Ptr = std::unique_ptr<X509, X509Free>;
using X509CrlPtr = std::unique_ptr<X509_CRL, X509CrlFree>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, CmsFree>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, PkeyFree>;

X509Ptr toX509(const Bytes& der) {
  const unsigned char* p = der.data();
  return X509Ptr(d2i_X509(nullptr, &p, static_cast<long>(der.size())));
}

X509CrlPtr toCrl(const Bytes& der) {
  const unsigned char* p = der.data();
  return X509CrlPtr(d2i_X509_CRL(nullptr, &p, static_cast<long>(der.size())));
}

// ---- rows ----

// One operation of one side: true when it succeeded.
using Operation = std::function<bool()>;

struct Row {
  std::string group;
  std::string name;
  Operation ours;
  Operation theirs;  // empty when OpenSSL has no counterpart
  Operation floor;   // empty when the row has no floor
  double units = 1;  // operations per call (the certificate rows parse every root in one call)
  std::string note;  // what the inputs were, for the line under the table
  // The goal of the row, when it has one: ours / theirs and ours / floor at most these (0: no such bound),
  // and at most this many allocations per operation (negative: none).
  double goalVsTheirs = 0;
  double goalVsFloor = 0;
  double maxAllocations = -1;
};

std::vector<Row>& rows() {
  static std::vector<Row> all;
  return all;
}

void addRow(Row row) {
  if (!gOptions.filter.empty() && (row.group + "/" + row.name).find(gOptions.filter) == std::string::npos) return;
  rows().push_back(std::move(row));
}

// ---- certificate parse ----

// The floor of any certificate parser: every element's identifier and length octets read once, constructed
// elements entered, nothing kept. Long-form lengths of up to four octets; false on anything else.
bool walkTlv(const unsigned char* p, size_t size) {
  size_t i = 0;
  while (i < size) {
    if ((p[i] & 0x1F) == 0x1F || i + 2 > size) return false;
    const bool constructed = (p[i] & 0x20) != 0;
    size_t length = p[i + 1];
    i += 2;
    if (length >= 0x80) {
      const size_t octets = length & 0x7F;
      if (octets == 0 || octets > 4 || i + octets > size) return false;
      length = 0;
      for (size_t k = 0; k < octets; ++k) length = (length << 8) | p[i + k];
      i += octets;
    }
    if (length > size - i) return false;
    if (!constructed) i += length;
  }
  return true;
}

// The parse's goals: within this many times the floor, with at most this many allocations per certificate.
constexpr double kCertificateParseFloorRatio = 5;
constexpr double kCertificateParseAllocations = 2;

// Parses every root; with readAll, also makes the first reads that decode its names and extensions.
bool oursCertificates(const std::vector<bench::Der>& roots, bool readAll) {
  bool ok = true;
  for (const bench::Der& der : roots) {
    CvelCertificate certificate;
    ok = certificate.parse(der.data(), static_cast<uint32_t>(der.size())) == kCvelOk && ok;
    if (readAll) {
      ok = certificate.issuerName().form() == CvelCertificateIssuer::kName &&
           certificate.subjectName().form() == CvelCertificateSubject::kName && ok;
      ok = certificate.extensions().size() < 0x10000 && ok;
    }
  }
  return ok;
}

void addCertificateRows() {
  const std::vector<bench::Der>& roots = bench::roots();
  if (roots.empty()) return;
  Row row;
  row.group = "certificate";
  row.name = "parse (per cert)";
  row.units = static_cast<double>(roots.size());
  row.note = "certificate: " + std::to_string(roots.size()) + " Mozilla roots, each parsed in turn; the names and "
             "extensions are decoded at their first read (the second row reads them)";
  row.ours = [&roots] { return oursCertificates(roots, false); };
  row.theirs = [&roots] {
    bool ok = true;
    for (const bench::Der& der : roots) {
      const unsigned char* p = der.data();
      X509* x = d2i_X509(nullptr, &p, static_cast<long>(der.size()));
      ok = x != nullptr && ok;
      X509_free(x);
    }
    return ok;
  };
  row.floor = [&roots] {
    bool ok = true;
    for (const bench::Der& der : roots) ok = walkTlv(der.data(), der.size()) && ok;
    return ok;
  };
  row.goalVsFloor = kCertificateParseFloorRatio;
  row.maxAllocations = kCertificateParseAllocations;
  Row readAll = row;
  readAll.name = "parse + names, exts";
  readAll.note.clear();
  readAll.goalVsFloor = 0;
  readAll.maxAllocations = -1;
  readAll.ours = [&roots] { return oursCertificates(roots, true); };
  addRow(std::move(row));
  addRow(std::move(readAll));
}

// ---- signer round trip ----

// The signer round trip's goal: this many times faster than OpenSSL's path, with at most this many allocations.
constexpr double kSignerMinSpeedup = 30;
constexpr double kSignerMaxAllocations = 8;

// The signer of both sides: a fresh P-256 key and a self-signed certificate for it (OpenSSL's path will not
// add a signer without the matching key), with the hashes and the signature each side is handed ready-made.
struct Signer {
  PkeyPtr key;
  X509Ptr certificate;
  Bytes der;
  Bytes certificateHash;
  Bytes dataHash;
  Bytes signature;
};

const Signer* makeSigner() {
  static Signer signer;
  signer.key.reset(EVP_EC_gen("P-256"));
  X509Ptr cert(X509_new());
  if (!signer.key || !cert) return nullptr;
  X509_NAME* name = X509_NAME_new();
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("Bench Signer"), -1,
                             -1, 0);
  bool ok = X509_set_version(cert.get(), X509_VERSION_3) == 1 &&
            ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 0x1234) == 1 &&
            X509_set_subject_name(cert.get(), name) == 1 && X509_set_issuer_name(cert.get(), name) == 1 &&
            X509_gmtime_adj(X509_getm_notBefore(cert.get()), 0) != nullptr &&
            X509_gmtime_adj(X509_getm_notAfter(cert.get()), 3600L * 24 * 365) != nullptr &&
            X509_set_pubkey(cert.get(), signer.key.get()) == 1 &&
            X509_sign(cert.get(), signer.key.get(), EVP_sha256()) > 0;
  X509_NAME_free(name);
  if (!ok) return nullptr;
  unsigned char* bytes = nullptr;
  const int n = i2d_X509(cert.get(), &bytes);
  if (n <= 0) return nullptr;
  signer.der.assign(bytes, bytes + n);
  OPENSSL_free(bytes);
  signer.certificate = std::move(cert);
  signer.certificateHash.resize(32);
  signer.dataHash.resize(32);
  unsigned int length = 0;
  const char content[] = "the signed content";
  if (EVP_Digest(signer.der.data(), signer.der.size(), signer.certificateHash.data(), &length, EVP_sha256(),
                 nullptr) != 1 ||
      EVP_Digest(content, sizeof content - 1, signer.dataHash.data(), &length, EVP_sha256(), nullptr) != 1) {
    return nullptr;
  }
  // Any ECDSA signature of the right form serves: neither side checks it.
  signer.signature.resize(72);
  size_t signatureLength = signer.signature.size();
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  ok = ctx != nullptr && EVP_DigestSignInit(ctx, nullptr, EVP_sha256(), nullptr, signer.key.get()) == 1 &&
       EVP_DigestSign(ctx, signer.signature.data(), &signatureLength, signer.dataHash.data(), 32) == 1;
  EVP_MD_CTX_free(ctx);
  if (!ok) return nullptr;
  signer.signature.resize(signatureLength);
  return &signer;
}

const char kSigningTime[] = "20260101120000Z";

// Our whole signer sequence: create, digest, certificate, time, data to be signed, signature, SignerInfo,
// release; with a container, also the container holding the certificate and the SignerInfo, encoded.
bool oursSigner(const Signer& s, bool withContainer) {
  SignerInfoRecord* h = nullptr;
  if (ZARV_CreateSignerInfo(&h) != ZARV_OK) return false;
  Bytes dtbs;
  Bytes signerInfo;
  bool ok = ZARV_SetDataHash(h, s.dataHash, kSha256Text, 1) == ZARV_OK &&
            ZARV_SetSignerCertificate(h, s.der, s.certificateHash, kSha256Text) == ZARV_OK &&
            ZARV_SetSigningTime(h, kSigningTime) == ZARV_OK && ZARV_GetDTBS(h, &dtbs) == ZARV_OK &&
            ZARV_SetP1Signature(h, kEcdsaSha256Text, s.signature) == ZARV_OK &&
            ZARV_EncodeSignerInfo(h, &signerInfo) == ZARV_OK;
  ZARV_ReleaseSignerInfo(h);
  if (!ok || !withContainer) return ok;
  P72Container* c = nullptr;
  if (ZARV_CreateP72Container(&c) != ZARV_OK) return false;
  Bytes out;
  ok = ZARV_AddDigestAlgorithm(c, kSha256Oid) == ZARV_OK && ZARV_AddCertificate(c, s.der) == ZARV_OK &&
       ZARV_AddSignerInfo(c, signerInfo) == ZARV_OK && ZARV_EncodeP72(c, &out) == ZARV_OK;
  ZARV_CloseP72Container(c);
  return ok;
}

// OpenSSL's path to the same: a partial detached signedData, the signer added with the ESS signing-certificate-v2
// attribute (CMS_CADES) and no S/MIME capabilities, content type, digest and signing time added, the signature set,
// the ContentInfo (with the certificate) encoded. OpenSSL offers no public call for the data to be signed or the
// SignerInfo alone, so this path does neither and always writes the container.
bool theirsSigner(const Signer& s) {
  const unsigned int flags = CMS_PARTIAL | CMS_DETACHED | CMS_BINARY | CMS_NOSMIMECAP | CMS_CADES;
  CmsPtr cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
  if (!cms) return false;
  CMS_SignerInfo* si = CMS_add1_signer(cms.get(), s.certificate.get(), s.key.get(), EVP_sha256(), flags);
  if (si == nullptr) return false;
  ASN1_OCTET_STRING* signature = CMS_SignerInfo_get0_signature(si);
  if (CMS_signed_add1_attr_by_NID(si, NID_pkcs9_contentType, V_ASN1_OBJECT, OBJ_nid2obj(NID_pkcs7_data), -1) != 1 ||
      CMS_signed_add1_attr_by_NID(si, NID_pkcs9_messageDigest, V_ASN1_OCTET_STRING, s.dataHash.data(),
                                  static_cast<int>(s.dataHash.size())) != 1 ||
      CMS_signed_add1_attr_by_NID(si, NID_pkcs9_signingTime, V_ASN1_GENERALIZEDTIME, kSigningTime,
                                  static_cast<int>(sizeof kSigningTime - 1)) != 1 ||
      signature == nullptr ||
      ASN1_STRING_set(signature, s.signature.data(), static_cast<int>(s.signature.size())) != 1) {
    return false;
  }
  unsigned char* out = nullptr;
  const int n = i2d_CMS_ContentInfo(cms.get(), &out);
  OPENSSL_free(out);
  return n > 0;
}

void addSignerRows() {
  const Signer* s = makeSigner();
  if (s == nullptr) {
    std::fprintf(stderr, "signer: no key or certificate could be made; rows left out\n");
    return;
  }
  const Operation theirs = [s] { return theirsSigner(*s); };
  addRow({"signer", "round trip", [s] { return oursSigner(*s, false); }, theirs, {}, 1,
          "signer: P-256 certificate, SHA-256 digest, time and signature precomputed; OpenSSL always encodes the "
          "ContentInfo", 1.0 / kSignerMinSpeedup, 0, kSignerMaxAllocations});
  addRow({"signer", "round trip + container", [s] { return oursSigner(*s, true); }, theirs, {}, 1, ""});
}

// ---- container encode ----

// The last two counts give the cost of doubling N at the top of the range, printed after the table.
constexpr size_t kCertificateCounts[] = {1, 10, 100, 1000, 2000};
constexpr size_t kCrlCounts[] = {0, 2, 10};
// The build+encode goal, for this many certificates (and two CRLs): within this factor of the floor.
constexpr size_t kGoalCertificates = 1000;
constexpr double kBuildEncodeMaxFloorRatio = 3;

// A partial detached signedData of OpenSSL's with the same certificates and CRLs and no signer.
CmsPtr theirsContainer(const std::vector<X509Ptr>& certs, const std::vector<X509CrlPtr>& crls) {
  CmsPtr cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, CMS_PARTIAL | CMS_DETACHED | CMS_BINARY));
  if (!cms) return cms;
  for (const X509Ptr& cert : certs) {
    if (CMS_add1_cert(cms.get(), cert.get()) != 1) return nullptr;
  }
  for (const X509CrlPtr& crl : crls) {
    if (CMS_add1_crl(cms.get(), crl.get()) != 1) return nullptr;
  }
  return cms;
}

bool theirsEncode(CMS_ContentInfo* cms) {
  unsigned char* out = nullptr;
  const int n = i2d_CMS_ContentInfo(cms, &out);
  OPENSSL_free(out);
  return n > 0;
}

// Objects the container rows keep for the program's life.
struct ContainerInput {
  std::vector<Bytes> certs;
  std::vector<Bytes> crls;
  std::vector<X509Ptr> x509s;
  std::vector<X509CrlPtr> x509Crls;
  P72Container* ours = nullptr;
  CmsPtr theirs;
  size_t outputSize = 0;
  Bytes source;
  Bytes target;
  Bytes oursOutput;
  Bytes theirsOutput;
};

void addContainerRows() {
  for (size_t m : kCrlCounts) {
    for (size_t n : kCertificateCounts) {
      auto in = std::make_shared<ContainerInput>();
      in->certs = certificatesOf(n);
      in->crls = crlsOf(m);
      for (const Bytes& der : in->certs) in->x509s.push_back(toX509(der));
      for (const Bytes& der : in->crls) in->x509Crls.push_back(toCrl(der));
      in->ours = buildContainer(in->certs, in->crls);
      in->theirs = theirsContainer(in->x509s, in->x509Crls);
      in->outputSize = encodeContainer(in->certs, in->crls).size();
      if (in->ours == nullptr || !in->theirs || in->outputSize == 0) {
        std::fprintf(stderr, "container N=%zu M=%zu: could not be built; row left out\n", n, m);
        continue;
      }
      in->source.assign(in->outputSize, 0x30);
      in->target.assign(in->outputSize, 0);
      const std::string name = "encode N=" + std::to_string(n) + " M=" + std::to_string(m);
      // Both sides write into an output buffer kept from call to call: a fresh megabyte from the heap costs
      // its page faults on every call on this machine, which would hide the encoders at N = 1000 (the
      // build+encode rows below take fresh buffers).
      in->theirsOutput.assign(in->outputSize + 64, 0);
      Operation ours = [in] {
        return ZARV_EncodeP72(in->ours, &in->oursOutput) == ZARV_OK && in->oursOutput.size() == in->outputSize;
      };
      Operation theirs = [in] {
        unsigned char* p = in->theirsOutput.data();
        const int length = i2d_CMS_ContentInfo(in->theirs.get(), &p);
        return length > 0 && static_cast<size_t>(length) <= in->theirsOutput.size();
      };
      Operation floor = [in] {
        std::memcpy(in->target.data(), in->source.data(), in->outputSize);
        return in->target[in->outputSize - 1] == 0x30;
      };
      addRow({"container", name, ours, theirs, floor, 1,
              m == 0 && n == 1 ? "container: Mozilla roots and two `openssl ca` CRLs taken in turn; encode: the containers "
                                 "built beforehand, output buffers reused; build+encode: all of it, fresh buffers"
                               : ""});
      // The whole host sequence for the middle CRL count: create, add every piece (copied in), encode, close;
      // up to 1000 certificates, where OpenSSL's side already takes milliseconds.
      if (m == 2 && n <= 1000) {
        Operation oursAll = [in] { return encodeContainer(in->certs, in->crls).size() == in->outputSize; };
        Operation theirsAll = [in] {
          CmsPtr cms = theirsContainer(in->x509s, in->x509Crls);
          return cms && theirsEncode(cms.get());
        };
        const std::string buildName = "build+encode N=" + std::to_string(n) + " M=2";
        addRow({"container", buildName, oursAll, theirsAll, floor, 1, "", 0,
                n == kGoalCertificates ? kBuildEncodeMaxFloorRatio : 0});
      }
    }
  }
}

// ---- decoders ----

// What one decoder found in an input; both sides of a row must find the same.
struct Found {
  bool decoded = false;
  size_t certificates = 0;
  size_t crls = 0;
  size_t signers = 0;

  bool operator==(const Found& o) const {
    return decoded == o.decoded && certificates == o.certificates && crls == o.crls && signers == o.signers;
  }
};

// OpenSSL's stack counts: -1 for a missing stack, which here means none.
size_t countOf(int n) { return n < 0 ? 0 : static_cast<size_t>(n); }

std::string describe(const Found& f) {
  if (!f.decoded) return "not decoded";
  return std::to_string(f.certificates) + " certificates, " + std::to_string(f.crls) + " CRLs, " +
         std::to_string(f.signers) + " signers";
}

Found oursSignedData(const CvelString& image) {
  CvelA1InputString in(image, 0, image.length());
  CvelA1StreamCursor cursor;
  CvelA1P72 p72;
  Found f;
  // A wrong tag at a mandatory place stops the decoder quietly with kCvelOk; the counts below show it.
  f.decoded = p72.decode(in, cursor) == kCvelOk && cursor.position() == image.length();
  f.certificates = p72.certificates().size();
  f.crls = p72.crls().size();
  f.signers = p72.signerInfos().size();
  return f;
}

Found theirsSignedData(const Bytes& der) {
  const unsigned char* p = der.data();
  CMS_ContentInfo* cms = d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(der.size()));
  Found f;
  if (cms == nullptr) return f;
  f.decoded = p == der.data() + der.size();
  STACK_OF(X509)* certs = CMS_get1_certs(cms);
  STACK_OF(X509_CRL)* crls = CMS_get1_crls(cms);
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms);
  f.certificates = countOf(sk_X509_num(certs));
  f.crls = countOf(sk_X509_CRL_num(crls));
  f.signers = countOf(sk_CMS_SignerInfo_num(signers));
  sk_X509_pop_free(certs, X509_free);
  sk_X509_CRL_pop_free(crls, X509_CRL_free);
  CMS_ContentInfo_free(cms);
  return f;
}

Found oursOcsp(const Bytes& der) {
  CvelOCSPResponse response;
  Found f;
  f.decoded = response.parse(der.data(), static_cast<uint32_t>(der.size())) == kCvelOk;
  f.certificates = response.certificates().size();
  return f;
}

// Our parse reads the outer response, the BasicOCSPResponse inside its OCTET STRING, the certificates it
// carries and the first single response. d2i_OCSP_RESPONSE alone stops at that OCTET STRING;
// OCSP_response_get1_basic decodes the BasicOCSPResponse (with its certificates and all single responses,
// of which these files have one), so the pair is the work that matches ours.
Found theirsOcsp(const Bytes& der) {
  const unsigned char* p = der.data();
  OCSP_RESPONSE* response = d2i_OCSP_RESPONSE(nullptr, &p, static_cast<long>(der.size()));
  Found f;
  if (response == nullptr) return f;
  OCSP_BASICRESP* basic = OCSP_response_get1_basic(response);
  if (basic != nullptr) {
    f.decoded = true;
    const STACK_OF(X509)* certs = OCSP_resp_get0_certs(basic);
    f.certificates = countOf(sk_X509_num(certs));
    OCSP_BASICRESP_free(basic);
  }
  OCSP_RESPONSE_free(response);
  return f;
}

Found oursTst(const Bytes& der) {
  CvelTSTInfo tst;
  Found f;
  f.decoded = tst.encoded().assign(der.data(), static_cast<uint32_t>(der.size())) == kCvelOk && tst.decode() == kCvelOk;
  f.certificates = tst.signedData().certificates().size();
  f.crls = tst.signedData().crls().size();
  f.signers = tst.signedData().signerInfos().size();
  return f;
}

Found theirsTst(const Bytes& der) {
  const unsigned char* p = der.data();
  PKCS7* token = d2i_PKCS7(nullptr, &p, static_cast<long>(der.size()));
  Found f;
  if (token == nullptr) return f;
  TS_TST_INFO* info = PKCS7_to_TS_TST_INFO(token);
  if (info != nullptr && PKCS7_type_is_signed(token)) {
    f.decoded = true;
    f.certificates = countOf(sk_X509_num(token->d.sign->cert));
    f.crls = countOf(sk_X509_CRL_num(token->d.sign->crl));
    f.signers = countOf(sk_PKCS7_SIGNER_INFO_num(token->d.sign->signer_info));
  }
  TS_TST_INFO_free(info);
  PKCS7_free(token);
  return f;
}

// Both decoders of a row run once and must agree before the row is timed.
void addDecoderRow(const std::string& group, const std::string& name, const std::shared_ptr<const Bytes>& der,
                   const std::function<Found()>& ours, const std::function<Found()>& theirs) {
  if (!gOptions.filter.empty() && (group + "/" + name).find(gOptions.filter) == std::string::npos) return;
  const Found a = der->empty() ? Found{} : ours();
  const Found b = der->empty() ? Found{} : theirs();
  if (!a.decoded || !(a == b)) {
    std::fprintf(stderr, "%s/%s: left out (Kolvari: %s; OpenSSL: %s)\n", group.c_str(), name.c_str(),
                 describe(a).c_str(), describe(b).c_str());
    return;
  }
  addRow({group, name + " (" + std::to_string(der->size()) + " B)", [ours] { return ours().decoded; },
          [theirs] { return theirs().decoded; }, {}, 1, ""});
}

void addSignedDataRow(const std::string& name, Bytes bytes) {
  auto der = std::make_shared<const Bytes>(std::move(bytes));
  // Our decoder reads through a view of the same bytes, made once.
  auto image = std::make_shared<CvelString>();
  if (image->setView(der->data(), der->size()) != kCvelOk) return;
  addDecoderRow("SignedData", name, der, [image] { return oursSignedData(*image); },
                [der] { return theirsSignedData(*der); });
}

void addFileRow(const std::string& group, const std::string& name, Bytes bytes, Found (*ours)(const Bytes&),
                Found (*theirs)(const Bytes&)) {
  auto der = std::make_shared<const Bytes>(std::move(bytes));
  addDecoderRow(group, name, der, [der, ours] { return ours(*der); }, [der, theirs] { return theirs(*der); });
}

void addDecoderRows() {
  for (size_t n : {1, 10, 100}) {
    addSignedDataRow(std::to_string(n) + " certs 2 CRLs", encodeContainer(certificatesOf(n), crlsOf(2)));
  }
  // A real signed message of other software: one certificate, one signer with its signature, attached content.
  addSignedDataRow("cms-signed 1 signer", readFile(dataPath("asn1crypto/cms-signed.der")));
  // OpenSSL's OCSP test set: without (ND1) and with a delegated responder certificate (D1, D3); pyHanko's.
  for (const char* name : {"ND1", "D1", "D3"}) {
    addFileRow("OCSP", name, readBase64File(dataPath(std::string("ocsp/openssl/") + name + ".ors")), oursOcsp,
               theirsOcsp);
  }
  addFileRow("OCSP", "pyhanko", readFile(dataPath("ocsp/pyhanko-ocsp.resp.der")), oursOcsp, theirsOcsp);
  for (const char* name : {"plain", "millis", "full"}) {
    addFileRow("TST", name, readFile(dataPath(std::string("tsp/") + name + ".tst")), oursTst, theirsTst);
  }
  addFileRow("TST", "asn1crypto", tokenOfResponse(readFile(dataPath("asn1crypto/tsp_response"))), oursTst,
             theirsTst);
}

// ---- timing ----

// ---- verify a detached CMS ----

// A chain of three (root, intermediate, signer) of one key type, a detached CMS made by CMS_sign over a short
// content, and everything the floor needs ready-made: the signer's signed attributes as one SET.
struct VerifyCase {
  std::vector<PkeyPtr> keys;
  std::vector<X509Ptr> chain;  // root, intermediate, signer
  Bytes cms;
  Bytes signedAttributes;
  Bytes signature;
  X509_STORE* store = nullptr;
  VerifyContext context;
};

const char kVerifyContent[] = "the content of the detached signature";

X509Ptr issueCertificate(const char* cn, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuerKey, bool ca, long serial) {
  X509Ptr cert(X509_new());
  X509_NAME* name = X509_NAME_new();
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(cn), -1, -1, 0);
  X509V3_CTX ctx;
  X509V3_set_ctx_nodb(&ctx);
  X509V3_set_ctx(&ctx, issuer != nullptr ? issuer : cert.get(), cert.get(), nullptr, nullptr, 0);
  X509_EXTENSION* constraints = X509V3_EXT_conf_nid(nullptr, &ctx, NID_basic_constraints, ca ? "critical,CA:TRUE" : "CA:FALSE");
  X509_EXTENSION* usage = X509V3_EXT_conf_nid(nullptr, &ctx, NID_key_usage,
                                              ca ? "critical,keyCertSign,cRLSign" : "critical,digitalSignature");
  const bool ok = cert && name != nullptr && constraints != nullptr && usage != nullptr &&
                  X509_set_version(cert.get(), X509_VERSION_3) == 1 &&
                  ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), serial) == 1 &&
                  X509_set_subject_name(cert.get(), name) == 1 &&
                  X509_set_issuer_name(cert.get(), issuer != nullptr ? X509_get_subject_name(issuer) : name) == 1 &&
                  X509_gmtime_adj(X509_getm_notBefore(cert.get()), -3600) != nullptr &&
                  X509_gmtime_adj(X509_getm_notAfter(cert.get()), 3600L * 24 * 365) != nullptr &&
                  X509_set_pubkey(cert.get(), key) == 1 && X509_add_ext(cert.get(), constraints, -1) == 1 &&
                  X509_add_ext(cert.get(), usage, -1) == 1 && X509_sign(cert.get(), issuerKey, EVP_sha256()) > 0;
  X509_EXTENSION_free(constraints);
  X509_EXTENSION_free(usage);
  X509_NAME_free(name);
  return ok ? std::move(cert) : nullptr;
}

VerifyCase* makeVerifyCase(bool rsa) {
  auto* c = new VerifyCase;
  const char* names[] = {"Bench Root", "Bench Intermediate", "Bench Signer"};
  for (int i = 0; i < 3; ++i) {
    c->keys.emplace_back(rsa ? EVP_RSA_gen(2048) : EVP_EC_gen("P-256"));
    X509* issuer = i == 0 ? nullptr : c->chain.back().get();
    EVP_PKEY* issuerKey = i == 0 ? c->keys[0].get() : c->keys[i - 1].get();
    c->chain.push_back(issueCertificate(names[i], c->keys[i].get(), issuer, issuerKey, i < 2, 0x100 + i));
    if (!c->keys[i] || !c->chain[i]) return nullptr;
  }
  STACK_OF(X509)* extra = sk_X509_new_null();
  sk_X509_push(extra, c->chain[1].get());
  BIO* content = BIO_new_mem_buf(kVerifyContent, sizeof kVerifyContent - 1);
  CmsPtr cms(CMS_sign(c->chain[2].get(), c->keys[2].get(), extra, content, CMS_DETACHED | CMS_BINARY));
  BIO_free(content);
  sk_X509_free(extra);
  unsigned char* der = nullptr;
  const int n = cms ? i2d_CMS_ContentInfo(cms.get(), &der) : 0;
  if (n <= 0) return nullptr;
  c->cms.assign(der, der + n);
  OPENSSL_free(der);
  // The signed attributes as received, under the SET tag the signature covers, and the signature value, read
  // by the library's decoder (setting up, not measured).
  CvelString whole;
  if (whole.assign(c->cms.data(), static_cast<uint32_t>(c->cms.size())) != kCvelOk) return nullptr;
  CvelA1InputString in(whole, 0, whole.length());
  CvelA1StreamCursor cursor;
  CvelA1P72 p72;
  CvelP7SignerInfo* si = nullptr;
  if (p72.decode(in, cursor) != kCvelOk || p72.signerInfos().get(0, si) != kCvelOk || si == nullptr) return nullptr;
  const CvelString& attributes = si->signedAttributes();
  constexpr unsigned char kSet = 0x31;
  constexpr uint32_t kShortForm = 0x80;
  constexpr uint32_t kOneOctet = 0x100;
  const uint32_t size = attributes.length();
  c->signedAttributes = {kSet};
  if (size >= kOneOctet) c->signedAttributes.insert(c->signedAttributes.end(), {0x82, static_cast<unsigned char>(size >> 8)});
  if (size >= kShortForm && size < kOneOctet) c->signedAttributes.push_back(0x81);
  c->signedAttributes.push_back(static_cast<unsigned char>(size & 0xFF));
  c->signedAttributes.insert(c->signedAttributes.end(), attributes.data(), attributes.data() + attributes.length());
  c->signature.assign(si->signatureValue().data(), si->signatureValue().data() + si->signatureValue().length());
  c->store = X509_STORE_new();
  X509_STORE_add_cert(c->store, c->chain[0].get());
  c->context.store.reset(c->store);
  X509_STORE_up_ref(c->store);
  c->context.now = std::time(nullptr);
  c->context.options.revocation = RevocationMode::kNone;
  return c;
}

// What `kolvari verify FILE...` does with each file of a batch once its bytes are read: recognise it (PDF, DER,
// PEM or base64), judge it under the run's context and render its block of the text report.
bool passedOnce(const std::vector<unsigned char>& cms, const VerifyContext& context) {
  const ContentFeed content = [](const ChunkSink& sink) {
    sink(reinterpret_cast<const unsigned char*>(kVerifyContent), sizeof kVerifyContent - 1);
    return true;
  };
  const FileReport report = verifyFileBytes("bench.p7s", cms, &content, context);
  return !reportText(report).empty() && report.error.empty() && report.signatures.size() == 1 &&
         report.signatures[0].indication() == Indication::kTotalPassed;
}

// A file of a batch under one trust set: the run's context is shared by every file, and its certificate
// cache has met the signer and intermediate certificates in the files before.
bool oursVerifyBatch(const VerifyCase& c) { return passedOnce(c.cms, c.context); }

// One file in a run of its own: the trust store is ready (as OpenSSL's is), every certificate is parsed.
bool oursVerifyOne(const VerifyCase& c) {
  VerifyContext context;
  context.store.reset(c.store);
  X509_STORE_up_ref(c.store);
  context.now = c.context.now;
  context.options.revocation = RevocationMode::kNone;
  return passedOnce(c.cms, context);
}

bool theirsVerify(const VerifyCase& c) {
  const unsigned char* p = c.cms.data();
  CmsPtr cms(d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(c.cms.size())));
  BIO* content = BIO_new_mem_buf(kVerifyContent, sizeof kVerifyContent - 1);
  const bool ok = cms && CMS_verify(cms.get(), nullptr, c.store, content, nullptr, CMS_BINARY) == 1;
  BIO_free(content);
  return ok;
}

// What any verifier must do: hash the content, verify the signature over the signed attributes, build the path.
bool floorVerify(const VerifyCase& c) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  bool ok = EVP_Digest(kVerifyContent, sizeof kVerifyContent - 1, digest, &n, EVP_sha256(), nullptr) == 1 &&
            EVP_DigestVerifyInit(ctx, nullptr, EVP_sha256(), nullptr, X509_get0_pubkey(c.chain[2].get())) == 1 &&
            EVP_DigestVerify(ctx, c.signature.data(), c.signature.size(), c.signedAttributes.data(),
                             c.signedAttributes.size()) == 1;
  EVP_MD_CTX_free(ctx);
  STACK_OF(X509)* untrusted = sk_X509_new_null();
  sk_X509_push(untrusted, c.chain[1].get());
  X509_STORE_CTX* store = X509_STORE_CTX_new();
  ok = ok && X509_STORE_CTX_init(store, c.store, c.chain[2].get(), untrusted) == 1 && X509_verify_cert(store) == 1;
  X509_STORE_CTX_free(store);
  sk_X509_free(untrusted);
  return ok;
}

// The goal of a verify row: three times faster than CMS_verify and within 1.3 times the floor.
constexpr double kVerifyGoalVsOpenSsl = 1.0 / 3;
constexpr double kVerifyGoalVsFloor = 1.3;

void addVerifyRows() {
  for (bool rsa : {false, true}) {
    const VerifyCase* c = makeVerifyCase(rsa);
    if (c == nullptr) {
      std::fprintf(stderr, "verify: no chain or CMS could be made; rows left out\n");
      return;
    }
    const std::string key = rsa ? "CMS RSA-2048" : "CMS P-256";
    for (bool batch : {true, false}) {
      Row row{"verify", key + (batch ? ", batch" : ", one file"),
              [c, batch] { return batch ? oursVerifyBatch(*c) : oursVerifyOne(*c); },
              [c] { return theirsVerify(*c); }, [c] { return floorVerify(*c); }, 1, ""};
      // Only a batch is held to the goals; the note of the one-file row says why.
      if (batch) {
        row.goalVsTheirs = kVerifyGoalVsOpenSsl;
        row.goalVsFloor = kVerifyGoalVsFloor;
      }
      if (!rsa && batch) {
        row.note = "verify: a detached CMS by CMS_sign, a chain of three, no revocation, the same trust store on "
                   "every side; ours: what `kolvari verify` does per file once it is read: recognise, decode, judge, "
                   "render the text report (batch: the run's context shared, which keeps the certificates it has "
                   "parsed and remembers the paths it has built; one file: a fresh context, everything parsed and "
                   "built); OpenSSL: d2i + CMS_verify; floor: the content's digest, EVP_DigestVerify over the signed "
                   "attributes, X509_verify_cert on parsed certificates";
      }
      if (!rsa && !batch) {
        row.note = "verify, one file: no goal; a lone file must parse its certificates with OpenSSL (d2i_X509 is "
                   "half its cost), which the floor leaves out, and CMS_verify pays the same";
      }
      addRow(std::move(row));
    }
  }
}

// The CPU time of this thread: on a machine shared with other jobs, time spent waiting for a core stays out.
double threadCpuNs() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// CPU nanoseconds per call of `runs` calls in a row; negative when a call failed.
double sample(const Operation& op, uint64_t runs) {
  bool ok = true;
  const double start = threadCpuNs();
  for (uint64_t i = 0; i < runs; ++i) ok = op() && ok;
  const double stop = threadCpuNs();
  if (!ok) return -1;
  return (stop - start) / static_cast<double>(runs);
}

// Calls per sample: doubled from one until a sample takes a tenth of the sample time, then scaled up.
uint64_t calibrate(const Operation& op) {
  uint64_t runs = 1;
  for (;;) {
    const double ns = sample(op, runs);
    if (ns < 0) return 0;
    if (ns * static_cast<double>(runs) >= gOptions.sampleNs / 10 || runs >= (1u << 30)) {
      const double wanted = gOptions.sampleNs / std::max(ns, 1.0);
      return std::max<uint64_t>(1, static_cast<uint64_t>(wanted));
    }
    runs *= 2;
  }
}

uint64_t allocationsOf(const Operation& op) {
  const uint64_t before = gAllocations.load(std::memory_order_relaxed);
  op();
  return gAllocations.load(std::memory_order_relaxed) - before;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t mid = values.size() / 2;
  return values.size() % 2 == 1 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

struct Measured {
  bool ok = false;
  double ns = 0;           // median per unit
  double allocations = 0;  // per unit
};

// The sides of one row measured in turn, sample by sample, so that a change in the machine's load falls on all.
std::vector<Measured> measure(const Row& row) {
  const std::vector<const Operation*> sides = {&row.ours, &row.theirs, &row.floor};
  std::vector<Measured> result(sides.size());
  std::vector<uint64_t> runs(sides.size(), 0);
  std::vector<std::vector<double>> samples(sides.size());
  for (size_t k = 0; k < sides.size(); ++k) {
    if (!*sides[k]) continue;
    runs[k] = calibrate(*sides[k]);
    result[k].ok = runs[k] > 0;
    if (result[k].ok) result[k].allocations = static_cast<double>(allocationsOf(*sides[k])) / row.units;
  }
  for (int s = 0; s < gOptions.samples; ++s) {
    for (size_t k = 0; k < sides.size(); ++k) {
      if (!result[k].ok) continue;
      const double ns = sample(*sides[k], runs[k]);
      if (ns < 0) {
        result[k].ok = false;
        continue;
      }
      samples[k].push_back(ns / row.units);
    }
  }
  for (size_t k = 0; k < sides.size(); ++k) {
    if (result[k].ok) result[k].ns = median(samples[k]);
  }
  return result;
}

std::string formatNs(const Measured& m) {
  if (!m.ok) return "-";
  char text[32];
  if (m.ns >= 100000) {
    std::snprintf(text, sizeof text, "%.1f us", m.ns / 1000);
  } else if (m.ns >= 1000) {
    std::snprintf(text, sizeof text, "%.2f us", m.ns / 1000);
  } else {
    std::snprintf(text, sizeof text, "%.0f ns", m.ns);
  }
  return text;
}

std::string formatRatio(const Measured& a, const Measured& b) {
  if (!a.ok || !b.ok || b.ns <= 0) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", a.ns / b.ns);
  return text;
}

std::string formatAllocations(const Measured& m) {
  if (!m.ok) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", m.allocations);
  return text;
}

// "goal: ours/OpenSSL <= 0.333 (0.412), ours/floor <= 1.30 (1.09): not met", empty for a row without a goal.
std::string goalText(const Row& row, const std::vector<Measured>& m) {
  if (row.goalVsTheirs <= 0 && row.goalVsFloor <= 0 && row.maxAllocations < 0) return "";
  std::string text = "goal:";
  bool met = true;
  const char* separator = "";
  const auto bound = [&](const char* name, double goal, const Measured& other) {
    if (goal <= 0) return;
    const bool known = m[0].ok && other.ok && other.ns > 0;
    const double ratio = known ? m[0].ns / other.ns : 0;
    met = met && known && ratio <= goal;
    char part[96];
    std::snprintf(part, sizeof part, "%s ours/%s <= %.3f (%s)", separator, name, goal,
                  formatRatio(m[0], other).c_str());
    text += part;
    separator = ",";
  };
  bound("OpenSSL", row.goalVsTheirs, m[1]);
  bound("floor", row.goalVsFloor, m[2]);
  if (row.maxAllocations >= 0) {
    met = met && m[0].ok && m[0].allocations <= row.maxAllocations;
    char part[96];
    std::snprintf(part, sizeof part, "%s allocations <= %.0f (%s)", separator, row.maxAllocations,
                  formatAllocations(m[0]).c_str());
    text += part;
  }
  return text + (met ? ": met" : ": not met");
}

// What doubling the certificates from the second-largest count to the largest costs our encoder, per CRL count.
void printDoubling(const std::map<std::string, double>& encodeNs) {
  constexpr size_t kCounts = sizeof kCertificateCounts / sizeof kCertificateCounts[0];
  const size_t from = kCertificateCounts[kCounts - 2];
  const size_t to = kCertificateCounts[kCounts - 1];
  std::string line;
  for (size_t m : kCrlCounts) {
    const auto a = encodeNs.find("encode N=" + std::to_string(from) + " M=" + std::to_string(m));
    const auto b = encodeNs.find("encode N=" + std::to_string(to) + " M=" + std::to_string(m));
    if (a == encodeNs.end() || b == encodeNs.end() || a->second <= 0) continue;
    char text[64];
    std::snprintf(text, sizeof text, "%s%.2fx (M=%zu)", line.empty() ? "" : ", ", b->second / a->second, m);
    line += text;
  }
  if (!line.empty()) std::printf("container: encode N=%zu / N=%zu: %s\n", to, from, line.c_str());
}

bool parseOptions(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--quick") {
      gOptions.samples = 5;
      gOptions.sampleNs = 5e6;
    } else if (arg == "--filter" && i + 1 < argc) {
      gOptions.filter = argv[++i];
    } else {
      std::fprintf(stderr, "usage: %s [--quick] [--filter TEXT]\n", argv[0]);
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (!parseOptions(argc, argv)) return 2;
  addCertificateRows();
  addSignerRows();
  addContainerRows();
  addDecoderRows();
  addVerifyRows();

  std::printf("Median CPU time per operation of %d samples; ratio = ours / theirs (below 1: ours is faster); allocations "
              "= malloc/calloc/realloc calls per operation.\n\n",
              gOptions.samples);
  std::printf("%-11s %-26s %10s %10s %8s %10s %9s %7s %7s\n", "group", "operation", "Kolvari", "OpenSSL", "ratio",
              "floor", "ours/flr", "allocs", "OpenSSL");
  std::printf("%-11s %-26s %10s %10s %8s %10s %9s %7s %7s\n", "", "", "", "", "", "", "", "ours", "allocs");
  std::vector<std::string> notes;
  std::map<std::string, double> encodeNs;  // our container encode rows, by name
  for (const Row& row : rows()) {
    const std::vector<Measured> m = measure(row);
    if (row.group == "container" && m[0].ok) encodeNs[row.name] = m[0].ns;
    std::printf("%-11s %-26s %10s %10s %8s %10s %9s %7s %7s\n", row.group.c_str(), row.name.c_str(),
                formatNs(m[0]).c_str(), formatNs(m[1]).c_str(), formatRatio(m[0], m[1]).c_str(),
                formatNs(m[2]).c_str(), formatRatio(m[0], m[2]).c_str(), formatAllocations(m[0]).c_str(),
                formatAllocations(m[1]).c_str());
    const std::string goal = goalText(row, m);
    if (!goal.empty()) std::printf("%-11s %s\n", "", goal.c_str());
    std::fflush(stdout);
    if (!row.note.empty()) notes.push_back(row.note);
  }
  std::printf("\n");
  for (const std::string& note : notes) std::printf("%s\n", note.c_str());
  printDoubling(encodeNs);
  return 0;
}
