// What the fuzz targets share: the fuzzer's bytes as a CvelString view, so that the decoders read the fuzzer's
// own buffer (an overread shows at once under AddressSanitizer); the same bytes as a file; and the check that
// ends the run when a property does not hold, so that the fuzzer keeps the input; the result codes a decoder
// may give.
#ifndef KOLVARI_FUZZ_FUZZ_INPUT_H
#define KOLVARI_FUZZ_FUZZ_INPUT_H

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"

// Larger inputs only slow the run down: nothing in the decoders depends on size beyond this.
inline constexpr size_t kFuzzMaxInput = 0x10000;

// False when the input is skipped.
inline bool fuzzView(const uint8_t* data, size_t size, CvelString& view, size_t maxInput = kFuzzMaxInput) {
  return size <= maxInput && view.setView(data, size) == kCvelOk;
}

inline void fuzzCheck(bool holds) {
  if (!holds) std::abort();
}

// One of the library's result codes, or 0, which some decoders give for "not this kind of element".
inline bool fuzzDocumented(CvelResult r) {
  return r == kCvelNone || r == kCvelOk || r == kCvelErrBadParameter || r == kCvelErrNoMemory ||
         r == kCvelErrMalformed || r == kCvelErrIncomplete || r == kCvelErrNullData || r == kCvelErrEndOfData;
}

// One temporary file per process, rewritten for every input and removed when the process ends. It lives in
// memory (/dev/shm) where the system has it: on a disk every input costs a write and the run slows tenfold.
class FuzzFile {
 public:
  FuzzFile() {
    int fd = mkstemp(path_);
    if (fd < 0) {
      std::snprintf(path_, sizeof path_, "%s", "/tmp/kolvari-fuzz-XXXXXX");
      fd = mkstemp(path_);
    }
    if (fd >= 0) close(fd);
  }
  ~FuzzFile() { std::remove(path_); }

  // The path of a file that holds exactly the bytes; null when it cannot be written.
  const char* write(const uint8_t* data, size_t size) {
    std::ofstream out(path_, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    out.close();
    return out ? path_ : nullptr;
  }

 private:
  char path_[32] = "/dev/shm/kolvari-fuzz-XXXXXX";
};

#endif  // KOLVARI_FUZZ_FUZZ_INPUT_H
