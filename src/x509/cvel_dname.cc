#include "x509/cvel_dname.h"

#include <new>

#include "asn1/cvel_der.h"
#include "asn1/cvel_oid.h"

namespace {

constexpr unsigned char kSpace = 0x20;
constexpr int kEqual = 1;
constexpr int kDifferent = 0;

// Parses one AttributeTypeAndValue and appends it: kCvelOk, or kCvelErrMalformed when it cannot be kept.
// The entry is the next of the name's block when there is one left, else a new one.
CvelResult addAttribute(CvelDName& name, const CvelString& der, const CvelA1Context& attribute, CvelKeep keep,
                        CvelRDName*& block, uint32_t& left) {
  const bool fromBlock = left > 0;
  CvelRDName* entry = fromBlock ? block++ : new (std::nothrow) CvelRDName();
  if (fromBlock) --left;
  if (entry == nullptr) return kCvelErrMalformed;
  if (entry->parse(der, attribute, keep) != kCvelOk) {
    if (!fromBlock) delete entry;
    return kCvelErrMalformed;
  }
  // add owns the entry from here on, also when it fails.
  return name.add(entry) == kCvelOk ? kCvelOk : kCvelErrMalformed;
}

// Every AttributeTypeAndValue SEQUENCE of the SET `set` has just read, in order. A child that is not a
// SEQUENCE ends the SET.
CvelResult addSet(CvelDName& name, const CvelString& der, const CvelA1Context& set, CvelKeep keep,
                  uint32_t& added, CvelRDName*& block, uint32_t& left) {
  CvelA1Context child;
  child.enterElementOf(set);
  while (child.next(der) == kTagSequence) {
    CvelResult r = addAttribute(name, der, child, keep, block, left);
    if (r != kCvelOk) return r;
    ++added;
  }
  return kCvelOk;
}

}  // namespace

CvelResult CvelRDName::parse(const CvelString& der, const CvelA1Context& element, CvelKeep keep) {
  CvelA1Context child;
  child.enterElementOf(element);
  if (child.next(der) != kTagOid) return 0;
  CvelResult r = child.takeElement(der, type_, keep);
  if (r != kCvelOk) return r;
  typeId_ = kindOf(type_);
  // The value is the element the cursor holds after the next read, and the result is that of copying it.
  // When nothing follows the type, the read leaves the cursor on the type, so the type element itself
  // becomes the value; this is deliberate and kept.
  child.next(der);
  return child.takeElement(der, value_, keep);
}

void cvelFoldPrintable(const CvelString& value, CvelString& out) {
  out.release();
  const uint32_t n = value.length();
  if (n == 0 || out.allocate(n) != kCvelOk) return;
  // The whole element is folded, header octets included: a length octet of 0x20 counts as a space.
  const unsigned char* in = value.data();
  unsigned char* to = out.data();
  uint32_t kept = 0;
  for (uint32_t i = 0; i < n; ++i) {
    if (in[i] == kSpace && i + 1 < n && in[i + 1] == kSpace) continue;
    to[kept++] = in[i];
  }
  out.truncate(kept);
  out.toLower();
}

int CvelRDName::equals(const CvelRDName& other) const {
  if (!type_.equals(other.type_)) return kDifferent;
  if (value_.isEmpty() || value_.data()[0] != kTagPrintableString) {
    return value_.equals(other.value_) ? kEqual : kDifferent;
  }
  // The length octets are folded with the rest, so names whose runs of spaces differ stay unequal.
  CvelString mine;
  CvelString theirs;
  cvelFoldPrintable(value_, mine);
  cvelFoldPrintable(other.value_, theirs);
  return mine.equals(theirs) ? kEqual : kDifferent;
}

void CvelDName::reset() {
  release();
  encoded_.release();
}

void CvelDName::scan(const CvelString& der, const CvelA1Context& nameElement, CvelNameScan& out) {
  out.element.copyState(nameElement);
  out.count = 0;
  CvelA1Context set;
  out.startsWithSet = nameElement.firstChild(der, set) == kTagSet;
  for (int32_t tag = out.startsWithSet ? kTagSet : CvelA1Context::kEnd; tag == kTagSet; tag = set.next(der)) {
    CvelA1Context child;
    for (int32_t inner = set.firstChild(der, child); inner == kTagSequence; inner = child.next(der)) {
      if (out.count < CvelNameScan::kKept) out.at[out.count].copyState(child);
      ++out.count;
    }
  }
}

CvelResult CvelDName::parse(const CvelString& der, CvelA1Context* reader, CvelKeep keep) {
  clear();
  encoded_.release();
  CvelA1CursorOrFresh reading(reader);
  if (reading.get().next(der) != kTagSequence) return 0;
  CvelNameScan found;
  scan(der, reading.get(), found);
  return parseScanned(der, found, keep);
}

CvelResult CvelDName::parseScanned(const CvelString& der, const CvelNameScan& scan, CvelKeep keep,
                                   CvelBlockStore* store) {
  clear();
  encoded_.release();
  // An empty Name (no RDN at all) is not a name.
  if (!scan.startsWithSet) return 0;
  uint32_t added = 0;
  uint32_t left = scan.count;
  CvelRDName* block = makeElements(left, store);
  if (block == nullptr) left = 0;
  if (scan.complete()) {
    // The same attributes in the same order as the walk below would meet them.
    for (uint32_t i = 0; i < scan.count; ++i, ++added) {
      CvelResult r = addAttribute(*this, der, scan.at[i], keep, block, left);
      if (r != kCvelOk) return r;
    }
  } else {
    CvelA1Context set;
    for (int32_t tag = scan.element.firstChild(der, set); tag == kTagSet; tag = set.next(der)) {
      CvelResult r = addSet(*this, der, set, keep, added, block, left);
      if (r != kCvelOk) return r;
    }
  }

  if (added == 0) return 0;
  return scan.element.takeElement(der, encoded_, keep);
}

int CvelDName::equals(const CvelDName& other) const {
  if (size() != other.size()) return kDifferent;
  for (uint32_t i = 0; i < size(); ++i) {
    CvelRDName* mine = nullptr;
    CvelRDName* theirs = nullptr;
    if (get(i, mine) != kCvelOk || other.get(i, theirs) != kCvelOk) return kDifferent;
    if (mine == nullptr || theirs == nullptr) {
      if (mine != theirs) return kDifferent;
      continue;
    }
    if (mine->equals(*theirs) != kEqual) return kDifferent;
  }
  return kEqual;
}

CvelResult CvelDName::encode(CvelString& out) const {
  // Kept empty on purpose: the DER of a parsed name is encoded().
  out.release();
  return 0;
}
