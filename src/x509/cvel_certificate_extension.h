// Certificate extensions as records (OID element, critical flag, OCTET STRING element), and the list that a
// certificate searches by registry id or by OID bytes. The same records hold an attribute certificate's
// attributes (OID, critical false, the SET element as value).
#ifndef KOLVARI_X509_CVEL_CERTIFICATE_EXTENSION_H
#define KOLVARI_X509_CVEL_CERTIFICATE_EXTENSION_H

#include <cstdint>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_managed_array.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_string.h"

class CvelCertificateExtension final : public CvelNonCopyObject {
 public:
  int32_t id() const { return id_; }
  const CvelString& oid() const { return oid_; }
  bool critical() const { return critical_; }
  // The whole extnValue element (tag and length included).
  const CvelString& value() const { return value_; }

 private:
  friend class CvelCertificateExtensions;
  // The strings first, the small fields together behind them: 48 bytes an entry on 64-bit targets.
  CvelString oid_;
  CvelString value_;
  int32_t id_ = 0;
  bool critical_ = false;
};

class CvelCertificateExtensions final : public CvelBlockArray<CvelCertificateExtension>, public CvelNonCopyObject {
 public:
  // Empties the list and decodes the Extensions SEQUENCE read as the next element of reader (the first
  // element of der when null). 0 when that element is not a SEQUENCE. With keep kView the records' OIDs and
  // values are views into der, which must then outlive the records.
  // The records are made in store when one is given and has room.
  CvelResult decode(const CvelString& der, CvelA1Context* reader = nullptr, CvelKeep keep = CvelKeep::kCopy,
                    CvelBlockStore* store = nullptr);
  // Empties the list and reads one record per child SEQUENCE of the element `element` has just read; a
  // fresh cursor makes der itself the run of records. kCvelOk (also for no records).
  CvelResult decodeRecords(const CvelString& der, const CvelA1Context& element, CvelKeep keep = CvelKeep::kCopy,
                           CvelBlockStore* store = nullptr);
  // decodeRecords for a caller that has counted the records with countRecords: count is that number.
  CvelResult decodeCounted(const CvelString& der, const CvelA1Context& element, uint32_t count, CvelKeep keep,
                           CvelBlockStore* store);
  // The records decodeRecords would read from the element `element` has just read.
  static uint32_t countRecords(const CvelString& der, const CvelA1Context& element);
  // Number of records with this registry id; the index-th match is lent through out (set to null first;
  // may be null). kCvelErrMalformed at an empty slot. Callers get a count, not a result code.
  uint32_t countById(int32_t id, CvelCertificateExtension** out, uint32_t index) const;
  // The index-th record whose OID element equals oid byte for byte: kCvelOk; kCvelErrBadParameter when
  // out is null; kCvelErrIncomplete when there are not enough matches; kCvelErrNullData at an empty slot.
  CvelResult findByOid(const CvelString& oid, uint32_t index, CvelCertificateExtension** out) const;
  // Number of records whose OID element equals oid: kCvelOk, or kCvelErrNullData at an empty slot.
  CvelResult countByOid(const CvelString& oid, uint32_t* count) const;
};

#endif  // KOLVARI_X509_CVEL_CERTIFICATE_EXTENSION_H
