// Decodes arbitrary bytes as a signedData. Whatever decodes must encode and decode again to the same
// version, digest algorithms, content info, certificates and signer infos (the CRLs are not written, so the
// second reading has none), and encode a second time to the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "cms/cvel_a1_p72.h"
#include "fuzz_cms.h"
#include "fuzz_input.h"

namespace {

bool heldIntegersFit(const CvelA1P72& p72) {
  if (p72.version().bytes().length() > kFuzzMaxHeldInteger) return false;
  for (uint32_t i = 0; i < p72.signerInfos().size(); ++i) {
    CvelP7SignerInfo* signer = nullptr;
    if (p72.signerInfos().get(i, signer) != kCvelOk || signer->version().bytes().length() > kFuzzMaxHeldInteger)
      return false;
  }
  return true;
}

bool same(const CvelA1P72& a, const CvelA1P72& b) {
  if (a.version().value() != b.version().value() || !a.version().bytes().equals(b.version().bytes()) ||
      !a.digestAlgorithms().equals(b.digestAlgorithms()) ||
      !a.contentInfo().contentType().equals(b.contentInfo().contentType()) ||
      !a.contentInfo().content().equals(b.contentInfo().content()) ||
      a.certificates().size() != b.certificates().size() || a.signerInfos().size() != b.signerInfos().size() ||
      b.crls().size() != 0) {
    return false;
  }
  for (uint32_t i = 0; i < a.certificates().size(); ++i) {
    if (!a.certificates().get(i)->encoded().equals(b.certificates().get(i)->encoded())) return false;
  }
  for (uint32_t i = 0; i < a.signerInfos().size(); ++i) {
    CvelP7SignerInfo* x = nullptr;
    CvelP7SignerInfo* y = nullptr;
    if (a.signerInfos().get(i, x) != kCvelOk || b.signerInfos().get(i, y) != kCvelOk || !fuzzSameSignerInfo(*x, *y))
      return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString image;
  if (!fuzzView(data, size, image)) return 0;
  CvelA1InputString in(image, 0, image.length());
  CvelA1StreamCursor cursor;
  CvelA1P72 p72;
  if (p72.decode(in, cursor) != kCvelOk) return 0;
  if (cursor.position() > image.length()) std::abort();
  if (!heldIntegersFit(p72)) return 0;

  CvelString encoded;
  if (p72.encode(encoded, false) != kCvelOk) std::abort();
  CvelA1InputString again(encoded, 0, encoded.length());
  CvelA1StreamCursor second;
  CvelA1P72 copy;
  CvelString reencoded;
  if (copy.decode(again, second) != kCvelOk || second.position() != encoded.length() || !same(p72, copy) ||
      copy.encode(reencoded, false) != kCvelOk || !reencoded.equals(encoded)) {
    std::abort();
  }
  return 0;
}
