#include "asn1/cvel_a1_der_writer.h"

#include <new>

void CvelDerWriter::spill() {
  if (failed_) return;
  try {
    spilled_.push_back(0);
  } catch (const std::bad_alloc&) {
    failed_ = true;
  }
}
