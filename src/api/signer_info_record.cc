#include "api/signer_info_record.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_oid.h"

namespace {
constexpr uint32_t kReplace = 1;

// X.690 11.6: SET OF components compare as octet strings, the shorter one padded with zero octets at its end.
bool derSetOfLess(const CvelString& a, const CvelString& b) {
  const uint32_t common = std::min(a.length(), b.length());
  for (uint32_t i = 0; i < common; ++i) {
    if (a.data()[i] != b.data()[i]) return a.data()[i] < b.data()[i];
  }
  // Past the common part only a non-zero octet of the longer one can make the difference.
  const CvelString& longer = a.length() > b.length() ? a : b;
  for (uint32_t i = common; i < longer.length(); ++i) {
    if (longer.data()[i] != 0) return &longer == &b;
  }
  return false;
}

// One Attribute: SEQUENCE { type OID, SET { value } }, the value already DER.
struct AttributeParts {
  const CvelString* type;
  const ZarvBytes* value;

  uint64_t content() const { return type->length() + cvelTlvSize(value->size()); }
  uint64_t size() const { return cvelTlvSize(content()); }
  void write(CvelA1Writer& w) const {
    w.header(kTagSequence, content());
    w.bytes(*type);
    w.header(kTagSet, value->size());
    if (!value->empty()) w.bytes(value->data(), value->size());
  }
};

// The Attributes one after the other, in the order given, written once into a block of their total size.
uint32_t writeAll(const std::vector<AttributeParts>& attributes, CvelString& out) {
  uint64_t total = 0;
  for (const AttributeParts& a : attributes) total += a.size();
  return cvelWriteExactly(total, out, [&attributes](CvelA1Writer& w) {
    for (const AttributeParts& a : attributes) a.write(w);
  });
}

// The Attributes in DER order: each one is encoded on its own, then they are sorted by their encodings.
uint32_t writeInDerOrder(const std::vector<AttributeParts>& attributes, CvelString& out) {
  std::vector<CvelString> encodings(attributes.size());
  for (size_t i = 0; i < attributes.size(); ++i) {
    uint32_t r = writeAll({attributes[i]}, encodings[i]);
    if (r != kCvelOk) return r;
  }
  std::vector<const CvelString*> sorted;
  sorted.reserve(encodings.size());
  for (const CvelString& encoding : encodings) sorted.push_back(&encoding);
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const CvelString* a, const CvelString* b) { return derSetOfLess(*a, *b); });
  uint64_t total = 0;
  for (const CvelString* encoding : sorted) total += encoding->length();
  return cvelWriteExactly(total, out, [&sorted](CvelA1Writer& w) {
    for (const CvelString* encoding : sorted) w.bytes(*encoding);
  });
}
}  // namespace

uint32_t zarvAddAttribute(SignerInfoRecord& record, ZarvAttributeKind kind, const std::string& oid,
                          const unsigned char* value, size_t length, uint32_t replace) {
  ZarvAttributeMap* map = record.table(kind);
  if (map == nullptr) return ZARV_E_NO_ATTRIBUTE_TABLE;
  if (replace == kReplace && !map->empty()) map->erase(oid);
  map->valuesOf(oid).emplace_back(value, value + length);
  return ZARV_OK;
}

ZarvAttributeOrder zarvSignedAttributeOrder() {
  const char* value = std::getenv(kZarvDerOrderVariable);
  if (value != nullptr && std::strcmp(value, kZarvDerOrderOn) == 0) return ZarvAttributeOrder::kDer;
  return ZarvAttributeOrder::kDottedType;
}

uint32_t zarvBuildAttributes(const ZarvAttributeMap& map, ZarvAttributeOrder order, CvelString& out) {
  // Each type is converted once; the parts borrow these strings and the map's values until the set is written.
  std::vector<CvelString> types(map.size());
  std::vector<AttributeParts> attributes;
  size_t index = 0;
  for (const auto& [oid, values] : map) {
    CvelString& type = types[index++];
    uint32_t r = fromDotted(oid.c_str(), type, 1);
    if (r != ZARV_OK) return r;
    for (const ZarvBytes& value : values) attributes.push_back({&type, &value});
  }
  if (order == ZarvAttributeOrder::kDer) return writeInDerOrder(attributes, out);
  return writeAll(attributes, out);
}

// Both builders below write a fixed shape around pieces of the certificate: sizes first, one allocation, one
// pass of the writer, without a tree of pieces in between.

uint32_t zarvBuildSignerIdentifier(const CvelCertificate& certificate, CvelString& signerIdentifier) {
  // IssuerAndSerialNumber has the same bytes as the certificate's own issuer-and-serial pair.
  return certificate.getIssuerSerial(signerIdentifier);
}

// SigningCertificateV2 ::= SEQUENCE { certs SEQUENCE OF ESSCertIDv2 }, one ESSCertIDv2 ::= SEQUENCE {
//   hashAlgorithm SEQUENCE { OID, NULL }, certHash OCTET STRING,
//   issuerSerial SEQUENCE { issuer SEQUENCE { [4] { Name } }, serialNumber } }.
uint32_t zarvBuildSigningCertificateV2(const CvelCertificate& certificate, const ZarvBytes& certificateHash,
                                       const CvelString& hashOid, CvelString& value) {
  const CvelString& issuer = certificate.issuer();
  const CvelString& serial = certificate.serialNumber();

  // The NULL parameters are always written, whatever the hash algorithm.
  const uint64_t hashAlgorithmContent = static_cast<uint64_t>(hashOid.length()) + sizeof kDerNull;
  const uint64_t directoryNameContent = issuer.length();
  const uint64_t generalNamesContent = cvelTlvSize(directoryNameContent);
  const uint64_t issuerSerialContent = cvelTlvSize(generalNamesContent) + serial.length();
  const uint64_t certIdContent =
      cvelTlvSize(hashAlgorithmContent) + cvelTlvSize(certificateHash.size()) + cvelTlvSize(issuerSerialContent);
  const uint64_t certsContent = cvelTlvSize(certIdContent);
  const uint64_t valueContent = cvelTlvSize(certsContent);
  const uint64_t total = cvelTlvSize(valueContent);
  return cvelWriteExactly(total, value, [&](CvelA1Writer& w) {
    w.header(kTagSequence, valueContent);
    w.header(kTagSequence, certsContent);
    w.header(kTagSequence, certIdContent);
    w.header(kTagSequence, hashAlgorithmContent);
    w.bytes(hashOid);
    w.bytes(kDerNull, sizeof kDerNull);
    w.header(kTagOctetString, certificateHash.size());
    if (!certificateHash.empty()) w.bytes(certificateHash.data(), certificateHash.size());
    w.header(kTagSequence, issuerSerialContent);
    w.header(kTagSequence, generalNamesContent);
    w.header(kTagContext4, directoryNameContent);
    w.bytes(issuer);
    w.bytes(serial);
  });
}
