// The provider entry points: no state, fixed answers.
#include "api/zarv_guard.h"
#include "kolvari/zarv.h"

uint32_t ZARV_Init() { return ZARV_OK; }

uint32_t ZARV_GetEncoderProviderName(std::string& name) {
  return zarvGuarded([&] {
    name.assign(ZARV_PROVIDER_NAME);
    return ZARV_OK;
  });
}

uint32_t ZARV_GetSupportedEncoderList(std::list<std::string>& encoders) {
  return zarvGuarded([&] {
    encoders.clear();
    encoders.emplace_back(ZARV_ENCODER_PKCS7_2);
    return ZARV_OK;
  });
}
