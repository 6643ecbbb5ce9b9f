// CvelA1Input: a source of DER bytes for the stream cursor. CvelA1InputString reads from a CvelString that
// the caller keeps alive; nothing is copied. CvelA1InputFile reads a file through a CvelDataStream.
#ifndef KOLVARI_ASN1_CVEL_A1_INPUT_H
#define KOLVARI_ASN1_CVEL_A1_INPUT_H

#include <cstdint>

#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"

class CvelDataStream;

class CvelA1Input {
 public:
  enum Whence : int { kFromStart = 0, kFromCurrent = 1, kFromEnd = 2 };

  virtual ~CvelA1Input() = default;
  virtual uint32_t size() const = 0;
  virtual CvelResult seek(int64_t offset, int whence) = 0;
  virtual CvelResult tell(uint32_t* position) const = 0;
  virtual CvelResult read(void* buffer, uint32_t count, uint32_t* got) = 0;
  virtual bool hasMore() const = 0;
  virtual const CvelString& name() const = 0;
};

class CvelA1InputString : public CvelA1Input, public CvelNonCopyObject {
 public:
  // Reads at most maxLength bytes of source, starting at start.
  CvelA1InputString(const CvelString& source, uint32_t start, uint32_t maxLength);

  uint32_t size() const override { return size_; }
  CvelResult seek(int64_t offset, int whence) override;
  CvelResult tell(uint32_t* position) const override;
  CvelResult read(void* buffer, uint32_t count, uint32_t* got) override;
  bool hasMore() const override { return data_ != nullptr && position_ < size_; }
  const CvelString& name() const override { return name_; }

 private:
  const unsigned char* data_;
  uint32_t size_;
  uint32_t position_;
  CvelString name_;
};

class CvelA1InputFile : public CvelA1Input, public CvelNonCopyObject {
 public:
  CvelA1InputFile() = default;
  // Opens path for reading; when it cannot be opened the input has no file and size 0.
  explicit CvelA1InputFile(const char* path);
  // Takes ownership of an open stream; when its size cannot be read the stream is deleted.
  explicit CvelA1InputFile(CvelDataStream* file);
  ~CvelA1InputFile() override;

  // Closes (and, when owned, deletes) the previous stream, then reads from file, named path (may be null).
  void attach(CvelDataStream* file, const char* path, bool owns);
  // Hands the stream back without closing it and forgets it.
  CvelDataStream* detach();
  bool attached() const { return file_ != nullptr; }

  uint32_t size() const override { return size_; }
  CvelResult seek(int64_t offset, int whence) override;
  CvelResult tell(uint32_t* position) const override;
  CvelResult read(void* buffer, uint32_t count, uint32_t* got) override;
  bool hasMore() const override;
  const CvelString& name() const override { return name_; }

 private:
  void takeSize();

  CvelString name_;
  CvelDataStream* file_ = nullptr;
  uint32_t size_ = 0;
  bool owns_ = false;
};

#endif  // KOLVARI_ASN1_CVEL_A1_INPUT_H
