// The exported calls in an order the fuzzer chooses, on two container and two signer-info slots, with
// arguments taken from the input. Properties: no call crashes or leaks, every result is a code of the
// interface's table (or 0 / end of data, which the DER reader and the certificate parser pass through), a
// call on an empty slot is refused with ZARV_E_BAD_PARAMETER, and what EncodeP72 and GetDTBS return is a
// SEQUENCE and a SET.
//
// Input: a stream of steps. A step is one byte (call in the low five bits, slot in bit 5, replace flag in
// bit 6, "use the last SignerInfo" in bit 7), then for calls with an argument a two-byte little-endian length
// and that many bytes (cut to what is left).
#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "kolvari/zarv.h"
#include "fuzz_input.h"

namespace {

using Bytes = std::vector<unsigned char>;

enum StepBits : uint8_t { kCallMask = 0x1F, kSlotBit = 0x20, kReplaceBit = 0x40, kLastSignerInfoBit = 0x80 };
enum Tag : uint8_t { kTagSequence = 0x30, kTagSet = 0x31 };
constexpr uint32_t kEndOfData = 0xE100FFF4u;  // the DER reader's end of data, passed through
constexpr size_t kMaxSteps = 64;

// Dotted texts the calls get: well-formed, the converter's odd cases, and junk.
const char* const kOidTexts[] = {"2.16.840.1.101.3.4.2.1", "1.2.840.113549.1.9.5", "1.2.840.10045.4.3.2",
                                 "1.2.128", "2.999.16384.1", "", "1", "abc", "1..2", "-1.2.3"};

struct Slot {
  P72Container* c = nullptr;
  SignerInfoRecord* s = nullptr;
};

struct Args {
  const Bytes& bytes;  // the step's argument, or the last SignerInfo encoded
  std::string text;
  std::string oid;
  uint32_t replace;
  Bytes& out;
};

enum Target : uint8_t { kContainer, kSigner, kCreatesContainer, kCreatesSigner };

struct Call {
  Target target;
  bool takesArgument;
  uint8_t outputTag;  // what a successful call's output starts with; 0 for the calls without output
  uint32_t (*run)(Slot& t, const Args& a);
};

const Call kCalls[] = {
    {kCreatesContainer, false, 0, [](Slot& t, const Args&) { return t.c ? ZARV_OK : ZARV_CreateP72Container(&t.c); }},
    {kContainer, false, 0, [](Slot& t, const Args&) { return ZARV_CloseP72Container(std::exchange(t.c, nullptr)); }},
    {kContainer, true, 0, [](Slot& t, const Args& a) { return ZARV_SetVersion(t.c, a.bytes); }},
    {kContainer, true, 0, [](Slot& t, const Args& a) { return ZARV_SetContentTypeOID(t.c, a.bytes); }},
    {kContainer, true, 0, [](Slot& t, const Args& a) { return ZARV_SetContentInfo(t.c, a.bytes); }},
    {kContainer, true, 0, [](Slot& t, const Args& a) { return ZARV_AddDigestAlgorithm(t.c, a.bytes); }},
    {kContainer, true, 0, [](Slot& t, const Args& a) { return ZARV_AddCertificate(t.c, a.bytes); }},
    {kContainer, true, 0, [](Slot& t, const Args& a) { return ZARV_AddCRL(t.c, a.bytes); }},
    {kContainer, true, 0, [](Slot& t, const Args& a) { return ZARV_AddSignerInfo(t.c, a.bytes); }},
    {kContainer, false, kTagSequence, [](Slot& t, const Args& a) { return ZARV_EncodeP72(t.c, &a.out); }},
    {kContainer, false, 0, [](Slot& t, const Args&) { return ZARV_ResetP72Container(t.c); }},
    {kCreatesSigner, false, 0, [](Slot& t, const Args&) { return t.s ? ZARV_OK : ZARV_CreateSignerInfo(&t.s); }},
    {kSigner, false, 0, [](Slot& t, const Args&) { return ZARV_ReleaseSignerInfo(std::exchange(t.s, nullptr)); }},
    {kSigner, true, 0, [](Slot& t, const Args& a) { return ZARV_SetSigningTime(t.s, a.text); }},
    {kSigner, true, 0, [](Slot& t, const Args& a) { return ZARV_SetDataHash(t.s, a.bytes, a.oid, a.replace); }},
    {kSigner, true, 0,
     [](Slot& t, const Args& a) { return ZARV_SetSignerCertificate(t.s, a.bytes, Bytes(32, 0x22), a.oid); }},
    {kSigner, true, 0,
     [](Slot& t, const Args& a) { return ZARV_SetSignatureCreationEnvironment(t.s, a.text, a.oid, a.replace); }},
    {kSigner, true, 0, [](Slot& t, const Args& a) { return ZARV_SetContentType(t.s, a.bytes); }},
    {kSigner, true, 0, [](Slot& t, const Args& a) { return ZARV_AddSignedAttribute(t.s, a.oid, a.bytes, a.replace); }},
    {kSigner, true, 0,
     [](Slot& t, const Args& a) { return ZARV_AddUnsignedAttribute(t.s, a.oid, a.bytes, a.replace); }},
    {kSigner, false, kTagSet, [](Slot& t, const Args& a) { return ZARV_GetDTBS(t.s, &a.out); }},
    {kSigner, true, 0, [](Slot& t, const Args& a) { return ZARV_SetP1Signature(t.s, a.oid, a.bytes); }},
    {kSigner, false, kTagSequence, [](Slot& t, const Args& a) { return ZARV_EncodeSignerInfo(t.s, &a.out); }},
};
constexpr size_t kCallCount = sizeof(kCalls) / sizeof(kCalls[0]);
constexpr size_t kEncodeSignerInfo = kCallCount - 1;

bool inTable(uint32_t r) {
  return r == ZARV_OK || r == ZARV_E_BAD_PARAMETER || r == ZARV_E_OUT_OF_MEMORY || r == ZARV_E_NOT_STORED ||
         r == ZARV_E_INCOMPLETE || r == ZARV_E_NO_ATTRIBUTE_TABLE || r == kEndOfData || r == 0;
}

struct Run {
  Slot slots[2];
  Bytes signerInfo;

  ~Run() {
    for (Slot& t : slots) {
      if (t.c != nullptr) ZARV_CloseP72Container(t.c);
      if (t.s != nullptr) ZARV_ReleaseSignerInfo(t.s);
    }
  }

  void step(uint8_t head, const Bytes& argument) {
    const size_t index = head & kCallMask;
    const Call& call = kCalls[index];
    Slot& t = slots[(head & kSlotBit) != 0 ? 1 : 0];
    Bytes out;
    const Args args{(head & kLastSignerInfoBit) != 0 ? signerInfo : argument,
                    std::string(argument.begin(), argument.end()),
                    kOidTexts[argument.empty() ? 0 : argument[0] % std::size(kOidTexts)],
                    (head & kReplaceBit) != 0 ? 1u : 0u, out};
    const bool onContainer = call.target == kContainer || call.target == kCreatesContainer;
    const bool emptySlot = onContainer ? t.c == nullptr : t.s == nullptr;
    const uint32_t r = call.run(t, args);
    fuzzCheck(inTable(r));
    // A call on an empty slot must be refused as a null handle, whatever else it was given.
    fuzzCheck(!emptySlot || call.target >= kCreatesContainer || r == ZARV_E_BAD_PARAMETER);
    fuzzCheck(r != ZARV_OK || call.outputTag == 0 || (!out.empty() && out[0] == call.outputTag));
    if (r == ZARV_OK && index == kEncodeSignerInfo) signerInfo = out;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kFuzzMaxInput) return 0;
  Run run;
  size_t at = 0;
  for (size_t steps = 0; steps < kMaxSteps && at < size; ++steps) {
    const uint8_t head = data[at++];
    if ((head & kCallMask) >= kCallCount) continue;
    Bytes argument;
    if (kCalls[head & kCallMask].takesArgument) {
      size_t length = 0;
      if (at < size) length = data[at++];
      if (at < size) length |= static_cast<size_t>(data[at++]) << 8;
      length = std::min(length, size - at);
      argument.assign(data + at, data + at + length);
      at += length;
    }
    run.step(head, argument);
  }
  return 0;
}
