// The library's 64-bit checksum: a reflected CRC-64 used where a short fingerprint of bytes or text is needed.
#ifndef KOLVARI_ASN1_CVEL_CHECKSUM_H
#define KOLVARI_ASN1_CVEL_CHECKSUM_H

#include <cstdint>
#include <string>

// CRC-64 over the reflected Jones polynomial, initial value 0, no final XOR; 0 for null or empty input.
uint64_t crc64(const void* bytes, uint32_t count);
// The same over the bytes of a standard string.
uint64_t crc64(const std::string& text);

#endif  // KOLVARI_ASN1_CVEL_CHECKSUM_H
