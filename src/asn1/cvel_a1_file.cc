#include "asn1/cvel_a1_file.h"

#include <new>

#include "asn1/cvel_data_stream.h"

CvelResult CvelA1File::open(const char* path) {
  close();
  name_.release();
  if (path == nullptr) return kCvelErrBadParameter;
  CvelResult r = name_.assign(path);
  if (r != kCvelOk) return r;
  CvelDataStream* file = new (std::nothrow) CvelDataStream();
  if (file == nullptr) return kCvelErrNoMemory;
  r = file->open(path, CvelDataStream::kRead);
  if (r != kCvelOk) {
    delete file;
    return r;
  }
  input_.attach(file, path, true);
  return input_.attached() ? kCvelOk : kCvelErrIncomplete;
}
