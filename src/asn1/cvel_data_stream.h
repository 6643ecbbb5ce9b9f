// CvelDataStream: one read/write/close interface over a C stdio file or a CvelString buffer (not owned). It
// is the file object behind the DER file input and output, and it classifies its own content by its leading
// bytes (detectType).
#ifndef KOLVARI_ASN1_CVEL_DATA_STREAM_H
#define KOLVARI_ASN1_CVEL_DATA_STREAM_H

#include <cstdint>
#include <cstdio>

#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_result.h"

class CvelString;

// Content-type codes reported by detectType.
inline constexpr uint32_t kCvelContentUnknown = 1;
inline constexpr uint32_t kCvelContentPkcs7Data = 113;
inline constexpr uint32_t kCvelContentPkcs7SignedData = 114;
inline constexpr uint32_t kCvelContentPkcs7EnvelopedData = 115;
inline constexpr uint32_t kCvelContentPkcs7SignedAndEnvelopedData = 116;
inline constexpr uint32_t kCvelContentPkcs7DigestedData = 117;
inline constexpr uint32_t kCvelContentPkcs7EncryptedData = 118;
inline constexpr uint32_t kCvelContentEnvelopedSignedData = 119;
inline constexpr uint32_t kCvelContentPemCertificate = 257;
inline constexpr uint32_t kCvelContentPemCrl = 258;
inline constexpr uint32_t kCvelContentText = 4097;
inline constexpr uint32_t kCvelContentZip = 4098;
inline constexpr uint32_t kCvelContentTiff = 4099;
inline constexpr uint32_t kCvelContentPdf = 4100;
inline constexpr uint32_t kCvelContentTimeStampToken = 0x20000000u;
inline constexpr uint32_t kCvelContentDetachedSignedData = 0x40000000u;

// A short name of a content-type code ("pkcs7-signed-data", "pdf", ...); "unknown" for any other value.
const char* cvelContentTypeName(uint32_t type);

class CvelDataStream : public CvelNonCopyObject {
 public:
  enum Mode : int { kRead = 0, kWrite = 1, kAppend = 2 };
  enum Whence : int { kFromStart = 0, kFromCurrent = 1, kFromEnd = 2 };

  CvelDataStream() = default;
  // A stream over a buffer owned by the caller, readable from its start to its end.
  explicit CvelDataStream(CvelString* buffer);
  // Closing a file opened for reading cannot fail in a way anyone could still act on here.
  ~CvelDataStream() override { static_cast<void>(close()); }

  // Closes any open file, then opens path for reading, writing or appending (a directory is refused).
  // kCvelErrIncomplete when it cannot be opened, kCvelErrBadParameter for another mode.
  CvelResult open(const char* path, int mode);
  // Up to n bytes; a short read is a success, a failed file read kCvelErrMalformed (deliberately not a
  // success with fewer bytes). count (optional) receives the number read.
  CvelResult read(void* buf, uint32_t n, uint32_t* count);
  // Appends n bytes; on a buffer, position and limit then both stand at its new end.
  CvelResult write(const void* buf, uint32_t n, uint32_t* count);
  // kCvelOk when a file was open, 0 otherwise.
  CvelResult close();

  // Positioning for the DER file input and output. A buffer accepts positions from 0 to its limit.
  CvelResult seek(int64_t offset, int whence);
  CvelResult tell(uint32_t* position) const;
  // Total size of the file or of the readable part of the buffer.
  CvelResult size(uint32_t* size) const;
  // A file is open, or a buffer is attached.
  bool isReady() const { return file_ != nullptr || buffer_ != nullptr; }
  bool isFile() const { return file_ != nullptr; }

  // Classifies the content from its first bytes (read from the start); the position is undefined afterwards.
  // The result is the first read's when that fails; type is then kCvelContentUnknown.
  CvelResult detectType(uint32_t* type);

 private:
  std::FILE* file_ = nullptr;
  CvelString* buffer_ = nullptr;
  uint32_t position_ = 0;
  uint32_t limit_ = 0;
  bool writing_ = false;
};

#endif  // KOLVARI_ASN1_CVEL_DATA_STREAM_H
