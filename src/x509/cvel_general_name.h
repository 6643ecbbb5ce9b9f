// GeneralName and GeneralNames: each name keeps its whole element; parse splits it by its tag.
#ifndef KOLVARI_X509_CVEL_GENERAL_NAME_H
#define KOLVARI_X509_CVEL_GENERAL_NAME_H

#include <cstdint>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_managed_array.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_string.h"
#include "x509/cvel_dname.h"

class CvelGeneralName : public CvelNonCopyObject {
 public:
  // The tag value of a name that could not be decoded.
  static constexpr uint8_t kInvalidTag = 0xFF;

  // Decodes encoded() into tag, typeId, value and directoryName (see the table of forms in the .cc).
  CvelResult parse();
  // 1 when equal by the rule of this name's tag; e-mail names (0x81, 0xA1) never match.
  int matches(const CvelGeneralName& other) const;

  CvelString& encoded() { return encoded_; }
  const CvelString& encoded() const { return encoded_; }
  uint8_t tag() const { return tag_; }
  const CvelString& typeId() const { return typeId_; }
  const CvelString& value() const { return value_; }
  const CvelDName& directoryName() const { return directoryName_; }

 private:
  CvelString encoded_;
  uint8_t tag_ = kInvalidTag;
  CvelString typeId_;
  CvelString value_;
  CvelDName directoryName_;
};

class CvelGeneralNames : public CvelManagedArray<CvelGeneralName>, public CvelNonCopyObject {
 public:
  // Decodes a GeneralNames SEQUENCE read as the next element of reader (first element of der when null).
  // A name that does not decode is dropped; the result is that of the last name (0 for a non-SEQUENCE).
  CvelResult parse(const CvelString& der, CvelA1Context* reader = nullptr);
  // Number of names with this tag; the index-th of them (from 0) is lent through out (set to null first).
  // kCvelErrBadParameter when out is null, kCvelErrMalformed at an empty slot.
  uint32_t findByTag(uint8_t tag, CvelGeneralName** out, uint32_t index) const;
};

#endif  // KOLVARI_X509_CVEL_GENERAL_NAME_H
