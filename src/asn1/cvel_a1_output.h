// CvelA1Output: a sink for encoded bytes. CvelA1OutputString appends to a CvelString owned by the caller;
// CvelA1OutputFile writes a file through a CvelDataStream.
#ifndef KOLVARI_ASN1_CVEL_A1_OUTPUT_H
#define KOLVARI_ASN1_CVEL_A1_OUTPUT_H

#include <cstdint>

#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"

class CvelDataStream;

class CvelA1Output : public CvelNonCopyObject {
 public:
  virtual CvelResult getSize(uint32_t* size) const = 0;
  // Appends count bytes; written (optional) receives the number written.
  virtual CvelResult write(const void* bytes, uint32_t count, uint32_t* written) = 0;
  virtual bool isOpen() const = 0;
  virtual const CvelString& name() const = 0;
};

class CvelA1OutputString : public CvelA1Output {
 public:
  explicit CvelA1OutputString(CvelString* target) : target_(target) {}

  CvelResult getSize(uint32_t* size) const override;
  // Passes the target's append result back unchanged: a target with spare room gives the in-place result.
  CvelResult write(const void* bytes, uint32_t count, uint32_t* written) override;
  bool isOpen() const override { return true; }
  const CvelString& name() const override { return name_; }

 private:
  CvelString name_;
  CvelString* target_;
};

class CvelA1OutputFile : public CvelA1Output {
 public:
  // Creates path (or empties it) and owns the stream; when it cannot be opened the sink stays closed.
  explicit CvelA1OutputFile(const char* path);
  // Writes to a stream that the caller keeps.
  explicit CvelA1OutputFile(CvelDataStream* file) : file_(file) {}
  ~CvelA1OutputFile() override;

  // The stream's current position: the number of bytes written to a file opened by the sink.
  CvelResult getSize(uint32_t* size) const override;
  CvelResult write(const void* bytes, uint32_t count, uint32_t* written) override;
  bool isOpen() const override;
  const CvelString& name() const override { return name_; }

 private:
  bool owns_ = false;
  CvelString name_;
  CvelDataStream* file_ = nullptr;
};

// Writes count bytes of source from offset to the sink; count 0xFFFFFFFF means to the end of source.
CvelResult write(CvelA1Output& sink, const CvelString& source, uint32_t offset, uint32_t count);

#endif  // KOLVARI_ASN1_CVEL_A1_OUTPUT_H
