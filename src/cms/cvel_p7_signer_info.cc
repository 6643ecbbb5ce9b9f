#include "cms/cvel_p7_signer_info.h"

#include <functional>
#include <new>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_oid.h"
#include "cms/cvel_cms_cursor.h"
#include "cms/cvel_tsp_response.h"

namespace {

// Calls visit(kind, attributes, values) for each Attribute ::= SEQUENCE { attrType OBJECT IDENTIFIER,
// attrValues SET OF AttributeValue } of a run of attributes, values being a cursor on the SET. The walk ends
// quietly at the first element that is not such an attribute.
void forEachAttribute(const CvelString& attributes,
                      const std::function<void(int32_t, const CvelA1Context&)>& visit) {
  CvelA1Context attribute;
  while (attribute.next(attributes) == kTagSequence) {
    CvelA1Context member;
    member.enterElementOf(attribute);
    if (member.next(attributes) != kTagOid) return;
    CvelString type;
    if (type.setView(attributes, member.elementOffset(), member.elementLength()) != kCvelOk) return;
    const int32_t kind = kindOf(type);
    if (member.next(attributes) != kTagSet) return;
    visit(kind, member);
  }
}

}  // namespace

CvelP7SignerInfo::CvelP7SignerInfo() = default;

CvelP7SignerInfo::~CvelP7SignerInfo() = default;

CvelTSPResponses& CvelP7SignerInfo::timeStamps() {
  if (timeStamps_ == nullptr) timeStamps_ = std::make_unique<CvelTSPResponses>();
  return *timeStamps_;
}

const CvelTSPResponses& CvelP7SignerInfo::timeStamps() const {
  static const CvelTSPResponses kNone;
  return timeStamps_ != nullptr ? *timeStamps_ : kNone;
}

CvelResult CvelP7SignerInfo::encode(CvelString& out) const {
  return cvelEncodeDer(out, [this](CvelDerWriter& w) { write(w); });
}

// Fields never set are empty strings and write nothing; the attribute sets are left out when empty.
void CvelP7SignerInfo::write(CvelDerWriter& w) const {
  w.element(kTagSequence, [&] {
    version_.write(w);
    w.bytes(signerIdentifier_);
    w.bytes(digestAlgorithm_);
    if (!signedAttributes_.isEmpty()) w.element(kTagContext0, signedAttributes_);
    w.bytes(signatureAlgorithm_);
    w.element(kTagOctetString, signatureValue_);
    if (!unsignedAttributes_.isEmpty()) w.element(kTagContext1, unsignedAttributes_);
  });
}

CvelResult CvelP7SignerInfo::encode(std::vector<unsigned char>& out) const {
  // The version as write puts it, the one field whose size is not its string's: a held value directly,
  // held octets through the writer's two passes.
  static_assert(kVersionRoom >= CvelA1Integer::kValueElementRoom, "room for a held value's element");
  unsigned char version[kVersionRoom];
  uint64_t versionLength = version_.writeValueElement(version);
  if (versionLength == 0) {
    CvelDerWriter v;
    version_.write(v);
    if (v.failed() || v.counted() > sizeof version) {
      return cvelEncodeDer(out, [this](CvelDerWriter& w) { write(w); });
    }
    v.startWriting(version);
    version_.write(v);
    if (!v.complete()) return kCvelErrMalformed;
    versionLength = v.counted();
  }

  auto optional = [](const CvelString& s) { return s.isEmpty() ? 0 : cvelTlvSize(s.length()); };
  const uint64_t content = versionLength + signerIdentifier_.length() + digestAlgorithm_.length() +
                           optional(signedAttributes_) + signatureAlgorithm_.length() +
                           cvelTlvSize(signatureValue_.length()) + optional(unsignedAttributes_);
  const uint64_t total = cvelTlvSize(content);
  if (total >= CvelString::kViewCapacity - 1) return kCvelErrNoMemory;
  std::vector<unsigned char> result(static_cast<size_t>(total));
  CvelA1Writer w(result.data(), total);
  auto element = [&w](uint8_t tag, const CvelString& s) {
    w.header(tag, s.length());
    w.bytes(s.data(), s.length());
  };
  w.header(kTagSequence, content);
  w.bytes(version, versionLength);
  w.bytes(signerIdentifier_.data(), signerIdentifier_.length());
  w.bytes(digestAlgorithm_.data(), digestAlgorithm_.length());
  if (!signedAttributes_.isEmpty()) element(kTagContext0, signedAttributes_);
  w.bytes(signatureAlgorithm_.data(), signatureAlgorithm_.length());
  element(kTagOctetString, signatureValue_);
  if (!unsignedAttributes_.isEmpty()) element(kTagContext1, unsignedAttributes_);
  if (!w.complete()) return kCvelErrMalformed;
  out.swap(result);
  return kCvelOk;
}

CvelResult CvelP7SignerInfo::decode(CvelA1Input& in, CvelA1StreamCursor& cursor) {
  if (cursor.tag() != kTagSequence || cursor.contentLength() == 0) return kCvelErrMalformed;
  CvelA1StreamCursor fields = cvelCmsChildOf(cursor);
  CvelResult r = readFields(in, fields);
  if (r != kCvelOk) return r;
  // fields stands on the first element not taken: the end-of-contents, when the reading went that far.
  if (cursor.indefinite()) cursor.setPosition(fields.position());
  return examineAttributes();
}

// SignerInfo ::= SEQUENCE { version CMSVersion, sid SignerIdentifier, digestAlgorithm
//   DigestAlgorithmIdentifier, signedAttrs [0] IMPLICIT SignedAttributes OPTIONAL, signatureAlgorithm
//   SignatureAlgorithmIdentifier, signature SignatureValue, unsignedAttrs [1] IMPLICIT UnsignedAttributes
//   OPTIONAL }
// The sid is taken in its IssuerAndSerialNumber form only. A field under another tag (or of indefinite
// length) ends the reading without error: hosts rely on this leniency. On return, fields stands at the
// start of the first element not taken.
CvelResult CvelP7SignerInfo::readFields(CvelA1Input& in, CvelA1StreamCursor& fields) {
  uint32_t untaken = fields.position();
  // Reads the next field: true when it is there under the tag; a failure to read stops the reading.
  CvelResult failure = kCvelOk;
  auto at = [&](uint8_t tag) {
    untaken = fields.position();
    const CvelResult r = fields.next(in);
    if (r != kCvelOk && r != kCvelErrEndOfData) failure = kCvelErrMalformed;
    return r == kCvelOk && fields.tag() == tag && !fields.indefinite();
  };
  auto stop = [&]() {
    fields.setPosition(untaken);
    return failure;
  };
  auto element = [&](CvelString& out) { return fields.getElement(in, out) == kCvelOk; };
  auto content = [&](CvelString& out) { return fields.getContent(in, out) == kCvelOk; };

  if (fields.next(in) != kCvelOk) return kCvelErrMalformed;
  fields.setPosition(untaken);
  if (!at(kTagInteger)) return stop();
  if (version_.decode(in, fields) != kCvelOk) return kCvelErrMalformed;
  if (!at(kTagSequence)) return stop();
  if (!element(signerIdentifier_)) return kCvelErrMalformed;
  if (!at(kTagSequence)) return stop();
  if (!element(digestAlgorithm_)) return kCvelErrMalformed;
  const bool hasSignedAttributes = at(kTagContext0);
  if (hasSignedAttributes) {
    if (!content(signedAttributes_)) return kCvelErrMalformed;
    if (!at(kTagSequence)) return stop();
  } else if (failure != kCvelOk || fields.tag() != kTagSequence || fields.indefinite()) {
    return stop();
  }
  if (!element(signatureAlgorithm_)) return kCvelErrMalformed;
  if (!at(kTagOctetString)) return stop();
  if (!content(signatureValue_)) return kCvelErrMalformed;
  if (!at(kTagContext1)) return stop();
  if (!content(unsignedAttributes_)) return kCvelErrMalformed;
  untaken = fields.position();
  return stop();
}

CvelResult CvelP7SignerInfo::examineAttributes() {
  examineDigestAlgorithm();
  // The revocation values are an unsigned attribute; its value is read into the revocation-values object.
  revocationValuesResult_ = 0;
  forEachAttribute(unsignedAttributes_, [this](int32_t kind, const CvelA1Context& values) {
    if (kind != kOidRevocationValues) return;
    CvelString value;
    if (value.assign(unsignedAttributes_, &values) != kCvelOk) return;
    revocationValuesResult_ = revocationValues_.decode(value);
  });
  if (timeStamps_ != nullptr && timeStamps_->size() != 0) return kCvelOk;
  collect(signedAttributes_, true);
  collect(unsignedAttributes_, false);
  return kCvelOk;
}

// AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, parameters ANY OPTIONAL }
void CvelP7SignerInfo::examineDigestAlgorithm() {
  digestKind_ = kOidUnknown;
  CvelA1Context c;
  if (c.next(digestAlgorithm_) != kTagSequence || c.descend(digestAlgorithm_) != kTagOid) return;
  CvelString oid;
  if (oid.setView(digestAlgorithm_, c.elementOffset(), c.elementLength()) == kCvelOk) digestKind_ = kindOf(oid);
}

// Every value of a signature-time-stamp attribute that decodes as a token is kept; the others are dropped.
void CvelP7SignerInfo::collect(const CvelString& attributes, bool signedAttributes) {
  forEachAttribute(attributes, [&](int32_t kind, const CvelA1Context& set) {
    if (kind != kOidSignatureTimeStampToken) return;
    CvelA1Context value;
    value.enterElementOf(set);
    while (value.next(attributes) >= 0) {
      CvelTSPResponse* response = new (std::nothrow) CvelTSPResponse(signedAttributes);
      if (response == nullptr) return;
      if (value.getElement(attributes, response->token().encoded()) != kCvelOk ||
          response->token().decode() != kCvelOk) {
        delete response;
        continue;
      }
      try {
        if (timeStamps().add(response) != kCvelOk) return;
      } catch (const std::bad_alloc&) {
        return;  // the list has destroyed the response
      }
    }
  });
}

CvelResult CvelP7SignerInfos::encode(CvelString& out) const {
  for (uint32_t i = 0; i < size(); ++i) {
    CvelP7SignerInfo* signer = nullptr;
    if (get(i, signer) != kCvelOk) return kCvelErrMalformed;
  }
  return cvelEncodeDer(out, [this](CvelDerWriter& w) { write(w); }) == kCvelOk ? kCvelOk : kCvelErrMalformed;
}

void CvelP7SignerInfos::write(CvelDerWriter& w) const {
  for (uint32_t i = 0; i < size(); ++i) {
    CvelP7SignerInfo* signer = nullptr;
    // An empty slot writes nothing.
    if (get(i, signer) == kCvelOk && signer != nullptr) signer->write(w);
  }
}

// SignerInfos ::= SET OF SignerInfo
CvelResult CvelP7SignerInfos::decode(CvelA1Input& in, CvelA1StreamCursor& cursor) {
  if (cursor.contentLength() == 0) return kEmpty;
  CvelA1StreamCursor member = cvelCmsChildOf(cursor);
  const CvelResult first = member.next(in);
  // An empty SET of indefinite length is as empty as `31 00`: the cursor moves past its end-of-contents.
  if (first == kCvelOk && cursor.indefinite() && cvelCmsIsEndOfContents(member)) {
    cursor.setPosition(member.position());
    return kEmpty;
  }
  if (first != kCvelOk || member.tag() != kTagSequence) return kEmpty;
  CvelResult r = kCvelOk;
  CvelResult following = kCvelOk;
  do {
    CvelP7SignerInfo* signer = new (std::nothrow) CvelP7SignerInfo();
    if (signer == nullptr) return kCvelErrNoMemory;
    if (signer->decode(in, member) != kCvelOk) {
      delete signer;
      return kCvelErrMalformed;
    }
    try {
      r = add(signer);
    } catch (const std::bad_alloc&) {
      return kCvelErrMalformed;  // the list has destroyed the signer info
    }
    if (member.indefinite() && (member.next(in) != kCvelOk || !cvelCmsIsEndOfContents(member))) {
      return kCvelErrMalformed;
    }
    following = member.next(in);
  } while (following == kCvelOk && member.tag() == kTagSequence);
  // The SET ends when its bytes are used up or at an element other than a SEQUENCE; an element that cannot
  // be read at all (one overrunning the SET) is a broken member, not the end.
  if (following != kCvelOk && following != kCvelErrEndOfData) return kCvelErrMalformed;
  // A SET of indefinite length ends with the end-of-contents just read.
  if (cursor.indefinite() && member.tag() == kTagEndOfContents) cursor.setPosition(member.position());
  return r;
}
