// Time-stamp tokens: hand-made token infos walk through the rules for versions, times, accuracy, ordering and
// what may follow; the response list's lookup. Real tokens are held against `openssl ts -reply -text` by
// tests/interop/contents.sh.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "cms/cvel_tsp_response.h"
#include "cms/cvel_tst_info.h"
#include "support/test_util.h"

namespace {

using testutil::Bytes;
using testutil::hex;
using testutil::tlv;
using testutil::toHex;

// ContentInfo { signedData } around a token info, with the given content type, no certificates and an empty
// SET of signer infos.
std::string tokenAround(const std::string& tstInfo, const std::string& type = "060B2A864886F70D0109100104") {
  const std::string info = tlv("30", type + tlv("A0", tlv("04", tstInfo)));
  const std::string signedData = tlv("30", "020103" "310B300906052B0E03021A0500" + info + "3100");
  return tlv("30", "06092A864886F70D010702" + tlv("A0", signedData));
}

TEST(CvelTSTInfo, FieldByFieldRules) {
  // version, policy 1.2.3.4.1, messageImprint (sha1, 20 octets), serial 5; then genTime and the rest per row.
  const std::string head = "020101" "06042A030401" "3021300906052B0E03021A0500" + tlv("04", std::string(40, 'A')) +
                           "020105";
  const std::string genTime = "180F" "32303234303130313132303030305A";  // 20240101120000Z
  struct Row { const char* name; std::string tstInfo; CvelResult result; int32_t version, seconds, millis, micros; };
  const Row rows[] = {
      {"minimal", head + genTime, kCvelOk, 1, -1, -1, -1},
      {"id-data content", "", CvelTSTInfo::kNotDecoded, 0, -1, -1, -1},
      {"version 2", "020102" + head.substr(6) + genTime, CvelTSTInfo::kNotDecoded, 2, -1, -1, -1},
      {"UTCTime", head + "170D" "3234303130313132303030305A", kCvelOk, 1, -1, -1, -1},
      {"millis only", head + genTime + "3003800107", kCvelOk, 1, -1, 7, -1},
      {"all three", head + genTime + "300A020102800201F4810164", kCvelOk, 1, 2, 500, 100},
      // From three content octets on, the content alone goes to the decoder, which reads it as an element.
      {"millis of three octets", head + genTime + "30058003020109", kCvelOk, 1, -1, 9, -1},
      {"ordering of two octets", head + genTime + "0102FF00", CvelTSTInfo::kNotDecoded, 1, -1, -1, -1},
      {"unknown optional field", head + genTime + "0C0141", CvelTSTInfo::kNotDecoded, 1, -1, -1, -1},
      {"element after the extensions", head + genTime + "A100" "0500", CvelTSTInfo::kNotDecoded, 1, -1, -1, -1},
      {"fields out of order", head + genTime + "020107" "0101FF", CvelTSTInfo::kNotDecoded, 1, -1, -1, -1},
      // Everything optional, in order: ordering, nonce, a DNS-name TSA, an empty extension list.
      {"all optional fields", head + genTime + "0101FF" "020900F79EA48773749B0A" "A0058203747361" "A100", kCvelOk, 1,
       -1, -1, -1},
  };
  for (const Row& row : rows) {
    const Bytes token = row.tstInfo.empty() ? hex(tokenAround(tlv("30", head + genTime), "06092A864886F70D010701"))
                                            : hex(tokenAround(tlv("30", row.tstInfo)));
    CvelTSTInfo t;
    ASSERT_EQ(t.encoded().assign(token.data(), static_cast<uint32_t>(token.size())), kCvelOk);
    EXPECT_EQ(t.decode(), row.result) << row.name;
    EXPECT_EQ(std::make_tuple(t.version(), t.seconds(), t.millis(), t.micros()),
              std::make_tuple(row.version, row.seconds, row.millis, row.micros)) << row.name;
    if (std::string(row.name) != "all optional fields") continue;
    EXPECT_TRUE(t.ordering());
    EXPECT_EQ(toHex(t.nonce()), "00F79EA48773749B0A");
    EXPECT_EQ(toHex(t.tsa().value()), "747361");
  }
}

TEST(CvelTSPResponses, IndexOfFindsTheFirstEqualToken) {
  auto response = [](const char* der) {
    auto* r = new CvelTSPResponse();
    testutil::assignHex(r->token().encoded(), der);
    return r;
  };
  CvelTSPResponses list;
  uint32_t index = 99;
  CvelTSPResponse* probe = response("3000");
  EXPECT_EQ(list.indexOf(probe, &index), kCvelErrBadParameter);  // empty list
  for (const char* der : {"3001", "3000", "3000"}) ASSERT_EQ(list.add(response(der)), kCvelOk);
  EXPECT_EQ(list.indexOf(nullptr, &index), kCvelErrBadParameter);
  ASSERT_EQ(list.indexOf(probe, &index), kCvelOk);
  EXPECT_EQ(index, 1u);
  testutil::assignHex(probe->token().encoded(), "3002");
  EXPECT_EQ(list.indexOf(probe, &index), kCvelErrBadParameter);
  delete probe;
}

}  // namespace
