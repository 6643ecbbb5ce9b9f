// CvelCertificate: one X.509 public-key certificate or attribute certificate, given as DER, PEM or bare
// base64. It is parsed once; every part of it is a view ("slice") into the kept DER, next to the decoded
// names, validity, version and extensions.
#ifndef KOLVARI_X509_CVEL_CERTIFICATE_H
#define KOLVARI_X509_CVEL_CERTIFICATE_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_oid.h"
#include "asn1/cvel_string.h"
#include "asn1/cvel_time.h"
#include "x509/cvel_certificate_extension.h"
#include "x509/cvel_certificate_names.h"
#include "x509/cvel_certificate_policy.h"
#include "x509/cvel_certificate_qc_statement.h"

class CvelCertificate;

// Shared references to certificates: a certificate's linked certificates, the certificates of a response.
class CvelCertificateList {
 public:
  void add(std::shared_ptr<CvelCertificate> certificate) { items_.push_back(std::move(certificate)); }
  uint32_t size() const { return static_cast<uint32_t>(items_.size()); }
  // Null for an index out of range.
  std::shared_ptr<CvelCertificate> get(uint32_t index) const {
    return index < items_.size() ? items_[index] : nullptr;
  }
  void clear() { items_.clear(); }

 private:
  std::vector<std::shared_ptr<CvelCertificate>> items_;
};

// Its size stays under a kilobyte on 64-bit systems: glibc serves larger blocks only after consolidating its
// small free blocks, which made allocating one cost a fifth of a whole signer round trip.
class CvelCertificate : public CvelNonCopyObject {
 public:
  // How the certificate was recognised; set by a wrapper OID, or by the parse.
  enum Kind : uint8_t {
    kUnknown = 0,
    kRoot = 1,
    kCaCertificate = 2,
    kSecondPrivateType = 3,
    kUserCertificate = 4,
    kAttributeCertificate = 5,
  };
  // What parse() returns when the input is not a certificate: 0, not an error code.
  static constexpr CvelResult kNotParsed = 0;

  CvelCertificate() = default;
  // Copies keep no slices of the source: they copy its DER and parse it again.
  CvelCertificate(const CvelCertificate& other);
  CvelCertificate& operator=(const CvelCertificate& other);

  // Parses encoded() in place: kCvelOk, or kNotParsed on any structural failure.
  CvelResult parse();
  // Copies bytes into encoded() and parses them.
  CvelResult parse(const void* bytes, uint32_t n);

  // The issuer Name element (kinds other than attribute certificate), or the Name inside the attribute
  // certificate's issuer GeneralNames.
  CvelResult getIssuer(CvelString& out) const;
  // SEQUENCE { issuer element, serialNumber element }.
  CvelResult getIssuerSerial(CvelString& out) const;
  // The index-th extension whose OID element equals oid: its whole OCTET STRING element and critical flag.
  // kCvelErrIncomplete when there are not enough matches, kCvelErrNullData at an empty slot.
  CvelResult getExtension(const CvelString& oid, CvelString& value, bool* critical, uint32_t index) const;
  // Decodes the date-of-certificate-generation extension. Its lookup compares a match count with the
  // success code, so as things stand the result is always kCvelErrMalformed; callers rely on that.
  CvelResult getGenerationDate(CvelTime& out, int flag) const;
  // Applies visitor to the linked certificates from the last to the first, recursing into each one's own
  // linked list unless directOnly is 1; with directOnly 1 the walk ends after the first visitor success.
  // A visitor failure ends the walk with kCvelErrMalformed.
  CvelResult walkLinked(const std::function<CvelResult(CvelCertificate&)>& visitor, int directOnly);

  uint8_t kind() const { return kind_; }
  uint8_t flag() const { return flag_; }
  void setFlag(uint8_t flag) { flag_ = flag; }
  CvelOIDs& oids() { return oids_; }
  const CvelOIDs& oids() const { return oids_; }
  CvelString& encoded() { return encoded_; }
  const CvelString& encoded() const { return encoded_; }
  const CvelString& wrapperType() const { return wrapperType_; }
  CvelCertificateList& linked() { return linked_; }

  const CvelString& tbs() const { return tbs_; }
  const CvelString& signatureAlgorithm() const { return signatureAlgorithm_; }
  const CvelString& signatureValue() const { return signatureValue_; }
  const CvelString& versionElement() const { return versionElement_; }
  const CvelString& serialNumber() const { return serialNumber_; }
  const CvelString& tbsSignatureAlgorithm() const { return tbsSignatureAlgorithm_; }
  const CvelString& issuer() const { return issuer_; }
  const CvelString& validity() const { return validity_; }
  const CvelString& subject() const { return subject_; }
  const CvelString& subjectPublicKeyInfo() const { return subjectPublicKeyInfo_; }
  const CvelString& issuerUniqueId() const { return issuerUniqueId_; }
  const CvelString& subjectUniqueId() const { return subjectUniqueId_; }
  const CvelString& extensionsElement() const { return extensionsElement_; }
  int32_t version() const { return version_; }
  // A public-key certificate's times are decoded with its names (see decodePending).
  const CvelTime& notBefore() const {
    decodePending();
    return notBefore_;
  }
  const CvelTime& notAfter() const {
    decodePending();
    return notAfter_;
  }
  // A public-key certificate's names and extensions are decoded when one of them is first read (see
  // decodePending): the parse's result does not depend on them, and what they hold is the same either way.
  // Like the slices, they read encoded() as the parse left it: change it only to parse again.
  const CvelCertificateIssuer& issuerName() const {
    decodePending();
    return issuerName_;
  }
  const CvelCertificateSubject& subjectName() const {
    decodePending();
    return subjectName_;
  }
  const CvelCertificateExtensions& extensions() const {
    decodePending();
    return extensions_;
  }
  // Policies and QC statements stay empty after a parse (intended: see decodePoliciesAndStatements).
  const CvelCertificatePolicies& policies() const { return policies_; }
  const CvelCertificateQcStatements& qcStatements() const { return qcStatements_; }

 private:
  void copyFrom(const CvelCertificate& other);
  void releaseSlices();
  // Forgets what an earlier parse left: the names, the extensions, their block and the slices.
  void forgetParse();
  void stripPemArmour();
  bool takeBareBase64();
  bool unwrap(CvelA1Context& outer);
  bool readOuter(CvelA1Context& certificate);
  bool isAttributeCertificate(const CvelA1Context& tbsElement) const;
  bool parsePublicKeyCertificate(const CvelA1Context& tbsElement);
  bool slicePublicKeyCertificate(const CvelA1Context& tbsElement);
  void decodePending() const {
    if (namesPending_.load(std::memory_order_acquire)) decodeOnce();
  }
  void decodeOnce() const;
  void decodeNamesAndExtensions() const;
  bool parseAttributeCertificate(const CvelA1Context& tbsElement);
  // mayDefer: the certificate's times may wait for decodePending (a public-key certificate).
  bool readValidity(const CvelA1Context& validityElement, bool mayDefer);
  bool deferTimes(const CvelA1Context& validityElement);
  void settleTimes() const;
  void decodePoliciesAndStatements();

  uint8_t kind_ = kUnknown;
  uint8_t flag_ = 0;
  // Set by the first parse: until then there are no views, names or extensions to forget.
  bool parsedBefore_ = false;
  CvelOIDs oids_;
  CvelString encoded_;
  CvelString wrapperType_;
  CvelCertificateList linked_;
  CvelString tbs_;
  CvelString signatureAlgorithm_;
  CvelString signatureValue_;
  CvelString versionElement_;
  CvelString serialNumber_;
  CvelString tbsSignatureAlgorithm_;
  CvelString issuer_;
  CvelString validity_;
  CvelString subject_;
  CvelString subjectPublicKeyInfo_;
  CvelString issuerUniqueId_;
  CvelString subjectUniqueId_;
  CvelString extensionsElement_;
  int32_t version_ = 1;
  mutable CvelTime notBefore_;
  mutable CvelTime notAfter_;
  // The texts of the two times while their decode waits (timesPending_): copies, so that they stay readable
  // whatever becomes of encoded(). Written before they are read, so left without an initial value.
  static constexpr uint32_t kTimeTextRoom = 32;
  static constexpr uint32_t kValidityTimes = 2;
  unsigned char timeTexts_[kValidityTimes][kTimeTextRoom];
  uint8_t timeLengths_[kValidityTimes];
  mutable bool timesPending_ = false;
  // Set by the parse of a public-key certificate until its names and extensions are decoded. The decode
  // runs once, under decodeLock_, so that threads reading one certificate may meet at it.
  mutable std::atomic<bool> namesPending_{false};
  mutable std::mutex decodeLock_;
  // The one block the entries of both names and of the extensions are made in; declared before them, so
  // that they give their entries back before it goes.
  mutable CvelBlockStore blocks_;
  mutable CvelCertificateIssuer issuerName_;
  mutable CvelCertificateSubject subjectName_;
  mutable CvelCertificateExtensions extensions_;
  CvelCertificatePolicies policies_;
  CvelCertificateQcStatements qcStatements_;
};

#endif  // KOLVARI_X509_CVEL_CERTIFICATE_H
