// CvelStringTuple: an ordered list of strings; CvelStringTuples: a list of such lists.
#ifndef KOLVARI_ASN1_CVEL_STRING_TUPLE_H
#define KOLVARI_ASN1_CVEL_STRING_TUPLE_H

#include "asn1/cvel_managed_array.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_string.h"

class CvelStringTuple : public CvelManagedArray<CvelString>, public CvelNonCopyObject {
 public:
  // Appends a copy of text; the result of the copy, or of the append.
  CvelResult addText(const char* text) {
    CvelString* item = new CvelString();
    CvelResult r = item->assign(text == nullptr ? "" : text);
    if (r != kCvelOk) {
      delete item;
      return r;
    }
    return add(item);
  }
};

class CvelStringTuples : public CvelManagedArray<CvelStringTuple>, public CvelNonCopyObject {};

#endif  // KOLVARI_ASN1_CVEL_STRING_TUPLE_H
