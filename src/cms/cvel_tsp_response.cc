#include "cms/cvel_tsp_response.h"

CvelResult CvelTSPResponses::indexOf(const CvelTSPResponse* element, uint32_t* index) const {
  if (element == nullptr || index == nullptr || size() == 0) return kCvelErrBadParameter;
  const CvelString& wanted = element->token().encoded();
  for (uint32_t i = 0; i < size(); ++i) {
    CvelTSPResponse* response = nullptr;
    if (get(i, response) != kCvelOk || response == nullptr) return kCvelErrMalformed;
    if (response->token().encoded().equals(wanted)) {
      *index = i;
      return kCvelOk;
    }
  }
  return kCvelErrBadParameter;
}
