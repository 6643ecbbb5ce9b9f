// CvelTSPResponse: a time-stamp token kept by a signer info, with where it was found; CvelTSPResponses: the
// list of them, searched by the token's DER.
#ifndef KOLVARI_CMS_CVEL_TSP_RESPONSE_H
#define KOLVARI_CMS_CVEL_TSP_RESPONSE_H

#include <cstdint>

#include "asn1/cvel_managed_array.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_result.h"
#include "cms/cvel_tst_info.h"

class CvelTSPResponse : public CvelNonCopyObject {
 public:
  CvelTSPResponse() = default;
  explicit CvelTSPResponse(bool fromSignedAttributes) : fromSignedAttributes_(fromSignedAttributes) {}

  CvelTSTInfo& token() { return token_; }
  const CvelTSTInfo& token() const { return token_; }
  // True for a token that was a value of a signed attribute.
  bool fromSignedAttributes() const { return fromSignedAttributes_; }

 private:
  CvelTSTInfo token_;
  bool fromSignedAttributes_ = false;
};

class CvelTSPResponses : public CvelManagedArray<CvelTSPResponse>, public CvelNonCopyObject {
 public:
  // Position of the first response whose token DER equals element's: kCvelOk; kCvelErrBadParameter for a
  // null argument, an empty list or no equal token; kCvelErrMalformed at an empty slot.
  CvelResult indexOf(const CvelTSPResponse* element, uint32_t* index) const;
};

#endif  // KOLVARI_CMS_CVEL_TSP_RESPONSE_H
