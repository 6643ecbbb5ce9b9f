#include "x509/cvel_crl.h"

#include <new>

#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_der.h"

namespace {

// id-aa-ets-revocationValues, 1.2.840.113549.1.9.16.2.24, the whole OBJECT IDENTIFIER element.
constexpr unsigned char kDerOidRevocationValues[] = {0x06, 0x0B, 0x2A, 0x86, 0x48, 0x86, 0xF7,
                                                  0x0D, 0x01, 0x09, 0x10, 0x02, 0x18};

// Appends object to list; false when the slot cannot be had (the list has then destroyed object).
template <typename T>
bool append(CvelManagedArray<T>& list, T* object) {
  try {
    return list.add(object) == kCvelOk;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool isTime(int32_t tag) { return tag == kTagUtcTime || tag == kTagGeneralizedTime; }

// The DER of one stored value; null for an empty slot.
const CvelString* valueDer(const CvelEtsRevocationValues::Triples& list, uint32_t i) {
  CvelEtsRevocationValues::CvelEtsTriple* triple = nullptr;
  if (list.get(i, triple) != kCvelOk || triple == nullptr) return nullptr;
  return &triple->element();
}
const CvelString* valueDer(const CvelOCSPResponses& list, uint32_t i) {
  CvelOCSPResponse* response = nullptr;
  if (list.get(i, response) != kCvelOk || response == nullptr) return nullptr;
  return &response->encoded();
}

// Total length of the values of a list; false at an empty slot.
template <typename List>
bool valuesLength(const List& list, uint64_t& total) {
  total = 0;
  for (uint32_t i = 0; i < list.size(); ++i) {
    const CvelString* der = valueDer(list, i);
    if (der == nullptr) return false;
    total += der->length();
  }
  return true;
}

// [tag] { SEQUENCE { the values } }, written only for a list that is not empty.
template <typename List>
void writeTagged(CvelA1Writer& w, const List& list, uint8_t tag, uint64_t valuesTotal) {
  if (list.size() == 0) return;
  w.header(tag, cvelTlvSize(valuesTotal));
  w.header(kTagSequence, valuesTotal);
  for (uint32_t i = 0; i < list.size(); ++i) {
    const CvelString* der = valueDer(list, i);
    if (der != nullptr) w.bytes(*der);
  }
}

uint64_t taggedSize(uint32_t count, uint64_t valuesTotal) {
  return count == 0 ? 0 : cvelTlvSize(cvelTlvSize(valuesTotal));
}

}  // namespace

void CvelCRL::reset() {
  flags_ = 0;
  issuer_.release();
  issuerName_.clear();
  thisUpdate_.setState(CvelTime::kNeverSet);
  nextUpdate_.setState(CvelTime::kNeverSet);
  extensions_.clear();
  revokedCertificates_.release();
  tbs_.release();
  encoded_.release();
  linked_.clear();
}

CvelResult CvelCRL::parse(const void* bytes, uint32_t n) {
  reset();
  if (encoded_.assign(bytes, n) != kCvelOk || encoded_.isEmpty()) return kNotParsed;
  // CertificateList ::= SEQUENCE { tbsCertList TBSCertList, signatureAlgorithm AlgorithmIdentifier,
  //                                signatureValue BIT STRING }
  CvelA1Context outer;
  if (outer.next(encoded_) != kTagSequence) return kNotParsed;
  CvelA1Context c;
  if (outer.firstChild(encoded_, c) != kTagSequence || !c.elementView(encoded_, tbs_)) return kNotParsed;
  if (c.next(encoded_) != kTagSequence) return kNotParsed;
  if (c.next(encoded_) != kTagBitString || c.next(encoded_) != CvelA1Context::kEnd) return kNotParsed;
  return readTbs() ? kCvelOk : kNotParsed;
}

bool CvelCRL::readTbs() {
  // TBSCertList ::= SEQUENCE { version INTEGER OPTIONAL, signature AlgorithmIdentifier, issuer Name,
  //                            thisUpdate Time, nextUpdate Time OPTIONAL,
  //                            revokedCertificates SEQUENCE OF SEQUENCE { ... } OPTIONAL,
  //                            crlExtensions [0] EXPLICIT Extensions OPTIONAL }
  const CvelString& s = tbs_;
  CvelA1Context tbs;
  if (tbs.next(s) != kTagSequence) return false;
  CvelA1Context c;
  int32_t tag = tbs.firstChild(s, c);
  if (tag == kTagInteger) tag = c.next(s);
  if (tag != kTagSequence || c.next(s) != kTagSequence) return false;
  CvelString issuer;
  if (!c.elementView(s, issuer) || issuer_.assign(issuer) != kCvelOk) return false;
  static_cast<void>(issuerName_.parse(issuer_));

  CvelString time;
  if (!isTime(c.next(s)) || !c.elementView(s, time)) return false;
  if (!cvelSucceeded(thisUpdate_.decode(time, nullptr))) return false;
  tag = c.next(s);
  if (isTime(tag)) {
    if (!c.elementView(s, time) || !cvelSucceeded(nextUpdate_.decode(time, nullptr))) return false;
    tag = c.next(s);
  }
  if (tag == kTagSequence) {
    if (!c.elementView(s, revokedCertificates_)) return false;
    tag = c.next(s);
  }
  if (tag == kTagContext0) {
    CvelString extensions;
    if (!c.contentView(s, extensions) || !cvelSucceeded(extensions_.decode(extensions))) return false;
    tag = c.next(s);
  }
  return tag == CvelA1Context::kEnd;
}

CvelResult CvelCRLs::findByIssuer(const CvelString& issuerDer, uint32_t flags, CvelCRL** out) {
  if (out == nullptr) return kCvelErrBadParameter;
  *out = nullptr;
  for (uint32_t i = 0; i < size(); ++i) {
    CvelCRL* crl = nullptr;
    if (get(i, crl) != kCvelOk || crl == nullptr) return kCvelErrMalformed;
    if (crl->issuer().equals(issuerDer)) {
      *out = crl;
      return kCvelOk;
    }
  }
  if ((flags & kCreate) == 0) return 0;
  CvelCRL* created = new (std::nothrow) CvelCRL();
  if (created == nullptr) return kCvelErrNullData;
  if (created->setIssuer(issuerDer) != kCvelOk) {
    delete created;
    return kCvelErrNullData;
  }
  if (!append(*this, created)) return kCvelErrNullData;  // the list owns it from here on
  *out = created;
  return kCvelOk;
}

CvelResult CvelEtsRevocationValues::CvelEtsTriple::assign(const CvelString& der, const CvelA1Context& element) {
  CvelString whole;
  if (!element.elementView(der, whole)) return kCvelErrMalformed;
  CvelResult r = element_.assign(whole);
  if (r != kCvelOk) return r;
  headerLength_ = element.headerLength();
  contentOffset_ = element.headerLength();
  return kCvelOk;
}

void CvelEtsRevocationValues::clearAll() {
  ocspValues_.clear();
  crlValues_.clear();
  otherValues_.clear();
}

CvelResult CvelEtsRevocationValues::readTriples(const CvelString& der, const CvelA1Context& tagged, Triples& list) {
  CvelA1Context sequence;
  if (tagged.firstChild(der, sequence) != kTagSequence) return 0;
  CvelA1Context c;
  for (int32_t tag = sequence.firstChild(der, c); tag >= 0; tag = c.next(der)) {
    if (tag != kTagSequence) continue;
    CvelEtsTriple* triple = new (std::nothrow) CvelEtsTriple();
    if (triple == nullptr) {
      clearAll();
      return kCvelErrNullData;
    }
    // A value that cannot be copied is dropped.
    if (triple->assign(der, c) != kCvelOk) {
      delete triple;
      continue;
    }
    if (!append(list, triple)) {
      clearAll();
      return kCvelErrMalformed;
    }
  }
  return kCvelOk;
}

CvelResult CvelEtsRevocationValues::readResponses(const CvelString& der, const CvelA1Context& tagged) {
  CvelA1Context sequence;
  if (tagged.firstChild(der, sequence) != kTagSequence) return 0;
  CvelA1Context c;
  for (int32_t tag = sequence.firstChild(der, c); tag >= 0; tag = c.next(der)) {
    if (tag != kTagSequence) continue;
    CvelOCSPResponse* response = new (std::nothrow) CvelOCSPResponse();
    if (response == nullptr) {
      clearAll();
      return kCvelErrNullData;
    }
    CvelString whole;
    // A BasicOCSPResponse that cannot be copied or does not parse is dropped; the walk goes on.
    if (!c.elementView(der, whole) || response->parse(whole.data(), whole.length()) != kCvelOk) {
      delete response;
      continue;
    }
    if (!append<CvelOCSPResponse>(ocspValues_, response)) {
      clearAll();
      return kCvelErrMalformed;
    }
  }
  return kCvelOk;
}

CvelResult CvelEtsRevocationValues::decode(const CvelString& der, CvelA1Context* reader) {
  // RevocationValues ::= SEQUENCE { crlVals [0] SEQUENCE OF CertificateList OPTIONAL,
  //                                 ocspVals [1] SEQUENCE OF BasicOCSPResponse OPTIONAL,
  //                                 otherRevVals [2] OtherRevVals OPTIONAL }
  // Inside each tagged element every SEQUENCE is one value; other elements there are passed over.
  clearAll();
  CvelA1CursorOrFresh reading(reader);
  CvelA1Context& cursor = reading.get();
  if (cursor.next(der) != kTagSequence) return 0;
  CvelA1Context c;
  int32_t tag = cursor.firstChild(der, c);
  if (tag == kTagContext0) {
    CvelResult r = readTriples(der, c, crlValues_);
    if (r != kCvelOk) return r;
    tag = c.next(der);
  }
  if (tag == kTagContext1) {
    CvelResult r = readResponses(der, c);
    if (r != kCvelOk) return r;
    tag = c.next(der);
  }
  if (tag == kTagContext2) {
    CvelResult r = readTriples(der, c, otherValues_);
    if (r != kCvelOk) return r;
    tag = c.next(der);
  }
  if (tag != CvelA1Context::kEnd) return 0;
  state_ = kDecoded;
  return kCvelOk;
}

CvelResult CvelEtsRevocationValues::decode(CvelA1File& file) {
  CvelA1Input& in = file.input();
  const uint32_t size = in.size();
  CvelString der;
  uint32_t got = 0;
  if (der.allocate(size) != kCvelOk) {
    clearAll();
    return kCvelErrNullData;
  }
  if (size != 0 && (in.seek(0, CvelA1Input::kFromStart) != kCvelOk || in.read(der.data(), size, &got) != kCvelOk ||
                    got != size)) {
    clearAll();
    return kCvelErrMalformed;
  }
  // Every stored value is a copy, so the image may go when the decode is done.
  return decode(der);
}

CvelResult CvelEtsRevocationValues::encode(CvelString& out, int mode) const {
  // Sizes first: each list that is not empty becomes [n] { SEQUENCE { its values } }.
  uint64_t crls = 0;
  uint64_t responses = 0;
  uint64_t others = 0;
  if (!valuesLength(crlValues_, crls) || !valuesLength(ocspValues_, responses) || !valuesLength(otherValues_, others)) {
    return kCvelErrMalformed;
  }
  uint64_t accumulated = taggedSize(crlValues_.size(), crls) + taggedSize(ocspValues_.size(), responses) +
                         taggedSize(otherValues_.size(), others);
  // Mode 0 puts the accumulated elements in one more SEQUENCE than the value itself needs.
  const uint64_t inner = mode == kModeValue ? cvelTlvSize(accumulated) : accumulated;
  const uint64_t value = cvelTlvSize(inner);
  const uint64_t set = cvelTlvSize(value);
  const uint64_t attributeContent = sizeof kDerOidRevocationValues + set;
  const uint64_t total = mode == kModeAttribute ? cvelTlvSize(attributeContent) : set;
  return cvelWriteExactly(total, out, [&](CvelA1Writer& w) {
    if (mode == kModeAttribute) {
      w.header(kTagSequence, attributeContent);
      w.bytes(kDerOidRevocationValues, sizeof kDerOidRevocationValues);
    }
    w.header(kTagSet, value);
    w.header(kTagSequence, inner);
    if (mode == kModeValue) w.header(kTagSequence, accumulated);
    writeTagged(w, crlValues_, kTagContext0, crls);
    writeTagged(w, ocspValues_, kTagContext1, responses);
    writeTagged(w, otherValues_, kTagContext2, others);
  });
}

CvelResult CvelEtsRevocationValues::encode(CvelA1Output& output, int mode) const {
  CvelString bytes;
  CvelResult r = encode(bytes, mode);
  if (r != kCvelOk) return r;
  return output.write(bytes.data(), bytes.length(), nullptr);
}
