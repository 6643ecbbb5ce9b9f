#include "x509/cvel_certificate.h"

#include <cstring>

#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_der.h"

namespace {

constexpr char kPemBegin[] = "-----BEGIN CERTIFICATE-----";
constexpr char kPemEnd[] = "-----END CERTIFICATE-----";
// A header of one identifier octet and a short length.
constexpr uint32_t kShortHeader = 2;
// Base64 of a SEQUENCE with a long-form length starts with this letter; nothing else is taken as base64.
constexpr unsigned char kBase64SequenceLead = 'M';

// Wrapper OIDs, compared as whole elements, in the order they are tested.
constexpr unsigned char kWrapperRoot[] = {0x06, 0x07, 0x02, 0x82, 0x06, 0x01, 0x0A, 0x07, 0x6A};   // 0.2.262.1.10.7.106
constexpr unsigned char kWrapperCa[] = {0x06, 0x03, 0x55, 0x04, 0x25};                              // 2.5.4.37
constexpr unsigned char kWrapperUser[] = {0x06, 0x03, 0x55, 0x04, 0x24};                            // 2.5.4.36
constexpr unsigned char kWrapperAttribute[] = {0x06, 0x03, 0x55, 0x04, 0x3A};                       // 2.5.4.58
constexpr unsigned char kWrapperPrivate[] = {0x06, 0x07, 0x02, 0x82, 0x06, 0x01, 0x0A, 0x07, 0x6B};  // 0.2.262.1.10.7.107

struct WrapperKind {
  const unsigned char* der;
  uint32_t length;
  uint8_t kind;
};
constexpr WrapperKind kWrapperKinds[] = {
    {kWrapperRoot, sizeof kWrapperRoot, CvelCertificate::kRoot},
    {kWrapperCa, sizeof kWrapperCa, CvelCertificate::kCaCertificate},
    {kWrapperUser, sizeof kWrapperUser, CvelCertificate::kUserCertificate},
    {kWrapperAttribute, sizeof kWrapperAttribute, CvelCertificate::kAttributeCertificate},
    {kWrapperPrivate, sizeof kWrapperPrivate, CvelCertificate::kSecondPrivateType},
};

uint8_t kindOfWrapper(const CvelString& oid) {
  for (const WrapperKind& w : kWrapperKinds) {
    if (oid.equals(w.der, w.length)) return w.kind;
  }
  return CvelCertificate::kUnknown;
}

}  // namespace

CvelCertificate::CvelCertificate(const CvelCertificate& other) : CvelNonCopyObject() { copyFrom(other); }

CvelCertificate& CvelCertificate::operator=(const CvelCertificate& other) {
  copyFrom(other);
  return *this;
}

void CvelCertificate::copyFrom(const CvelCertificate& other) {
  if (&other == this) return;
  version_ = 1;
  flag_ = other.flag_;
  releaseSlices();
  if (encoded_.assign(other.encoded_) != kCvelOk) return;
  if (parse() != kCvelOk) return;
  kind_ = other.kind_;
  // A wrapper type that cannot be copied ends the copy here, like an identifier below.
  if (wrapperType_.assign(other.wrapperType_) != kCvelOk) return;
  // The source's identifiers are appended last first, to whatever this certificate already holds; the
  // first one that cannot be added (one already present, among others) ends the copy.
  for (uint32_t i = other.oids_.size(); i > 0; --i) {
    CvelOID* oid = nullptr;
    if (other.oids_.get(i - 1, oid) != kCvelOk || oid == nullptr) return;
    if (oids_.addDer(*oid) != kCvelOk) return;
  }
}

void CvelCertificate::releaseSlices() {
  // Views into the previous DER would dangle once encoded_ changes.
  for (CvelString* slice : {&tbs_, &signatureAlgorithm_, &signatureValue_, &versionElement_, &serialNumber_,
                            &tbsSignatureAlgorithm_, &issuer_, &validity_, &subject_, &subjectPublicKeyInfo_,
                            &issuerUniqueId_, &subjectUniqueId_, &extensionsElement_}) {
    slice->release();
  }
}

CvelResult CvelCertificate::parse(const void* bytes, uint32_t n) {
  // New bytes start out as a fresh certificate would: parse() itself sets the version only when it meets one.
  version_ = 1;
  // parse() forgets every view into the previous DER before it reads; a copy that fails (its old buffer
  // already freed) leaves nothing to read, and parse() then forgets them all the same.
  if (encoded_.assign(bytes, n) != kCvelOk) encoded_.release();
  return parse();
}

void CvelCertificate::stripPemArmour() {
  // The marker's first character has no case: DER, which starts otherwise, skips the comparison.
  if (encoded_.isEmpty() || encoded_.data()[0] != kPemBegin[0]) return;
  if (!encoded_.startsWithNoCase(kPemBegin)) return;
  uint32_t from = sizeof(kPemBegin) - 1;
  while (from < encoded_.length() && (encoded_.data()[from] == '\r' || encoded_.data()[from] == '\n')) ++from;
  CvelString body;
  if (encoded_.subString(body, from, encoded_.length()) != kCvelOk) return;
  int32_t end = body.find(kPemEnd, sizeof(kPemEnd) - 1, 0, true);
  if (end >= 0) body.truncate(static_cast<uint32_t>(end));
  encoded_.moveFrom(body);
}

bool CvelCertificate::takeBareBase64() {
  if (encoded_.isEmpty() || encoded_.data()[0] != kBase64SequenceLead) return true;
  CvelString decoded;
  decoded.base64Decode(encoded_);
  if (decoded.isEmpty()) return false;
  encoded_.moveFrom(decoded);
  return true;
}

// A wrapper SEQUENCE { type OID, certificate }: keep the OID and its kind, and the certificate alone.
bool CvelCertificate::unwrap(CvelA1Context& outer) {
  CvelA1Context inner;
  inner.enterElementOf(outer);
  if (inner.next(encoded_) != kTagOid) return false;
  CvelString oid;
  if (inner.getElement(encoded_, oid) != kCvelOk) return false;
  wrapperType_.moveFrom(oid);
  kind_ = kindOfWrapper(wrapperType_);
  if (inner.next(encoded_) != kTagSequence) return false;
  CvelString certificate;
  if (inner.getElement(encoded_, certificate) != kCvelOk) return false;
  encoded_.moveFrom(certificate);
  return true;
}

// Armour, base64, wrapper, then the certificate's three parts. On success tbsElement is a cursor that has
// just read the TBSCertificate.
bool CvelCertificate::readOuter(CvelA1Context& tbsElement) {
  stripPemArmour();
  if (encoded_.isEmpty() || !takeBareBase64()) return false;

  CvelA1Context outer;
  if (outer.next(encoded_) != kTagSequence) return false;
  CvelA1Context probe;
  int32_t first = outer.firstChild(encoded_, probe);
  const CvelA1Context* body = &outer;  // has just read the element holding TBS, algorithm and signature
  CvelA1Context again;
  if (first == kTagOid) {
    if (!unwrap(outer)) return false;
    if (again.next(encoded_) != kTagSequence) return false;
    body = &again;
  } else if (first != kTagSequence) {
    // Anything else: the walk goes on inside that child, which must then start with a SEQUENCE.
    body = &probe;
  }

  CvelA1Context parts;
  parts.enterElementOf(*body);
  if (parts.next(encoded_) != kTagSequence || !parts.elementView(encoded_, tbs_)) return false;
  tbsElement.copyState(parts);
  if (parts.next(encoded_) != kTagSequence || !parts.elementView(encoded_, signatureAlgorithm_)) return false;
  if (parts.next(encoded_) != kTagBitString || !parts.elementInside(encoded_)) return false;
  // The signature bits without the unused-bits octet.
  uint32_t bits = parts.contentLength() == 0 ? 0 : parts.contentLength() - 1;
  uint32_t bitsOffset = parts.contentLength() == 0 ? parts.contentOffset() : parts.contentOffset() + 1;
  return signatureValue_.setView(encoded_, bitsOffset, bits) == kCvelOk;
}

bool CvelCertificate::isAttributeCertificate(const CvelA1Context& tbsElement) const {
  CvelA1Context c;
  int32_t first = tbsElement.firstChild(encoded_, c);
  if (first == kTagContext0) {
    CvelA1Context inside;
    return c.firstChild(encoded_, inside) == kTagSequence;
  }
  if (first == kTagContext1 || first == kTagContext2) return true;
  if (first == kTagInteger) {
    // A version-1 public-key certificate: serial, then the signature AlgorithmIdentifier starting with an OID.
    if (c.next(encoded_) != kTagSequence) return true;
    CvelA1Context algorithm;
    return c.firstChild(encoded_, algorithm) != kTagOid;
  }
  return false;
}

bool CvelCertificate::readValidity(const CvelA1Context& validityElement, bool mayDefer) {
  if (!validityElement.elementView(encoded_, validity_)) return false;
  if (mayDefer && deferTimes(validityElement)) return true;
  // Each child is handed to the time decoder as an image of its own, whatever its tag. A time that does not
  // decode leaves the field as it is; it does not fail the certificate.
  CvelA1Context times;
  times.enterElementOf(validityElement);
  for (CvelTime* field : {&notBefore_, &notAfter_}) {
    const int32_t tag = times.next(encoded_);
    if (tag < 0) break;
    CvelString element;
    if (!times.elementView(encoded_, element)) break;
    if ((tag == kTagUtcTime || tag == kTagGeneralizedTime) && times.headerLength() == kShortHeader) {
      // What the decoder would read from that image: the same header, then the text inside it.
      CvelString text;
      if (times.contentView(encoded_, text)) static_cast<void>(field->parse(text));
      continue;
    }
    static_cast<void>(field->decode(element, nullptr));
  }
  return true;
}

// When both times are the usual short UTCTime or GeneralizedTime elements, their texts are kept for
// settleTimes, which gives the fields what the loop of readValidity would; anything else is decoded at once.
bool CvelCertificate::deferTimes(const CvelA1Context& validityElement) {
  CvelA1Context times;
  times.enterElementOf(validityElement);
  for (uint32_t i = 0; i < kValidityTimes; ++i) {
    const int32_t tag = times.next(encoded_);
    if ((tag != kTagUtcTime && tag != kTagGeneralizedTime) || times.headerLength() != kShortHeader ||
        !times.elementInside(encoded_) || times.contentLength() > kTimeTextRoom) {
      return false;
    }
    if (times.contentLength() != 0) {
      std::memcpy(timeTexts_[i], encoded_.data() + times.contentOffset(), times.contentLength());
    }
    timeLengths_[i] = static_cast<uint8_t>(times.contentLength());
  }
  timesPending_ = true;
  return true;
}

void CvelCertificate::settleTimes() const {
  CvelTime* const fields[kValidityTimes] = {&notBefore_, &notAfter_};
  for (uint32_t i = 0; i < kValidityTimes; ++i) static_cast<void>(fields[i]->parse(timeTexts_[i], timeLengths_[i]));
  timesPending_ = false;
}

bool CvelCertificate::parsePublicKeyCertificate(const CvelA1Context& tbsElement) {
  const bool complete = slicePublicKeyCertificate(tbsElement);
  // Also after a walk that failed: the names and extensions it reached are decoded all the same, when first
  // read.
  namesPending_.store(true, std::memory_order_release);
  return complete;
}

bool CvelCertificate::slicePublicKeyCertificate(const CvelA1Context& tbsElement) {
  CvelA1Context c;
  int32_t tag = tbsElement.firstChild(encoded_, c);
  if (tag == kTagContext0) {
    if (!c.elementView(encoded_, versionElement_)) return false;
    CvelA1Integer number;
    if (number.decode(encoded_, &c) != kCvelOk) return false;
    version_ = static_cast<int32_t>(number.value() + 1);
    tag = c.next(encoded_);
  }
  if (tag != kTagInteger || !c.elementView(encoded_, serialNumber_)) return false;
  if (c.next(encoded_) != kTagSequence || !c.elementView(encoded_, tbsSignatureAlgorithm_)) return false;
  if (c.next(encoded_) != kTagSequence || !c.elementView(encoded_, issuer_)) return false;
  if (c.next(encoded_) != kTagSequence || !readValidity(c, true)) return false;
  if (c.next(encoded_) != kTagSequence || !c.elementView(encoded_, subject_)) return false;
  if (c.next(encoded_) != kTagSequence || !c.elementView(encoded_, subjectPublicKeyInfo_)) return false;

  tag = c.next(encoded_);
  if (tag == kTagContext1) {
    if (!c.contentView(encoded_, issuerUniqueId_)) return false;
    tag = c.next(encoded_);
  }
  if (tag == kTagContext2) {
    if (!c.contentView(encoded_, subjectUniqueId_)) return false;
    tag = c.next(encoded_);
  }
  if (tag == kTagContext3) {
    if (!c.contentView(encoded_, extensionsElement_)) return false;
    tag = c.next(encoded_);
  }
  return tag == CvelA1Context::kEnd;
}

// The first reader decodes; a reader that waited on the lock finds the work done.
void CvelCertificate::decodeOnce() const {
  std::lock_guard<std::mutex> hold(decodeLock_);
  if (!namesPending_.load(std::memory_order_relaxed)) return;
  if (timesPending_) settleTimes();
  decodeNamesAndExtensions();
  namesPending_.store(false, std::memory_order_release);
}

// The names and the extensions from their slices, their entries made in one block sized for all three. A
// slice the walk did not reach is empty and decodes to nothing, as if it had not been decoded; a Name or an
// extension list that does not decode leaves the certificate parsed.
void CvelCertificate::decodeNamesAndExtensions() const {
  // Each slice is a SEQUENCE or empty. The issuer is a Name when its first child is a SET (GeneralNames
  // otherwise); the subject always.
  CvelNameScan issuer;
  CvelNameScan subject;
  CvelA1Context element;
  if (element.next(issuer_) == kTagSequence) CvelDName::scan(issuer_, element, issuer);
  CvelA1Context other;
  if (other.next(subject_) == kTagSequence) CvelDName::scan(subject_, other, subject);
  CvelA1Context records;
  const bool haveRecords = records.next(extensionsElement_) == kTagSequence;
  const uint32_t recordCount = haveRecords ? CvelCertificateExtensions::countRecords(extensionsElement_, records) : 0;

  size_t bytes = CvelBlockStore::pieceBytes(CvelCertificateExtensions::blockBytes(recordCount));
  if (issuer.startsWithSet) bytes += CvelBlockStore::pieceBytes(CvelDName::blockBytes(issuer.count));
  bytes += CvelBlockStore::pieceBytes(CvelDName::blockBytes(subject.count));
  // When memory is short the lists make their entries on their own.
  static_cast<void>(blocks_.reserve(bytes));

  // Names and extensions view the certificate's own DER, which parse() keeps until it forgets them. Their
  // results are not the certificate's: what does not decode stays empty.
  if (issuer.startsWithSet) {
    static_cast<void>(issuerName_.parseName(issuer_, issuer, CvelKeep::kView, &blocks_));
  } else {
    static_cast<void>(issuerName_.parse(issuer_, nullptr, CvelKeep::kView));
  }
  static_cast<void>(subjectName_.parseName(subject_, subject, CvelKeep::kView, &blocks_));
  if (haveRecords) {
    static_cast<void>(extensions_.decodeCounted(extensionsElement_, records, recordCount, CvelKeep::kView, &blocks_));
  }
}

bool CvelCertificate::parseAttributeCertificate(const CvelA1Context& tbsElement) {
  CvelA1Context c;
  int32_t tag = tbsElement.firstChild(encoded_, c);
  version_ = 1;
  if (tag == kTagInteger) {
    if (!c.elementView(encoded_, versionElement_)) return false;
    CvelA1Integer number;
    if (cvelSucceeded(number.decodeContent(encoded_, c))) version_ = static_cast<int32_t>(number.value() + 1);
    tag = c.next(encoded_);
  }
  if ((tag != kTagContext0 && tag != kTagContext1) || !c.elementView(encoded_, subject_)) return false;
  static_cast<void>(subjectName_.parse(subject_));
  if (c.next(encoded_) != kTagSequence || !c.elementView(encoded_, issuer_)) return false;
  static_cast<void>(issuerName_.parse(issuer_));
  if (c.next(encoded_) != kTagSequence || !c.elementView(encoded_, tbsSignatureAlgorithm_)) return false;
  if (c.next(encoded_) != kTagInteger || !c.elementView(encoded_, serialNumber_)) return false;
  if (c.next(encoded_) != kTagSequence || !readValidity(c, false)) return false;

  // Attributes are held as extension records: OID, not critical, the SET as value.
  if (c.next(encoded_) != kTagSequence) return false;
  if (extensionsElement_.assign(encoded_, &c) != kCvelOk) return false;
  CvelA1Context run;
  static_cast<void>(extensions_.decodeRecords(extensionsElement_, run));

  tag = c.next(encoded_);
  if (tag == kTagContext1) {
    if (!c.contentView(encoded_, issuerUniqueId_)) return false;
    tag = c.next(encoded_);
  }
  if (tag == kTagSequence) {
    // The extensions join the attributes, and the records are read again from the joined run.
    CvelResult appended = extensionsElement_.append(encoded_, &c);
    if (appended != kCvelOk && appended != kCvelAppendedInPlace) return false;
    extensions_.clear();
    CvelA1Context joined;
    static_cast<void>(extensions_.decodeRecords(extensionsElement_, joined));
    decodePoliciesAndStatements();
    tag = c.next(encoded_);
  }
  return tag == CvelA1Context::kEnd;
}

void CvelCertificate::decodePoliciesAndStatements() {
  // The lookup answers with a count, compared here with the success code on purpose: policies and
  // statements therefore stay empty after a parse (hosts rely on it; the decoders serve callers directly).
  CvelCertificateExtension* found = nullptr;
  if (extensions_.countById(kOidCertificatePolicies, &found, 0) == kCvelOk && found != nullptr &&
      !found->value().isEmpty() && found->value().data()[0] == kTagOctetString) {
    static_cast<void>(policies_.decode(found->value()));
  }
  found = nullptr;
  if (extensions_.countById(kOidQcStatements, &found, 0) == kCvelOk && found != nullptr &&
      !found->value().isEmpty() && found->value().data()[0] == kTagOctetString) {
    static_cast<void>(qcStatements_.decode(found->value()));
  }
}

void CvelCertificate::forgetParse() {
  // Times an earlier parse left undecoded reach their fields first, as if decoded by that parse.
  if (timesPending_) settleTimes();
  // The names and extensions may view the DER about to be replaced or re-read: they go with the slices,
  // and give their entries back to the block store before it is filled again.
  namesPending_.store(false, std::memory_order_relaxed);
  extensions_.release();
  issuerName_.reset();
  subjectName_.reset();
  blocks_.empty();
  releaseSlices();
}

CvelResult CvelCertificate::parse() {
  kind_ = kUnknown;
  linked_.clear();
  if (parsedBefore_) forgetParse();
  parsedBefore_ = true;
  if (encoded_.isEmpty()) return kNotParsed;

  CvelA1Context tbsElement;
  if (!readOuter(tbsElement)) return kNotParsed;

  if (isAttributeCertificate(tbsElement)) kind_ = kAttributeCertificate;
  bool complete = false;
  if (kind_ < kAttributeCertificate)
    complete = parsePublicKeyCertificate(tbsElement);
  else if (kind_ == kAttributeCertificate)
    complete = parseAttributeCertificate(tbsElement);

  if (kind_ == kUnknown && issuer_.equals(subject_)) kind_ = kRoot;
  return complete ? kCvelOk : kNotParsed;
}

CvelResult CvelCertificate::getIssuer(CvelString& out) const {
  if (kind_ != kAttributeCertificate) return out.assign(issuer_);
  return issuerName().getEncoded(out);
}

CvelResult CvelCertificate::getIssuerSerial(CvelString& out) const {
  uint64_t content = static_cast<uint64_t>(issuer_.length()) + serialNumber_.length();
  return cvelWriteExactly(cvelTlvSize(content), out, [&](CvelA1Writer& w) {
    w.header(kTagSequence, content);
    w.bytes(issuer_);
    w.bytes(serialNumber_);
  });
}

CvelResult CvelCertificate::getExtension(const CvelString& oid, CvelString& value, bool* critical,
                                         uint32_t index) const {
  CvelCertificateExtension* found = nullptr;
  CvelResult r = extensions().findByOid(oid, index, &found);
  if (r != kCvelOk) return r;
  if (critical != nullptr) *critical = found->critical();
  return value.assign(found->value());
}

CvelResult CvelCertificate::getGenerationDate(CvelTime& out, int flag) const {
  CvelCertificateExtension* found = nullptr;
  if (extensions().countById(kOidDateOfCertGeneration, &found, 0) != kCvelOk || found == nullptr)
    return kCvelErrMalformed;
  // The value is an OCTET STRING around the time.
  CvelA1Context octets;
  if (octets.next(found->value()) != kTagOctetString) return kCvelErrMalformed;
  CvelString inner;
  if (!octets.contentView(found->value(), inner)) return kCvelErrMalformed;
  CvelResult r = out.decode(inner, nullptr);
  if (r != kCvelOk && flag < 0) {
    out.copyFrom(notBefore());
    return kCvelOk;
  }
  return r;
}

CvelResult CvelCertificate::walkLinked(const std::function<CvelResult(CvelCertificate&)>& visitor, int directOnly) {
  for (uint32_t i = linked_.size(); i > 0; --i) {
    std::shared_ptr<CvelCertificate> entry = linked_.get(i - 1);
    if (entry == nullptr) continue;
    if (visitor(*entry) != kCvelOk) return kCvelErrMalformed;
    if (directOnly == 1) return kCvelOk;
    if (entry->walkLinked(visitor, directOnly) != kCvelOk) return kCvelErrMalformed;
  }
  return kCvelOk;
}
