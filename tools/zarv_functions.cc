#include "zarv_functions.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdio>

namespace {

constexpr char kPluginFile[] = "libkolvari-pkcs7.so";
// An installed tool has no plug-in beside it: the dynamic loader then finds the library by its SONAME, through
// the tool's run path or the system's library directories.
constexpr char kPluginSoname[] = "libkolvari-pkcs7.so.1";

template <typename Fn>
bool lookUp(void* handle, const char* name, Fn& out, std::string& error) {
  out = reinterpret_cast<Fn>(dlsym(handle, name));
  if (out == nullptr) {
    error = std::string("the plug-in does not export ") + name;
    return false;
  }
  return true;
}

// The table of the statically linked ZARV_ functions.
void fillLinked(ZarvFunctions& f) {
  f.init = &ZARV_Init;
  f.getEncoderProviderName = &ZARV_GetEncoderProviderName;
  f.getSupportedEncoderList = &ZARV_GetSupportedEncoderList;
  f.createP72Container = &ZARV_CreateP72Container;
  f.setVersion = &ZARV_SetVersion;
  f.setContentTypeOID = &ZARV_SetContentTypeOID;
  f.setContentInfo = &ZARV_SetContentInfo;
  f.addDigestAlgorithm = &ZARV_AddDigestAlgorithm;
  f.addCertificate = &ZARV_AddCertificate;
  f.addCRL = &ZARV_AddCRL;
  f.addSignerInfo = &ZARV_AddSignerInfo;
  f.encodeP72 = &ZARV_EncodeP72;
  f.resetP72Container = &ZARV_ResetP72Container;
  f.closeP72Container = &ZARV_CloseP72Container;
  f.createSignerInfo = &ZARV_CreateSignerInfo;
  f.setSigningTime = &ZARV_SetSigningTime;
  f.setDataHash = &ZARV_SetDataHash;
  f.setSignerCertificate = &ZARV_SetSignerCertificate;
  f.setSignatureCreationEnvironment = &ZARV_SetSignatureCreationEnvironment;
  f.setContentType = &ZARV_SetContentType;
  f.addSignedAttribute = &ZARV_AddSignedAttribute;
  f.addUnsignedAttribute = &ZARV_AddUnsignedAttribute;
  f.getDTBS = &ZARV_GetDTBS;
  f.setP1Signature = &ZARV_SetP1Signature;
  f.encodeSignerInfo = &ZARV_EncodeSignerInfo;
  f.releaseSignerInfo = &ZARV_ReleaseSignerInfo;
}

}  // namespace

const ZarvFunctions& ZarvFunctions::linked() {
  static ZarvFunctions table;
  // Filled once, under the guard of a static's initialisation, however many threads ask first.
  static const bool filled = (fillLinked(table), true);
  static_cast<void>(filled);
  return table;
}

ZarvFunctions::~ZarvFunctions() {
  if (handle != nullptr) dlclose(handle);
}

bool ZarvFunctions::loadProvider(const std::string& path, std::string& error) {
  if (handle == nullptr) handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* why = dlerror();
    error = "cannot load " + path + ": " + (why != nullptr ? why : "unknown error");
    return false;
  }
  return lookUp(handle, "ZARV_Init", init, error) &&
         lookUp(handle, "ZARV_GetEncoderProviderName", getEncoderProviderName, error) &&
         lookUp(handle, "ZARV_GetSupportedEncoderList", getSupportedEncoderList, error);
}

bool ZarvFunctions::load(const std::string& path, std::string& error) {
  return loadProvider(path, error) && lookUp(handle, "ZARV_CreateP72Container", createP72Container, error) &&
         lookUp(handle, "ZARV_SetVersion", setVersion, error) &&
         lookUp(handle, "ZARV_SetContentTypeOID", setContentTypeOID, error) &&
         lookUp(handle, "ZARV_SetContentInfo", setContentInfo, error) &&
         lookUp(handle, "ZARV_AddDigestAlgorithm", addDigestAlgorithm, error) &&
         lookUp(handle, "ZARV_AddCertificate", addCertificate, error) &&
         lookUp(handle, "ZARV_AddCRL", addCRL, error) &&
         lookUp(handle, "ZARV_AddSignerInfo", addSignerInfo, error) &&
         lookUp(handle, "ZARV_EncodeP72", encodeP72, error) &&
         lookUp(handle, "ZARV_ResetP72Container", resetP72Container, error) &&
         lookUp(handle, "ZARV_CloseP72Container", closeP72Container, error) &&
         lookUp(handle, "ZARV_CreateSignerInfo", createSignerInfo, error) &&
         lookUp(handle, "ZARV_SetSigningTime", setSigningTime, error) &&
         lookUp(handle, "ZARV_SetDataHash", setDataHash, error) &&
         lookUp(handle, "ZARV_SetSignerCertificate", setSignerCertificate, error) &&
         lookUp(handle, "ZARV_SetSignatureCreationEnvironment", setSignatureCreationEnvironment, error) &&
         lookUp(handle, "ZARV_SetContentType", setContentType, error) &&
         lookUp(handle, "ZARV_AddSignedAttribute", addSignedAttribute, error) &&
         lookUp(handle, "ZARV_AddUnsignedAttribute", addUnsignedAttribute, error) &&
         lookUp(handle, "ZARV_GetDTBS", getDTBS, error) &&
         lookUp(handle, "ZARV_SetP1Signature", setP1Signature, error) &&
         lookUp(handle, "ZARV_EncodeSignerInfo", encodeSignerInfo, error) &&
         lookUp(handle, "ZARV_ReleaseSignerInfo", releaseSignerInfo, error);
}

std::string defaultPluginPath() {
  char self[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n <= 0) return kPluginFile;
  std::string path(self, static_cast<size_t>(n));
  size_t slash = path.rfind('/');
  std::string beside = (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) + kPluginFile;
  return access(beside.c_str(), F_OK) == 0 ? beside : kPluginSoname;
}

std::string describeResult(uint32_t code) {
  const char* meaning = "failure";
  switch (code) {
    case ZARV_OK: meaning = "success"; break;
    case ZARV_E_BAD_PARAMETER: meaning = "bad parameter"; break;
    case ZARV_E_OUT_OF_MEMORY: meaning = "out of memory"; break;
    case ZARV_E_NOT_STORED: meaning = "not stored or not decodable"; break;
    case ZARV_E_INCOMPLETE: meaning = "incomplete"; break;
    case ZARV_E_NO_ATTRIBUTE_TABLE: meaning = "no attribute table"; break;
    case 0: meaning = "not parsed"; break;
    default: break;
  }
  char text[64];
  std::snprintf(text, sizeof text, "0x%08X (%s)", code, meaning);
  return text;
}
