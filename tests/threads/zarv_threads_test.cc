// The exported calls under a host's threading rules: container handles on many threads at once, the signer-info
// calls (sharing the dotted-OID converter) one at a time under the host's mutex; every thread must get the
// single-thread bytes. scripts/test.sh builds it again with ThreadSanitizer.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kolvari/zarv.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr int kContainerThreads = 4;
constexpr int kSignerThreads = 2;
constexpr int kRounds = 40;
const std::string kSha256 = "2.16.840.1.101.3.4.2.1";
// id-sha256 as OID content octets, the form the container takes for digest algorithms.
const Bytes kSha256Content = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
const Bytes kVersionOne = {0x02, 0x01, 0x01};

// One whole signer-info run; an empty result when any call fails.
Bytes signerInfo(const Bytes& certificate) {
  SignerInfoRecord* h = nullptr;
  if (ZARV_CreateSignerInfo(&h) != ZARV_OK) return {};
  Bytes dtbs, out;
  const bool ok = ZARV_SetDataHash(h, Bytes(32, 0x11), kSha256, 1) == ZARV_OK &&
                  ZARV_SetSignerCertificate(h, certificate, Bytes(32, 0x22), kSha256) == ZARV_OK &&
                  ZARV_SetSigningTime(h, "20261123120000Z") == ZARV_OK && ZARV_GetDTBS(h, &dtbs) == ZARV_OK &&
                  ZARV_SetP1Signature(h, "1.2.840.10045.4.3.2", Bytes(dtbs.size() % 64 + 8, 0x5A)) == ZARV_OK &&
                  ZARV_EncodeSignerInfo(h, &out) == ZARV_OK;
  ZARV_ReleaseSignerInfo(h);
  return ok ? out : Bytes();
}

// One whole container run; an empty result when any call fails.
Bytes container(const Bytes& certificate, const Bytes& signer) {
  P72Container* c = nullptr;
  if (ZARV_CreateP72Container(&c) != ZARV_OK) return {};
  Bytes out;
  const bool ok = ZARV_SetVersion(c, kVersionOne) == ZARV_OK &&
                  ZARV_AddDigestAlgorithm(c, kSha256Content) == ZARV_OK &&
                  ZARV_AddCertificate(c, certificate) == ZARV_OK && ZARV_AddSignerInfo(c, signer) == ZARV_OK &&
                  ZARV_EncodeP72(c, &out) == ZARV_OK;
  ZARV_CloseP72Container(c);
  return ok ? out : Bytes();
}

TEST(ZarvThreads, ContainersInParallelAndSignerInfosOneAtATimeGiveTheSingleThreadBytes) {
  std::ifstream in(KOLVARI_TEST_DATA "/signer/signer-ec.der", std::ios::binary);
  const Bytes certificate{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  ASSERT_FALSE(certificate.empty());
  const Bytes expectedSigner = signerInfo(certificate);
  ASSERT_FALSE(expectedSigner.empty());
  const Bytes expectedContainer = container(certificate, expectedSigner);
  ASSERT_FALSE(expectedContainer.empty());

  std::mutex signerCalls;  // the host's lock around the signer-info calls
  std::vector<int> failures(kContainerThreads + kSignerThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kContainerThreads + kSignerThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int r = 0; r < kRounds; ++r) {
        Bytes signer = expectedSigner;
        if (t >= kContainerThreads) {
          std::lock_guard<std::mutex> lock(signerCalls);
          signer = signerInfo(certificate);
        }
        // The container calls need no lock, even beside another thread's signer-info run.
        if (signer != expectedSigner || container(certificate, signer) != expectedContainer) ++failures[t];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (size_t t = 0; t < failures.size(); ++t) EXPECT_EQ(failures[t], 0) << "thread " << t;
}

}  // namespace
