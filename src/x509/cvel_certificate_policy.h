// Certificate policies: one record per PolicyInformation, with views of its identifier and qualifiers.
#ifndef KOLVARI_X509_CVEL_CERTIFICATE_POLICY_H
#define KOLVARI_X509_CVEL_CERTIFICATE_POLICY_H

#include <cstdint>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_managed_array.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_string.h"

class CvelCertificatePolicy : public CvelNonCopyObject {
 public:
  // Copies the content of the PolicyInformation SEQUENCE that `element` has just read, then split().
  CvelResult decode(const CvelString& der, const CvelA1Context& element);
  // Finds the policy OID (first element) and the qualifiers SEQUENCE (when next) in encoded: kCvelOk when
  // the OID was found, else 0.
  CvelResult split();

  const CvelString& encoded() const { return encoded_; }
  int32_t policyId() const { return policyId_; }
  const CvelString& policyIdentifier() const { return policyIdentifier_; }
  const CvelString& qualifiers() const { return qualifiers_; }

 private:
  CvelString encoded_;
  int32_t policyId_ = 0;
  CvelString policyIdentifier_;  // view into encoded_
  CvelString qualifiers_;        // view into encoded_
};

class CvelCertificatePolicies : public CvelManagedArray<CvelCertificatePolicy>, public CvelNonCopyObject {
 public:
  // value is the extension's OCTET STRING element (read as the next element of reader, or the first of
  // value when null); the certificatePolicies SEQUENCE inside it is decoded into the list.
  void decode(const CvelString& value, CvelA1Context* reader = nullptr);
  // Empties the list and decodes the PolicyInformation SEQUENCEs inside the certificatePolicies SEQUENCE
  // that `element` has just read. The last append's result; 0 when there is no PolicyInformation;
  // kCvelErrMalformed when a policy does not decode.
  CvelResult decodeList(const CvelString& der, const CvelA1Context& element);
};

#endif  // KOLVARI_X509_CVEL_CERTIFICATE_POLICY_H
