// Parses arbitrary bytes as time text and decodes them as DER, bare or through a cursor over the first
// element. A successful parse holds only digits, so its fields print back as the 15 characters YYYYMMDDhhmmssZ.
#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_time.h"
#include "fuzz_input.h"

static void checkParsed(const CvelTime& t, CvelResult r) {
  CvelString text;
  fuzzCheck(r != kCvelOk || (t.isValid() && t.toText(text) == kCvelOk && text.length() == 15));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A view of the input, without a terminator: the parser must stop at the length.
  CvelString s;
  if (!fuzzView(data, size, s, 4096)) return 0;
  CvelTime bare, decoded, inner;
  checkParsed(bare, bare.parse(s));
  checkParsed(decoded, decoded.decode(s, nullptr));
  CvelA1Context c;
  if (c.next(s) >= 0) checkParsed(inner, inner.decode(s, &c));
  return 0;
}
