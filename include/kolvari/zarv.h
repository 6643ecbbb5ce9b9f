// Kolvari PKCS7 Signature Encoder: the interface a host signing application uses.
//
// The host loads libkolvari-pkcs7.so (dlopen, or links it), and drives it through the ZARV_ functions below.
// The library never hashes and never signs: the host hands over the message digest, the signer certificate
// with a hash of it, and the signing time; the library returns the DER of the signed attributes (the data to
// be signed, "DTBS"); the host signs those bytes and hands back the raw signature; the library then encodes
// the SignerInfo, and a container assembles SignerInfos, digest algorithms, certificates and CRLs into a DER
// ContentInfo of type signedData (1.2.840.113549.1.7.2).
//
// Conventions shared by every function:
//  - Every function returns a 32-bit result code: ZARV_OK on success, a value of the form 0xE100xxxx on
//    failure. Read as signed numbers, success is positive and failures are negative.
//  - A null handle or out-pointer is refused with ZARV_E_BAD_PARAMETER before any other work; nothing changes.
//  - Every input vector is copied; every output vector is overwritten. Host and library share one C++ runtime.
//  - Handles are used by one thread at a time. Functions that turn dotted OID text into DER (marked "OID text"
//    below) share one process-wide converter state and must not run concurrently, even on different handles.
//
// Typical signing run: ZARV_CreateSignerInfo; ZARV_SetDataHash; ZARV_SetSignerCertificate;
// ZARV_SetSigningTime; ZARV_GetDTBS (sign the bytes); ZARV_SetP1Signature; ZARV_EncodeSignerInfo;
// ZARV_ReleaseSignerInfo. Then ZARV_CreateP72Container; ZARV_AddDigestAlgorithm; ZARV_AddCertificate;
// ZARV_AddSignerInfo; ZARV_EncodeP72; ZARV_CloseP72Container.
#ifndef KOLVARI_ZARV_H
#define KOLVARI_ZARV_H

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#if defined(__GNUC__)
#define ZARV_API __attribute__((visibility("default")))
#else
#define ZARV_API
#endif

// Result codes of the exported interface. Codes of the DER reader and of the certificate parser are passed
// through unchanged (see the functions that say so).
inline constexpr uint32_t ZARV_OK = 0x21000001u;                  // success
inline constexpr uint32_t ZARV_E_BAD_PARAMETER = 0xE100FFFCu;     // null handle or out-pointer, bad argument
inline constexpr uint32_t ZARV_E_OUT_OF_MEMORY = 0xE100FFFAu;     // a record or object could not be obtained
inline constexpr uint32_t ZARV_E_NOT_STORED = 0xE100FFFFu;        // item not stored, or bytes not decodable
// Container without signer infos or digest algorithms at version 0. Not returned in practice: encoding
// defaults the version to 1 first, so an empty container encodes.
inline constexpr uint32_t ZARV_E_INCOMPLETE = 0xE100FFF2u;
inline constexpr uint32_t ZARV_E_NO_ATTRIBUTE_TABLE = 0xE100FFF9u;  // no attribute table for this kind
// A 32-bit host and a 64-bit host see the same codes.
static_assert(sizeof(ZARV_OK) == 4, "result codes are unsigned 32-bit");

// The provider's name and its one encoder.
inline constexpr const char* ZARV_PROVIDER_NAME = "Kolvari PKCS7 Signature Encoder";
inline constexpr const char* ZARV_ENCODER_PKCS7_2 = "PKCS#7.2";

// Opaque handles, owned by the library between their Create and their Close/Release call.
struct P72Container;      // a signedData container being assembled
struct SignerInfoRecord;  // one signer's attributes, signature and SignerInfo

extern "C" {

// ---- Provider entry points ----

// Keeps no state; returns ZARV_OK. Need not precede other calls; calling it again is harmless.
ZARV_API uint32_t ZARV_Init();
// Replaces `name` with "Kolvari PKCS7 Signature Encoder".
ZARV_API uint32_t ZARV_GetEncoderProviderName(std::string& name);
// Empties `encoders`, then appends the one encoder offered, "PKCS#7.2".
ZARV_API uint32_t ZARV_GetSupportedEncoderList(std::list<std::string>& encoders);

// ---- SignedData container ----

// Creates an empty container (version not set, no pieces). ZARV_E_OUT_OF_MEMORY if it cannot be obtained.
ZARV_API uint32_t ZARV_CreateP72Container(P72Container** handle);
// Sets the SignedData version from one complete DER INTEGER (02 01 03, ...). The bytes are written verbatim.
// Not an INTEGER: ZARV_E_NOT_STORED (or a DER reader code); the container is then unchanged. A value of 0 or
// an INTEGER of more than four content octets counts as "not set" and encoding writes 02 01 01 instead.
ZARV_API uint32_t ZARV_SetVersion(P72Container* h, const std::vector<unsigned char>& derInteger);
// Sets the encapsulated content type as a complete DER OBJECT IDENTIFIER (06 len ...), used when no content
// info is set. Only the bytes before a first 0x00 are used. Ignored once an encoding has built the default
// content info, until ZARV_SetContentInfo or ZARV_ResetP72Container.
ZARV_API uint32_t ZARV_SetContentTypeOID(P72Container* h, const std::vector<unsigned char>& derOid);
// Sets the complete DER encapsulated ContentInfo, written verbatim (for attached content).
ZARV_API uint32_t ZARV_SetContentInfo(P72Container* h, const std::vector<unsigned char>& derContentInfo);
// Adds a digest algorithm as the OID's content octets only (no tag, no length), for example
// 60 86 48 01 65 03 04 02 01 for SHA-256. Kept once, sorted by bytes; written with NULL parameters.
ZARV_API uint32_t ZARV_AddDigestAlgorithm(P72Container* h, const std::vector<unsigned char>& oidContent);
// Appends a complete DER certificate; written in the order added. Not checked.
ZARV_API uint32_t ZARV_AddCertificate(P72Container* h, const std::vector<unsigned char>& der);
// Appends a complete DER CRL; written in the order added. Not checked.
ZARV_API uint32_t ZARV_AddCRL(P72Container* h, const std::vector<unsigned char>& der);
// Appends a complete DER SignerInfo (normally from ZARV_EncodeSignerInfo); written in the order added.
ZARV_API uint32_t ZARV_AddSignerInfo(P72Container* h, const std::vector<unsigned char>& der);
// Writes the DER ContentInfo { signedData } into *out. Without a version, 02 01 01 is used; without a content
// info, a detached one of the content type (default id-data) is built. Both defaults stay in the container.
ZARV_API uint32_t ZARV_EncodeP72(P72Container* h, std::vector<unsigned char>* out);
// Empties every piece for reuse. The version is then neither written nor defaulted until ZARV_SetVersion.
ZARV_API uint32_t ZARV_ResetP72Container(P72Container* h);
// Releases the container; the handle is invalid afterwards.
ZARV_API uint32_t ZARV_CloseP72Container(P72Container* h);

// ---- SignerInfo and signed attributes ----
// Attribute maps are ordered by the dotted text of the attribute type; each value becomes an Attribute of
// its own. A replace flag of 1 supersedes earlier values of the same type; 0 adds another value.
//
// Signed-attribute order. By default the data to be signed and the SignerInfo's [0] set carry the signed
// attributes in that dotted-text order, which is not DER SET OF order: OpenSSL accepts it, but verifiers that
// re-encode the set before checking (BouncyCastle, GnuTLS and what is built on them) then reject the
// signature. With the environment variable KOLVARI_DER_ATTRIBUTE_ORDER set to "1" (exactly; any other value
// or none keeps the default), the signed attributes are sorted by their encodings instead (X.690 11.6). The
// variable is read by each ZARV_GetDTBS call; ZARV_EncodeSignerInfo writes the set that call built, so both
// always agree. Unsigned attributes keep the dotted-text order either way.

// Creates a signer-info record. ZARV_E_OUT_OF_MEMORY if it cannot be obtained.
ZARV_API uint32_t ZARV_CreateSignerInfo(SignerInfoRecord** handle);
// Signing time as "YYYYMMDDhhmmssZ" (15 characters) or "YYMMDDhhmmssZ" (13); written with the
// GeneralizedTime tag (0x18) in both cases. Any other length (counted modulo 256): ZARV_E_BAD_PARAMETER.
ZARV_API uint32_t ZARV_SetSigningTime(SignerInfoRecord* h, const std::string& time);
// Message digest computed by the host, and the dotted OID of its algorithm (OID text).
ZARV_API uint32_t ZARV_SetDataHash(SignerInfoRecord* h, const std::vector<unsigned char>& digest,
                                   const std::string& digestOid, uint32_t replace);
// Signer certificate (DER, PEM or bare base64), the host's hash of it and the dotted OID of that hash
// (OID text). Sets the signer identifier and the signing-certificate-v2 attribute. A certificate that does
// not parse returns the parser's result, 0, and nothing is stored.
ZARV_API uint32_t ZARV_SetSignerCertificate(SignerInfoRecord* h, const std::vector<unsigned char>& cert,
                                            const std::vector<unsigned char>& certHash,
                                            const std::string& certHashOid);
// Adds the signature-creation-environment attribute (1.3.6.1.4.1.47731.1) with two UTF-8 texts.
ZARV_API uint32_t ZARV_SetSignatureCreationEnvironment(SignerInfoRecord* h, const std::string& first,
                                                       const std::string& second, uint32_t replace);
// Content-type attribute: a complete DER OID, or empty for id-data.
ZARV_API uint32_t ZARV_SetContentType(SignerInfoRecord* h, const std::vector<unsigned char>& derOid);
// Adds a signed attribute: dotted type OID and one complete DER value.
ZARV_API uint32_t ZARV_AddSignedAttribute(SignerInfoRecord* h, const std::string& oid,
                                          const std::vector<unsigned char>& derValue, uint32_t replace);
// Adds an unsigned attribute: dotted type OID and one complete DER value.
ZARV_API uint32_t ZARV_AddUnsignedAttribute(SignerInfoRecord* h, const std::string& oid,
                                            const std::vector<unsigned char>& derValue, uint32_t replace);
// The data to be signed: the DER SET of the signed attributes (OID text). Adds content type id-data first
// when none was set. An attribute type whose OID text is empty makes the call return 0.
ZARV_API uint32_t ZARV_GetDTBS(SignerInfoRecord* h, std::vector<unsigned char>* out);
// The dotted signature-algorithm OID (OID text; written without parameters) and the raw signature value.
ZARV_API uint32_t ZARV_SetP1Signature(SignerInfoRecord* h, const std::string& signatureOid,
                                      const std::vector<unsigned char>& signature);
// The DER SignerInfo, ready for ZARV_AddSignerInfo (OID text, for the unsigned attributes).
ZARV_API uint32_t ZARV_EncodeSignerInfo(SignerInfoRecord* h, std::vector<unsigned char>* out);
// Releases the record; the handle is invalid afterwards.
ZARV_API uint32_t ZARV_ReleaseSignerInfo(SignerInfoRecord* h);

}  // extern "C"

// Function-pointer types for hosts that look the functions up with dlsym.
using ZARV_Init_t = uint32_t (*)();
using ZARV_GetEncoderProviderName_t = uint32_t (*)(std::string&);
using ZARV_GetSupportedEncoderList_t = uint32_t (*)(std::list<std::string>&);
using ZARV_CreateP72Container_t = uint32_t (*)(P72Container**);
using ZARV_ContainerBytes_t = uint32_t (*)(P72Container*, const std::vector<unsigned char>&);
using ZARV_EncodeP72_t = uint32_t (*)(P72Container*, std::vector<unsigned char>*);
using ZARV_ContainerOnly_t = uint32_t (*)(P72Container*);
using ZARV_CreateSignerInfo_t = uint32_t (*)(SignerInfoRecord**);
using ZARV_SetSigningTime_t = uint32_t (*)(SignerInfoRecord*, const std::string&);
using ZARV_SetDataHash_t = uint32_t (*)(SignerInfoRecord*, const std::vector<unsigned char>&, const std::string&,
                                        uint32_t);
using ZARV_SetSignerCertificate_t = uint32_t (*)(SignerInfoRecord*, const std::vector<unsigned char>&,
                                                 const std::vector<unsigned char>&, const std::string&);
using ZARV_SetSignatureCreationEnvironment_t = uint32_t (*)(SignerInfoRecord*, const std::string&,
                                                            const std::string&, uint32_t);
using ZARV_SetContentType_t = uint32_t (*)(SignerInfoRecord*, const std::vector<unsigned char>&);
using ZARV_AddAttribute_t = uint32_t (*)(SignerInfoRecord*, const std::string&, const std::vector<unsigned char>&,
                                         uint32_t);
using ZARV_SignerOutput_t = uint32_t (*)(SignerInfoRecord*, std::vector<unsigned char>*);
using ZARV_SetP1Signature_t = uint32_t (*)(SignerInfoRecord*, const std::string&,
                                           const std::vector<unsigned char>&);
using ZARV_ReleaseSignerInfo_t = uint32_t (*)(SignerInfoRecord*);

#endif  // KOLVARI_ZARV_H
