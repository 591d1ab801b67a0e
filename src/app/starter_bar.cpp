// SPDX-License-Identifier: MIT
#include "app/starter_bar.h"

#include "kit/storage/library_store.h"

namespace app {

using namespace kit::library;

namespace {

Shortcut link(std::string name, std::string url, std::optional<IconOverride> icon)
{
    URLTarget target;
    target.url = std::move(url);
    Shortcut shortcut = Shortcut::make(std::move(name), Target::url(std::move(target)));
    shortcut.icon = std::move(icon);
    return shortcut;
}

} // namespace

const std::vector<std::string>& StarterBar::candidateApps()
{
    static const std::vector<std::string> kApps{
        "org.gnome.Nautilus",
        "org.kde.dolphin",
        "thunar",
        "pcmanfm",
        "nemo",
        "caja",
        "org.gnome.Console",
        "org.gnome.Terminal",
        "org.kde.konsole",
        "xfce4-terminal",
        "lxterminal",
        "debian-xterm",
    };
    return kApps;
}

std::optional<kit::tools::InstalledApp>
StarterBar::chooseApp(const std::vector<kit::tools::InstalledApp>& installed)
{
    for (const auto& id : candidateApps()) {
        for (const auto& app : installed) {
            if (app.bundleID == id) {
                return app;
            }
        }
    }
    return std::nullopt;
}

std::vector<Shortcut> StarterBar::shortcuts(const std::optional<Bookmark>& home,
                                            const std::optional<kit::tools::InstalledApp>& app)
{
    std::vector<Shortcut> list;
    list.push_back(
        link("Search", "https://duckduckgo.com/", IconOverride::symbol("system-search-symbolic")));
    list.push_back(
        link("Mail", "https://mail.google.com/", IconOverride::symbol("mail-unread-symbolic")));
    if (home) {
        list.push_back(Shortcut::make("Home", Target::folder(FileTarget{*home, std::nullopt})));
    }
    if (app) {
        list.push_back(
            Shortcut::make(app->name, Target::app(AppTarget{app->bundleID, std::nullopt})));
    }
    Shortcut reading = Shortcut::make(
        "Reading",
        Target::group(
            {link("Wikipedia", "https://www.wikipedia.org/", IconOverride::emoji("📖")),
             link("Maps", "https://www.openstreetmap.org/", IconOverride::emoji("🗺️"))}));
    reading.icon = IconOverride::symbol("accessories-dictionary-symbolic");
    list.push_back(std::move(reading));
    return list;
}

bool StarterBar::wouldSeed(const kit::storage::LibraryStore& store)
{
    using Kind = kit::storage::LibraryStore::LoadState::Kind;
    return store.loadState().kind == Kind::Fresh && store.bars().size() == 1
           && store.library().shortcuts.empty();
}

bool StarterBar::seed(kit::storage::LibraryStore& store,
                      const std::optional<Bookmark>& home,
                      const std::optional<kit::tools::InstalledApp>& app)
{
    if (!wouldSeed(store)) {
        return false;
    }
    store.mutate([&](Library& library) {
        for (auto& shortcut : shortcuts(home, app)) {
            library.add(std::move(shortcut));
        }
    });
    return true;
}

} // namespace app
