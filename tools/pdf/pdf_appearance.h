// The appearance of a visible signature widget: a form XObject that draws a pale box with a border and two
// lines of text (the signer's name and the time) in the standard Helvetica with WinAnsiEncoding, so that
// Latin text (ü, é, ß, €, Œ...) shows as itself. A character WinAnsiEncoding lacks is drawn as '?'.
#ifndef KOLVARI_TOOLS_PDF_PDF_APPEARANCE_H
#define KOLVARI_TOOLS_PDF_PDF_APPEARANCE_H

#include <string>

#include "pdf/pdf_update.h"

// The body of the appearance stream object (dictionary and stream) for the box and lines of fields.
std::string pdfAppearanceStream(const PdfSignatureFields& fields);

// utf8 in WinAnsiEncoding bytes: each character the encoding has as its byte, any other (and a sequence that
// is not UTF-8) as '?'.
std::string winAnsiBytes(const std::string& utf8);

// bytes as a PDF literal string: the delimiters and the backslash escaped, bytes outside printable ASCII
// written as octal escapes.
std::string pdfLiteralString(const std::string& bytes);

#endif  // KOLVARI_TOOLS_PDF_PDF_APPEARANCE_H
