#include "asn1/cvel_a1_node.h"

CvelA1Node CvelA1Node::raw(const void* bytes, uint64_t n) {
  CvelA1Node node;
  node.bytes_ = static_cast<const unsigned char*>(bytes);
  node.contentSize_ = bytes == nullptr ? 0 : n;
  return node;
}

CvelA1Node CvelA1Node::primitive(uint8_t tag, const void* bytes, uint64_t n) {
  CvelA1Node node = raw(bytes, n);
  node.tag_ = tag;
  node.hasHeader_ = true;
  return node;
}

CvelA1Node CvelA1Node::sequenceOf(std::vector<CvelA1Node> children) {
  CvelA1Node node;
  for (const CvelA1Node& child : children) node.contentSize_ += child.size();
  node.children_ = std::move(children);
  return node;
}

CvelA1Node CvelA1Node::constructed(uint8_t tag, std::vector<CvelA1Node> children) {
  CvelA1Node node = sequenceOf(std::move(children));
  node.tag_ = tag;
  node.hasHeader_ = true;
  return node;
}

void CvelA1Node::write(CvelA1Writer& w) const {
  if (hasHeader_) w.header(tag_, contentSize_);
  if (bytes_ != nullptr) w.bytes(bytes_, contentSize_);
  for (const CvelA1Node& child : children_) child.write(w);
}

CvelResult CvelA1Node::encode(CvelString& out) const {
  return cvelWriteExactly(size(), out, [this](CvelA1Writer& w) { write(w); });
}

CvelResult CvelA1Node::appendTo(std::vector<unsigned char>& out) const {
  uint64_t total = size();
  if (total > out.max_size() - out.size()) return kCvelErrNoMemory;
  size_t at = out.size();
  out.resize(at + static_cast<size_t>(total));
  CvelA1Writer w(out.data() + at, total);
  write(w);
  return w.complete() ? kCvelOk : kCvelErrMalformed;
}
