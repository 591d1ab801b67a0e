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

TEST_F(GioWorkspaceTest, LaunchesTheGivenAppOrProgramWithWhatItShouldOpen)
{
    const auto& env = DesktopEnvironment::get();
    const auto entry = m_workspace.urlForApplication(env.recorderID).value();
    struct Row
    {
        std::vector<std::string> addresses;
        std::string app;
        std::vector<std::string> recorded; // any of these
    };
    const Row rows[] = {
        // GIO may hand a local file over as a path instead of its URI.
        {{"https://example.com/a?b=c", "file:///tmp/My%20Notes.txt"},
         entry,
         {"https://example.com/a?b=c\nfile:///tmp/My%20Notes.txt\n",
          "https://example.com/a?b=c\n/tmp/My Notes.txt\n"}},
        {{}, entry, {""}},
        // A program picked as a file.
        {{"https://example.com/"}, env.recorder.string(), {"https://example.com/\n"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.app + " with " + std::to_string(row.addresses.size()) + " addresses");
        std::filesystem::remove(env.recordFile);
        const auto error = completionOf([&](auto done) {
            if (row.addresses.empty()) {
                m_workspace.openApplication(row.app, done);
            } else {
                m_workspace.open(row.addresses, row.app, done);
            }
        });
        EXPECT_EQ(error, std::nullopt);
        EXPECT_THAT(recorded(), ::testing::Optional(::testing::AnyOfArray(row.recorded)));
    }
}

TEST_F(GioWorkspaceTest, AMissingAppIsReportedInOneSentence)
{
    const auto error = completionOf(
        [&](auto done) { m_workspace.openApplication("/nowhere/Some App.desktop", done); });
    ASSERT_TRUE(error.has_value());
    EXPECT_NE(error->find("\u201C/nowhere/Some App.desktop\u201D"), std::string::npos) << *error;
    EXPECT_EQ(error->back(), '.');
}

TEST_F(GioWorkspaceTest, OpensALinkWithItsDefaultHandlerOrSaysWhyNot)
{
    EXPECT_TRUE(m_workspace.open("vantorel-test://bar/1"));
    EXPECT_EQ(recorded(), "vantorel-test://bar/1\n");
    EXPECT_FALSE(m_workspace.open("no-handler-for-this://x"));
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
