// A signature added to a PDF as one incremental update: the input's bytes stay as they are, and after them
// come a signature dictionary, a signature field with its widget, the page and form objects that point at
// the field, and a cross-reference section of the same form as the file's last one. libqpdf reads the input's
// object graph; the update's bytes are written here.
#ifndef KOLVARI_TOOLS_PDF_PDF_UPDATE_H
#define KOLVARI_TOOLS_PDF_PDF_UPDATE_H

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "host_crypto.h"

class QPDF;
class QPDFObjectHandle;
class TrueTypeFont;

// Where the widget shows on its page, in default user space units; PAGE counts from 1.
struct PdfVisibleBox {
  int page = 1;
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
};

// What the signature dictionary and the field say. Empty texts are left out of the dictionary.
struct PdfSignatureFields {
  // Empty: a new field, the first free "SignatureN". A name the form has already must be an empty top-level
  // signature field: it takes the signature as its value and keeps its widgets (--visible is refused then).
  std::string fieldName;
  std::string reason;
  std::string location;
  std::string contactInfo;
  std::string name;
  std::string pdfTime;     // /M, D:YYYYMMDDHHmmSS+00'00'
  bool visible = false;    // without it the widget has /Rect [0 0 0 0] on the first page
  PdfVisibleBox box;
  std::string shownSigner;  // the appearance's lines, for a visible widget
  std::string shownTime;
  // With a font the appearance draws its lines in it, embedded whole (pdf/pdf_appearance.h); without,
  // in the standard Helvetica.
  std::shared_ptr<const TrueTypeFont> font;
  // A document time-stamp: /Type /DocTimeStamp, /SubFilter /ETSI.RFC3161, no /M (the token holds the time).
  bool documentTimeStamp = false;
};

// The input with the update appended and the /Contents placeholder still zeros.
struct PdfPreparedUpdate {
  Bytes document;
  size_t contentsStart = 0;  // the offset of '<'
  size_t contentsEnd = 0;    // the offset just after '>'
  std::string fieldName;     // the name the field was given
};

// Whether name can be given to a signature field: not empty, and no period (which joins the names of
// nested fields); false with the reason.
bool checkPdfFieldName(const std::string& name, std::string& error);

// Reads input with libqpdf and appends the update, with room for a CMS of up to contentsCapacity bytes.
// Encrypted files and files whose cross-reference data cannot be read as they are get false and a message.
bool preparePdfUpdate(const Bytes& input, const PdfSignatureFields& fields, size_t contentsCapacity,
                      PdfPreparedUpdate& out, std::string& error);

// The bytes the /ByteRange covers, in place: the document before the /Contents value and after it.
std::vector<ByteSpan> pdfSignedSpans(const PdfPreparedUpdate& update);

// Writes cms in hex into the placeholder; false when it does not fit.
bool fillPdfContents(PdfPreparedUpdate& update, const Bytes& cms, std::string& error);

// Where a cross-reference section starts, as the last startxref of data says, and whether it is a
// table ("xref" keyword) rather than a stream. False when data has no readable startxref.
bool findLastCrossReference(const Bytes& data, size_t& offset, bool& isTable);

// An object an incremental update writes: its generation and its body, everything between "N G obj\n" and
// "\nendobj\n" (a stream's binary data included).
struct PdfUpdateObject {
  int generation = 0;
  std::string body;
};
using PdfUpdateObjects = std::map<int, PdfUpdateObject>;

// What an update builds on: the input's last cross-reference section, its form, and the trailer entries the
// update carries over (/Root, /Info, /ID, as text).
struct PdfUpdateBase {
  size_t previous = 0;
  bool isTable = false;
  std::string trailerEntries;
};

// Checks that input can take an update (its size, its header, a startxref that points into it) and fills
// previous and isTable; false with a message.
bool readPdfUpdateBase(const Bytes& input, PdfUpdateBase& base, std::string& error);

// Reads input with libqpdf for an incremental update and runs work on it; false with a message when the file
// is encrypted or cannot be read (qpdf's exceptions inside work included) or when work says so. qpdf's repair
// is off: the update names objects by the numbers of the file's own cross-reference data, so a file that only
// reads once rebuilt is refused rather than guessed at.
bool withPdfForUpdate(const Bytes& input, const std::function<bool(QPDF&)>& work, std::string& error);

// The trailer entries an update carries over from the input's trailer: /Root, /Info and /ID.
std::string pdfCarriedTrailerEntries(const QPDFObjectHandle& trailer);

// Appends the objects to document (the input), then a cross-reference section of the input's form with /Prev
// and the carried trailer entries. size is one above the largest object number in use, the new ones included;
// offsets receives where each object starts.
void appendPdfUpdate(Bytes& document, const PdfUpdateBase& base, const PdfUpdateObjects& objects, int size,
                     std::map<int, size_t>& offsets);

#endif  // KOLVARI_TOOLS_PDF_PDF_UPDATE_H
