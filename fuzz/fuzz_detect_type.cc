// Content-type detection of arbitrary bytes, held in memory and read from a file: both must give the same
// result and the same type, and the type must be one of the detector's codes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>

#include "asn1/cvel_data_stream.h"
#include "asn1/cvel_string.h"
#include "fuzz_file.h"
#include "fuzz_input.h"

namespace {

// Every code the detector may give.
constexpr uint32_t kCodes[] = {
    kCvelContentUnknown,         kCvelContentPkcs7Data,           kCvelContentPkcs7SignedData,
    kCvelContentPkcs7EnvelopedData, kCvelContentPkcs7SignedAndEnvelopedData, kCvelContentPkcs7DigestedData,
    kCvelContentPkcs7EncryptedData, kCvelContentEnvelopedSignedData, kCvelContentPemCertificate,
    kCvelContentPemCrl, kCvelContentText, kCvelContentZip, kCvelContentTiff, kCvelContentPdf,
    kCvelContentTimeStampToken, kCvelContentDetachedSignedData};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString s;
  if (!fuzzView(data, size, s)) return 0;
  CvelDataStream memory(&s);
  uint32_t fromMemory = 0;
  const CvelResult memoryResult = memory.detectType(&fromMemory);

  static FuzzFile file;
  const char* path = file.write(data, size);
  if (path == nullptr) return 0;
  CvelDataStream stream;
  if (stream.open(path, CvelDataStream::kRead) != kCvelOk) std::abort();
  uint32_t fromFile = 0;
  const CvelResult fileResult = stream.detectType(&fromFile);

  if (memoryResult != kCvelOk || fileResult != kCvelOk) std::abort();
  if (fromMemory != fromFile || std::find(std::begin(kCodes), std::end(kCodes), fromMemory) == std::end(kCodes)) std::abort();
  return 0;
}
