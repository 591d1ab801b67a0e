// SPDX-License-Identifier: MIT
#include "kit/mcp/instance_marker.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>

namespace {

using kit::mcp::InstanceMarker;

class InstanceMarkerTest : public testing::Test
{
protected:
    testing_support::TempDir m_dir;
    std::string m_path = m_dir.file("vantorel.pid").string();
};

TEST_F(InstanceMarkerTest, RunningFromWriteToRemove)
{
    InstanceMarker app(m_path);
    InstanceMarker bridge(m_path);
    EXPECT_FALSE(bridge.isRunning());

    ASSERT_TRUE(app.write(::getpid()));
    EXPECT_TRUE(bridge.isRunning());
    EXPECT_EQ(bridge.pid(), ::getpid());
    EXPECT_EQ(testing_support::readFile(m_path), std::to_string(::getpid()) + "\n");
    EXPECT_EQ(std::filesystem::status(m_path).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);

    app.remove();
    EXPECT_FALSE(bridge.isRunning());
    EXPECT_FALSE(std::filesystem::exists(m_path));
}

TEST_F(InstanceMarkerTest, AMarkerLeftByACrashReadsAsNotRunningAndIsTakenOver)
{
    // Our own pid is certainly alive (as a reused pid would be): only the lock tells it is stale.
    testing_support::writeFile(m_path, std::to_string(::getpid()) + "\n");
    InstanceMarker bridge(m_path);
    EXPECT_EQ(bridge.pid(), ::getpid());
    EXPECT_FALSE(bridge.isRunning());

    InstanceMarker next(m_path);
    ASSERT_TRUE(next.write(4242));
    EXPECT_EQ(bridge.pid(), 4242);
    EXPECT_TRUE(bridge.isRunning());
}

TEST_F(InstanceMarkerTest, ASecondWriterIsRefusedWhileTheFirstRuns)
{
    InstanceMarker first(m_path);
    ASSERT_TRUE(first.write(101));
    InstanceMarker second(m_path);
    EXPECT_FALSE(second.write(202));
    EXPECT_EQ(second.pid(), 101);
    EXPECT_TRUE(first.write(303));
    EXPECT_EQ(second.pid(), 303);
}

TEST_F(InstanceMarkerTest, DestructionRemovesOnlyWhatItWrote)
{
    {
        InstanceMarker marker(m_path);
        ASSERT_TRUE(marker.write(::getpid()));
    }
    EXPECT_FALSE(std::filesystem::exists(m_path));
    testing_support::writeFile(m_path, "7\n");
    {
        InstanceMarker reader(m_path);
        EXPECT_EQ(reader.pid(), 7);
    }
    EXPECT_TRUE(std::filesystem::exists(m_path));
}

} // namespace
