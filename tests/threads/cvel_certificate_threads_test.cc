// Threads reading one parsed certificate at once: its names and extensions are decoded by the first reader,
// once, and every thread sees them whole. Built a second time with ThreadSanitizer by scripts/test.sh.
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "x509/cvel_certificate.h"

TEST(CvelCertificateThreads, FirstReadsFromManyThreadsSeeOneDecode) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 16;  // each parse leaves a decode to the next first read
  std::ifstream in(KOLVARI_TEST_DATA "/asn1crypto/test-der.crt", std::ios::binary);
  const std::vector<unsigned char> der((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  ASSERT_FALSE(der.empty());
  CvelCertificate certificate;
  const CvelCertificate& shared = certificate;
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_EQ(certificate.parse(der.data(), static_cast<uint32_t>(der.size())), kCvelOk);
    std::vector<uint32_t> seen(kThreads * 3);
    std::atomic<bool> go{false};  // the readers start together, so that their first reads meet
    std::vector<std::thread> readers;
    for (int t = 0; t < kThreads; ++t) {
      readers.emplace_back([&shared, &seen, &go, t] {
        while (!go.load()) std::this_thread::yield();
        seen[t * 3] = shared.subjectName().dname().size();
        seen[t * 3 + 1] = shared.extensions().size();
        seen[t * 3 + 2] = shared.issuerName().dname().size();
      });
    }
    go.store(true);
    for (std::thread& r : readers) r.join();
    // test-der.crt (openssl x509 -text): seven subject attributes, three extensions, seven issuer attributes.
    for (int t = 0; t < kThreads; ++t) {
      EXPECT_EQ(seen[t * 3], 7u) << t;
      EXPECT_EQ(seen[t * 3 + 1], 3u) << t;
      EXPECT_EQ(seen[t * 3 + 2], 7u) << t;
    }
  }
}
