// CRLs and revocation values. Property: RevocationValues that decode, encoded as the complete attribute,
// decode again from inside the attribute to lists of the same sizes, which encode to the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "asn1/cvel_der.h"
#include "x509/cvel_crl.h"
#include "fuzz_input.h"

namespace {

// The RevocationValues element inside Attribute { OID, SET { RevocationValues } }.
bool valueInsideAttribute(const CvelString& attribute, CvelString& value) {
  CvelA1Context c;
  if (c.next(attribute) != kTagSequence || c.descend(attribute) != kTagOid) return false;
  if (c.next(attribute) != kTagSet || c.descend(attribute) != kTagSequence) return false;
  return value.setView(attribute, c.elementOffset(), c.elementLength()) == kCvelOk;
}

bool sameSizes(const CvelEtsRevocationValues& a, const CvelEtsRevocationValues& b) {
  return a.crlValues().size() == b.crlValues().size() && a.ocspValues().size() == b.ocspValues().size() &&
         a.otherValues().size() == b.otherValues().size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString der;
  if (!fuzzView(data, size, der)) return 0;
  CvelCRL crl;
  crl.parse(der.data(), der.length());

  CvelEtsRevocationValues values;
  if (values.decode(der) != kCvelOk) return 0;
  CvelString attribute;
  CvelString value;
  if (values.encode(attribute, CvelEtsRevocationValues::kModeAttribute) != kCvelOk ||
      !valueInsideAttribute(attribute, value)) {
    std::abort();
  }
  CvelEtsRevocationValues again;
  CvelString reencoded;
  if (again.decode(value) != kCvelOk || !sameSizes(values, again) ||
      again.encode(reencoded, CvelEtsRevocationValues::kModeAttribute) != kCvelOk || !reencoded.equals(attribute)) {
    std::abort();
  }
  return 0;
}
