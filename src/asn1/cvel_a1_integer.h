// CvelA1Integer: a DER INTEGER, held as a 32-bit value or, when it does not fit, as its content octets.
#ifndef KOLVARI_ASN1_CVEL_A1_INTEGER_H
#define KOLVARI_ASN1_CVEL_A1_INTEGER_H

#include <cstdint>

#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"

class CvelA1Context;
class CvelA1File;
class CvelDerWriter;
class CvelA1Input;
class CvelA1StreamCursor;

class CvelA1Integer {
 public:
  CvelA1Integer() = default;
  explicit CvelA1Integer(uint32_t value) : value_(value) {}
  CvelA1Integer(const CvelA1Integer&) = delete;
  CvelA1Integer& operator=(const CvelA1Integer&) = delete;

  uint32_t value() const { return value_; }
  void setValue(uint32_t value) {
    bytes_.release();
    value_ = value;
  }
  // Content octets of a large value (serial numbers); empty when the value fits in 32 bits.
  const CvelString& bytes() const { return bytes_; }
  CvelResult setBytes(const void* content, uint32_t n) { return bytes_.assign(content, n); }

  // Size of the whole INTEGER element by the DER length rules; -1 when it cannot be encoded.
  int64_t encodedSize() const;
  // out receives the INTEGER element. A value is written in the fewest octets without a sign octet, so 128
  // gives 02 01 80; afterwards bytes holds the content just written. Held octets are written behind a
  // single length octet, whatever their number (see encode).
  CvelResult encode(CvelString& out);
  // Exactly what encode writes, without keeping the content octets, as part of a larger structure.
  void write(CvelDerWriter& w) const;
  // The same element for a value without held octets, written at dst (room for kValueElementRoom octets)
  // without a writer's counting pass; returns its length, or 0 when octets are held (write takes those).
  static constexpr uint32_t kValueElementRoom = 6;
  uint32_t writeValueElement(unsigned char* dst) const;

  // Reads the first element inside the context's current element (or the first element of s when context
  // is null); it must be an INTEGER.
  CvelResult decode(const CvelString& s, const CvelA1Context* context);
  // Takes the content of the context's current element as the integer's octets.
  CvelResult decodeContent(const CvelString& s, const CvelA1Context& context);
  // Takes the element last read by the stream cursor, which must be an INTEGER.
  CvelResult decode(CvelA1Input& in, const CvelA1StreamCursor& cursor);
  // Reading an INTEGER straight from a CvelA1File is not supported: it prints a trace line and aborts the
  // process. Callers read files through CvelA1StreamCursor and the overload above.
  [[noreturn]] CvelResult decode(CvelA1File& file);

 private:
  uint32_t valueOctets() const;
  // The value's octets, big-endian in the fewest octets, into content (room for four); returns their number.
  uint32_t valueContent(unsigned char* content) const;
  CvelResult encodeHeld(CvelString& out) const;

  CvelString bytes_;
  uint32_t value_ = 0;

  // Values of up to four content octets are held in value_ on every target; longer ones in bytes_.
  static_assert(sizeof(value_) == 4, "the held value is unsigned 32-bit");
};

#endif  // KOLVARI_ASN1_CVEL_A1_INTEGER_H
