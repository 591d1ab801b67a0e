// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/fixtures.h"
#include "kit/storage/library_store.h"
#include "support/temp_dir.h"

#include <optional>
#include <string>
#include <vector>

namespace desktop::testing {

// A library store in a folder of its own, for the models and windows over it.
struct StoreHome
{
    testing_support::TempDir dir;
    kit::storage::LibraryStore store{kit::storage::SupportDirectory{dir.path(), true}};

    // Adds the shortcuts to the end of `bar`, the showing bar when none is named.
    void add(const std::vector<kit::library::Shortcut>& shortcuts,
             std::optional<kit::library::BarID> bar = std::nullopt)
    {
        const auto change = [&](kit::library::Library& library) {
            for (const auto& shortcut : shortcuts) {
                library.add(shortcut);
            }
        };
        if (bar) {
            store.mutate(*bar, change);
        } else {
            store.mutate(change);
        }
    }

    kit::library::BarID addBar(const std::string& name,
                               const std::vector<kit::library::Shortcut>& shortcuts = {})
    {
        const kit::library::BarID bar = *store.addBar(name);
        add(shortcuts, bar);
        return bar;
    }
};

} // namespace desktop::testing
