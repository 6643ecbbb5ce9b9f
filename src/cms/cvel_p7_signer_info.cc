#include "cms/cvel_p7_signer_info.h"

#include <vector>

#include "asn1/cvel_a1_node.h"
#include "asn1/cvel_der.h"

CvelResult CvelP7SignerInfo::encode(CvelString& out) const {
  // The version object stays as it is: encode a value copy of it.
  CvelA1Integer version;
  if (version_.bytes().isEmpty())
    version.setValue(version_.value());
  else
    version.setBytes(version_.bytes().data(), version_.bytes().length());
  CvelString versionDer;
  CvelResult r = version.encode(versionDer);
  if (r != kCvelOk) return r;

  std::vector<CvelA1Node> fields;
  fields.push_back(CvelA1Node::raw(versionDer));
  fields.push_back(CvelA1Node::raw(signerIdentifier_));
  fields.push_back(CvelA1Node::raw(digestAlgorithm_));
  if (!signedAttributes_.isEmpty()) fields.push_back(CvelA1Node::primitive(kTagContext0, signedAttributes_));
  fields.push_back(CvelA1Node::raw(signatureAlgorithm_));
  fields.push_back(CvelA1Node::primitive(kTagOctetString, signatureValue_));
  if (!unsignedAttributes_.isEmpty()) fields.push_back(CvelA1Node::primitive(kTagContext1, unsignedAttributes_));
  return CvelA1Node::constructed(kTagSequence, std::move(fields)).encode(out);
}
