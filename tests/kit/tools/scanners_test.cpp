// SPDX-License-Identifier: MIT
#include "kit/tools/icon_theme.h"
#include "kit/tools/installed_apps.h"
#include "kit/tools/tools_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

using namespace testing_support;
using kit::tools::IconEntry;
using kit::tools::IconThemeScanner;
using kit::tools::InstalledApp;
using kit::tools::InstalledApps;
using ::testing::ElementsAre;

namespace {

class InstalledAppsTest : public ::testing::Test
{
protected:
    void entry(const std::string& folder, const std::string& path, const std::string& body)
    {
        put(dir.path() / folder / "applications" / path, body);
    }
    std::vector<InstalledApp> scan()
    {
        return InstalledApps({{dir.path() / "home", dir.path() / "local", dir.path() / "system"}})
            .scan();
    }

    TempDir dir;
};

TEST_F(InstalledAppsTest, ReadsNamesFromTheDesktopEntryGroupAndSortsIgnoringCase)
{
    entry("system",
          "org.gnome.Nautilus.desktop",
          "[Desktop Entry]\nName=Files\nType=Application\n[Desktop Action new]\nName=New Window\n");
    entry("system", "firefox.desktop", "[Desktop Entry]\nName[de]=Feuerfuchs\nName=firefox\n");
    entry("system", "notes.txt", "[Desktop Entry]\nName=Not an entry\n");
    // Subfolders join the id with dashes.
    entry("system", "kde/okular.desktop", "[Desktop Entry]\nName=Okular\n");
    EXPECT_THAT(scan(),
                ElementsAre(InstalledApp{"Files", "org.gnome.Nautilus"},
                            InstalledApp{"firefox", "firefox"},
                            InstalledApp{"Okular", "kde-okular"}));
}

TEST_F(InstalledAppsTest, HiddenEntriesAreSkippedAndTheFirstFolderWins)
{
    // The same app in two folders is listed once.
    entry("home", "org.example.Mine.desktop", "[Desktop Entry]\nName=Mine (user)\n");
    entry("system", "org.example.Mine.desktop", "[Desktop Entry]\nName=Mine (system)\n");
    // A hidden entry in the user's folder hides the system's one of the same id.
    entry("home", "org.example.Gone.desktop", "[Desktop Entry]\nName=Gone\nHidden=true\n");
    entry("system", "org.example.Gone.desktop", "[Desktop Entry]\nName=Gone\n");
    entry("local", "helper.desktop", "[Desktop Entry]\nName=Helper\nNoDisplay=true\n");
    entry("local", "link.desktop", "[Desktop Entry]\nName=Web\nType=Link\n");
    entry("local", ".cache/stale.desktop", "[Desktop Entry]\nName=Stale\n");
    entry("local", ".secret.desktop", "[Desktop Entry]\nName=Secret\n");
    EXPECT_THAT(scan(), ElementsAre(InstalledApp{"Mine (user)", "org.example.Mine"}));
}

TEST_F(InstalledAppsTest, CachedIsNullBeforeTheFirstScan)
{
    entry("system", "a.desktop", "[Desktop Entry]\nName=A\n");
    InstalledApps apps({{dir.path() / "system"}});
    EXPECT_EQ(apps.cached(), nullptr);
    auto list = apps.list();
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->size(), 1u);
    entry("system", "b.desktop", "[Desktop Entry]\nName=B\n");
    EXPECT_EQ(apps.list()->size(), 1u); // kept until the next scan
    EXPECT_EQ(apps.scan().size(), 2u);
}

TEST(XdgDataFoldersTest, DataHomeComesBeforeEachDataDirAndFlatpakExportsAreThere)
{
    const char* savedHome = std::getenv("XDG_DATA_HOME");
    const char* savedDirs = std::getenv("XDG_DATA_DIRS");
    std::string home = savedHome ? savedHome : "";
    std::string dirs = savedDirs ? savedDirs : "";
    setenv("XDG_DATA_HOME", "/h", 1);
    setenv("XDG_DATA_DIRS", "/a::/b", 1);
    auto folders = kit::tools::xdgDataFolders();
    setenv("XDG_DATA_DIRS", "/var/lib/flatpak/exports/share:/usr/share", 1);
    auto flatpak = kit::tools::xdgDataFolders();
    unsetenv("XDG_DATA_DIRS");
    auto defaults = kit::tools::xdgDataFolders();
    savedHome ? setenv("XDG_DATA_HOME", home.c_str(), 1) : unsetenv("XDG_DATA_HOME");
    if (savedDirs) {
        setenv("XDG_DATA_DIRS", dirs.c_str(), 1);
    }
    EXPECT_THAT(
        folders,
        ElementsAre(
            "/h", "/a", "/b", "/h/flatpak/exports/share", "/var/lib/flatpak/exports/share"));
    EXPECT_THAT(defaults,
                ElementsAre("/h",
                            "/usr/local/share",
                            "/usr/share",
                            "/h/flatpak/exports/share",
                            "/var/lib/flatpak/exports/share"));
    // Listed once, where the session put them.
    EXPECT_THAT(
        flatpak,
        ElementsAre(
            "/h", "/var/lib/flatpak/exports/share", "/usr/share", "/h/flatpak/exports/share"));
}

class IconThemeTest : public ::testing::Test
{
protected:
    void icon(const std::string& data, const std::string& path)
    {
        put(dir.path() / data / "icons" / path, "<svg/>");
    }
    void index(const std::string& data, const std::string& theme, const std::string& body)
    {
        put(dir.path() / data / "icons" / theme / "index.theme", body);
    }

    TempDir dir;
};

TEST_F(IconThemeTest, ListsTheThemeAndHicolorWithTheirContexts)
{
    index("share",
          "Adwaita",
          "[Icon Theme]\nName=Adwaita\nDirectories=16x16/actions,scalable/places\n\n"
          "[16x16/actions]\nSize=16\nContext=Actions\n\n[scalable/places]\nContext=Places\n");
    icon("share", "Adwaita/16x16/actions/go-next.png");
    icon("share", "Adwaita/scalable/places/folder-symbolic.svg");
    icon("share", "Adwaita/unlisted/secret.svg"); // not in Directories
    index("share",
          "hicolor",
          "[Icon Theme]\nDirectories=48x48/apps\n[48x48/apps]\nContext=Applications\n");
    icon("share", "hicolor/48x48/apps/org.gnome.Calculator.png");
    icon("share", "hicolor/48x48/apps/go-next.png"); // the theme's own wins
    index("share", "Other", "[Icon Theme]\nDirectories=a\n[a]\nContext=Status\n");
    icon("share", "Other/a/battery.svg");

    IconThemeScanner scanner("Adwaita", std::vector<std::filesystem::path>{dir.path() / "share"});
    auto icons = scanner.icons();
    EXPECT_THAT(*icons,
                ElementsAre(IconEntry{"folder-symbolic", "Places"},
                            IconEntry{"go-next", "Actions"},
                            IconEntry{"org.gnome.Calculator", "Applications"}));
    EXPECT_EQ(scanner.icons(), icons); // scanned once
}

TEST_F(IconThemeTest, AThemeInSeveralDataFoldersIsMerged)
{
    index("user", "Adwaita", "[Icon Theme]\nDirectories=s\n[s]\nContext=Status\n");
    icon("user", "Adwaita/s/battery.svg");
    index("share", "Adwaita", "[Icon Theme]\nDirectories=d\n[d]\nContext=Devices\n");
    icon("share", "Adwaita/d/printer.svg");
    icon("share", "Adwaita/d/battery.svg");
    IconThemeScanner scanner(
        "Adwaita", std::vector<std::filesystem::path>{dir.path() / "user", dir.path() / "share"});
    EXPECT_THAT(*scanner.icons(),
                ElementsAre(IconEntry{"battery", "Status"}, IconEntry{"printer", "Devices"}));
    IconThemeScanner nowhere("Adwaita", std::vector<std::filesystem::path>{dir.path() / "none"});
    EXPECT_TRUE(nowhere.icons()->empty());
}

} // namespace
