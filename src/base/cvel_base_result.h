// Result codes of the runtime services beside the ones every layer shares (asn1/cvel_result.h).
#ifndef KOLVARI_BASE_CVEL_BASE_RESULT_H
#define KOLVARI_BASE_CVEL_BASE_RESULT_H

#include "asn1/cvel_result.h"

// The file to remove or open does not exist.
inline constexpr CvelResult kCvelErrNoSuchFile {0xE100FF01u};
// A configuration section or key that is not there.
inline constexpr CvelResult kCvelErrNotFound {0xE100FF03u};
// A configuration text over its size limit, or a temporary-file prefix too long for its name buffer.
inline constexpr CvelResult kCvelErrTooLong {0xE100FF04u};
// A configuration line holding a byte outside the allowed set.
inline constexpr CvelResult kCvelErrForbiddenByte {0xE100FFF3u};
// The file system is mounted read-only (same value as kCvelErrIncomplete, which the DER layer uses).
inline constexpr CvelResult kCvelErrReadOnly {0xE100FFF2u};

#endif  // KOLVARI_BASE_CVEL_BASE_RESULT_H
