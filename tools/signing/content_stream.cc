#include "signing/content_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "asn1/cvel_der.h"

namespace {

// Far beyond any file, and small enough that a length grown by it and by every header never overflows.
constexpr uint64_t kMaxSplicedContent = uint64_t{1} << 62;
constexpr size_t kMaxLengthOctets = 8;
// Bytes asked of one copy_file_range() call.
constexpr size_t kMaxKernelCopy = size_t{1} << 30;
constexpr int kBitsPerByte = 8;
// [0] EXPLICIT around an empty OCTET STRING: the placeholder's content, four bytes.
constexpr unsigned char kEmptyExplicitContent[] = {kTagContext0, 0x02, kTagOctetString, 0x00};

// A copy_file_range() failure that only says this pair of files is not for the kernel to copy.
bool kernelCannotCopy(int error) {
  return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EBADF;
}

bool sameTime(const struct timespec& a, const struct timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// One element's identifier and length octets in an encoding.
struct Header {
  size_t offset = 0;
  size_t headerLength = 0;
  uint64_t contentLength = 0;
  unsigned char tag = 0;
  size_t end() const { return offset + headerLength + static_cast<size_t>(contentLength); }
};

// DER identifier and length octets: the short form below 128, else the fewest length octets.
Bytes encodeHeader(unsigned char tag, uint64_t length) {
  Bytes out{tag};
  if (length < kLengthLongForm) {
    out.push_back(static_cast<unsigned char>(length));
    return out;
  }
  std::array<unsigned char, kMaxLengthOctets> octets{};
  size_t count = 0;
  for (uint64_t rest = length; rest != 0; rest >>= kBitsPerByte) octets[count++] = static_cast<unsigned char>(rest);
  out.push_back(static_cast<unsigned char>(kLengthLongForm | count));
  while (count > 0) out.push_back(octets[--count]);
  return out;
}

// The header at offset with the expected tag, its content within der, written in DER's own form (so that
// writing it again with another length changes nothing but the length).
bool readHeader(const Bytes& der, size_t offset, unsigned char tag, Header& h) {
  if (offset >= der.size() || der.size() - offset < 2 || der[offset] != tag ||
      (tag & kTagHighNumberMask) == kTagHighNumberMask) {
    return false;
  }
  h.offset = offset;
  h.tag = tag;
  const unsigned char first = der[offset + 1];
  uint64_t length = first;
  h.headerLength = 2;
  if ((first & kLengthLongForm) != 0) {
    const size_t count = first & static_cast<unsigned char>(~kLengthLongForm);
    if (count == 0 || count > kMaxLengthOctets || der.size() - offset - 2 < count) return false;
    length = 0;
    for (size_t i = 0; i < count; ++i) length = (length << kBitsPerByte) | der[offset + 2 + i];
    h.headerLength = 2 + count;
  }
  if (length > der.size() - offset - h.headerLength) return false;
  h.contentLength = length;
  const Bytes canonical = encodeHeader(tag, length);
  return canonical.size() == h.headerLength &&
         std::memcmp(canonical.data(), der.data() + offset, h.headerLength) == 0;
}

// Skips one whole element with the expected tag at offset; false when there is none.
bool skipElement(const Bytes& der, size_t& offset, unsigned char tag) {
  Header h;
  if (!readHeader(der, offset, tag, h)) return false;
  offset = h.end();
  return true;
}

// The elements whose lengths hold the content's, outermost first: ContentInfo, its [0], SignedData,
// EncapsulatedContentInfo, its [0], and the OCTET STRING of the content itself (empty in the placeholder).
constexpr size_t kEnclosing = 6;

bool findEnclosing(const Bytes& der, std::array<Header, kEnclosing>& h) {
  size_t at = 0;
  if (!readHeader(der, at, kTagSequence, h[0]) || h[0].end() != der.size()) return false;
  at = h[0].headerLength;
  if (der.size() - at < sizeof kDerOidSignedData ||
      std::memcmp(der.data() + at, kDerOidSignedData, sizeof kDerOidSignedData) != 0) {
    return false;
  }
  at += sizeof kDerOidSignedData;
  if (!readHeader(der, at, kTagContext0, h[1]) || h[1].end() != h[0].end()) return false;
  if (!readHeader(der, at + h[1].headerLength, kTagSequence, h[2]) || h[2].end() != h[1].end()) return false;
  at = h[2].offset + h[2].headerLength;
  if (!skipElement(der, at, kTagInteger) || !skipElement(der, at, kTagSet)) return false;
  const Bytes expected = placeholderContentInfo();
  if (der.size() - at < expected.size() || std::memcmp(der.data() + at, expected.data(), expected.size()) != 0) {
    return false;
  }
  // The placeholder is known byte for byte: its three headers are read, not assumed.
  if (!readHeader(der, at, kTagSequence, h[3])) return false;
  at += h[3].headerLength;
  return skipElement(der, at, kTagOid) && readHeader(der, at, kTagContext0, h[4]) &&
         readHeader(der, at + h[4].headerLength, kTagOctetString, h[5]) && h[5].contentLength == 0;
}

}  // namespace

bool ContentFile::open(const std::string& path, std::string& error) {
  path_ = path;
  if (!file_.open(path, error)) return false;
  if (fstat(file_.descriptor(), &opened_) != 0) {
    error = path + ": " + std::strerror(errno);
    return false;
  }
  regular_ = S_ISREG(opened_.st_mode);
  // Read from start to end: the kernel may read further ahead.
  if (regular_) posix_fadvise(file_.descriptor(), 0, 0, POSIX_FADV_SEQUENTIAL);
  buffer_.resize(kContentReadBuffer);
  return true;
}

// Fills the buffer as far as one read gives; got is 0 at the end of the file.
bool ContentFile::readChunk(size_t& got, std::string& error) {
  const long n = file_.read(buffer_.data(), buffer_.size());
  if (n < 0) {
    error = path_ + ": " + std::strerror(errno);
    return false;
  }
  got = static_cast<size_t>(n);
  return true;
}

bool ContentFile::unchangedSince(const struct stat& before, std::string& error) const {
  struct stat now;
  if (!regular_) return true;
  if (fstat(file_.descriptor(), &now) == 0 && now.st_size == before.st_size && static_cast<uint64_t>(now.st_size) == size_ &&
      sameTime(now.st_mtim, before.st_mtim) && sameTime(now.st_ctim, before.st_ctim)) {
    return true;
  }
  error = path_ + " changed while it was being signed";
  return false;
}

bool ContentFile::digest(const DigestChoice& digest, Bytes& out, std::string& error) {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  if (ctx == nullptr || EVP_DigestInit_ex(ctx.get(), digest.md(), nullptr) != 1) {
    error = "cannot hash: " + opensslError();
    return false;
  }
  size_ = 0;
  for (size_t got = 1; got > 0;) {
    if (!readChunk(got, error)) return false;
    if (EVP_DigestUpdate(ctx.get(), buffer_.data(), got) != 1) {
      error = "cannot hash: " + opensslError();
      return false;
    }
    size_ += got;
  }
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int n = 0;
  if (EVP_DigestFinal_ex(ctx.get(), md, &n) != 1) {
    error = "cannot hash: " + opensslError();
    return false;
  }
  out.assign(md, md + n);
  return unchangedSince(opened_, error);
}

bool ContentFile::readAll(Bytes& out, std::string& error) {
  out.clear();
  for (size_t got = 1; got > 0;) {
    if (!readChunk(got, error)) return false;
    out.insert(out.end(), buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(got));
  }
  size_ = out.size();
  return unchangedSince(opened_, error);
}

// Copies from file to file without passing the bytes through this process, where the kernel can (both plain
// files); left counts down what is still to be copied. An output the kernel cannot copy to leaves left as it
// is, for the copy through the buffer.
bool ContentFile::copyInKernel(int to, uint64_t& left, std::string& error) {
  loff_t from = 0;
  while (left > 0) {
    const size_t chunk = left < kMaxKernelCopy ? static_cast<size_t>(left) : kMaxKernelCopy;
    const ssize_t n = copy_file_range(file_.descriptor(), &from, to, nullptr, chunk, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && from == 0 && kernelCannotCopy(errno)) return true;
    if (n < 0) return false;  // a write error: the caller names the output
    if (n == 0) {
      error = path_ + " changed while it was being signed";
      return false;
    }
    left -= static_cast<uint64_t>(n);
  }
  return true;
}

bool ContentFile::copyTo(ByteSink& sink, std::string& error) {
  if (!regular_ || lseek(file_.descriptor(), 0, SEEK_SET) != 0) {
    error = "cannot read " + path_ + " a second time";
    return false;
  }
  uint64_t left = size_;
  if (sink.descriptor() >= 0 && !copyInKernel(sink.descriptor(), left, error)) return false;
  while (left > 0) {
    size_t got = 0;
    if (!readChunk(got, error)) return false;
    if (got == 0 || got > left) {
      error = path_ + " changed while it was being signed";
      return false;
    }
    if (!sink.write(buffer_.data(), got)) return false;  // the caller names the output
    left -= got;
  }
  return unchangedSince(opened_, error);
}

Bytes placeholderContentInfo() {
  Bytes body(kDerOidData, kDerOidData + sizeof kDerOidData);
  body.insert(body.end(), kEmptyExplicitContent, kEmptyExplicitContent + sizeof kEmptyExplicitContent);
  Bytes out = encodeHeader(kTagSequence, body.size());
  out.insert(out.end(), body.begin(), body.end());
  return out;
}

bool spliceContent(const Bytes& placeholder, uint64_t contentLength, SplicedContainer& out, std::string& error) {
  if (contentLength > kMaxSplicedContent) {
    error = "content of " + std::to_string(contentLength) + " bytes is too large to sign";
    return false;
  }
  std::array<Header, kEnclosing> h;
  if (!findEnclosing(placeholder, h)) {
    error = "the library's container does not hold the content where expected";
    return false;
  }
  // From the content outwards: each element grows by what its inner element grew, header included.
  std::array<Bytes, kEnclosing> grown;
  uint64_t growth = contentLength;
  for (size_t i = kEnclosing; i-- > 0;) {
    grown[i] = encodeHeader(h[i].tag, h[i].contentLength + growth);
    growth += grown[i].size() - h[i].headerLength;
  }
  // Every byte up to the content, each enclosing header swapped for its grown one.
  out.head.clear();
  size_t at = 0;
  for (size_t i = 0; i < kEnclosing; ++i) {
    out.head.insert(out.head.end(), placeholder.begin() + static_cast<std::ptrdiff_t>(at),
                    placeholder.begin() + static_cast<std::ptrdiff_t>(h[i].offset));
    out.head.insert(out.head.end(), grown[i].begin(), grown[i].end());
    at = h[i].offset + h[i].headerLength;
  }
  out.tail.assign(placeholder.begin() + static_cast<std::ptrdiff_t>(at), placeholder.end());
  return true;
}
