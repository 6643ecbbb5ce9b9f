// CRLs and revocation values: malformed CRLs, the lookup by issuer, and RevocationValues encoded and decoded
// by hand. Real CRLs are held against `openssl crl` by tests/interop/contents.sh; that real values come out of
// the encoder as they went in is the property fuzz_revocation_values holds on its seeds.
#include "x509/cvel_crl.h"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <tuple>

#include "base/scratch_dir.h"
#include "support/test_util.h"

namespace {

using namespace testutil;

// A minimal BasicOCSPResponse: responder by key, one good SingleResponse.
const std::string kTime = "180F" "32303234303130313132303030305A";  // 20240101120000Z
const std::string kBasic =
    tlv("30", tlv("30", tlv("A2", "0404AABBCCDD") + kTime + tlv("30", tlv("30", "3000" "8000" + kTime))) +
                  "300D06092A864886F70D01010B0500" "030200AB");

TEST(CvelCRL, MalformedListsAreRefused) {
  const std::string tbs = tlv("30", "300D06092A864886F70D01010B0500" + tlv("30", "") + "170D3234303130313132303030305A");
  const std::string tail = "300D06092A864886F70D01010B0500" "030200AB";
  const std::pair<std::string, CvelResult> cases[] = {
      {tlv("30", tbs + tail), kCvelOk},                                  // v1: no version, no nextUpdate
      {tlv("30", tbs + tail + "0500"), 0},                               // a fourth element
      {tlv("30", tbs + "300D06092A864886F70D01010B0500"), 0},            // no signature
      {tlv("30", tlv("30", "020101300D06092A864886F70D01010B0500" + tlv("30", "") + "0500") + tail), 0},  // no time
      {"", 0}, {"3000", 0}, {"0500", 0}};
  for (const auto& [hexDer, result] : cases) {
    const Bytes der = hex(hexDer);
    CvelCRL crl;
    EXPECT_EQ(crl.parse(der.data(), static_cast<uint32_t>(der.size())), result) << hexDer;
  }
}

// A list that cannot get another slot: its add destroys the object and throws, as the managed array's does.
struct FullCRLs : CvelCRLs {
  CvelResult add(CvelCRL* crl) override {
    delete crl;
    throw std::bad_alloc();
  }
};

TEST(CvelCRLs, FindByIssuer) {
  const CvelString first = hexString("300D310B300906035504030C024341"),
                   other = hexString("300D310B300906035504030C024342"), missing = hexString("3100");
  CvelCRLs list;
  EXPECT_EQ(list.add(new CvelCRL()), kCvelOk);
  ASSERT_EQ(list.findByIssuer(first, CvelCRLs::kCreate, nullptr), kCvelErrBadParameter);
  CvelCRL *found = nullptr, *again = nullptr;
  ASSERT_EQ(list.findByIssuer(first, CvelCRLs::kCreate, &found), kCvelOk);  // none yet: made and appended
  ASSERT_EQ(list.size(), 2u);
  ASSERT_EQ(list.findByIssuer(first, 0, &again), kCvelOk);
  EXPECT_EQ(again, found);
  EXPECT_EQ(toHex(found->issuer()), toHex(first));
  EXPECT_EQ(list.findByIssuer(other, 0, &found), 0u);  // no match without the create flag
  EXPECT_EQ(found, nullptr);
  EXPECT_EQ(list.add(nullptr), kCvelOk);
  EXPECT_EQ(list.findByIssuer(first, 0, &found), kCvelOk);  // met before the empty slot
  EXPECT_EQ(list.findByIssuer(missing, 0, &found), kCvelErrMalformed);
  FullCRLs full;  // a new CRL that cannot be kept is an allocation failure, not an exception
  EXPECT_EQ(full.findByIssuer(first, CvelCRLs::kCreate, &found), kCvelErrNullData);
  EXPECT_EQ(found, nullptr);
}

TEST(CvelEtsRevocationValues, EncodesBothModesByHand) {
  CvelEtsRevocationValues values;
  CvelString out;
  ASSERT_EQ(values.encode(out, CvelEtsRevocationValues::kModeAttribute), kCvelOk);
  EXPECT_EQ(toHex(out), "3011" "060B2A864886F70D0109100218" "31023000");
  ASSERT_EQ(values.encode(out, CvelEtsRevocationValues::kModeValue), kCvelOk);
  EXPECT_EQ(toHex(out), "31043002" "3000");  // mode 0: one SEQUENCE more
  // [2] holding two SEQUENCEs around NULL
  CvelString der = hexString(tlv("30", tlv("A2", tlv("30", "3000" "0500" "3100"))));
  ASSERT_EQ(values.decode(der), kCvelOk);
  ASSERT_EQ(values.otherValues().size(), 1u);  // only SEQUENCEs are values
  ASSERT_EQ(values.encode(out, CvelEtsRevocationValues::kModeValue), kCvelOk);
  EXPECT_EQ(toHex(out), "310A" "3008" "3006" "A204" "3002" "3000");
  ASSERT_EQ(values.encode(out, 2), kCvelOk);  // any other mode: the value in its SET, nothing more
  EXPECT_EQ(toHex(out), "3108" "3006" "A204" "3002" "3000");
  CvelString target;  // the same bytes through a sink
  CvelA1OutputString sink(&target);
  ASSERT_EQ(values.encode(sink, 2), kCvelOk);
  EXPECT_EQ(toHex(target), toHex(out));
}

TEST(CvelEtsRevocationValues, DecodeResults) {
  const struct { std::string der; CvelResult result; uint32_t crls, ocsps, others; const char* why; } cases[] = {
      {"3000", kCvelOk, 0, 0, 0, "nothing revoked"},
      {tlv("30", tlv("A1", tlv("30", kBasic + "3003020105" + kBasic))), kCvelOk, 0, 2, 0,
       "only [1], the response that does not parse dropped"},
      {tlv("30", tlv("A0", tlv("30", "3000" "3000")) + tlv("A2", tlv("30", "3000"))), kCvelOk, 2, 0, 1,
       "[0] and [2]"},
      {tlv("30", tlv("A2", tlv("30", "3000")) + "0500"), 0, 0, 0, 1, "an element after [2]"},
      {tlv("30", tlv("A1", tlv("30", kBasic)) + tlv("A0", tlv("30", "3000"))), 0, 0, 1, 0, "[0] after [1]"},
      {tlv("30", tlv("A0", "0500")), 0, 0, 0, 0, "[0] without its SEQUENCE"},
      {"3100", 0, 0, 0, 0, "a SET"}, {"", 0, 0, 0, 0, "nothing"},
  };
  // Each case from memory and from a DER file.
  ScratchDir dir;
  for (const auto& c : cases) {
    CvelString der = hexString(c.der);
    CvelA1File file;
    ASSERT_EQ(file.open(dir.write("values.der", std::string(der.c_str(), der.length())).c_str()), kCvelOk);
    for (bool fromFile : {false, true}) {
      CvelEtsRevocationValues values;
      EXPECT_EQ(fromFile ? values.decode(file) : values.decode(der), c.result) << c.why;
      EXPECT_EQ(std::make_tuple(values.crlValues().size(), values.ocspValues().size(), values.otherValues().size()),
                std::make_tuple(c.crls, c.ocsps, c.others)) << c.why;
      EXPECT_EQ(values.state(), c.result == kCvelOk ? CvelEtsRevocationValues::kDecoded
                                                    : CvelEtsRevocationValues::kNotDecoded)
          << c.why;
    }
  }
}

}  // namespace
