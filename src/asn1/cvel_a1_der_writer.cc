#include "asn1/cvel_a1_der_writer.h"

#include <new>

size_t CvelDerWriter::open() {
  const size_t slot = lengthCount_++;
  if (slot < kHeldLengths || failed_) return slot;
  try {
    spilled_.push_back(0);
  } catch (const std::bad_alloc&) {
    failed_ = true;
  }
  return slot;
}

void CvelDerWriter::close(size_t slot, uint64_t contentLength) {
  if (slot < kHeldLengths) {
    held_[slot] = contentLength;
  } else if (slot - kHeldLengths < spilled_.size()) {
    spilled_[slot - kHeldLengths] = contentLength;
  }
  counted_ += 1 + cvelLengthOfLength(contentLength);
}

uint64_t CvelDerWriter::nextLength() {
  if (next_ >= lengthCount_) {
    failed_ = true;
    return 0;
  }
  const size_t slot = next_++;
  return slot < kHeldLengths ? held_[slot] : spilled_[slot - kHeldLengths];
}
