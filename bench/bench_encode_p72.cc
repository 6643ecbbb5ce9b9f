// Container encoding: ZARV_EncodeP72 with 1 to 1000 certificates of about 1.2 KB. The encoder sizes the
// whole ContentInfo first and writes every piece once into the host's vector, so bytes per second should
// stay flat as the number of certificates grows.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench_roots.h"
#include "kolvari/zarv.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Roots of this DER size are taken ("about 1.2 KB").
constexpr size_t kMinCertificate = 1100;
constexpr size_t kMaxCertificate = 1300;

// Root certificates of 1.1 to 1.3 KB; the 1,227-byte test certificate of the source tree without the store.
const std::vector<Bytes>& certificates() {
  static const std::vector<Bytes> certs = [] {
    std::vector<Bytes> found;
    for (const Bytes& der : bench::roots()) {
      if (der.size() >= kMinCertificate && der.size() <= kMaxCertificate) found.push_back(der);
    }
    if (found.empty()) found.push_back(bench::roots().front());
    return found;
  }();
  return certs;
}

// A SignerInfo of a real message (cms-signed.der, 576 bytes at offset 1343), read once.
Bytes readSignerInfo() {
  Bytes whole;
  FILE* f = std::fopen((std::string(KOLVARI_SOURCE_DIR) + "/tests/data/asn1crypto/cms-signed.der").c_str(), "rb");
  if (f != nullptr) {
    unsigned char buffer[4096];
    size_t n = std::fread(buffer, 1, sizeof buffer, f);
    std::fclose(f);
    whole.assign(buffer, buffer + n);
  }
  if (whole.size() < 1343 + 576) return Bytes(576, 0x30);
  return Bytes(whole.begin() + 1343, whole.begin() + 1343 + 576);
}

const Bytes& signerInfo() {
  static const Bytes signer = readSignerInfo();
  return signer;
}

// A container with n certificates, one CRL-sized piece, one SignerInfo and SHA-256.
P72Container* buildContainer(int64_t n, uint64_t& inputBytes) {
  P72Container* h = nullptr;
  if (ZARV_CreateP72Container(&h) != ZARV_OK) return nullptr;
  const std::vector<Bytes>& certs = certificates();
  const Bytes sha256 = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
  const Bytes& signer = signerInfo();
  inputBytes = sha256.size() + signer.size();
  ZARV_AddDigestAlgorithm(h, sha256);
  for (int64_t i = 0; i < n; ++i) {
    const Bytes& c = certs[static_cast<size_t>(i) % certs.size()];
    inputBytes += c.size();
    ZARV_AddCertificate(h, c);
  }
  ZARV_AddSignerInfo(h, signer);
  return h;
}

// A fresh out vector per call, as a host that keeps each result would pass.
void BM_EncodeP72(benchmark::State& state) {
  uint64_t inputBytes = 0;
  P72Container* h = buildContainer(state.range(0), inputBytes);
  if (h == nullptr) state.SkipWithError("create");
  size_t outBytes = 0;
  for (auto _ : state) {
    Bytes out;
    if (ZARV_EncodeP72(h, &out) != ZARV_OK) state.SkipWithError("encode");
    outBytes = out.size();
    benchmark::DoNotOptimize(out.data());
  }
  ZARV_CloseP72Container(h);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * outBytes));
  state.counters["certificates"] = static_cast<double>(state.range(0));
  state.counters["output_bytes"] = static_cast<double>(outBytes);
  state.counters["input_bytes"] = static_cast<double>(inputBytes);
}
BENCHMARK(BM_EncodeP72)->Arg(1)->Arg(10)->Arg(100)->Arg(1000);

// One out vector reused: after the first call it is wiped and refilled in its own storage.
void BM_EncodeP72ReusedOutput(benchmark::State& state) {
  uint64_t inputBytes = 0;
  P72Container* h = buildContainer(state.range(0), inputBytes);
  if (h == nullptr) state.SkipWithError("create");
  Bytes out;
  for (auto _ : state) {
    if (ZARV_EncodeP72(h, &out) != ZARV_OK) state.SkipWithError("encode");
    benchmark::DoNotOptimize(out.data());
  }
  ZARV_CloseP72Container(h);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * out.size()));
  state.counters["certificates"] = static_cast<double>(state.range(0));
}
BENCHMARK(BM_EncodeP72ReusedOutput)->Arg(1)->Arg(10)->Arg(100)->Arg(1000);

// The whole host sequence: create, add every piece (copied into the record), encode, close.
void BM_AssembleAndEncodeP72(benchmark::State& state) {
  size_t outBytes = 0;
  for (auto _ : state) {
    uint64_t inputBytes = 0;
    P72Container* h = buildContainer(state.range(0), inputBytes);
    Bytes out;
    if (h == nullptr || ZARV_EncodeP72(h, &out) != ZARV_OK) state.SkipWithError("encode");
    outBytes = out.size();
    ZARV_CloseP72Container(h);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * outBytes));
  state.counters["certificates"] = static_cast<double>(state.range(0));
}
BENCHMARK(BM_AssembleAndEncodeP72)->Arg(1)->Arg(10)->Arg(100)->Arg(1000);

}  // namespace
