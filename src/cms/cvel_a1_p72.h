// CvelA1P72: the object form of a ContentInfo of type signedData: version, digest algorithms, encapsulated
// content info, certificates, CRLs and signer infos, read from DER and written back.
#ifndef KOLVARI_CMS_CVEL_A1_P72_H
#define KOLVARI_CMS_CVEL_A1_P72_H

#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_non_copy_object.h"
#include "asn1/cvel_result.h"
#include "asn1/cvel_string.h"
#include "cms/cvel_p71.h"
#include "cms/cvel_p7_signer_info.h"
#include "x509/cvel_certificate.h"
#include "x509/cvel_crl.h"

class CvelA1Input;
class CvelA1Size;
class CvelA1StreamCursor;

class CvelA1P72 : public CvelNonCopyObject {
 public:
  // What decode returns when the first element cannot be read.
  static constexpr CvelResult kUnreadable = kCvelErrBadParameter;

  CvelA1P72() = default;
  ~CvelA1P72() override = default;

  // SEQUENCE { signedData OID, [0] { SEQUENCE { version, SET { digest algorithms }, content info,
  // [0] certificates when there are any, SET { signer infos } } } }. The CRLs are not written.
  // The content info's own result when it cannot be written (0 for content left in the input);
  // kCvelErrMalformed for any other failure.
  CvelResult encode(CvelString& out, bool detached) const;
  // Not offered, like the content info's: adds the sizes of the version and digest algorithms, then the
  // content info's size query prints its trace line and stops the process.
  [[noreturn]] void getSize(CvelA1Size& size, bool detached) const;

  // Reads the next element of the cursor as a ContentInfo { signedData }. kUnreadable when no element can be
  // read; kCvelErrMalformed when an element, a member or an end-of-contents is missing or broken. A tag
  // other than the expected one at a mandatory place ends the reading early with kCvelOk, the object
  // filled up to there. Afterwards the cursor stands after the element.
  CvelResult decode(CvelA1Input& in, CvelA1StreamCursor& cursor);

  CvelA1Integer& version() { return version_; }
  const CvelA1Integer& version() const { return version_; }
  // The content of the digestAlgorithms SET: the AlgorithmIdentifier encodings, as read.
  CvelString& digestAlgorithms() { return digestAlgorithms_; }
  const CvelString& digestAlgorithms() const { return digestAlgorithms_; }
  CvelP71& contentInfo() { return contentInfo_; }
  const CvelP71& contentInfo() const { return contentInfo_; }
  CvelCertificateList& certificates() { return certificates_; }
  const CvelCertificateList& certificates() const { return certificates_; }
  CvelCRLs& crls() { return crls_; }
  const CvelCRLs& crls() const { return crls_; }
  CvelP7SignerInfos& signerInfos() { return signerInfos_; }
  const CvelP7SignerInfos& signerInfos() const { return signerInfos_; }

 private:
  CvelResult decodeSignedData(CvelA1Input& in, CvelA1StreamCursor& fields, bool& complete);
  CvelResult readDigestAlgorithms(CvelA1Input& in, CvelA1StreamCursor& set);
  static bool isEmptySet(CvelA1Input& in, const CvelA1StreamCursor& set);
  CvelResult readCertificates(CvelA1Input& in, CvelA1StreamCursor& tagged);
  CvelResult readCrls(CvelA1Input& in, CvelA1StreamCursor& tagged);

  CvelA1Integer version_;
  CvelString digestAlgorithms_;
  CvelP71 contentInfo_;
  CvelCertificateList certificates_;
  CvelCRLs crls_;
  CvelP7SignerInfos signerInfos_;
};

#endif  // KOLVARI_CMS_CVEL_A1_P72_H
