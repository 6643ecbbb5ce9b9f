// The plug-in as a signing application meets it: opened with dlopen, every function looked up by name,
// nothing of the library linked in.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdio>
#include <list>
#include <stdexcept>
#include <sstream>
#include <string>
#include <vector>

#include "kolvari/zarv.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr const char* kPluginPath = KOLVARI_PLUGIN_PATH;
constexpr uint32_t kOk = 0x21000001u;
constexpr uint32_t kBadParameter = 0xE100FFFCu;

std::string loadError;

// The plug-in, opened once for the whole run and kept open.
void* plugin() {
  static void* handle = [] {
    void* h = dlopen(kPluginPath, RTLD_NOW | RTLD_LOCAL);
    if (h == nullptr) loadError = dlerror();
    return h;
  }();
  return handle;
}

// A function of the plug-in by name; the test fails when it is missing. Between them the tests look up every
// function of the interface this way.
template <typename F>
F fn(const char* name) {
  void* symbol = plugin() == nullptr ? nullptr : dlsym(plugin(), name);
  if (symbol == nullptr) throw std::runtime_error(std::string("not found: ") + name);
  return reinterpret_cast<F>(symbol);
}

std::string toHex(const Bytes& bytes) {
  std::string s;
  for (unsigned char b : bytes) s += "0123456789ABCDEF"[b >> 4], s += "0123456789ABCDEF"[b & 15];
  return s;
}

// Standard output of a command; status receives its exit status.
std::string capture(const std::string& command, int& status) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  char buffer[4096];
  for (size_t n; pipe != nullptr && (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, n);
  status = pipe == nullptr ? -1 : pclose(pipe);
  return output;
}

TEST(PluginHost, TheProviderAnswers) {
  ASSERT_NE(plugin(), nullptr) << kPluginPath << ": " << loadError;

  EXPECT_EQ(fn<ZARV_Init_t>("ZARV_Init")(), kOk);
  std::string name = "an earlier, longer text that must not survive";
  EXPECT_EQ(fn<ZARV_GetEncoderProviderName_t>("ZARV_GetEncoderProviderName")(name), kOk);
  EXPECT_EQ(name, "Kolvari PKCS7 Signature Encoder");
  std::list<std::string> encoders = {"stale", "entries"};
  EXPECT_EQ(fn<ZARV_GetSupportedEncoderList_t>("ZARV_GetSupportedEncoderList")(encoders), kOk);
  EXPECT_EQ(encoders, std::list<std::string>{"PKCS#7.2"});
}

TEST(PluginHost, NullHandlesAndOutPointersAreRefusedAndChangeNothing) {
  // The three provider entry points take references and have no null form.
  const Bytes some = {0x02, 0x01, 0x03};
  const std::string sha256 = "2.16.840.1.101.3.4.2.1";
  auto encodeP72 = fn<ZARV_EncodeP72_t>("ZARV_EncodeP72");
  auto getDtbs = fn<ZARV_SignerOutput_t>("ZARV_GetDTBS");
  auto encodeSignerInfo = fn<ZARV_SignerOutput_t>("ZARV_EncodeSignerInfo");

  EXPECT_EQ(fn<ZARV_CreateP72Container_t>("ZARV_CreateP72Container")(nullptr), kBadParameter);
  for (const char* name : {"ZARV_SetVersion", "ZARV_SetContentTypeOID", "ZARV_SetContentInfo",
                           "ZARV_AddDigestAlgorithm", "ZARV_AddCertificate", "ZARV_AddCRL", "ZARV_AddSignerInfo"})
    EXPECT_EQ(fn<ZARV_ContainerBytes_t>(name)(nullptr, some), kBadParameter) << name;
  for (const char* name : {"ZARV_ResetP72Container", "ZARV_CloseP72Container"})
    EXPECT_EQ(fn<ZARV_ContainerOnly_t>(name)(nullptr), kBadParameter) << name;
  EXPECT_EQ(fn<ZARV_CreateSignerInfo_t>("ZARV_CreateSignerInfo")(nullptr), kBadParameter);
  EXPECT_EQ(fn<ZARV_SetSigningTime_t>("ZARV_SetSigningTime")(nullptr, "20240101120000Z"), kBadParameter);
  EXPECT_EQ(fn<ZARV_SetDataHash_t>("ZARV_SetDataHash")(nullptr, some, sha256, 1), kBadParameter);
  EXPECT_EQ(fn<ZARV_SetSignerCertificate_t>("ZARV_SetSignerCertificate")(nullptr, some, some, sha256), kBadParameter);
  EXPECT_EQ(fn<ZARV_SetSignatureCreationEnvironment_t>("ZARV_SetSignatureCreationEnvironment")(nullptr, "a", "b", 1),
            kBadParameter);
  EXPECT_EQ(fn<ZARV_SetContentType_t>("ZARV_SetContentType")(nullptr, some), kBadParameter);
  for (const char* name : {"ZARV_AddSignedAttribute", "ZARV_AddUnsignedAttribute"})
    EXPECT_EQ(fn<ZARV_AddAttribute_t>(name)(nullptr, "1.2.3", some, 1), kBadParameter) << name;
  EXPECT_EQ(fn<ZARV_SetP1Signature_t>("ZARV_SetP1Signature")(nullptr, "1.2.3", some), kBadParameter);
  EXPECT_EQ(fn<ZARV_ReleaseSignerInfo_t>("ZARV_ReleaseSignerInfo")(nullptr), kBadParameter);
  Bytes out = {0xAA};
  EXPECT_EQ(encodeP72(nullptr, &out), kBadParameter);
  EXPECT_EQ(getDtbs(nullptr, &out), kBadParameter);
  EXPECT_EQ(encodeSignerInfo(nullptr, &out), kBadParameter);
  EXPECT_EQ(out, Bytes{0xAA});

  // Null out vectors with live handles. The signer record then still encodes an empty SignerInfo: neither
  // a content-type attribute nor [0] was added.
  P72Container* container = nullptr;
  ASSERT_EQ(fn<ZARV_CreateP72Container_t>("ZARV_CreateP72Container")(&container), kOk);
  EXPECT_EQ(encodeP72(container, nullptr), kBadParameter);
  EXPECT_EQ(fn<ZARV_ContainerOnly_t>("ZARV_CloseP72Container")(container), kOk);
  SignerInfoRecord* signer = nullptr;
  ASSERT_EQ(fn<ZARV_CreateSignerInfo_t>("ZARV_CreateSignerInfo")(&signer), kOk);
  EXPECT_EQ(getDtbs(signer, nullptr), kBadParameter);
  EXPECT_EQ(encodeSignerInfo(signer, nullptr), kBadParameter);
  EXPECT_EQ(encodeSignerInfo(signer, &out), kOk);
  EXPECT_EQ(toHex(out), "3005" "020100" "0400");
  EXPECT_EQ(fn<ZARV_ReleaseSignerInfo_t>("ZARV_ReleaseSignerInfo")(signer), kOk);
}

TEST(PluginHost, ExportsOnlyZarvFunctionsUnderItsSoname) {
  ASSERT_NE(plugin(), nullptr);
  int status = 0;
  const std::string listing =
      capture(std::string("nm -D --defined-only --format=just-symbols '") + kPluginPath + "' 2>&1", status);
  ASSERT_EQ(status, 0) << listing;
  ASSERT_NE(listing.find("ZARV_Init"), std::string::npos) << listing;
  std::istringstream lines(listing);
  for (std::string name; std::getline(lines, name);) EXPECT_EQ(name.rfind("ZARV_", 0), 0u) << name;

  // A plain name is matched against the SONAMEs of the objects already loaded; RTLD_NOLOAD keeps the loader
  // from searching the disk, so only the SONAME of the plug-in opened above can answer.
  void* bySoname = dlopen("libkolvari-pkcs7.so.1", RTLD_NOW | RTLD_NOLOAD);
  EXPECT_EQ(bySoname, plugin());
  if (bySoname != nullptr) dlclose(bySoname);
}

}  // namespace
