// The SignedData reader of `kolvari extend` over arbitrary input: whatever it accepts, written again with
// definite lengths, reads back to the same parts, and writing those gives the same bytes.
#include "fuzz_input.h"
#include "signing/cms_extend.h"

namespace {

bool sameParts(const SignedDataImage& a, const SignedDataImage& b) {
  return a.contentType == b.contentType && a.fields == b.fields && a.eContentType == b.eContentType &&
         a.attached == b.attached && a.content == b.content && a.certificates == b.certificates &&
         a.crls == b.crls && a.signerInfos == b.signerInfos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kFuzzMaxInput) return 0;
  const Bytes input(data, data + size);
  SignedDataImage image;
  std::string error;
  if (!readSignedData(input, image, error)) {
    fuzzCheck(!error.empty());
    return 0;
  }
  Bytes written;
  Bytes again;
  SignedDataImage reread;
  fuzzCheck(writeSignedData(image, written) && readSignedData(written, reread, error));
  fuzzCheck(sameParts(image, reread) && writeSignedData(reread, again) && again == written);
  return 0;
}
