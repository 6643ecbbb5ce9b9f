// Certificate parsing, side by side with OpenSSL's d2i_X509 on the same DER bytes: every Mozilla root is
// parsed in turn. Each root's own time is measured as well, so that besides the mean per certificate the
// median over the roots is reported (counter median_ns_per_cert).
#include <benchmark/benchmark.h>
#include <openssl/x509.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "bench_roots.h"
#include "x509/cvel_certificate.h"

namespace {

using bench::Der;

// Parses of one certificate between two clock readings, so that the clock's own cost does not count.
constexpr int kRunsPerReading = 16;

template <typename Parse>
void parseEveryRoot(benchmark::State& state, Parse parse) {
  const std::vector<Der>& certificates = bench::roots();
  if (certificates.empty()) {
    state.SkipWithError("no Mozilla roots installed");
    return;
  }
  std::vector<double> nanoseconds(certificates.size(), 0.0);
  uint64_t rounds = 0;
  for (auto _ : state) {
    for (size_t i = 0; i < certificates.size(); ++i) {
      const auto start = std::chrono::steady_clock::now();
      for (int k = 0; k < kRunsPerReading; ++k) parse(certificates[i]);
      const auto stop = std::chrono::steady_clock::now();
      nanoseconds[i] += std::chrono::duration<double, std::nano>(stop - start).count() / kRunsPerReading;
    }
    ++rounds;
  }
  for (double& ns : nanoseconds) ns /= static_cast<double>(rounds);
  std::vector<double> sorted = nanoseconds;
  std::sort(sorted.begin(), sorted.end());
  const size_t mid = sorted.size() / 2;
  const double median = sorted.size() % 2 == 1 ? sorted[mid] : (sorted[mid - 1] + sorted[mid]) / 2;
  double sum = 0;
  for (double ns : nanoseconds) sum += ns;
  state.counters["certificates"] = static_cast<double>(certificates.size());
  state.counters["median_ns_per_cert"] = median;
  state.counters["mean_ns_per_cert"] = sum / static_cast<double>(nanoseconds.size());
  state.SetItemsProcessed(static_cast<int64_t>(rounds * certificates.size() * kRunsPerReading));
}

void BM_CvelCertificateParse(benchmark::State& state) {
  parseEveryRoot(state, [](const Der& der) {
    CvelCertificate certificate;
    CvelResult r = certificate.parse(der.data(), static_cast<uint32_t>(der.size()));
    benchmark::DoNotOptimize(r);
    if (r != kCvelOk) std::abort();
  });
}

void BM_OpenSslD2iX509(benchmark::State& state) {
  parseEveryRoot(state, [](const Der& der) {
    const unsigned char* p = der.data();
    X509* x = d2i_X509(nullptr, &p, static_cast<long>(der.size()));
    benchmark::DoNotOptimize(x);
    if (x == nullptr) std::abort();
    X509_free(x);
  });
}

}  // namespace

BENCHMARK(BM_CvelCertificateParse)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_OpenSslD2iX509)->Unit(benchmark::kMicrosecond)->Repetitions(5)->ReportAggregatesOnly(true);
