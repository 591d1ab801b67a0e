// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library.h"

#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace kit::storage {
class LibraryStore;
}

namespace kit::proposal {

// An immutable copy of the whole live state that review, export and the read tools work on.
// Taken on the main thread; afterwards a plain value that may go to any thread.
struct LibrarySnapshot
{
    std::vector<library::Bar> bars;
    std::optional<library::BarID> activeBarID;
    // A bar whose file cannot be read has no entry.
    std::unordered_map<library::BarID, library::Library> libraries;
    std::vector<library::Session> sessions;
    // Granted folders by path.
    std::map<std::string, library::Bookmark> grantedBookmarks;

    LibrarySnapshot(std::vector<library::Bar> bars,
                    std::optional<library::BarID> activeBarID,
                    std::unordered_map<library::BarID, library::Library> libraries,
                    std::vector<library::Session> sessions);
    // One bar "Shortcuts" in "library.json" holding the library, and showing.
    LibrarySnapshot(library::Library library, std::vector<library::Session> sessions);
    // Every bar's library is read; the showing one from memory, the others from their files.
    explicit LibrarySnapshot(const storage::LibraryStore& store);

    // The showing bar's library; null when there is none.
    const library::Library* activeLibrary() const;
    const library::Library* library(const library::BarID& bar) const;
    const library::Bar* bar(const library::BarID& id) const;

    bool operator==(const LibrarySnapshot&) const = default;
};

} // namespace kit::proposal
