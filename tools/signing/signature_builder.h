// Drives the library through one signing run as a host does: the SignerInfo of one signer (attributes, data to
// be signed, the host's signature, unsigned attributes) and the container around one or more of them.
#ifndef KOLVARI_TOOLS_SIGNING_SIGNATURE_BUILDER_H
#define KOLVARI_TOOLS_SIGNING_SIGNATURE_BUILDER_H

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host_crypto.h"
#include "signing/host_signer.h"
#include "zarv_functions.h"

// An extra attribute: dotted type and one complete DER value.
struct ExtraAttribute {
  std::string oid;
  Bytes value;
};

// Called once the signature is known and before the SignerInfo is encoded. It may add unsigned attributes
// made from the signature value (a time-stamp token over it, revocation values for the certificate).
using AfterSignature = std::function<bool(const Bytes& signatureValue, const Bytes& signerCertificate,
                                          std::vector<ExtraAttribute>& unsignedAttributes, std::string& error)>;

struct SignerInfoRequest {
  const DigestChoice* digest = nullptr;
  HostSigner* signer = nullptr;
  Bytes certificate;    // the signer certificate, DER
  Bytes certificateHash;  // its digest when the host has it already (a batch hashes it once); empty: hashed here
  Bytes messageDigest;  // the host's digest of the content
  // YYYYMMDDhhmmssZ or YYMMDDhhmmssZ; empty: the clock's time. Without withSigningTime no signing-time
  // attribute is written at all (the time then lives elsewhere, as in a PDF's /M).
  std::string time;
  bool withSigningTime = true;
  std::vector<ExtraAttribute> signedAttributes;
  std::vector<ExtraAttribute> unsignedAttributes;
  AfterSignature afterSignature;
  // Held around the library's calls when many threads build signer infos at once: the calls that take OID
  // text share one converter in the library and must not overlap. The host's signing and afterSignature run
  // outside it. Null: the caller is the only thread.
  std::mutex* libraryLock = nullptr;
};

// The encoded SignerInfo; false with a one-line message in error.
bool buildSignerInfo(const ZarvFunctions& zarv, const SignerInfoRequest& request, Bytes& signerInfo, std::string& error);

struct ContainerRequest {
  const DigestChoice* digest = nullptr;
  const Bytes* attachedContent = nullptr;  // null: detached
  std::vector<Bytes> certificates;
  std::vector<Bytes> crls;
  std::vector<Bytes> signerInfos;
};

// The encoded ContentInfo of type signedData; false with a one-line message in error.
bool buildContainer(const ZarvFunctions& zarv, const ContainerRequest& request, Bytes& out, std::string& error);

// Appends certificates to list, leaving out any already there (two signers may share a chain).
void addCertificates(const std::vector<Bytes>& certificates, std::vector<Bytes>& list);

#endif  // KOLVARI_TOOLS_SIGNING_SIGNATURE_BUILDER_H
