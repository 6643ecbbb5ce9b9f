// OCSP responses: any input, as a complete OCSPResponse or a bare BasicOCSPResponse. Property: a response
// that parses and carries a basic response reads the same when its basic response alone is parsed again.
#include "x509/cvel_ocsp_response.h"
#include "fuzz_input.h"

static bool sameFirstResponse(const CvelOCSPResponse& a, const CvelOCSPResponse& b) {
  return a.tbsResponseData().equals(b.tbsResponseData()) && a.producedAt().equals(b.producedAt()) &&
         a.responderId().equals(b.responderId()) && a.responderByName() == b.responderByName() &&
         a.certId().equals(b.certId()) && a.certStatusTag() == b.certStatusTag() &&
         a.thisUpdate().equals(b.thisUpdate()) && a.revocationReason() == b.revocationReason() &&
         a.certificates().size() == b.certificates().size() &&
         a.responseExtensions().size() == b.responseExtensions().size() &&
         a.singleExtensions().size() == b.singleExtensions().size();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString der;
  if (!fuzzView(data, size, der)) return 0;
  CvelOCSPResponse response, basic;
  const CvelResult result = response.parse(der.data(), der.length());
  fuzzCheck(fuzzDocumented(result));
  if (result != kCvelOk || response.basicResponse().isEmpty()) return 0;
  const CvelString& inner = response.basicResponse();
  fuzzCheck(basic.parse(inner.data(), inner.length()) == kCvelOk && sameFirstResponse(response, basic));
  return 0;
}
