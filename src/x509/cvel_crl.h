// Certificate revocation lists and the revocation values of the ETSI signature formats. CvelCRL keeps one
// CertificateList as DER with its issuer, update times and extensions; CvelCRLs is a list of them looked up
// by issuer; CvelEtsRevocationValues reads and writes the RevocationValues of the unsigned attribute
// id-aa-ets-revocationValues (1.2.840.113549.1.9.16.2.24).
#ifndef KOLVARI_X509_CVEL_CRL_H
#define KOLVARI_X509_CVEL_CRL_H

#include <cstdint>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_file.h"
#include "asn1/cvel_a1_output.h"
#include "asn1/cvel_managed_array.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"
#include "asn1/cvel_time.h"
#include "x509/cvel_certificate.h"
#include "x509/cvel_certificate_extension.h"
#include "x509/cvel_dname.h"
#include "x509/cvel_ocsp_response.h"

class CvelCRL : public CvelNonCopyObject {
 public:
  // What parse() returns when the input is not a CertificateList: 0, not an error code.
  static constexpr CvelResult kNotParsed = 0;

  CvelCRL() { reset(); }

  // Empties every member.
  void reset();
  // Copies bytes and reads the CertificateList: issuer, update times, revoked entries and extensions.
  CvelResult parse(const void* bytes, uint32_t n);
  // Sets the issuer Name element (an owned copy) without any CRL behind it.
  CvelResult setIssuer(const CvelString& issuerDer) { return issuer_.assign(issuerDer); }

  uint32_t flags() const { return flags_; }
  const CvelString& issuer() const { return issuer_; }
  const CvelDName& issuerName() const { return issuerName_; }
  const CvelTime& thisUpdate() const { return thisUpdate_; }
  const CvelTime& nextUpdate() const { return nextUpdate_; }
  const CvelCertificateExtensions& extensions() const { return extensions_; }
  // The whole CertificateList as given; empty for a CRL made from an issuer alone.
  const CvelString& encoded() const { return encoded_; }
  // The revokedCertificates SEQUENCE element, when present (a view into encoded()).
  const CvelString& revokedCertificates() const { return revokedCertificates_; }
  CvelCertificateList& linked() { return linked_; }
  // The tbsCertList element (a view into encoded()).
  const CvelString& tbs() const { return tbs_; }

 private:
  bool readTbs();

  uint32_t flags_ = 0;
  CvelString issuer_;
  CvelDName issuerName_;
  CvelTime thisUpdate_;
  CvelTime nextUpdate_;
  CvelCertificateExtensions extensions_;
  CvelString encoded_;
  CvelString revokedCertificates_;
  CvelCertificateList linked_;
  CvelString tbs_;
};

class CvelCRLs : public CvelManagedArray<CvelCRL>, public CvelNonCopyObject {
 public:
  // Bit 0 of findByIssuer's flags: make (and append) a CRL for an issuer that has none.
  static constexpr uint32_t kCreate = 1;

  // The first CRL whose issuer equals issuerDer byte for byte, lent through out: kCvelOk;
  // kCvelErrBadParameter when out is null; kCvelErrMalformed at an empty slot; 0 when none matches and
  // kCreate is not set. With kCreate a new CRL holding only the issuer is appended and lent (kCvelOk), or
  // kCvelErrNullData when it cannot be made.
  CvelResult findByIssuer(const CvelString& issuerDer, uint32_t flags, CvelCRL** out);
};

class CvelEtsRevocationValues : public CvelNonCopyObject {
 public:
  // One stored value: a copy of its whole element, with the element's header length and content start.
  class CvelEtsTriple : public CvelNonCopyObject {
   public:
    CvelResult assign(const CvelString& der, const CvelA1Context& element);
    const CvelString& element() const { return element_; }
    uint32_t headerLength() const { return headerLength_; }
    uint32_t contentOffset() const { return contentOffset_; }

   private:
    CvelString element_;
    uint32_t headerLength_ = 0;
    uint32_t contentOffset_ = 0;
  };
  using Triples = CvelManagedArray<CvelEtsTriple>;

  // encode's modes: 0 the value in an extra SEQUENCE, 1 the complete Attribute.
  static constexpr int kModeValue = 0;
  static constexpr int kModeAttribute = 1;
  // What decode's state becomes after a successful decode.
  static constexpr int32_t kDecoded = 0;
  static constexpr int32_t kNotDecoded = -1;

  // Reads RevocationValues as the next element of reader (the first element of der when null). kCvelOk;
  // 0 on a structural mismatch (lists partly filled); kCvelErrMalformed when an append fails and
  // kCvelErrNullData when a value cannot be made (lists emptied).
  CvelResult decode(const CvelString& der, CvelA1Context* reader = nullptr);
  // The same over the whole of an open DER file; a file that cannot be read gives kCvelErrMalformed.
  CvelResult decode(CvelA1File& file);
  // Writes the values to the sink, or into out (replacing its content).
  CvelResult encode(CvelA1Output& output, int mode) const;
  CvelResult encode(CvelString& out, int mode) const;

  CvelOCSPResponses& ocspValues() { return ocspValues_; }
  const CvelOCSPResponses& ocspValues() const { return ocspValues_; }
  Triples& crlValues() { return crlValues_; }
  const Triples& crlValues() const { return crlValues_; }
  Triples& otherValues() { return otherValues_; }
  const Triples& otherValues() const { return otherValues_; }
  int32_t state() const { return state_; }

 private:
  void clearAll();
  CvelResult readTriples(const CvelString& der, const CvelA1Context& tagged, Triples& list);
  CvelResult readResponses(const CvelString& der, const CvelA1Context& tagged);

  CvelOCSPResponses ocspValues_;
  Triples crlValues_;
  Triples otherValues_;
  int32_t state_ = kNotDecoded;
};

#endif  // KOLVARI_X509_CVEL_CRL_H
