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

// What the issuer and the subject share: a Name or GeneralNames, and the form that was decoded. FormValue is the
// type of form(); kInvalidForm is its value when nothing decoded, 0 is the Name form in both.
template <typename FormValue, FormValue kInvalidForm>
class CvelCertificateNameForms : public CvelNonCopyObject {
 public:
  // The decode of a SEQUENCE already scanned as a Name (its first child a SET): the same results as the
  // Name form of parse(), the attributes made in store when it has room.
  CvelResult parseName(const CvelString& der, const CvelNameScan& scan, CvelKeep keep, CvelBlockStore* store) {
    form_ = kInvalidForm;
    generalNames_.clear();
    const CvelResult r = dname_.parseScanned(der, scan, keep, store);
    if (r == kCvelOk) form_ = kNameForm;
    return r;
  }

  FormValue form() const { return form_; }
  const CvelDName& dname() const { return dname_; }
  const CvelGeneralNames& generalNames() const { return generalNames_; }

 protected:
  static constexpr FormValue kNameForm = 0;

  FormValue form_ = kInvalidForm;
  CvelDName dname_;
  CvelGeneralNames generalNames_;
};

class CvelCertificateIssuer : public CvelCertificateNameForms<uint8_t, 255> {
 public:
  enum Form : uint8_t { kName = kNameForm, kGeneralNames = 1, kInvalid = 255 };

  // Decodes the issuer read as the next element of reader (first element of der when null): a Name when
  // the SEQUENCE's first child is a SET, GeneralNames otherwise. keep applies to the Name form.
  CvelResult parse(const CvelString& der, CvelA1Context* reader = nullptr, CvelKeep keep = CvelKeep::kCopy);
  // Back to no issuer: invalid form, nothing held.
  void reset();
  // Form 1 with a single directoryName: out = the Name element inside it, kCvelOk. Form 0 gives the
  // Name's encode() result (empty, 0); any other case 0.
  CvelResult getEncoded(CvelString& out) const;
};

class CvelCertificateSubject : public CvelCertificateNameForms<int32_t, -1> {
 public:
  enum Form : int32_t { kName = kNameForm, kBaseCertificateId = 1, kGeneralNames = 2, kInvalid = -1 };

  // Decodes the subject (or holder) read as the next element of reader (first element of der when null):
  // SEQUENCE a Name, [0] a base-certificate identifier, [1] GeneralNames. keep applies to the Name form.
  CvelResult parse(const CvelString& der, CvelA1Context* reader = nullptr, CvelKeep keep = CvelKeep::kCopy);
  // Back to no subject: invalid form, no Name held.
  void reset();

  const CvelBaseCertificateId& baseCertificateId() const { return baseCertificateId_; }

 private:
  CvelBaseCertificateId baseCertificateId_;
};

#endif  // KOLVARI_X509_CVEL_CERTIFICATE_NAMES_H
