// Keeps exceptions from crossing the exported interface: a call that throws reports a result code instead.
#ifndef KOLVARI_API_ZARV_GUARD_H
#define KOLVARI_API_ZARV_GUARD_H

#include <cstdint>
#include <new>

#include "kolvari/zarv.h"

template <typename Body>
uint32_t zarvGuarded(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ZARV_E_OUT_OF_MEMORY;
  } catch (...) {
    return ZARV_E_NOT_STORED;
  }
}

#endif  // KOLVARI_API_ZARV_GUARD_H
