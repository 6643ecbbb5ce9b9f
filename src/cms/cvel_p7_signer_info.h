// CvelP7SignerInfo: one CMS SignerInfo, each component kept as its DER bytes so that what was set or read is
// written back unchanged.
#ifndef KOLVARI_CMS_CVEL_P7_SIGNER_INFO_H
#define KOLVARI_CMS_CVEL_P7_SIGNER_INFO_H

#include <cstdint>
#include <memory>

#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_string.h"
#include "x509/cvel_certificate.h"

class CvelP7SignerInfo : public CvelNonCopyObject {
 public:
  CvelP7SignerInfo() = default;

  // SEQUENCE { version, sid, digestAlgorithm, [0] signedAttrs when set, signatureAlgorithm,
  // OCTET STRING signature, [1] unsignedAttrs when set }. Fields never set are written as nothing.
  CvelResult encode(CvelString& out) const;

  CvelString& workingBuffer() { return workingBuffer_; }
  // The signer certificate, once one was given.
  const CvelCertificate* signerCertificate() const { return signerCertificate_.get(); }
  void setSignerCertificate(std::unique_ptr<CvelCertificate> certificate) {
    signerCertificate_ = std::move(certificate);
  }
  // Complete DER AlgorithmIdentifier.
  CvelString& digestAlgorithm() { return digestAlgorithm_; }
  CvelA1Integer& version() { return version_; }
  int32_t attributeFlag() const { return attributeFlag_; }
  void setAttributeFlag(int32_t flag) { attributeFlag_ = flag; }
  // The concatenated Attribute encodings, without an enclosing tag.
  CvelString& signedAttributes() { return signedAttributes_; }
  // Complete DER AlgorithmIdentifier.
  CvelString& signatureAlgorithm() { return signatureAlgorithm_; }
  // Raw signature bytes.
  CvelString& signatureValue() { return signatureValue_; }
  CvelString& unsignedAttributes() { return unsignedAttributes_; }
  // Complete DER IssuerAndSerialNumber.
  CvelString& signerIdentifier() { return signerIdentifier_; }

 private:
  CvelString workingBuffer_;
  std::unique_ptr<CvelCertificate> signerCertificate_;
  CvelString digestAlgorithm_;
  CvelA1Integer version_;
  int32_t attributeFlag_ = 1;
  CvelString signedAttributes_;
  CvelString signatureAlgorithm_;
  CvelString signatureValue_;
  CvelString unsignedAttributes_;
  CvelString signerIdentifier_;
};

#endif  // KOLVARI_CMS_CVEL_P7_SIGNER_INFO_H
