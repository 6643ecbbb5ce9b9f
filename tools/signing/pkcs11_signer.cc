#include "signing/pkcs11_signer.h"

#include <dlfcn.h>
#include <termios.h>
#include <unistd.h>

#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ecdsa.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

#include <p11-kit/pkcs11.h>

#include "signing/batch_runner.h"

const char kDefaultPkcs11Module[] = "p11-kit-proxy.so";

namespace {

// The CKR_ names of the return values a signing run can meet, for messages.
struct ReturnName {
  CK_RV value;
  const char* name;
};
constexpr ReturnName kReturnNames[] = {
    {CKR_CANCEL, "CKR_CANCEL"},
    {CKR_HOST_MEMORY, "CKR_HOST_MEMORY"},
    {CKR_SLOT_ID_INVALID, "CKR_SLOT_ID_INVALID"},
    {CKR_GENERAL_ERROR, "CKR_GENERAL_ERROR"},
    {CKR_FUNCTION_FAILED, "CKR_FUNCTION_FAILED"},
    {CKR_ARGUMENTS_BAD, "CKR_ARGUMENTS_BAD"},
    {CKR_CANT_LOCK, "CKR_CANT_LOCK"},
    {CKR_ATTRIBUTE_SENSITIVE, "CKR_ATTRIBUTE_SENSITIVE"},
    {CKR_ATTRIBUTE_TYPE_INVALID, "CKR_ATTRIBUTE_TYPE_INVALID"},
    {CKR_DATA_INVALID, "CKR_DATA_INVALID"},
    {CKR_DATA_LEN_RANGE, "CKR_DATA_LEN_RANGE"},
    {CKR_DEVICE_ERROR, "CKR_DEVICE_ERROR"},
    {CKR_DEVICE_MEMORY, "CKR_DEVICE_MEMORY"},
    {CKR_DEVICE_REMOVED, "CKR_DEVICE_REMOVED"},
    {CKR_FUNCTION_CANCELED, "CKR_FUNCTION_CANCELED"},
    {CKR_FUNCTION_NOT_SUPPORTED, "CKR_FUNCTION_NOT_SUPPORTED"},
    {CKR_KEY_HANDLE_INVALID, "CKR_KEY_HANDLE_INVALID"},
    {CKR_KEY_SIZE_RANGE, "CKR_KEY_SIZE_RANGE"},
    {CKR_KEY_TYPE_INCONSISTENT, "CKR_KEY_TYPE_INCONSISTENT"},
    {CKR_KEY_FUNCTION_NOT_PERMITTED, "CKR_KEY_FUNCTION_NOT_PERMITTED"},
    {CKR_MECHANISM_INVALID, "CKR_MECHANISM_INVALID"},
    {CKR_MECHANISM_PARAM_INVALID, "CKR_MECHANISM_PARAM_INVALID"},
    {CKR_OBJECT_HANDLE_INVALID, "CKR_OBJECT_HANDLE_INVALID"},
    {CKR_OPERATION_ACTIVE, "CKR_OPERATION_ACTIVE"},
    {CKR_OPERATION_NOT_INITIALIZED, "CKR_OPERATION_NOT_INITIALIZED"},
    {CKR_PIN_INCORRECT, "CKR_PIN_INCORRECT"},
    {CKR_PIN_INVALID, "CKR_PIN_INVALID"},
    {CKR_PIN_LEN_RANGE, "CKR_PIN_LEN_RANGE"},
    {CKR_PIN_EXPIRED, "CKR_PIN_EXPIRED"},
    {CKR_PIN_LOCKED, "CKR_PIN_LOCKED"},
    {CKR_SESSION_CLOSED, "CKR_SESSION_CLOSED"},
    {CKR_SESSION_COUNT, "CKR_SESSION_COUNT"},
    {CKR_SESSION_HANDLE_INVALID, "CKR_SESSION_HANDLE_INVALID"},
    {CKR_TEMPLATE_INCOMPLETE, "CKR_TEMPLATE_INCOMPLETE"},
    {CKR_TEMPLATE_INCONSISTENT, "CKR_TEMPLATE_INCONSISTENT"},
    {CKR_TOKEN_NOT_PRESENT, "CKR_TOKEN_NOT_PRESENT"},
    {CKR_TOKEN_NOT_RECOGNIZED, "CKR_TOKEN_NOT_RECOGNIZED"},
    {CKR_USER_ALREADY_LOGGED_IN, "CKR_USER_ALREADY_LOGGED_IN"},
    {CKR_USER_NOT_LOGGED_IN, "CKR_USER_NOT_LOGGED_IN"},
    {CKR_USER_PIN_NOT_INITIALIZED, "CKR_USER_PIN_NOT_INITIALIZED"},
    {CKR_USER_TYPE_INVALID, "CKR_USER_TYPE_INVALID"},
    {CKR_BUFFER_TOO_SMALL, "CKR_BUFFER_TOO_SMALL"},
    {CKR_CRYPTOKI_NOT_INITIALIZED, "CKR_CRYPTOKI_NOT_INITIALIZED"},
    {CKR_CRYPTOKI_ALREADY_INITIALIZED, "CKR_CRYPTOKI_ALREADY_INITIALIZED"},
};

std::string returnName(CK_RV rv) {
  for (const ReturnName& r : kReturnNames) {
    if (r.value == rv) return r.name;
  }
  char text[32];
  std::snprintf(text, sizeof text, "CKR_0x%08lx", static_cast<unsigned long>(rv));
  return text;
}

// True when rv is CKR_OK; otherwise the message "C_Login: CKR_PIN_INCORRECT".
bool ok(const char* function, CK_RV rv, std::string& error) {
  if (rv == CKR_OK) return true;
  error = std::string(function) + ": " + returnName(rv);
  return false;
}

// The token-signing mechanism and the DigestInfo prefix (RFC 8017, 9.2 note 1) of each digest the tool offers.
struct RsaDigest {
  const char* name;
  CK_MECHANISM_TYPE mechanism;
  unsigned char digestInfo[19];
};
constexpr size_t kDigestInfoPrefixLength = 19;
constexpr RsaDigest kRsaDigests[] = {
    {"sha256", CKM_SHA256_RSA_PKCS, {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04,
                                     0x02, 0x01, 0x05, 0x00, 0x04, 0x20}},
    {"sha384", CKM_SHA384_RSA_PKCS, {0x30, 0x41, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04,
                                     0x02, 0x02, 0x05, 0x00, 0x04, 0x30}},
    {"sha512", CKM_SHA512_RSA_PKCS, {0x30, 0x51, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04,
                                     0x02, 0x03, 0x05, 0x00, 0x04, 0x40}},
};

const RsaDigest* findRsaDigest(const DigestChoice& digest) {
  for (const RsaDigest& d : kRsaDigests) {
    if (std::strcmp(d.name, digest.name) == 0) return &d;
  }
  return nullptr;
}

// A blank-padded fixed-size field of CK_TOKEN_INFO as a string.
std::string paddedField(const unsigned char* field, size_t size) {
  while (size > 0 && (field[size - 1] == ' ' || field[size - 1] == '\0')) --size;
  return std::string(reinterpret_cast<const char*>(field), size);
}

// Whether the big-endian integer bytes equal the key's BIGNUM parameter name.
bool sameNumber(EVP_PKEY* key, const char* name, const Bytes& bytes) {
  BIGNUM* own = nullptr;
  BIGNUM* other = BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr);
  const bool same = other != nullptr && EVP_PKEY_get_bn_param(key, name, &own) == 1 && BN_cmp(own, other) == 0;
  BN_free(own);
  BN_free(other);
  return same;
}

// The point of a CKA_EC_POINT: a DER OCTET STRING around it as the standard says, or the bare point that
// some tokens give.
Bytes ecPointOf(const Bytes& attribute) {
  const unsigned char* p = attribute.data();
  ASN1_OCTET_STRING* wrapped = d2i_ASN1_OCTET_STRING(nullptr, &p, static_cast<long>(attribute.size()));
  Bytes point = attribute;
  if (wrapped != nullptr && p == attribute.data() + attribute.size()) {
    point.assign(wrapped->data, wrapped->data + wrapped->length);
  }
  ASN1_OCTET_STRING_free(wrapped);
  return point;
}

// The first byte of a compressed EC point (SEC 1, 2.3.3); the certificate's key is read uncompressed.
constexpr unsigned char kCompressedEven = 0x02;
constexpr unsigned char kCompressedOdd = 0x03;

}  // namespace

// The ECDSA-Sig-Value SEQUENCE { r INTEGER, s INTEGER } of a token's raw r||s.
bool ecdsaSigValue(const Bytes& raw, Bytes& out) {
  if (raw.empty() || raw.size() % 2 != 0) return false;
  const int half = static_cast<int>(raw.size() / 2);
  ECDSA_SIG* sig = ECDSA_SIG_new();
  BIGNUM* r = BN_bin2bn(raw.data(), half, nullptr);
  BIGNUM* s = BN_bin2bn(raw.data() + half, half, nullptr);
  if (sig == nullptr || r == nullptr || s == nullptr || ECDSA_SIG_set0(sig, r, s) != 1) {
    BN_free(r);
    BN_free(s);
    ECDSA_SIG_free(sig);
    return false;
  }
  unsigned char* der = nullptr;
  const int n = i2d_ECDSA_SIG(sig, &der);
  if (n > 0) out.assign(der, der + n);
  OPENSSL_free(der);
  ECDSA_SIG_free(sig);
  return n > 0;
}

// The loaded module, the logged-in session and the key found on it.
class Pkcs11Session {
 public:
  Pkcs11Session() = default;
  Pkcs11Session(const Pkcs11Session&) = delete;
  Pkcs11Session& operator=(const Pkcs11Session&) = delete;
  ~Pkcs11Session() {
    for (CK_SESSION_HANDLE extra : idle_) {
      if (extra != session_) p11_->C_CloseSession(extra);
    }
    if (session_ != CK_INVALID_HANDLE) p11_->C_CloseSession(session_);
    if (initialized_) p11_->C_Finalize(nullptr);
    if (module_ != nullptr) dlclose(module_);
  }

  bool open(const std::string& modulePath, const Pkcs11Uri& uri, std::string& error) {
    return load(modulePath, error) && findToken(uri, error) &&
           ok("C_OpenSession", p11_->C_OpenSession(slot_, CKF_SERIAL_SESSION, nullptr, nullptr, &session_), error) &&
           logIn(uri, error) && findKey(uri, error) && allowSessions();
  }

  CK_KEY_TYPE keyType() const { return keyType_; }

  std::string name() const {
    if (!keyLabel_.empty()) return std::string(keyLabel_.begin(), keyLabel_.end()) + " on token " + tokenLabel_;
    std::string hex = "id ";
    for (unsigned char b : keyId_) {
      char digits[3];
      std::snprintf(digits, sizeof digits, "%02x", b);
      hex += digits;
    }
    return hex + " on token " + tokenLabel_;
  }

  KeyMatch matches(EVP_PKEY* publicKey) {
    const bool rsa = keyType_ == CKK_RSA;
    if (EVP_PKEY_get_base_id(publicKey) != (rsa ? EVP_PKEY_RSA : EVP_PKEY_EC)) return KeyMatch::kDifferent;
    const CK_OBJECT_HANDLE holder = publicHalfHolder(rsa ? CKA_MODULUS : CKA_EC_POINT);
    std::string ignored;
    if (rsa) {
      Bytes modulus, exponent;
      if (holder == CK_INVALID_HANDLE || !attribute(holder, CKA_MODULUS, modulus, ignored) ||
          !attribute(holder, CKA_PUBLIC_EXPONENT, exponent, ignored) || modulus.empty() || exponent.empty()) {
        return KeyMatch::kUnknown;
      }
      return sameNumber(publicKey, OSSL_PKEY_PARAM_RSA_N, modulus) &&
                     sameNumber(publicKey, OSSL_PKEY_PARAM_RSA_E, exponent)
                 ? KeyMatch::kSame
                 : KeyMatch::kDifferent;
    }
    Bytes attributeValue;
    if (holder == CK_INVALID_HANDLE || !attribute(holder, CKA_EC_POINT, attributeValue, ignored)) {
      return KeyMatch::kUnknown;
    }
    const Bytes point = ecPointOf(attributeValue);
    if (point.empty() || point[0] == kCompressedEven || point[0] == kCompressedOdd) return KeyMatch::kUnknown;
    constexpr size_t kLargestPoint = 1 + 2 * 66;  // uncompressed P-521
    Bytes own(kLargestPoint);
    size_t length = 0;
    if (EVP_PKEY_get_octet_string_param(publicKey, OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, own.data(), own.size(),
                                        &length) != 1) {
      return KeyMatch::kUnknown;
    }
    own.resize(length);
    return own == point ? KeyMatch::kSame : KeyMatch::kDifferent;
  }

  bool certificate(Bytes& out, std::string& error) {
    CK_OBJECT_CLASS certificateClass = CKO_CERTIFICATE;
    std::vector<CK_ATTRIBUTE> match{{CKA_CLASS, &certificateClass, sizeof certificateClass}};
    if (!keyId_.empty()) {
      match.push_back({CKA_ID, keyId_.data(), keyId_.size()});
    } else {
      match.push_back({CKA_LABEL, keyLabel_.data(), keyLabel_.size()});
    }
    std::vector<CK_OBJECT_HANDLE> found;
    if (!findObjects(match, found, error)) return false;
    if (found.empty()) {
      error = "token " + tokenLabel_ + " holds no certificate for the key (give --cert)";
      return false;
    }
    return attribute(found.front(), CKA_VALUE, out, error);
  }

  bool sign(const DigestChoice& digest, const Bytes& data, Bytes& signature, std::string& error) {
    Bytes digestValue;
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    Bytes input;
    const RsaDigest* rsa = findRsaDigest(digest);
    if (keyType_ == CKK_RSA && rsa != nullptr && supports(rsa->mechanism)) {
      mechanism.mechanism = rsa->mechanism;
      input = data;
    } else {
      if (!digestBytes(digest, data, digestValue)) {
        error = "cannot hash: " + opensslError();
        return false;
      }
      if (keyType_ == CKK_RSA) {
        // The token only pads: the host builds the DigestInfo it signs.
        if (rsa == nullptr) {
          error = std::string("no DigestInfo for ") + digest.name;
          return false;
        }
        input.assign(rsa->digestInfo, rsa->digestInfo + kDigestInfoPrefixLength);
        input.insert(input.end(), digestValue.begin(), digestValue.end());
      } else {
        mechanism.mechanism = CKM_ECDSA;
        input = digestValue;
      }
    }
    Bytes raw;
    const CK_SESSION_HANDLE session = takeSession();
    const bool signedOk = signOn(session, mechanism, input, raw, error);
    giveBack(session);
    if (!signedOk) return false;
    if (keyType_ == CKK_RSA) {
      signature = std::move(raw);
      return true;
    }
    if (!ecdsaSigValue(raw, signature)) {
      error = "the token's ECDSA signature is not r||s";
      return false;
    }
    return true;
  }

 private:
  bool load(const std::string& path, std::string& error) {
    module_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module_ == nullptr) {
      const char* why = dlerror();
      error = "cannot load the PKCS#11 module " + path + ": " + (why != nullptr ? why : "no detail");
      return false;
    }
    auto getFunctionList = reinterpret_cast<CK_C_GetFunctionList>(dlsym(module_, "C_GetFunctionList"));
    if (getFunctionList == nullptr) {
      error = path + " is not a PKCS#11 module (no C_GetFunctionList)";
      return false;
    }
    if (!ok("C_GetFunctionList", getFunctionList(&p11_), error)) return false;
    CK_C_INITIALIZE_ARGS args{};
    args.flags = CKF_OS_LOCKING_OK;
    const CK_RV rv = p11_->C_Initialize(&args);
    // Someone else in this process initialised the module already: use it, and leave C_Finalize to them.
    if (rv == CKR_CRYPTOKI_ALREADY_INITIALIZED) return true;
    initialized_ = rv == CKR_OK;
    return ok("C_Initialize", rv, error);
  }

  bool findToken(const Pkcs11Uri& uri, std::string& error) {
    CK_ULONG count = 0;
    if (!ok("C_GetSlotList", p11_->C_GetSlotList(CK_TRUE, nullptr, &count), error)) return false;
    std::vector<CK_SLOT_ID> slots(count);
    if (!ok("C_GetSlotList", p11_->C_GetSlotList(CK_TRUE, slots.data(), &count), error)) return false;
    slots.resize(count);
    size_t matches = 0;
    for (CK_SLOT_ID slot : slots) {
      CK_TOKEN_INFO info;
      if (p11_->C_GetTokenInfo(slot, &info) != CKR_OK) continue;
      const std::string label = paddedField(info.label, sizeof info.label);
      const std::string serial = paddedField(info.serialNumber, sizeof info.serialNumber);
      if ((!uri.token.empty() && label != uri.token) || (!uri.serial.empty() && serial != uri.serial)) continue;
      if (++matches == 1) {
        slot_ = slot;
        tokenLabel_ = label;
        tokenFlags_ = info.flags;
      }
    }
    if (matches == 0) {
      error = uri.token.empty() ? std::string("no token present") : "no token " + uri.token + " present";
      return false;
    }
    if (matches > 1) {
      error = "more than one token matches the PKCS#11 URI (name one with token=)";
      return false;
    }
    return true;
  }

  bool logIn(const Pkcs11Uri& uri, std::string& error) {
    if ((tokenFlags_ & CKF_LOGIN_REQUIRED) == 0) return true;
    std::string pin = uri.pinValue;
    if (!uri.pinSource.empty()) {
      if (!readPinSource(uri.pinSource, pin, error)) return false;
    } else if (!uri.hasPinValue && (tokenFlags_ & CKF_PROTECTED_AUTHENTICATION_PATH) == 0 &&
               !promptForPin("PIN for token " + tokenLabel_ + ": ", pin)) {
      error = "token " + tokenLabel_ + " needs a PIN: give pin-value= or pin-source= in the PKCS#11 URI";
      return false;
    }
    // A reader with its own PIN pad takes no PIN from the host.
    const bool padOnly = pin.empty() && (tokenFlags_ & CKF_PROTECTED_AUTHENTICATION_PATH) != 0;
    const CK_RV rv = p11_->C_Login(session_, CKU_USER,
                                   padOnly ? nullptr : reinterpret_cast<CK_UTF8CHAR*>(pin.data()),
                                   padOnly ? 0 : pin.size());
    return rv == CKR_USER_ALREADY_LOGGED_IN || ok("C_Login", rv, error);
  }

  bool findKey(const Pkcs11Uri& uri, std::string& error) {
    CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
    Bytes label(uri.object.begin(), uri.object.end());
    Bytes id = uri.id;
    std::vector<CK_ATTRIBUTE> match{{CKA_CLASS, &keyClass, sizeof keyClass}};
    if (!uri.object.empty()) match.push_back({CKA_LABEL, label.data(), label.size()});
    if (uri.hasId) match.push_back({CKA_ID, id.data(), id.size()});
    std::vector<CK_OBJECT_HANDLE> found;
    if (!findObjects(match, found, error)) return false;
    if (found.size() != 1) {
      error = found.empty() ? "no private key on token " + tokenLabel_ + " matches the PKCS#11 URI"
                            : "more than one private key on token " + tokenLabel_ + " matches the PKCS#11 URI";
      return false;
    }
    key_ = found.front();
    Bytes type;
    if (!attribute(key_, CKA_KEY_TYPE, type, error) || !attribute(key_, CKA_ID, keyId_, error) ||
        !attribute(key_, CKA_LABEL, keyLabel_, error)) {
      return false;
    }
    if (type.size() != sizeof keyType_) {
      error = "the key's CKA_KEY_TYPE has an odd size";
      return false;
    }
    std::memcpy(&keyType_, type.data(), sizeof keyType_);
    return true;
  }

  // The object that shows the key's public half: the one public key object with the key's id (or, for a key
  // without an id, its label), else the private key object when it carries the attribute itself.
  CK_OBJECT_HANDLE publicHalfHolder(CK_ATTRIBUTE_TYPE shown) {
    CK_OBJECT_CLASS publicClass = CKO_PUBLIC_KEY;
    std::vector<CK_ATTRIBUTE> match{{CKA_CLASS, &publicClass, sizeof publicClass}};
    if (!keyId_.empty()) {
      match.push_back({CKA_ID, keyId_.data(), keyId_.size()});
    } else {
      match.push_back({CKA_LABEL, keyLabel_.data(), keyLabel_.size()});
    }
    std::vector<CK_OBJECT_HANDLE> found;
    std::string ignored;
    if (findObjects(match, found, ignored) && found.size() == 1) return found.front();
    Bytes value;
    return attribute(key_, shown, value, ignored) && !value.empty() ? key_ : CK_INVALID_HANDLE;
  }

  // Up to two matching objects: enough to tell "none", "one" and "more than one" apart.
  bool findObjects(std::vector<CK_ATTRIBUTE>& match, std::vector<CK_OBJECT_HANDLE>& found, std::string& error) {
    constexpr CK_ULONG kEnoughToTell = 2;
    if (!ok("C_FindObjectsInit", p11_->C_FindObjectsInit(session_, match.data(), match.size()), error)) return false;
    found.resize(kEnoughToTell);
    CK_ULONG count = 0;
    const CK_RV rv = p11_->C_FindObjects(session_, found.data(), kEnoughToTell, &count);
    p11_->C_FindObjectsFinal(session_);
    found.resize(rv == CKR_OK ? count : 0);
    return ok("C_FindObjects", rv, error);
  }

  // A variable-length attribute; absent (CKR_ATTRIBUTE_TYPE_INVALID) reads as empty.
  bool attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type, Bytes& out, std::string& error) {
    CK_ATTRIBUTE a{type, nullptr, 0};
    CK_RV rv = p11_->C_GetAttributeValue(session_, object, &a, 1);
    if (rv == CKR_ATTRIBUTE_TYPE_INVALID || a.ulValueLen == CK_UNAVAILABLE_INFORMATION) {
      out.clear();
      return true;
    }
    if (!ok("C_GetAttributeValue", rv, error)) return false;
    out.resize(a.ulValueLen);
    a.pValue = out.data();
    return ok("C_GetAttributeValue", p11_->C_GetAttributeValue(session_, object, &a, 1), error);
  }

  // One signature on session, which no other thread uses meanwhile.
  bool signOn(CK_SESSION_HANDLE session, CK_MECHANISM& mechanism, Bytes& input, Bytes& raw, std::string& error) {
    if (!ok("C_SignInit", p11_->C_SignInit(session, &mechanism, key_), error)) return false;
    constexpr size_t kFirstGuess = 512;
    raw.resize(kFirstGuess);
    CK_ULONG length = raw.size();
    CK_RV rv = p11_->C_Sign(session, input.data(), input.size(), raw.data(), &length);
    if (rv == CKR_BUFFER_TOO_SMALL) {
      // The operation stays active after CKR_BUFFER_TOO_SMALL; length now holds the size needed.
      raw.resize(length);
      rv = p11_->C_Sign(session, input.data(), input.size(), raw.data(), &length);
    }
    if (!ok("C_Sign", rv, error)) return false;
    raw.resize(length);
    return true;
  }

  // How many sessions the threads of a batch may sign on at once. A module that took our C_Initialize with
  // CKF_OS_LOCKING_OK may be called from many threads; one that someone else initialised may not have been
  // told so, and signs on the one session. The token's ulMaxSessionCount bounds the rest; a session opened
  // after the login shares it (the login holds for the whole application), and a key object's handle is
  // the same in every session of the application.
  bool allowSessions() {
    CK_TOKEN_INFO info;
    sessionLimit_ = 1;
    if (initialized_ && p11_->C_GetTokenInfo(slot_, &info) == CKR_OK) {
      const bool bounded = info.ulMaxSessionCount != CK_EFFECTIVELY_INFINITE &&
                           info.ulMaxSessionCount != CK_UNAVAILABLE_INFORMATION;
      const CK_ULONG spare = bounded && info.ulSessionCount != CK_UNAVAILABLE_INFORMATION &&
                                    info.ulSessionCount <= info.ulMaxSessionCount
                                ? info.ulMaxSessionCount - info.ulSessionCount
                                : 0;
      sessionLimit_ = !bounded ? kMostJobs : 1 + std::min<CK_ULONG>(spare, kMostJobs - 1);
    }
    idle_.push_back(session_);
    return true;
  }

  // A session of this thread's own: an idle one, a new one while the limit allows and the token opens it,
  // else the next one another thread gives back.
  CK_SESSION_HANDLE takeSession() {
    std::unique_lock<std::mutex> hold(poolLock_);
    if (idle_.empty() && openSessions_ < sessionLimit_) {
      CK_SESSION_HANDLE extra = CK_INVALID_HANDLE;
      if (p11_->C_OpenSession(slot_, CKF_SERIAL_SESSION, nullptr, nullptr, &extra) == CKR_OK) {
        ++openSessions_;
        return extra;
      }
      sessionLimit_ = openSessions_;  // the token's own limit, whatever it said
    }
    sessionGiven_.wait(hold, [this] { return !idle_.empty(); });
    const CK_SESSION_HANDLE session = idle_.back();
    idle_.pop_back();
    return session;
  }

  void giveBack(CK_SESSION_HANDLE session) {
    {
      const std::lock_guard<std::mutex> hold(poolLock_);
      idle_.push_back(session);
    }
    sessionGiven_.notify_one();
  }

  bool supports(CK_MECHANISM_TYPE mechanism) {
    CK_MECHANISM_INFO info;
    return p11_->C_GetMechanismInfo(slot_, mechanism, &info) == CKR_OK && (info.flags & CKF_SIGN) != 0;
  }

  void* module_ = nullptr;
  CK_FUNCTION_LIST_PTR p11_ = nullptr;
  bool initialized_ = false;
  CK_SLOT_ID slot_ = 0;
  CK_FLAGS tokenFlags_ = 0;
  std::string tokenLabel_;
  CK_SESSION_HANDLE session_ = CK_INVALID_HANDLE;
  CK_OBJECT_HANDLE key_ = CK_INVALID_HANDLE;
  std::mutex poolLock_;  // idle_, openSessions_, sessionLimit_
  std::condition_variable sessionGiven_;
  std::vector<CK_SESSION_HANDLE> idle_;  // sessions no thread signs on, session_ among them
  size_t openSessions_ = 1;
  size_t sessionLimit_ = 1;
  CK_KEY_TYPE keyType_ = 0;
  Bytes keyId_;
  Bytes keyLabel_;
};

PKCS11Signer::PKCS11Signer(std::unique_ptr<Pkcs11Session> session) : session_(std::move(session)) {}

PKCS11Signer::~PKCS11Signer() = default;

std::unique_ptr<PKCS11Signer> PKCS11Signer::open(const std::string& modulePath, const Pkcs11Uri& uri,
                                                 std::string& error) {
  auto session = std::make_unique<Pkcs11Session>();
  const std::string path = !modulePath.empty() ? modulePath : !uri.modulePath.empty() ? uri.modulePath
                                                                                        : kDefaultPkcs11Module;
  if (!session->open(path, uri, error)) return nullptr;
  if (session->keyType() != CKK_RSA && session->keyType() != CKK_EC) {
    error = "the key on the token is neither RSA nor EC";
    return nullptr;
  }
  return std::unique_ptr<PKCS11Signer>(new PKCS11Signer(std::move(session)));
}

const char* PKCS11Signer::signatureOid(const DigestChoice& digest) const {
  return session_->keyType() == CKK_RSA ? digest.rsaSignatureOid : digest.ecdsaSignatureOid;
}

bool PKCS11Signer::sign(const DigestChoice& digest, const Bytes& data, Bytes& signature, std::string& error) {
  return session_->sign(digest, data, signature, error);
}

KeyMatch PKCS11Signer::matches(EVP_PKEY* publicKey) { return session_->matches(publicKey); }

std::string PKCS11Signer::name() const { return session_->name(); }

bool PKCS11Signer::certificate(Bytes& out, std::string& error) { return session_->certificate(out, error); }

bool promptForPin(const std::string& prompt, std::string& pin) {
  if (isatty(STDIN_FILENO) == 0) return false;
  std::fprintf(stderr, "%s", prompt.c_str());
  std::fflush(stderr);
  termios saved;
  const bool haveTerminal = tcgetattr(STDIN_FILENO, &saved) == 0;
  if (haveTerminal) {
    termios quiet = saved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  char line[256];
  const bool read = std::fgets(line, sizeof line, stdin) != nullptr;
  if (haveTerminal) tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
  std::fprintf(stderr, "\n");
  if (!read) return false;
  pin = line;
  while (!pin.empty() && (pin.back() == '\n' || pin.back() == '\r')) pin.pop_back();
  std::memset(line, 0, sizeof line);
  return true;
}
