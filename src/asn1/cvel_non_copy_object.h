// CvelNonCopyObject: the base of the library's object classes, which are created, handed over and deleted
// individually and never copied implicitly.
#ifndef KOLVARI_ASN1_CVEL_NON_COPY_OBJECT_H
#define KOLVARI_ASN1_CVEL_NON_COPY_OBJECT_H

class CvelNonCopyObject {
 public:
  CvelNonCopyObject() = default;
  virtual ~CvelNonCopyObject() = default;
  CvelNonCopyObject(const CvelNonCopyObject&) = delete;
  CvelNonCopyObject& operator=(const CvelNonCopyObject&) = delete;
};

#endif  // KOLVARI_ASN1_CVEL_NON_COPY_OBJECT_H
