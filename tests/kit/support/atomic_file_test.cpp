// SPDX-License-Identifier: MIT
#include "kit/support/atomic_file.h"

#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

using namespace kit::support;
using testing_support::readFile;
using testing_support::TempDir;
using testing_support::writeFile;
namespace fs = std::filesystem;

namespace {

std::vector<std::string> namesIn(const fs::path& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

mode_t modeOf(const fs::path& file)
{
    struct stat info
    {};
    EXPECT_EQ(::stat(file.c_str(), &info), 0);
    return info.st_mode & 07777;
}

// True when the write fails with the size limit's error, as a full disk would fail it.
bool writeUnderSizeLimit(const fs::path& file, const std::string& data)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    limit.rlim_cur = limit.rlim_max = data.size() / 4;
    ::setrlimit(RLIMIT_FSIZE, &limit);
    return writeFileAtomically(file, data) == "Could not save “library.json”: File too large.";
}

bool permissionsAreEnforced()
{
    return ::geteuid() != 0;
}

} // namespace

class AtomicFile : public testing::Test
{
protected:
    TempDir m_dir;
    fs::path m_file = m_dir.file("library.json");
};

TEST_F(AtomicFile, CreatesMissingFoldersAndAFileOnlyItsOwnerReadsAndKeepsThatOnReplacing)
{
    auto file = m_dir.path() / "a" / "b" / "library.json";
    EXPECT_EQ(writeFileAtomically(file, "{}\n"), std::nullopt);
    EXPECT_EQ(readFile(file), "{}\n");
    EXPECT_EQ(modeOf(file), 0600U);
    EXPECT_EQ(modeOf(m_dir.path() / "a"), 0700U);
    EXPECT_EQ(modeOf(m_dir.path() / "a" / "b"), 0700U);
    EXPECT_THAT(namesIn(file.parent_path()), testing::ElementsAre("library.json"));

    // Replacing a longer content keeps the file's permissions.
    writeFile(m_file, "a much longer old content than the new one");
    fs::permissions(m_file, fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_EQ(writeFileAtomically(m_file, "new"), std::nullopt);
    EXPECT_EQ(readFile(m_file), "new");
    EXPECT_EQ(modeOf(m_file), 0600U);
}

TEST_F(AtomicFile, WritesThroughASymbolicLink)
{
    auto elsewhere = m_dir.path() / "synced" / "library.json";
    fs::create_directories(elsewhere.parent_path());
    writeFile(elsewhere, "old");
    fs::create_symlink(elsewhere, m_file);

    ASSERT_EQ(writeFileAtomically(m_file, "new"), std::nullopt);
    EXPECT_TRUE(fs::is_symlink(m_file));
    EXPECT_EQ(readFile(elsewhere), "new");
}

TEST_F(AtomicFile, AFolderInTheWayFailsWithASentenceAndLeavesNoTemporary)
{
    fs::create_directories(m_file / "inside");
    auto error = writeFileAtomically(m_file, "data");
    ASSERT_TRUE(error);
    EXPECT_THAT(*error, testing::StartsWith("Could not save “library.json”: "));
    EXPECT_THAT(*error, testing::EndsWith("."));
    EXPECT_THAT(namesIn(m_dir.path()), testing::ElementsAre("library.json"));
}

TEST_F(AtomicFile, AReadOnlyFolderFailsAndLeavesTheOldFile)
{
    if (!permissionsAreEnforced()) {
        GTEST_SKIP() << "permissions do not bind this user";
    }
    writeFile(m_file, "old");
    fs::permissions(m_dir.path(), fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_EQ(writeFileAtomically(m_file, "new"),
              "Could not save “library.json”: Permission denied.");
    fs::permissions(m_dir.path(), fs::perms::owner_all);
    EXPECT_EQ(readFile(m_file), "old");
}

// A write cut short half way (here by the file size limit, as a full disk would) must leave the
// old content whole and take its temporary file away. A child process, so the limit stays there.
TEST_F(AtomicFile, AWriteCutShortLeavesTheOldFileAndNoTemporary)
{
    writeFile(m_file, "old");
    const std::string large(size_t{256} * 1024, 'x');
    EXPECT_EXIT(
        std::_Exit(writeUnderSizeLimit(m_file, large) ? 0 : 1), testing::ExitedWithCode(0), "");
    EXPECT_EQ(readFile(m_file), "old");
    EXPECT_THAT(namesIn(m_dir.path()), testing::ElementsAre("library.json"));
}

TEST_F(AtomicFile, RemovesOnlyItsOwnOldTemporaries)
{
    const auto old = fs::file_time_type::clock::now() - std::chrono::hours(1);
    for (const char* name : {".library.json.Ab12Cd.tmp",
                             ".library.json.young1.tmp",
                             ".other.json.Ab12Cd.tmp",
                             "library.json.Ab12Cd.tmp",
                             "notes.tmp"}) {
        writeFile(m_dir.file(name), "x");
        if (std::string_view(name) != ".library.json.young1.tmp") {
            fs::last_write_time(m_dir.file(name), old);
        }
    }
    EXPECT_EQ(removeLeftoverTemporaries(m_file, std::chrono::seconds(60)), 1U);
    EXPECT_THAT(namesIn(m_dir.path()),
                testing::ElementsAre(".library.json.young1.tmp",
                                     ".other.json.Ab12Cd.tmp",
                                     "library.json.Ab12Cd.tmp",
                                     "notes.tmp"));
}

TEST_F(AtomicFile, ReadsBinaryContentUpToTheLimitAndTellsMissingApart)
{
    std::string content(size_t{200} * 1024, 'y');
    content[5] = '\0';
    writeFile(m_file, content);
    EXPECT_EQ(std::get<std::string>(readWholeFile(m_file, content.size())), content);
    fs::remove(m_file);
    auto missing = readWholeFile(m_file);
    ASSERT_TRUE(std::holds_alternative<ReadError>(missing));
    EXPECT_TRUE(std::get<ReadError>(missing).isMissing());
}

// What the reader refuses, at once and without taking the file's size in memory.
TEST_F(AtomicFile, RefusesWhatIsNoFileOrTooLargeWithASentenceAndWithoutBlocking)
{
    const struct
    {
        std::function<void(const fs::path& file)> make;
        size_t limit;
        std::string reason;
    } rows[] = {
        {[](const fs::path& file) { fs::create_directory(file); },
         kDefaultReadLimit,
         "it is a folder"},
        {[](const fs::path& file) { ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0); },
         kDefaultReadLimit,
         "it is not a regular file"},
        {[](const fs::path& file) { fs::create_symlink("/dev/zero", file); },
         kDefaultReadLimit,
         "it is not a regular file"},
        {[](const fs::path& file) { writeFile(file, std::string(1025, 'x')); },
         1024,
         "it is larger than 1 KiB"},
        {[](const fs::path& file) {
             writeFile(file, "");
             fs::resize_file(file, std::uintmax_t{1} << 30);
         },
         kDefaultReadLimit,
         "it is larger than 256 MiB"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reason);
        fs::remove(m_file);
        row.make(m_file);
        auto read = readWholeFile(m_file, row.limit);
        ASSERT_TRUE(std::holds_alternative<ReadError>(read));
        EXPECT_FALSE(std::get<ReadError>(read).isMissing());
        EXPECT_EQ(std::get<ReadError>(read).message,
                  "Could not read “library.json”: " + row.reason + ".");
    }
}
