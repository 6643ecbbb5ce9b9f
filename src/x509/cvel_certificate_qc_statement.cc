#include "x509/cvel_certificate_qc_statement.h"

#include <new>

#include "asn1/cvel_der.h"
#include "asn1/cvel_oid.h"

CvelResult CvelCertificateQcStatement::decode(const CvelString& der, const CvelA1Context& element) {
  statementIdNumber_ = 0;
  statementId_.release();
  statementInfo_.release();
  // QCStatement ::= SEQUENCE { statementId OBJECT IDENTIFIER, statementInfo ANY OPTIONAL }
  CvelA1Context cursor;
  cursor.enterElementOf(element);
  if (cursor.next(der) != kTagOid) return 0;
  if (statementId_.setView(der, cursor.elementOffset(), cursor.elementLength()) != kCvelOk) return 0;
  statementIdNumber_ = kindOf(statementId_);

  const uint32_t infoStart = cursor.position();
  const int32_t tag = cursor.next(der);
  if (tag >= 0) {
    static_cast<void>(statementInfo_.setView(der, cursor.elementOffset(), cursor.elementLength()));
  } else if (tag == CvelA1Context::kOverrun && infoStart < cursor.limit()) {
    // An element that runs past the statement is still taken, as far as the statement reaches.
    static_cast<void>(statementInfo_.setView(der, infoStart, cursor.limit() - infoStart));
  }
  return kCvelOk;
}

void CvelCertificateQcStatements::decode(const CvelString& value, CvelA1Context* reader) {
  if (value.isEmpty()) return;
  CvelA1CursorOrFresh reading(reader);
  CvelA1Context& cursor = reading.get();
  if (cursor.next(value) < 0) return;
  // OCTET STRING { QCStatements SEQUENCE { QCStatement SEQUENCE ... } }
  CvelA1Context statements;
  statements.enterElementOf(cursor);
  if (statements.next(value) != kTagSequence) return;
  CvelA1Context statement;
  statement.enterElementOf(statements);
  if (statement.next(value) != kTagSequence) return;
  // The list is appended to; each statement goes in before it is decoded and stays even when it does not.
  do {
    CvelCertificateQcStatement* entry = new (std::nothrow) CvelCertificateQcStatement();
    if (entry == nullptr) return;
    if (add(entry) != kCvelOk) return;
    static_cast<void>(entry->decode(value, statement));
  } while (statement.next(value) == kTagSequence);
}

uint32_t CvelCertificateQcStatements::countById(int32_t id, CvelCertificateQcStatement** out, uint32_t index) const {
  if (out != nullptr) *out = nullptr;
  uint32_t count = 0;
  for (uint32_t i = 0; i < size(); ++i) {
    CvelCertificateQcStatement* entry = nullptr;
    if (get(i, entry) != kCvelOk || entry == nullptr) continue;
    if (entry->statementIdNumber() != id) continue;
    if (count == index && out != nullptr) *out = entry;
    ++count;
  }
  return count;
}
