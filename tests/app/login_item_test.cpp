// SPDX-License-Identifier: MIT
#include "app/login_item.h"

#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace app {
namespace {

using ::testing::HasSubstr;
using testing_support::TempDir;

// Switching it on and off, and off in the session's own settings, is driven through the settings
// window's tests; here, what the entry says, with a path that needs quoting.
TEST(XdgLoginItemTest, WritesAnEntryThatStartsThisProgram)
{
    TempDir dir;
    XdgLoginItem item(dir.path(), "/opt/Vantorel Apps/vantorel");
    ASSERT_TRUE(item.enable());
    EXPECT_EQ(item.file(), dir.path() / "autostart" / "vantorel.desktop");
    const std::string entry = testing_support::readFile(item.file());
    EXPECT_THAT(entry, HasSubstr("[Desktop Entry]\nType=Application\nName=Vantorel\n"));
    EXPECT_THAT(entry, HasSubstr("\nExec=\"/opt/Vantorel Apps/vantorel\"\n"));
    ASSERT_TRUE(item.disable());
    EXPECT_TRUE(item.disable()) << "removing what is not there is no failure";
}

} // namespace
} // namespace app
