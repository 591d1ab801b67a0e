// SPDX-License-Identifier: MIT
#include "desktop/gio_workspace.h"

#include "desktop_environment.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace desktop {
namespace {

using namespace std::chrono_literals;
using testing::DesktopEnvironment;

// The arguments the recorder was started with, once it has written them.
std::optional<std::string> recorded(std::chrono::milliseconds limit = 5s)
{
    const auto& file = DesktopEnvironment::get().recordFile;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        if (std::filesystem::exists(file)) {
            return testing_support::readFile(file);
        }
        std::this_thread::sleep_for(10ms);
    }
    return std::nullopt;
}

class GioWorkspaceTest : public ::testing::Test
{
protected:
    void SetUp() override { std::filesystem::remove(DesktopEnvironment::get().recordFile); }

    // Runs a launch and gives what its completion said.
    template <class Launch> std::optional<std::string> completionOf(Launch launch)
    {
        bool called = false;
        std::optional<std::string> error;
        launch([&](std::optional<std::string> e) {
            called = true;
            error = std::move(e);
        });
        EXPECT_TRUE(called);
        return error;
    }

    GioWorkspace m_workspace;
};

TEST_F(GioWorkspaceTest, FindsAnAppByItsDesktopEntryID)
{
    const auto& env = DesktopEnvironment::get();
    const auto location = m_workspace.urlForApplication(env.recorderID);
    ASSERT_TRUE(location.has_value());
    EXPECT_EQ(std::filesystem::path(*location).filename(), env.recorderID + ".desktop");
    EXPECT_EQ(m_workspace.urlForApplication(env.recorderID + ".desktop"), location);
    EXPECT_EQ(m_workspace.urlForApplication("org.example.NotInstalled"), std::nullopt);
    EXPECT_EQ(m_workspace.urlForApplication(""), std::nullopt);
    EXPECT_EQ(m_workspace.urlForApplication("../applications/" + env.recorderID), std::nullopt);
}

TEST_F(GioWorkspaceTest, OpensAddressesAndFilesWithTheGivenApp)
{
    const auto& env = DesktopEnvironment::get();
    const auto location = m_workspace.urlForApplication(env.recorderID).value();
    const auto error = completionOf([&](auto done) {
        m_workspace.open(
            {"https://example.com/a?b=c", "file:///tmp/My%20Notes.txt"}, location, done);
    });
    EXPECT_EQ(error, std::nullopt);
    // GIO may hand a local file over as a path instead of its URI.
    EXPECT_THAT(recorded(),
                ::testing::AnyOf("https://example.com/a?b=c\nfile:///tmp/My%20Notes.txt\n",
                                 "https://example.com/a?b=c\n/tmp/My Notes.txt\n"));
}

TEST_F(GioWorkspaceTest, LaunchesAnAppWithNothingToOpen)
{
    const auto& env = DesktopEnvironment::get();
    const auto location = m_workspace.urlForApplication(env.recorderID).value();
    EXPECT_EQ(completionOf([&](auto done) { m_workspace.openApplication(location, done); }),
              std::nullopt);
    EXPECT_EQ(recorded(), "");
}

TEST_F(GioWorkspaceTest, LaunchesAProgramPickedAsAFile)
{
    const auto& env = DesktopEnvironment::get();
    EXPECT_EQ(completionOf([&](auto done) {
                  m_workspace.open({"https://example.com/"}, env.recorder.string(), done);
              }),
              std::nullopt);
    EXPECT_EQ(recorded(), "https://example.com/\n");
}

TEST_F(GioWorkspaceTest, AMissingAppIsReportedInOneSentence)
{
    const auto error = completionOf(
        [&](auto done) { m_workspace.openApplication("/nowhere/Some App.desktop", done); });
    ASSERT_TRUE(error.has_value());
    EXPECT_NE(error->find("\u201C/nowhere/Some App.desktop\u201D"), std::string::npos) << *error;
    EXPECT_EQ(error->back(), '.');
}

TEST_F(GioWorkspaceTest, OpensALinkWithItsDefaultHandler)
{
    EXPECT_TRUE(m_workspace.open("vantorel-test://bar/1"));
    EXPECT_EQ(recorded(), "vantorel-test://bar/1\n");
    EXPECT_FALSE(m_workspace.open("no-handler-for-this://x"));
}

TEST_F(GioWorkspaceTest, SaysWhyAFileDidNotOpen)
{
    using kit::opening::OpenFailure;
    using kit::opening::OpenResult;
    const std::filesystem::path dir = std::filesystem::temp_directory_path() / "vantorel-gio-why";
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "data.vantorel-unknown-kind") << "\x01\x02\x03";
    EXPECT_EQ(m_workspace.open("file://" + (dir / "gone.txt").string()),
              OpenResult::failed(OpenFailure::Missing));
    EXPECT_EQ(m_workspace.open("file://" + (dir / "data.vantorel-unknown-kind").string()),
              OpenResult::failed(OpenFailure::NoApp));
    std::filesystem::remove_all(dir);
}

} // namespace
} // namespace desktop
