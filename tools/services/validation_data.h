// Validation data for long-term signatures: the certificates a signature or time-stamp token carries (its own
// and those of the time-stamp tokens inside it) and, for every certificate among them that is not self-issued,
// an OCSP response or a CRL, read from files or fetched from the services the certificate names. The PDF
// document security store and the CMS long-term attributes are both made from it.
#ifndef KOLVARI_TOOLS_SERVICES_VALIDATION_DATA_H
#define KOLVARI_TOOLS_SERVICES_VALIDATION_DATA_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "cli/command_line.h"
#include "io/bytes_order.h"

struct ValidationDataOptions {
  std::vector<std::string> ocspResponseFiles;  // DER OCSPResponse files, each for some certificate of the set
  std::vector<std::string> crlFiles;           // PEM or DER CRLs
  bool allowMissing = false;  // go on when a certificate names no OCSP responder and no CRL distribution point
  bool allowRevoked = false;
  long timeoutSeconds = 10;
};

// --ocsp-response, --revocation-crl, --allow-missing-revocation and --allow-revoked.
void addValidationDataOptions(CLI::App& app, ValidationDataOptions& out);

// What one signature or time-stamp token needs to be validated later.
struct ValidationData {
  std::vector<Bytes> certificates;
  std::vector<Bytes> ocspResponses;  // whole OCSPResponse elements
  std::vector<Bytes> crls;
};

// The certificates of a CMS ContentInfo holding SignedData, then those of the time-stamp tokens in its
// signers' unsigned attributes (one level deep); each once. False with a message when cms does not decode.
bool cmsCertificates(const Bytes& cms, std::vector<Bytes>& out, std::string& error);

// Appends to certificates the issuers it lacks that candidates hold, up the chain (a signer that sent only
// its own certificate, completed from the certificates the user gives).
void addIssuers(std::vector<Bytes>& certificates, const std::vector<Bytes>& candidates);

// The subject of a DER certificate as one line, for messages.
std::string certificateName(const Bytes& certificate);

// Gathers revocation data certificate by certificate, asking each service at most once per run.
class ValidationGatherer {
 public:
  explicit ValidationGatherer(ValidationDataOptions options) : options_(std::move(options)) {}

  // Reads the files named by the options; false with a message when one cannot be read.
  bool readFiles(std::string& error);
  // Fills data for certificates: the certificates themselves and the revocation data of each that is not
  // self-issued. False with one line naming the certificate (and the URLs asked) when a certificate has none
  // and that is not allowed.
  bool gather(const std::vector<Bytes>& certificates, ValidationData& data, std::string& error);
  // Files of the options that covered no certificate gathered so far.
  std::vector<std::string> unusedFiles() const;
  // The certificates that went without revocation data (allowMissing), by name.
  const std::vector<std::string>& uncovered() const { return uncovered_; }

 private:
  struct Found {
    std::vector<Bytes> ocspResponses;
    std::vector<Bytes> crls;
  };
  bool revocationFor(const Bytes& certificate, const std::vector<Bytes>& pool, Found& found, std::string& error);
  bool fromFiles(const Bytes& certificate, const std::vector<Bytes>& pool, Found& found, std::string& error);
  bool fetch(const Bytes& certificate, const std::vector<Bytes>& pool, Found& found, std::string& error);

  ValidationDataOptions options_;
  std::vector<std::pair<std::string, Bytes>> ocspFiles_;  // path, response
  std::vector<std::pair<std::string, Bytes>> crlFiles_;
  std::vector<bool> ocspUsed_;
  std::vector<bool> crlUsed_;
  std::map<Bytes, Found, BytesOrder> done_;
  std::vector<std::string> uncovered_;
};

#endif  // KOLVARI_TOOLS_SERVICES_VALIDATION_DATA_H
