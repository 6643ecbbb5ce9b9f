// The one writer of a ContentInfo { signedData }, shared by the SignedData object and the container behind
// the exported interface: each gives its parts as functions of the writer, f(CvelDerWriter&).
#ifndef KOLVARI_CMS_CVEL_SIGNED_DATA_WRITER_H
#define KOLVARI_CMS_CVEL_SIGNED_DATA_WRITER_H

#include "asn1/cvel_a1_der_writer.h"
#include "asn1/cvel_der.h"

// ContentInfo ::= SEQUENCE { contentType (signedData), content [0] EXPLICIT SignedData }
// SignedData ::= SEQUENCE { version, digestAlgorithms SET, encapContentInfo, certificates [0] IMPLICIT
//   OPTIONAL, crls [1] IMPLICIT OPTIONAL, signerInfos SET }
// version and content write whole elements; digests, certificates, crls and signers write the contents of
// their SET or tagged element. The optional two are written only when asked for.
template <typename Version, typename Digests, typename Content, typename Certificates, typename Crls,
          typename Signers>
struct CvelSignedDataParts {
  Version version;
  Digests digests;
  Content content;
  bool withCertificates;
  Certificates certificates;
  bool withCrls;
  Crls crls;
  Signers signers;
};

template <typename Parts>
void cvelWriteSignedData(CvelDerWriter& w, const Parts& parts) {
  w.element(kTagSequence, [&] {
    w.bytes(kDerOidSignedData, sizeof(kDerOidSignedData));
    w.element(kTagContext0, [&] {
      w.element(kTagSequence, [&] {
        parts.version(w);
        w.element(kTagSet, [&] { parts.digests(w); });
        parts.content(w);
        if (parts.withCertificates) w.element(kTagContext0, [&] { parts.certificates(w); });
        if (parts.withCrls) w.element(kTagContext1, [&] { parts.crls(w); });
        w.element(kTagSet, [&] { parts.signers(w); });
      });
    });
  });
}

#endif  // KOLVARI_CMS_CVEL_SIGNED_DATA_WRITER_H
