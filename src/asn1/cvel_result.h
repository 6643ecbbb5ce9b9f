// Result codes shared by every layer of the library: one success value and the 0xE100xxxx failures.
#ifndef KOLVARI_ASN1_CVEL_RESULT_H
#define KOLVARI_ASN1_CVEL_RESULT_H

#include <cstdint>

using CvelResult = uint32_t;

inline constexpr CvelResult kCvelOk = 0x21000001u;
// Null pointer, bad argument, seek outside the data, empty INTEGER content, no file.
inline constexpr CvelResult kCvelErrBadParameter = 0xE100FFFCu;
// Heap exhausted, or a number that does not fit its field.
inline constexpr CvelResult kCvelErrNoMemory = 0xE100FFFAu;
// Malformed or truncated element, wrong tag, item not stored.
inline constexpr CvelResult kCvelErrMalformed = 0xE100FFFFu;
// Incomplete structure, lookup without enough matches, unparsable time.
inline constexpr CvelResult kCvelErrIncomplete = 0xE100FFF2u;
// Null data pointer, empty list slot, missing table.
inline constexpr CvelResult kCvelErrNullData = 0xE100FFF9u;
// The stream cursor found no more elements in its range.
inline constexpr CvelResult kCvelErrEndOfData = 0xE100FFF4u;
// What an append that fitted into the existing buffer returns; kept distinct from kCvelOk on purpose.
inline constexpr CvelResult kCvelAppendedInPlace = 0xFFFFFFFFu;

// Several callers treat any value that is positive as a signed number as success.
inline constexpr bool cvelSucceeded(CvelResult r) { return static_cast<int32_t>(r) > 0; }

// Codes are unsigned 32-bit on every target; read as signed, success is positive and failures negative.
static_assert(sizeof(CvelResult) == 4 && static_cast<CvelResult>(-1) > 0, "result codes are unsigned 32-bit");
static_assert(cvelSucceeded(kCvelOk) && !cvelSucceeded(kCvelErrMalformed) && !cvelSucceeded(kCvelAppendedInPlace),
              "success reads positive, failures negative");

#endif  // KOLVARI_ASN1_CVEL_RESULT_H
