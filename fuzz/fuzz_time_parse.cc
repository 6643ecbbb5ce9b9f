// Parses arbitrary bytes as time text and decodes them as DER times, bare or inside a SEQUENCE, and checks
// that a successful parse always yields fields that print back as fifteen characters.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "asn1/cvel_a1_context.h"
#include "asn1/cvel_string.h"
#include "asn1/cvel_time.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

void checkParsed(const CvelTime& t) {
  check(t.isValid());
  check(t.year() >= 0 && t.year() <= 9999);
  check(t.month() >= 0 && t.month() <= 99);
  CvelString text;
  check(t.toText(text) == kCvelOk);
  check(text.length() == 15);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 4096) return 0;
  CvelString s;
  if (s.assign(data, static_cast<uint32_t>(size)) != kCvelOk) return 0;

  CvelTime t;
  const CvelResult parsed = t.parse(s);
  if (parsed == kCvelOk) {
    checkParsed(t);
  } else {
    check(parsed == 0 && t.state() == CvelTime::kParsing);
  }
  // The same bytes as a view without a terminator: the parse must not read past them.
  CvelString view;
  view.setView(data, size);
  CvelTime v;
  check(v.parse(view) == parsed);

  CvelTime d;
  const CvelResult decoded = d.decode(s, nullptr);
  if (decoded == kCvelOk) checkParsed(d);
  // Decoding through a cursor over the first element reads inside it.
  CvelA1Context c;
  if (c.next(s) >= 0) {
    CvelTime inner;
    if (inner.decode(s, &c) == kCvelOk) checkParsed(inner);
  }
  // The bytes as the content of a UTCTime and of a GeneralizedTime element.
  if (size < 128) {
    for (uint8_t tag : {0x17, 0x18}) {
      unsigned char der[130];
      der[0] = tag;
      der[1] = static_cast<unsigned char>(size);
      for (size_t i = 0; i < size; ++i) der[2 + i] = data[i];
      CvelString element;
      if (element.assign(der, static_cast<uint32_t>(size + 2)) != kCvelOk) return 0;
      CvelTime e;
      const CvelResult r = e.decode(element, nullptr);
      check((r == kCvelOk) == (parsed == kCvelOk));
      if (r == kCvelOk) checkParsed(e);
    }
  }
  return 0;
}
