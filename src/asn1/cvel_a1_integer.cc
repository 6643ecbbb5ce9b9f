#include "asn1/cvel_a1_integer.h"

#include <cstdio>
#include <cstdlib>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_der.h"

namespace {

constexpr uint32_t kValueOctets = 4;
// Five content octets with a leading zero still carry a 32-bit unsigned value.
constexpr uint32_t kPaddedValueOctets = 5;
// Held octets are written behind the tag and one length octet.
constexpr uint32_t kHeldHeaderOctets = 2;
// A held value's element: the tag and its one length octet, then at most four content octets.
constexpr uint32_t kValueHeaderOctets = 2;

uint32_t bigEndian(const unsigned char* p, uint32_t n) {
  uint32_t v = 0;
  for (uint32_t i = 0; i < n; ++i) v = v << 8 | p[i];
  return v;
}

}  // namespace

uint32_t CvelA1Integer::valueOctets() const {
  if (value_ < 0x100u) return 1;
  if (value_ < 0x10000u) return 2;
  if (value_ < 0x1000000u) return 3;
  return 4;
}

int64_t CvelA1Integer::encodedSize() const {
  if (bytes_.isEmpty()) return 2 + valueOctets();
  // The DER size, also above 127 octets where encode writes one length octet less.
  return static_cast<int64_t>(cvelTlvSize(bytes_.length()));
}

uint32_t CvelA1Integer::valueContent(unsigned char* content) const {
  const uint32_t n = valueOctets();
  for (uint32_t i = 0; i < n; ++i) content[i] = static_cast<unsigned char>(value_ >> (8 * (n - 1 - i)));
  return n;
}

CvelResult CvelA1Integer::encode(CvelString& out) {
  if (bytes_.isEmpty()) {
    unsigned char content[kValueOctets];
    const uint32_t n = valueContent(content);
    CvelResult r = wrap(content, n, kTagInteger, out);
    if (r != kCvelOk) return r;
    return bytes_.assign(content, n);
  }
  return encodeHeld(out);
}

void CvelA1Integer::write(CvelDerWriter& w) const {
  if (bytes_.isEmpty()) {
    unsigned char content[kValueOctets];
    const uint32_t n = valueContent(content);
    w.element(kTagInteger, content, n);
    return;
  }
  // One length octet whatever the count, as encodeHeld writes it.
  w.byte(kTagInteger);
  w.byte(static_cast<uint8_t>(bytes_.length()));
  w.bytes(bytes_);
}

uint32_t CvelA1Integer::writeValueElement(unsigned char* dst) const {
  if (!bytes_.isEmpty()) return 0;
  static_assert(kValueElementRoom == kValueHeaderOctets + kValueOctets, "tag, one length octet, the value");
  const uint32_t n = valueContent(dst + kValueHeaderOctets);
  dst[0] = kTagInteger;
  dst[1] = static_cast<unsigned char>(n);
  return kValueHeaderOctets + n;
}

CvelResult CvelA1Integer::encodeHeld(CvelString& out) const {
  // Integer contents above 127 octets are not supported, by design: the length is written as one octet
  // holding the low eight bits of the count, so a longer content yields an element whose length octet does
  // not describe it and which is one or more octets shorter than encodedSize() says. The element is still
  // exactly tag, length octet and the held octets; nothing is read or written past them.
  const CvelResult r = cvelEncodeDer(out, [this](CvelDerWriter& w) { write(w); });
  if (r == kCvelErrNoMemory) out.release();
  return r;
}

CvelResult CvelA1Integer::decode(const CvelString& s, const CvelA1Context* context) {
  CvelA1Context child;
  if (context != nullptr) child.enterElementOf(*context);
  if (child.next(s) != kTagInteger) return kCvelErrMalformed;
  return decodeContent(s, child);
}

CvelResult CvelA1Integer::decodeContent(const CvelString& s, const CvelA1Context& context) {
  CvelA1Context child;
  child.enterElementOf(context);
  const uint32_t n = child.contentLength();
  if (n >= 1 && n <= kValueOctets && child.elementInside(s)) {
    // A value that fits needs no copy of its octets: the copy would be released at once below.
    value_ = bigEndian(s.data() + child.contentOffset(), n);
    bytes_.release();
    return kCvelOk;
  }
  CvelString content;
  CvelResult r = content.assign(s, &child);
  if (r != kCvelOk) return r;
  // The octets are taken first; what follows decides whether the value replaces them.
  bytes_.moveFrom(content);
  if (n == 0) {
    std::printf("[TRACE] CvelA1Integer::decodeContent: empty INTEGER content\n");
    return kCvelErrBadParameter;
  }
  if (n == kPaddedValueOctets && bytes_.data()[0] == 0) {
    value_ = bigEndian(bytes_.data() + 1, kValueOctets);
  }
  return kCvelOk;
}

CvelResult CvelA1Integer::decode(CvelA1Input& in, const CvelA1StreamCursor& cursor) {
  if (cursor.tag() != kTagInteger) return kCvelErrMalformed;
  // A value that fits (versions, nearly always) is read straight into place; a short read takes the general
  // path below, which copies what there is.
  const uint32_t n = cursor.contentLength();
  if (n >= 1 && n <= kValueOctets && cursor.contentOffset() <= in.size() && n <= in.size() - cursor.contentOffset()) {
    unsigned char octets[kValueOctets];
    uint32_t got = 0;
    if (in.seek(cursor.contentOffset(), CvelA1Input::kFromStart) == kCvelOk && in.read(octets, n, &got) == kCvelOk &&
        got == n) {
      value_ = bigEndian(octets, n);
      bytes_.release();
      return kCvelOk;
    }
  }
  CvelString content;
  CvelResult r = cursor.getContent(in, content);
  if (r != kCvelOk) return r;
  const uint32_t copied = content.length();
  if (copied >= 1 && copied <= kValueOctets) {
    value_ = bigEndian(content.data(), copied);
    bytes_.release();
  } else {
    value_ = 0;
    bytes_.moveFrom(content);
  }
  return kCvelOk;
}

CvelResult CvelA1Integer::decode(CvelA1File&) {
  // Deliberately unsupported: a host that reaches it gets the trace line and a stopped process, so the
  // misuse shows at once instead of as a wrong value later.
  std::printf("[TRACE] CvelA1Integer::decode(CvelA1File)\n");
  std::fflush(stdout);
  std::abort();
}
