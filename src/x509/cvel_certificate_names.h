// The issuer and subject of a certificate in each of the forms a certificate or attribute certificate
// uses: a Name, GeneralNames, or (for an attribute certificate's holder) a base-certificate identifier.
#ifndef KOLVARI_X509_CVEL_CERTIFICATE_NAMES_H
#define KOLVARI_X509_CVEL_CERTIFICATE_NAMES_H

#include <cstdint>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_string.h"
#include "x509/cvel_dname.h"
#include "x509/cvel_general_name.h"

// IssuerSerial of an attribute certificate's holder: issuer GeneralNames, serial INTEGER element and the
// optional issuer unique identifier (content of the BIT STRING).
class CvelBaseCertificateId : public CvelNonCopyObject {
 public:
  // Decodes the run of elements that make up the IssuerSerial (the content of the holder's [0] element),
  // given as der. kCvelOk, or kCvelErrMalformed when the issuer names or the serial are missing.
  CvelResult parse(const CvelString& der);

  const CvelGeneralNames& issuer() const { return issuer_; }
  const CvelString& serial() const { return serial_; }
  const CvelString& issuerUid() const { return issuerUid_; }

 private:
  CvelGeneralNames issuer_;
  CvelString serial_;
  CvelString issuerUid_;
};

class CvelCertificateIssuer : public CvelNonCopyObject {
 public:
  enum Form : uint8_t { kName = 0, kGeneralNames = 1, kInvalid = 255 };

  // Decodes the issuer read as the next element of reader (first element of der when null): a Name when
  // the SEQUENCE's first child is a SET, GeneralNames otherwise. keep applies to the Name form.
  CvelResult parse(const CvelString& der, CvelA1Context* reader = nullptr, CvelKeep keep = CvelKeep::kCopy);
  // Back to no issuer: invalid form, nothing held.
  void reset();
  // parse() of a SEQUENCE already scanned as a Name (its first child a SET): the same results, the
  // attributes made in store when it has room.
  CvelResult parseName(const CvelString& der, const CvelNameScan& scan, CvelKeep keep, CvelBlockStore* store);
  // Form 1 with a single directoryName: out = the Name element inside it, kCvelOk. Form 0 gives the
  // Name's encode() result (empty, 0); any other case 0.
  CvelResult getEncoded(CvelString& out) const;

  uint8_t form() const { return form_; }
  const CvelDName& dname() const { return dname_; }
  const CvelGeneralNames& generalNames() const { return generalNames_; }

 private:
  uint8_t form_ = kInvalid;
  CvelDName dname_;
  CvelGeneralNames generalNames_;
};

class CvelCertificateSubject : public CvelNonCopyObject {
 public:
  enum Form : int32_t { kName = 0, kBaseCertificateId = 1, kGeneralNames = 2, kInvalid = -1 };

  // Decodes the subject (or holder) read as the next element of reader (first element of der when null):
  // SEQUENCE a Name, [0] a base-certificate identifier, [1] GeneralNames. keep applies to the Name form.
  CvelResult parse(const CvelString& der, CvelA1Context* reader = nullptr, CvelKeep keep = CvelKeep::kCopy);
  // Back to no subject: invalid form, no Name held.
  void reset();
  // parse() of a SEQUENCE already scanned as a Name (its first child a SET): the same results, the
  // attributes made in store when it has room.
  CvelResult parseName(const CvelString& der, const CvelNameScan& scan, CvelKeep keep, CvelBlockStore* store);

  int32_t form() const { return form_; }
  const CvelDName& dname() const { return dname_; }
  const CvelBaseCertificateId& baseCertificateId() const { return baseCertificateId_; }
  const CvelGeneralNames& generalNames() const { return generalNames_; }

 private:
  int32_t form_ = kInvalid;
  CvelDName dname_;
  CvelBaseCertificateId baseCertificateId_;
  CvelGeneralNames generalNames_;
};

#endif  // KOLVARI_X509_CVEL_CERTIFICATE_NAMES_H
