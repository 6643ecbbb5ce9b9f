// The plug-in as a signing application meets it: loaded with dlopen from its path, every function looked up
// by name, nothing of the library linked in. Checks what a host depends on: the provider answers, the exact
// bytes of an empty container, the refusal of null handles and out-pointers, the exported symbol set and
// the SONAME.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdio>
#include <list>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kolvari/zarv.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr const char* kPluginPath = KOLVARI_PLUGIN_PATH;
constexpr const char* kSoname = "libkolvari-pkcs7.so.1";

// Every function a host looks up.
const char* const kFunctionNames[] = {
    "ZARV_Init",           "ZARV_GetEncoderProviderName", "ZARV_GetSupportedEncoderList",
    "ZARV_CreateP72Container", "ZARV_SetVersion",         "ZARV_SetContentTypeOID",
    "ZARV_SetContentInfo", "ZARV_AddDigestAlgorithm",     "ZARV_AddCertificate",
    "ZARV_AddCRL",         "ZARV_AddSignerInfo",          "ZARV_EncodeP72",
    "ZARV_ResetP72Container", "ZARV_CloseP72Container",   "ZARV_CreateSignerInfo",
    "ZARV_SetSigningTime", "ZARV_SetDataHash",            "ZARV_SetSignerCertificate",
    "ZARV_SetSignatureCreationEnvironment",               "ZARV_SetContentType",
    "ZARV_AddSignedAttribute", "ZARV_AddUnsignedAttribute", "ZARV_GetDTBS",
    "ZARV_SetP1Signature", "ZARV_EncodeSignerInfo",       "ZARV_ReleaseSignerInfo",
};

std::string toHex(const Bytes& bytes) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string s;
  for (unsigned char b : bytes) {
    s.push_back(kDigits[b >> 4]);
    s.push_back(kDigits[b & 15]);
  }
  return s;
}

// Runs a command and returns its standard output; status receives its exit status.
std::string capture(const std::string& command, int& status) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    status = -1;
    return output;
  }
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
  status = pclose(pipe);
  return output;
}

class PluginHost : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    library_ = dlopen(kPluginPath, RTLD_NOW | RTLD_LOCAL);
    if (library_ == nullptr) loadError_ = dlerror();
  }
  static void TearDownTestSuite() {
    if (library_ != nullptr) dlclose(library_);
    library_ = nullptr;
  }
  void SetUp() override { ASSERT_NE(library_, nullptr) << kPluginPath << ": " << loadError_; }

  template <typename F>
  static F lookup(const char* name) {
    return reinterpret_cast<F>(dlsym(library_, name));
  }

  static void* library_;
  static std::string loadError_;
};

void* PluginHost::library_ = nullptr;
std::string PluginHost::loadError_;

TEST_F(PluginHost, EveryFunctionIsFoundByName) {
  for (const char* name : kFunctionNames) EXPECT_NE(dlsym(library_, name), nullptr) << name;
}

TEST_F(PluginHost, ProviderNamesItselfAndOffersOneEncoder) {
  auto init = lookup<ZARV_Init_t>("ZARV_Init");
  auto getName = lookup<ZARV_GetEncoderProviderName_t>("ZARV_GetEncoderProviderName");
  auto getList = lookup<ZARV_GetSupportedEncoderList_t>("ZARV_GetSupportedEncoderList");
  ASSERT_TRUE(init && getName && getList);

  EXPECT_EQ(init(), 0x21000001u);
  std::string name = "an earlier, longer text that must not survive";
  EXPECT_EQ(getName(name), 0x21000001u);
  EXPECT_EQ(name, "Kolvari PKCS7 Signature Encoder");

  std::list<std::string> encoders = {"stale", "entries"};
  EXPECT_EQ(getList(encoders), 0x21000001u);
  EXPECT_EQ(encoders, std::list<std::string>{"PKCS#7.2"});
}

TEST_F(PluginHost, EmptyContainerEncodesToTheMinimalSignedData) {
  auto create = lookup<ZARV_CreateP72Container_t>("ZARV_CreateP72Container");
  auto encode = lookup<ZARV_EncodeP72_t>("ZARV_EncodeP72");
  auto close = lookup<ZARV_ContainerOnly_t>("ZARV_CloseP72Container");
  ASSERT_TRUE(create && encode && close);

  // Worked out from the DER rules, inside out:
  //   encapsulated ContentInfo 30 0B + id-data OID (06 09 2A 86 48 86 F7 0D 01 07 01)   13 bytes
  //   SignedData content: version 02 01 01 (3) + digest SET 31 00 (2) + 13 + signer SET 31 00 (2) = 20
  //   SignedData 30 14 (22 bytes), explicit [0] A0 16 (24 bytes)
  //   ContentInfo content: signedData OID (11) + 24 = 35 -> 30 23, 37 bytes in all.
  const std::string expected =
      "3023" "06092A864886F70D010702" "A016" "3014" "020101" "3100" "300B" "06092A864886F70D010701" "3100";
  P72Container* h = nullptr;
  ASSERT_EQ(create(&h), 0x21000001u);
  ASSERT_NE(h, nullptr);
  Bytes out = {0xEE, 0xEE};
  EXPECT_EQ(encode(h, &out), 0x21000001u);
  EXPECT_EQ(toHex(out), expected);
  EXPECT_EQ(close(h), 0x21000001u);
}

TEST_F(PluginHost, NullHandlesAndOutPointersAreRefused) {
  // The three provider entry points take references and have no null form; the eleven container functions
  // are each given a null handle (and EncodeP72 also a null out vector with a live handle).
  constexpr uint32_t kBadParameter = 0xE100FFFCu;
  auto create = lookup<ZARV_CreateP72Container_t>("ZARV_CreateP72Container");
  auto encode = lookup<ZARV_EncodeP72_t>("ZARV_EncodeP72");
  auto reset = lookup<ZARV_ContainerOnly_t>("ZARV_ResetP72Container");
  auto close = lookup<ZARV_ContainerOnly_t>("ZARV_CloseP72Container");
  ASSERT_TRUE(create && encode && reset && close);

  EXPECT_EQ(create(nullptr), kBadParameter);
  const Bytes input = {0x02, 0x01, 0x03};
  for (const char* name : {"ZARV_SetVersion", "ZARV_SetContentTypeOID", "ZARV_SetContentInfo",
                           "ZARV_AddDigestAlgorithm", "ZARV_AddCertificate", "ZARV_AddCRL", "ZARV_AddSignerInfo"}) {
    auto f = lookup<ZARV_ContainerBytes_t>(name);
    ASSERT_NE(f, nullptr) << name;
    EXPECT_EQ(f(nullptr, input), kBadParameter) << name;
  }
  Bytes out = {0xAA};
  EXPECT_EQ(encode(nullptr, &out), kBadParameter);
  EXPECT_EQ(out, Bytes{0xAA});
  EXPECT_EQ(reset(nullptr), kBadParameter);
  EXPECT_EQ(close(nullptr), kBadParameter);

  P72Container* h = nullptr;
  ASSERT_EQ(create(&h), 0x21000001u);
  EXPECT_EQ(encode(h, nullptr), kBadParameter);
  EXPECT_EQ(close(h), 0x21000001u);
}

TEST_F(PluginHost, SignerInfoFunctionsRefuseNullHandlesAndOutPointers) {
  constexpr uint32_t kBadParameter = 0xE100FFFCu;
  auto create = lookup<ZARV_CreateSignerInfo_t>("ZARV_CreateSignerInfo");
  auto setTime = lookup<ZARV_SetSigningTime_t>("ZARV_SetSigningTime");
  auto setHash = lookup<ZARV_SetDataHash_t>("ZARV_SetDataHash");
  auto setCertificate = lookup<ZARV_SetSignerCertificate_t>("ZARV_SetSignerCertificate");
  auto setEnvironment = lookup<ZARV_SetSignatureCreationEnvironment_t>("ZARV_SetSignatureCreationEnvironment");
  auto setContentType = lookup<ZARV_SetContentType_t>("ZARV_SetContentType");
  auto addSigned = lookup<ZARV_AddAttribute_t>("ZARV_AddSignedAttribute");
  auto addUnsigned = lookup<ZARV_AddAttribute_t>("ZARV_AddUnsignedAttribute");
  auto getDtbs = lookup<ZARV_SignerOutput_t>("ZARV_GetDTBS");
  auto setSignature = lookup<ZARV_SetP1Signature_t>("ZARV_SetP1Signature");
  auto encode = lookup<ZARV_SignerOutput_t>("ZARV_EncodeSignerInfo");
  auto release = lookup<ZARV_ReleaseSignerInfo_t>("ZARV_ReleaseSignerInfo");
  ASSERT_TRUE(create && setTime && setHash && setCertificate && setEnvironment && setContentType && addSigned &&
              addUnsigned && getDtbs && setSignature && encode && release);

  const Bytes some = {0x04, 0x00};
  const std::string sha256 = "2.16.840.1.101.3.4.2.1";
  EXPECT_EQ(create(nullptr), kBadParameter);
  EXPECT_EQ(setTime(nullptr, "20240101120000Z"), kBadParameter);
  EXPECT_EQ(setHash(nullptr, some, sha256, 1), kBadParameter);
  EXPECT_EQ(setCertificate(nullptr, some, some, sha256), kBadParameter);
  EXPECT_EQ(setEnvironment(nullptr, "a", "b", 1), kBadParameter);
  EXPECT_EQ(setContentType(nullptr, some), kBadParameter);
  EXPECT_EQ(addSigned(nullptr, "1.2.3", some, 1), kBadParameter);
  EXPECT_EQ(addUnsigned(nullptr, "1.2.3", some, 1), kBadParameter);
  Bytes out = {0xAA};
  EXPECT_EQ(getDtbs(nullptr, &out), kBadParameter);
  EXPECT_EQ(setSignature(nullptr, "1.2.3", some), kBadParameter);
  EXPECT_EQ(encode(nullptr, &out), kBadParameter);
  EXPECT_EQ(out, Bytes{0xAA});
  EXPECT_EQ(release(nullptr), kBadParameter);

  SignerInfoRecord* h = nullptr;
  ASSERT_EQ(create(&h), 0x21000001u);
  EXPECT_EQ(getDtbs(h, nullptr), kBadParameter);
  EXPECT_EQ(encode(h, nullptr), kBadParameter);
  // A record that was only given null out-pointers still encodes an (empty) SignerInfo: nothing was changed.
  EXPECT_EQ(encode(h, &out), 0x21000001u);
  EXPECT_EQ(toHex(out), "3005" "020100" "0400");
  EXPECT_EQ(release(h), 0x21000001u);
}

TEST_F(PluginHost, ExportsOnlyZarvFunctions) {
  int status = 0;
  const std::string listing = capture(std::string("nm -D --defined-only '") + kPluginPath + "' 2>&1", status);
  ASSERT_EQ(status, 0) << listing;
  std::set<std::string> exported;
  std::istringstream lines(listing);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.empty()) continue;
    // "address type name"; the name is the last field (with a "@VERSION" suffix on versioned symbols).
    std::string name = line.substr(line.find_last_of(' ') + 1);
    name = name.substr(0, name.find('@'));
    EXPECT_EQ(name.rfind("ZARV_", 0), 0u) << "unexpected export: " << line;
    exported.insert(name);
  }
  for (const char* name : kFunctionNames) EXPECT_EQ(exported.count(name), 1u) << name;
}

TEST_F(PluginHost, LoaderKnowsThePluginByItsSoname) {
  // A plain name is matched against the SONAMEs of the objects already loaded; RTLD_NOLOAD keeps the
  // loader from searching the disk, so only the SONAME of the plug-in opened above can answer.
  void* bySoname = dlopen(kSoname, RTLD_NOW | RTLD_NOLOAD);
  EXPECT_EQ(bySoname, library_) << kSoname;
  if (bySoname != nullptr) dlclose(bySoname);
  void* byLinkName = dlopen("libkolvari-pkcs7.so", RTLD_NOW | RTLD_NOLOAD);
  EXPECT_EQ(byLinkName, nullptr);
  if (byLinkName != nullptr) dlclose(byLinkName);

  int status = 0;
  const std::string dynamic = capture(std::string("readelf -d '") + kPluginPath + "' 2>&1", status);
  ASSERT_EQ(status, 0) << dynamic;
  EXPECT_NE(dynamic.find("Library soname: [libkolvari-pkcs7.so.1]"), std::string::npos) << dynamic;
}

}  // namespace
