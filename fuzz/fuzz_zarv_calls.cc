// The exported calls in an order the fuzzer chooses, on two container and two signer-info slots, with
// arguments taken from the input. Properties: no call crashes or leaks, every result is a code of the
// interface's table (or 0 / end of data, which the DER reader and the certificate parser pass through), a
// call on an empty slot is refused with ZARV_E_BAD_PARAMETER, and what EncodeP72 and GetDTBS return is a
// SEQUENCE and a SET.
//
// Input: a stream of steps. A step is one byte (call in the low five bits, slot in bit 5, replace flag in
// bit 6, "use the last SignerInfo" in bit 7), then for calls with an argument a two-byte little-endian length
// and that many bytes (cut to what is left).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "kolvari/zarv.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr uint8_t kSlotBit = 0x20;
constexpr uint8_t kReplaceBit = 0x40;
constexpr uint8_t kLastSignerInfoBit = 0x80;
constexpr uint8_t kCallMask = 0x1F;
constexpr uint8_t kTagSequence = 0x30;
constexpr uint8_t kTagSet = 0x31;
constexpr uint32_t kEndOfData = 0xE100FFF4u;  // the DER reader's end of data, passed through

// Dotted texts the calls get: well-formed, the converter's odd cases, and junk.
const char* const kOidTexts[] = {"2.16.840.1.101.3.4.2.1", "1.2.840.113549.1.9.5", "1.2.840.10045.4.3.2",
                                 "1.2.128", "2.999.16384.1", "", "1", "abc", "1..2", "-1.2.3"};
constexpr size_t kOidCount = sizeof(kOidTexts) / sizeof(kOidTexts[0]);

enum Call : uint8_t {
  kCreateContainer, kCloseContainer, kSetVersion, kSetContentTypeOid, kSetContentInfo, kAddDigestAlgorithm,
  kAddCertificate, kAddCrl, kAddSignerInfo, kEncodeP72, kResetContainer, kCreateSignerInfo,
  kReleaseSignerInfo, kSetSigningTime, kSetDataHash, kSetSignerCertificate, kSetEnvironment, kSetContentType,
  kAddSignedAttribute, kAddUnsignedAttribute, kGetDtbs, kSetP1Signature, kEncodeSignerInfo, kCallCount
};
constexpr bool takesArgument(uint8_t call) {
  return call != kCreateContainer && call != kCloseContainer && call != kEncodeP72 && call != kResetContainer &&
         call != kCreateSignerInfo && call != kReleaseSignerInfo && call != kGetDtbs && call != kEncodeSignerInfo;
}

bool inTable(uint32_t r) {
  return r == ZARV_OK || r == ZARV_E_BAD_PARAMETER || r == ZARV_E_OUT_OF_MEMORY || r == ZARV_E_NOT_STORED ||
         r == ZARV_E_INCOMPLETE || r == ZARV_E_NO_ATTRIBUTE_TABLE || r == kEndOfData || r == 0;
}

class Run {
 public:
  ~Run() {
    for (P72Container*& c : containers_) {
      if (c != nullptr) ZARV_CloseP72Container(c);
    }
    for (SignerInfoRecord*& s : signers_) {
      if (s != nullptr) ZARV_ReleaseSignerInfo(s);
    }
  }

  void step(uint8_t head, const Bytes& argument) {
    const uint8_t call = head & kCallMask;
    const int slot = (head & kSlotBit) != 0 ? 1 : 0;
    const uint32_t replace = (head & kReplaceBit) != 0 ? 1 : 0;
    const bool lastSignerInfo = (head & kLastSignerInfoBit) != 0;
    const Bytes& bytes = lastSignerInfo ? signerInfo_ : argument;
    const std::string text(argument.begin(), argument.end());
    const std::string oid = kOidTexts[argument.empty() ? 0 : argument[0] % kOidCount];
    P72Container*& c = containers_[slot];
    SignerInfoRecord*& s = signers_[slot];
    const bool emptyContainer = c == nullptr;
    const bool emptySigner = s == nullptr;
    Bytes out;
    uint32_t r = ZARV_OK;
    bool onContainer = true;
    switch (call) {
      case kCreateContainer:
        if (!emptyContainer) return;
        r = ZARV_CreateP72Container(&c);
        break;
      case kCloseContainer:
        r = ZARV_CloseP72Container(c);
        c = nullptr;
        break;
      case kSetVersion: r = ZARV_SetVersion(c, bytes); break;
      case kSetContentTypeOid: r = ZARV_SetContentTypeOID(c, bytes); break;
      case kSetContentInfo: r = ZARV_SetContentInfo(c, bytes); break;
      case kAddDigestAlgorithm: r = ZARV_AddDigestAlgorithm(c, bytes); break;
      case kAddCertificate: r = ZARV_AddCertificate(c, bytes); break;
      case kAddCrl: r = ZARV_AddCRL(c, bytes); break;
      case kAddSignerInfo: r = ZARV_AddSignerInfo(c, bytes); break;
      case kEncodeP72:
        r = ZARV_EncodeP72(c, &out);
        if (r == ZARV_OK && (out.empty() || out[0] != kTagSequence)) std::abort();
        break;
      case kResetContainer: r = ZARV_ResetP72Container(c); break;
      default:
        onContainer = false;
        r = signerStep(call, s, replace, bytes, text, oid);
        break;
    }
    if (!inTable(r)) std::abort();
    // A call on an empty slot must be refused as a null handle, whatever else it was given.
    const bool emptySlot = onContainer ? emptyContainer : emptySigner;
    const bool creates = call == kCreateContainer || call == kCreateSignerInfo;
    if (emptySlot && !creates && r != ZARV_E_BAD_PARAMETER) std::abort();
  }

 private:
  uint32_t signerStep(uint8_t call, SignerInfoRecord*& s, uint32_t replace, const Bytes& bytes,
                      const std::string& text, const std::string& oid) {
    Bytes out;
    uint32_t r = ZARV_OK;
    switch (call) {
      case kCreateSignerInfo:
        if (s != nullptr) return ZARV_OK;
        return ZARV_CreateSignerInfo(&s);
      case kReleaseSignerInfo:
        r = ZARV_ReleaseSignerInfo(s);
        s = nullptr;
        return r;
      case kSetSigningTime: return ZARV_SetSigningTime(s, text);
      case kSetDataHash: return ZARV_SetDataHash(s, bytes, oid, replace);
      case kSetSignerCertificate: return ZARV_SetSignerCertificate(s, bytes, Bytes(32, 0x22), oid);
      case kSetEnvironment: return ZARV_SetSignatureCreationEnvironment(s, text, oid, replace);
      case kSetContentType: return ZARV_SetContentType(s, bytes);
      case kAddSignedAttribute: return ZARV_AddSignedAttribute(s, oid, bytes, replace);
      case kAddUnsignedAttribute: return ZARV_AddUnsignedAttribute(s, oid, bytes, replace);
      case kGetDtbs:
        r = ZARV_GetDTBS(s, &out);
        if (r == ZARV_OK && (out.empty() || out[0] != kTagSet)) std::abort();
        return r;
      case kSetP1Signature: return ZARV_SetP1Signature(s, oid, bytes);
      case kEncodeSignerInfo:
        r = ZARV_EncodeSignerInfo(s, &out);
        if (r == ZARV_OK) {
          if (out.empty() || out[0] != kTagSequence) std::abort();
          signerInfo_ = out;
        }
        return r;
      default: return ZARV_OK;
    }
  }

  P72Container* containers_[2] = {nullptr, nullptr};
  SignerInfoRecord* signers_[2] = {nullptr, nullptr};
  Bytes signerInfo_;
};

constexpr size_t kMaxSteps = 64;
constexpr size_t kMaxInput = 0x10000;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxInput) return 0;
  Run run;
  size_t at = 0;
  for (size_t steps = 0; steps < kMaxSteps && at < size; ++steps) {
    const uint8_t head = data[at++];
    if ((head & kCallMask) >= kCallCount) continue;
    Bytes argument;
    if (takesArgument(head & kCallMask)) {
      size_t length = 0;
      if (at < size) length = data[at++];
      if (at < size) length |= static_cast<size_t>(data[at++]) << 8;
      if (length > size - at) length = size - at;
      argument.assign(data + at, data + at + length);
      at += length;
    }
    run.step(head, argument);
  }
  return 0;
}
