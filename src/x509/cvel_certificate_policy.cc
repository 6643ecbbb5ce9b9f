#include "x509/cvel_certificate_policy.h"

#include <new>

#include "asn1/cvel_der.h"
#include "asn1/cvel_oid.h"

CvelResult CvelCertificatePolicy::decode(const CvelString& der, const CvelA1Context& element) {
  // The views point into encoded_, which is about to be replaced.
  policyIdentifier_.release();
  qualifiers_.release();
  policyId_ = 0;
  CvelResult r = encoded_.assign(der, &element);
  if (r != kCvelOk) return r;
  return split();
}

CvelResult CvelCertificatePolicy::split() {
  policyIdentifier_.release();
  qualifiers_.release();
  policyId_ = 0;
  // PolicyInformation ::= SEQUENCE { policyIdentifier OBJECT IDENTIFIER, policyQualifiers SEQUENCE OPTIONAL }
  CvelA1Context cursor;
  if (cursor.next(encoded_) != kTagOid) return 0;
  if (policyIdentifier_.setView(encoded_, cursor.elementOffset(), cursor.elementLength()) != kCvelOk) return 0;
  policyId_ = kindOf(policyIdentifier_);
  if (cursor.next(encoded_) == kTagSequence) {
    static_cast<void>(qualifiers_.setView(encoded_, cursor.elementOffset(), cursor.elementLength()));
  }
  return kCvelOk;
}

void CvelCertificatePolicies::decode(const CvelString& value, CvelA1Context* reader) {
  CvelA1CursorOrFresh reading(reader);
  CvelA1Context& cursor = reading.get();
  if (cursor.next(value) < 0) return;
  // The certificatePolicies SEQUENCE is the first element inside the OCTET STRING.
  CvelA1Context inside;
  inside.enterElementOf(cursor);
  if (inside.next(value) != kTagSequence) return;
  static_cast<void>(decodeList(value, inside));
}

CvelResult CvelCertificatePolicies::decodeList(const CvelString& der, const CvelA1Context& element) {
  clear();
  CvelA1Context child;
  child.enterElementOf(element);
  if (child.next(der) != kTagSequence) return 0;
  CvelResult r = 0;
  do {
    CvelCertificatePolicy* policy = new (std::nothrow) CvelCertificatePolicy();
    if (policy == nullptr) return kCvelErrMalformed;
    if (policy->decode(der, child) != kCvelOk) {
      delete policy;
      return kCvelErrMalformed;
    }
    r = add(policy);
    if (r != kCvelOk) return kCvelErrMalformed;
  } while (child.next(der) == kTagSequence);
  return r;
}
