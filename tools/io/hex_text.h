// Hexadecimal digits in text the tool reads (option values, %XX escapes in URIs).
#ifndef KOLVARI_TOOLS_IO_HEX_TEXT_H
#define KOLVARI_TOOLS_IO_HEX_TEXT_H

// The value of one hexadecimal digit (either case), or -1.
int hexDigitValue(char c);

#endif  // KOLVARI_TOOLS_IO_HEX_TEXT_H
