// Identifier octets and fixed encodings used by the DER encoders and decoders.
#ifndef KOLVARI_ASN1_CVEL_DER_H
#define KOLVARI_ASN1_CVEL_DER_H

#include <cstdint>

inline constexpr uint8_t kTagEndOfContents = 0x00;
inline constexpr uint8_t kTagBoolean = 0x01;
inline constexpr uint8_t kTagInteger = 0x02;
inline constexpr uint8_t kTagBitString = 0x03;
inline constexpr uint8_t kTagOctetString = 0x04;
inline constexpr uint8_t kTagNull = 0x05;
inline constexpr uint8_t kTagOid = 0x06;
inline constexpr uint8_t kTagUtf8String = 0x0C;
inline constexpr uint8_t kTagPrintableString = 0x13;
inline constexpr uint8_t kTagUtcTime = 0x17;
inline constexpr uint8_t kTagGeneralizedTime = 0x18;
inline constexpr uint8_t kTagConstructedOctetString = 0x24;
inline constexpr uint8_t kTagSequence = 0x30;
inline constexpr uint8_t kTagSet = 0x31;
inline constexpr uint8_t kTagContext0 = 0xA0;  // [0] constructed
inline constexpr uint8_t kTagContext1 = 0xA1;
inline constexpr uint8_t kTagContext2 = 0xA2;
inline constexpr uint8_t kTagContext3 = 0xA3;
inline constexpr uint8_t kTagContext4 = 0xA4;

// Low five identifier bits all set: the tag number continues in further octets.
inline constexpr uint8_t kTagHighNumberMask = 0x1F;
// First length octet of the long form: 0x80 | number of following octets; 0x80 alone is indefinite.
inline constexpr uint8_t kLengthLongForm = 0x80;
inline constexpr uint8_t kLengthIndefinite = 0x80;
inline constexpr uint32_t kShortLengthLimit = 0x80;

// NULL parameters of an AlgorithmIdentifier.
inline constexpr uint8_t kDerNull[] = {0x05, 0x00};
// id-data 1.2.840.113549.1.7.1 and id-signedData 1.2.840.113549.1.7.2, whole OBJECT IDENTIFIER elements. Not
// inline: their addresses are taken, and an inline variable would be a global name of the static library.
constexpr uint8_t kDerOidData[] = {0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x01};
constexpr uint8_t kDerOidSignedData[] = {0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};

#endif  // KOLVARI_ASN1_CVEL_DER_H
