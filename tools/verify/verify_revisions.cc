#include "verify/verify_revisions.h"

#include <exception>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFXRefEntry.hh>

namespace {

// Revisions examined per file; later ones are reported as other changes.
constexpr size_t kMaxRevisionsExamined = 64;
// Objects judged per revision; a revision that changes more is other changes.
constexpr size_t kMaxChangedObjects = 10000;
// The walk through the DSS: its depth (DSS, /VRI, an entry, a list, a stream) and the objects it visits.
constexpr int kMaxDssDepth = 6;
constexpr size_t kMaxDssObjects = 20000;

constexpr int kXRefInFile = 1;
constexpr int kXRefInObjectStream = 2;

// What one changed object is, as bits: several objects of one revision add up.
enum ChangeBits : unsigned { kNeutral = 0, kDssBit = 1, kFormBit = 2, kAnnotationBit = 4, kOtherBit = 8 };

using XRef = std::map<QPDFObjGen, QPDFXRefEntry>;

struct LoadedRevision {
  std::unique_ptr<QPDF> pdf;
  XRef xref;
};

// The file up to end as qpdf reads it, without reconstructing a damaged cross-reference (which would make
// every object look changed); throws when it is not a PDF.
LoadedRevision load(const Bytes& file, long long end) {
  LoadedRevision r{std::make_unique<QPDF>(), {}};
  r.pdf->setSuppressWarnings(true);
  r.pdf->setAttemptRecovery(false);
  r.pdf->processMemoryFile("revision", reinterpret_cast<const char*>(file.data()), static_cast<size_t>(end));
  r.xref = r.pdf->getXRefTable();
  return r;
}

bool sameEntry(const QPDFXRefEntry& a, const QPDFXRefEntry& b) {
  if (a.getType() != b.getType()) return false;
  if (a.getType() == kXRefInFile) return a.getOffset() == b.getOffset();
  if (a.getType() == kXRefInObjectStream) {
    return a.getObjStreamNumber() == b.getObjStreamNumber() && a.getObjStreamIndex() == b.getObjStreamIndex();
  }
  return true;
}

// The objects the newer revision adds or replaces; an object left in place inside an object stream that the
// revision rewrote counts as replaced. dropped tells whether the revision removes an object.
std::set<QPDFObjGen> changedObjects(const XRef& before, const XRef& after, bool& dropped) {
  std::set<QPDFObjGen> changed;
  std::set<int> rewritten;
  for (const auto& [og, entry] : after) {
    const auto it = before.find(og);
    if (it != before.end() && sameEntry(it->second, entry)) continue;
    changed.insert(og);
    if (entry.getType() == kXRefInFile) rewritten.insert(og.getObj());
  }
  for (const auto& [og, entry] : after) {
    if (entry.getType() == kXRefInObjectStream && rewritten.count(entry.getObjStreamNumber()) != 0) {
      changed.insert(og);
    }
  }
  dropped = false;
  for (const auto& kept : before) dropped = dropped || after.count(kept.first) == 0;
  return changed;
}

std::string nameOf(QPDFObjectHandle dictionary, const char* key) {
  QPDFObjectHandle v = dictionary.getKey(key);
  return v.isName() ? v.getName() : std::string();
}

// The indirect objects that make up the DSS: the store, its lists and /VRI, and the streams they name.
std::set<QPDFObjGen> dssObjects(QPDFObjectHandle dss) {
  std::set<QPDFObjGen> seen;
  std::vector<std::pair<QPDFObjectHandle, int>> stack{{dss, 0}};
  size_t visited = 0;
  while (!stack.empty() && visited++ < kMaxDssObjects && stack.size() < kMaxDssObjects) {
    auto [o, depth] = stack.back();
    stack.pop_back();
    if (o.isIndirect() && !seen.insert(o.getObjGen()).second) continue;
    if (depth >= kMaxDssDepth) continue;
    if (o.isArray()) {
      for (int i = 0; i < o.getArrayNItems(); ++i) stack.emplace_back(o.getArrayItem(i), depth + 1);
    } else if (o.isDictionary()) {
      for (const std::string& key : o.getKeys()) stack.emplace_back(o.getKey(key), depth + 1);
    }
  }
  return seen;
}

// The keys whose values differ between two dictionaries, compared as text (indirect values by reference).
std::set<std::string> differingKeys(QPDFObjectHandle a, QPDFObjectHandle b) {
  std::set<std::string> keys;
  if (!a.isDictionary() || !b.isDictionary()) return {"*"};
  std::set<std::string> all = a.getKeys();
  for (const std::string& k : b.getKeys()) all.insert(k);
  for (const std::string& k : all) {
    if (a.getKey(k).unparse() != b.getKey(k).unparse()) keys.insert(k);
  }
  return keys;
}

struct Revisions {
  QPDF& before;
  QPDF& after;
  const XRef& beforeXRef;
  QPDFObjGen root;
  QPDFObjGen acroForm;
  QPDFObjGen fields;
  QPDFObjGen info;
  std::set<QPDFObjGen> dss;
};

unsigned catalogChange(const Revisions& r) {
  unsigned bits = kNeutral;
  for (const std::string& key : differingKeys(r.before.getRoot(), r.after.getRoot())) {
    bits |= key == "/DSS" ? kDssBit : key == "/AcroForm" ? kFormBit : kOtherBit;
  }
  return bits;
}

// A page whose only change is its /Annots array changed its annotations.
unsigned pageChange(const Revisions& r, QPDFObjGen og, QPDFObjectHandle page) {
  if (r.beforeXRef.count(og) == 0) return kOtherBit;
  unsigned bits = kNeutral;
  for (const std::string& key : differingKeys(r.before.getObject(og), page)) {
    bits |= key == "/Annots" ? kAnnotationBit : kOtherBit;
  }
  return bits;
}

unsigned dictionaryChange(QPDFObjectHandle d) {
  const std::string type = nameOf(d, "/Type");
  const std::string subtype = nameOf(d, "/Subtype");
  if (type == "/Sig" || type == "/DocTimeStamp" || subtype == "/Widget" || d.hasKey("/FT")) return kFormBit;
  if (type == "/Annot" || (!subtype.empty() && d.hasKey("/Rect"))) return kAnnotationBit;
  if (d.hasKey("/T") && (d.hasKey("/Kids") || d.hasKey("/Parent"))) return kFormBit;
  if (type == "/Font" || type == "/FontDescriptor" || type == "/Encoding") return kNeutral;
  return kOtherBit;
}

// An array of annotations (a page's /Annots): widgets are form filling, the others annotations.
unsigned arrayChange(QPDFObjectHandle a) {
  unsigned bits = kAnnotationBit;
  for (int i = 0; i < a.getArrayNItems(); ++i) {
    QPDFObjectHandle item = a.getArrayItem(i);
    if (!item.isDictionary() || !item.hasKey("/Subtype")) return kOtherBit;
    if (nameOf(item, "/Subtype") == "/Widget") bits = kFormBit;
  }
  return bits;
}

unsigned changeOf(const Revisions& r, QPDFObjGen og) {
  if (r.dss.count(og) != 0) return kDssBit;
  if (og == r.info) return kNeutral;  // the document information (a new modification date)
  if (og == r.acroForm || og == r.fields) return kFormBit;
  if (og == r.root) return catalogChange(r);
  QPDFObjectHandle o = r.after.getObject(og);
  if (o.isStream()) {
    QPDFObjectHandle d = o.getDict();
    const std::string type = nameOf(d, "/Type");
    // Cross-reference and object streams hold the revision; metadata and appearance streams go with what
    // the revision changes.
    const bool neutral = type == "/XRef" || type == "/ObjStm" || type == "/Metadata" || nameOf(d, "/Subtype") == "/Form";
    return neutral ? kNeutral : kOtherBit;
  }
  if (o.isArray()) return arrayChange(o);
  if (!o.isDictionary()) return kOtherBit;
  if (nameOf(o, "/Type") == "/Page") return pageChange(r, og, o);
  return dictionaryChange(o);
}

QPDFObjGen objGenOf(QPDFObjectHandle o) { return o.isIndirect() ? o.getObjGen() : QPDFObjGen(); }

std::string kindOf(unsigned bits) {
  if ((bits & kOtherBit) != 0 || bits == kNeutral) return kChangeOther;
  if ((bits & kAnnotationBit) != 0) return kChangeAnnotations;
  return (bits & kFormBit) != 0 ? kChangeForm : kChangeDss;
}

std::string compare(LoadedRevision& before, LoadedRevision& after) {
  bool dropped = false;
  const std::set<QPDFObjGen> changed = changedObjects(before.xref, after.xref, dropped);
  if (dropped || changed.size() > kMaxChangedObjects) return kChangeOther;
  QPDFObjectHandle root = after.pdf->getRoot();
  QPDFObjectHandle acroForm = root.getKey("/AcroForm");
  Revisions r{*before.pdf, *after.pdf, before.xref, root.getObjGen(), objGenOf(acroForm),
              objGenOf(acroForm.getKey("/Fields")), objGenOf(after.pdf->getTrailer().getKey("/Info")),
              dssObjects(root.getKey("/DSS"))};
  unsigned bits = kNeutral;
  for (const QPDFObjGen& og : changed) bits |= changeOf(r, og);
  return kindOf(bits);
}

}  // namespace

std::vector<std::string> revisionKinds(const Bytes& file, const std::vector<long long>& ends, size_t first) {
  std::vector<std::string> kinds(ends.size());
  if (first == 0 || first >= ends.size()) return kinds;
  LoadedRevision before;
  for (size_t i = first; i < ends.size(); ++i) {
    kinds[i] = kChangeOther;
    if (i - first >= kMaxRevisionsExamined) continue;
    try {
      if (!before.pdf) before = load(file, ends[i - 1]);
      LoadedRevision after = load(file, ends[i]);
      kinds[i] = compare(before, after);
      before = std::move(after);
    } catch (const std::exception&) {
      before = LoadedRevision();  // read again for the next revision
    }
  }
  return kinds;
}
