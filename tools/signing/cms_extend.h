// Extending a CMS SignedData that anyone made to a CAdES level: a signature time-stamp (T), certificate and
// revocation values (LT) and an archive-time-stamp-v3 (LTA), each an unsigned attribute of every SignerInfo.
// The SignerInfos are decoded and encoded again by the library (their signed attributes and signature bytes
// unchanged); every other field of the SignedData keeps the bytes it was read with.
#ifndef KOLVARI_TOOLS_SIGNING_CMS_EXTEND_H
#define KOLVARI_TOOLS_SIGNING_CMS_EXTEND_H

#include <cstddef>
#include <string>
#include <vector>

#include "services/sign_services.h"

using Bytes = std::vector<unsigned char>;

// A ContentInfo of type signedData split into the parts an extension reads or replaces. BER is read (definite
// and indefinite lengths); the parts are the elements as they were read.
struct SignedDataImage {
  Bytes contentType;               // the ContentInfo's contentType element
  std::vector<Bytes> fields;       // the SignedData's fields before signerInfos, in order
  Bytes eContentType;              // the encapsulated content's type element
  bool attached = false;           // eContent is present
  Bytes content;                   // its octets, the pieces of a constructed OCTET STRING joined
  std::vector<Bytes> certificates;  // each CertificateChoices element of certificates [0]
  std::vector<Bytes> crls;          // each RevocationInfoChoice element of crls [1]
  std::vector<Bytes> signerInfos;   // each SignerInfo element
};

// Reads der, a ContentInfo of type signedData; false with a message naming the part that does not decode.
bool readSignedData(const Bytes& der, SignedDataImage& out, std::string& error);
// The ContentInfo again, with definite lengths around the parts as they stand.
bool writeSignedData(const SignedDataImage& image, Bytes& out);

enum class ExtendLevel { kT, kLT, kLTA };

struct ExtendRequest {
  ExtendLevel level = ExtendLevel::kT;
  SignServices services;    // the time-stamp authority and the sources of revocation data
  std::string contentPath;  // the signed file of a detached signature; empty for an attached one
};

// Adds what the level needs to every SignerInfo of image: a signature time-stamp unless one is there, the
// certificate and revocation values unless they are there, and (LTA) a new archive time-stamp over all of it.
// The time-stamping authorities' certificates get revocation data too; with --allow-missing-revocation one
// that names no responder is left without, and its subject joins missing. False with a one-line message
// naming the signer and, for a service that failed, its URL.
bool extendSignedData(const ExtendRequest& request, SignedDataImage& image, std::vector<std::string>& missing,
                      std::string& error);

#endif  // KOLVARI_TOOLS_SIGNING_CMS_EXTEND_H
