// CRLs and revocation values. Property: RevocationValues that decode, encoded as the complete attribute,
// decode again from inside the attribute to lists of the same sizes, which encode to the same bytes.
#include "asn1/cvel_der.h"
#include "x509/cvel_crl.h"
#include "fuzz_input.h"

// The RevocationValues element inside Attribute { OID, SET { RevocationValues } }.
static bool valueInsideAttribute(const CvelString& attribute, CvelString& value) {
  CvelA1Context c;
  return c.next(attribute) == kTagSequence && c.descend(attribute) == kTagOid && c.next(attribute) == kTagSet &&
         c.descend(attribute) == kTagSequence &&
         value.setView(attribute, c.elementOffset(), c.elementLength()) == kCvelOk;
}

static bool sameSizes(const CvelEtsRevocationValues& a, const CvelEtsRevocationValues& b) {
  return a.crlValues().size() == b.crlValues().size() && a.ocspValues().size() == b.ocspValues().size() &&
         a.otherValues().size() == b.otherValues().size();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString der, attribute, value, reencoded;
  if (!fuzzView(data, size, der)) return 0;
  CvelCRL crl;
  static_cast<void>(crl.parse(der.data(), der.length()));
  CvelEtsRevocationValues values, again;
  if (values.decode(der) != kCvelOk) return 0;
  constexpr auto kMode = CvelEtsRevocationValues::kModeAttribute;
  fuzzCheck(values.encode(attribute, kMode) == kCvelOk && valueInsideAttribute(attribute, value));
  fuzzCheck(again.decode(value) == kCvelOk && sameSizes(values, again) && again.encode(reencoded, kMode) == kCvelOk &&
            reencoded.equals(attribute));
  return 0;
}
