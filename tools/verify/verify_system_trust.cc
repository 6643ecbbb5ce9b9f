#include "verify/verify_system_trust.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <string_view>
#include <unordered_map>

#include <openssl/err.h>

#include "io/input_file.h"
#include "io/signature_text.h"

namespace {

// A bundle larger than this is read up to it: the default bundle is some 200 KB.
constexpr size_t kMaxBundleBytes = 64u * 1024 * 1024;
constexpr size_t kReadChunk = 64u * 1024;
constexpr unsigned char kTagSequence = 0x30;
constexpr unsigned char kTagVersion = 0xA0;  // [0] EXPLICIT Version of a TBSCertificate
constexpr unsigned char kHighTagNumber = 0x1F;
constexpr unsigned char kLongForm = 0x80;
constexpr size_t kMaxLengthOctets = 4;
constexpr unsigned kBitsPerOctet = 8;
// The TBSCertificate fields from the serialNumber on to the subject: signature, issuer, validity, subject.
constexpr int kFieldsAfterSerialToSubject = 4;

// One TLV of DER: its first octet, its contents and where the next one starts.
struct Tlv {
  const unsigned char* start = nullptr;
  unsigned char tag = 0;
  const unsigned char* contents = nullptr;
  size_t length = 0;
  const unsigned char* next = nullptr;
};

// The TLV at p, which must end by end: single-octet tags, definite lengths of at most four octets.
bool readTlv(const unsigned char* p, const unsigned char* end, Tlv& out) {
  if (end - p < 2 || (p[0] & kHighTagNumber) == kHighTagNumber) return false;
  out.start = p;
  out.tag = p[0];
  size_t length = p[1];
  const unsigned char* q = p + 2;
  if ((length & kLongForm) != 0) {
    const size_t octets = length & ~size_t{kLongForm};
    if (octets == 0 || octets > kMaxLengthOctets || static_cast<size_t>(end - q) < octets) return false;
    length = 0;
    for (size_t i = 0; i < octets; ++i) length = (length << kBitsPerOctet) | *q++;
  }
  if (static_cast<size_t>(end - q) < length) return false;
  out.contents = q;
  out.length = length;
  out.next = q + length;
  return true;
}

bool readBundle(const std::string& path, std::string& text) {
  InputFile file;
  std::string ignored;
  if (!file.open(path, ignored)) return false;
  while (text.size() < kMaxBundleBytes) {
    const size_t at = text.size();
    const size_t want = std::min(kReadChunk, kMaxBundleBytes - at);
    text.resize(at + want);
    const long n = file.read(reinterpret_cast<unsigned char*>(text.data() + at), want);
    text.resize(at + static_cast<size_t>(n > 0 ? n : 0));
    if (n <= 0) break;
  }
  return true;
}

// A bundle's certificates by the canonical hash of their subject, as OpenSSL's hashed folders name them.
struct BundleIndex {
  std::shared_ptr<CertificateCache> cache;
  std::unordered_map<unsigned long, std::vector<Bytes>> bySubject;
};

bool nameHash(const unsigned char* der, size_t n, unsigned long& hash) {
  const unsigned char* p = der;
  X509_NAME* name = d2i_X509_NAME(nullptr, &p, static_cast<long>(n));
  int ok = 0;
  if (name != nullptr && p == der + n) hash = X509_NAME_hash_ex(name, nullptr, nullptr, &ok);
  X509_NAME_free(name);
  return ok == 1;
}

// The lookup's answer for name: every certificate of the bundle with that subject goes into the store, as
// OpenSSL's folder lookup adds all the files of a hash, and ret borrows one of them (the store holds it).
int bySubject(X509_LOOKUP* lookup, X509_LOOKUP_TYPE type, const X509_NAME* name, X509_OBJECT* ret) {
  const auto* index = static_cast<const BundleIndex*>(X509_LOOKUP_get_method_data(lookup));
  X509_STORE* store = X509_LOOKUP_get_store(lookup);
  int ok = 0;
  if (type != X509_LU_X509 || index == nullptr) return 0;
  const unsigned long hash = X509_NAME_hash_ex(name, nullptr, nullptr, &ok);
  const auto found = index->bySubject.find(hash);
  if (ok != 1 || found == index->bySubject.end()) return 0;
  Certificate first;
  for (const Bytes& der : found->second) {
    Certificate c = index->cache->get(der.data(), der.size());
    if (!c || X509_NAME_cmp(X509_get_subject_name(c.get()), name) != 0) continue;
    if (X509_STORE_add_cert(store, c.get()) != 1) continue;
    if (!first) first = c;
  }
  ERR_clear_error();
  if (!first || X509_OBJECT_set1_X509(ret, first.get()) != 1) return 0;
  X509_free(first.get());  // the caller takes its own reference of what ret borrows
  return 1;
}

void freeIndex(X509_LOOKUP* lookup) { delete static_cast<BundleIndex*>(X509_LOOKUP_get_method_data(lookup)); }

// The method of the bundle lookup: made once, for every store of the process.
X509_LOOKUP_METHOD* bundleMethod() {
  static X509_LOOKUP_METHOD* const method = [] {
    X509_LOOKUP_METHOD* m = X509_LOOKUP_meth_new("kolvari system bundle");
    if (m != nullptr && (X509_LOOKUP_meth_set_get_by_subject(m, bySubject) != 1 ||
                         X509_LOOKUP_meth_set_free(m, freeIndex) != 1)) {
      X509_LOOKUP_meth_free(m);
      m = nullptr;
    }
    return m;
  }();
  return method;
}

std::string bundlePath() {
  const char* fromEnvironment = secure_getenv(X509_get_default_cert_file_env());
  return fromEnvironment != nullptr ? fromEnvironment : X509_get_default_cert_file();
}

}  // namespace

std::vector<Bytes> pemCertificates(const std::string& text) {
  static constexpr std::string_view kBegin = "-----BEGIN ";
  static constexpr std::string_view kDashes = "-----";
  std::vector<Bytes> out;
  for (size_t at = text.find(kBegin); at != std::string::npos; at = text.find(kBegin, at)) {
    const size_t labelStart = at + kBegin.size();
    const size_t labelEnd = text.find(kDashes, labelStart);
    if (labelEnd == std::string::npos) break;
    const std::string label = text.substr(labelStart, labelEnd - labelStart);
    const std::string end = "-----END " + label + "-----";
    const size_t bodyStart = labelEnd + kDashes.size();
    const size_t bodyEnd = text.find(end, bodyStart);
    if (bodyEnd == std::string::npos) break;
    Bytes der;
    if ((label == "CERTIFICATE" || label == "X509 CERTIFICATE") &&
        base64Bytes(std::string_view(text).substr(bodyStart, bodyEnd - bodyStart), der)) {
      out.push_back(std::move(der));
    }
    at = bodyEnd + end.size();
  }
  return out;
}

bool subjectElementOf(const Bytes& der, const unsigned char*& subject, size_t& n) {
  const unsigned char* end = der.data() + der.size();
  Tlv certificate;
  Tlv tbs;
  Tlv field;
  if (!readTlv(der.data(), end, certificate) || certificate.tag != kTagSequence ||
      !readTlv(certificate.contents, certificate.next, tbs) || tbs.tag != kTagSequence ||
      !readTlv(tbs.contents, tbs.next, field)) {
    return false;
  }
  if (field.tag == kTagVersion && !readTlv(field.next, tbs.next, field)) return false;
  for (int i = 0; i < kFieldsAfterSerialToSubject; ++i) {
    if (!readTlv(field.next, tbs.next, field)) return false;
  }
  if (field.tag != kTagSequence) return false;
  subject = field.start;
  n = static_cast<size_t>(field.next - field.start);
  return true;
}

bool addSystemTrust(X509_STORE* store, const std::shared_ptr<CertificateCache>& cache) {
  auto index = std::make_unique<BundleIndex>();
  index->cache = cache;
  std::string text;
  if (readBundle(bundlePath(), text)) {
    for (Bytes& der : pemCertificates(text)) {
      const unsigned char* subject = nullptr;
      size_t n = 0;
      unsigned long hash = 0;
      if (subjectElementOf(der, subject, n) && nameHash(subject, n, hash)) {
        index->bySubject[hash].push_back(std::move(der));
      }
    }
  }
  X509_LOOKUP_METHOD* method = bundleMethod();
  X509_LOOKUP* bundle = method == nullptr ? nullptr : X509_STORE_add_lookup(store, method);
  if (bundle == nullptr || X509_LOOKUP_set_method_data(bundle, index.get()) != 1) return false;
  index.release();  // the lookup owns it now: freeIndex deletes it with the store
  X509_LOOKUP* folder = X509_STORE_add_lookup(store, X509_LOOKUP_hash_dir());
  if (folder == nullptr) return false;
  X509_LOOKUP_add_dir(folder, nullptr, X509_FILETYPE_DEFAULT);
  X509_LOOKUP* uri = X509_STORE_add_lookup(store, X509_LOOKUP_store());
  if (uri == nullptr) return false;
  X509_LOOKUP_add_store_ex(uri, nullptr, nullptr, nullptr);
  ERR_clear_error();
  return true;
}
