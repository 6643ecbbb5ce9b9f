// CvelTSTInfo: one RFC 3161 time-stamp token, a ContentInfo { signedData } whose encapsulated content is a
// TSTInfo, decoded field by field next to the token's signed data.
#ifndef KOLVARI_CMS_CVEL_TST_INFO_H
#define KOLVARI_CMS_CVEL_TST_INFO_H

#include <cstdint>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"
#include "asn1/cvel_time.h"
#include "cms/cvel_a1_p72.h"
#include "x509/cvel_certificate_extension.h"
#include "x509/cvel_general_name.h"

class CvelTSTInfo {
 public:
  // What decode returns for anything that is not a well-formed token: 0, not an error code.
  static constexpr CvelResult kNotDecoded = 0;
  // The only TSTInfo version there is.
  static constexpr int32_t kVersion = 1;

  CvelTSTInfo() = default;
  CvelTSTInfo(const CvelTSTInfo&) = delete;
  CvelTSTInfo& operator=(const CvelTSTInfo&) = delete;

  // Copies the content of the element `parent` last read inside parentString into encoded() and decodes it;
  // kCvelErrMalformed when the copy fails.
  CvelResult decodeFrom(const CvelA1Context& parent, const CvelString& parentString);
  // Decodes encoded(): kCvelOk, or kNotDecoded at the first mismatch, the fields read until then kept.
  CvelResult decode();

  CvelString& encoded() { return encoded_; }
  const CvelString& encoded() const { return encoded_; }
  // The TSTInfo DER, copied from the token's encapsulated content.
  const CvelString& content() const { return content_; }
  int32_t version() const { return version_; }
  // Whole elements: the policy OID, the messageImprint SEQUENCE, its AlgorithmIdentifier and OCTET STRING,
  // the serialNumber INTEGER.
  const CvelString& policy() const { return policy_; }
  const CvelString& messageImprint() const { return messageImprint_; }
  const CvelString& hashAlgorithm() const { return hashAlgorithm_; }
  const CvelString& hashedMessage() const { return hashedMessage_; }
  const CvelString& serialNumber() const { return serialNumber_; }
  const CvelTime& genTime() const { return genTime_; }
  bool accuracyPresent() const { return accuracyPresent_ != 0; }
  // The accuracy values that were present; the others keep -1.
  int32_t seconds() const { return seconds_; }
  int32_t millis() const { return millis_; }
  int32_t micros() const { return micros_; }
  bool ordering() const { return ordering_ != 0; }
  // Content octets of the nonce INTEGER; empty when there was none.
  const CvelString& nonce() const { return nonce_; }
  // The time-stamping authority; its encoded() is empty when there was none.
  const CvelGeneralName& tsa() const { return tsa_; }
  // Content of the [1] extensions element and the extensions read from it.
  const CvelString& extensionsContent() const { return extensionsContent_; }
  const CvelCertificateExtensions& extensions() const { return extensions_; }
  const CvelA1P72& signedData() const { return signedData_; }

 private:
  bool readSignedData();
  bool readTstInfo();
  bool readAccuracy(CvelA1Context& c, int32_t& tag);
  bool readOptionalFields(CvelA1Context& c, int32_t& tag);

  CvelString encoded_;
  CvelString content_;
  int32_t version_ = 0;
  CvelString policy_;
  CvelString messageImprint_;
  CvelString hashAlgorithm_;
  CvelString hashedMessage_;
  CvelString serialNumber_;
  CvelTime genTime_;
  uint32_t accuracyPresent_ = 0;
  int32_t seconds_ = -1;
  int32_t millis_ = -1;
  int32_t micros_ = -1;
  CvelString nonce_;
  CvelGeneralName tsa_;
  CvelString extensionsContent_;
  CvelCertificateExtensions extensions_;
  uint32_t ordering_ = 0;
  CvelA1P72 signedData_;
};

#endif  // KOLVARI_CMS_CVEL_TST_INFO_H
