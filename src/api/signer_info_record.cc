#include "api/signer_info_record.h"

#include <vector>

#include "asn1/cvel_a1_node.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_oid.h"

namespace {
constexpr uint32_t kReplace = 1;
}

uint32_t zarvAddAttribute(SignerInfoRecord& record, ZarvAttributeKind kind, const std::string& oid,
                          const unsigned char* value, size_t length, uint32_t replace) {
  ZarvAttributeMap* map = record.table(kind);
  if (map == nullptr) return ZARV_E_NO_ATTRIBUTE_TABLE;
  if (replace == kReplace && !map->empty()) map->erase(oid);
  (*map)[oid].emplace_back(value, value + length);
  return ZARV_OK;
}

uint32_t zarvBuildAttributes(const ZarvAttributeMap& map, CvelString& out) {
  // Each type is converted once; the nodes borrow these strings until the build is written.
  std::vector<CvelString> types(map.size());
  std::vector<CvelA1Node> attributes;
  size_t index = 0;
  for (const auto& [oid, values] : map) {
    CvelString& type = types[index++];
    uint32_t r = fromDotted(oid.c_str(), type, 1);
    if (r != ZARV_OK) return r;
    for (const ZarvBytes& value : values) {
      attributes.push_back(CvelA1Node::constructed(
          kTagSequence,
          {CvelA1Node::raw(type), CvelA1Node::constructed(kTagSet, {CvelA1Node::raw(value.data(), value.size())})}));
    }
  }
  return CvelA1Node::sequenceOf(std::move(attributes)).encode(out);
}

uint32_t zarvBuildSignerIdentifier(const CvelCertificate& certificate, CvelString& signerIdentifier) {
  return CvelA1Node::constructed(kTagSequence,
                                 {CvelA1Node::raw(certificate.issuer()), CvelA1Node::raw(certificate.serialNumber())})
      .encode(signerIdentifier);
}

uint32_t zarvBuildSigningCertificateV2(const CvelCertificate& certificate, const ZarvBytes& certificateHash,
                                       const CvelString& hashOid, CvelString& value) {
  const CvelString& issuer = certificate.issuer();
  const CvelString& serial = certificate.serialNumber();

  CvelA1Node generalNames =
      CvelA1Node::constructed(kTagSequence, {CvelA1Node::constructed(kTagContext4, {CvelA1Node::raw(issuer)})});
  CvelA1Node issuerSerial = CvelA1Node::constructed(kTagSequence, {generalNames, CvelA1Node::raw(serial)});
  // The NULL parameters are always written, whatever the hash algorithm.
  CvelA1Node hashAlgorithm =
      CvelA1Node::constructed(kTagSequence, {CvelA1Node::raw(hashOid), CvelA1Node::raw(kDerNull, sizeof kDerNull)});
  CvelA1Node certId = CvelA1Node::constructed(
      kTagSequence,
      {hashAlgorithm, CvelA1Node::primitive(kTagOctetString, certificateHash.data(), certificateHash.size()),
       issuerSerial});
  return CvelA1Node::constructed(kTagSequence, {CvelA1Node::constructed(kTagSequence, {certId})}).encode(value);
}
