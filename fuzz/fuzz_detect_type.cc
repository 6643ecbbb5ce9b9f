// Content-type detection of arbitrary bytes, held in memory and read from a file: both must give the same
// result and the same type, and the type must be one of the detector's codes.
#include <algorithm>
#include <iterator>

#include "asn1/cvel_data_stream.h"
#include "fuzz_input.h"

// Every code the detector may give.
constexpr uint32_t kCodes[] = {
    kCvelContentUnknown,         kCvelContentPkcs7Data,           kCvelContentPkcs7SignedData,
    kCvelContentPkcs7EnvelopedData, kCvelContentPkcs7SignedAndEnvelopedData, kCvelContentPkcs7DigestedData,
    kCvelContentPkcs7EncryptedData, kCvelContentEnvelopedSignedData, kCvelContentPemCertificate,
    kCvelContentPemCrl, kCvelContentText, kCvelContentZip, kCvelContentTiff, kCvelContentPdf,
    kCvelContentTimeStampToken, kCvelContentDetachedSignedData};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CvelString s;
  static FuzzFile file;
  const char* path = fuzzView(data, size, s) ? file.write(data, size) : nullptr;
  if (path == nullptr) return 0;
  CvelDataStream memory(&s);
  CvelDataStream stream;
  fuzzCheck(stream.open(path, CvelDataStream::kRead) == kCvelOk);
  uint32_t fromMemory = 0;
  uint32_t fromFile = 0;
  fuzzCheck(memory.detectType(&fromMemory) == kCvelOk && stream.detectType(&fromFile) == kCvelOk);
  fuzzCheck(fromMemory == fromFile && std::find(std::begin(kCodes), std::end(kCodes), fromMemory) != std::end(kCodes));
  return 0;
}
