// Result codes shared by every layer of the library: one success value and the 0xE100xxxx failures.
#ifndef KOLVARI_ASN1_CVEL_RESULT_H
#define KOLVARI_ASN1_CVEL_RESULT_H

#include <cstdint>

// A class rather than a plain integer so that a result cannot be dropped unnoticed: every function that
// returns one is [[nodiscard]] through its type. It converts to and from uint32_t (the exported interface's
// result type) implicitly, so codes compare and pass through as the numbers they are.
class [[nodiscard]] CvelResult {
 public:
  constexpr CvelResult(uint32_t code = 0) : code_(code) {}  // NOLINT: implicit on purpose
  constexpr operator uint32_t() const { return code_; }      // NOLINT: implicit on purpose

 private:
  uint32_t code_;
};

inline constexpr CvelResult kCvelOk {0x21000001u};
// Null pointer, bad argument, seek outside the data, empty INTEGER content, no file.
inline constexpr CvelResult kCvelErrBadParameter {0xE100FFFCu};
// Heap exhausted, or a number that does not fit its field.
inline constexpr CvelResult kCvelErrNoMemory {0xE100FFFAu};
// Malformed or truncated element, wrong tag, item not stored.
inline constexpr CvelResult kCvelErrMalformed {0xE100FFFFu};
// Incomplete structure, lookup without enough matches, unparsable time.
inline constexpr CvelResult kCvelErrIncomplete {0xE100FFF2u};
// Null data pointer, empty list slot, missing table.
inline constexpr CvelResult kCvelErrNullData {0xE100FFF9u};
// The stream cursor found no more elements in its range.
inline constexpr CvelResult kCvelErrEndOfData {0xE100FFF4u};
// Zero: neither a result code nor success. A few calls answer it for "nothing was done" (their comments
// say when).
inline constexpr CvelResult kCvelNone{0};
// What an append that fitted into the existing buffer returns; kept distinct from kCvelOk on purpose.
inline constexpr CvelResult kCvelAppendedInPlace {0xFFFFFFFFu};

// Several callers treat any value that is positive as a signed number as success.
inline constexpr bool cvelSucceeded(CvelResult r) { return static_cast<int32_t>(r) > 0; }

// Codes are unsigned 32-bit on every target; read as signed, success is positive and failures negative.
static_assert(sizeof(CvelResult) == 4 && CvelResult(0xFFFFFFFFu) > 0u, "result codes are unsigned 32-bit");
static_assert(cvelSucceeded(kCvelOk) && !cvelSucceeded(kCvelErrMalformed) && !cvelSucceeded(kCvelAppendedInPlace),
              "success reads positive, failures negative");

#endif  // KOLVARI_ASN1_CVEL_RESULT_H
