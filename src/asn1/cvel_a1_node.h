// CvelA1Node: a DER structure described as nested pieces. Sizes are summed once when the pieces are put
// together, and the whole structure is then written in one pass into a buffer of its final size.
#ifndef KOLVARI_ASN1_CVEL_A1_NODE_H
#define KOLVARI_ASN1_CVEL_A1_NODE_H

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"

class CvelA1Node {
 public:
  // Bytes written as they are (already DER, or the content of an enclosing element).
  static CvelA1Node raw(const void* bytes, uint64_t n);
  static CvelA1Node raw(const CvelString& s) { return raw(s.data(), s.length()); }
  // One element: tag, length octets, then the bytes.
  static CvelA1Node primitive(uint8_t tag, const void* bytes, uint64_t n);
  static CvelA1Node primitive(uint8_t tag, const CvelString& s) { return primitive(tag, s.data(), s.length()); }
  // One element around the concatenation of its children.
  static CvelA1Node constructed(uint8_t tag, std::vector<CvelA1Node> children);
  static CvelA1Node constructed(uint8_t tag, std::initializer_list<CvelA1Node> children) {
    return constructed(tag, std::vector<CvelA1Node>(children));
  }
  // The concatenation of pieces, without an enclosing element.
  static CvelA1Node sequenceOf(std::vector<CvelA1Node> children);

  // Size of everything this node writes.
  uint64_t size() const { return hasHeader_ ? cvelTlvSize(contentSize_) : contentSize_; }
  void write(CvelA1Writer& w) const;
  // out receives the encoding, allocated once at its final size.
  CvelResult encode(CvelString& out) const;
  // Appends the encoding to a byte vector, growing it once.
  CvelResult appendTo(std::vector<unsigned char>& out) const;

 private:
  CvelA1Node() = default;

  uint8_t tag_ = 0;
  bool hasHeader_ = false;
  const unsigned char* bytes_ = nullptr;  // borrowed; the caller keeps them alive until written
  uint64_t contentSize_ = 0;
  std::vector<CvelA1Node> children_;
};

#endif  // KOLVARI_ASN1_CVEL_A1_NODE_H
