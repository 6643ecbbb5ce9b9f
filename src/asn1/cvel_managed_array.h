// CvelManagedArray<T>: an ordered list that owns its elements. Every plural class of the library derives
// from it. CvelBlockArray<T>: one that can also make its elements in one block, for lists read in bulk.
#ifndef KOLVARI_ASN1_CVEL_MANAGED_ARRAY_H
#define KOLVARI_ASN1_CVEL_MANAGED_ARRAY_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>

#include "asn1/cvel_result.h"

template <typename T>
class CvelManagedArray {
 public:
  CvelManagedArray() = default;
  CvelManagedArray(const CvelManagedArray&) = delete;
  CvelManagedArray& operator=(const CvelManagedArray&) = delete;
  virtual ~CvelManagedArray() {
    // Most lists of a parsed certificate are never filled: nothing to destroy and no slots to free.
    if (slots_ == nullptr) return;
    clear();
    // A derived list with lent slots has forgotten them in its own destructor.
    std::free(slots_);
  }

  // Takes ownership of object and appends it. When the slot cannot be obtained the object is destroyed and
  // std::bad_alloc is thrown, as the array's owner cannot keep it.
  virtual CvelResult add(T* object) {
    if (count_ == capacity_ && !grow()) {
      if (deletesOne(object)) delete object;
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
    for (uint32_t i = 0; i < count_; ++i) {
      if (deletesOne(slots_[i])) delete slots_[i];
    }
    count_ = 0;
  }

  // Takes the last element out of the list and destroys it.
  CvelResult removeLast() {
    if (count_ == 0) return kCvelErrBadParameter;
    T* last = slots_[--count_];
    if (deletesOne(last)) delete last;
    return kCvelOk;
  }

 protected:
  // Whether the list deletes this element on its own; a derived list that makes elements in a block answers
  // no for those, and empties itself in its own destructor, before this one asks.
  virtual bool deletesOne(const T*) const { return true; }

  // Whether the slots lie in storage a derived list owns (and frees), rather than a block of their own.
  virtual bool slotsLent() const { return false; }
  // Told when the list has moved its slots out of lent storage into a block of its own.
  virtual void slotsReturned() {}

  // Takes `capacity` slots in storage the derived list owns, for an empty list; the slots held so far are
  // freed.
  void lendSlots(T** slots, uint32_t capacity) {
    if (!slotsLent()) std::free(slots_);
    slots_ = slots;
    count_ = 0;
    capacity_ = capacity;
  }
  // Forgets lent slots before their storage goes; the list must be empty.
  void forgetSlots() {
    slots_ = nullptr;
    count_ = 0;
    capacity_ = 0;
  }

 private:
  // Lists are mostly short (the attributes of a name, the extensions of a certificate): the first block
  // holds several slots, so that most lists never grow again.
  static constexpr uint32_t kFirstCapacity = 8;

  bool grow() {
    uint32_t wanted = capacity_ == 0 ? kFirstCapacity : capacity_ * 2;
    if (wanted <= capacity_) return false;
    if (slotsLent()) {
      // Lent slots are never reallocated: they are copied into a block of the list's own.
      T** own = static_cast<T**>(std::malloc(sizeof(T*) * static_cast<size_t>(wanted)));
      if (own == nullptr) return false;
      for (uint32_t i = 0; i < count_; ++i) own[i] = slots_[i];
      slots_ = own;
      capacity_ = wanted;
      slotsReturned();
      return true;
    }
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

// One allocation that several block arrays of one owner take their blocks from, in turn (the names and the
// extensions of a certificate): the owner sizes it for all of them, then hands it to their makeElements. The
// lists must have
// given their blocks back (CvelBlockArray::release, or their end) before the store is emptied, sized again or
// destroyed.
class CvelBlockStore {
 public:
  CvelBlockStore() = default;
  CvelBlockStore(const CvelBlockStore&) = delete;
  CvelBlockStore& operator=(const CvelBlockStore&) = delete;
  ~CvelBlockStore() { ::operator delete(storage_); }

  // A piece of `bytes` rounded up as take() rounds it.
  static size_t pieceBytes(size_t bytes) { return (bytes + kAlign - 1) / kAlign * kAlign; }
  // Empties the store and makes room for `bytes` in all (the sum of pieceBytes of every piece to come); the
  // storage held so far is kept when it is large enough. False when memory is short: takers then allocate.
  bool reserve(size_t bytes) {
    used_ = 0;
    if (bytes <= capacity_) return true;
    ::operator delete(storage_);
    storage_ = bytes > kMaxCapacity ? nullptr : ::operator new(bytes, std::nothrow);
    capacity_ = storage_ == nullptr ? 0 : static_cast<uint32_t>(bytes);
    return storage_ != nullptr;
  }
  // The next `bytes` of the store, aligned for any element; null when they do not fit.
  void* take(size_t bytes) {
    const size_t piece = pieceBytes(bytes);
    if (piece > capacity_ - used_) return nullptr;
    void* at = static_cast<unsigned char*>(storage_) + used_;
    used_ += static_cast<uint32_t>(piece);
    return at;
  }
  // Nothing taken any more; the storage stays for the next fill.
  void empty() { used_ = 0; }

 private:
  static constexpr size_t kAlign = alignof(std::max_align_t);
  // Offsets are 32-bit, so that the store adds little to its owner's size.
  static constexpr size_t kMaxCapacity = 0xFFFFFFF0u;

  void* storage_ = nullptr;
  uint32_t capacity_ = 0;
  uint32_t used_ = 0;
};

template <typename T>
class CvelBlockArray : public CvelManagedArray<T> {
 public:
  CvelBlockArray() = default;
  ~CvelBlockArray() override {
    if (block_ == nullptr && this->size() == 0) return;
    this->clear();
    releaseBlock();
  }

  // n default-constructed elements in one block, with the list's slots for them behind the elements: a list
  // whose length is known before it is filled (the attributes of a parsed name, the extensions of a
  // certificate) then costs one allocation instead of one per element and one for the slots. The list owns
  // the elements, whether or not they are handed to add(), until its next block or its end. Null when n is
  // 0, the list is not empty or memory is short: the caller then makes its elements one by one.
  // The block is taken from store when one is given and has room, else allocated; store must outlive it.
  T* makeElements(uint32_t n, CvelBlockStore* store = nullptr) {
    if (n == 0 || this->size() != 0 || n > kMaxBlock) return nullptr;
    releaseBlock();
    const size_t bytes = blockBytes(n);
    void* storage = store != nullptr ? store->take(bytes) : nullptr;
    blockOwned_ = storage == nullptr;
    // C++ storage, not malloc's: elements outside the block are released with delete in the same functions,
    // and an optimiser that follows a block element into them must see one family of allocation functions.
    if (blockOwned_) storage = ::operator new(bytes, std::nothrow);
    if (storage == nullptr) return nullptr;
    T* block = static_cast<T*>(storage);
    for (uint32_t i = 0; i < n; ++i) new (block + i) T();
    block_ = block;
    blockCount_ = n;
    this->lendSlots(reinterpret_cast<T**>(static_cast<unsigned char*>(storage) + slotsAt(n)), n);
    slotsInBlock_ = true;
    return block;
  }

  // The bytes a block of n elements and their slots takes, for an owner that sizes a CvelBlockStore.
  static size_t blockBytes(uint32_t n) { return slotsAt(n) + sizeof(T*) * static_cast<size_t>(n); }
  // Empties the list and gives its block back.
  void release() {
    this->clear();
    releaseBlock();
  }

 protected:
  bool deletesOne(const T* object) const override {
    std::less<const T*> before;
    return block_ == nullptr || before(object, block_) || !before(object, block_ + blockCount_);
  }
  bool slotsLent() const override { return slotsInBlock_; }
  void slotsReturned() override { slotsInBlock_ = false; }

 private:
  static constexpr uint32_t kMaxBlock = 0x10000000u / (sizeof(T) + 2 * sizeof(T*));

  // The slots start at the first pointer-aligned offset behind the elements.
  static size_t slotsAt(uint32_t n) {
    return (sizeof(T) * static_cast<size_t>(n) + alignof(T*) - 1) / alignof(T*) * alignof(T*);
  }

  // Only for an empty list: the slots may lie in the block.
  void releaseBlock() {
    if (slotsInBlock_) this->forgetSlots();
    slotsInBlock_ = false;
    for (uint32_t i = 0; i < blockCount_; ++i) block_[i].~T();
    if (blockOwned_) ::operator delete(block_);
    block_ = nullptr;
    blockCount_ = 0;
    blockOwned_ = false;
  }

  T* block_ = nullptr;
  uint32_t blockCount_ = 0;
  bool slotsInBlock_ = false;
  bool blockOwned_ = false;
};

#endif  // KOLVARI_ASN1_CVEL_MANAGED_ARRAY_H
