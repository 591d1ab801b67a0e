// SPDX-License-Identifier: MIT
// The vantorel executable. Until the desktop layer and the tool server exist it opens the
// person's library, reports what it holds, and says what could not be read.
#include "kit/storage/library_store.h"
#include "kit/support/memory.h"

#include <cstdio>
#include <cstring>
#include <string>

using namespace kit::library;
using namespace kit::storage;

namespace {

constexpr const char* kUsage = "Usage: vantorel [--help] [--version]\n"
                               "Opens your Vantorel library and tells what it holds.\n";

std::string plural(size_t count, const char* one, const char* many)
{
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

} // namespace

int main(int argc, char** argv)
{
    kit::support::returnFreedMemoryPromptly();
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (std::strcmp(argv[i], "--version") == 0) {
            std::puts("Vantorel 0.1.0");
            return 0;
        }
        std::fprintf(
            stderr, "vantorel: “%s” is not an option this version knows.\n%s", argv[i], kUsage);
        return 2;
    }

    std::string error;
    auto directory = SupportDirectory::application("Vantorel", &error);
    if (!directory) {
        std::fprintf(stderr, "vantorel: %s\n", error.c_str());
        return 1;
    }
    LibraryStore store(*directory);
    std::printf("Vantorel library in %s\n", directory->url.c_str());
    std::printf("%s, %s.\n",
                plural(store.bars().size(), "bar", "bars").c_str(),
                plural(store.sessions().size(), "session", "sessions").c_str());
    for (const auto& bar : store.bars()) {
        bool showing = bar.id == store.activeBarID();
        auto library = store.library(bar.id);
        std::string contents = library
                                   ? plural(library->allShortcuts().size(), "shortcut", "shortcuts")
                                   : std::string("could not be read");
        std::printf("  %s “%s”: %s\n", showing ? "*" : " ", bar.name.c_str(), contents.c_str());
    }
    if (store.loadState().kind == LibraryStore::LoadState::Kind::Unreadable) {
        std::printf("Could not read this bar: %s\nThe file is left as it is.\n",
                    store.loadState().message.c_str());
    }
    for (const auto& violation : store.repairs()) {
        std::printf("Repaired: %s\n", violation.description().c_str());
    }
    return 0;
}
