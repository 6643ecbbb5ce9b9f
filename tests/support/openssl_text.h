// Helpers for holding our decoders against the openssl command's text reports, and for writing small DER
// by hand in tests.
#ifndef KOLVARI_TESTS_SUPPORT_OPENSSL_TEXT_H
#define KOLVARI_TESTS_SUPPORT_OPENSSL_TEXT_H

#include <string>

#include "asn1/cvel_time.h"
#include "x509/cvel_dname.h"

namespace testutil {

// A time as openssl's reports print it: "Oct  1 06:00:00 2012 GMT".
std::string opensslTime(const CvelTime& t);
// The attribute values of a name, in order, each followed by "|".
std::string nameValues(const CvelDName& name);
// The same from openssl's one-line name text ("C = AU, ST = NSW, CN = ..."): what follows each " = ".
std::string opensslNameValues(const std::string& text);
// An element of up to 255 content octets from tag and content in hex; the length is counted here.
std::string tlv(const std::string& tag, const std::string& content);

}  // namespace testutil

#endif  // KOLVARI_TESTS_SUPPORT_OPENSSL_TEXT_H
