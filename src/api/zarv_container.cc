// The exported container functions: argument checks, copies into the record, and the encoder.
#include <new>

#include "api/p72_container.h"
#include "api/zarv_guard.h"
#include "asn1/cvel_a1_integer.h"
#include "asn1/cvel_string.h"
#include "kolvari/zarv.h"

namespace {

uint32_t appendPiece(P72Container* h, ZarvPieces P72Container::*list, const std::vector<unsigned char>& der) {
  if (h == nullptr) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    ZarvPieces& pieces = h->*list;
    const size_t before = pieces.size();
    pieces.push_back(der);
    return pieces.size() == before + 1 ? ZARV_OK : ZARV_E_NOT_STORED;
  });
}

}  // namespace

uint32_t ZARV_CreateP72Container(P72Container** handle) {
  if (handle == nullptr) return ZARV_E_BAD_PARAMETER;
  P72Container* record = new (std::nothrow) P72Container();
  if (record == nullptr) return ZARV_E_OUT_OF_MEMORY;
  *handle = record;
  return ZARV_OK;
}

uint32_t ZARV_SetVersion(P72Container* h, const std::vector<unsigned char>& derInteger) {
  if (h == nullptr) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    CvelString view;
    uint32_t r = view.setView(derInteger.data(), derInteger.size());
    if (r != ZARV_OK) return r;
    CvelA1Integer version;
    r = version.decode(view, nullptr);
    if (r != ZARV_OK) return r;
    ZarvBytes copy(derInteger);
    // Only a value of one to four content octets counts; anything longer leaves the version unset.
    h->versionNumber = version.bytes().isEmpty() ? static_cast<int32_t>(version.value()) : 0;
    h->versionBytes.swap(copy);
    return ZARV_OK;
  });
}

uint32_t ZARV_SetContentTypeOID(P72Container* h, const std::vector<unsigned char>& derOid) {
  if (h == nullptr) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    h->contentType = derOid;
    return ZARV_OK;
  });
}

uint32_t ZARV_SetContentInfo(P72Container* h, const std::vector<unsigned char>& derContentInfo) {
  if (h == nullptr) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    h->contentInfo = derContentInfo;
    return ZARV_OK;
  });
}

uint32_t ZARV_AddDigestAlgorithm(P72Container* h, const std::vector<unsigned char>& oidContent) {
  if (h == nullptr) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] {
    h->digestAlgorithms.insert(oidContent);
    return ZARV_OK;
  });
}

uint32_t ZARV_AddCertificate(P72Container* h, const std::vector<unsigned char>& der) {
  return appendPiece(h, &P72Container::certificates, der);
}

uint32_t ZARV_AddCRL(P72Container* h, const std::vector<unsigned char>& der) {
  return appendPiece(h, &P72Container::crls, der);
}

uint32_t ZARV_AddSignerInfo(P72Container* h, const std::vector<unsigned char>& der) {
  return appendPiece(h, &P72Container::signerInfos, der);
}

uint32_t ZARV_EncodeP72(P72Container* h, std::vector<unsigned char>* out) {
  if (h == nullptr || out == nullptr) return ZARV_E_BAD_PARAMETER;
  return zarvGuarded([&] { return encodeP72Container(*h, *out); });
}

uint32_t ZARV_ResetP72Container(P72Container* h) {
  if (h == nullptr) return ZARV_E_BAD_PARAMETER;
  // The version number becomes 1 while the version bytes are emptied: no version is written until
  // ZARV_SetVersion is called again.
  h->versionNumber = 1;
  h->versionBytes.clear();
  h->contentType.clear();
  h->contentInfo.clear();
  h->digestAlgorithms.clear();
  h->certificates.clear();
  h->crls.clear();
  h->signerInfos.clear();
  return ZARV_OK;
}

uint32_t ZARV_CloseP72Container(P72Container* h) {
  if (h == nullptr) return ZARV_E_BAD_PARAMETER;
  delete h;
  return ZARV_OK;
}
