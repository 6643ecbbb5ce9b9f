// The object identifiers a signer names on nearly every call (its own attribute types, the usual digest and
// signature algorithms), held as DER elements: looking one up by its dotted text costs no conversion.
#ifndef KOLVARI_API_ZARV_KNOWN_OIDS_H
#define KOLVARI_API_ZARV_KNOWN_OIDS_H

#include <cstddef>
#include <span>
#include <string_view>

struct ZarvKnownOid {
  std::string_view dotted;
  // The whole element, tag and length included: what fromDottedElement gives for the text.
  std::string_view element;
};

// The signer's own attribute types (RFC 5652 11.1-11.3, RFC 5035 5.4): rows of the table itself, so that
// every known element, whichever way it was looked up, is the table's own octets at one address.
extern const ZarvKnownOid& kZarvContentType;
extern const ZarvKnownOid& kZarvMessageDigest;
extern const ZarvKnownOid& kZarvSigningTime;
extern const ZarvKnownOid& kZarvSigningCertificateV2;

// Every row, for the tests that hold them against the converter.
std::span<const ZarvKnownOid> zarvKnownOids();

// The element of a text the table holds, compared whole (a text with a NUL inside never matches), or an
// empty view for any other text. A text's element is always the same view of the table's octets.
std::string_view zarvKnownOidElement(std::string_view dotted);

#endif  // KOLVARI_API_ZARV_KNOWN_OIDS_H
