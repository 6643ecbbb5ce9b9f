#include "api/zarv_known_oids.h"

#include <iterator>

namespace {

using namespace std::string_view_literals;

// Element octets derived by hand from X.690 8.19: 06, the length, the first two arcs as 40 * X + Y, then
// each arc in base 128 with the high bit set on all but its last octet.
// The algorithms first, the commonest at the top: a host names one on every digest and signature.
constexpr ZarvKnownOid kKnownOids[] = {
    {"2.16.840.1.101.3.4.2.1"sv, "\x06\x09\x60\x86\x48\x01\x65\x03\x04\x02\x01"sv},  // sha256
    {"1.2.840.10045.4.3.2"sv, "\x06\x08\x2A\x86\x48\xCE\x3D\x04\x03\x02"sv},         // ecdsa-with-SHA256
    {"1.2.840.113549.1.1.11"sv, "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x01\x0B"sv},   // sha256WithRSA
    {"1.2.840.113549.1.1.1"sv, "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x01\x01"sv},    // rsaEncryption
    {"2.16.840.1.101.3.4.2.2"sv, "\x06\x09\x60\x86\x48\x01\x65\x03\x04\x02\x02"sv},  // sha384
    {"2.16.840.1.101.3.4.2.3"sv, "\x06\x09\x60\x86\x48\x01\x65\x03\x04\x02\x03"sv},  // sha512
    {"1.2.840.10045.4.3.3"sv, "\x06\x08\x2A\x86\x48\xCE\x3D\x04\x03\x03"sv},         // ecdsa-with-SHA384
    {"1.2.840.10045.4.3.4"sv, "\x06\x08\x2A\x86\x48\xCE\x3D\x04\x03\x04"sv},         // ecdsa-with-SHA512
    {"1.2.840.113549.1.1.10"sv, "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x01\x0A"sv},   // RSASSA-PSS
    {"1.2.840.113549.1.1.12"sv, "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x01\x0C"sv},   // sha384WithRSA
    {"1.2.840.113549.1.1.13"sv, "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x01\x0D"sv},   // sha512WithRSA
    {"1.3.14.3.2.26"sv, "\x06\x05\x2B\x0E\x03\x02\x1A"sv},                              // sha1
    {"1.2.840.113549.1.9.3"sv, "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x03"sv},  // contentType
    {"1.2.840.113549.1.9.4"sv, "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x04"sv},  // messageDigest
    {"1.2.840.113549.1.9.5"sv, "\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x09\x05"sv},  // signingTime
    {"1.2.840.113549.1.9.16.2.47"sv, "\x06\x0B\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x02\x2F"sv},  // signingCertificateV2
};

// The rows of the signer's own types, counted from the end of the table.
constexpr size_t kSignerTypeRows = 4;
constexpr size_t kFirstSignerTypeRow = std::size(kKnownOids) - kSignerTypeRows;

}  // namespace

const ZarvKnownOid& kZarvContentType = kKnownOids[kFirstSignerTypeRow];
const ZarvKnownOid& kZarvMessageDigest = kKnownOids[kFirstSignerTypeRow + 1];
const ZarvKnownOid& kZarvSigningTime = kKnownOids[kFirstSignerTypeRow + 2];
const ZarvKnownOid& kZarvSigningCertificateV2 = kKnownOids[kFirstSignerTypeRow + 3];

std::span<const ZarvKnownOid> zarvKnownOids() { return kKnownOids; }

std::string_view zarvKnownOidElement(std::string_view dotted) {
  // Rows of one length differ in their last arc: the octets are compared only when the length and the last
  // character match.
  if (dotted.empty()) return {};
  for (const ZarvKnownOid& known : kKnownOids) {
    if (known.dotted.size() == dotted.size() && known.dotted.back() == dotted.back() && known.dotted == dotted) {
      return known.element;
    }
  }
  return {};
}
