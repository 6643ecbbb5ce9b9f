#include "cms/cvel_a1_p72.h"

#include <functional>
#include <memory>
#include <new>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_der.h"
#include "cms/cvel_cms_cursor.h"
#include "cms/cvel_signed_data_writer.h"

namespace {

// Stands for "the decoding goes no further" inside the walk: a wrong tag at a mandatory place.
constexpr CvelResult kStopHere = kCvelOk;

// Calls take(element DER) for each member of the element `parent` has just read, up to its end (or its
// end-of-contents, after which parent stands). A member of indefinite length cannot be a certificate or a
// CRL, which are DER.
CvelResult forEachMember(CvelA1Input& in, CvelA1StreamCursor& parent,
                         const std::function<CvelResult(const CvelString&)>& take) {
  CvelA1StreamCursor member = cvelCmsChildOf(parent);
  CvelResult r = kCvelOk;
  while ((r = member.next(in)) == kCvelOk && !cvelCmsIsEndOfContents(member)) {
    CvelString element;
    if (member.indefinite() || member.getElement(in, element) != kCvelOk) return kCvelErrMalformed;
    r = take(element);
    if (r != kCvelOk) return r;
  }
  if (parent.indefinite()) {
    if (r != kCvelOk) return kCvelErrMalformed;  // no end-of-contents
    parent.setPosition(member.position());
    return kCvelOk;
  }
  // A definite element ends with its last member; an end-of-contents pair inside it is not allowed.
  return r == kCvelErrEndOfData ? kCvelOk : kCvelErrMalformed;
}

}  // namespace

CvelResult CvelA1P72::encode(CvelString& out, bool detached) const {
  CvelString contentInfo;
  CvelResult r = contentInfo_.encode(contentInfo, detached);
  if (r != kCvelOk) return r;

  CvelA1Integer version;
  if (version_.bytes().isEmpty())
    version.setValue(version_.value());
  else if (version.setBytes(version_.bytes().data(), version_.bytes().length()) != kCvelOk)
    return kCvelErrMalformed;
  for (uint32_t i = 0; i < certificates_.size(); ++i) {
    if (certificates_.get(i) == nullptr) return kCvelErrMalformed;
  }
  for (uint32_t i = 0; i < signerInfos_.size(); ++i) {
    CvelP7SignerInfo* signer = nullptr;
    if (signerInfos_.get(i, signer) != kCvelOk) return kCvelErrMalformed;
  }

  const auto parts = CvelSignedDataParts{
      [&](CvelDerWriter& w) { version.write(w); },
      [&](CvelDerWriter& w) { w.bytes(digestAlgorithms_); },
      [&](CvelDerWriter& w) { w.bytes(contentInfo); },
      certificates_.size() != 0,
      [&](CvelDerWriter& w) {
        for (uint32_t i = 0; i < certificates_.size(); ++i) w.bytes(certificates_.get(i)->encoded());
      },
      // The CRL list that decode fills is not written back: hosts add CRLs through the container, and
      // callers of this object rely on their absence here.
      false,
      [](CvelDerWriter&) {},
      [&](CvelDerWriter& w) { signerInfos_.write(w); }};
  r = cvelEncodeDer(out, [&parts](CvelDerWriter& w) { cvelWriteSignedData(w, parts); });
  return r == kCvelOk ? kCvelOk : kCvelErrMalformed;
}

void CvelA1P72::getSize(CvelA1Size& size, bool detached) const {
  size.add(version_.encodedSize());
  size.addElement(digestAlgorithms_.length());
  contentInfo_.getSize(size, detached);
}

// ContentInfo ::= SEQUENCE { contentType OBJECT IDENTIFIER (signedData), content [0] EXPLICIT SignedData }
CvelResult CvelA1P72::decode(CvelA1Input& in, CvelA1StreamCursor& cursor) {
  if (cursor.next(in) != kCvelOk) return kUnreadable;
  if (cursor.tag() != kTagSequence) return kStopHere;
  CvelA1StreamCursor info = cvelCmsChildOf(cursor);
  if (info.next(in) != kCvelOk) return kCvelErrMalformed;
  if (info.tag() != kTagOid) return kStopHere;
  CvelString type;
  if (info.getElement(in, type) != kCvelOk) return kCvelErrMalformed;
  // Another content type is not a signedData to read: the same quiet stop as for a wrong tag.
  if (!type.equals(kDerOidSignedData, sizeof(kDerOidSignedData))) return kStopHere;
  if (info.next(in) != kCvelOk) return kCvelErrMalformed;
  if (info.tag() != kTagContext0) return kStopHere;
  CvelA1StreamCursor explicitContent = cvelCmsChildOf(info);
  if (explicitContent.next(in) != kCvelOk) return kCvelErrMalformed;
  if (explicitContent.tag() != kTagSequence) return kStopHere;
  CvelA1StreamCursor fields = cvelCmsChildOf(explicitContent);

  bool complete = false;
  CvelResult r = decodeSignedData(in, fields, complete);
  if (r != kCvelOk || !complete) return r;
  if (!cvelCmsClose(in, explicitContent, fields) || !cvelCmsClose(in, info, explicitContent) ||
      !cvelCmsClose(in, cursor, info)) {
    return kCvelErrMalformed;
  }
  return kCvelOk;
}

// SignedData ::= SEQUENCE { version CMSVersion, digestAlgorithms SET OF DigestAlgorithmIdentifier,
//   encapContentInfo EncapsulatedContentInfo, certificates [0] IMPLICIT CertificateSet OPTIONAL,
//   crls [1] IMPLICIT RevocationInfoChoices OPTIONAL, signerInfos SET OF SignerInfo }
// An early stop also returns kCvelOk, with complete left false: the enclosing elements are then not closed.
CvelResult CvelA1P72::decodeSignedData(CvelA1Input& in, CvelA1StreamCursor& fields, bool& complete) {
  if (fields.next(in) != kCvelOk) return kCvelErrMalformed;
  if (fields.tag() != kTagInteger) return kStopHere;
  if (version_.decode(in, fields) != kCvelOk) return kCvelErrMalformed;

  if (fields.next(in) != kCvelOk) return kCvelErrMalformed;
  if (fields.tag() != kTagSet) return kStopHere;
  CvelResult r = readDigestAlgorithms(in, fields);
  if (r != kCvelOk) return r;

  if (fields.next(in) != kCvelOk) return kCvelErrMalformed;
  if (fields.tag() != kTagSequence) return kStopHere;
  if (contentInfo_.decode(in, fields) != kCvelOk) return kCvelErrMalformed;
  // The content info leaves the cursor on its own end-of-contents.
  if (fields.indefinite() && (fields.next(in) != kCvelOk || !cvelCmsIsEndOfContents(fields))) {
    return kCvelErrMalformed;
  }

  if (fields.next(in) != kCvelOk) return kCvelErrMalformed;
  if (fields.tag() == kTagContext0) {
    r = readCertificates(in, fields);
    if (r != kCvelOk) return r;
    if (fields.next(in) != kCvelOk) return kCvelErrMalformed;
  }
  if (fields.tag() == kTagContext1) {
    r = readCrls(in, fields);
    if (r != kCvelOk) return r;
    if (fields.next(in) != kCvelOk) return kCvelErrMalformed;
  }
  if (fields.tag() != kTagSet) return kStopHere;
  r = signerInfos_.decode(in, fields);
  // An empty SET (`31 00` or `31 80 00 00`) gives the collection's plain 0, which is no failure here: a
  // signedData that only carries certificates has no signers.
  if (r != kCvelOk && !(isEmptySet(in, fields) && r == CvelP7SignerInfos::kEmpty)) return kCvelErrMalformed;
  complete = true;
  return kCvelOk;
}

CvelResult CvelA1P72::readDigestAlgorithms(CvelA1Input& in, CvelA1StreamCursor& set) {
  if (!set.indefinite()) return set.getContent(in, digestAlgorithms_) == kCvelOk ? kCvelOk : kCvelErrMalformed;
  // The content of a SET of indefinite length ends at its end-of-contents.
  CvelA1StreamCursor member = cvelCmsChildOf(set);
  while (member.next(in) == kCvelOk && !member.indefinite()) {
    if (!cvelCmsIsEndOfContents(member)) continue;
    const uint32_t start = set.contentOffset();
    const uint32_t count = cvelCmsElementStart(member) - start;
    CvelString bytes;
    uint32_t got = 0;
    if (count != 0 && (bytes.allocate(count) != kCvelOk || in.seek(start, CvelA1Input::kFromStart) != kCvelOk ||
                       in.read(bytes.data(), count, &got) != kCvelOk || got != count)) {
      return kCvelErrMalformed;
    }
    digestAlgorithms_.moveFrom(bytes);
    set.setPosition(member.position());
    return kCvelOk;
  }
  return kCvelErrMalformed;
}

// True when the SET `set` has just read holds no element: no content, or an end-of-contents first.
bool CvelA1P72::isEmptySet(CvelA1Input& in, const CvelA1StreamCursor& set) {
  if (set.contentLength() == 0) return true;
  if (!set.indefinite()) return false;
  CvelA1StreamCursor member;
  member.setPosition(set.contentOffset());
  return member.next(in) == kCvelOk && cvelCmsIsEndOfContents(member);
}

// CertificateSet ::= SET OF CertificateChoices; every member must be a certificate we can parse.
CvelResult CvelA1P72::readCertificates(CvelA1Input& in, CvelA1StreamCursor& tagged) {
  certificates_.clear();
  return forEachMember(in, tagged, [this](const CvelString& element) -> CvelResult {
    std::shared_ptr<CvelCertificate> certificate(new (std::nothrow) CvelCertificate());
    if (certificate == nullptr) return kCvelErrNoMemory;
    if (certificate->parse(element.data(), element.length()) != kCvelOk) return kCvelErrMalformed;
    certificates_.add(std::move(certificate));
    return kCvelOk;
  });
}

// RevocationInfoChoices ::= SET OF RevocationInfoChoice; every member must be a CertificateList.
CvelResult CvelA1P72::readCrls(CvelA1Input& in, CvelA1StreamCursor& tagged) {
  crls_.clear();
  return forEachMember(in, tagged, [this](const CvelString& element) -> CvelResult {
    CvelCRL* crl = new (std::nothrow) CvelCRL();
    if (crl == nullptr) return kCvelErrNoMemory;
    if (crl->parse(element.data(), element.length()) != kCvelOk) {
      delete crl;
      return kCvelErrMalformed;
    }
    try {
      if (crls_.add(crl) != kCvelOk) return kCvelErrMalformed;
    } catch (const std::bad_alloc&) {
      return kCvelErrMalformed;  // the list has destroyed the CRL
    }
    return kCvelOk;
  });
}
