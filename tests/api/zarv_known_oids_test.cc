// The table of known identifiers lends out elements in place of the converter: each must be the converter's
// own output for its text, and only a whole, exact text may find one.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "api/zarv_known_oids.h"
#include "asn1/cvel_oid.h"
#include "asn1/cvel_string.h"

namespace {

TEST(ZarvKnownOidsTest, EveryElementIsWhatTheConverterWritesForItsText) {
  for (const ZarvKnownOid& known : zarvKnownOids()) {
    const std::string text(known.dotted);
    CvelString converted;
    ASSERT_EQ(fromDottedElement(text.c_str(), converted), kCvelOk) << text;
    EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(converted.data()), converted.length()), known.element)
        << text;
    EXPECT_EQ(zarvKnownOidElement(known.dotted), known.element) << text;
  }
}

TEST(ZarvKnownOidsTest, OnlyTheWholeTextFindsAnElement) {
  using namespace std::string_literals;
  for (const std::string& text : {"2.16.840.1.101.3.4.2.1\0"s "7"s, "2.16.840.1.101.3.4.2.1 "s, "2.16.840.1.101.3.4.2."s,
                                  "2.16.840.1.101.3.4.2.4"s, "12.16.840.1.101.3.4.2.1"s, ""s}) {
    EXPECT_TRUE(zarvKnownOidElement(text).empty()) << text;
  }
}

}  // namespace
