#include "x509/cvel_certificate_extension.h"

#include <gtest/gtest.h>

#include "asn1/cvel_oid.h"
#include "support/test_util.h"

namespace {

using namespace testutil;

// basicConstraints without BOOLEAN, keyUsage with FF, subjectKeyIdentifier with 00, keyUsage with 01.
constexpr char kExtensions[] =
    "30 3F 30 0C 06 03 55 1D 13 04 05 30 03 01 01 FF   30 0E 06 03 55 1D 0F 01 01 FF 04 04 03 02 06 40"
    "      30 0F 06 03 55 1D 0E 01 01 00 04 05 04 03 01 02 03   30 0E 06 03 55 1D 0F 01 01 01 04 04 03 02 07 80";

TEST(CvelCertificateExtensions, RecordsKeepWhateverTheyHoldAndLookupsCount) {
  const struct { const char* der; CvelResult result; const char* records; } cases[] = {
      // No record needs an OID or a value: an OID alone, an OID and a BOOLEAN, a BOOLEAN first, nothing at all.
      // Where the value is missing, the element read last is taken as the value: the OID, the BOOLEAN, the
      // record itself.
      {"30 1C 30 05 06 03 55 1D 13 30 08 06 03 55 1D 13 01 01 FF 30 07 01 01 FF 04 02 05 00 30 00", kCvelOk,
       "2019/0603551D13/0/0603551D13 2019/0603551D13/1/0101FF 0//0/04020500 0//0/3000"},
      {"30 15 30 08 06 03 55 1D 13 04 01 00 02 01 05 30 06 06 01 2A 04 01 00", kCvelOk,  // a non-SEQUENCE ends
       "2019/0603551D13/0/040100"},
      {"30 00", kCvelOk, ""}, {"30 03 02 01 05", kCvelOk, ""}, {"31 00", 0, ""}, {"30 05 30 03 06 01", 0, ""},
      {"", 0, ""},
      {kExtensions, kCvelOk,  // registry id/OID/critical/value of each record; kept for the lookups below
       "2019/0603551D13/0/040530030101FF 2015/0603551D0F/1/040403020640 2014/0603551D0E/0/04050403010203 "
       "2015/0603551D0F/1/040403020780"},
  };
  CvelCertificateExtensions list;
  CvelCertificateExtension *e = nullptr, *found = nullptr;
  for (const auto& c : cases) {
    CvelString der = hexString(c.der);
    EXPECT_EQ(list.decode(der), c.result) << c.der;  // the same list: each decode starts empty
    std::string records;
    for (uint32_t i = 0; i < list.size() && list.get(i, e) == kCvelOk; ++i)
      records += (i ? " " : "") + std::to_string(e->id()) + "/" + toHex(e->oid()) + (e->critical() ? "/1/" : "/0/") +
                 toHex(e->value());
    EXPECT_EQ(records, c.records) << c.der;
  }
  // Lookups: countById answers with a count, not a result code; an empty slot is reported.
  CvelString keyUsage = hexString("06 03 55 1D 0F");
  EXPECT_EQ(list.countById(kOidKeyUsage, &found, 1), 2u);
  EXPECT_EQ(list.findByOid(keyUsage, 1, &e), kCvelOk);
  ASSERT_EQ(found, e);
  EXPECT_EQ(toHex(e->value()), "040403020780");
  EXPECT_EQ(list.findByOid(keyUsage, 2, &e), kCvelErrIncomplete);
  uint32_t count = 0;
  EXPECT_EQ(list.countByOid(keyUsage, &count), kCvelOk);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(list.add(nullptr), kCvelOk);
  EXPECT_EQ(list.countById(kOidKeyUsage, &found, 0), kCvelErrMalformed);
  EXPECT_EQ(list.findByOid(keyUsage, 2, &e), kCvelErrNullData);
}

}  // namespace
