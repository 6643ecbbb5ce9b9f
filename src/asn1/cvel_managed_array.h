// CvelManagedArray<T>: an ordered list that owns its elements through small reference-counted holders.
// Every plural class of the library derives from it.
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

  // Takes ownership of object and appends it. When the holder or the slot cannot be obtained the object is
  // destroyed and std::bad_alloc is thrown, as the array's owner cannot keep it.
  virtual CvelResult add(T* object) {
    Holder* holder = new (std::nothrow) Holder{object, 1};
    if (holder == nullptr) {
      delete object;
      throw std::bad_alloc();
    }
    if (count_ == capacity_ && !grow()) {
      dropHolder(holder);
      throw std::bad_alloc();
    }
    slots_[count_++] = holder;
    return kCvelOk;
  }

  // Lends the element at index; the array keeps ownership.
  virtual CvelResult get(uint32_t index, T*& out) const {
    if (index >= count_) return kCvelErrBadParameter;
    out = slots_[index]->object;
    return kCvelOk;
  }

  uint32_t size() const { return count_; }

  // Releases every slot from the first on; the capacity is kept.
  void clear() {
    for (uint32_t i = 0; i < count_; ++i) dropHolder(slots_[i]);
    count_ = 0;
  }

  // Takes the last element out of the list and destroys it (unless another holder reference keeps it).
  CvelResult removeLast() {
    if (count_ == 0) return kCvelErrBadParameter;
    dropHolder(slots_[--count_]);
    return kCvelOk;
  }

 private:
  struct Holder {
    T* object;
    int32_t references;
  };

  static void dropHolder(Holder* holder) {
    if (--holder->references > 0) return;
    delete holder->object;
    delete holder;
  }

  bool grow() {
    uint32_t wanted = capacity_ == 0 ? 1 : capacity_ * 2;
    if (wanted <= capacity_) return false;
    void* block = std::realloc(slots_, sizeof(Holder*) * static_cast<size_t>(wanted));
    if (block == nullptr) return false;
    slots_ = static_cast<Holder**>(block);
    capacity_ = wanted;
    return true;
  }

  Holder** slots_ = nullptr;
  uint32_t count_ = 0;
  uint32_t capacity_ = 0;
};

#endif  // KOLVARI_ASN1_CVEL_MANAGED_ARRAY_H
