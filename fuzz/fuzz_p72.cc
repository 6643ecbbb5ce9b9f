// Decodes arbitrary bytes as a signedData. Whatever decodes must encode and decode again to the same
// version, digest algorithms, content info, certificates and signer infos (the CRLs are not written, so the
// second reading has none), and encode a second time to the same bytes.
#include "fuzz_cms.h"

static bool same(const CvelA1P72& a, const CvelA1P72& b) {
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString image, encoded, reencoded;
  CvelA1StreamCursor cursor, second;
  CvelA1P72 p72, copy;
  if (!fuzzView(data, size, image) || !fuzzDecode(image, p72, cursor, false)) return 0;
  fuzzCheck(cursor.position() <= image.length());
  if (!fuzzIntegersFit(p72)) return 0;
  fuzzCheck(p72.encode(encoded, false) == kCvelOk && fuzzDecode(encoded, copy, second, false));
  fuzzCheck(second.position() == encoded.length() && same(p72, copy) && copy.encode(reencoded, false) == kCvelOk &&
            reencoded.equals(encoded));
  return 0;
}
