// The archive-time-stamp-v3 of CAdES (ETSI EN 319 122-1, 5.5): the ats-hash-index-v3 that the time-stamp
// token's signer carries, and the input whose hash is the token's message imprint. `kolvari extend` makes
// both; `kolvari verify` computes the input again from the decoded fields and the token's own index.
#ifndef KOLVARI_TOOLS_SIGNING_ARCHIVE_TIMESTAMP_H
#define KOLVARI_TOOLS_SIGNING_ARCHIVE_TIMESTAMP_H

#include <string>
#include <vector>

#include <openssl/evp.h>

#include "asn1/cvel_string.h"

class CvelP7SignerInfo;

using Bytes = std::vector<unsigned char>;

// id-aa-ets-archiveTimestampV3 (an unsigned attribute of the signer) and id-aa-ATSHashIndex-v3 (an unsigned
// attribute of the time-stamp token's signer).
inline constexpr char kOidArchiveTimeStampV3[] = "0.4.0.1733.2.4";
inline constexpr char kOidAtsHashIndexV3[] = "0.4.0.19122.1.5";

// ATSHashIndexV3 ::= SEQUENCE { hashIndAlgorithm AlgorithmIdentifier DEFAULT {algorithm id-sha256},
//   certificatesHashIndex SEQUENCE OF OCTET STRING, crlsHashIndex SEQUENCE OF OCTET STRING,
//   unsignedAttrsHashIndex SEQUENCE OF OCTET STRING }
// The hashes of each element of the SignedData's certificates and crls, and of each unsigned attribute value
// joined to its attribute's type (attrType || one AttributeValue), in their order. unsignedAttributes is the
// run of Attribute encodings inside the [1] of the SignerInfo.
bool atsHashIndex(const EVP_MD* md, const std::vector<Bytes>& certificates, const std::vector<Bytes>& crls,
                  const CvelString& unsignedAttributes, Bytes& out);

// The input of the message imprint: eContentType (the whole OBJECT IDENTIFIER element), the hash of the
// signed content, the signer's fields version, sid, digestAlgorithm, signedAttrs, signatureAlgorithm and
// signature as the SignerInfo encodes them, and the ATSHashIndexV3 element.
bool archiveImprintInput(const CvelString& contentType, const Bytes& contentHash, const CvelP7SignerInfo& signer,
                         const Bytes& hashIndex, Bytes& out);

// Whether every hash of an ATSHashIndexV3 names an element it may name: a certificate or a CRL of the
// SignedData, an unsigned attribute value of the signer with its type (each list its own). Elements added
// after the archive time-stamp are not in the index and are not missed. False with the reason.
bool hashIndexMatches(const CvelString& hashIndex, const std::vector<Bytes>& certificates,
                      const std::vector<Bytes>& crls, const CvelString& unsignedAttributes, std::string& reason);

// The values (whole elements) of every attribute of type oid in a run of Attribute encodings; false when the
// run does not decode.
bool attributeValues(const CvelString& attributes, const char* oid, std::vector<CvelString>& out);

// Appends Attribute ::= SEQUENCE { attrType, attrValues SET { value } } to a run of Attribute encodings.
bool appendAttribute(CvelString& attributes, const char* oid, const Bytes& value);

#endif  // KOLVARI_TOOLS_SIGNING_ARCHIVE_TIMESTAMP_H
