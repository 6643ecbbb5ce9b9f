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

bool same(const CvelA1P72& a, const CvelA1P72& b) {
  if (!a.version().bytes().equals(b.version().bytes()) || a.version().value() != b.version().value() ||
      !a.digestAlgorithms().equals(b.digestAlgorithms()) ||
      !a.contentInfo().contentType().equals(b.contentInfo().contentType()) ||
      !a.contentInfo().content().equals(b.contentInfo().content()) ||
      a.certificates().size() != b.certificates().size() || b.crls().size() != 0) {
    return false;
  }
  for (uint32_t i = 0; i < a.certificates().size(); ++i) {
    if (!a.certificates().get(i)->encoded().equals(b.certificates().get(i)->encoded())) return false;
  }
  return fuzzSameEach<CvelP7SignerInfo>(a.signerInfos(), b.signerInfos(), fuzzSameSignerInfo);
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
  if (!fuzzIntegersFit(p72)) return 0;

  CvelString encoded;
  CvelString reencoded;
  if (p72.encode(encoded, false) != kCvelOk) std::abort();
  CvelA1InputString again(encoded, 0, encoded.length());
  CvelA1StreamCursor second;
  CvelA1P72 copy;
  if (copy.decode(again, second) != kCvelOk || second.position() != encoded.length() || !same(p72, copy) ||
      copy.encode(reencoded, false) != kCvelOk || !reencoded.equals(encoded)) {
    std::abort();
  }
  return 0;
}
