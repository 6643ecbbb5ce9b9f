// CRLs and revocation values: any input as a CRL, as RevocationValues, and as the one CRL and the one basic
// OCSP response of a RevocationValues built around it (so that mutations of a bare CRL or response reach the
// lists). Every result is one of the library's codes. Property: RevocationValues that decode, encoded as the
// complete attribute, decode again from inside the attribute to lists of the same sizes, which encode to the
// same bytes.
#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_der.h"
#include "x509/cvel_crl.h"
#include "fuzz_input.h"

// Real CRLs run to megabytes (the damage replays hand it one of 1.2 MB); the fuzzer's own inputs stay small.
constexpr size_t kFuzzMaxCrl = 0x200000;
constexpr uint8_t kCrlValues = 0xA0;
constexpr uint8_t kOcspValues = 0xA1;

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

static void roundTrip(const CvelString& der) {
  CvelString attribute, value, reencoded;
  CvelEtsRevocationValues values, again;
  const CvelResult result = values.decode(der);
  fuzzCheck(fuzzDocumented(result));
  if (result != kCvelOk) return;
  constexpr auto kMode = CvelEtsRevocationValues::kModeAttribute;
  fuzzCheck(values.encode(attribute, kMode) == kCvelOk && valueInsideAttribute(attribute, value));
  fuzzCheck(again.decode(value) == kCvelOk && sameSizes(values, again) && again.encode(reencoded, kMode) == kCvelOk &&
            reencoded.equals(attribute));
}

// SEQUENCE { [tag] SEQUENCE { der } }.
static void asOnlyMember(const CvelString& der, uint8_t tag) {
  CvelString list, field, values;
  if (wrap(der, kTagSequence, list) == kCvelOk && wrap(list, tag, field) == kCvelOk &&
      wrap(field, kTagSequence, values) == kCvelOk) {
    roundTrip(values);
  }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString der;
  if (!fuzzView(data, size, der, kFuzzMaxCrl)) return 0;
  CvelCRL crl;
  fuzzCheck(fuzzDocumented(crl.parse(der.data(), der.length())));
  roundTrip(der);
  asOnlyMember(der, kCrlValues);
  if (size <= kFuzzMaxInput) asOnlyMember(der, kOcspValues);  // a large input can only be a real CRL
  return 0;
}
