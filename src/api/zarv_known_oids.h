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

// The signer's own attribute types (RFC 5652 11.1-11.3, RFC 5035 5.4), rows of the table.
inline constexpr ZarvKnownOid kZarvContentType{"1.2.840.113549.1.9.3",
                                               "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x03"};
inline constexpr ZarvKnownOid kZarvMessageDigest{"1.2.840.113549.1.9.4",
                                                 "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x04"};
inline constexpr ZarvKnownOid kZarvSigningTime{"1.2.840.113549.1.9.5",
                                               "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x05"};
inline constexpr ZarvKnownOid kZarvSigningCertificateV2{
    "1.2.840.113549.1.9.16.2.47", "\x06\x0B\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x02\x2F"};

// Every row, for the tests that hold them against the converter.
std::span<const ZarvKnownOid> zarvKnownOids();

// The element of a text the table holds, compared whole (a text with a NUL inside never matches), or an
// empty view for any other text.
std::string_view zarvKnownOidElement(std::string_view dotted);

#endif  // KOLVARI_API_ZARV_KNOWN_OIDS_H
