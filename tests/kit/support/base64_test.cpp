// SPDX-License-Identifier: MIT
#include "kit/support/base64.h"

#include <gtest/gtest.h>

using namespace kit::support;

TEST(Base64, KnownVectorsBothWaysAndEveryByteValueRoundTrips)
{
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}};
    for (const auto& [plain, encoded] : rows) {
        Bytes bytes(plain.begin(), plain.end());
        EXPECT_EQ(base64Encode(bytes), encoded);
        EXPECT_EQ(base64Decode(encoded), bytes);
    }
    Bytes all;
    for (int i = 0; i < 256; ++i) {
        all.push_back(static_cast<uint8_t>(i));
    }
    EXPECT_EQ(base64Decode(base64Encode(all)), all);
}

TEST(Base64, RejectsWhatIsNotBase64)
{
    EXPECT_FALSE(base64Decode("Zm9v!"));
    EXPECT_FALSE(base64Decode("Z"));
    EXPECT_FALSE(base64Decode("Zm 9v"));
    EXPECT_EQ(base64Decode("Zm8"), (Bytes{'f', 'o'})) << "padding may be left off";
}
