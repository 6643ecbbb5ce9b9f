#include "base/cvel_last_error.h"

#include <netdb.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char kLastErrorText[] = "Lasterror";

CvelLastError gSharedRecord;
std::atomic<bool> gKeyCreated{false};
pthread_key_t gRecordKey;

// strerror_r comes in a GNU form (returns the text) and a POSIX form (fills the buffer); both are served.
[[maybe_unused]] const char* errorText(int result, const char* buffer) { return result == 0 ? buffer : ""; }
[[maybe_unused]] const char* errorText(const char* text, const char*) { return text != nullptr ? text : ""; }

void copyMessage(CvelLastError& record, const char* text) {
  std::strncpy(record.message, text, kCvelLastErrorMessageSize - 1);
  record.message[kCvelLastErrorMessageSize - 1] = '\0';
}

// Asks for the key under which each thread would keep its own record. This always reports failure, EINVAL
// with a report that records nothing, whatever the system answered: that is intended, and hosts rely on the
// outcome, one process-wide record shared by every thread. A key the system did hand out is given back at
// once, so that the request made at every call does not use up the process's keys, which the host and its
// other libraries share.
int createRecordKey() {
  pthread_key_t key;
  if (pthread_key_create(&key, std::free) == 0) pthread_key_delete(key);
  setLastError(EINVAL, 0, 0, kCvelReportNothing | kCvelReportSystemText);
  return EINVAL;
}

}  // namespace

CvelLastError* lastErrorRecord() {
  if (!gKeyCreated.load()) {
    gSharedRecord.flags |= kCvelRecordShared;
    gKeyCreated.store(true);
    if (createRecordKey() != 0) {
      gKeyCreated.store(false);
      return &gSharedRecord;
    }
  }
  // Kept for a key that exists: each thread's own record, made on first use.
  void* own = pthread_getspecific(gRecordKey);
  if (own != nullptr) return static_cast<CvelLastError*>(own);
  auto* record = static_cast<CvelLastError*>(std::calloc(1, sizeof(CvelLastError)));
  if (record == nullptr) return &gSharedRecord;
  if (pthread_setspecific(gRecordKey, record) != 0) {
    std::free(record);
    return &gSharedRecord;
  }
  return record;
}

void setLastError(int32_t errorNumber, uint32_t detail1, uint32_t detail2, uint32_t flags) {
  if ((flags & kCvelReportNothing) != 0) return;
  CvelLastError& record = *lastErrorRecord();
  record.errorNumber = errorNumber;
  record.detail1 = detail1;
  record.detail2 = detail2;
  record.flags = (record.flags & kCvelRecordShared) | flags;
  record.message[0] = '\0';

  const bool resolver = (flags & kCvelReportResolver) != 0;
  const int resolverCode = static_cast<int32_t>(detail2);
  if ((flags & kCvelReportSystemText) != 0) {
    char buffer[kCvelLastErrorMessageSize] = {};
    copyMessage(record, errorText(strerror_r(errorNumber, buffer, sizeof buffer), buffer));
  } else if ((flags & kCvelReportLastError) != 0) {
    copyMessage(record, kLastErrorText);
  } else if (resolver && (flags & (kCvelReportAddressInfo | kCvelReportAddressInfo2)) != 0) {
    copyMessage(record, gai_strerror(resolverCode));
  } else if (resolver && (flags & kCvelReportHostLookup) != 0) {
    copyMessage(record, hstrerror(resolverCode));
  }
}
