// A CMS signature file as the tool reads it: DER (or BER) as it is, PEM or bare base64 decoded.
#ifndef KOLVARI_TOOLS_IO_SIGNATURE_TEXT_H
#define KOLVARI_TOOLS_IO_SIGNATURE_TEXT_H

#include <string_view>
#include <vector>

// The octets of base64 text, blanks and line breaks left out; false for text that is not base64 or holds
// nothing.
bool base64Bytes(std::string_view text, std::vector<unsigned char>& out);

// The binary signature of raw; false for text that is neither PEM nor base64 of an element that starts with
// a SEQUENCE.
bool signatureBytes(const std::vector<unsigned char>& raw, std::vector<unsigned char>& der);

#endif  // KOLVARI_TOOLS_IO_SIGNATURE_TEXT_H
