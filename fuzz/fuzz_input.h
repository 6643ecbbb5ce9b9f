// The fuzzer's bytes as a CvelString view, so that the decoders read the fuzzer's own buffer (an overread
// shows at once under AddressSanitizer) and inputs too large to be useful are skipped.
#ifndef KOLVARI_FUZZ_FUZZ_INPUT_H
#define KOLVARI_FUZZ_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>

#include "asn1/cvel_string.h"

// Larger inputs only slow the run down: nothing in the decoders depends on size beyond this.
inline constexpr size_t kFuzzMaxInput = 0x10000;

// False when the input is skipped.
inline bool fuzzView(const uint8_t* data, size_t size, CvelString& view, size_t maxInput = kFuzzMaxInput) {
  return size <= maxInput && view.setView(data, size) == kCvelOk;
}

#endif  // KOLVARI_FUZZ_FUZZ_INPUT_H
