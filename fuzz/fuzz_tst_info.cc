// Decodes arbitrary bytes as a time-stamp token. Reading it from inside a parent element must give what
// reading it alone gives; and a token that decodes, its signed data encoded again, decodes to the same
// token info.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_der.h"
#include "cms/cvel_tst_info.h"
#include "fuzz_cms.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString image;
  if (!fuzzView(data, size, image)) return 0;
  CvelTSTInfo token;
  if (token.encoded().assign(image) != kCvelOk) return 0;
  const CvelResult result = token.decode();

  // The same bytes as the content of a SET, read through decodeFrom.
  CvelString set;
  if (wrap(image, kTagSet, set) != kCvelOk) return 0;
  CvelA1Context parent;
  CvelTSTInfo fromParent;
  if (parent.next(set) != kTagSet || fromParent.decodeFrom(parent, set) != result ||
      !fromParent.encoded().equals(image) || !fuzzSameTst(token, fromParent)) {
    std::abort();
  }
  if (result != kCvelOk) return 0;
  if (token.version() != CvelTSTInfo::kVersion) std::abort();
  if (!fuzzIntegersFit(token.signedData())) return 0;

  CvelTSTInfo again;
  if (token.signedData().encode(again.encoded(), false) != kCvelOk || again.decode() != kCvelOk ||
      !fuzzSameTst(token, again)) {
    std::abort();
  }
  return 0;
}
