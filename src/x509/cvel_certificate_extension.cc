#include "x509/cvel_certificate_extension.h"

#include <new>

#include "asn1/cvel_der.h"
#include "asn1/cvel_oid.h"

namespace {

// Fills one record from the Extension (or Attribute) SEQUENCE `record` has just read. Nothing is required:
// a record may lack its OID or its value.
void readRecord(const CvelString& der, const CvelA1Context& record, CvelKeep keep, int32_t& id, CvelString& oid,
                bool& critical, CvelString& value) {
  CvelA1Context child;
  child.enterElementOf(record);
  if (child.next(der) == kTagOid && child.takeElement(der, oid, keep) == kCvelOk) id = kindOf(oid);
  if (child.next(der) == kTagBoolean) {
    critical = child.contentLength() > 0 && der.data()[child.contentOffset()] != 0;
    child.next(der);
  }
  // Whatever element the cursor holds is the value: the OCTET STRING of an extension, the SET of an
  // attribute. When the record ends early, the last element read stays current and is copied (the OID of
  // {OID}, the BOOLEAN of {OID, BOOLEAN}, the record itself when it is empty); this is kept deliberately.
  static_cast<void>(child.takeElement(der, value, keep));
}

}  // namespace

CvelResult CvelCertificateExtensions::decode(const CvelString& der, CvelA1Context* reader, CvelKeep keep,
                                             CvelBlockStore* store) {
  clear();
  CvelA1CursorOrFresh reading(reader);
  CvelA1Context& cursor = reading.get();
  if (cursor.next(der) != kTagSequence) return 0;
  return decodeRecords(der, cursor, keep, store);
}

CvelResult CvelCertificateExtensions::decodeRecords(const CvelString& der, const CvelA1Context& element,
                                                    CvelKeep keep, CvelBlockStore* store) {
  // The records are counted first and made in one block.
  return decodeCounted(der, element, countRecords(der, element), keep, store);
}

CvelResult CvelCertificateExtensions::decodeCounted(const CvelString& der, const CvelA1Context& element,
                                                    uint32_t count, CvelKeep keep, CvelBlockStore* store) {
  clear();
  // No record: the first child is not a SEQUENCE.
  if (count == 0) return kCvelOk;
  CvelA1Context child;
  child.enterElementOf(element);
  child.next(der);
  uint32_t left = count;
  CvelCertificateExtension* block = makeElements(left, store);
  if (block == nullptr) left = 0;
  do {
    CvelCertificateExtension* record = left > 0 ? block++ : new (std::nothrow) CvelCertificateExtension();
    if (left > 0) --left;
    if (record == nullptr) return kCvelErrMalformed;
    readRecord(der, child, keep, record->id_, record->oid_, record->critical_, record->value_);
    static_cast<void>(add(record));
  } while (child.next(der) == kTagSequence);
  return kCvelOk;
}

uint32_t CvelCertificateExtensions::countRecords(const CvelString& der, const CvelA1Context& element) {
  CvelA1Context child;
  uint32_t count = 0;
  for (int32_t tag = element.firstChild(der, child); tag == kTagSequence; tag = child.next(der)) ++count;
  return count;
}

uint32_t CvelCertificateExtensions::countById(int32_t id, CvelCertificateExtension** out, uint32_t index) const {
  if (out != nullptr) *out = nullptr;
  uint32_t count = 0;
  for (uint32_t i = 0; i < size(); ++i) {
    CvelCertificateExtension* record = nullptr;
    if (get(i, record) != kCvelOk || record == nullptr) return kCvelErrMalformed;
    if (record->id() != id) continue;
    if (count == index && out != nullptr) *out = record;
    ++count;
  }
  return count;
}

CvelResult CvelCertificateExtensions::findByOid(const CvelString& oid, uint32_t index,
                                                CvelCertificateExtension** out) const {
  if (out == nullptr) return kCvelErrBadParameter;
  *out = nullptr;
  uint32_t matches = 0;
  for (uint32_t i = 0; i < size(); ++i) {
    CvelCertificateExtension* record = nullptr;
    if (get(i, record) != kCvelOk || record == nullptr) return kCvelErrNullData;
    if (!record->oid().equals(oid)) continue;
    if (matches == index) {
      *out = record;
      return kCvelOk;
    }
    ++matches;
  }
  return kCvelErrIncomplete;
}

CvelResult CvelCertificateExtensions::countByOid(const CvelString& oid, uint32_t* count) const {
  if (count == nullptr) return kCvelErrBadParameter;
  *count = 0;
  for (uint32_t i = 0; i < size(); ++i) {
    CvelCertificateExtension* record = nullptr;
    if (get(i, record) != kCvelOk || record == nullptr) return kCvelErrNullData;
    if (record->oid().equals(oid)) ++*count;
  }
  return kCvelOk;
}
