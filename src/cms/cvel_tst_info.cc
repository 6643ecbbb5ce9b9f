#include "cms/cvel_tst_info.h"

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_der.h"

namespace {

// id-ct-TSTInfo 1.2.840.113549.1.9.16.1.4, the whole OBJECT IDENTIFIER element.
constexpr uint8_t kDerOidTstInfo[] = {0x06, 0x0B, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x10, 0x01, 0x04};
// Implicitly tagged INTEGERs of Accuracy, and the ordering BOOLEAN's one content octet.
constexpr int32_t kTagMillis = 0x80;
constexpr int32_t kTagMicros = 0x81;
constexpr uint32_t kBooleanLength = 1;
// Below this many content octets an implicit INTEGER is read with its tag replaced; from it on, its content
// octets alone are handed to the INTEGER decoder.
constexpr uint32_t kRetagLimit = 3;
// A token's signer infos may carry tokens again; real ones never nest, and a hostile input must not take
// the call stack down with nesting.
constexpr int kMaxNesting = 4;
thread_local int nesting = 0;

bool copyElement(const CvelString& s, const CvelA1Context& c, CvelString& out) {
  return c.getElement(s, out) == kCvelOk;
}

// The element only read and then dropped: a view does what a copy would.
bool viewElement(const CvelString& s, const CvelA1Context& c, CvelString& out) {
  return c.takeElement(s, out, CvelKeep::kView) == kCvelOk;
}

// An INTEGER element as a 32-bit value; false when its decoder does not succeed.
bool readInteger(const CvelString& element, int32_t& value) {
  CvelA1Integer integer;
  if (!cvelSucceeded(integer.decode(element, nullptr))) return false;
  value = static_cast<int32_t>(integer.value());
  return true;
}

// millis [0] and micros [1] of Accuracy, INTEGERs under an implicit tag.
bool readImplicitInteger(const CvelString& s, const CvelA1Context& c, int32_t& value) {
  CvelString copy;
  if (c.contentLength() < kRetagLimit) {
    if (!copyElement(s, c, copy)) return false;
    copy.data()[0] = kTagInteger;
  } else if (copy.assign(s, &c) != kCvelOk) {
    // Contents of three octets and more go to the decoder without a header of their own, which it then reads
    // as one. The asymmetry with shorter values is intended and kept.
    return false;
  }
  return readInteger(copy, value);
}

}  // namespace

CvelResult CvelTSTInfo::decodeFrom(const CvelA1Context& parent, const CvelString& parentString) {
  if (encoded_.assign(parentString, &parent) != kCvelOk) return kCvelErrMalformed;
  return decode();
}

CvelResult CvelTSTInfo::decode() {
  if (nesting >= kMaxNesting) return kNotDecoded;
  ++nesting;
  const bool ok = readSignedData() && readTstInfo();
  --nesting;
  return ok ? kCvelOk : kNotDecoded;
}

// The token is a signedData whose content info holds a TSTInfo, flagged as structured content.
bool CvelTSTInfo::readSignedData() {
  CvelA1InputString in(encoded_, 0, encoded_.length());
  CvelA1StreamCursor cursor;
  if (!cvelSucceeded(signedData_.decode(in, cursor))) return false;
  const CvelP71& info = signedData_.contentInfo();
  return info.contentKind() == CvelP71::kContentKindSequence &&
         info.contentType().equals(kDerOidTstInfo, sizeof(kDerOidTstInfo));
}

// TSTInfo ::= SEQUENCE { version INTEGER { v1(1) }, policy TSAPolicyId, messageImprint MessageImprint,
//   serialNumber INTEGER, genTime GeneralizedTime, accuracy Accuracy OPTIONAL,
//   ordering BOOLEAN DEFAULT FALSE, nonce INTEGER OPTIONAL, tsa [0] GeneralName OPTIONAL,
//   extensions [1] IMPLICIT Extensions OPTIONAL }
// MessageImprint ::= SEQUENCE { hashAlgorithm AlgorithmIdentifier, hashedMessage OCTET STRING }
// One cursor walks the elements in order, into each constructed one; nothing may follow the last field.
bool CvelTSTInfo::readTstInfo() {
  if (content_.assign(signedData_.contentInfo().content()) != kCvelOk) return false;
  const CvelString& s = content_;
  CvelA1Context c;
  CvelString element;
  if (c.next(s) != kTagSequence || c.descend(s) != kTagInteger || !viewElement(s, c, element)) return false;
  CvelA1Integer version;
  if (!cvelSucceeded(version.decode(element, nullptr))) return false;
  version_ = static_cast<int32_t>(version.value());
  if (version_ != kVersion) return false;

  if (c.next(s) != kTagOid || !copyElement(s, c, policy_)) return false;
  if (c.next(s) != kTagSequence || !copyElement(s, c, messageImprint_)) return false;
  if (c.descend(s) != kTagSequence || !copyElement(s, c, hashAlgorithm_)) return false;
  if (c.next(s) != kTagOctetString || !copyElement(s, c, hashedMessage_)) return false;
  if (c.next(s) != kTagInteger || !copyElement(s, c, serialNumber_)) return false;
  // A UTCTime is taken as well as the GeneralizedTime the grammar asks for.
  const int32_t timeTag = c.next(s);
  if ((timeTag != kTagGeneralizedTime && timeTag != kTagUtcTime) || !viewElement(s, c, element)) return false;
  if (!cvelSucceeded(genTime_.decode(element, nullptr))) return false;

  int32_t tag = c.next(s);
  if (!readAccuracy(c, tag) || !readOptionalFields(c, tag)) return false;
  return tag == CvelA1Context::kEnd;
}

// Accuracy ::= SEQUENCE { seconds INTEGER OPTIONAL, millis [0] INTEGER OPTIONAL, micros [1] INTEGER OPTIONAL }
bool CvelTSTInfo::readAccuracy(CvelA1Context& c, int32_t& tag) {
  if (tag != kTagSequence) return true;
  const CvelString& s = content_;
  accuracyPresent_ = 1;
  tag = c.descend(s);
  if (tag == kTagInteger) {
    CvelString element;
    if (!viewElement(s, c, element) || !readInteger(element, seconds_)) return false;
    tag = c.next(s);
  }
  if (tag == kTagMillis) {
    if (!readImplicitInteger(s, c, millis_)) return false;
    tag = c.next(s);
  }
  if (tag == kTagMicros) {
    if (!readImplicitInteger(s, c, micros_)) return false;
    tag = c.next(s);
  }
  return true;
}

// ordering, nonce, tsa and extensions, each optional, in this order.
bool CvelTSTInfo::readOptionalFields(CvelA1Context& c, int32_t& tag) {
  const CvelString& s = content_;
  if (tag == kTagBoolean) {
    if (c.contentLength() != kBooleanLength || !c.elementInside(s)) return false;
    ordering_ = s.data()[c.contentOffset()] != 0 ? 1 : 0;
    tag = c.next(s);
  }
  if (tag == kTagInteger) {
    if (nonce_.assign(s, &c) != kCvelOk) return false;
    tag = c.next(s);
  }
  if (tag == kTagContext0) {
    if (tsa_.encoded().assign(s, &c) != kCvelOk || !cvelSucceeded(tsa_.parse())) return false;
    tag = c.next(s);
  }
  if (tag == kTagContext1) {
    if (extensionsContent_.assign(s, &c) != kCvelOk) return false;
    // The extensions are kept as they decode; a list that does not decode does not spoil the token.
    CvelA1Context records;
    static_cast<void>(extensions_.decodeRecords(extensionsContent_, records));
    tag = c.next(s);
  }
  return true;
}
