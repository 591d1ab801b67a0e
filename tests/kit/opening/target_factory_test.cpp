// SPDX-License-Identifier: MIT
#include "kit/opening/target_factory.h"

#include "fakes.h"
#include "kit/opening/workspace_opening.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using namespace kit::opening;
using kit::library::Target;
using Kind = Target::Kind;
using testing_support::TempDir;
using testing_support::writeFile;
namespace fs = std::filesystem;

class TargetFactoryTest : public testing::Test
{
protected:
    TempDir m_dir;
    InodeBookmarkResolver m_bookmarks;
    TargetFactory m_factory{m_bookmarks};

    std::string path(std::string_view name) const { return m_dir.file(name).string(); }
};

TEST_F(TargetFactoryTest, what_a_shortcut_must_not_or_cannot_open_is_refused_in_a_sentence)
{
    EXPECT_THROW(m_factory.draft("javascript:alert(1)"), TargetFactory::Failure);
    const std::vector<std::pair<std::string, std::string>> refused{
        {"file://server/share/a.txt",
         "“file://server/share/a.txt” is not a file on this computer."},
        {fileURL(path("gone.txt")), "“gone.txt” cannot be found."},
    };
    for (const auto& [address, sentence] : refused) {
        try {
            m_factory.draft(address);
            ADD_FAILURE() << address;
        } catch (const TargetFactory::Failure& failure) {
            EXPECT_EQ(failure.what(), sentence);
        }
    }
}

TEST_F(TargetFactoryTest, a_file_becomes_a_file_target_named_without_its_extension)
{
    writeFile(m_dir.file("Quarterly report.pdf"), "%PDF");
    const auto draft = m_factory.draft(fileURL(path("Quarterly report.pdf")));
    ASSERT_EQ(draft.target.kind(), Kind::File);
    EXPECT_EQ(draft.name, "Quarterly report");
    EXPECT_EQ(draft.target.fileTarget()->bookmark.displayPath, path("Quarterly report.pdf"));
    EXPECT_EQ(draft.target.fileTarget()->openWith, std::nullopt);
    EXPECT_EQ(m_bookmarks.resolve(draft.target.fileTarget()->bookmark),
              (ResolvedBookmark{path("Quarterly report.pdf"), false}));
    // A folder given as a plain path keeps its dots.
    fs::create_directory(m_dir.file("Photos.2024"));
    const auto folder = m_factory.draft(path("Photos.2024"));
    EXPECT_EQ(folder.target.kind(), Kind::Folder);
    EXPECT_EQ(folder.name, "Photos.2024");
}

TEST_F(TargetFactoryTest, a_desktop_entry_becomes_an_app_named_as_it_names_itself)
{
    fs::create_directories(m_dir.file("share/applications/kde"));
    writeFile(m_dir.file("share/applications/kde/org.kde.kate.desktop"),
              "# comment\n[Desktop Entry]\nType=Application\nName[de]=Kate-Editor\n"
              "Name = Kate\nExec=kate %U\n[Desktop Action new]\nName=New Window\n");
    const auto draft =
        m_factory.draft(fileURL(path("share/applications/kde/org.kde.kate.desktop")));
    ASSERT_EQ(draft.target.kind(), Kind::App);
    EXPECT_EQ(draft.name, "Kate");
    EXPECT_EQ(draft.target.appTarget()->bundleID, "kde-org.kde.kate");
    ASSERT_TRUE(draft.target.appTarget()->bookmark.has_value());
    EXPECT_EQ(draft.target.appTarget()->bookmark->displayPath,
              path("share/applications/kde/org.kde.kate.desktop"));
}

TEST_F(TargetFactoryTest, a_file_that_cannot_be_bookmarked_fails)
{
    testing_support::FakeBookmarks refusing;
    refusing.canMake = false;
    writeFile(m_dir.file("a.txt"), "a");
    EXPECT_THROW(TargetFactory(refusing).draft(path("a.txt")), TargetFactory::Failure);
}

TEST(TargetFactoryKinds, ComeFromTheExtensionTheFolderAndThePackage)
{
    struct Row
    {
        const char* extension;
        bool isDirectory;
        bool isPackage;
        std::optional<std::string> bundleID;
        Kind kind;
    };
    const Row rows[] = {{"app", true, true, "com.example.a", Kind::App},
                        {"desktop", false, true, "firefox", Kind::App},
                        {"rtfd", true, true, std::nullopt, Kind::File},
                        {"", true, false, std::nullopt, Kind::Folder},
                        {"pdf", false, false, std::nullopt, Kind::File}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.extension);
        EXPECT_EQ(
            TargetFactory::inferKind(row.extension, row.isDirectory, row.isPackage, row.bundleID),
            row.kind);
    }
}

TEST(TargetFactoryNames, DropTheLastExtensionOfFilesAndApps)
{
    struct Row
    {
        Kind kind;
        const char* displayPath;
        const char* name;
    };
    const Row rows[] = {{Kind::File, "/home/me/notes.tar.gz", "notes.tar"},
                        {Kind::File, "/home/me/.bashrc", ".bashrc"},
                        {Kind::Folder, "/home/me/v1.2/", "v1.2"},
                        {Kind::Folder, "/", "/"},
                        {Kind::App, "/usr/share/applications/firefox.desktop", "firefox"},
                        {Kind::App, "/opt/Editor.AppImage", "Editor.AppImage"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.displayPath);
        EXPECT_EQ(TargetFactory::suggestedName(row.kind, row.displayPath), row.name);
    }
}

// The run results and links of Apple Shortcuts.

TEST(AppleShortcutLinkTest, recognises_only_run_links_with_a_name)
{
    EXPECT_EQ(AppleShortcutLink::name("shortcuts://run-shortcut?name=Good%20Morning"),
              "Good Morning");
    EXPECT_EQ(AppleShortcutLink::name("SHORTCUTS://run-shortcut?input=x&name=A"), "A");
    EXPECT_EQ(AppleShortcutLink::name("shortcuts://run-shortcut?name="), std::nullopt);
    EXPECT_EQ(AppleShortcutLink::name("shortcuts://open-shortcut?name=A"), std::nullopt);
}

} // namespace
