// An unsigned attribute a service client made for the SignerInfo: dotted type and one complete DER value.
#ifndef KOLVARI_TOOLS_SERVICES_SERVICE_ATTRIBUTE_H
#define KOLVARI_TOOLS_SERVICES_SERVICE_ATTRIBUTE_H

#include <string>
#include <vector>

struct ServiceAttribute {
  std::string oid;
  std::vector<unsigned char> value;
};

// id-aa-signatureTimeStampToken, id-aa-ets-certValues and id-aa-ets-revocationValues.
inline constexpr char kOidTimeStampTokenAttribute[] = "1.2.840.113549.1.9.16.2.14";
inline constexpr char kOidCertificateValuesAttribute[] = "1.2.840.113549.1.9.16.2.23";
inline constexpr char kOidRevocationValuesAttribute[] = "1.2.840.113549.1.9.16.2.24";

#endif  // KOLVARI_TOOLS_SERVICES_SERVICE_ATTRIBUTE_H
