// The validation data a PDF carries for long-term validation: the document security store (/DSS in the
// catalog of the last revision) with its certificates (/Certs), OCSP responses (/OCSPs) and CRLs (/CRLs), and
// its /VRI entries, which tie data to one signature under the upper-case hex SHA-1 of that signature's
// /Contents. qpdf reads the objects wherever they lie (object streams, cross-reference streams) and decodes
// the streams; every list and every stream is read up to a bound.
#ifndef KOLVARI_TOOLS_PDF_PDF_DSS_READER_H
#define KOLVARI_TOOLS_PDF_PDF_DSS_READER_H

#include <map>
#include <string>
#include <vector>

#include "host_crypto.h"

struct ValidationData {
  std::vector<Bytes> certificates;  // DER
  std::vector<Bytes> ocsps;         // OCSPResponse (or BasicOCSPResponse) DER
  std::vector<Bytes> crls;          // CertificateList DER

  // Appends what other holds that this does not hold yet.
  void merge(const ValidationData& other);
};

struct DocumentSecurityStore {
  bool present = false;
  ValidationData data;                         // /Certs, /OCSPs, /CRLs
  std::map<std::string, ValidationData> vri;   // /VRI: key -> /Cert, /OCSP, /CRL
};

// The DSS of the PDF in file; an empty store when the catalog has none. False with a message when file is
// not a PDF that can be read.
bool readDss(const Bytes& file, DocumentSecurityStore& out, std::string& error);

// The /VRI key of a signature: the upper-case hex SHA-1 of the bytes of its /Contents string.
std::string vriKey(const unsigned char* contents, size_t n);

#endif  // KOLVARI_TOOLS_PDF_PDF_DSS_READER_H
