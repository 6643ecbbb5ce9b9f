// File services over the operating system: status, size, rename, copy, removal, opening a stream and
// temporary files. Status, size and rename run under one process-wide file-operations mutex.
#ifndef KOLVARI_BASE_CVEL_FILE_H
#define KOLVARI_BASE_CVEL_FILE_H

#include <cstdint>
#include <cstdio>
#include <string>

#include "asn1/cvel_non_copy_object.h"
#include "base/cvel_base_result.h"

// Modes of openFile, and its append flag.
inline constexpr uint32_t kCvelOpenRead = 1;       // "r"
inline constexpr uint32_t kCvelOpenWrite = 2;      // "w", or "a" with kCvelOpenAppend
inline constexpr uint32_t kCvelOpenReadWrite = 3;  // "r+", or "a+" with kCvelOpenAppend
inline constexpr uint32_t kCvelOpenAppend = 0x1;

// Copies go in chunks of this size.
inline constexpr uint32_t kCvelCopyChunk = 8192;
// A temporary-file prefix may be this long; the name adds six unique characters and a terminating zero.
inline constexpr size_t kCvelMaxTempPrefix = 1017;

// A stdio stream and the name it was opened under. A temporary file made by createTempFile is removed when
// it is closed; closing happens at the latest when the object goes.
class CvelFile : public CvelNonCopyObject {
 public:
  CvelFile() = default;
  ~CvelFile() override { static_cast<void>(close()); }  // no caller left to tell

  FILE* stream() const { return stream_; }
  bool isOpen() const { return stream_ != nullptr; }
  const std::string& path() const { return path_; }
  bool deleteOnClose() const { return deleteOnClose_; }

  // Closes any stream held before and takes this one. Should the name not be kept (no memory), the stream
  // is closed, the file removed if marked for that, and kCvelErrNoMemory returned.
  CvelResult attach(FILE* stream, const char* path, bool deleteOnClose);
  // Closes the stream and removes a file marked for deletion. kCvelErrMalformed when the close fails,
  // the removal's code when that fails; kCvelOk when nothing was open.
  CvelResult close();

 private:
  FILE* stream_ = nullptr;
  std::string path_;
  bool deleteOnClose_ = false;
};

// Seconds and microseconds.
struct CvelFileTime {
  int64_t seconds;
  int64_t subSecond;
};

// Each non-null time is zeroed, then filled from the file's status. kCvelErrBadParameter for a null path,
// kCvelErrMalformed when the status cannot be read.
CvelResult fileTimes(const char* path, CvelFileTime* changeTime, CvelFileTime* accessTime,
                     CvelFileTime* modificationTime);
CvelResult fileSize(const char* path, uint64_t& size);
// The system rename (which replaces an existing newPath); kCvelErrMalformed when it fails.
CvelResult renameFile(const char* oldPath, const char* newPath);
// Copies source over destination (created or truncated); a read error or short write gives kCvelErrMalformed.
CvelResult copyFile(const char* source, const char* destination);
// Removes an empty directory, or else a file. kCvelErrNoSuchFile when there is nothing to remove,
// kCvelErrReadOnly on a read-only file system, kCvelErrMalformed for any other failure.
CvelResult removePath(const char* path);
// Opens path as a stream into file. kCvelErrBadParameter for a null or empty path or an unknown mode,
// kCvelErrNoSuchFile when the file does not exist, kCvelErrMalformed for any other failure.
CvelResult openFile(const char* path, uint32_t mode, uint32_t flags, CvelFile& file);
// out receives a name "/tmp/velXXXXXX" that was free when the call returned; kCvelErrMalformed on failure.
CvelResult makeTempName(std::string& out);
// Creates a new file prefix + six unique characters ("/tmp/vel" when prefix is null or empty) and opens it
// "rb+" into file. With removeNow its name is removed at once, so that it vanishes when closed; otherwise
// file removes it on close. kCvelErrTooLong for a prefix over kCvelMaxTempPrefix characters.
CvelResult createTempFile(CvelFile& file, const char* prefix, bool removeNow);

#endif  // KOLVARI_BASE_CVEL_FILE_H
