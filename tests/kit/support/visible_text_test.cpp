// SPDX-License-Identifier: MIT
#include "kit/support/visible_text.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using kit::support::validUtf8;
using kit::support::visibleText;

TEST(VisibleText, ControlsShowAsPicturesAndBadBytesAsReplacement)
{
    const std::vector<std::pair<std::string, std::string>> cases{
        {std::string("a\0b", 3), "a␀b"},
        {"\x1b[2K\x1b[1A", "␛[2K␛[1A"},
        {"line\r\nnext\t", "line␍␊next␉"},
        {"\x7f", "␡"},
        {"\xc2\x9b"
         "31m",
         "�31m"},                                    // C1 CSI
        {"left \xe2\x80\xae right", "left � right"}, // right-to-left override
        {"\xc0\xaf", "��"},                          // overlong "/"
        {"\xed\xa0\x80", "���"},                     // a surrogate
        {"cut \xe2\x82", "cut ��"},
        {"Café ☕ 𝄞", "Café ☕ 𝄞"},
    };
    for (const auto& [raw, shown] : cases) {
        EXPECT_EQ(visibleText(raw), shown) << raw;
    }
    EXPECT_EQ(validUtf8(std::string("a\0\x1b\xff", 4)), std::string("a\0\x1b", 3) + "�");
}
