// CvelOCSPResponse: one OCSP response (RFC 6960), a complete OCSPResponse or a bare BasicOCSPResponse, kept
// as DER. The parse fills views ("slices") into the kept bytes for the parts revocation data needs, the
// responder, the production time and the status of the first certificate the response speaks of.
#ifndef KOLVARI_X509_CVEL_OCSP_RESPONSE_H
#define KOLVARI_X509_CVEL_OCSP_RESPONSE_H

#include <cstdint>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_managed_array.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"
#include "asn1/cvel_time.h"
#include "x509/cvel_certificate.h"
#include "x509/cvel_certificate_extension.h"

class CvelOCSPResponse : public CvelNonCopyObject {
 public:
  // What parse() returns on any mismatch: 0, not an error code.
  static constexpr CvelResult kNotParsed = 0;
  // Identifier octets of certStatus: good, revoked (primitive or constructed), unknown.
  static constexpr uint32_t kStatusGood = 0x80;
  static constexpr uint32_t kStatusRevoked = 0x81;
  static constexpr uint32_t kStatusUnknown = 0x82;
  static constexpr uint32_t kStatusGoodConstructed = 0xA0;
  static constexpr uint32_t kStatusRevokedConstructed = 0xA1;
  static constexpr uint32_t kStatusUnknownConstructed = 0xA2;
  // responseStatus of a successful response.
  static constexpr uint8_t kSuccessful = 0;

  CvelOCSPResponse() = default;

  // Parses encoded() again: kCvelOk, or kNotParsed on any mismatch (also for an empty encoded()). What was
  // filled before a mismatch keeps its value.
  CvelResult parse();
  // Copies bytes into encoded() and parses them.
  CvelResult parse(const void* bytes, uint32_t n);

  // Read-only: the parsed members are views into these bytes, so only parse(bytes, n) replaces them.
  const CvelString& encoded() const { return encoded_; }
  const CvelCertificateList& certificates() const { return certificates_; }
  const CvelString& responseStatus() const { return responseStatus_; }
  const CvelString& responseBytes() const { return responseBytes_; }
  const CvelString& responseType() const { return responseType_; }
  const CvelString& basicResponse() const { return basicResponse_; }
  const CvelString& tbsResponseData() const { return tbsResponseData_; }
  const CvelString& signatureAlgorithm() const { return signatureAlgorithm_; }
  const CvelString& signature() const { return signature_; }
  const CvelString& certsElement() const { return certsElement_; }
  const CvelString& version() const { return version_; }
  const CvelString& responderId() const { return responderId_; }
  bool responderByName() const { return responderByName_; }
  const CvelString& producedAt() const { return producedAt_; }
  const CvelString& responses() const { return responses_; }
  const CvelString& responseExtensionsElement() const { return responseExtensionsElement_; }
  const CvelCertificateExtensions& responseExtensions() const { return responseExtensions_; }
  const CvelString& certId() const { return certId_; }
  const CvelString& certStatus() const { return certStatus_; }
  const CvelString& thisUpdate() const { return thisUpdate_; }
  const CvelString& nextUpdate() const { return nextUpdate_; }
  const CvelString& singleExtensionsElement() const { return singleExtensionsElement_; }
  const CvelCertificateExtensions& singleExtensions() const { return singleExtensions_; }
  const CvelString& revocationTimeElement() const { return revocationTimeElement_; }
  uint8_t status() const { return status_; }
  uint32_t certStatusTag() const { return certStatusTag_; }
  const CvelTime& revocationTime() const { return revocationTime_; }
  uint8_t revocationReason() const { return revocationReason_; }

 private:
  void reset();
  // Each step reads one structure of the grammar; false on a mismatch.
  bool readOuter(bool& errorResponse);
  bool readBasicResponse();
  bool readCertificates();
  bool readResponseData();
  bool readFirstSingleResponse();
  bool readRevokedInfo(const CvelA1Context& statusElement);

  CvelCertificateList certificates_;
  CvelString encoded_;
  CvelString responseStatus_;
  CvelString responseBytes_;
  CvelString responseType_;
  CvelString basicResponse_;
  CvelString tbsResponseData_;
  CvelString signatureAlgorithm_;
  CvelString signature_;
  CvelString certsElement_;
  CvelString version_;
  CvelString responderId_;
  bool responderByName_ = false;
  CvelString producedAt_;
  CvelString responses_;
  CvelString responseExtensionsElement_;
  CvelCertificateExtensions responseExtensions_;
  CvelString certId_;
  CvelString certStatus_;
  CvelString thisUpdate_;
  CvelString nextUpdate_;
  CvelString singleExtensionsElement_;
  CvelCertificateExtensions singleExtensions_;
  CvelString revocationTimeElement_;
  uint8_t status_ = 0;
  uint32_t certStatusTag_ = 0;
  CvelTime revocationTime_;
  uint8_t revocationReason_ = 0;
};

class CvelOCSPResponses : public CvelManagedArray<CvelOCSPResponse>, public CvelNonCopyObject {};

#endif  // KOLVARI_X509_CVEL_OCSP_RESPONSE_H
