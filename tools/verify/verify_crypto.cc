#include "verify/verify_crypto.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

namespace {

// Deeper chains than this are not followed, whatever the certificates claim.
constexpr int kMaxPathDepth = 16;
// RFC 4055: the default salt length of RSASSA-PSS.
constexpr long kDefaultPssSalt = 20;
// What the certificate cache keeps at most: far beyond the certificates of a real batch, small in memory.
constexpr size_t kMaxCachedCertificates = 4096;
constexpr size_t kMaxCachedBytes = 16u * 1024 * 1024;

struct MdCtxDeleter {
  void operator()(EVP_MD_CTX* c) const { EVP_MD_CTX_free(c); }
};
struct AlgorDeleter {
  void operator()(X509_ALGOR* a) const { X509_ALGOR_free(a); }
};
struct PssDeleter {
  void operator()(RSA_PSS_PARAMS* p) const { RSA_PSS_PARAMS_free(p); }
};

const EVP_MD* mdOf(const X509_ALGOR* algorithm, const EVP_MD* fallback) {
  return algorithm == nullptr ? fallback : EVP_get_digestbyobj(algorithm->algorithm);
}

// The PSS parameters of the algorithm identifier applied to the key context; false when they cannot be read.
bool applyPss(const X509_ALGOR* algorithm, const EVP_MD*& md, EVP_PKEY_CTX*& pctx, EVP_MD_CTX* ctx,
              EVP_PKEY* key) {
  const void* value = nullptr;
  int type = 0;
  X509_ALGOR_get0(nullptr, &type, &value, algorithm);
  if (type != V_ASN1_SEQUENCE) return false;
  std::unique_ptr<RSA_PSS_PARAMS, PssDeleter> pss(static_cast<RSA_PSS_PARAMS*>(
      ASN1_TYPE_unpack_sequence(ASN1_ITEM_rptr(RSA_PSS_PARAMS), algorithm->parameter)));
  if (!pss) return false;
  md = mdOf(pss->hashAlgorithm, EVP_sha1());
  const EVP_MD* mgfMd = md;
  if (pss->maskGenAlgorithm != nullptr) {
    if (OBJ_obj2nid(pss->maskGenAlgorithm->algorithm) != NID_mgf1) return false;
    std::unique_ptr<X509_ALGOR, AlgorDeleter> mask(static_cast<X509_ALGOR*>(
        ASN1_TYPE_unpack_sequence(ASN1_ITEM_rptr(X509_ALGOR), pss->maskGenAlgorithm->parameter)));
    if (!mask) return false;
    mgfMd = EVP_get_digestbyobj(mask->algorithm);
  } else {
    mgfMd = EVP_sha1();
  }
  const long salt = pss->saltLength == nullptr ? kDefaultPssSalt : ASN1_INTEGER_get(pss->saltLength);
  if (md == nullptr || mgfMd == nullptr || salt < 0) return false;
  return EVP_DigestVerifyInit(ctx, &pctx, md, nullptr, key) == 1 &&
         EVP_PKEY_CTX_set_rsa_padding(pctx, RSA_PKCS1_PSS_PADDING) == 1 &&
         EVP_PKEY_CTX_set_rsa_pss_saltlen(pctx, static_cast<int>(salt)) == 1 &&
         EVP_PKEY_CTX_set_rsa_mgf1_md(pctx, mgfMd) == 1;
}

}  // namespace

Certificate certificateFromDer(const unsigned char* der, size_t n) {
  const unsigned char* p = der;
  X509* x = d2i_X509(nullptr, &p, static_cast<long>(n));
  if (x != nullptr && p != der + n) {
    X509_free(x);
    x = nullptr;
  }
  return Certificate(x, X509Deleter());
}

Certificate CertificateCache::get(const unsigned char* der, size_t n) {
  const std::string_view key(reinterpret_cast<const char*>(der), n);
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = entries_.find(key);
    if (it != entries_.end()) return it->second;
  }
  // Parsed outside the lock: another thread may parse the same certificate, and the first one stored wins.
  Certificate parsed = certificateFromDer(der, n);
  if (!parsed) return parsed;
  std::lock_guard<std::mutex> lock(mutex_);
  if (entries_.size() >= kMaxCachedCertificates || bytes_ + n > kMaxCachedBytes) return parsed;
  const auto inserted = entries_.emplace(std::string(key), parsed);
  if (inserted.second) bytes_ += n;
  return inserted.first->second;
}

size_t CertificateCache::size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return entries_.size();
}

std::string subjectText(X509* certificate) {
  BIO* bio = BIO_new(BIO_s_mem());
  if (bio == nullptr) return "";
  X509_NAME_print_ex(bio, X509_get_subject_name(certificate), 0, XN_FLAG_RFC2253);
  char* data = nullptr;
  const long n = BIO_get_mem_data(bio, &data);
  std::string text(data, static_cast<size_t>(n > 0 ? n : 0));
  BIO_free(bio);
  return text;
}

std::string isoTime(time_t t) {
  struct tm parts {};
  gmtime_r(&t, &parts);
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

bool timeOf(const ASN1_TIME* time, time_t& out) {
  struct tm parts {};
  if (time == nullptr || ASN1_TIME_to_tm(time, &parts) != 1) return false;
  out = timegm(&parts);
  return true;
}

bool timeOfElement(const unsigned char* der, size_t n, time_t& out) {
  const unsigned char* p = der;
  ASN1_TIME* t = d2i_ASN1_TIME(nullptr, &p, static_cast<long>(n));
  const bool ok = t != nullptr && p == der + n && timeOf(t, out);
  ASN1_TIME_free(t);
  return ok;
}

bool timeOfGeneralized(const std::string& text, time_t& out) {
  ASN1_TIME* t = ASN1_TIME_new();
  const bool ok = t != nullptr && ASN1_GENERALIZEDTIME_set_string(t, text.c_str()) == 1 && timeOf(t, out);
  ASN1_TIME_free(t);
  return ok;
}

Bytes signedAttributesAsSigned(const unsigned char* content, size_t n) {
  constexpr unsigned char kTagSet = 0x31;
  constexpr size_t kShortFormLimit = 0x80;
  constexpr unsigned kBitsPerOctet = 8;
  Bytes out{kTagSet};
  if (n < kShortFormLimit) {
    out.push_back(static_cast<unsigned char>(n));
  } else {
    unsigned octets = 0;
    for (size_t v = n; v != 0; v >>= kBitsPerOctet) ++octets;
    out.push_back(static_cast<unsigned char>(kShortFormLimit | octets));
    for (unsigned i = octets; i > 0; --i) out.push_back(static_cast<unsigned char>(n >> ((i - 1) * kBitsPerOctet)));
  }
  out.reserve(out.size() + n);
  out.insert(out.end(), content, content + n);
  return out;
}

int verifySignatureValue(EVP_PKEY* key, const Bytes& signatureAlgorithm, const EVP_MD* digestMd,
                         const unsigned char* data, size_t n, const Bytes& signature, std::string& reason) {
  const unsigned char* p = signatureAlgorithm.data();
  std::unique_ptr<X509_ALGOR, AlgorDeleter> algorithm(
      d2i_X509_ALGOR(nullptr, &p, static_cast<long>(signatureAlgorithm.size())));
  std::unique_ptr<EVP_MD_CTX, MdCtxDeleter> ctx(EVP_MD_CTX_new());
  if (!algorithm || !ctx) {
    reason = "the signature algorithm cannot be read";
    return -1;
  }
  const int nid = OBJ_obj2nid(algorithm->algorithm);
  EVP_PKEY_CTX* pctx = nullptr;
  const EVP_MD* md = digestMd;
  bool ready = false;
  if (nid == NID_rsassaPss) {
    ready = applyPss(algorithm.get(), md, pctx, ctx.get(), key);
  } else {
    int mdNid = NID_undef;
    int keyNid = NID_undef;
    if (nid == NID_ED25519 || nid == NID_ED448) {
      md = nullptr;
    } else if (nid != NID_rsaEncryption && nid != NID_X9_62_id_ecPublicKey) {
      if (OBJ_find_sigid_algs(nid, &mdNid, &keyNid) != 1 || (md = EVP_get_digestbynid(mdNid)) == nullptr) {
        reason = std::string("signature algorithm ") + OBJ_nid2ln(nid) + " is not offered";
        return -1;
      }
    }
    ready = EVP_DigestVerifyInit(ctx.get(), &pctx, md, nullptr, key) == 1;
  }
  if (!ready) {
    ERR_clear_error();
    reason = "the signature algorithm does not fit the signer's key";
    return -1;
  }
  const int verified = EVP_DigestVerify(ctx.get(), signature.data(), signature.size(), data, n);
  ERR_clear_error();
  reason = verified == 1 ? "the signature value verifies" : "the signature value does not verify";
  return verified == 1 ? 1 : 0;
}

PathResult buildPath(X509_STORE* store, X509* leaf, const std::vector<Certificate>& untrusted, time_t t) {
  PathResult result;
  STACK_OF(X509)* others = sk_X509_new_null();
  X509_STORE_CTX* ctx = X509_STORE_CTX_new();
  for (const Certificate& c : untrusted) sk_X509_push(others, c.get());
  if (others == nullptr || ctx == nullptr || X509_STORE_CTX_init(ctx, store, leaf, others) != 1) {
    result.error = X509_V_ERR_OUT_OF_MEM;
  } else {
    X509_VERIFY_PARAM* param = X509_STORE_CTX_get0_param(ctx);
    X509_VERIFY_PARAM_set_time(param, t);
    X509_VERIFY_PARAM_set_depth(param, kMaxPathDepth);
    if (X509_verify_cert(ctx) != 1) result.error = X509_STORE_CTX_get_error(ctx);
    if (result.error == X509_V_OK) {
      STACK_OF(X509)* chain = X509_STORE_CTX_get0_chain(ctx);
      for (int i = 0; i < sk_X509_num(chain); ++i) {
        X509* x = sk_X509_value(chain, i);
        X509_up_ref(x);
        result.chain.push_back(Certificate(x, X509Deleter()));
      }
    }
  }
  result.errorText = X509_verify_cert_error_string(result.error);
  X509_STORE_CTX_free(ctx);
  sk_X509_free(others);
  ERR_clear_error();
  return result;
}
