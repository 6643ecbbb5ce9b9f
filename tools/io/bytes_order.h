// An order of byte strings for the keys of maps that only look things up: shorter first, then by content.
// std::less of two vectors compiles to a memcmp whose bound GCC 12 at -O3 cannot prove and reports
// (-Wstringop-overread); with the sizes compared first, memcmp gets one known, equal length.
#ifndef KOLVARI_TOOLS_IO_BYTES_ORDER_H
#define KOLVARI_TOOLS_IO_BYTES_ORDER_H

#include <cstring>
#include <vector>

using Bytes = std::vector<unsigned char>;

struct BytesOrder {
  bool operator()(const Bytes& a, const Bytes& b) const {
    if (a.size() != b.size()) return a.size() < b.size();
    return !a.empty() && std::memcmp(a.data(), b.data(), a.size()) < 0;
  }
};

#endif  // KOLVARI_TOOLS_IO_BYTES_ORDER_H
