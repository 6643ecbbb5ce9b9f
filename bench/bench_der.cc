// DER engine figures: CvelString appends, wrap, and an element walk over a large image built from real
// certificates, with OpenSSL's own element reader over the same image for comparison.
#include <benchmark/benchmark.h>
#include <openssl/asn1.h>

#include <cstdio>
#include <string>
#include <vector>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_a1_walk.h"
#include "asn1/cvel_der.h"
#include "asn1/cvel_string.h"
#include "bench_roots.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Copies of the root store in the large image: 142 roots of about 1.3 KB each make some 180 KB per copy.
constexpr int kStoreCopies = 16;

// SEQUENCE { kStoreCopies times every root certificate }, built once.
const CvelString& largeImage() {
  static CvelString image = [] {
    const std::vector<Bytes>& certs = bench::roots();
    uint64_t content = 0;
    for (const Bytes& c : certs) content += c.size();
    content *= kStoreCopies;
    CvelString s;
    if (s.allocate(static_cast<uint32_t>(cvelTlvSize(content))) != kCvelOk) std::abort();
    CvelA1Writer w(s);
    w.header(kTagSequence, content);
    for (int i = 0; i < kStoreCopies; ++i) {
      for (const Bytes& c : certs) w.bytes(c.data(), c.size());
    }
    if (!w.complete()) std::abort();
    return s;
  }();
  return image;
}

// Many small appends to an empty string: every append that does not fit allocates exactly the new size and
// copies the old content, so the cost grows with the square of the count.
void BM_CvelStringAppendSmall(benchmark::State& state) {
  const uint32_t count = static_cast<uint32_t>(state.range(0));
  const unsigned char piece[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  for (auto _ : state) {
    CvelString s;
    for (uint32_t i = 0; i < count; ++i) static_cast<void>(s.append(piece, sizeof piece));
    benchmark::DoNotOptimize(s.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * count * sizeof piece);
  state.counters["appends"] = count;
}
BENCHMARK(BM_CvelStringAppendSmall)->Arg(16)->Arg(256)->Arg(4096)->Arg(16384);

// The same appends into a buffer made large enough beforehand: every append takes the in-place path.
void BM_CvelStringAppendSmallWithRoom(benchmark::State& state) {
  const uint32_t count = static_cast<uint32_t>(state.range(0));
  const unsigned char piece[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  for (auto _ : state) {
    CvelString s;
    if (s.allocate(count * sizeof piece) != kCvelOk) state.SkipWithError("allocate");
    s.truncate(0);
    for (uint32_t i = 0; i < count; ++i) static_cast<void>(s.append(piece, sizeof piece));
    benchmark::DoNotOptimize(s.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * count * sizeof piece);
}
BENCHMARK(BM_CvelStringAppendSmallWithRoom)->Arg(16)->Arg(256)->Arg(4096)->Arg(16384);

// wrap: one allocation at the final size, header, then the content copied once.
void BM_Wrap(benchmark::State& state) {
  const uint32_t n = static_cast<uint32_t>(state.range(0));
  CvelString content;
  if (content.allocate(n) != kCvelOk) state.SkipWithError("allocate");
  for (uint32_t i = 0; i < n; ++i) content.data()[i] = static_cast<unsigned char>(i);
  for (auto _ : state) {
    CvelString out;
    CvelResult r = wrap(content, kTagOctetString, out);
    benchmark::DoNotOptimize(r);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * n);
}
BENCHMARK(BM_Wrap)->Arg(16)->Arg(127)->Arg(128)->Arg(4096)->Arg(65536)->Arg(1 << 20);

// cvelWalk: every element of the large image, depth first.
void BM_CvelWalkLargeImage(benchmark::State& state) {
  const CvelString& image = largeImage();
  uint64_t elements = 0;
  for (auto _ : state) {
    CvelA1WalkResult result = cvelWalk(image, [](const CvelA1WalkElement&) { return true; });
    if (!result.complete) state.SkipWithError("walk incomplete");
    elements = result.elements;
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * image.length());
  state.counters["elements"] = static_cast<double>(elements);
  state.counters["elements/s"] =
      benchmark::Counter(static_cast<double>(elements), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_CvelWalkLargeImage)->Unit(benchmark::kMillisecond);

// The same walk written directly on CvelA1Context, with one child cursor per level on the stack.
uint64_t walkContext(const CvelString& s, CvelA1Context& cursor, int depth) {
  uint64_t elements = 0;
  while (cursor.next(s) >= 0) {
    ++elements;
    const unsigned char first = s.data()[cursor.elementOffset()];
    if ((first & 0x20) != 0 && cursor.contentLength() != 0 && depth < 64) {
      CvelA1Context child;
      child.enterElementOf(cursor);
      elements += walkContext(s, child, depth + 1);
    }
  }
  return elements;
}

void BM_ContextWalkLargeImage(benchmark::State& state) {
  const CvelString& image = largeImage();
  uint64_t elements = 0;
  for (auto _ : state) {
    CvelA1Context cursor;
    elements = walkContext(image, cursor, 0);
    benchmark::DoNotOptimize(elements);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * image.length());
  state.counters["elements"] = static_cast<double>(elements);
}
BENCHMARK(BM_ContextWalkLargeImage)->Unit(benchmark::kMillisecond);

// OpenSSL's element reader over the same image, for scale.
uint64_t walkOpenSsl(const unsigned char* p, long length, int depth) {
  uint64_t elements = 0;
  const unsigned char* end = p + length;
  while (p < end) {
    long contentLength = 0;
    int tag = 0;
    int cls = 0;
    const unsigned char* at = p;
    int flags = ASN1_get_object(&p, &contentLength, &tag, &cls, end - at);
    if ((flags & 0x80) != 0) break;
    ++elements;
    if ((flags & V_ASN1_CONSTRUCTED) != 0 && contentLength != 0 && depth < 64) {
      elements += walkOpenSsl(p, contentLength, depth + 1);
    }
    p += contentLength;
  }
  return elements;
}

void BM_OpenSslWalkLargeImage(benchmark::State& state) {
  const CvelString& image = largeImage();
  uint64_t elements = 0;
  for (auto _ : state) {
    elements = walkOpenSsl(image.data(), static_cast<long>(image.length()), 0);
    benchmark::DoNotOptimize(elements);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * image.length());
  state.counters["elements"] = static_cast<double>(elements);
}
BENCHMARK(BM_OpenSslWalkLargeImage)->Unit(benchmark::kMillisecond);

}  // namespace
