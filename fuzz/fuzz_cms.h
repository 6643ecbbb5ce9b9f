// Comparisons shared by the CMS fuzz targets: two objects read from different encodings hold the same fields.
#ifndef KOLVARI_FUZZ_FUZZ_CMS_H
#define KOLVARI_FUZZ_FUZZ_CMS_H

#include <cstdint>

#include "cms/cvel_p7_signer_info.h"
#include "cms/cvel_tsp_response.h"
#include "cms/cvel_tst_info.h"

// INTEGER contents of more than 127 octets are written with a one-octet length by design, so they do not
// read back; objects holding such a version are left out of the round trips.
inline constexpr uint32_t kFuzzMaxHeldInteger = 127;

inline bool fuzzSameTst(const CvelTSTInfo& a, const CvelTSTInfo& b) {
  return a.version() == b.version() && a.policy().equals(b.policy()) && a.messageImprint().equals(b.messageImprint()) &&
         a.serialNumber().equals(b.serialNumber()) && a.genTime().year() == b.genTime().year() &&
         a.genTime().second() == b.genTime().second() && a.accuracyPresent() == b.accuracyPresent() &&
         a.seconds() == b.seconds() && a.millis() == b.millis() && a.micros() == b.micros() &&
         a.ordering() == b.ordering() && a.nonce().equals(b.nonce()) && a.tsa().encoded().equals(b.tsa().encoded()) &&
         a.extensionsContent().equals(b.extensionsContent()) && a.content().equals(b.content());
}

// The same field bytes, and the same time-stamp tokens found in them.
inline bool fuzzSameSignerInfo(const CvelP7SignerInfo& a, const CvelP7SignerInfo& b) {
  if (a.version().value() != b.version().value() || !a.version().bytes().equals(b.version().bytes()) ||
      !a.signerIdentifier().equals(b.signerIdentifier()) || !a.digestAlgorithm().equals(b.digestAlgorithm()) ||
      !a.signedAttributes().equals(b.signedAttributes()) || !a.signatureAlgorithm().equals(b.signatureAlgorithm()) ||
      !a.signatureValue().equals(b.signatureValue()) || !a.unsignedAttributes().equals(b.unsignedAttributes()) ||
      a.digestKind() != b.digestKind() || a.timeStamps().size() != b.timeStamps().size()) {
    return false;
  }
  for (uint32_t i = 0; i < a.timeStamps().size(); ++i) {
    CvelTSPResponse* x = nullptr;
    CvelTSPResponse* y = nullptr;
    if (a.timeStamps().get(i, x) != kCvelOk || b.timeStamps().get(i, y) != kCvelOk ||
        !x->token().encoded().equals(y->token().encoded()) || !fuzzSameTst(x->token(), y->token())) {
      return false;
    }
  }
  return true;
}

#endif  // KOLVARI_FUZZ_FUZZ_CMS_H
