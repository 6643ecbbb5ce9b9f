#include "x509/cvel_ocsp_response.h"

#include <memory>
#include <new>

#include "asn1/cvel_der.h"

namespace {

constexpr uint8_t kTagEnumerated = 0x0A;
// The response type given to a response that names none: id-pkix-ocsp-basic, 1.3.6.1.5.5.7.48.1.1.
constexpr unsigned char kOidOcspBasic[] = {0x06, 0x09, 0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x30, 0x01, 0x01};

// The element last read must hold exactly one content octet, which goes to out.
bool oneOctet(const CvelString& s, const CvelA1Context& c, uint8_t& out) {
  if (!c.elementInside(s) || c.contentLength() != 1) return false;
  out = s.data()[c.contentOffset()];
  return true;
}

// Extensions decoded from a content view: the decoder's result must be positive as a signed number.
bool decodeExtensions(CvelCertificateExtensions& extensions, const CvelString& content) {
  return cvelSucceeded(extensions.decode(content));
}

bool isCertStatusTag(int32_t tag) {
  switch (tag) {
    case CvelOCSPResponse::kStatusGood:
    case CvelOCSPResponse::kStatusRevoked:
    case CvelOCSPResponse::kStatusUnknown:
    case CvelOCSPResponse::kStatusGoodConstructed:
    case CvelOCSPResponse::kStatusRevokedConstructed:
    case CvelOCSPResponse::kStatusUnknownConstructed:
      return true;
    default:
      return false;
  }
}

}  // namespace

void CvelOCSPResponse::reset() {
  certificates_.clear();
  for (CvelString* slice : {&responseStatus_, &responseBytes_, &responseType_, &basicResponse_, &tbsResponseData_,
                            &signatureAlgorithm_, &signature_, &certsElement_, &version_, &responderId_,
                            &producedAt_, &responses_, &responseExtensionsElement_, &certId_, &certStatus_,
                            &thisUpdate_, &nextUpdate_, &singleExtensionsElement_, &revocationTimeElement_}) {
    slice->release();
  }
  responseExtensions_.clear();
  singleExtensions_.clear();
  responderByName_ = false;
  status_ = 0;
  certStatusTag_ = 0;
  revocationReason_ = 0;
  revocationTime_.setState(CvelTime::kNeverSet);
}

CvelResult CvelOCSPResponse::parse(const void* bytes, uint32_t n) {
  // parse() starts with a reset; the views are only cleared before it when the copy fails.
  if (encoded_.assign(bytes, n) != kCvelOk) {
    reset();
    return kNotParsed;
  }
  return parse();
}

CvelResult CvelOCSPResponse::parse() {
  reset();
  if (encoded_.isEmpty()) return kNotParsed;
  bool errorResponse = false;
  if (!readOuter(errorResponse)) return kNotParsed;
  // An error response carries a status and nothing else; like every parsed response it still names the
  // basic response type below.
  if (!errorResponse && (!readBasicResponse() || !readResponseData() || !readFirstSingleResponse())) {
    return kNotParsed;
  }
  if (responseType_.isEmpty() && responseType_.setView(kOidOcspBasic, sizeof kOidOcspBasic) != kCvelOk) {
    return kNotParsed;
  }
  return kCvelOk;
}

bool CvelOCSPResponse::readOuter(bool& errorResponse) {
  errorResponse = false;
  CvelA1Context outer;
  if (outer.next(encoded_) != kTagSequence) return false;
  CvelA1Context c;
  const int32_t first = outer.firstChild(encoded_, c);
  if (first == kTagOctetString) return c.contentView(encoded_, basicResponse_);
  if (first != kTagEnumerated) {
    // Anything else: the whole input is taken as the BasicOCSPResponse.
    return basicResponse_.setView(encoded_, 0, encoded_.length()) == kCvelOk;
  }

  // OCSPResponse ::= SEQUENCE { responseStatus ENUMERATED, responseBytes [0] EXPLICIT ResponseBytes OPTIONAL }
  if (!c.elementView(encoded_, responseStatus_) || !oneOctet(encoded_, c, status_)) return false;
  if (c.next(encoded_) != kTagContext0) {
    // No responseBytes: fine for an error status, not for a successful one.
    errorResponse = status_ != kSuccessful;
    return errorResponse;
  }
  if (!c.elementView(encoded_, responseBytes_)) return false;
  // ResponseBytes ::= SEQUENCE { responseType OBJECT IDENTIFIER, response OCTET STRING }
  CvelA1Context bytes;
  if (c.firstChild(encoded_, bytes) != kTagSequence) return false;
  CvelA1Context fields;
  if (bytes.firstChild(encoded_, fields) != kTagOid || !fields.elementView(encoded_, responseType_)) return false;
  if (fields.next(encoded_) != kTagOctetString) return false;
  return fields.contentView(encoded_, basicResponse_);
}

bool CvelOCSPResponse::readBasicResponse() {
  // BasicOCSPResponse ::= SEQUENCE { tbsResponseData ResponseData, signatureAlgorithm AlgorithmIdentifier,
  //                                  signature BIT STRING, certs [0] EXPLICIT SEQUENCE OF Certificate OPTIONAL }
  // Elements after these are accepted and left unread.
  const CvelString& s = basicResponse_;
  CvelA1Context basic;
  if (basic.next(s) != kTagSequence) return false;
  CvelA1Context c;
  if (basic.firstChild(s, c) != kTagSequence || !c.elementView(s, tbsResponseData_)) return false;
  if (c.next(s) != kTagSequence || !c.elementView(s, signatureAlgorithm_)) return false;
  if (c.next(s) != kTagBitString || !c.elementView(s, signature_)) return false;
  if (c.next(s) != kTagContext0) return true;
  CvelA1Context certs;
  if (c.firstChild(s, certs) != kTagSequence || !certs.contentView(s, certsElement_)) return false;
  return readCertificates();
}

bool CvelOCSPResponse::readCertificates() {
  // Every element of the certs SEQUENCE must parse as a certificate; each one keeps a copy of its DER.
  CvelA1Context c;
  int32_t tag = c.next(certsElement_);
  for (; tag >= 0; tag = c.next(certsElement_)) {
    CvelString element;
    if (!c.elementView(certsElement_, element)) return false;
    std::shared_ptr<CvelCertificate> certificate(new (std::nothrow) CvelCertificate());
    if (certificate == nullptr) return false;
    if (certificate->parse(element.data(), element.length()) != kCvelOk) return false;
    certificates_.add(std::move(certificate));
  }
  return tag == CvelA1Context::kEnd;
}

bool CvelOCSPResponse::readResponseData() {
  // ResponseData ::= SEQUENCE { version [0] EXPLICIT Version DEFAULT v1, responderID ResponderID,
  //                             producedAt GeneralizedTime, responses SEQUENCE OF SingleResponse,
  //                             responseExtensions [1] EXPLICIT Extensions OPTIONAL }
  // ResponderID ::= CHOICE { byName [1] Name, byKey [2] KeyHash }
  const CvelString& s = tbsResponseData_;
  CvelA1Context data;
  if (data.next(s) != kTagSequence) return false;
  CvelA1Context c;
  int32_t tag = data.firstChild(s, c);
  if (tag == kTagContext0) {
    if (!c.elementView(s, version_)) return false;
    tag = c.next(s);
  }
  if (tag != kTagContext1 && tag != kTagContext2) return false;
  responderByName_ = tag == kTagContext1;
  if (!c.contentView(s, responderId_)) return false;
  if (c.next(s) != kTagGeneralizedTime || !c.elementView(s, producedAt_)) return false;
  if (c.next(s) != kTagSequence || !c.elementView(s, responses_)) return false;
  if (c.next(s) != kTagContext1) return true;
  return c.contentView(s, responseExtensionsElement_) &&
         decodeExtensions(responseExtensions_, responseExtensionsElement_);
}

bool CvelOCSPResponse::readFirstSingleResponse() {
  // SingleResponse ::= SEQUENCE { certID CertID, certStatus CertStatus, thisUpdate GeneralizedTime,
  //                               nextUpdate [0] EXPLICIT GeneralizedTime OPTIONAL,
  //                               singleExtensions [1] EXPLICIT Extensions OPTIONAL }
  // Only the first SingleResponse is read, deliberately; the others stay in responses() undecoded.
  const CvelString& s = responses_;
  CvelA1Context list;
  if (list.next(s) != kTagSequence) return false;
  CvelA1Context single;
  if (list.firstChild(s, single) != kTagSequence) return false;
  CvelA1Context c;
  if (single.firstChild(s, c) != kTagSequence || !c.elementView(s, certId_)) return false;

  const int32_t statusTag = c.next(s);
  if (!isCertStatusTag(statusTag) || !c.elementView(s, certStatus_)) return false;
  certStatusTag_ = static_cast<uint32_t>(statusTag);
  CvelA1Context statusElement;
  statusElement.copyState(c);

  if (c.next(s) != kTagGeneralizedTime || !c.elementView(s, thisUpdate_)) return false;
  int32_t tag = c.next(s);
  if (tag == kTagContext0) {
    if (!c.contentView(s, nextUpdate_)) return false;
    tag = c.next(s);
  }
  if (tag == kTagContext1) {
    if (!c.contentView(s, singleExtensionsElement_)) return false;
    if (!decodeExtensions(singleExtensions_, singleExtensionsElement_)) return false;
  }
  if (certStatusTag_ != kStatusRevoked && certStatusTag_ != kStatusRevokedConstructed) return true;
  return readRevokedInfo(statusElement);
}

bool CvelOCSPResponse::readRevokedInfo(const CvelA1Context& statusElement) {
  // RevokedInfo ::= SEQUENCE { revocationTime GeneralizedTime, revocationReason [0] EXPLICIT CRLReason OPTIONAL },
  // tagged implicitly [1]: only the constructed form can hold it.
  if (certStatusTag_ == kStatusRevoked) return false;
  const CvelString& s = responses_;
  CvelA1Context c;
  if (statusElement.firstChild(s, c) != kTagGeneralizedTime || !c.elementView(s, revocationTimeElement_)) {
    return false;
  }
  if (!cvelSucceeded(revocationTime_.decode(revocationTimeElement_, nullptr))) return false;
  if (c.next(s) != kTagContext0) return true;
  CvelA1Context reason;
  return c.firstChild(s, reason) == kTagEnumerated && oneOctet(s, reason, revocationReason_);
}
