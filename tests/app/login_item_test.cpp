// SPDX-License-Identifier: MIT
#include "app/login_item.h"

#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace app {
namespace {

using ::testing::HasSubstr;
using testing_support::TempDir;

TEST(XdgLoginItemTest, WritesAnAutostartEntryAndRemovesIt)
{
    TempDir dir;
    XdgLoginItem item(dir.path(), "/opt/Vantorel Apps/vantorel");
    EXPECT_FALSE(item.isEnabled());
    EXPECT_EQ(item.file(), dir.path() / "autostart" / "vantorel.desktop");

    ASSERT_TRUE(item.enable());
    EXPECT_TRUE(item.isEnabled());
    const std::string entry = testing_support::readFile(item.file());
    EXPECT_THAT(entry, HasSubstr("[Desktop Entry]\nType=Application\nName=Vantorel\n"));
    EXPECT_THAT(entry, HasSubstr("\nExec=\"/opt/Vantorel Apps/vantorel\"\n"));

    ASSERT_TRUE(item.disable());
    EXPECT_FALSE(std::filesystem::exists(item.file()));
    EXPECT_FALSE(item.isEnabled());
    EXPECT_TRUE(item.disable()) << "removing what is not there is no failure";

    // The person switched it off in their session's settings.
    testing_support::writeFile(item.file(), item.entry() + "Hidden=true\n");
    EXPECT_FALSE(item.isEnabled());
}

} // namespace
} // namespace app
