// SPDX-License-Identifier: MIT
#pragma once

#include "kit/mcp/tool_error.h"
#include "kit/proposal/library_snapshot.h"
#include "kit/proposal/proposal_review.h"
#include "kit/tools/icon_provider.h"
#include "kit/tools/installed_apps.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit::tools {

// A read-only picture of the running app, taken on the main thread at the start of one tool call.
// A plain value: the snapshot and the lists are shared and never changed.
struct ToolContext
{
    std::shared_ptr<const proposal::LibrarySnapshot> snapshot;
    library::BrowsingDefaults browsing;
    AppList installedApps;
    IconList icons;
    std::string appVersion;
    proposal::Reach reach;

    const std::vector<InstalledApp>& apps() const;
    const std::vector<IconEntry>& iconEntries() const;
};

// A bar argument: trimmed, then a bar id, else a bar name ignoring case (the first in bar order).
// Throws mcp::ToolError::unknownBar carrying the text as given.
const library::Bar& resolve(const proposal::LibrarySnapshot& snapshot, const std::string& text);
// As resolve, with an omitted bar meaning the showing one.
const library::Bar& resolveOrShowing(const proposal::LibrarySnapshot& snapshot,
                                     const std::optional<std::string>& text);

// A shortcut found on a bar.
struct FoundShortcut
{
    const library::Bar* bar = nullptr;
    const library::Library* library = nullptr;
    const library::Shortcut* shortcut = nullptr;
};

// The shortcut with the id on the named bar, or on any bar (showing bar first) when none is
// named. Throws unknownBar for a bar that is not there and unknownShortcut carrying the id text.
FoundShortcut findShortcut(const proposal::LibrarySnapshot& snapshot,
                           const std::string& idText,
                           const std::optional<std::string>& barText);

// The names of the enclosing groups joined with " › "; empty at the top level.
std::string groupPath(const library::Library& library, const library::ShortcutID& id);

// Lower case in Latin, Greek and Cyrillic, for the tools' case-insensitive matching; bytes that
// are not UTF-8 are kept as they are.
std::string folded(std::string_view text);
bool containsFolded(std::string_view haystack, const std::string& foldedNeedle);
std::string trimmed(std::string_view text);

// The tools' names in the order they are described, and whether `name` is among them.
std::vector<std::string> namesOf(const std::vector<mcp::ToolDescription>& descriptions);
bool isNamed(const std::vector<std::string>& names, std::string_view name);

} // namespace kit::tools
