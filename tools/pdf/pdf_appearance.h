// The appearance of a visible signature widget: a form XObject that draws a pale box with a border and two
// lines of text (the signer's name and the time). Without a font they are shown in the standard Helvetica
// with WinAnsiEncoding, so that Latin text (ü, é, ß, €, Œ...) shows as itself and a character the encoding
// lacks as '?'. With a TrueType font any script the font covers is drawn: the font is embedded whole as a
// Type0 font (CIDFontType2, Identity-H, glyph ids as CIDs) with a ToUnicode map, so that the text can be
// copied and searched.
#ifndef KOLVARI_TOOLS_PDF_PDF_APPEARANCE_H
#define KOLVARI_TOOLS_PDF_PDF_APPEARANCE_H

#include <string>
#include <vector>

#include "pdf/pdf_update.h"

// The bodies of the appearance's objects, to be numbered first, first + 1, ...: the form XObject, then with
// fields.font the Type0 font, its CIDFont, font descriptor, font file and ToUnicode map.
std::vector<std::string> pdfAppearanceObjects(const PdfSignatureFields& fields, int first);

// utf8 in WinAnsiEncoding bytes: each character the encoding has as its byte, any other (and a sequence that
// is not UTF-8) as '?'.
std::string winAnsiBytes(const std::string& utf8);

// bytes as a PDF literal string: the delimiters and the backslash escaped, bytes outside printable ASCII
// written as octal escapes.
std::string pdfLiteralString(const std::string& bytes);

#endif  // KOLVARI_TOOLS_PDF_PDF_APPEARANCE_H
