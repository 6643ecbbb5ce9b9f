// The well-known CMS attributes decoded for `kolvari inspect`: content type, signing time, message digest,
// signing-certificate and signing-certificate-v2. Other attributes are shown as DER only.
#ifndef KOLVARI_TOOLS_INSPECT_ATTRIBUTE_VIEW_H
#define KOLVARI_TOOLS_INSPECT_ATTRIBUTE_VIEW_H

#include <string>

#include "contents_tree.h"

class CvelString;

// The one value (a whole DER element) of the attribute of type dotted, decoded: an OID object for a
// content type, the time text for a signing time, the hex of a message digest, the list of certificate
// identifiers of a signing certificate. Null for another type, or a value that does not decode.
InspectValue decodedAttribute(const std::string& dotted, const CvelString& value);

#endif  // KOLVARI_TOOLS_INSPECT_ATTRIBUTE_VIEW_H
