#include "replay_damage.h"

#include <set>
#include <string>

#include "asn1/cvel_string.h"

namespace {

constexpr int kMaxReadDepth = 64;
constexpr uint8_t kHighTagNumber = 0x1F;
constexpr uint8_t kConstructed = 0x20;
constexpr uint8_t kIndefinite = 0x80;
constexpr size_t kMaxLengthOctets = 4;
constexpr uint8_t kOctetString = 0x04;
constexpr uint8_t kBitString = 0x03;
constexpr const char* kBase64Text = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/= \r\n";

// Samples up to this size are cut at every length; larger ones (a 1.2 MB CRL) near the start, the end and
// the boundaries of some elements. At most kMaxMutated elements of a sample, evenly spread, are damaged inside.
constexpr size_t kEveryLengthUpTo = 8192;
constexpr size_t kEdge = 128;
constexpr size_t kNearBoundary = 2;
constexpr size_t kMaxBoundaryElements = 48;
constexpr size_t kMaxMutated = 200;
constexpr size_t kMaxMutatedOfLarge = 64;

size_t readTlv(const DamageBytes& b, size_t at, size_t limit, int parent, std::vector<DerElement>& out);

// Elements filling [p, limit) exactly, or up to an end-of-contents pair: where they end, or 0 with out as it was.
size_t readRun(const DamageBytes& b, size_t p, size_t limit, int parent, bool untilEoc,
               std::vector<DerElement>& out) {
  const size_t mark = out.size();
  while (untilEoc ? !(limit - p >= 2 && b[p] == 0 && b[p + 1] == 0) : p < limit) {
    if ((p = readTlv(b, p, limit, parent, out)) == 0) return out.resize(mark), 0;
  }
  return untilEoc ? p + 2 : p;
}

// One element and what it holds: where it ends, or 0 (no element ends at 0). High tag numbers do not occur in
// the samples and are refused; an indefinite length is taken for constructed elements only.
size_t readTlv(const DamageBytes& b, size_t at, size_t limit, int parent, std::vector<DerElement>& out) {
  const int depth = parent < 0 ? 0 : out[static_cast<size_t>(parent)].depth + 1;
  if (depth > kMaxReadDepth || limit - at < 2 || (b[at] & kHighTagNumber) == kHighTagNumber) return 0;
  DerElement e{at, at + 1, 1, 0, 0, parent, depth};
  const uint8_t l = b[at + 1];
  const size_t octets = l & 0x7Fu;
  size_t i = at + 2, length = l;
  if (l > kIndefinite) {
    if (octets > kMaxLengthOctets || limit - i < octets) return 0;
    for (length = 0; e.lengthSize <= octets; ++e.lengthSize) length = (length << 8) | b[i++];
  }
  e.contentAt = i;
  const int index = static_cast<int>(out.size());
  out.push_back(e);
  const bool constructed = (b[at] & kConstructed) != 0;
  if (l != kIndefinite && length > limit - i) return 0;
  const size_t end = l != kIndefinite ? i + length : constructed ? readRun(b, i, limit, index, true, out) : 0;
  if (end == 0 || (l != kIndefinite && constructed && readRun(b, i, end, index, false, out) == 0)) return 0;
  if (b[at] == kOctetString && length != 0) readRun(b, i, end, index, false, out);  // DER inside, if any
  if (b[at] == kBitString && length > 1 && b[i] == 0) readRun(b, i + 1, end, index, false, out);
  return out[static_cast<size_t>(index)].end = end;
}

std::vector<size_t> spread(size_t total, size_t most) {
  std::vector<size_t> picks;
  for (size_t k = 0; k < total; k += total <= most ? 1 : (total + most - 1) / most) picks.push_back(k);
  return picks;
}

std::vector<size_t> mutated(const DamageBytes& b, const std::vector<DerElement>& all) {
  return spread(all.size(), b.size() <= kEveryLengthUpTo ? kMaxMutated : kMaxMutatedOfLarge);
}

bool indefinite(const DamageBytes& b, const DerElement& e) { return e.lengthSize == 1 && b[e.lengthAt] == kIndefinite; }

size_t cutShort(const DamageBytes& b, const std::vector<DerElement>& all, const DamageSink& emit) {
  std::set<size_t> cuts;
  const size_t n = b.size();
  for (size_t k = 0; k < n; ++k)
    if (n <= kEveryLengthUpTo || k < kEdge || n - k <= kEdge) cuts.insert(k);
  for (size_t k : n <= kEveryLengthUpTo ? std::vector<size_t>() : spread(all.size(), kMaxBoundaryElements)) {
    for (size_t at : {all[k].start, all[k].contentAt, all[k].end}) {
      for (size_t near = at > kNearBoundary ? at - kNearBoundary : 0; near <= at + kNearBoundary && near < n; ++near)
        cuts.insert(near);
    }
  }
  for (size_t cut : cuts) emit(DamageBytes(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(cut)));
  return cuts.size();
}

// The length octets of one element at a time set to an indefinite length, to 4 GiB - 1 and to a length in
// five octets, which no decoder reads.
size_t hostileLengths(const DamageBytes& b, const std::vector<DerElement>& all, const DamageSink& emit) {
  const DamageBytes kHostile[] = {{0x80}, {0x84, 0xFF, 0xFF, 0xFF, 0xFF}, {0x85}};
  size_t count = 0;
  for (size_t k : mutated(b, all)) {
    const auto at = b.begin() + static_cast<std::ptrdiff_t>(all[k].lengthAt);
    for (const DamageBytes& length : kHostile) {
      DamageBytes damaged(b.begin(), at);
      damaged.insert(damaged.end(), length.begin(), length.end());
      damaged.insert(damaged.end(), at + static_cast<std::ptrdiff_t>(all[k].lengthSize), b.end());
      emit(damaged);
      ++count;
    }
  }
  return count;
}

// The content of one element cut to keep octets, its length and those of the (definite) elements around it
// lowered to match, each written in as many octets as before: the decoders meet the short element deep inside.
size_t cutInside(const DamageBytes& b, const std::vector<DerElement>& all, const DamageSink& emit) {
  size_t count = 0;
  for (size_t k : mutated(b, all)) {
    const DerElement& e = all[k];
    const size_t length = e.end - e.contentAt;
    for (size_t keep : std::set<size_t>{0, 1, length / 2, length - 1}) {
      if (indefinite(b, e) || keep >= length) continue;
      DamageBytes out(b);
      for (const DerElement& t : all) {  // e itself and every definite element around it
        if (&t != &e && (t.start >= e.start || t.end < e.end || indefinite(b, t))) continue;
        const size_t value = t.end - t.contentAt - (length - keep);
        for (size_t i = 0; i < t.lengthSize - (t.lengthSize == 1 ? 0 : 1); ++i)
          out[t.lengthAt + t.lengthSize - 1 - i] = static_cast<uint8_t>(value >> (8 * i));
      }
      out.erase(out.begin() + static_cast<std::ptrdiff_t>(e.contentAt + keep),
                out.begin() + static_cast<std::ptrdiff_t>(e.end));
      emit(out);
      ++count;
    }
  }
  return count;
}

DamageBytes base64Decoded(const std::string& text) {
  CvelString source, decoded;
  if (source.assign(text.data(), static_cast<uint32_t>(text.size())) != kCvelOk) return {};
  decoded.base64Decode(source);
  return DamageBytes(decoded.data(), decoded.data() + decoded.length());
}

}  // namespace

std::vector<DerElement> derElements(const DamageBytes& b) {
  std::vector<DerElement> out;
  if (readTlv(b, 0, b.size(), -1, out) == 0) out.clear();
  return out;
}

DamageBytes derElementAt(const DamageBytes& b, const std::vector<int>& path) {
  const std::vector<DerElement> all = derElements(b);
  if (all.empty()) return {};
  size_t current = 0;
  for (int step : path) {
    std::vector<size_t> children;
    for (size_t k = 0; k < all.size(); ++k)
      if (all[k].parent == static_cast<int>(current)) children.push_back(k);
    if (children.empty() || step >= static_cast<int>(children.size())) return {};
    current = children[step < 0 ? children.size() - 1 : static_cast<size_t>(step)];
  }
  const DerElement& e = all[current];
  return DamageBytes(b.begin() + static_cast<std::ptrdiff_t>(e.start), b.begin() + static_cast<std::ptrdiff_t>(e.end));
}

DamageBytes sampleDer(const DamageBytes& raw) {
  std::string text(raw.begin(), raw.end());
  if (text.find_first_not_of(kBase64Text) != std::string::npos && text.find("-----BEGIN") == std::string::npos)
    return raw;
  const size_t begin = text.find('\n', text.find("-----BEGIN")), end = text.find("-----END");
  if (begin < end && end != std::string::npos) text = text.substr(begin, end - begin);
  return base64Decoded(text);
}

size_t emitDamagedCopies(const DamageBytes& b, const std::vector<DerElement>& all, const DamageSink& emit) {
  return cutShort(b, all, emit) + hostileLengths(b, all, emit) + cutInside(b, all, emit);
}
