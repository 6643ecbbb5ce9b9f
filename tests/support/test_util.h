// Helpers shared by the unit tests: bytes from hex text, small DER by hand, files from the test data folder.
#ifndef KOLVARI_TESTS_SUPPORT_TEST_UTIL_H
#define KOLVARI_TESTS_SUPPORT_TEST_UTIL_H

#include <string>
#include <vector>

#include "asn1/cvel_a1_input.h"
#include "asn1/cvel_a1_stream_cursor.h"
#include "asn1/cvel_string.h"

namespace testutil {

using Bytes = std::vector<unsigned char>;

// "30 03 02 01 05" or "3003020105" to bytes; anything but hex digits is skipped.
Bytes hex(const std::string& text);
// Upper-case hex of bytes, without spaces.
std::string toHex(const Bytes& bytes);
std::string toHex(const CvelString& s);
// An owned CvelString holding the bytes of hex text.
void assignHex(CvelString& out, const std::string& text);
CvelString hexString(const std::string& text);
Bytes toBytes(const CvelString& s);

// T::decode(in, cursor) over bytes, the cursor first on their first element; with next false it is handed over
// unread, for objects that read their own first element.
template <typename T>
CvelResult decodeFirst(const Bytes& bytes, T& object, bool next = true) {
  CvelString image;
  if (image.assign(bytes.data(), static_cast<uint32_t>(bytes.size())) != kCvelOk) return kCvelErrNoMemory;
  CvelA1InputString in(image, 0, image.length());
  CvelA1StreamCursor cursor;
  const CvelResult first = next ? cursor.next(in) : kCvelOk;
  return first == kCvelOk ? object.decode(in, cursor) : first;
}

// An element of up to 65535 content octets from tag and content in hex, the length counted here (short, 81 or
// 82 form): DER written by hand in tests.
std::string tlv(const std::string& tag, const std::string& content);

// Path of a file under tests/data.
std::string dataPath(const std::string& name);
// Whole file; an empty vector when it cannot be read.
Bytes readFile(const std::string& path);
// Runs a shell command, returning its exit status and (optionally) its standard output.
int run(const std::string& command, std::string* output = nullptr);

}  // namespace testutil

#endif  // KOLVARI_TESTS_SUPPORT_TEST_UTIL_H
