// SPDX-License-Identifier: MIT
#include "kit/opening/bookmark_resolver.h"

#include "fakes.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using namespace kit::opening;
using kit::library::Bookmark;
using testing_support::TempDir;
using testing_support::writeFile;
namespace fs = std::filesystem;

class InodeBookmarkTest : public testing::Test
{
protected:
    TempDir m_dir;
    InodeBookmarkResolver m_resolver;

    std::string path(std::string_view name) const { return m_dir.file(name).string(); }

    Bookmark bookmarkOf(std::string_view name)
    {
        auto bookmark = m_resolver.make(path(name));
        EXPECT_TRUE(bookmark.has_value());
        return bookmark.value_or(Bookmark{});
    }
};

TEST_F(InodeBookmarkTest, a_folder_resolves_and_follows_a_rename)
{
    fs::create_directory(m_dir.file("Projects"));
    const auto bookmark = bookmarkOf("Projects/");
    EXPECT_EQ(bookmark.displayPath, path("Projects"));
    fs::rename(m_dir.file("Projects"), m_dir.file("Archive"));
    EXPECT_EQ(m_resolver.resolve(bookmark), (ResolvedBookmark{path("Archive"), true}));
}

TEST_F(InodeBookmarkTest, a_renamed_file_is_found_in_its_folder_before_a_new_one_at_its_name)
{
    writeFile(m_dir.file("a.txt"), "a");
    writeFile(m_dir.file("other.txt"), "b");
    const auto bookmark = bookmarkOf("a.txt");
    fs::rename(m_dir.file("a.txt"), m_dir.file("renamed.txt"));
    writeFile(m_dir.file("a.txt"), "new");
    EXPECT_EQ(m_resolver.resolve(bookmark), (ResolvedBookmark{path("renamed.txt"), true}));
}

TEST_F(InodeBookmarkTest, a_file_replaced_in_place_keeps_its_path_and_is_stale)
{
    writeFile(m_dir.file("a.txt"), "a");
    const auto bookmark = bookmarkOf("a.txt");
    // What an editor's safe save does: a new file renamed over the old one.
    writeFile(m_dir.file("a.txt.tmp"), "b");
    fs::rename(m_dir.file("a.txt.tmp"), m_dir.file("a.txt"));
    EXPECT_EQ(m_resolver.resolve(bookmark), (ResolvedBookmark{path("a.txt"), true}));
}

TEST_F(InodeBookmarkTest, a_deleted_file_or_its_moved_folder_cannot_be_resolved)
{
    fs::create_directory(m_dir.file("in"));
    writeFile(m_dir.file("in/a.txt"), "a");
    writeFile(m_dir.file("b.txt"), "b");
    const auto inFolder = bookmarkOf("in/a.txt");
    const auto deleted = bookmarkOf("b.txt");
    fs::rename(m_dir.file("in"), m_dir.file("out"));
    fs::remove(m_dir.file("b.txt"));
    EXPECT_EQ(m_resolver.resolve(inFolder), std::nullopt);
    EXPECT_EQ(m_resolver.resolve(deleted), std::nullopt);
}

TEST_F(InodeBookmarkTest, data_from_elsewhere_falls_back_to_the_display_path)
{
    writeFile(m_dir.file("a.txt"), "a");
    const Bookmark foreign{{'b', 'o', 'o', 'k'}, path("a.txt")};
    EXPECT_EQ(m_resolver.resolve(foreign), (ResolvedBookmark{path("a.txt"), true}));
    EXPECT_EQ(m_resolver.resolve(Bookmark{{}, path("missing.txt")}), std::nullopt);
    EXPECT_EQ(m_resolver.resolve(Bookmark{{'{', '}'}, ""}), std::nullopt);
}

TEST(BookmarkHold, gives_back_only_access_that_was_started)
{
    testing_support::FakeBookmarks bookmarks;
    BookmarkHold first(bookmarks, "/a");
    {
        BookmarkHold again(bookmarks, "/a"); // the fake grants a path once at a time
        EXPECT_FALSE(again.started());
    }
    EXPECT_TRUE(first.started());
    EXPECT_TRUE(bookmarks.accessing.contains("/a")) << "a refused hold gave back the other's";
}

TEST(FileURL, encodes_and_decodes)
{
    const std::pair<const char*, const char*> rows[] = {
        {"/home/me/a.txt", "file:///home/me/a.txt"},
        {"/home/me/a b#1?.txt", "file:///home/me/a%20b%231%3F.txt"},
        {"/tmp/100%", "file:///tmp/100%25"},
        {"/Zeitplan/Übersicht", "file:///Zeitplan/%C3%9Cbersicht"}};
    for (const auto& [path, url] : rows) {
        SCOPED_TRACE(path);
        EXPECT_EQ(fileURL(path), url);
        EXPECT_EQ(pathOfFileURL(url), path);
    }
    // Only local file addresses have a path.
    EXPECT_EQ(pathOfFileURL("file://localhost/etc/hosts"), "/etc/hosts");
    EXPECT_EQ(pathOfFileURL("file://server/share/a"), std::nullopt);
    EXPECT_EQ(pathOfFileURL("https://example.com/a"), std::nullopt);
    EXPECT_EQ(pathOfFileURL("/etc/hosts"), std::nullopt);
}

} // namespace
