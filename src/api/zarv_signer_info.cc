// The exported signer-info functions: attributes in, data to be signed out, signature in, SignerInfo out.
#include <cstring>
#include <new>
#include <string_view>

#include "api/signer_info_record.h"
#include "api/zarv_guard.h"
#include "api/zarv_known_oids.h"
#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_oid.h"
#include "kolvari/zarv.h"

namespace {

constexpr char kSignatureEnvironmentOid[] = "1.3.6.1.4.1.47731.1";
// The two labels of the signature-creation environment: 1.3.6.1.4.1.47731.1.1 and .1.2, whole elements.
constexpr unsigned char kEnvironmentFirstOid[] = {0x06, 0x0A, 0x2B, 0x06, 0x01, 0x04, 0x01,
                                                  0x82, 0xF4, 0x73, 0x01, 0x01};
constexpr unsigned char kEnvironmentSecondOid[] = {0x06, 0x0A, 0x2B, 0x06, 0x01, 0x04, 0x01,
                                                   0x82, 0xF4, 0x73, 0x01, 0x02};

constexpr uint32_t kReplace = 1;
// Signing-time texts: YYMMDDhhmmssZ and YYYYMMDDhhmmssZ. The length is taken as one octet.
constexpr uint8_t kShortTimeLength = 13;
constexpr uint8_t kLongTimeLength = 15;

// The record is made whole or not at all, so a handle that is not null is usable.
bool usable(const SignerInfoRecord* h) { return h != nullptr; }

// The record, its signer object and its signed attributes' table are one block: kept below the size from
// which glibc's malloc first merges its free lists, which a block that size would do on every signer.
constexpr size_t kRecordSizeLimit = 1000;
static_assert(sizeof(SignerInfoRecord) <= kRecordSizeLimit, "the signer-info record stays a small block");

// The element of a host's dotted text: from the table of known identifiers when it holds the text, else
// from the converter, which reads the text up to its first NUL.
uint32_t oidElement(const std::string& dotted, CvelString& oid) {
  const std::string_view known = zarvKnownOidElement(dotted);
  if (known.empty()) return fromDottedElement(dotted.c_str(), oid);
  return oid.setView(known.data(), known.size());
}

// SEQUENCE { OID from the dotted text, NULL } (withNull), or SEQUENCE { OID }, in the record's room when
// it fits.
uint32_t algorithm(const std::string& dotted, bool withNull, ZarvRecordRoom& room, CvelString& out) {
  // A known element is written from the table as it is; only other texts take a string of the converter's.
  CvelString converted;
  std::string_view oid = zarvKnownOidElement(dotted);
  if (oid.empty()) {
    const uint32_t r = fromDottedElement(dotted.c_str(), converted);
    if (r != ZARV_OK) return r;
    oid = std::string_view(reinterpret_cast<const char*>(converted.data()), converted.length());
  }
  const uint64_t content = oid.size() + (withNull ? sizeof kDerNull : 0);
  return zarvWriteField(room, out, cvelTlvSize(content), [&](CvelA1Writer& w) {
    w.header(kTagSequence, content);
    w.bytes(oid.data(), oid.size());
    if (withNull) w.bytes(kDerNull, sizeof kDerNull);
  });
}

// The raw signature octets, in the record's room when they fit.
uint32_t copySignature(const std::vector<unsigned char>& signature, ZarvRecordRoom& room, CvelString& out) {
  unsigned char* at = room.take(signature.size());
  if (at == nullptr) return out.assign(signature.data(), static_cast<uint32_t>(signature.size()));
  std::memcpy(at, signature.data(), signature.size());
  return out.setView(at, signature.size());
}

uint32_t setContentType(SignerInfoRecord& h, const std::vector<unsigned char>& derOid) {
  if (derOid.empty()) {
    return zarvAddAttribute(h, ZarvAttributeKind::kSigned, kZarvContentType, kDerOidData, sizeof kDerOidData,
                            kReplace);
  }
  return zarvAddAttribute(h, ZarvAttributeKind::kSigned, kZarvContentType, derOid.data(), derOid.size(), kReplace);
}

uint32_t addAttribute(SignerInfoRecord* h, ZarvAttributeKind kind, std::string_view oid,
                      const std::vector<unsigned char>& derValue, uint32_t replace) {
  if (!usable(h)) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    const ZarvKnownOid type{oid, zarvKnownOidElement(oid)};
    return zarvAddAttribute(*h, kind, type, derValue.data(), derValue.size(), replace);
  });
}

}  // namespace

uint32_t ZARV_CreateSignerInfo(SignerInfoRecord** handle) {
  if (handle == nullptr) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    // Default-initialised: the room's octets are written before they are read, and need no zeroing.
    SignerInfoRecord* record = new (std::nothrow) SignerInfoRecord;
    if (record == nullptr) return ZARV_E_OUT_OF_MEMORY;
    *handle = record;
    return ZARV_OK;
  });
}

uint32_t ZARV_SetSigningTime(SignerInfoRecord* h, const std::string& time) {
  if (!usable(h)) return ZARV_E_BAD_PARAMETER;
  const uint8_t length = static_cast<uint8_t>(time.size());
  if (length != kShortTimeLength && length != kLongTimeLength) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    // The GeneralizedTime tag is written for both text lengths.
    const bool added = h->signedAttributes.addSized(kZarvSigningTime, true, cvelTlvSize(length), [&](CvelA1Writer& w) {
      w.header(kTagGeneralizedTime, length);
      w.bytes(time.data(), length);
    });
    return added ? ZARV_OK : static_cast<uint32_t>(kCvelErrMalformed);
  });
}

uint32_t ZARV_SetDataHash(SignerInfoRecord* h, const std::vector<unsigned char>& digest, const std::string& digestOid,
                          uint32_t replace) {
  if (!usable(h)) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    CvelString digestAlgorithm;
    uint32_t r = algorithm(digestOid, true, h->room, digestAlgorithm);
    if (r != ZARV_OK) return r;
    h->signer.digestAlgorithm().moveFrom(digestAlgorithm);
    const bool added = h->signedAttributes.addSized(kZarvMessageDigest, replace == kReplace, cvelTlvSize(digest.size()),
                                                    [&digest](CvelA1Writer& w) {
                                                      w.header(kTagOctetString, digest.size());
                                                      w.bytes(digest.data(), digest.size());
                                                    });
    return added ? ZARV_OK : static_cast<uint32_t>(kCvelErrMalformed);
  });
}

uint32_t ZARV_SetSignerCertificate(SignerInfoRecord* h, const std::vector<unsigned char>& cert,
                                   const std::vector<unsigned char>& certHash, const std::string& certHashOid) {
  if (!usable(h)) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    if (cert.size() >= CvelString::kViewCapacity - 1) return ZARV_E_BAD_PARAMETER;
    // Only the signer identifier and the signing-certificate-v2 value are taken from the certificate, both
    // copied out before it goes: it lives for this call only, and reads the host's bytes in place (the parse
    // copies what it changes: armour, base64, a wrapper). A fresh object has the version a parse starts from.
    CvelCertificate certificate;
    if (certificate.encoded().setView(cert.data(), cert.size()) != kCvelOk) certificate.encoded().release();
    uint32_t r = certificate.parse();
    if (r != ZARV_OK) return r;
    // The signer identifier is stored before the hash OID is converted, so a hash OID that does not
    // convert still leaves the identifier of this certificate in the object.
    CvelString signerIdentifier;
    if (zarvBuildSignerIdentifier(certificate, h->room, signerIdentifier) != ZARV_OK) return ZARV_E_OUT_OF_MEMORY;
    h->signer.signerIdentifier().moveFrom(signerIdentifier);
    CvelString hashOid;
    r = oidElement(certHashOid, hashOid);
    if (r != ZARV_OK) return r;
    // A value too large for one of the library's strings is refused like one that cannot be had.
    const ZarvSigningCertificateV2 value{certificate, certHash, hashOid};
    const bool added = h->signedAttributes.addSized(kZarvSigningCertificateV2, true, value.size(),
                                                    [&value](CvelA1Writer& w) { value.write(w); });
    return added ? ZARV_OK : ZARV_E_OUT_OF_MEMORY;
  });
}

uint32_t ZARV_SetSignatureCreationEnvironment(SignerInfoRecord* h, const std::string& first, const std::string& second,
                                              uint32_t replace) {
  if (!usable(h)) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    auto item = [](CvelDerWriter& w, const unsigned char* oid, size_t oidLength, const std::string& text) {
      w.element(kTagSequence, [&] {
        w.bytes(oid, oidLength);
        w.element(kTagUtf8String, text.data(), text.size());
      });
    };
    const bool added = h->signedAttributes.add(kSignatureEnvironmentOid, replace == kReplace, [&](CvelDerWriter& w) {
      w.element(kTagSequence, [&] {
        item(w, kEnvironmentFirstOid, sizeof kEnvironmentFirstOid, first);
        item(w, kEnvironmentSecondOid, sizeof kEnvironmentSecondOid, second);
      });
    });
    return added ? ZARV_OK : ZARV_E_NOT_STORED;
  });
}

uint32_t ZARV_SetContentType(SignerInfoRecord* h, const std::vector<unsigned char>& derOid) {
  if (!usable(h)) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] { return setContentType(*h, derOid); });
}

uint32_t ZARV_AddSignedAttribute(SignerInfoRecord* h, const std::string& oid,
                                 const std::vector<unsigned char>& derValue, uint32_t replace) {
  return addAttribute(h, ZarvAttributeKind::kSigned, oid, derValue, replace);
}

uint32_t ZARV_AddUnsignedAttribute(SignerInfoRecord* h, const std::string& oid,
                                   const std::vector<unsigned char>& derValue, uint32_t replace) {
  return addAttribute(h, ZarvAttributeKind::kUnsigned, oid, derValue, replace);
}

uint32_t ZARV_GetDTBS(SignerInfoRecord* h, std::vector<unsigned char>* out) {
  if (!usable(h) || out == nullptr) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    const ZarvAttributeMap& map = h->signedAttributes;
    if (!map.contains(kZarvContentType)) {
      uint32_t r = setContentType(*h, {});
      if (r != ZARV_OK) return r;
    }
    // The order is fixed here; the SignerInfo encodes these same bytes as its [0] set later.
    CvelString attributes;
    uint32_t r = zarvBuildAttributes(map, zarvSignedAttributeOrder(), h->room, attributes);
    if (r != ZARV_OK) return r;
    h->signer.signedAttributes().moveFrom(attributes);
    // What the host signs is the SET form of the attributes.
    const CvelString& set = h->signer.signedAttributes();
    return static_cast<uint32_t>(zarvWriteExactly(cvelTlvSize(set.length()), *out, [&set](CvelA1Writer& w) {
      w.header(kTagSet, set.length());
      w.bytes(set);
    }));
  });
}

uint32_t ZARV_SetP1Signature(SignerInfoRecord* h, const std::string& signatureOid,
                             const std::vector<unsigned char>& signature) {
  if (!usable(h)) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    if (signature.size() >= CvelString::kViewCapacity - 1) return ZARV_E_BAD_PARAMETER;
    // No parameters here, unlike the digest algorithms.
    CvelString signatureAlgorithm;
    uint32_t r = algorithm(signatureOid, false, h->room, signatureAlgorithm);
    if (r != ZARV_OK) return r;
    CvelString value;
    r = copySignature(signature, h->room, value);
    if (r != ZARV_OK) return r;
    h->signer.signatureAlgorithm().moveFrom(signatureAlgorithm);
    h->signer.signatureValue().moveFrom(value);
    return ZARV_OK;
  });
}

uint32_t ZARV_EncodeSignerInfo(SignerInfoRecord* h, std::vector<unsigned char>* out) {
  if (!usable(h) || out == nullptr) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    const ZarvAttributeMap* map = h->unsignedAttributes.get();
    if (map != nullptr && !map->empty()) {
      CvelString attributes;
      // Unsigned attributes are not covered by the signature and keep the dotted-type order.
      uint32_t r = zarvBuildAttributes(*map, ZarvAttributeOrder::kDottedType, h->room, attributes);
      if (r != ZARV_OK) return r;
      h->signer.unsignedAttributes().moveFrom(attributes);
    }
    h->signer.setAttributeFlag(1);
    // Written straight into a vector of the final size, the one handed to the host: the same checks as
    // encoding into a string first, and out is left alone when they fail.
    return static_cast<uint32_t>(h->signer.encode(*out));
  });
}

uint32_t ZARV_ReleaseSignerInfo(SignerInfoRecord* h) {
  if (h == nullptr) return ZARV_E_BAD_PARAMETER;
  delete h;
  return ZARV_OK;
}
