#include "x509/cvel_certificate_names.h"

#include "asn1/cvel_der.h"

CvelResult CvelBaseCertificateId::parse(const CvelString& der) {
  issuer_.clear();
  serial_.release();
  issuerUid_.release();

  // IssuerSerial ::= SEQUENCE { issuer GeneralNames, serial CertificateSerialNumber,
  //                             issuerUID UniqueIdentifier OPTIONAL }, tagged implicitly by the holder.
  CvelA1Context cursor;
  if (issuer_.parse(der, &cursor) != kCvelOk) return kCvelErrMalformed;
  if (cursor.next(der) != kTagInteger) return kCvelErrMalformed;
  CvelResult r = cursor.getElement(der, serial_);
  if (r != kCvelOk) return r;

  int32_t tag = cursor.next(der);
  if (tag == kTagBitString) {
    r = cursor.getContent(der, issuerUid_);
    if (r != kCvelOk) return r;
    tag = cursor.next(der);
  }
  // Nothing else belongs to the identifier.
  return tag == CvelA1Context::kEnd ? kCvelOk : kCvelErrMalformed;
}

void CvelCertificateIssuer::reset() {
  form_ = kInvalid;
  dname_.reset();
  generalNames_.clear();
}

CvelResult CvelCertificateIssuer::parse(const CvelString& der, CvelA1Context* reader, CvelKeep keep) {
  form_ = kInvalid;
  dname_.clear();
  generalNames_.clear();
  if (der.isEmpty()) return 0;

  CvelA1CursorOrFresh reading(reader);
  CvelA1Context& cursor = reading.get();
  // Where the cursor stood, so that the Name or GeneralNames decoder reads the same element again from there.
  CvelA1Context before;
  before.copyState(cursor);
  if (cursor.next(der) != kTagSequence) return 0;

  CvelA1Context child;
  child.enterElementOf(cursor);
  CvelResult r = 0;
  if (child.next(der) == kTagSet) {
    r = dname_.parse(der, &before, keep);
    if (r == kCvelOk) form_ = kName;
  } else {
    r = generalNames_.parse(der, &before);
    if (r == kCvelOk) form_ = kGeneralNames;
  }
  return r;
}

CvelResult CvelCertificateIssuer::getEncoded(CvelString& out) const {
  if (form_ == kName) return dname_.encode(out);
  if (form_ != kGeneralNames || generalNames_.size() != 1) return 0;
  CvelGeneralName* name = nullptr;
  if (generalNames_.get(0, name) != kCvelOk || name == nullptr) return 0;
  if (name->tag() != kTagContext4) return 0;
  // The content of the [4] element is the Name element itself.
  CvelResult r = out.assign(name->value());
  return r == kCvelOk ? kCvelOk : kCvelNone;
}

void CvelCertificateSubject::reset() {
  form_ = kInvalid;
  dname_.reset();
}

CvelResult CvelCertificateSubject::parse(const CvelString& der, CvelA1Context* reader, CvelKeep keep) {
  form_ = kInvalid;
  dname_.clear();
  generalNames_.clear();
  if (der.isEmpty()) return 0;

  CvelA1CursorOrFresh reading(reader);
  CvelA1Context& cursor = reading.get();
  // Where the cursor stood, so that the Name or GeneralNames decoder reads the same element again from there.
  CvelA1Context before;
  before.copyState(cursor);
  const int32_t tag = cursor.next(der);

  CvelResult r = 0;
  int32_t form = kInvalid;
  if (tag == kTagContext0) {
    CvelString content;
    r = cursor.contentView(der, content) ? baseCertificateId_.parse(content) : kCvelErrMalformed;
    form = kBaseCertificateId;
  } else if (tag == kTagContext1) {
    // The content must itself begin with the GeneralNames SEQUENCE.
    CvelString content;
    r = cursor.contentView(der, content) ? generalNames_.parse(content) : kCvelErrMalformed;
    form = kGeneralNames;
  } else if (tag == kTagSequence) {
    r = dname_.parse(der, &before, keep);
    form = kName;
  }
  if (r == kCvelOk) form_ = form;
  return r;
}

