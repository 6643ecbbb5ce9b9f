// Distinguished names: CvelRDName is one attribute (type and value elements kept as DER), CvelDName the flat
// list of them in encoding order (the grouping into RDN SETs is not kept).
#ifndef KOLVARI_X509_CVEL_DNAME_H
#define KOLVARI_X509_CVEL_DNAME_H

#include <cstdint>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_managed_array.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_string.h"

class CvelRDName final : public CvelNonCopyObject {
 public:
  // Reads the AttributeTypeAndValue SEQUENCE that `element` has just read: its OBJECT IDENTIFIER into type
  // (and typeId from the registry), the following element into value. 0 when the first child is not an OID.
  CvelResult parse(const CvelString& der, const CvelA1Context& element, CvelKeep keep = CvelKeep::kCopy);
  // 1 when equal: same type bytes; values equal byte for byte, or, when this value is a PrintableString,
  // equal after folding runs of spaces and letter case (length octets are not adjusted, so runs of spaces
  // of different lengths stay unequal).
  int equals(const CvelRDName& other) const;

  int32_t typeId() const { return typeId_; }
  const CvelString& type() const { return type_; }
  const CvelString& value() const { return value_; }
  const CvelString& text() const { return text_; }
  // Not filled by the parse; kept for callers that tag entries.
  uint32_t extra() const { return extra_; }

 private:
  // The strings first and the two 32-bit fields together: 64 bytes an entry on 64-bit targets, so that the
  // block of a certificate's names and extensions stays small.
  CvelString text_;
  CvelString type_;
  CvelString value_;
  int32_t typeId_ = 0;
  uint32_t extra_ = 0;
};

// The attributes of a Name element, found before any is made so that they are made in one block: how many
// (SETs and SEQUENCEs read the same way as the parse reads them), and the cursors of the first few. A name
// of up to that many attributes (nearly every one) is then parsed from them without a second walk.
struct CvelNameScan {
  // Names of the Mozilla roots hold 2 to 6 attributes: every cursor kept is set up with each scan.
  static constexpr uint32_t kKept = 8;
  CvelA1Context element;  // has just read the Name SEQUENCE
  CvelA1Context at[kKept];
  uint32_t count = 0;
  bool startsWithSet = false;

  bool complete() const { return count <= kKept; }
};

class CvelDName final : public CvelBlockArray<CvelRDName>, public CvelNonCopyObject {
 public:
  // Decodes a Name read as the next element of reader (the first element of der when reader is null).
  // kCvelOk, 0 when the element is not a SEQUENCE of SETs or holds no attribute, kCvelErrMalformed when an
  // attribute does not parse. On success encoded holds a copy of the whole Name element. With keep kView the
  // attributes and encoded are views into der, which must then outlive this name.
  CvelResult parse(const CvelString& der, CvelA1Context* reader = nullptr, CvelKeep keep = CvelKeep::kCopy);
  // Empties the list, gives its block back and releases encoded.
  void reset();
  // Finds the attributes of the SEQUENCE `nameElement` has just read.
  static void scan(const CvelString& der, const CvelA1Context& nameElement, CvelNameScan& out);
  // parse() of a Name already scanned: the same results, the attributes made in store when it has room.
  CvelResult parseScanned(const CvelString& der, const CvelNameScan& scan, CvelKeep keep,
                          CvelBlockStore* store = nullptr);
  // 1 when both hold the same number of attributes and each pair is equal.
  int equals(const CvelDName& other) const;
  // Produces no bytes: out is cleared and the result is 0. The DER of a parsed name is encoded().
  CvelResult encode(CvelString& out) const;

  const CvelString& encoded() const { return encoded_; }

 private:
  CvelString encoded_;
};

// Folds a PrintableString element for comparison: every run of spaces shrinks to one, letters to lower case
// (up to a first zero byte). Shared by name and general-name comparison.
void cvelFoldPrintable(const CvelString& value, CvelString& out);

#endif  // KOLVARI_X509_CVEL_DNAME_H
