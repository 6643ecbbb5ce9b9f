// The last-error record: what the most recent failing system call of the runtime services left behind.
#ifndef KOLVARI_BASE_CVEL_LAST_ERROR_H
#define KOLVARI_BASE_CVEL_LAST_ERROR_H

#include <cstdint>

// Report flags, the fourth argument of setLastError.
inline constexpr uint32_t kCvelReportSystemText = 0x001;     // message = the system's text for errorNumber
inline constexpr uint32_t kCvelReportLastError = 0x002;      // message = "Lasterror"
inline constexpr uint32_t kCvelReportResolver = 0x004;       // a name-resolution error, detail2 its code
inline constexpr uint32_t kCvelReportAddressInfo = 0x008;    // with kCvelReportResolver: an address-lookup code
inline constexpr uint32_t kCvelReportHostLookup = 0x010;     // with kCvelReportResolver: a host-lookup code
inline constexpr uint32_t kCvelReportAddressInfo2 = 0x020;   // with kCvelReportResolver: an address-lookup code
inline constexpr uint32_t kCvelReportNothing = 0x400;        // record nothing at all
inline constexpr uint32_t kCvelRecordShared = 0x800;         // attribute: the process-wide shared record

inline constexpr uint32_t kCvelLastErrorMessageSize = 1024;

struct CvelLastError {
  int32_t errorNumber;
  uint32_t detail1;
  uint32_t detail2;
  uint32_t flags;
  char message[kCvelLastErrorMessageSize];  // always zero-terminated
};

// Fills the calling thread's record (in practice the one shared record, see lastErrorRecord).
void setLastError(int32_t errorNumber, uint32_t detail1, uint32_t detail2, uint32_t flags);
// The record for the calling thread. Every thread gets the process-wide shared record, unguarded: concurrent
// failures overwrite each other's report.
CvelLastError* lastErrorRecord();

#endif  // KOLVARI_BASE_CVEL_LAST_ERROR_H
