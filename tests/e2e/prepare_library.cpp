// SPDX-License-Identifier: MIT
// Writes a known library into a support folder for the desktop end-to-end run: a showing bar
// "Work" of a file, a group of two links and a link, and a second bar "Home" of two links.
// Usage: prepare_library SUPPORT_FOLDER FILE
#include "kit/opening/bookmark_resolver.h"
#include "kit/storage/library_store.h"

#include <cstdio>

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
    if (argc != 3) {
        std::fprintf(stderr, "usage: prepare_library SUPPORT_FOLDER FILE\n");
        return 2;
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
