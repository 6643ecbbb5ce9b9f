// The ZARV_ interface as a table of function pointers, from one of two sources: the core linked into this
// program (what the signing commands use, so that one copy of the library's process-wide state serves the
// whole process), or a plug-in file loaded with dlopen, every function looked up by name as a host does.
#ifndef KOLVARI_TOOLS_ZARV_FUNCTIONS_H
#define KOLVARI_TOOLS_ZARV_FUNCTIONS_H

#include <string>

#include "kolvari/zarv.h"

struct ZarvFunctions {
  void* handle = nullptr;  // the dlopen handle of a plug-in file; null in the linked table
  ZARV_Init_t init = nullptr;
  ZARV_GetEncoderProviderName_t getEncoderProviderName = nullptr;
  ZARV_GetSupportedEncoderList_t getSupportedEncoderList = nullptr;
  ZARV_CreateP72Container_t createP72Container = nullptr;
  ZARV_ContainerBytes_t setVersion = nullptr;
  ZARV_ContainerBytes_t setContentTypeOID = nullptr;
  ZARV_ContainerBytes_t setContentInfo = nullptr;
  ZARV_ContainerBytes_t addDigestAlgorithm = nullptr;
  ZARV_ContainerBytes_t addCertificate = nullptr;
  ZARV_ContainerBytes_t addCRL = nullptr;
  ZARV_ContainerBytes_t addSignerInfo = nullptr;
  ZARV_EncodeP72_t encodeP72 = nullptr;
  ZARV_ContainerOnly_t resetP72Container = nullptr;
  ZARV_ContainerOnly_t closeP72Container = nullptr;
  ZARV_CreateSignerInfo_t createSignerInfo = nullptr;
  ZARV_SetSigningTime_t setSigningTime = nullptr;
  ZARV_SetDataHash_t setDataHash = nullptr;
  ZARV_SetSignerCertificate_t setSignerCertificate = nullptr;
  ZARV_SetSignatureCreationEnvironment_t setSignatureCreationEnvironment = nullptr;
  ZARV_SetContentType_t setContentType = nullptr;
  ZARV_AddAttribute_t addSignedAttribute = nullptr;
  ZARV_AddAttribute_t addUnsignedAttribute = nullptr;
  ZARV_SignerOutput_t getDTBS = nullptr;
  ZARV_SetP1Signature_t setP1Signature = nullptr;
  ZARV_SignerOutput_t encodeSignerInfo = nullptr;
  ZARV_ReleaseSignerInfo_t releaseSignerInfo = nullptr;

  ZarvFunctions() = default;
  ZarvFunctions(const ZarvFunctions&) = delete;
  ZarvFunctions& operator=(const ZarvFunctions&) = delete;
  ~ZarvFunctions();

  // The functions of the core linked into this program, all 26 of them.
  static const ZarvFunctions& linked();

  // Loads the library at path and looks up all 26 functions; false with a message when any is missing.
  bool load(const std::string& path, std::string& error);
  // Loads the library and looks up only the three provider entry points.
  bool loadProvider(const std::string& path, std::string& error);
};

// The plug-in built beside this executable; without one there, the installed plug-in by its SONAME.
std::string defaultPluginPath();

// Text of a result code for messages: "0x21000001 (success)", "0xE100FFFC (bad parameter)", ...
std::string describeResult(uint32_t code);

#endif  // KOLVARI_TOOLS_ZARV_FUNCTIONS_H
