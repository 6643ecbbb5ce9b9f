// Object identifiers held as DER, the dotted-text converter, and the registry that maps known identifiers to
// the small numbers ("kinds") by which the library switches on algorithms, name attributes and extensions.
#ifndef KOLVARI_ASN1_CVEL_OID_H
#define KOLVARI_ASN1_CVEL_OID_H

#include <cstdint>
#include <string>

#include "asn1/cvel_managed_array.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"

// One identifier: its whole DER element, tag 0x06 included.
class CvelOID : public CvelString {};

// Registry kinds used by name, so that callers do not scatter numbers.
enum CvelOidKind : int32_t {
  kOidUnknown = -1,
  kOidCommonName = 1001,
  kOidSerialNumberAttribute = 1004,
  kOidCountryName = 1013,
  kOidEmailAddress = 1017,
  kOidDateOfCertGeneration = 1027,
  kOidAttributeCertificate = 1041,
  kOidRsaEncryption = 1450,
  kOidSha256 = 1216,
  kOidSubjectKeyIdentifier = 2014,
  kOidKeyUsage = 2015,
  kOidSubjectAltName = 2017,
  kOidBasicConstraints = 2019,
  kOidCertificatePolicies = 2032,
  kOidAuthorityKeyIdentifier = 2035,
  kOidExtKeyUsage = 2037,
  kOidQcStatements = 3903,
  kOidQcCompliance = 6001,
  kOidSignatureTimeStampToken = 7001,
  kOidContentType = 7002,
  kOidData = 7003,
  kOidSignedData = 7004,
  kOidSigningTime = 7100,
  kOidMessageDigest = 7101,
  kOidRevocationValues = 7102,
  kOidPrivateArc = 10001,
};

// Number of identifiers the registry holds.
inline constexpr uint32_t kOidRegistrySize = 149;

// Dotted text to DER: with withTag 1 the whole element, otherwise the content octets. Result kCvelOk, or 0
// when no octet was produced (empty text, a single arc); out is then unchanged. Inside a number a 7-bit group
// of value zero is not written, so 128 gives the single octet 0x81: hosts rely on this exact conversion.
// The first arc is kept in process-wide state: the converter must not run on two threads at once.
CvelResult fromDotted(const char* text, CvelString& out, int withTag);
// fromDotted with withTag 1, except that for a text the registry converted ahead out becomes a view of the
// element the registry keeps for the life of the process: the identifiers every signer names then cost no
// block of their own. Same results and the same first-arc state as fromDotted; other texts are converted
// into an owned string.
CvelResult fromDottedElement(const char* text, CvelString& out);

// The registry kind of a DER OBJECT IDENTIFIER element; -1 when unknown or not an identifier, 0 for an
// empty string.
int32_t kindOf(const CvelString& der);
int32_t kindOf(const void* der, uint32_t n);

// DER element (or bare content octets, when the first byte is not 0x06) to dotted text, for display.
// False when the octets are not a well-formed identifier; text then holds what could be read.
bool toDotted(const CvelString& der, std::string& text);
bool toDotted(const void* der, uint32_t n, std::string& text);

// The dotted text of a registry kind; null for a kind the registry does not hold.
const char* dottedOfKind(int32_t kind);

class CvelOIDs : public CvelManagedArray<CvelOID>, public CvelNonCopyObject {
 public:
  using CvelManagedArray<CvelOID>::add;

  // Index of an identifier equal to the dotted text, or -1.
  int32_t indexOf(const char* text) const;
  // Adds the identifier of the dotted text: kCvelOk, 0 when already present, kCvelErrBadParameter for null
  // text, kCvelErrMalformed when the text does not convert.
  CvelResult add(const char* text);
  // Adds a copy of a DER element: kCvelOk, or 0 when an equal element is present.
  CvelResult addDer(const CvelString& der);
};

#endif  // KOLVARI_ASN1_CVEL_OID_H
