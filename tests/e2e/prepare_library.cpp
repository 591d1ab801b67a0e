// SPDX-License-Identifier: MIT
// Writes a known library into a support folder for the desktop end-to-end run: a showing bar
// "Work" of a file, a group of two links and a link (or COUNT shortcuts, more links after those),
// and a second bar "Home" of two links. With "hosts" for COUNT, the showing bar is the one every
// panel is tried with: an untinted symbol and letters, red, green and blue tinted symbols (local
// pages), a hidden shortcut and a divider. With "sites", the showing bar holds only links wearing
// their sites' icons: one per NAME=ADDRESS given, or COUNT of them to https://siteN.example/.
// Usage: prepare_library SUPPORT_FOLDER FILE [COUNT|hosts|sites COUNT|sites NAME=ADDRESS...]
#include "kit/opening/bookmark_resolver.h"
#include "kit/storage/library_store.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

using namespace kit::library;

namespace {

Shortcut link(std::string name, std::string address, IconOverride icon)
{
    URLTarget target;
    target.url = std::move(address);
    Shortcut shortcut = Shortcut::make(std::move(name), Target::url(std::move(target)));
    shortcut.icon = std::move(icon);
    return shortcut;
}

} // namespace

int main(int argc, char** argv)
{
    const bool sites = argc >= 5 && std::string(argv[3]) == "sites";
    if (argc != 3 && argc != 4 && !sites) {
        std::fprintf(stderr, "usage: prepare_library SUPPORT_FOLDER FILE [COUNT]\n");
        return 2;
    }
    const bool hosts = argc == 4 && std::string(argv[3]) == "hosts";
    const int count = argc == 4 && !hosts ? std::atoi(argv[3]) : 3;
    std::vector<std::pair<std::string, std::string>> siteLinks;
    if (sites && argc == 5 && std::string(argv[4]).find('=') == std::string::npos) {
        for (int i = 1; i <= std::atoi(argv[4]); ++i) {
            siteLinks.emplace_back("Site " + std::to_string(i),
                                   "https://site" + std::to_string(i) + ".example/");
        }
    } else if (sites) {
        for (int i = 4; i < argc; ++i) {
            const std::string pair = argv[i];
            const auto equals = pair.find('=');
            siteLinks.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
        }
    }
    auto bookmark = kit::opening::makeInodeBookmark(argv[2]);
    if (!bookmark) {
        std::fprintf(stderr, "cannot make a bookmark of %s\n", argv[2]);
        return 1;
    }
    std::filesystem::create_directories(argv[1]);
    kit::storage::LibraryStore store(kit::storage::SupportDirectory{argv[1], false});
    const BarID work = store.activeBarID();
    store.renameBar(work, "Work");
    store.mutate([&](Library& library) {
        library.shortcuts.clear();
        if (sites) {
            for (const auto& [name, address] : siteLinks) {
                URLTarget target;
                target.url = address;
                library.add(Shortcut::make(name, Target::url(std::move(target))));
            }
            return;
        }
        if (hosts) {
            const std::string page = std::string("file://") + argv[2];
            // Untinted, so drawn in the panel's colour: a symbol and letters.
            library.add(link("Mail", page, IconOverride::symbol("mail-unread-symbolic")));
            library.add(link("Letters", page, IconOverride::emoji("AB")));
            const std::pair<const char*, const char*> tinted[] = {
                {"Red", "#E01B24"}, {"Green", "#2EC27E"}, {"Blue", "#1C71D8"}};
            for (const auto& [name, colour] : tinted) {
                Shortcut shortcut = link(name, page, IconOverride::symbol("starred-symbolic"));
                shortcut.iconTint = IconTint::colour(colour);
                library.add(std::move(shortcut));
            }
            Shortcut hidden = link("Hidden", page, IconOverride::symbol("user-home-symbolic"));
            hidden.isInMenuBar = false;
            library.add(std::move(hidden));
            library.add(Shortcut::make("", Target::divider()));
            return;
        }
        Shortcut notes = Shortcut::make("Notes", Target::file(FileTarget{*bookmark, std::nullopt}));
        notes.icon = IconOverride::emoji("📝");
        library.add(std::move(notes));
        Shortcut reading = Shortcut::make(
            "Reading",
            Target::group(
                {link("Wikipedia", "https://www.wikipedia.org/", IconOverride::emoji("📖")),
                 link("Maps", "https://www.openstreetmap.org/", IconOverride::emoji("🗺️"))}));
        reading.icon = IconOverride::symbol("accessories-dictionary-symbolic");
        library.add(std::move(reading));
        library.add(link(
            "Search", "https://duckduckgo.com/", IconOverride::symbol("system-search-symbolic")));
        const char* symbols[] = {"mail-unread-symbolic",
                                 "folder-symbolic",
                                 "rss-symbolic",
                                 "weather-clear-symbolic",
                                 "camera-photo-symbolic",
                                 "help-browser-symbolic",
                                 "media-playback-start-symbolic",
                                 "user-home-symbolic"};
        for (int i = 3; i < count; ++i) {
            library.add(link("Link " + std::to_string(i + 1),
                             "https://example.org/" + std::to_string(i + 1),
                             IconOverride::symbol(symbols[i % 8])));
        }
    });
    const auto home = store.addBar("Home");
    if (!home) {
        return 1;
    }
    store.mutate(*home, [](Library& library) {
        library.shortcuts.clear();
        library.add(link("Weather", "https://example.org/weather", IconOverride::emoji("⛅")));
        library.add(link("News", "https://example.org/news", IconOverride::symbol("rss")));
    });
    store.activate(work);
    store.flush();
    std::printf("prepared %s\n", argv[1]);
    return 0;
}
