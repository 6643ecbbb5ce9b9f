// CvelManagedArray<T>: an ordered list that owns its elements. Every plural class of the library derives
// from it.
#ifndef KOLVARI_ASN1_CVEL_MANAGED_ARRAY_H
#define KOLVARI_ASN1_CVEL_MANAGED_ARRAY_H

#include <cstdint>
#include <cstdlib>
#include <new>

#include "asn1/cvel_result.h"

template <typename T>
class CvelManagedArray {
 public:
  CvelManagedArray() = default;
  CvelManagedArray(const CvelManagedArray&) = delete;
  CvelManagedArray& operator=(const CvelManagedArray&) = delete;
  virtual ~CvelManagedArray() {
    clear();
    std::free(slots_);
  }

  // Takes ownership of object and appends it. When the slot cannot be obtained the object is destroyed and
  // std::bad_alloc is thrown, as the array's owner cannot keep it.
  virtual CvelResult add(T* object) {
    if (count_ == capacity_ && !grow()) {
      delete object;
      throw std::bad_alloc();
    }
    slots_[count_++] = object;
    return kCvelOk;
  }

  // Lends the element at index; the array keeps ownership.
  virtual CvelResult get(uint32_t index, T*& out) const {
    if (index >= count_) return kCvelErrBadParameter;
    out = slots_[index];
    return kCvelOk;
  }

  uint32_t size() const { return count_; }

  // Destroys every element from the first on; the capacity is kept.
  void clear() {
    for (uint32_t i = 0; i < count_; ++i) delete slots_[i];
    count_ = 0;
  }

  // Takes the last element out of the list and destroys it.
  CvelResult removeLast() {
    if (count_ == 0) return kCvelErrBadParameter;
    delete slots_[--count_];
    return kCvelOk;
  }

 private:
  // Lists are mostly short (the attributes of a name, the extensions of a certificate): the first block
  // holds several slots, so that most lists never grow again.
  static constexpr uint32_t kFirstCapacity = 8;

  bool grow() {
    uint32_t wanted = capacity_ == 0 ? kFirstCapacity : capacity_ * 2;
    if (wanted <= capacity_) return false;
    void* block = std::realloc(slots_, sizeof(T*) * static_cast<size_t>(wanted));
    if (block == nullptr) return false;
    slots_ = static_cast<T**>(block);
    capacity_ = wanted;
    return true;
  }

  T** slots_ = nullptr;
  uint32_t count_ = 0;
  uint32_t capacity_ = 0;
};

#endif  // KOLVARI_ASN1_CVEL_MANAGED_ARRAY_H
