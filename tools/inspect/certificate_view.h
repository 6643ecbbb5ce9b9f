// A parsed certificate as `kolvari cert` prints it: the DER of each part in hex, the times, the names as
// RFC 4514 strings and attribute by attribute, the algorithms by name, the extensions.
#ifndef KOLVARI_TOOLS_INSPECT_CERTIFICATE_VIEW_H
#define KOLVARI_TOOLS_INSPECT_CERTIFICATE_VIEW_H

#include <string>

#include "inspect/json_output.h"

class CvelCertificate;

// The object `kolvari cert --json` prints (schema in README.md).
Json certificateJson(const CvelCertificate& certificate);

// The text `kolvari cert` prints.
std::string certificateText(const CvelCertificate& certificate);

// Prints certificate on standard output as `kolvari cert` does, as text or as one JSON object.
void printCertificate(const CvelCertificate& certificate, bool json);

#endif  // KOLVARI_TOOLS_INSPECT_CERTIFICATE_VIEW_H
