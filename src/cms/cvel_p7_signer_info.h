// CvelP7SignerInfo: one CMS SignerInfo, each component kept as its DER bytes so that what was set or read is
// written back unchanged.
#ifndef KOLVARI_CMS_CVEL_P7_SIGNER_INFO_H
#define KOLVARI_CMS_CVEL_P7_SIGNER_INFO_H

#include <cstdint>
#include <memory>
#include <vector>

#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_managed_array.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_string.h"
#include "x509/cvel_certificate.h"
#include "x509/cvel_crl.h"

class CvelA1Input;
class CvelA1StreamCursor;
class CvelDerWriter;
class CvelTSPResponses;

class CvelP7SignerInfo : public CvelNonCopyObject {
 public:
  CvelP7SignerInfo();
  ~CvelP7SignerInfo() override;

  // SEQUENCE { version, sid, digestAlgorithm, [0] signedAttrs when set, signatureAlgorithm,
  // OCTET STRING signature, [1] unsignedAttrs when set }. Fields never set are written as nothing.
  CvelResult encode(CvelString& out) const;
  // What encode writes, as part of a larger structure or into a buffer of the caller's.
  void write(CvelDerWriter& w) const;
  // What encode writes, into a vector of its final size in one pass: the fields' lengths give every header.
  // The results of cvelEncodeDer into a vector; out is replaced whole on success, untouched otherwise.
  CvelResult encode(std::vector<unsigned char>& out) const;

  // Reads the element the cursor has just read, a SEQUENCE (else kCvelErrMalformed), field by field; the
  // first field with an unexpected tag ends the reading quietly and the object keeps what it has. Then the
  // digest algorithm and the attributes are examined (see examineAttributes), whose result is returned.
  // When the element has indefinite length, the cursor is left on its end-of-contents, which its caller
  // reads next.
  CvelResult decode(CvelA1Input& in, CvelA1StreamCursor& cursor);
  // Notes the digest algorithm's kind, reads the revocation values of the unsigned attributes and collects
  // the time-stamp tokens of the signed, then the unsigned attributes, unless tokens were collected before.
  // Values that are not time-stamp tokens are dropped. kCvelOk.
  CvelResult examineAttributes();

  CvelString& workingBuffer() { return workingBuffer_; }
  // Complete DER AlgorithmIdentifier.
  CvelString& digestAlgorithm() { return digestAlgorithm_; }
  CvelA1Integer& version() { return version_; }
  const CvelA1Integer& version() const { return version_; }
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
  const CvelString& signerIdentifier() const { return signerIdentifier_; }
  const CvelString& digestAlgorithm() const { return digestAlgorithm_; }
  const CvelString& signedAttributes() const { return signedAttributes_; }
  const CvelString& signatureAlgorithm() const { return signatureAlgorithm_; }
  const CvelString& signatureValue() const { return signatureValue_; }
  const CvelString& unsignedAttributes() const { return unsignedAttributes_; }
  // Registry kind of the digest algorithm's OID, as examined by decode; kOidUnknown until then.
  int32_t digestKind() const { return digestKind_; }
  // The values of the id-aa-ets-revocationValues attribute, and the result of reading them (0 when there
  // was no such attribute).
  const CvelEtsRevocationValues& revocationValues() const { return revocationValues_; }
  CvelResult revocationValuesResult() const { return revocationValuesResult_; }
  // The time-stamp tokens found in the attributes, signed ones first.
  // The list is made on first use: a signer being built never needs one. Throws std::bad_alloc when it
  // cannot be made.
  CvelTSPResponses& timeStamps();
  const CvelTSPResponses& timeStamps() const;

 private:
  // Room for the version element: a small INTEGER; a larger one takes the writer's two passes.
  static constexpr size_t kVersionRoom = 16;

  CvelResult readFields(CvelA1Input& in, CvelA1StreamCursor& fields);
  void examineDigestAlgorithm();
  void collect(const CvelString& attributes, bool signedAttributes);

  CvelString workingBuffer_;
  CvelString digestAlgorithm_;
  CvelA1Integer version_;
  int32_t attributeFlag_ = 1;
  CvelString signedAttributes_;
  CvelString signatureAlgorithm_;
  CvelString signatureValue_;
  CvelString unsignedAttributes_;
  CvelString signerIdentifier_;
  CvelEtsRevocationValues revocationValues_;
  int32_t digestKind_ = -1;
  CvelResult revocationValuesResult_ = 0;
  std::unique_ptr<CvelTSPResponses> timeStamps_;
};

// The signer infos of a signedData in their order; owns them.
class CvelP7SignerInfos : public CvelManagedArray<CvelP7SignerInfo>, public CvelNonCopyObject {
 public:
  // What decode returns for an empty or malformed SET: not a result code, and not success.
  static constexpr CvelResult kEmpty = 0;

  // The concatenated SignerInfo encodings in order, without the enclosing SET. kCvelErrMalformed when one
  // cannot be written.
  CvelResult encode(CvelString& out) const;
  // The same as part of a larger structure.
  void write(CvelDerWriter& w) const;
  // Reads the SET the cursor has just read: one SignerInfo per SEQUENCE, up to the end of the SET or the
  // first member that is not a SEQUENCE. kEmpty for a SET without content (of either length form) or whose
  // first member is not a SEQUENCE; kCvelErrMalformed when a SignerInfo fails or a later member cannot be
  // read; kCvelErrNoMemory when one cannot be made.
  CvelResult decode(CvelA1Input& in, CvelA1StreamCursor& cursor);
};

#endif  // KOLVARI_CMS_CVEL_P7_SIGNER_INFO_H
