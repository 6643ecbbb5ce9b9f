// Process services: the paths of the loaded image and of the main executable, host name, process id and
// the local time with milliseconds.
#ifndef KOLVARI_BASE_CVEL_PROCESS_H
#define KOLVARI_BASE_CVEL_PROCESS_H

#include <cstdint>
#include <ctime>

#include "base/cvel_base_result.h"

// The canonical path of the loaded image (executable or shared library) that contains address, as
// canonicalPath returns it; -1 on failure.
int32_t imagePath(const void* address, char* out, uint32_t size);
// The absolute canonical path of the main executable, as canonicalPath returns it; -1 when out is null,
// size is 0 or the path cannot be found.
int32_t executablePath(char* out, uint32_t size);
// Resolves path into out (size bytes with the terminating zero) and returns the resolved length.
// When it cannot be resolved, out receives path as it is (-1 if that does not fit; otherwise its length);
// when the resolved file cannot be opened for reading, out receives the resolved path and the result is -1.
int32_t canonicalPath(const char* path, char* out, uint32_t size);
// The system host name, zero-terminated; kCvelErrBadParameter for a null buffer or size 0,
// kCvelErrMalformed when the system fails (recorded as the last error).
CvelResult hostName(char* buffer, uint32_t size);
int32_t processId();
// time receives the local calendar time now, milliseconds its sub-second part; false when the clock
// cannot be read.
bool localTimeNow(std::tm& time, int32_t& milliseconds);

#endif  // KOLVARI_BASE_CVEL_PROCESS_H
