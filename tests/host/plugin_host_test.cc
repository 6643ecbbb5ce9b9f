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

// Every entry point but the three of the provider (which take references and have no null form), called with a
// null handle or out pointer.
using NullCall = uint32_t (*)(const char* name);
const Bytes kSome = {0x02, 0x01, 0x03};
const std::string kSha256 = "2.16.840.1.101.3.4.2.1";
Bytes untouched = {0xAA};
constexpr NullCall kContainerBytes = [](const char* n) { return fn<ZARV_ContainerBytes_t>(n)(nullptr, kSome); };
constexpr NullCall kContainerOnly = [](const char* n) { return fn<ZARV_ContainerOnly_t>(n)(nullptr); };
constexpr NullCall kAttribute = [](const char* n) { return fn<ZARV_AddAttribute_t>(n)(nullptr, "1.2.3", kSome, 1); };
constexpr NullCall kSignerOutput = [](const char* n) { return fn<ZARV_SignerOutput_t>(n)(nullptr, &untouched); };
const std::pair<const char*, NullCall> kNullCalls[] = {
    {"ZARV_CreateP72Container", [](const char* n) { return fn<ZARV_CreateP72Container_t>(n)(nullptr); }},
    {"ZARV_SetVersion", kContainerBytes}, {"ZARV_SetContentTypeOID", kContainerBytes}, {"ZARV_AddCRL", kContainerBytes},
    {"ZARV_SetContentInfo", kContainerBytes}, {"ZARV_AddDigestAlgorithm", kContainerBytes},
    {"ZARV_AddCertificate", kContainerBytes}, {"ZARV_AddSignerInfo", kContainerBytes},
    {"ZARV_ResetP72Container", kContainerOnly}, {"ZARV_CloseP72Container", kContainerOnly},
    {"ZARV_EncodeP72", [](const char* n) { return fn<ZARV_EncodeP72_t>(n)(nullptr, &untouched); }},
    {"ZARV_CreateSignerInfo", [](const char* n) { return fn<ZARV_CreateSignerInfo_t>(n)(nullptr); }},
    {"ZARV_SetSigningTime", [](const char* n) { return fn<ZARV_SetSigningTime_t>(n)(nullptr, "20240101120000Z"); }},
    {"ZARV_SetDataHash", [](const char* n) { return fn<ZARV_SetDataHash_t>(n)(nullptr, kSome, kSha256, 1); }},
    {"ZARV_SetSignerCertificate",
     [](const char* n) { return fn<ZARV_SetSignerCertificate_t>(n)(nullptr, kSome, kSome, kSha256); }},
    {"ZARV_SetSignatureCreationEnvironment",
     [](const char* n) { return fn<ZARV_SetSignatureCreationEnvironment_t>(n)(nullptr, "a", "b", 1); }},
    {"ZARV_SetContentType", [](const char* n) { return fn<ZARV_SetContentType_t>(n)(nullptr, kSome); }},
    {"ZARV_AddSignedAttribute", kAttribute}, {"ZARV_AddUnsignedAttribute", kAttribute},
    {"ZARV_SetP1Signature", [](const char* n) { return fn<ZARV_SetP1Signature_t>(n)(nullptr, "1.2.3", kSome); }},
    {"ZARV_ReleaseSignerInfo", [](const char* n) { return fn<ZARV_ReleaseSignerInfo_t>(n)(nullptr); }},
    {"ZARV_GetDTBS", kSignerOutput}, {"ZARV_EncodeSignerInfo", kSignerOutput}};

TEST(PluginHost, NullHandlesAndOutPointersAreRefusedAndChangeNothing) {
  for (const auto& [name, call] : kNullCalls) EXPECT_EQ(call(name), kBadParameter) << name;
  EXPECT_EQ(untouched, Bytes{0xAA});
  // Null out vectors with a live signer handle (the container's is ZarvContainer's). The record then still
  // encodes an empty SignerInfo: neither a content-type attribute nor [0] was added.
  auto encodeSignerInfo = fn<ZARV_SignerOutput_t>("ZARV_EncodeSignerInfo");
  SignerInfoRecord* signer = nullptr;
  ASSERT_EQ(fn<ZARV_CreateSignerInfo_t>("ZARV_CreateSignerInfo")(&signer), kOk);
  EXPECT_EQ(fn<ZARV_SignerOutput_t>("ZARV_GetDTBS")(signer, nullptr), kBadParameter);
  EXPECT_EQ(encodeSignerInfo(signer, nullptr), kBadParameter);
  Bytes out;
  EXPECT_EQ(encodeSignerInfo(signer, &out), kOk);
  EXPECT_EQ(out, (Bytes{0x30, 0x05, 0x02, 0x01, 0x00, 0x04, 0x00}));  // version 0, empty signature
  EXPECT_EQ(fn<ZARV_ReleaseSignerInfo_t>("ZARV_ReleaseSignerInfo")(signer), kOk);
}

TEST(PluginHost, ExportsOnlyZarvFunctionsUnderItsSoname) {
  ASSERT_NE(plugin(), nullptr);
  std::string listing;
  const std::string nm = std::string("nm -D --defined-only --format=just-symbols '") + kPluginPath + "' 2>&1";
  FILE* pipe = popen(nm.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  char buffer[4096];
  for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) listing.append(buffer, n);
  ASSERT_EQ(pclose(pipe), 0) << listing;
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
