#include "pdf/pdf_dss.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <map>

#include <openssl/evp.h>
#include <qpdf/Buffer.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <zlib.h>

#include "io/bytes_order.h"
#include "pdf/pdf_update.h"

namespace {

constexpr size_t kStoreArrays = 3;  // /Certs, /OCSPs, /CRLs

std::string reference(const QPDFObjGen& og) {
  return std::to_string(og.getObj()) + " " + std::to_string(og.getGen()) + " R";
}

// One of the store's three arrays: the items it lists, as written, and the data of each stream item, so
// that an item is listed once however often it is met.
struct StoreArray {
  const char* dssKey;
  const char* vriKey;
  std::vector<std::string> items;
  std::map<Bytes, std::string, BytesOrder> byData;
};

// The store's arrays as the file has them; a stream whose data cannot be read is kept, only not matched.
void readExisting(QPDFObjectHandle dss, StoreArray& a) {
  if (!dss.isDictionary()) return;
  QPDFObjectHandle list = dss.getKey(a.dssKey);
  if (!list.isArray()) return;
  for (QPDFObjectHandle item : list.getArrayAsVector()) {
    const std::string written = item.isIndirect() ? reference(item.getObjGen()) : item.unparse();
    a.items.push_back(written);
    if (!item.isStream()) continue;
    try {
      std::shared_ptr<Buffer> data = item.getStreamData(qpdf_dl_generalized);
      a.byData.emplace(Bytes(data->getBuffer(), data->getBuffer() + data->getSize()), written);
    } catch (const std::exception&) {
      // A filter qpdf cannot undo: the stream stays listed.
    }
  }
}

bool flate(const Bytes& data, std::string& out) {
  uLongf size = compressBound(static_cast<uLong>(data.size()));
  out.resize(size);
  if (compress2(reinterpret_cast<Bytef*>(out.data()), &size, data.data(), static_cast<uLong>(data.size()),
                Z_BEST_COMPRESSION) != Z_OK) {
    return false;
  }
  out.resize(size);
  return true;
}

// The objects of the update, numbered from the first free number.
struct DssUpdate {
  PdfUpdateObjects objects;
  int next = 0;

  // The reference of a stream holding data: the one listed already, else a new compressed stream.
  bool streamFor(const Bytes& data, StoreArray& a, std::string& written) {
    auto known = a.byData.find(data);
    if (known != a.byData.end()) {
      written = known->second;
      return true;
    }
    std::string packed;
    if (!flate(data, packed)) return false;
    const int number = next++;
    objects[number] = {0, "<< /Length " + std::to_string(packed.size()) + " /Filter /FlateDecode >>\nstream\n" +
                              packed + "\nendstream"};
    written = std::to_string(number) + " 0 R";
    a.items.push_back(written);
    a.byData.emplace(data, written);
    return true;
  }
};

std::string arrayText(const std::vector<std::string>& items) {
  std::string text = "[";
  for (const std::string& item : items) text += (text.size() > 1 ? " " : "") + item;
  return text + "]";
}

// One /VRI value: the streams of the entry's data, each array left out when empty.
bool vriValue(const PdfValidationEntry& entry, StoreArray* const (&arrays)[kStoreArrays], DssUpdate& update,
              std::string& out) {
  const std::vector<Bytes>* lists[kStoreArrays] = {&entry.certificates, &entry.ocspResponses, &entry.crls};
  out = "<<";
  for (size_t i = 0; i < kStoreArrays; ++i) {
    std::vector<std::string> items;
    for (const Bytes& data : *lists[i]) {
      std::string written;
      if (!update.streamFor(data, *arrays[i], written)) return false;
      if (std::find(items.begin(), items.end(), written) == items.end()) items.push_back(written);
    }
    if (!items.empty()) out += std::string(" ") + arrays[i]->vriKey + " " + arrayText(items);
  }
  out += " >>";
  return true;
}

// The first object number the update may take: above /Size and above every object qpdf found.
bool firstFreeNumber(QPDF& pdf, int& next, std::string& error) {
  QPDFObjectHandle size = pdf.getTrailer().getKey("/Size");
  const long long declared = size.isInteger() ? size.getIntValue() : 0;
  const long long first = std::max(declared, static_cast<long long>(pdf.getObjectCount()) + 1);
  constexpr long long kRoom = 1000000;
  if (declared < 0 || first > std::numeric_limits<int>::max() - kRoom) {
    error = "the trailer's /Size is out of range";
    return false;
  }
  next = static_cast<int>(first);
  return true;
}

bool buildUpdate(QPDF& pdf, const std::vector<PdfValidationEntry>& entries, DssUpdate& update,
                 std::string& trailerEntries, std::string& error) {
  QPDFObjectHandle root = pdf.getRoot();
  if (!root.isDictionary() || !root.isIndirect()) {
    error = "the PDF has no document catalog";
    return false;
  }
  if (!firstFreeNumber(pdf, update.next, error)) return false;
  trailerEntries = pdfCarriedTrailerEntries(pdf.getTrailer());
  QPDFObjectHandle dss = root.getKey("/DSS");
  StoreArray certs{"/Certs", "/Cert", {}, {}};
  StoreArray ocsps{"/OCSPs", "/OCSP", {}, {}};
  StoreArray crls{"/CRLs", "/CRL", {}, {}};
  StoreArray* const arrays[kStoreArrays] = {&certs, &ocsps, &crls};
  for (StoreArray* a : arrays) readExisting(dss, *a);

  std::map<std::string, std::string> vri;  // key (with its slash), value as written
  QPDFObjectHandle existingVri = dss.isDictionary() ? dss.getKey("/VRI") : QPDFObjectHandle::newNull();
  if (existingVri.isDictionary()) {
    for (const std::string& key : existingVri.getKeys()) {
      QPDFObjectHandle value = existingVri.getKey(key);
      vri[key] = value.isIndirect() ? reference(value.getObjGen()) : value.unparse();
    }
  }
  for (const PdfValidationEntry& entry : entries) {
    std::string value;
    if (!vriValue(entry, arrays, update, value)) {
      error = "cannot compress the validation data";
      return false;
    }
    vri["/" + pdfVriKey(entry.contents)] = value;
  }

  std::string body = "<< /Type /DSS";
  for (StoreArray* a : arrays) {
    if (!a->items.empty()) body += std::string(" ") + a->dssKey + " " + arrayText(a->items);
  }
  body += " /VRI <<";
  for (const auto& [key, value] : vri) body += " " + QPDFObjectHandle::newName(key).unparse() + " " + value;
  body += " >>";
  // Entries of the store this writer does not manage are kept as they are.
  if (dss.isDictionary()) {
    for (const std::string& key : dss.getKeys()) {
      if (key == "/Type" || key == "/Certs" || key == "/OCSPs" || key == "/CRLs" || key == "/VRI") continue;
      QPDFObjectHandle value = dss.getKey(key);
      body += " " + key + " " + (value.isIndirect() ? reference(value.getObjGen()) : value.unparse());
    }
  }
  body += " >>";

  if (dss.isDictionary() && dss.isIndirect()) {
    update.objects[dss.getObjGen().getObj()] = {dss.getObjGen().getGen(), body};
    return true;
  }
  // A new store object, and the catalog rewritten to name it (in place of a store written inline).
  const int number = update.next++;
  update.objects[number] = {0, body};
  root.removeKey("/DSS");
  std::string catalog = root.unparseResolved();
  const std::string close = ">>";
  catalog.insert(catalog.size() - close.size(), " /DSS " + std::to_string(number) + " 0 R ");
  update.objects[root.getObjGen().getObj()] = {root.getObjGen().getGen(), catalog};
  return true;
}

}  // namespace

std::string pdfVriKey(const Bytes& contents) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  std::string key;
  if (EVP_Digest(contents.data(), contents.size(), digest, &n, EVP_sha1(), nullptr) != 1) return key;
  constexpr char kHex[] = "0123456789ABCDEF";
  for (unsigned int i = 0; i < n; ++i) {
    key.push_back(kHex[digest[i] >> 4]);
    key.push_back(kHex[digest[i] & 0x0F]);
  }
  return key;
}

bool addPdfDss(const Bytes& input, const std::vector<PdfValidationEntry>& entries, Bytes& out, std::string& error) {
  PdfUpdateBase base;
  if (!readPdfUpdateBase(input, base, error)) return false;
  DssUpdate update;
  const auto build = [&](QPDF& pdf) { return buildUpdate(pdf, entries, update, base.trailerEntries, error); };
  if (!withPdfForUpdate(input, build, error)) return false;
  out = input;
  std::map<int, size_t> offsets;
  appendPdfUpdate(out, base, update.objects, update.next, offsets);
  return true;
}
