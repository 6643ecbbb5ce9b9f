// Qualified-certificate statements: statement id and the element that follows it, as views into the
// extension value that was decoded (which must outlive the statements).
#ifndef KOLVARI_X509_CVEL_CERTIFICATE_QC_STATEMENT_H
#define KOLVARI_X509_CVEL_CERTIFICATE_QC_STATEMENT_H

#include <cstdint>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_managed_array.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_string.h"

class CvelCertificateQcStatement : public CvelNonCopyObject {
 public:
  // Reads the QCStatement SEQUENCE that `element` has just read: kCvelOk when it starts with an OID.
  CvelResult decode(const CvelString& der, const CvelA1Context& element);

  int32_t statementIdNumber() const { return statementIdNumber_; }
  const CvelString& statementId() const { return statementId_; }
  const CvelString& statementInfo() const { return statementInfo_; }

 private:
  int32_t statementIdNumber_ = 0;
  CvelString statementId_;    // view
  CvelString statementInfo_;  // view
};

class CvelCertificateQcStatements : public CvelManagedArray<CvelCertificateQcStatement>,
                                    public CvelNonCopyObject {
 public:
  // value is the extension's OCTET STRING element (read as the next element of reader, or the first of
  // value when null); each QCStatement inside is appended, even one that does not decode.
  void decode(const CvelString& value, CvelA1Context* reader = nullptr);
  // Number of statements with this registry id; the index-th is lent through out when out is not null.
  uint32_t countById(int32_t id, CvelCertificateQcStatement** out, uint32_t index) const;
};

#endif  // KOLVARI_X509_CVEL_CERTIFICATE_QC_STATEMENT_H
