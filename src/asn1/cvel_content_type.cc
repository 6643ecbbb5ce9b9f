// Content-type detection: CvelDataStream::detectType and the names of its codes. The detector looks only at
// the leading bytes; for signedData and envelopedData it walks the first few elements with the stream cursor.
#include <cstring>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_data_stream.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_string.h"

namespace {

// The first read takes this much; fewer than kMinSniff bytes are never classified.
constexpr uint32_t kSniffSize = 512;
constexpr uint32_t kMinSniff = 21;
// Text starting with "M" may be base64 of DER ("MI..." is a SEQUENCE with a long length).
constexpr unsigned char kBase64Lead = 'M';
constexpr uint32_t kBase64SniffChars = 20;
// The text test scans at most this much, but compares with the whole length it is given.
constexpr uint32_t kTextScanLimit = 4096;

constexpr unsigned char kPdfMagic[] = {0x25, 0x50, 0x44, 0x46};  // %PDF
constexpr unsigned char kZipMagic[] = {0x50, 0x4B};              // PK
constexpr char kPemCertificate[] = "-----BEGIN CERTIFICATE-----";
constexpr char kPemCrl[] = "-----BEGIN X509 CRL-----";
constexpr unsigned char kTiffLittleEndian[] = {'I', 'I'};
constexpr unsigned char kTiffBigEndian[] = {'M', 'M'};
constexpr int32_t kTiffMagic = 42;

// OBJECT IDENTIFIER element of the PKCS #7 content types 1.2.840.113549.1.7, less its last octet (1 to 6).
constexpr unsigned char kPkcs7OidHead[] = {0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07};
constexpr uint32_t kPkcs7ArcOffset = 2;  // the arc's octets inside kPkcs7OidHead
constexpr uint8_t kPkcs7FirstKind = 1;
constexpr uint8_t kPkcs7LastKind = 6;
// A PKCS #7 kind k is reported as kPkcs7TypeBase + k (113 to 118).
constexpr uint32_t kPkcs7TypeBase = 112;
// id-ct-TSTInfo 1.2.840.113549.1.9.16.1.4, the whole element.
constexpr unsigned char kDerOidTstInfo[] = {0x06, 0x0B, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x10, 0x01, 0x04};
// An encapsulated-content SEQUENCE holding only its type OID (06 09 + 9 octets) carries no content.
constexpr uint32_t kDetachedContentInfoLength = 11;
// OID elements longer than this are not compared with anything.
constexpr uint32_t kMaxOidElement = 64;

bool startsWith(const unsigned char* p, uint32_t n, const void* prefix, uint32_t prefixLength) {
  return n >= prefixLength && std::memcmp(p, prefix, prefixLength) == 0;
}

bool isTextByte(unsigned char c) {
  if (c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c <= 0x7E)) return true;
  switch (c) {
    case 0x81: case 0x84: case 0x8E: case 0x94: case 0x99: case 0x9A:  // German letters in code page 437
    case 0xC4: case 0xD6: case 0xDC: case 0xE4: case 0xF6: case 0xFC:  // and in Latin-1
      return true;
    default:
      return false;
  }
}

// Text when at least 0.8 x length of the scanned bytes are text bytes. Zero bytes are skipped, yet still
// count in length, which is the whole length even when only the first kTextScanLimit bytes are scanned.
bool looksLikeText(const unsigned char* p, uint32_t length) {
  const uint32_t scan = length < kTextScanLimit ? length : kTextScanLimit;
  uint64_t count = 0;
  for (uint32_t i = 0; i < scan; ++i) {
    if (p[i] != 0 && isTextByte(p[i])) ++count;
  }
  // 0.8 x length truncated toward zero, computed exactly in integers.
  return count >= static_cast<uint64_t>(length) * 4 / 5;
}

bool looksLikeTiff(const unsigned char* p, uint32_t n) {
  if (n < 4) return false;
  uint16_t raw = 0;
  if (startsWith(p, n, kTiffLittleEndian, 2)) {
    raw = static_cast<uint16_t>(p[2] | p[3] << 8);
  } else if (startsWith(p, n, kTiffBigEndian, 2)) {
    raw = static_cast<uint16_t>(p[2] << 8 | p[3]);
  } else {
    return false;
  }
  // The 16-bit value is read as sign and magnitude and its low 16 bits compared: only 42 itself passes.
  const int32_t value = (raw & 0x8000) != 0 ? -static_cast<int32_t>(raw & 0x7FFF) : raw;
  return (static_cast<uint32_t>(value) & 0xFFFF) == static_cast<uint32_t>(kTiffMagic);
}

// Replaces the start of the sniffed bytes with the base64 decoding of their first kBase64SniffChars.
void decodeBase64Lead(unsigned char* p, uint32_t n) {
  CvelString text;
  CvelString decoded;
  if (text.assign(p, kBase64SniffChars) != kCvelOk) return;
  decoded.base64Decode(text);
  uint32_t copy = decoded.length() < n ? decoded.length() : n;
  if (copy != 0) std::memcpy(p, decoded.data(), copy);
}

// The header length of the outer element by its second byte; 0 for the short form and any other octet.
uint32_t outerHeaderLength(unsigned char lengthOctet) {
  switch (lengthOctet) {
    case 0x80: return 2;
    case 0x81: return 3;
    case 0x82: return 4;
    case 0x83: return 5;
    case 0x84: return 6;
    default: return 0;
  }
}

// The first pass, over at least kMinSniff bytes (it may rewrite their start).
uint32_t sniffContentType(unsigned char* p, uint32_t n) {
  if (startsWith(p, n, kPdfMagic, sizeof kPdfMagic)) return kCvelContentPdf;
  if (startsWith(p, n, kZipMagic, sizeof kZipMagic)) return kCvelContentZip;
  if (startsWith(p, n, kPemCertificate, sizeof kPemCertificate - 1)) return kCvelContentPemCertificate;
  if (startsWith(p, n, kPemCrl, sizeof kPemCrl - 1)) return kCvelContentPemCrl;
  // From here on, base64 text is judged by what its first 20 characters decode to, the rest left as it is.
  if (p[0] == kBase64Lead) decodeBase64Lead(p, n);
  if (p[0] != kTagSequence) {
    if (looksLikeTiff(p, n)) return kCvelContentTiff;
    return looksLikeText(p, n) ? kCvelContentText : kCvelContentUnknown;
  }
  if (p[1] < kShortLengthLimit) {
    // A short outer length is too small for PKCS #7 content and is not examined for an OID.
    return looksLikeText(p, n) ? kCvelContentText : kCvelContentUnknown;
  }
  const uint32_t header = outerHeaderLength(p[1]);
  // header + 11 bytes lie within the kMinSniff bytes read.
  if (header == 0 || !startsWith(p + header, n - header, kPkcs7OidHead, sizeof kPkcs7OidHead)) {
    return kCvelContentUnknown;
  }
  const uint8_t kind = p[header + sizeof kPkcs7OidHead];
  if (kind < kPkcs7FirstKind || kind > kPkcs7LastKind) return kCvelContentUnknown;
  return kPkcs7TypeBase + kind;
}

// True when the element last read is exactly `expected` (compared only when the lengths agree).
bool elementEquals(CvelA1Input& in, const CvelA1StreamCursor& c, const unsigned char* expected, uint32_t n) {
  if (static_cast<uint64_t>(c.headerLength()) + c.contentLength() != n) return false;
  CvelString element;
  return c.getElement(in, element) == kCvelOk && element.equals(expected, n);
}

// An OID element of the PKCS #7 arc names the type again by its last octet.
void retypeByOid(CvelA1Input& in, const CvelA1StreamCursor& c, uint32_t& type) {
  const uint64_t elementLength = static_cast<uint64_t>(c.headerLength()) + c.contentLength();
  if (elementLength <= sizeof kPkcs7OidHead || elementLength > kMaxOidElement) return;
  CvelString content;
  if (c.getContent(in, content) != kCvelOk) return;
  const uint32_t arcLength = sizeof kPkcs7OidHead - kPkcs7ArcOffset;
  if (content.length() <= arcLength || std::memcmp(content.data(), kPkcs7OidHead + kPkcs7ArcOffset, arcLength) != 0) {
    return;
  }
  const uint8_t kind = content.data()[content.length() - 1];
  if (kind >= kPkcs7FirstKind && kind <= kPkcs7LastKind) type = kPkcs7TypeBase + kind;
}

// SignedData ::= SEQUENCE { version INTEGER, digestAlgorithms SET, encapContentInfo SEQUENCE { eContentType,
// eContent [0] OPTIONAL }, ... }; the cursor stands on version.
void refineSignedData(CvelA1Input& in, CvelA1StreamCursor& c, uint32_t& type) {
  if (c.next(in) != kCvelOk || c.tag() != kTagSet) return;
  if (c.next(in) != kCvelOk || c.tag() != kTagSequence) return;
  if (c.contentLength() == kDetachedContentInfoLength) type = kCvelContentDetachedSignedData;
  // The cursor is not limited to the SEQUENCE: stepping into an empty one reads the element after it, which
  // is no OID, so `30 00 A0 ...` is reported as unknown. The stream reads stay bounded by the source.
  if (c.descend(in) != kCvelOk) return;
  if (c.tag() != kTagOid) {
    type = kCvelContentUnknown;
  } else if (elementEquals(in, c, kDerOidTstInfo, sizeof kDerOidTstInfo)) {
    type = kCvelContentTimeStampToken;
  }
}

// EnvelopedData ::= SEQUENCE { version INTEGER, originatorInfo [0] OPTIONAL, recipientInfos SET,
// encryptedContentInfo SEQUENCE { contentType, ... }, ... }; the cursor stands on version.
void refineEnvelopedData(CvelA1Input& in, CvelA1StreamCursor& c, uint32_t& type) {
  if (c.next(in) != kCvelOk) return;
  if (c.tag() == kTagContext0 && c.next(in) != kCvelOk) return;
  if (c.tag() != kTagSet) return;
  if (c.next(in) != kCvelOk || c.tag() != kTagSequence) return;
  // Unlimited as for signedData: an empty SEQUENCE is followed by whatever comes after it.
  if (c.descend(in) != kCvelOk) return;
  if (elementEquals(in, c, kDerOidSignedData, sizeof kDerOidSignedData)) type = kCvelContentEnvelopedSignedData;
}

// The second pass from the start of the source. ContentInfo ::= SEQUENCE { contentType OID,
// content [0] EXPLICIT ... }; the SEQUENCE may also be missing. Any unexpected tag leaves the type as it is.
void refinePkcs7(CvelA1Input& in, uint32_t& type) {
  CvelA1StreamCursor c;
  if (c.next(in) != kCvelOk) return;
  if (c.tag() == kTagSequence && c.descend(in) != kCvelOk) return;
  if (c.tag() != kTagOid) return;
  retypeByOid(in, c, type);
  if (c.next(in) != kCvelOk || c.tag() != kTagContext0) return;
  if (c.descend(in) != kCvelOk || c.tag() != kTagSequence) return;
  if (c.descend(in) != kCvelOk || c.tag() != kTagInteger) return;
  if (type == kCvelContentPkcs7SignedData) {
    refineSignedData(in, c, type);
  } else if (type == kCvelContentPkcs7EnvelopedData) {
    refineEnvelopedData(in, c, type);
  }
}

}  // namespace

const char* cvelContentTypeName(uint32_t type) {
  switch (type) {
    case kCvelContentPkcs7Data: return "pkcs7-data";
    case kCvelContentPkcs7SignedData: return "pkcs7-signed-data";
    case kCvelContentPkcs7EnvelopedData: return "pkcs7-enveloped-data";
    case kCvelContentPkcs7SignedAndEnvelopedData: return "pkcs7-signed-and-enveloped-data";
    case kCvelContentPkcs7DigestedData: return "pkcs7-digested-data";
    case kCvelContentPkcs7EncryptedData: return "pkcs7-encrypted-data";
    case kCvelContentEnvelopedSignedData: return "pkcs7-enveloped-signed-data";
    case kCvelContentPemCertificate: return "pem-certificate";
    case kCvelContentPemCrl: return "pem-crl";
    case kCvelContentText: return "text";
    case kCvelContentZip: return "zip";
    case kCvelContentTiff: return "tiff";
    case kCvelContentPdf: return "pdf";
    case kCvelContentTimeStampToken: return "timestamp-token";
    case kCvelContentDetachedSignedData: return "pkcs7-detached-signed-data";
    default: return "unknown";
  }
}

CvelResult CvelDataStream::detectType(uint32_t* type) {
  if (type == nullptr || !isReady()) return kCvelErrBadParameter;
  *type = kCvelContentUnknown;
  unsigned char sniff[kSniffSize];
  uint32_t got = 0;
  CvelResult r = seek(0, kFromStart);
  if (r != kCvelOk) return r;
  r = read(sniff, kSniffSize, &got);
  if (r != kCvelOk || got < kMinSniff) return r;

  uint32_t found = sniffContentType(sniff, got);
  if (found == kCvelContentPkcs7SignedData || found == kCvelContentPkcs7EnvelopedData) {
    if (file_ != nullptr) {
      CvelA1InputFile in;
      in.attach(this, nullptr, false);
      refinePkcs7(in, found);
      in.detach();  // the stream stays open and ours
    } else {
      CvelA1InputString in(*buffer_, 0, limit_);
      refinePkcs7(in, found);
    }
  }
  *type = found;
  return kCvelOk;
}
