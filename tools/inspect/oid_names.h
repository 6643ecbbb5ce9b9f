// Names of the object identifiers a reader of signatures and certificates meets most, as the openssl command
// prints them; others are shown dotted only.
#ifndef KOLVARI_TOOLS_INSPECT_OID_NAMES_H
#define KOLVARI_TOOLS_INSPECT_OID_NAMES_H

#include <string>

class CvelString;

// The name of a dotted OID, or null when it is not in the table.
const char* oidName(const std::string& dotted);

// The dotted text of an OBJECT IDENTIFIER element; empty when it does not decode.
std::string dottedText(const CvelString& der);

// The name of an OBJECT IDENTIFIER element, else its dotted text, else empty.
std::string oidNameOrDotted(const CvelString& der);

#endif  // KOLVARI_TOOLS_INSPECT_OID_NAMES_H
