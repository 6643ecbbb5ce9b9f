// Converts arbitrary bytes from UTF-8 to code points. Whatever converts in strict mode must convert back to the
// same bytes; a conversion through a target of one code point at a time must stop where the whole one does.
#include <stdexcept>
#include <string>
#include <vector>

#include "asn1/cvel_text_encoding.h"
#include "fuzz_input.h"

// Feeds the converter one output slot at a time; returns the final result and where the source stopped.
static CvelConversionResult convertInSteps(const uint8_t* data, size_t size, std::vector<uint32_t>& out,
                                           const uint8_t** stop) {
  const uint8_t* s = data;
  CvelConversionResult r = kConversionOk;
  while (s < data + size) {
    uint32_t one = 0;
    uint32_t* t = &one;
    r = convertUtf8ToUtf32(&s, data + size, &t, &one + 1, kStrictConversion);
    if (t != &one) out.push_back(one);
    if (r != kTargetExhausted) break;
  }
  *stop = s;
  return r == kTargetExhausted ? kConversionOk : r;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kFuzzMaxInput) return 0;
  std::vector<uint32_t> whole(size), stepped;
  const uint8_t* s = data;
  const uint8_t* stop = nullptr;
  uint32_t* t = whole.data();
  const CvelConversionResult r = convertUtf8ToUtf32(&s, data + size, &t, whole.data() + size, kStrictConversion);
  whole.resize(static_cast<size_t>(t - whole.data()));
  fuzzCheck(convertInSteps(data, size, stepped, &stop) == r && stop == s && stepped == whole);

  const std::string text(reinterpret_cast<const char*>(data), size);
  if (r != kConversionOk) {
    try {
      (void)toWide(text);
      std::abort();  // a failed conversion must throw
    } catch (const std::runtime_error&) {
    }
    return 0;
  }
  for (uint32_t ch : whole) fuzzCheck(ch <= 0x10FFFF && (ch < 0xD800 || ch > 0xDFFF));
  fuzzCheck(toUtf8(toWide(text)) == text);
  return 0;
}
