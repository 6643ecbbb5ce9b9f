#include "asn1/cvel_oid.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

#include "asn1/cvel_a1_size.h"
#include "asn1/cvel_der.h"

namespace {

// Arcs are written in base 128 from these bit positions down; zero groups are skipped.
constexpr int kGroupShifts[] = {28, 21, 14, 7, 0};
constexpr uint32_t kGroupMask = 0x7F;
constexpr uint8_t kMoreOctets = 0x80;
constexpr uint32_t kFirstArcFactor = 40;
constexpr uint32_t kMaxArcOctets = 5;

// The converter's first-arc state, shared by every conversion in the process.
struct FirstArcState {
  uint32_t held = 0;
  bool set = false;
};
FirstArcState gFirstArc;

struct RegistryRow {
  int32_t kind;
  const char* dotted;
};

constexpr RegistryRow kRegistry[] = {
    {1001, "2.5.4.3"},
    {1002, "2.5.4.4"},
    {1003, "2.5.4.42"},
    {1004, "2.5.4.5"},
    {1005, "2.5.4.12"},
    {1006, "2.5.4.10"},
    {1007, "2.5.4.11"},
    {1008, "2.5.4.15"},
    {1009, "2.5.4.9"},
    {1010, "2.5.4.17"},
    {1011, "2.5.4.7"},
    {1012, "2.5.4.8"},
    {1013, "2.5.4.6"},
    {1014, "2.5.4.46"},
    {1015, "2.5.4.43"},
    {1016, "2.5.4.44"},
    {1017, "1.2.840.113549.1.9.1"},
    {1018, "0.9.2342.19200300.100.1.25"},
    {1019, "2.5.4.16"},
    {1020, "2.5.4.65"},
    {1021, "1.3.6.1.5.5.7.9.1"},
    {1022, "1.3.6.1.5.5.7.9.2"},
    {1023, "1.3.6.1.5.5.7.9.3"},
    {1025, "1.3.6.1.5.5.7.9.5"},
    {1026, "1.3.36.8.1.1"},
    {1027, "1.3.36.8.3.1"},
    {1028, "1.3.36.8.3.2"},
    {1029, "1.3.36.8.3.3"},
    {1030, "1.3.36.8.3.4"},
    {1031, "1.3.36.8.3.5"},
    {1032, "1.3.36.8.3.6"},
    {1033, "1.3.36.8.3.7"},
    {1034, "1.3.36.8.3.8"},
    {1035, "1.3.36.8.3.9"},
    {1036, "1.3.36.8.3.10"},
    {1037, "1.3.36.8.3.11"},
    {1038, "1.3.36.8.3.12"},
    {1039, "1.3.36.8.3.13"},
    {1040, "1.3.36.8.3.14"},
    {1041, "2.5.4.58"},
    {1042, "1.3.36.8.3.15"},
    {1043, "2.5.4.36"},
    {1044, "2.5.4.37"},
    {1045, "1.2.840.113549.1.9.16.2.12"},
    {1201, "1.3.36.3.3.1.2"},
    {1202, "1.2.840.113549.1.1.5"},
    {1203, "1.2.840.113549.1.1.2"},
    {1204, "1.2.840.113549.1.1.3"},
    {1205, "1.2.840.113549.1.1.4"},
    {1209, "1.2.840.113549.1.1.11"},
    {1210, "1.2.840.113549.1.1.12"},
    {1211, "1.3.36.3.2.1"},
    {1212, "1.3.14.3.2.26"},
    {1213, "1.2.840.113549.2.2"},
    {1215, "1.2.840.113549.2.5"},
    {1216, "2.16.840.1.101.3.4.2.1"},
    {1217, "2.16.840.1.101.3.4.2.2"},
    {1218, "2.16.840.1.101.3.4.2.3"},
    {1229, "1.2.840.113549.1.1.13"},
    {1232, "1.2.840.10045.4.1"},
    {1233, "1.2.840.10045.2.1"},
    {1246, "2.16.840.1.101.3.4.2.4"},
    {1450, "1.2.840.113549.1.1.1"},
    {1451, "1.2.840.113549.3.2"},
    {1452, "1.2.840.113549.3.7"},
    {1453, "1.3.36.3.1.11"},
    {1454, "2.16.840.1.101.3.4.1.1"},
    {1455, "2.16.840.1.101.3.4.1.2"},
    {1456, "2.16.840.1.101.3.4.1.3"},
    {1457, "2.16.840.1.101.3.4.1.4"},
    {1458, "2.16.840.1.101.3.4.1.21"},
    {1459, "2.16.840.1.101.3.4.1.22"},
    {1460, "2.16.840.1.101.3.4.1.23"},
    {1461, "2.16.840.1.101.3.4.1.24"},
    {1462, "2.16.840.1.101.3.4.1.41"},
    {1463, "2.16.840.1.101.3.4.1.42"},
    {1464, "2.16.840.1.101.3.4.1.43"},
    {1465, "2.16.840.1.101.3.4.1.44"},
    {1466, "1.3.6.1.4.1.11591.13.2.1"},
    {1467, "1.3.6.1.4.1.11591.13.2.2"},
    {1468, "1.3.6.1.4.1.11591.13.2.3"},
    {1469, "1.3.6.1.4.1.11591.13.2.4"},
    {1470, "1.3.6.1.4.1.11591.13.2.21"},
    {1471, "1.3.6.1.4.1.11591.13.2.22"},
    {1472, "1.3.6.1.4.1.11591.13.2.23"},
    {1473, "1.3.6.1.4.1.11591.13.2.24"},
    {1474, "1.3.6.1.4.1.11591.13.2.41"},
    {1475, "1.3.6.1.4.1.11591.13.2.42"},
    {1476, "1.3.6.1.4.1.11591.13.2.43"},
    {1477, "1.3.6.1.4.1.11591.13.2.44"},
    {2009, "2.5.29.9"},
    {2014, "2.5.29.14"},
    {2015, "2.5.29.15"},
    {2016, "2.5.29.16"},
    {2017, "2.5.29.17"},
    {2018, "2.5.29.18"},
    {2019, "2.5.29.19"},
    {2020, "2.5.29.20"},
    {2021, "2.5.29.21"},
    {2023, "2.5.29.23"},
    {2027, "2.5.29.27"},
    {2028, "2.5.29.28"},
    {2029, "2.5.29.29"},
    {2030, "2.5.29.30"},
    {2031, "2.5.29.31"},
    {2032, "2.5.29.32"},
    {2033, "2.5.29.33"},
    {2035, "2.5.29.35"},
    {2036, "2.5.29.36"},
    {2037, "2.5.29.37"},
    {3001, "1.3.6.1.4.1.311.20.2"},
    {3002, "1.3.6.1.4.1.311.10.3.4"},
    {3003, "1.3.6.1.4.1.311.10.3.4.1"},
    {3004, "1.3.6.1.4.1.311.20.2.1"},
    {3005, "1.3.6.1.4.1.311.20.2.2"},
    {3006, "1.3.6.1.4.1.311.20.2.3"},
    {3008, "1.3.6.1.4.1.311.21.4"},
    {3009, "1.3.6.1.4.1.311.10.3.1"},
    {3010, "1.3.6.1.4.1.311.10.3.2"},
    {3011, "1.3.6.1.4.1.311.10.3.9"},
    {3012, "1.3.6.1.4.1.311.10.3.12"},
    {3902, "1.3.6.1.5.5.7.1.2"},
    {3903, "1.3.6.1.5.5.7.1.3"},
    {4001, "1.3.6.1.5.5.7.3.1"},
    {4002, "1.3.6.1.5.5.7.3.2"},
    {4003, "1.3.6.1.5.5.7.3.3"},
    {4004, "1.3.6.1.5.5.7.3.4"},
    {4008, "1.3.6.1.5.5.7.3.8"},
    {4009, "1.3.6.1.5.5.7.3.9"},
    {4010, "1.3.6.1.5.5.7.1.1"},
    {4011, "1.3.6.1.5.5.7.48.1"},
    {4012, "1.3.6.1.5.5.7.48.1.1"},
    {4013, "1.3.6.1.5.5.7.48.1.6"},
    {4014, "1.3.6.1.4.1.5472.1.3"},
    {4015, "1.3.6.1.4.1.5472.1.2"},
    {5001, "0.2.262.1.10.7.20"},
    {5002, "0.2.262.1.10.12.0"},
    {5003, "0.2.262.1.10.3.0"},
    {6001, "0.4.0.1862.1.1"},
    {6002, "0.4.0.1862.1.2"},
    {7001, "1.2.840.113549.1.9.16.2.14"},
    {7002, "1.2.840.113549.1.9.3"},
    {7003, "1.2.840.113549.1.7.1"},
    {7004, "1.2.840.113549.1.7.2"},
    {7005, "1.2.840.113549.1.7.3"},
    {7100, "1.2.840.113549.1.9.5"},
    {7101, "1.2.840.113549.1.9.4"},
    {7102, "1.2.840.113549.1.9.16.2.24"},
    {10001, "1.3.6.1.4.1.47731.1"},
};
static_assert(sizeof(kRegistry) / sizeof(kRegistry[0]) == kOidRegistrySize);

// Appends one arc in standard base 128 (no group skipped); used to build the registry's DER.
void appendArc(std::string& out, uint64_t value) {
  unsigned char octets[10];
  int n = 0;
  do {
    octets[n++] = static_cast<unsigned char>(value & kGroupMask);
    value >>= 7;
  } while (value != 0);
  while (n > 1) out.push_back(static_cast<char>(octets[--n] | kMoreOctets));
  out.push_back(static_cast<char>(octets[0]));
}

std::string registryDer(const char* dotted) {
  std::string content;
  const char* p = dotted;
  char* end = nullptr;
  uint64_t first = std::strtoull(p, &end, 10);
  p = end + 1;
  uint64_t second = std::strtoull(p, &end, 10);
  appendArc(content, first * kFirstArcFactor + second);
  while (*end == '.') {
    p = end + 1;
    appendArc(content, std::strtoull(p, &end, 10));
  }
  std::string der;
  der.push_back(static_cast<char>(kTagOid));
  der.push_back(static_cast<char>(content.size()));
  return der + content;
}

// Identifiers that every signature names besides those of the registry (attribute types, digest and
// signature algorithms): converted ahead with the registry's texts, without becoming kinds of it.
constexpr const char* kConvertedAhead[] = {
    "1.2.840.113549.1.9.16.2.47", "1.2.840.113549.1.9.16.2.14", "1.2.840.113549.1.1.1",  "1.2.840.113549.1.1.5",
    "1.2.840.113549.1.1.10",      "1.2.840.113549.1.1.11",      "1.2.840.113549.1.1.12", "1.2.840.113549.1.1.13",
    "1.2.840.10045.2.1",          "1.2.840.10045.4.3.2",        "1.2.840.10045.4.3.3",   "1.2.840.10045.4.3.4",
    "2.16.840.1.101.3.4.2.2",     "2.16.840.1.101.3.4.2.3",     "2.16.840.1.101.3.4.2.4"};

// The converter behind fromDotted, on a state of the caller's.
void convertDotted(const char* text, FirstArcState& state, std::string& content);

struct RegistryIndex {
  struct Entry {
    std::string der;
    int32_t kind;
    const char* dotted;
  };
  // Open addressing over the DER elements: a slot holds an index into byDer, or kEmptySlot. Lookups happen
  // for every name attribute and extension of every certificate, so they hash instead of searching.
  static constexpr uint32_t kSlots = 512;  // a power of two, over three times the registry's size
  static constexpr int16_t kEmptySlot = -1;
  static_assert(kSlots >= 2 * (kOidRegistrySize + std::size(kConvertedAhead)), "the hash tables keep free slots");

  // The attribute types (2.5.4.x) and certificate extensions (2.5.29.x) of one arc after the prefix: the
  // lookups of nearly every name attribute and extension, answered by a table filled from find() itself.
  static constexpr unsigned char kShortLength = 3;
  static constexpr unsigned char kJointIsoItuT = 0x55;  // 2.5
  static constexpr unsigned char kAttributeTypes = 0x04;
  static constexpr unsigned char kCertificateExtensions = 0x1D;

  // The registry's dotted texts and those converted ahead, as the converter turns them into content octets,
  // with the first-arc value that conversion leaves held: fromDotted meets these texts on every signer and
  // skips the conversion.
  struct Converted {
    const char* dotted;
    size_t dottedLength;
    std::string content;
    uint32_t held;
    // The whole element as fromDotted writes it with the tag, lent out by fromDottedElement.
    std::string element;
  };

  std::vector<Entry> byDer;
  int16_t slots[kSlots];
  std::vector<Converted> converted;
  int16_t dottedSlots[kSlots];
  int32_t attributeKinds[256];
  int32_t extensionKinds[256];

  static uint32_t hash(std::string_view der) {
    uint32_t h = 2166136261u;  // FNV-1a
    for (char c : der) h = (h ^ static_cast<unsigned char>(c)) * 16777619u;
    return h;
  }

  // The dotted texts share long prefixes and differ at their ends: the length and the last eight characters
  // tell them apart well enough, without a pass over the whole text on every signer's lookups.
  static uint32_t dottedHash(std::string_view text) {
    uint64_t tail = 0;
    const size_t take = std::min(text.size(), sizeof tail);
    if (take != 0) std::memcpy(&tail, text.data() + text.size() - take, take);
    // Two rounds, so that the last characters reach the low bits the table's mask keeps.
    uint64_t x = (tail ^ text.size()) * kMixer;
    x ^= x >> kMixerShift;
    return static_cast<uint32_t>((x * kMixer) >> kMixerShift);
  }
  static constexpr uint64_t kMixer = 0x9E3779B97F4A7C15u;  // 2^64 / golden ratio
  static constexpr int kMixerShift = 32;

  // Out of line: inlined into registry(), which every lookup calls, it made each call save and restore every
  // register the construction uses.
  [[gnu::noinline]] RegistryIndex() {
    for (const RegistryRow& row : kRegistry) byDer.push_back({registryDer(row.dotted), row.kind, row.dotted});
    std::sort(byDer.begin(), byDer.end(), [](const Entry& a, const Entry& b) { return a.der < b.der; });
    std::fill(std::begin(slots), std::end(slots), kEmptySlot);
    // In sorted order, the first of equal elements taking the slot: the one a search of byDer finds.
    for (size_t i = 0; i < byDer.size(); ++i) {
      uint32_t slot = hash(byDer[i].der) & (kSlots - 1);
      bool present = false;
      while (slots[slot] != kEmptySlot && !present) {
        present = byDer[static_cast<size_t>(slots[slot])].der == byDer[i].der;
        slot = (slot + 1) & (kSlots - 1);
      }
      if (!present) slots[slot] = static_cast<int16_t>(i);
    }
    std::fill(std::begin(dottedSlots), std::end(dottedSlots), kEmptySlot);
    for (const RegistryRow& row : kRegistry) convertAhead(row.dotted);
    for (const char* dotted : kConvertedAhead) convertAhead(dotted);
    for (int last = 0; last < 256; ++last) {
      for (auto [arc, table] : {std::pair{kAttributeTypes, attributeKinds}, {kCertificateExtensions, extensionKinds}}) {
        const char der[] = {static_cast<char>(kTagOid), kShortLength, kJointIsoItuT, static_cast<char>(arc),
                            static_cast<char>(last)};
        const Entry* e = find(std::string_view(der, sizeof der));
        table[last] = e == nullptr ? kOidUnknown : e->kind;
      }
    }
  }

  // The kind of a five-octet element 06 03 55 xx yy when the table holds it; false for any other element.
  bool shortKind(const unsigned char* p, uint32_t n, int32_t& kind) const {
    if (n != kShortLength + 2 || p[1] != kShortLength || p[2] != kJointIsoItuT) return false;
    if (p[3] == kAttributeTypes) {
      kind = attributeKinds[p[4]];
      return true;
    }
    if (p[3] == kCertificateExtensions) {
      kind = extensionKinds[p[4]];
      return true;
    }
    return false;
  }

  void convertAhead(const char* dotted) {
    FirstArcState state;
    Converted c{dotted, std::strlen(dotted), std::string(), 0, std::string()};
    convertDotted(dotted, state, c.content);
    if (state.set) return;  // a single arc leaves the state set for the next conversion: never skipped
    c.held = state.held;
    CvelString element;
    if (wrap(c.content.data(), static_cast<uint32_t>(c.content.size()), kTagOid, element) == kCvelOk) {
      c.element.assign(reinterpret_cast<const char*>(element.data()), element.length());
    }
    uint32_t slot = dottedHash(dotted) & (kSlots - 1);
    while (dottedSlots[slot] != kEmptySlot) {
      if (std::strcmp(converted[static_cast<size_t>(dottedSlots[slot])].dotted, dotted) == 0) return;
      slot = (slot + 1) & (kSlots - 1);
    }
    dottedSlots[slot] = static_cast<int16_t>(converted.size());
    converted.push_back(std::move(c));
  }

  // The conversion of a text converted ahead, or null for any other text.
  const Converted* findConverted(const char* dotted) const {
    const std::string_view text(dotted);
    for (uint32_t slot = dottedHash(text) & (kSlots - 1); dottedSlots[slot] != kEmptySlot;
         slot = (slot + 1) & (kSlots - 1)) {
      const Converted& c = converted[static_cast<size_t>(dottedSlots[slot])];
      if (c.dottedLength == text.size() && std::memcmp(c.dotted, text.data(), text.size()) == 0) return &c;
    }
    return nullptr;
  }

  const Entry* find(std::string_view der) const {
    for (uint32_t slot = hash(der) & (kSlots - 1); slots[slot] != kEmptySlot; slot = (slot + 1) & (kSlots - 1)) {
      const Entry& e = byDer[static_cast<size_t>(slots[slot])];
      if (e.der == der) return &e;
    }
    return nullptr;
  }
};

const RegistryIndex& registry() {
  static const RegistryIndex index;
  return index;
}

// The lookup of an element the short tables do not hold. Out of line, so that the lookups the tables answer
// (nearly all of a certificate's) do not pay for the registers the search uses.
[[gnu::noinline]] int32_t kindByHash(const RegistryIndex& index, const unsigned char* element, uint32_t n) {
  const RegistryIndex::Entry* found = index.find(std::string_view(reinterpret_cast<const char*>(element), n));
  return found == nullptr ? kOidUnknown : found->kind;
}

// One arc as the converter writes it: five 7-bit groups from the top. A group of value zero is left out, and
// the continuation bit is set on every group written except the one at bit position 0, so 128 becomes the
// single octet 0x81 and 16384 the single octet 0x81 as well. Hosts depend on exactly these octets; only the
// value 0 itself is written, as one zero octet.
uint32_t writeConverterArc(uint32_t value, unsigned char* out) {
  uint32_t n = 0;
  if (value == 0) {
    out[n++] = 0;
    return n;
  }
  for (int shift : kGroupShifts) {
    uint32_t group = (value >> shift) & kGroupMask;
    if (group == 0) continue;
    out[n++] = static_cast<unsigned char>(shift == 0 ? group : group | kMoreOctets);
  }
  return n;
}

// One piece of dotted text as a signed decimal number the way a 32-bit C library's text-to-long conversion
// reads it: leading white space and a sign are taken, anything else ends the number (no digits give 0), and
// a number outside the 32-bit range saturates at its bound.
uint32_t readArc(const std::string& piece) {
  long long value = std::strtoll(piece.c_str(), nullptr, 10);
  if (value > INT32_MAX) value = INT32_MAX;
  if (value < INT32_MIN) value = INT32_MIN;
  return static_cast<uint32_t>(static_cast<int32_t>(value));
}

// Most pieces are plain digits: up to nine of them, ended by a dot or the end of the text, read directly to the
// value readArc gives them. Anything else (an empty piece, white space, a sign, more digits) is left to readArc.
constexpr uint32_t kPlainDigitsMax = 9;

bool readPlainArc(const char* piece, const char* dot, uint32_t& value) {
  const char* end = dot == nullptr ? piece + std::strlen(piece) : dot;
  const size_t n = static_cast<size_t>(end - piece);
  if (n == 0 || n > kPlainDigitsMax) return false;
  uint32_t v = 0;
  for (const char* p = piece; p != end; ++p) {
    if (*p < '0' || *p > '9') return false;
    v = v * 10 + static_cast<uint32_t>(*p - '0');
  }
  value = v;
  return true;
}

void convertDotted(const char* text, FirstArcState& state, std::string& content) {
  content.clear();
  bool firstPiece = true;
  const char* piece = text;
  while (true) {
    const char* dot = std::strchr(piece, '.');
    // Arithmetic on the arcs wraps at 32 bits, as they are written from a 32-bit value.
    uint32_t value = 0;
    if (!readPlainArc(piece, dot, value)) {
      value = readArc(dot == nullptr ? std::string(piece) : std::string(piece, static_cast<size_t>(dot - piece)));
    }
    if (firstPiece) {
      // The first arc only sets the shared state; it is added into the second piece.
      state.held = value * kFirstArcFactor;
      state.set = true;
      firstPiece = false;
    } else {
      if (state.set) {
        value += state.held;
        state.set = false;
      }
      unsigned char octets[kMaxArcOctets];
      uint32_t n = writeConverterArc(value, octets);
      content.append(reinterpret_cast<const char*>(octets), n);
    }
    if (dot == nullptr) break;
    piece = dot + 1;
  }
}

// A registry identifier converts as it did when the registry was built; the shared first-arc state is left
// as that conversion leaves it.
const RegistryIndex::Converted* convertedAhead(const char* text) {
  const RegistryIndex::Converted* c = registry().findConverted(text);
  if (c != nullptr) {
    gFirstArc.held = c->held;
    gFirstArc.set = false;
  }
  return c;
}

}  // namespace

CvelResult fromDottedElement(const char* text, CvelString& out) {
  if (text == nullptr) return kCvelNone;
  const RegistryIndex::Converted* c = convertedAhead(text);
  // Any other text takes fromDotted's path, which looks it up again and leaves the state as it would alone.
  if (c == nullptr || c->element.empty()) return fromDotted(text, out, 1);
  return out.setView(c->element.data(), c->element.size());
}

CvelResult fromDotted(const char* text, CvelString& out, int withTag) {
  if (text == nullptr) return kCvelNone;
  std::string content;
  const std::string* known = nullptr;
  if (const RegistryIndex::Converted* c = convertedAhead(text)) {
    known = &c->content;
  } else {
    convertDotted(text, gFirstArc, content);
    known = &content;
  }
  if (known->empty()) return kCvelNone;
  if (known->size() > CvelString::kViewCapacity - 16) return kCvelErrNoMemory;
  if (withTag == 1) return wrap(known->data(), static_cast<uint32_t>(known->size()), kTagOid, out);
  return out.assign(known->data(), static_cast<uint32_t>(known->size()));
}

int32_t kindOf(const CvelString& der) { return kindOf(der.data(), der.length()); }

int32_t kindOf(const void* der, uint32_t n) {
  if (der == nullptr || n == 0) return 0;
  const unsigned char* p = static_cast<const unsigned char*>(der);
  if (p[0] != kTagOid || n < 2) return kOidUnknown;
  uint32_t length = p[1];
  if (length > n + 2 || length + 2 > n) return kOidUnknown;
  const RegistryIndex& index = registry();
  int32_t kind = kOidUnknown;
  if (index.shortKind(p, length + 2, kind)) return kind;
  return kindByHash(index, p, length + 2);
}

const char* dottedOfKind(int32_t kind) {
  for (const RegistryRow& row : kRegistry) {
    if (row.kind == kind) return row.dotted;
  }
  return nullptr;
}

bool toDotted(const CvelString& der, std::string& text) { return toDotted(der.data(), der.length(), text); }

bool toDotted(const void* der, uint32_t n, std::string& text) {
  text.clear();
  if (der == nullptr || n == 0) return false;
  const unsigned char* p = static_cast<const unsigned char*>(der);
  if (p[0] == kTagOid) {
    // A whole element: take the content it announces, within what is there.
    if (n < 2 || p[1] >= kShortLengthLimit || p[1] + 2u > n) return false;
    n = p[1];
    p += 2;
    if (n == 0) return false;
  }
  bool first = true;
  uint64_t value = 0;
  uint32_t octetsInArc = 0;
  for (uint32_t i = 0; i < n; ++i) {
    // An arc may not start with 0x80 nor exceed 64 bits.
    if ((octetsInArc == 0 && p[i] == kMoreOctets) || octetsInArc == 9) return false;
    value = value << 7 | (p[i] & kGroupMask);
    ++octetsInArc;
    if ((p[i] & kMoreOctets) != 0) continue;
    if (first) {
      uint64_t top = value < kFirstArcFactor ? 0 : (value < 2 * kFirstArcFactor ? 1 : 2);
      text += std::to_string(top);
      text.push_back('.');
      text += std::to_string(value - top * kFirstArcFactor);
      first = false;
    } else {
      text.push_back('.');
      text += std::to_string(value);
    }
    value = 0;
    octetsInArc = 0;
  }
  return octetsInArc == 0;
}

int32_t CvelOIDs::indexOf(const char* text) const {
  if (text == nullptr) return -1;
  CvelString der;
  if (fromDotted(text, der, 1) != kCvelOk) return -1;
  for (uint32_t i = 0; i < size(); ++i) {
    CvelOID* oid = nullptr;
    if (get(i, oid) == kCvelOk && oid != nullptr && oid->equals(der)) return static_cast<int32_t>(i);
  }
  return -1;
}

CvelResult CvelOIDs::add(const char* text) {
  if (text == nullptr) return kCvelErrBadParameter;
  CvelString der;
  if (fromDotted(text, der, 1) != kCvelOk) return kCvelErrMalformed;
  return addDer(der);
}

CvelResult CvelOIDs::addDer(const CvelString& der) {
  for (uint32_t i = 0; i < size(); ++i) {
    CvelOID* oid = nullptr;
    if (get(i, oid) == kCvelOk && oid != nullptr && oid->equals(der)) return kCvelNone;
  }
  CvelOID* copy = new CvelOID();
  if (copy->assign(der) != kCvelOk) {
    delete copy;
    return kCvelErrMalformed;
  }
  return add(copy);
}
