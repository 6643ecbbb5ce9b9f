// The replay driver's damage mode: a sample read from a file (DER, PEM or base64), and the damaged copies of
// it that every decoder must survive: cut short; one element's length octets made hostile; one element cut
// short inside outer elements whose lengths are lowered to match. The elements are found by a small DER
// walker of this file's own, not by the library's cursors, so that a fault in those cannot hide itself.
#ifndef KOLVARI_FUZZ_REPLAY_DAMAGE_H
#define KOLVARI_FUZZ_REPLAY_DAMAGE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

using DamageBytes = std::vector<uint8_t>;

// Where one element lies: its tag, its length octets (lengthSize of them, the first one included) and its
// content, which ends at end; the index of the element that holds it (-1 for the outermost) and its depth.
struct DerElement {
  size_t start, lengthAt, lengthSize, contentAt, end;
  int parent, depth;
};

// Every element of b in encoding order (the DER inside an OCTET STRING or a BIT STRING counts as its
// children); empty when b does not start with a well-formed element. Bytes after it are left as they are.
std::vector<DerElement> derElements(const DamageBytes& b);

// The element at path (child indices, -1 for the last child) inside b; empty when there is none.
DamageBytes derElementAt(const DamageBytes& b, const std::vector<int>& path);

// The DER a sample file holds: the first PEM block or the whole text decoded when the file is PEM or base64
// text, else the bytes themselves (a wrong decode is caught by derElements).
DamageBytes sampleDer(const DamageBytes& raw);

using DamageSink = std::function<void(const DamageBytes& damaged)>;

// Hands every damaged copy of b (all: its elements, or empty for bytes that are not DER) to emit; returns how
// many there were.
size_t emitDamagedCopies(const DamageBytes& b, const std::vector<DerElement>& all, const DamageSink& emit);

#endif  // KOLVARI_FUZZ_REPLAY_DAMAGE_H
