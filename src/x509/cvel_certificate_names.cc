#include "x509/cvel_certificate_names.h"

#include "asn1/cvel_der.h"

namespace {

// The caller's reader, or a fresh cursor at the start of der. `before` keeps where it stood, so that a Name
// or GeneralNames decoder can read the same element again from there.
CvelA1Context& startReading(CvelA1Context* reader, CvelA1Context& fresh, CvelA1Context& before) {
  CvelA1Context& cursor = reader != nullptr ? *reader : fresh;
  before.copyState(cursor);
  return cursor;
}

// A view of the content of the element `element` has just read.
bool viewContent(const CvelString& der, const CvelA1Context& element, CvelString& out) {
  return out.setView(der, &element) == kCvelOk;
}

}  // namespace

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

  CvelA1Context fresh;
  CvelA1Context before;
  CvelA1Context& cursor = startReading(reader, fresh, before);
  if (cursor.next(der) != kTagSequence) return 0;

  CvelA1Context child;
  child = cursor;
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

  CvelA1Context fresh;
  CvelA1Context before;
  CvelA1Context& cursor = startReading(reader, fresh, before);
  const int32_t tag = cursor.next(der);

  CvelResult r = 0;
  int32_t form = kInvalid;
  if (tag == kTagContext0) {
    CvelString content;
    r = viewContent(der, cursor, content) ? baseCertificateId_.parse(content) : kCvelErrMalformed;
    form = kBaseCertificateId;
  } else if (tag == kTagContext1) {
    // The content must itself begin with the GeneralNames SEQUENCE.
    CvelString content;
    r = viewContent(der, cursor, content) ? generalNames_.parse(content) : kCvelErrMalformed;
    form = kGeneralNames;
  } else if (tag == kTagSequence) {
    r = dname_.parse(der, &before, keep);
    form = kName;
  }
  if (r == kCvelOk) form_ = form;
  return r;
}
