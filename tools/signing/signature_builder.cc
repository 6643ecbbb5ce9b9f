#include "signing/signature_builder.h"

#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_time.h"

#include <openssl/objects.h>

namespace {

constexpr uint32_t kReplace = 1;
// Extra attributes are added beside what is already there, never in place of it.
constexpr uint32_t kAddValue = 0;

// The content octets of the OBJECT IDENTIFIER written as dotted text; false for text that is not one.
bool oidContent(const char* dotted, Bytes& out) {
  ASN1_OBJECT* oid = OBJ_txt2obj(dotted, 1);
  const unsigned char* content = oid == nullptr ? nullptr : OBJ_get0_data(oid);
  const size_t length = oid == nullptr ? 0 : OBJ_length(oid);
  if (content != nullptr && length > 0) out.assign(content, content + length);
  ASN1_OBJECT_free(oid);
  return content != nullptr && length > 0;
}

// Turns a library result into a message; true when the call succeeded.
bool called(const char* function, uint32_t result, std::string& error) {
  if (result == ZARV_OK) return true;
  error = std::string(function) + " returned " + describeResult(result);
  return false;
}

// Owns a signer-info or container handle for the length of a run, and gives it back to the library.
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

bool addAttributes(const ZarvFunctions& zarv, SignerInfoRecord* signer, const std::vector<ExtraAttribute>& attributes,
                   bool isSigned, std::string& error) {
  for (const ExtraAttribute& a : attributes) {
    const uint32_t result = isSigned ? zarv.addSignedAttribute(signer, a.oid, a.value, kAddValue)
                                     : zarv.addUnsignedAttribute(signer, a.oid, a.value, kAddValue);
    if (!called(isSigned ? "ZARV_AddSignedAttribute" : "ZARV_AddUnsignedAttribute", result, error)) return false;
  }
  return true;
}

bool setSignedAttributes(const ZarvFunctions& zarv, SignerInfoRecord* signer, const SignerInfoRequest& r,
                         std::string& error) {
  Bytes certificateHash = r.certificateHash;
  if (certificateHash.empty() && !digestBytes(*r.digest, r.certificate, certificateHash)) {
    error = "cannot hash: " + opensslError();
    return false;
  }
  if (!called("ZARV_SetDataHash", zarv.setDataHash(signer, r.messageDigest, r.digest->digestOid, kReplace), error) ||
      !called("ZARV_SetSignerCertificate",
              zarv.setSignerCertificate(signer, r.certificate, certificateHash, r.digest->digestOid), error)) {
    return false;
  }
  if (r.withSigningTime) {
    std::string time = r.time;
    if (time.empty()) {
      CvelString now;
      if (currentTime(now, 0) != kCvelOk) {
        error = "cannot read the clock";
        return false;
      }
      time = now.c_str();
    }
    if (!called("ZARV_SetSigningTime", zarv.setSigningTime(signer, time), error)) return false;
  }
  return called("ZARV_SetContentType", zarv.setContentType(signer, Bytes()), error) &&
         addAttributes(zarv, signer, r.signedAttributes, true, error);
}

// How often a thread tries the library's lock before it sleeps on it. A turn lasts about a microsecond;
// a thread that sleeps on the lock waits for the kernel to wake it, which on a virtual machine can take
// longer than the turn itself (a two-thread batch that slept some 200 times per 2000 signatures signed a
// quarter fewer per second). A few microseconds of trying cover nearly every turn.
constexpr int kTurnAttempts = 200;

// Tells the processor that this thread waits in a loop (another hardware thread of the core may run).
inline void waitingInPlace() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

// Takes lock: first by trying it while the thread that holds it finishes its turn, then by sleeping on it.
void takeTurn(std::unique_lock<std::mutex>& turn) {
  for (int attempt = 0; attempt < kTurnAttempts; ++attempt) {
    if (turn.try_lock()) return;
    waitingInPlace();
  }
  turn.lock();
}

// The library's turn of one thread: request.libraryLock held, when there is one.
std::unique_lock<std::mutex> libraryTurn(std::mutex* lock) {
  if (lock == nullptr) return std::unique_lock<std::mutex>();
  std::unique_lock<std::mutex> turn(*lock, std::defer_lock);
  takeTurn(turn);
  return turn;
}

// ContentInfo { id-data, [0] { OCTET STRING content } } for attached signing.
bool attachedContentInfo(const Bytes& content, Bytes& out) {
  return cvelEncodeDer(out, [&content](CvelDerWriter& w) {
           w.element(kTagSequence, [&] {
             w.bytes(kDerOidData, sizeof kDerOidData);
             w.element(kTagContext0, [&] { w.element(kTagOctetString, content.data(), content.size()); });
           });
         }) == kCvelOk;
}

}  // namespace

bool buildSignerInfo(const ZarvFunctions& zarv, const SignerInfoRequest& r, Bytes& signerInfo, std::string& error) {
  const char* signatureOid = r.signer->signatureOid(*r.digest);
  if (signatureOid == nullptr) {
    error = "only RSA and EC keys are supported";
    return false;
  }
  OwnedHandle<SignerInfoRecord> signer(zarv.releaseSignerInfo);
  Bytes dtbs;
  {
    // Each turn starts with a call that sets the library's OID state from a known identifier (the digest,
    // then the signature algorithm), so the bytes do not depend on which thread had the turn before.
    const std::unique_lock<std::mutex> turn = libraryTurn(r.libraryLock);
    if (!called("ZARV_CreateSignerInfo", zarv.createSignerInfo(signer.out()), error) ||
        !setSignedAttributes(zarv, signer.get(), r, error) ||
        !called("ZARV_GetDTBS", zarv.getDTBS(signer.get(), &dtbs), error)) {
      return false;
    }
  }
  Bytes signature;
  if (!r.signer->sign(*r.digest, dtbs, signature, error)) return false;
  std::unique_lock<std::mutex> turn = libraryTurn(r.libraryLock);
  if (!called("ZARV_SetP1Signature", zarv.setP1Signature(signer.get(), signatureOid, signature), error) ||
      !addAttributes(zarv, signer.get(), r.unsignedAttributes, false, error)) {
    return false;
  }
  if (r.afterSignature) {
    if (turn.owns_lock()) turn.unlock();
    std::vector<ExtraAttribute> more;
    if (!r.afterSignature(signature, r.certificate, more, error)) return false;
    if (turn.mutex() != nullptr) takeTurn(turn);
    if (!addAttributes(zarv, signer.get(), more, false, error)) return false;
  }
  return called("ZARV_EncodeSignerInfo", zarv.encodeSignerInfo(signer.get(), &signerInfo), error);
}

bool buildContainer(const ZarvFunctions& zarv, const ContainerRequest& r, Bytes& out, std::string& error) {
  // OpenSSL's conversion, not the library's: the library's converter keeps a process-wide state that the
  // signer-info calls of other threads use under their lock, and containers are built outside it.
  Bytes digestOctets;
  if (!oidContent(r.digest->digestOid, digestOctets)) {
    error = std::string("cannot encode the digest OID ") + r.digest->digestOid;
    return false;
  }

  OwnedHandle<P72Container> container(zarv.closeP72Container);
  if (!called("ZARV_CreateP72Container", zarv.createP72Container(container.out()), error)) return false;
  if (r.attachedContent != nullptr) {
    Bytes info;
    if (!attachedContentInfo(*r.attachedContent, info)) {
      error = "content too large";
      return false;
    }
    if (!called("ZARV_SetContentInfo", zarv.setContentInfo(container.get(), info), error)) return false;
  }
  if (!called("ZARV_AddDigestAlgorithm", zarv.addDigestAlgorithm(container.get(), digestOctets), error)) return false;
  for (const Bytes& c : r.certificates) {
    if (!called("ZARV_AddCertificate", zarv.addCertificate(container.get(), c), error)) return false;
  }
  for (const Bytes& c : r.crls) {
    if (!called("ZARV_AddCRL", zarv.addCRL(container.get(), c), error)) return false;
  }
  for (const Bytes& s : r.signerInfos) {
    if (!called("ZARV_AddSignerInfo", zarv.addSignerInfo(container.get(), s), error)) return false;
  }
  return called("ZARV_EncodeP72", zarv.encodeP72(container.get(), &out), error);
}

void addCertificates(const std::vector<Bytes>& certificates, std::vector<Bytes>& list) {
  for (const Bytes& c : certificates) {
    bool known = false;
    for (const Bytes& k : list) known = known || k == c;
    if (!known) list.push_back(c);
  }
}
