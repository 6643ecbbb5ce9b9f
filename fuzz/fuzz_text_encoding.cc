// Converts arbitrary bytes from UTF-8 to code points. Whatever converts in strict mode must convert back to the
// same bytes; a conversion through a target of one code point at a time must stop where the whole one does.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "asn1/cvel_text_encoding.h"
#include "fuzz_input.h"

namespace {

// Feeds the converter one output slot at a time; returns the final result and where the source stopped.
CvelConversionResult convertInSteps(const uint8_t* data, size_t size, std::vector<uint32_t>& out,
                                    const uint8_t** stop) {
  const uint8_t* s = data;
  const uint8_t* end = data + size;
  CvelConversionResult r = kConversionOk;
  while (s < end) {
    uint32_t one = 0;
    uint32_t* t = &one;
    r = convertUtf8ToUtf32(&s, end, &t, &one + 1, kStrictConversion);
    if (t != &one) out.push_back(one);
    if (r != kTargetExhausted) break;
  }
  *stop = s;
  return r == kTargetExhausted ? kConversionOk : r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kFuzzMaxInput) return 0;
  std::vector<uint32_t> whole(size);
  const uint8_t* s = data;
  uint32_t* t = whole.data();
  const CvelConversionResult r = convertUtf8ToUtf32(&s, data + size, &t, whole.data() + size, kStrictConversion);
  whole.resize(static_cast<size_t>(t - whole.data()));

  std::vector<uint32_t> stepped;
  const uint8_t* stop = nullptr;
  if (convertInSteps(data, size, stepped, &stop) != r || stop != s || stepped != whole) std::abort();

  const std::string text(reinterpret_cast<const char*>(data), size);
  if (r != kConversionOk) {
    try {
      (void)toWide(text);
      std::abort();  // a failed conversion must throw
    } catch (const std::runtime_error&) {
    }
    return 0;
  }
  for (uint32_t ch : whole) {
    if (ch > 0x10FFFF || (ch >= 0xD800 && ch <= 0xDFFF)) std::abort();
  }
  if (toUtf8(toWide(text)) != text) std::abort();
  return 0;
}
