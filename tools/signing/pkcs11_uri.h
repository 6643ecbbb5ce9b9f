// A PKCS#11 URI (RFC 7512) as `kolvari sign --pkcs11` takes it: the token and the key it names, and where the
// PIN comes from.
#ifndef KOLVARI_TOOLS_SIGNING_PKCS11_URI_H
#define KOLVARI_TOOLS_SIGNING_PKCS11_URI_H

#include <string>

#include "host_crypto.h"

struct Pkcs11Uri {
  std::string token;   // token=, the token label
  std::string serial;  // serial=, the token serial number
  std::string object;  // object=, the key label (and the certificate's, when the key has no id)
  Bytes id;            // id=, the key's CKA_ID
  bool hasId = false;
  std::string pinValue;  // pin-value=
  bool hasPinValue = false;
  std::string pinSource;   // pin-source=, a file holding the PIN
  std::string modulePath;  // module-path=
};

// Parses text ("pkcs11:token=demo;object=signer?pin-value=1234"); %XX escapes are decoded in every value.
// False with a one-line message for anything else, an attribute given twice, or an attribute the tool does
// not know (a URI that says more than the tool can match must not match a key it did not mean).
bool parsePkcs11Uri(const std::string& text, Pkcs11Uri& out, std::string& error);

// The PIN of pin-source=: the first line of the file it names (a "file:" URI or a plain path).
bool readPinSource(const std::string& source, std::string& pin, std::string& error);

#endif  // KOLVARI_TOOLS_SIGNING_PKCS11_URI_H
