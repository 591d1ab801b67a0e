// SPDX-License-Identifier: MIT
// Writes a known library into a support folder for the desktop end-to-end run: a showing bar
// "Work" of a file, a group of two links and a link (or COUNT shortcuts, more links after those),
// and a second bar "Home" of two links.
// Usage: prepare_library SUPPORT_FOLDER FILE [COUNT]
#include "kit/opening/bookmark_resolver.h"
#include "kit/storage/library_store.h"

#include <cstdio>
#include <cstdlib>
#include <string>

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
    if (argc != 3 && argc != 4) {
        std::fprintf(stderr, "usage: prepare_library SUPPORT_FOLDER FILE [COUNT]\n");
        return 2;
    }
    const int count = argc == 4 ? std::atoi(argv[3]) : 3;
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
        Shortcut notes = Shortcut::make("Notes", Target::file(FileTarget{*bookmark, std::nullopt}));
        notes.icon = IconOverride::emoji("📝");
        library.add(std::move(notes));
        Shortcut reading = Shortcut::make(
            "Reading",
            Target::group(
                {link("Wikipedia", "https://www.wikipedia.org/", IconOverride::emoji("📖")),
                 link("Maps", "https://www.openstreetmap.org/", IconOverride::emoji("🗺️"))}));
        reading.icon = IconOverride::symbol("accessories-dictionary");
        library.add(std::move(reading));
        library.add(
            link("Search", "https://duckduckgo.com/", IconOverride::symbol("system-search")));
        const char* symbols[] = {"mail-unread",
                                 "folder",
                                 "rss",
                                 "weather-clear",
                                 "camera-photo",
                                 "help-browser",
                                 "media-playback-start",
                                 "user-home"};
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
