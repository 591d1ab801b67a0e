// SPDX-License-Identifier: MIT
#include "kit/proposal/library_snapshot.h"

#include "kit/storage/library_store.h"

namespace kit::proposal {

using namespace kit::library;

LibrarySnapshot::LibrarySnapshot(std::vector<Bar> bars,
                                 std::optional<BarID> activeBarID,
                                 std::unordered_map<BarID, Library> libraries,
                                 std::vector<Session> sessions)
    : bars(std::move(bars))
    , activeBarID(activeBarID)
    , libraries(std::move(libraries))
    , sessions(std::move(sessions))
{}

LibrarySnapshot::LibrarySnapshot(Library library, std::vector<Session> sessions)
    : sessions(std::move(sessions))
{
    Bar bar{BarID::make(), BarIndex::kFirstBarName, BarIndex::kFirstBarFile};
    activeBarID = bar.id;
    libraries.emplace(bar.id, std::move(library));
    bars.push_back(std::move(bar));
}

LibrarySnapshot::LibrarySnapshot(const storage::LibraryStore& store)
    : bars(store.bars())
    , activeBarID(store.activeBarID())
    , sessions(store.sessions())
{
    for (const auto& bar : bars) {
        if (auto library = store.library(bar.id)) {
            libraries.emplace(bar.id, std::move(*library));
        }
    }
}

const Library* LibrarySnapshot::library(const BarID& bar) const
{
    auto it = libraries.find(bar);
    return it == libraries.end() ? nullptr : &it->second;
}

const Library* LibrarySnapshot::activeLibrary() const
{
    return activeBarID ? library(*activeBarID) : nullptr;
}

const Bar* LibrarySnapshot::bar(const BarID& id) const
{
    for (const auto& bar : bars) {
        if (bar.id == id) {
            return &bar;
        }
    }
    return nullptr;
}

} // namespace kit::proposal
