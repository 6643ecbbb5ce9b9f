#include "pdf/pdf_update.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <limits>
#include <map>
#include <set>

#include <qpdf/QPDF.hh>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFObjectHandle.hh>

#include "pdf/pdf_appearance.h"

namespace {

constexpr char kPdfHeader[] = "%PDF-";
constexpr char kStartXref[] = "startxref";
// %%EOF sits within the last kilobyte of a PDF; readers look a little further back for the startxref before it.
constexpr size_t kTailWindow = 1024 + 30;
constexpr int kWidgetFlags = 132;          // Print (4) | Locked (128)
constexpr int kSigFlags = 3;               // SignaturesExist | AppendOnly
constexpr size_t kByteRangeDigits = 10;    // each /ByteRange number is written in a fixed-width slot
// The largest input: with the update a file stays well below what kByteRangeDigits and four-byte offsets hold.
constexpr size_t kMaxInput = 1000000000;
// An update cannot be added to an encrypted file without its key; the same words for signing and extending.
constexpr char kEncrypted[] = "the PDF is encrypted; decrypt it first (or sign before encrypting)";

bool isPdfSpace(unsigned char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f' || c == 0; }

// White space as the reader of the input (qpdf) takes it between tokens: a vertical tab as well.
bool isReaderSpace(unsigned char c) { return isPdfSpace(c) || c == '\v'; }

// The characters that end a PDF token without being part of it.
bool isPdfDelimiter(unsigned char c) {
  return c == '(' || c == ')' || c == '<' || c == '>' || c == '[' || c == ']' || c == '{' || c == '}' || c == '/' ||
         c == '%';
}

bool endsToken(const Bytes& data, size_t i) {
  return i == data.size() || isReaderSpace(data[i]) || isPdfDelimiter(data[i]);
}

std::string numberText(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", value);
  return text;
}

// A text string for a dictionary value, in PDFDocEncoding or UTF-16BE as the text needs.
std::string textString(const std::string& utf8) { return QPDFObjectHandle::newUnicodeString(utf8).unparse(); }

std::string reference(const QPDFObjGen& og) {
  return std::to_string(og.getObj()) + " " + std::to_string(og.getGen()) + " R";
}

// The objects of the update: new ones and rewritten ones, by number.
using UpdateObjects = PdfUpdateObjects;

void rewrite(UpdateObjects& objects, QPDFObjectHandle object) {
  objects[object.getObjGen().getObj()] = {object.getObjGen().getGen(), object.unparseResolved()};
}

// The names of the form's top-level fields, so that the new field, also at the top level, takes a free one.
// False when the form lists an entry that does not read as a field: its name is unknown, and a new field
// could take it.
bool topLevelFieldNames(QPDFObjectHandle fields, std::set<std::string>& names) {
  if (!fields.isArray()) return true;
  for (QPDFObjectHandle field : fields.getArrayAsVector()) {
    if (!field.isDictionary()) return false;
    QPDFObjectHandle name = field.getKey("/T");
    if (name.isString()) names.insert(name.getUTF8Value());
  }
  return true;
}

// The top-level field whose /T is name; an uninitialised handle when there is none.
QPDFObjectHandle findTopLevelField(QPDFObjectHandle fields, const std::string& name) {
  if (!fields.isArray()) return QPDFObjectHandle();
  for (QPDFObjectHandle field : fields.getArrayAsVector()) {
    QPDFObjectHandle title = field.getKey("/T");
    if (title.isString() && title.getUTF8Value() == name) return field;
  }
  return QPDFObjectHandle();
}

// An existing field takes the signature when it is an empty signature field that the update can rewrite: /FT
// /Sig (a top-level field inherits it from no one), no /V yet, an object of its own, and /Kids, when
// present, only widgets (no child fields with names of their own).
bool canFillField(QPDFObjectHandle field, const std::string& name, std::string& error) {
  if (!field.isDictionary()) {
    error = "the field " + name + " is not a dictionary";
    return false;
  }
  QPDFObjectHandle type = field.getKey("/FT");
  if (!type.isNameAndEquals("/Sig")) {
    error = "the field " + name + " is not a signature field (/FT " + (type.isName() ? type.getName() : "missing") +
            ")";
    return false;
  }
  if (!field.getKey("/V").isNull()) {
    error = "the field " + name + " is already signed";
    return false;
  }
  if (!field.isIndirect()) {
    error = "the field " + name + " is not an object of its own, so it cannot be rewritten";
    return false;
  }
  QPDFObjectHandle kids = field.getKey("/Kids");
  if (kids.isArray()) {
    for (QPDFObjectHandle kid : kids.getArrayAsVector()) {
      if (!kid.isDictionary() || kid.hasKey("/T")) {
        error = "the field " + name + " has fields under it, not only widgets";
        return false;
      }
      if (kid.hasKey("/V")) {
        error = "the field " + name + " is already signed";
        return false;
      }
    }
  }
  return true;
}

// The field dictionary with /V naming the signature. Written into the text: qpdf drops a key whose value is an
// object that the file does not hold yet. unparseResolved gives "<< ... >>" for a dictionary.
std::string withValue(QPDFObjectHandle field, const QPDFObjGen& signature) {
  std::string body = field.unparseResolved();
  const std::string close = ">>";
  body.insert(body.size() - close.size(), "/V " + reference(signature) + " ");
  return body;
}

// The field and each of its widgets under /Kids take /V. The value belongs to the field and the widgets would
// inherit it; poppler (pdfsig, Okular) reads a signature's value from the widget only, and without the
// entry there shows the field as unsigned. Widgets written inline in /Kids have no number to rewrite.
void setValue(QPDFObjectHandle field, const QPDFObjGen& signature, UpdateObjects& objects) {
  objects[field.getObjGen().getObj()] = {field.getObjGen().getGen(), withValue(field, signature)};
  QPDFObjectHandle kids = field.getKey("/Kids");
  if (!kids.isArray()) return;
  for (QPDFObjectHandle kid : kids.getArrayAsVector()) {
    if (kid.isIndirect()) objects[kid.getObjGen().getObj()] = {kid.getObjGen().getGen(), withValue(kid, signature)};
  }
}

std::string freeFieldName(const std::set<std::string>& taken) {
  for (int n = 1;; ++n) {
    std::string name = "Signature" + std::to_string(n);
    if (taken.count(name) == 0) return name;
  }
}

struct Reading {
  QPDFObjectHandle trailer;
  QPDFObjectHandle root;
  QPDFObjectHandle page;
  int nextNumber = 0;
};

bool readInput(QPDF& pdf, const PdfSignatureFields& fields, Reading& r, std::string& error) {
  r.trailer = pdf.getTrailer();
  r.root = pdf.getRoot();
  if (!r.root.isDictionary() || !r.root.isIndirect()) {
    error = "the PDF has no document catalog";
    return false;
  }
  // Read before the page list: qpdf may make new objects while it reads the page tree (a copy of a page that
  // is listed twice), and those are not in the file.
  const long long known = static_cast<long long>(pdf.getObjectCount()) + 1;
  const std::vector<QPDFObjectHandle>& pages = pdf.getAllPages();
  const int page = fields.visible ? fields.box.page : 1;
  if (page < 1 || static_cast<size_t>(page) > pages.size()) {
    error = "the PDF has " + std::to_string(pages.size()) + " page(s); there is no page " + std::to_string(page);
    return false;
  }
  r.page = pages[static_cast<size_t>(page - 1)];
  if (!r.page.isIndirect() || r.page.getObjGen().getObj() >= known) {
    error = "page " + std::to_string(page) + " is not an object of the file";
    return false;
  }
  QPDFObjectHandle size = r.trailer.getKey("/Size");
  const long long declared = size.isInteger() ? size.getIntValue() : 0;
  // Room for the update's new objects and its cross-reference stream above the largest number in use.
  constexpr long long kNewObjects = 4;
  const long long next = std::max(declared, static_cast<long long>(pdf.getObjectCount()) + 1);
  if (declared < 0 || next > std::numeric_limits<int>::max() - kNewObjects) {
    error = "the trailer's /Size is out of range";
    return false;
  }
  r.nextNumber = static_cast<int>(next);
  return true;
}

// Adds the widget to the page's /Annots, rewriting the page or the array the page points at.
void addToAnnots(const Reading& r, QPDFObjectHandle widgetRef, UpdateObjects& objects) {
  QPDFObjectHandle page = r.page;
  QPDFObjectHandle annots = page.getKey("/Annots");
  if (annots.isArray() && annots.isIndirect()) {
    annots.appendItem(widgetRef);
    rewrite(objects, annots);
    return;
  }
  QPDFObjectHandle list = QPDFObjectHandle::newArray();
  if (annots.isArray()) {
    for (QPDFObjectHandle a : annots.getArrayAsVector()) list.appendItem(a);
  }
  list.appendItem(widgetRef);
  page.replaceKey("/Annots", list);
  rewrite(objects, page);
}

// Adds the field to /AcroForm /Fields (unless fieldRef is uninitialised: a field the form lists already) and
// sets /SigFlags 3; an existing form keeps its fields and entries.
void addToForm(const Reading& r, QPDFObjectHandle fieldRef, UpdateObjects& objects) {
  QPDFObjectHandle root = r.root;
  QPDFObjectHandle form = root.getKey("/AcroForm");
  const bool formIndirect = form.isDictionary() && form.isIndirect();
  if (!form.isDictionary()) form = QPDFObjectHandle::newDictionary();
  QPDFObjectHandle fields = form.getKey("/Fields");
  if (!fieldRef.isInitialized()) {
    // Listed already.
  } else if (fields.isArray() && fields.isIndirect()) {
    fields.appendItem(fieldRef);
    rewrite(objects, fields);
  } else {
    QPDFObjectHandle list = QPDFObjectHandle::newArray();
    if (fields.isArray()) {
      for (QPDFObjectHandle f : fields.getArrayAsVector()) list.appendItem(f);
    }
    list.appendItem(fieldRef);
    form.replaceKey("/Fields", list);
  }
  form.replaceKey("/SigFlags", QPDFObjectHandle::newInteger(kSigFlags));
  if (formIndirect) {
    rewrite(objects, form);
  } else {
    root.replaceKey("/AcroForm", form);
    rewrite(objects, root);
  }
}

std::string signatureDictionary(const PdfSignatureFields& f, size_t contentsCapacity) {
  std::string d = f.documentTimeStamp ? "<< /Type /DocTimeStamp /Filter /Adobe.PPKLite /SubFilter /ETSI.RFC3161"
                                      : "<< /Type /Sig /Filter /Adobe.PPKLite /SubFilter /ETSI.CAdES.detached";
  if (!f.documentTimeStamp) d += " /M " + textString(f.pdfTime);
  if (!f.name.empty()) d += " /Name " + textString(f.name);
  if (!f.reason.empty()) d += " /Reason " + textString(f.reason);
  if (!f.location.empty()) d += " /Location " + textString(f.location);
  if (!f.contactInfo.empty()) d += " /ContactInfo " + textString(f.contactInfo);
  // Filled in once the update's length is known: three fixed-width slots.
  const std::string slot(kByteRangeDigits, '0');
  d += "\n/ByteRange [0 " + slot + " " + slot + " " + slot + "]";
  d += "\n/Contents <" + std::string(2 * contentsCapacity, '0') + "> >>";
  return d;
}

std::string widgetDictionary(const PdfSignatureFields& f, const std::string& fieldName, const QPDFObjGen& page,
                             const QPDFObjGen& signature, int appearance) {
  std::string rect = "[0 0 0 0]";
  if (f.visible) {
    rect = "[" + numberText(f.box.x) + " " + numberText(f.box.y) + " " + numberText(f.box.x + f.box.width) + " " +
           numberText(f.box.y + f.box.height) + "]";
  }
  std::string d = "<< /Type /Annot /Subtype /Widget /FT /Sig /T " + textString(fieldName) + " /V " +
                  reference(signature) + " /F " + std::to_string(kWidgetFlags) + " /Rect " + rect + " /P " +
                  reference(page);
  if (appearance > 0) d += " /AP << /N " + std::to_string(appearance) + " 0 R >>";
  return d + " >>";
}

// The trailer entries an update carries over: /Root, /Info and /ID.
std::string carriedTrailerEntries(QPDFObjectHandle trailer) {
  std::string t;
  for (const char* key : {"/Root", "/Info", "/ID"}) {
    QPDFObjectHandle v = trailer.getKey(key);
    if (v.isNull()) continue;
    t += std::string(" ") + key + " " + (v.isIndirect() ? reference(v.getObjGen()) : v.unparse());
  }
  return t;
}

// Consecutive object numbers grouped as (first, count) runs for the subsection headers and /Index.
std::vector<std::pair<int, int>> runsOf(const std::map<int, size_t>& offsets) {
  std::vector<std::pair<int, int>> runs;
  for (const auto& [number, offset] : offsets) {
    if (!runs.empty() && runs.back().first + runs.back().second == number) {
      ++runs.back().second;
    } else {
      runs.emplace_back(number, 1);
    }
  }
  return runs;
}

void appendText(Bytes& out, const std::string& text) { out.insert(out.end(), text.begin(), text.end()); }

void appendTable(Bytes& out, const std::map<int, size_t>& offsets, const std::map<int, int>& generations,
                 const std::string& trailer) {
  const size_t start = out.size();
  std::string x = "xref\n";
  for (const auto& [first, count] : runsOf(offsets)) {
    x += std::to_string(first) + " " + std::to_string(count) + "\n";
    for (int n = first; n < first + count; ++n) {
      char entry[32];
      std::snprintf(entry, sizeof entry, "%010zu %05d n\r\n", offsets.at(n), generations.at(n));
      x += entry;
    }
  }
  x += "trailer\n" + trailer + "\nstartxref\n" + std::to_string(start) + "\n%%EOF\n";
  appendText(out, x);
}

void appendXrefStream(Bytes& out, int number, std::map<int, size_t> offsets, std::map<int, int> generations,
                      const std::string& entries) {
  const size_t start = out.size();
  offsets[number] = start;
  generations[number] = 0;
  // Offsets fit four bytes: inputs are limited to kMaxInput.
  constexpr int kOffsetWidth = 4;
  constexpr int kGenerationWidth = 2;
  std::string data;
  for (const auto& [n, offset] : offsets) {
    data.push_back(1);  // type 1: an object at a byte offset
    for (int i = kOffsetWidth - 1; i >= 0; --i) data.push_back(static_cast<char>((offset >> (8 * i)) & 0xFF));
    const int gen = generations[n];
    data.push_back(static_cast<char>((gen >> 8) & 0xFF));
    data.push_back(static_cast<char>(gen & 0xFF));
  }
  std::string index;
  for (const auto& [first, count] : runsOf(offsets)) {
    index += (index.empty() ? "" : " ") + std::to_string(first) + " " + std::to_string(count);
  }
  std::string x = std::to_string(number) + " 0 obj\n<< /Type /XRef" + entries + " /W [1 " +
                  std::to_string(kOffsetWidth) + " " + std::to_string(kGenerationWidth) + "] /Index [" + index +
                  "] /Length " + std::to_string(data.size()) + " >>\nstream\n" + data + "\nendstream\nendobj\n";
  x += "startxref\n" + std::to_string(start) + "\n%%EOF\n";
  appendText(out, x);
}

// "%PDF-" and a version: readers look further into the file for a header only when this one is missing.
bool beginsWithHeader(const Bytes& data) {
  const std::string header = kPdfHeader;
  const size_t n = header.size();
  auto digit = [&](size_t i) { return data[i] >= '0' && data[i] <= '9'; };
  return data.size() >= n + 3 && std::equal(header.begin(), header.end(), data.begin()) && digit(n) &&
         data[n + 1] == '.' && digit(n + 2);
}

// What follows a startxref keyword, read as a reader's tokenizer reads it: the keyword must be a word of its
// own, white space and comments are passed over, and the next token must be an integer (a sign allowed),
// ended by white space, a delimiter or the end of the data.
enum class StartXref { kNotInteger, kInteger, kIntegerOutOfFile };

StartXref readOffsetAfter(const Bytes& data, size_t i, size_t& offset) {
  if (!endsToken(data, i)) return StartXref::kNotInteger;  // "startxref5" is one word, not the keyword
  while (i < data.size()) {
    if (isReaderSpace(data[i])) {
      ++i;
    } else if (data[i] == '%') {
      while (i < data.size() && data[i] != '\n' && data[i] != '\r') ++i;
    } else {
      break;
    }
  }
  bool negative = false;
  if (i < data.size() && (data[i] == '+' || data[i] == '-')) negative = data[i++] == '-';
  constexpr size_t kMaxDigits = 19;
  size_t digits = 0;
  unsigned long long value = 0;
  for (; i < data.size() && data[i] >= '0' && data[i] <= '9'; ++i) {
    if (++digits <= kMaxDigits) value = value * 10 + static_cast<unsigned>(data[i] - '0');
  }
  if (digits == 0 || !endsToken(data, i)) return StartXref::kNotInteger;
  // An integer token that names no offset in the file: readers take it all the same, and fail on it.
  if (digits > kMaxDigits || (negative && value != 0) || value >= data.size()) return StartXref::kIntegerOutOfFile;
  offset = static_cast<size_t>(value);
  return StartXref::kInteger;
}

size_t findText(const Bytes& data, const std::string& text, size_t from) {
  auto at = std::search(data.begin() + static_cast<std::ptrdiff_t>(from), data.end(), text.begin(), text.end());
  return at == data.end() ? std::string::npos : static_cast<size_t>(at - data.begin());
}

// A new signature field with its widget on the page (and its appearance when visible), listed in the form.
void addNewField(QPDF& pdf, const Reading& r, const PdfSignatureFields& fields, size_t contentsCapacity,
                 const std::string& fieldName, UpdateObjects& objects, int& signatureNumber, int& size) {
  int next = r.nextNumber;
  const int signature = next++;
  signatureNumber = signature;
  const int widget = next++;
  const int appearance = fields.visible ? next : 0;
  const std::vector<std::string> appearanceObjects =
      fields.visible ? pdfAppearanceObjects(fields, appearance) : std::vector<std::string>();
  next += static_cast<int>(appearanceObjects.size());
  // Handles that stand for the new objects, so that qpdf writes references to them in rewritten objects.
  QPDFObjectHandle widgetRef = pdf.getObject(widget, 0);
  addToAnnots(r, widgetRef, objects);
  addToForm(r, widgetRef, objects);
  objects[signature] = {0, signatureDictionary(fields, contentsCapacity)};
  objects[widget] = {0, widgetDictionary(fields, fieldName, r.page.getObjGen(), QPDFObjGen(signature, 0),
                                         appearance)};
  for (size_t i = 0; i < appearanceObjects.size(); ++i) {
    objects[appearance + static_cast<int>(i)] = {0, appearanceObjects[i]};
  }
  size = next;
}

}  // namespace

bool findLastCrossReference(const Bytes& data, size_t& offset, bool& isTable) {
  const size_t from = data.size() > kTailWindow ? data.size() - kTailWindow : 0;
  const std::string keyword = kStartXref;
  // The last keyword followed by an integer is the one readers take: a keyword followed by anything else
  // (a number that runs into other characters, a real) is passed over, as they pass it over.
  std::vector<size_t> found;
  for (size_t next = findText(data, keyword, from); next != std::string::npos;
       next = findText(data, keyword, next + 1)) {
    found.push_back(next);
  }
  for (auto at = found.rbegin(); at != found.rend(); ++at) {
    const StartXref read = readOffsetAfter(data, *at + keyword.size(), offset);
    if (read == StartXref::kIntegerOutOfFile) return false;  // the one readers take, and it points nowhere
    if (read == StartXref::kInteger) {
      size_t start = offset;
      while (start < data.size() && isPdfSpace(data[start])) ++start;
      const std::string xref = "xref";
      isTable = data.size() - start >= xref.size() &&
                std::equal(xref.begin(), xref.end(), data.begin() + static_cast<std::ptrdiff_t>(start));
      return true;
    }
  }
  return false;
}

bool checkPdfFieldName(const std::string& name, std::string& error) {
  if (name.empty()) {
    error = "a field name cannot be empty";
    return false;
  }
  if (name.find('.') != std::string::npos) {
    error = "a field name cannot hold a period: it joins the names of nested fields";
    return false;
  }
  return true;
}

std::string pdfCarriedTrailerEntries(const QPDFObjectHandle& trailer) { return carriedTrailerEntries(trailer); }

bool readPdfUpdateBase(const Bytes& input, PdfUpdateBase& base, std::string& error) {
  if (input.size() > kMaxInput) {
    error = "the PDF is larger than " + std::to_string(kMaxInput) + " bytes";
    return false;
  }
  // Readers that find the header further in take every offset of the file as counted from there, and the
  // update's offsets and byte range are counted from the first byte: such a file is refused, not guessed at.
  if (!beginsWithHeader(input)) {
    error = std::string("not a PDF that can be updated: the file does not begin with ") + kPdfHeader + "N.N";
    return false;
  }
  if (!findLastCrossReference(input, base.previous, base.isTable)) {
    error = "not a PDF that can be read: no startxref at its end that points into the file";
    return false;
  }
  return true;
}

void appendPdfUpdate(Bytes& document, const PdfUpdateBase& base, const PdfUpdateObjects& objects, int size,
                     std::map<int, size_t>& offsets) {
  if (!document.empty() && document.back() != '\n' && document.back() != '\r') document.push_back('\n');
  std::map<int, int> generations;
  for (const auto& [number, object] : objects) {
    offsets[number] = document.size();
    generations[number] = object.generation;
    appendText(document, std::to_string(number) + " " + std::to_string(object.generation) + " obj\n");
    appendText(document, object.body);
    appendText(document, "\nendobj\n");
  }
  const std::string prev = " /Prev " + std::to_string(base.previous);
  if (base.isTable) {
    appendTable(document, offsets, generations,
                "<< /Size " + std::to_string(size) + base.trailerEntries + prev + " >>");
  } else {
    appendXrefStream(document, size, offsets, generations,
                     " /Size " + std::to_string(size + 1) + base.trailerEntries + prev);
  }
}

bool withPdfForUpdate(const Bytes& input, const std::function<bool(QPDF&)>& work, std::string& error) {
  try {
    QPDF pdf;
    pdf.setSuppressWarnings(true);
    pdf.setAttemptRecovery(false);
    pdf.processMemoryFile("input", reinterpret_cast<const char*>(input.data()), input.size());
    if (pdf.isEncrypted()) {
      error = kEncrypted;
      return false;
    }
    return work(pdf);
  } catch (const QPDFExc& e) {
    error = e.getErrorCode() == qpdf_e_password ? kEncrypted : std::string("cannot read the PDF: ") + e.what();
  } catch (const std::exception& e) {
    error = std::string("cannot read the PDF: ") + e.what();
  }
  return false;
}

bool preparePdfUpdate(const Bytes& input, const PdfSignatureFields& fields, size_t contentsCapacity,
                      PdfPreparedUpdate& out, std::string& error) {
  PdfUpdateBase base;
  if (!readPdfUpdateBase(input, base, error)) return false;
  UpdateObjects objects;
  std::string& trailerEntries = base.trailerEntries;
  int size = 0;
  int signatureNumber = 0;
  const bool read = withPdfForUpdate(input, [&](QPDF& pdf) {
    Reading r;
    if (!readInput(pdf, fields, r, error)) return false;

    std::set<std::string> taken;
    if (!topLevelFieldNames(r.root.getKey("/AcroForm").getKey("/Fields"), taken)) {
      error = "the PDF's form lists a field that cannot be read";
      return false;
    }
    if (!fields.fieldName.empty() && !checkPdfFieldName(fields.fieldName, error)) return false;
    out.fieldName = fields.fieldName.empty() ? freeFieldName(taken) : fields.fieldName;
    if (taken.count(out.fieldName) != 0) {
      QPDFObjectHandle existing = findTopLevelField(r.root.getKey("/AcroForm").getKey("/Fields"), out.fieldName);
      if (!canFillField(existing, out.fieldName, error)) return false;
      if (fields.visible) {
        error = "--visible: the field " + out.fieldName + " has its own widget; sign into it without --visible";
        return false;
      }
      signatureNumber = r.nextNumber;
      size = signatureNumber + 1;
      // The field keeps its number, its widgets and their pages; only its value is new.
      setValue(existing, QPDFObjGen(signatureNumber, 0), objects);
      addToForm(r, QPDFObjectHandle(), objects);
      objects[signatureNumber] = {0, signatureDictionary(fields, contentsCapacity)};
      trailerEntries = carriedTrailerEntries(r.trailer);
    } else {
      addNewField(pdf, r, fields, contentsCapacity, out.fieldName, objects, signatureNumber, size);
      trailerEntries = carriedTrailerEntries(r.trailer);
    }
    return true;
  }, error);
  if (!read) return false;

  out.document = input;
  std::map<int, size_t> offsets;
  appendPdfUpdate(out.document, base, objects, size, offsets);

  // The placeholder and the byte range, now that every offset is known.
  const std::string contentsKey = "/Contents <";
  const std::string byteRangeKey = "/ByteRange [0 ";
  const size_t byteRange = findText(out.document, byteRangeKey, offsets.at(signatureNumber)) + byteRangeKey.size();
  out.contentsStart = findText(out.document, contentsKey, offsets.at(signatureNumber)) + contentsKey.size() - 1;
  out.contentsEnd = out.contentsStart + 2 * contentsCapacity + 2;
  const size_t ranges[] = {out.contentsStart, out.contentsEnd, out.document.size() - out.contentsEnd};
  for (size_t i = 0; i < 3; ++i) {
    char slot[kByteRangeDigits + 1];
    std::snprintf(slot, sizeof slot, "%*zu", static_cast<int>(kByteRangeDigits), ranges[i]);
    std::copy(slot, slot + kByteRangeDigits, out.document.begin() + static_cast<std::ptrdiff_t>(byteRange + i * (kByteRangeDigits + 1)));
  }
  return true;
}

std::vector<ByteSpan> pdfSignedSpans(const PdfPreparedUpdate& update) {
  const unsigned char* document = update.document.data();
  return {{document, update.contentsStart},
          {document + update.contentsEnd, update.document.size() - update.contentsEnd}};
}

bool fillPdfContents(PdfPreparedUpdate& update, const Bytes& cms, std::string& error) {
  const size_t capacity = (update.contentsEnd - update.contentsStart - 2) / 2;
  if (cms.size() > capacity) {
    error = "the signature (" + std::to_string(cms.size()) + " bytes) does not fit the " + std::to_string(capacity) +
            " bytes set aside for it";
    return false;
  }
  constexpr char kHex[] = "0123456789ABCDEF";
  size_t at = update.contentsStart + 1;
  for (unsigned char b : cms) {
    update.document[at++] = static_cast<unsigned char>(kHex[b >> 4]);
    update.document[at++] = static_cast<unsigned char>(kHex[b & 0x0F]);
  }
  return true;
}
