#include "asn1/cvel_a1_size.h"

#include <cstring>

#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_der.h"

namespace {
constexpr uint32_t kMaxLengthOctets = 8;
constexpr uint64_t kOneOctetMax = 0xFF;
// A tag, the long-form marker and the most length octets: room in which any header fits.
constexpr uint64_t kLongestHeader = 1 + 1 + kMaxLengthOctets;
}

uint32_t cvelLongLengthOfLength(uint64_t n) {
  if (n < kShortLengthLimit) return 1;
  uint32_t octets = 1;
  while (octets < kMaxLengthOctets && (n >> (8 * octets)) != 0) ++octets;
  return 1 + octets;
}

uint32_t cvelWriteLength(uint64_t n, unsigned char* dst) {
  // The short form and one length octet, the lengths of nearly every element, without counting octets.
  if (n < kShortLengthLimit) {
    dst[0] = static_cast<unsigned char>(n);
    return 1;
  }
  if (n <= kOneOctetMax) {
    dst[0] = static_cast<unsigned char>(kLengthLongForm | 1);
    dst[1] = static_cast<unsigned char>(n);
    return 2;
  }
  uint32_t total = cvelLengthOfLength(n);
  uint32_t octets = total - 1;
  dst[0] = static_cast<unsigned char>(kLengthLongForm | octets);
  for (uint32_t i = 0; i < octets; ++i) dst[1 + i] = static_cast<unsigned char>(n >> (8 * (octets - 1 - i)));
  return total;
}

CvelResult encodeLength(uint64_t n, CvelString& out) {
  CvelResult r = out.allocate(cvelLengthOfLength(n));
  if (r != kCvelOk) return r;
  cvelWriteLength(n, out.data());
  return kCvelOk;
}

CvelResult CvelA1Size::encodeLength(CvelString& out) const {
  if (size_ >= 0) return ::encodeLength(static_cast<uint64_t>(size_), out);
  CvelResult r = out.allocate(1);
  if (r != kCvelOk) return r;
  out.data()[0] = static_cast<unsigned char>(size_ & 0x7F);
  return kCvelOk;
}

CvelResult wrap(const CvelString& content, uint8_t tag, CvelString& out) {
  if (&content == &out) {
    CvelString copy;
    CvelResult r = copy.assign(content);
    if (r != kCvelOk) return r;
    return wrap(copy.data(), copy.length(), tag, out);
  }
  return wrap(content.data(), content.length(), tag, out);
}

CvelResult wrap(const void* bytes, uint32_t n, uint8_t tag, CvelString& out) {
  const bool bitString = tag == kTagBitString;
  const CvelResult r = cvelEncodeDer(out, [&](CvelDerWriter& w) {
    w.element(tag, [&] {
      if (bitString) w.byte(0);  // no unused bits: content is whole octets
      w.bytes(bytes, n);
    });
  });
  if (r == kCvelErrNoMemory) out.release();
  return r;
}

uint64_t cvelBitStringBits(const CvelString& content) {
  const uint32_t n = content.length();
  if (n <= 1) return 0;
  const uint64_t whole = static_cast<uint64_t>(n - 1) * 8;
  // A non-zero leading octet takes away one bit, whatever number of unused bits it states; this rule is
  // deliberate and kept.
  const uint64_t taken = content.data()[0] != 0 ? 1 : 0;
  return whole < taken ? 0 : whole - taken;
}

void CvelA1Writer::longHeader(uint8_t tag, uint64_t contentLength) {
  // Written in place when tag and length octets fit, with the checks bytes() makes; nothing otherwise.
  // With room for the longest header the octets are written before they are counted.
  if (ok_ && left_ >= kLongestHeader) {
    at_[0] = tag;
    const uint32_t written = 1 + cvelWriteLength(contentLength, at_ + 1);
    at_ += written;
    left_ -= written;
    return;
  }
  const uint64_t n = 1 + uint64_t{cvelLengthOfLength(contentLength)};
  if (!ok_ || n > left_) {
    ok_ = false;
    return;
  }
  at_[0] = tag;
  cvelWriteLength(contentLength, at_ + 1);
  at_ += n;
  left_ -= n;
}
