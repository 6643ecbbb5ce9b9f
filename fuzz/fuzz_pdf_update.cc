// The incremental update of `kolvari sign-pdf` over arbitrary input. Whatever input it accepts, the result
// must hold the input as its prefix, a /ByteRange that names exactly the bytes around /Contents, and a last
// cross-reference section that qpdf reads (with its repair off) to a form whose last field has the name given
// and a value that carries that byte range; the hex written into /Contents must stay inside the placeholder.
#include <string>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include "fuzz_input.h"
#include "pdf/pdf_update.h"

namespace {

constexpr size_t kCapacity = 64;

// The update's field as qpdf finds it in the output: its /V's /ByteRange.
bool readBack(const PdfPreparedUpdate& update, std::vector<long long>& range) {
  try {
    QPDF pdf;
    pdf.setSuppressWarnings(true);
    pdf.setAttemptRecovery(false);
    pdf.processMemoryFile("output", reinterpret_cast<const char*>(update.document.data()), update.document.size());
    // The new field is the form's last; a damaged input may read differently before and after the update,
    // so the fields it had are not compared.
    std::vector<QPDFObjectHandle> fields = pdf.getRoot().getKey("/AcroForm").getKey("/Fields").getArrayAsVector();
    if (fields.empty()) return false;
    QPDFObjectHandle ours = fields.back();
    QPDFObjectHandle name = ours.getKey("/T");
    if (!name.isString() || name.getUTF8Value() != update.fieldName) return false;
    for (QPDFObjectHandle n : ours.getKey("/V").getKey("/ByteRange").getArrayAsVector()) {
      range.push_back(n.getIntValue());
    }
    return true;
  } catch (const std::exception&) {
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kFuzzMaxInput) return 0;
  const Bytes input(data, data + size);
  PdfSignatureFields fields;
  fields.pdfTime = "D:20240501090307+00'00'";
  fields.visible = size % 2 == 1;  // half the inputs with an appearance stream
  fields.box = {1, 10, 10, 200, 40};
  fields.shownSigner = "Fuzz (signer) \\";
  fields.shownTime = "2024-05-01 09:03:07 UTC";
  PdfPreparedUpdate update;
  std::string error;
  if (!preparePdfUpdate(input, fields, kCapacity, update, error)) {
    fuzzCheck(!error.empty());
    return 0;
  }
  const Bytes& out = update.document;
  fuzzCheck(out.size() > size && std::equal(input.begin(), input.end(), out.begin()));
  fuzzCheck(update.contentsStart >= size && update.contentsEnd == update.contentsStart + 2 * kCapacity + 2 &&
            update.contentsEnd < out.size() && out[update.contentsStart] == '<' && out[update.contentsEnd - 1] == '>');
  const std::vector<ByteSpan> spans = pdfSignedSpans(update);
  fuzzCheck(spans[0].size + spans[1].size == out.size() - (update.contentsEnd - update.contentsStart));

  std::vector<long long> range;
  fuzzCheck(readBack(update, range));
  const std::vector<long long> expected = {0, static_cast<long long>(update.contentsStart),
                                           static_cast<long long>(update.contentsEnd),
                                           static_cast<long long>(out.size() - update.contentsEnd)};
  fuzzCheck(range == expected);

  const Bytes before = out;
  fuzzCheck(fillPdfContents(update, Bytes(kCapacity, 0xAB), error));
  fuzzCheck(!fillPdfContents(update, Bytes(kCapacity + 1, 0xAB), error));
  for (size_t i = 0; i < out.size(); ++i) {
    const bool inside = i > update.contentsStart && i + 1 < update.contentsEnd;
    fuzzCheck(inside ? out[i] == (i % 2 == update.contentsStart % 2 ? 'B' : 'A') : out[i] == before[i]);
  }
  return 0;
}
