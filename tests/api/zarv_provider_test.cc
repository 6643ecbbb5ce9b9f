// The provider entry points and the shape of the result codes a host relies on.
#include <gtest/gtest.h>

#include <list>
#include <string>

#include "kolvari/zarv.h"

namespace {

TEST(ZarvProvider, InitKeepsNoStateAndMayBeCalledAgain) {
  EXPECT_EQ(ZARV_Init(), 0x21000001u);
  EXPECT_EQ(ZARV_Init(), 0x21000001u);
}

TEST(ZarvProvider, ProviderNameReplacesWhateverTheStringHeld) {
  // A longer earlier content with an embedded zero: nothing of it may survive, not even behind a 0x00.
  std::string name(200, 'x');
  name[40] = '\0';
  EXPECT_EQ(ZARV_GetEncoderProviderName(name), 0x21000001u);
  EXPECT_EQ(name, std::string("Kolvari PKCS7 Signature Encoder"));
  EXPECT_EQ(name.size(), 31u);

  std::string empty;
  EXPECT_EQ(ZARV_GetEncoderProviderName(empty), 0x21000001u);
  EXPECT_EQ(empty, "Kolvari PKCS7 Signature Encoder");
}

TEST(ZarvProvider, EncoderListHoldsExactlyOneEntryAfterwards) {
  std::list<std::string> encoders = {"PKCS#7.2", "other", ""};
  EXPECT_EQ(ZARV_GetSupportedEncoderList(encoders), 0x21000001u);
  ASSERT_EQ(encoders.size(), 1u);
  EXPECT_EQ(encoders.front(), "PKCS#7.2");
  // Calling again does not add a second entry.
  EXPECT_EQ(ZARV_GetSupportedEncoderList(encoders), 0x21000001u);
  EXPECT_EQ(encoders.size(), 1u);
}

TEST(ZarvProvider, ResultCodesArePositiveOnSuccessAndNegativeOnFailure) {
  // Hosts test "greater than zero" on the signed value; every failure has the form 0xE100FFxx.
  EXPECT_GT(static_cast<int32_t>(ZARV_OK), 0);
  EXPECT_EQ(ZARV_OK >> 28, 2u);
  for (uint32_t failure : {ZARV_E_BAD_PARAMETER, ZARV_E_OUT_OF_MEMORY, ZARV_E_NOT_STORED, ZARV_E_INCOMPLETE,
                           ZARV_E_NO_ATTRIBUTE_TABLE}) {
    EXPECT_LT(static_cast<int32_t>(failure), 0) << std::hex << failure;
    EXPECT_EQ(failure & 0xFFFFFF00u, 0xE100FF00u) << std::hex << failure;
  }
  EXPECT_EQ(ZARV_E_BAD_PARAMETER, 0xE100FFFCu);
  EXPECT_EQ(ZARV_E_OUT_OF_MEMORY, 0xE100FFFAu);
  EXPECT_EQ(ZARV_E_NOT_STORED, 0xE100FFFFu);
  EXPECT_EQ(ZARV_E_INCOMPLETE, 0xE100FFF2u);
  EXPECT_EQ(ZARV_E_NO_ATTRIBUTE_TABLE, 0xE100FFF9u);
}

}  // namespace
