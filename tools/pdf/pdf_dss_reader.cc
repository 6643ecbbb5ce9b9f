#include "pdf/pdf_dss_reader.h"

#include <algorithm>
#include <exception>
#include <stdexcept>

#include <openssl/sha.h>
#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>

namespace {

// Entries read per list, and /VRI entries read.
constexpr size_t kMaxEntries = 1024;
// A decoded stream larger than this is left out: no certificate, response or CRL a validator reads is
// larger (a CRL of some hundred thousand entries is; the revocation check refuses those too).
constexpr size_t kMaxStreamBytes = 8u * 1024 * 1024;
// All decoded streams of one store together.
constexpr size_t kMaxStoreBytes = 64u * 1024 * 1024;

// Collects a stream's decoded bytes and stops the decoding (by throwing) once they pass the bound, so that
// a small compressed stream cannot expand without limit.
class BoundedSink : public Pipeline {
 public:
  BoundedSink(Bytes& out, size_t limit) : Pipeline("bounded", nullptr), out_(out), limit_(limit) {}
  void write(unsigned char const* data, size_t len) override {
    if (len > limit_ - out_.size()) {
      overflow_ = true;
      throw std::length_error("stream larger than its bound");
    }
    out_.insert(out_.end(), data, data + len);
  }
  void finish() override {}
  bool overflow() const { return overflow_; }

 private:
  Bytes& out_;
  size_t limit_;
  bool overflow_ = false;
};

// Reads the decoded streams of one store within the store's budget.
class StoreReader {
 public:
  // The decoded data of a stream; empty when it is not a stream, cannot be decoded or passes a bound.
  Bytes streamBytes(QPDFObjectHandle stream) {
    Bytes data;
    if (!stream.isStream()) return data;
    BoundedSink sink(data, std::min(kMaxStreamBytes, kMaxStoreBytes - used_));
    bool ok = false;
    try {
      ok = stream.pipeStreamData(&sink, nullptr, 0, qpdf_dl_generalized, true, false);
    } catch (const std::exception&) {
      ok = false;
    }
    if (!ok || sink.overflow()) data.clear();
    used_ += data.size();
    return data;
  }

  // The streams of the array under key in dictionary, each as a separate entry.
  void list(QPDFObjectHandle dictionary, const char* key, std::vector<Bytes>& out) {
    QPDFObjectHandle array = dictionary.getKey(key);
    if (!array.isArray()) return;
    const int n = std::min(array.getArrayNItems(), static_cast<int>(kMaxEntries));
    for (int i = 0; i < n; ++i) {
      Bytes data = streamBytes(array.getArrayItem(i));
      if (!data.empty()) out.push_back(std::move(data));
    }
  }

  void lists(QPDFObjectHandle dictionary, const char* certs, const char* ocsps, const char* crls,
             ValidationData& out) {
    list(dictionary, certs, out.certificates);
    list(dictionary, ocsps, out.ocsps);
    list(dictionary, crls, out.crls);
  }

 private:
  size_t used_ = 0;
};

void mergeList(std::vector<Bytes>& into, const std::vector<Bytes>& from) {
  for (const Bytes& b : from) {
    if (std::find(into.begin(), into.end(), b) == into.end()) into.push_back(b);
  }
}

}  // namespace

void ValidationData::merge(const ValidationData& other) {
  mergeList(certificates, other.certificates);
  mergeList(ocsps, other.ocsps);
  mergeList(crls, other.crls);
}

bool readDss(const Bytes& file, DocumentSecurityStore& out, std::string& error) {
  out = DocumentSecurityStore();
  try {
    QPDF pdf;
    pdf.setSuppressWarnings(true);
    pdf.processMemoryFile("input", reinterpret_cast<const char*>(file.data()), file.size());
    QPDFObjectHandle dss = pdf.getRoot().getKey("/DSS");
    if (!dss.isDictionary()) return true;
    out.present = true;
    StoreReader reader;
    reader.lists(dss, "/Certs", "/OCSPs", "/CRLs", out.data);
    QPDFObjectHandle vri = dss.getKey("/VRI");
    if (!vri.isDictionary()) return true;
    size_t entries = 0;
    for (const std::string& key : vri.getKeys()) {
      QPDFObjectHandle entry = vri.getKey(key);
      if (!entry.isDictionary() || ++entries > kMaxEntries) continue;
      std::string name = key.substr(1);  // without the leading '/'
      std::transform(name.begin(), name.end(), name.begin(), ::toupper);
      reader.lists(entry, "/Cert", "/OCSP", "/CRL", out.vri[name]);
    }
  } catch (const std::exception& e) {
    error = e.what();
    return false;
  }
  return true;
}

std::string vriKey(const unsigned char* contents, size_t n) {
  static const char kHex[] = "0123456789ABCDEF";
  constexpr unsigned kNibble = 4;
  constexpr unsigned kLowNibble = 0x0F;
  unsigned char digest[SHA_DIGEST_LENGTH];
  SHA1(contents, n, digest);
  std::string key;
  for (unsigned char b : digest) {
    key.push_back(kHex[b >> kNibble]);
    key.push_back(kHex[b & kLowNibble]);
  }
  return key;
}
