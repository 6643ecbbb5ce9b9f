#include "asn1/cvel_checksum.h"

#include <array>

namespace {

// The Jones polynomial 0xAD93D23594C935A9, bit-reversed for the right-shifting form.
constexpr uint64_t kJonesReflected = 0x95AC9329AC4BC9B5ull;
constexpr unsigned kBitsPerByte = 8;
constexpr unsigned kTableSize = 256;

constexpr std::array<uint64_t, kTableSize> makeTable() {
  std::array<uint64_t, kTableSize> table{};
  for (unsigned i = 0; i < kTableSize; ++i) {
    uint64_t crc = i;
    for (unsigned bit = 0; bit < kBitsPerByte; ++bit) crc = (crc & 1u) ? (crc >> 1) ^ kJonesReflected : crc >> 1;
    table[i] = crc;
  }
  return table;
}

constexpr std::array<uint64_t, kTableSize> kTable = makeTable();

}  // namespace

uint64_t crc64(const void* bytes, uint32_t count) {
  if (bytes == nullptr || count == 0) return 0;
  const auto* p = static_cast<const unsigned char*>(bytes);
  uint64_t crc = 0;
  for (uint32_t i = 0; i < count; ++i) crc = kTable[(crc ^ p[i]) & 0xFFu] ^ (crc >> kBitsPerByte);
  return crc;
}

uint64_t crc64(const std::string& text) {
  // A string longer than 4 GiB is checksummed over its first 4 GiB - 1 bytes; no caller has such text.
  const uint32_t count = text.size() > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(text.size());
  return crc64(text.data(), count);
}
