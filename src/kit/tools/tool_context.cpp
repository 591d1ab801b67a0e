// SPDX-License-Identifier: MIT
#include "kit/tools/tool_context.h"

#include <algorithm>

namespace kit::tools {

using library::Bar;
using library::BarID;
using library::ShortcutID;
using mcp::ToolError;
using proposal::LibrarySnapshot;

const std::vector<InstalledApp>& ToolContext::apps() const
{
    static const std::vector<InstalledApp> kNone;
    return installedApps ? *installedApps : kNone;
}

const std::vector<IconEntry>& ToolContext::iconEntries() const
{
    static const std::vector<IconEntry> kNone;
    return icons ? *icons : kNone;
}

std::string folded(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    });
    return out;
}

bool containsFolded(std::string_view haystack, const std::string& foldedNeedle)
{
    if (foldedNeedle.empty()) {
        return true;
    }
    auto it =
        std::search(haystack.begin(),
                    haystack.end(),
                    foldedNeedle.begin(),
                    foldedNeedle.end(),
                    [](char a, char b) {
                        auto c = static_cast<unsigned char>(a);
                        return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c) == b;
                    });
    return it != haystack.end();
}

std::string trimmed(std::string_view text)
{
    auto isSpace = [](char c) {
        return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
    };
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back())) {
        text.remove_suffix(1);
    }
    return std::string(text);
}

const Bar& resolve(const LibrarySnapshot& snapshot, const std::string& text)
{
    const std::string wanted = trimmed(text);
    if (auto id = BarID::parse(wanted)) {
        if (const Bar* bar = snapshot.bar(*id)) {
            return *bar;
        }
    }
    const std::string name = folded(wanted);
    for (const auto& bar : snapshot.bars) {
        if (folded(bar.name) == name) {
            return bar;
        }
    }
    throw ToolError::unknownBar(text);
}

const Bar& resolveOrShowing(const LibrarySnapshot& snapshot, const std::optional<std::string>& text)
{
    if (text) {
        return resolve(snapshot, *text);
    }
    if (snapshot.activeBarID) {
        if (const Bar* bar = snapshot.bar(*snapshot.activeBarID)) {
            return *bar;
        }
    }
    if (snapshot.bars.empty()) {
        throw ToolError::unknownBar("");
    }
    return snapshot.bars.front();
}

FoundShortcut findShortcut(const LibrarySnapshot& snapshot,
                           const std::string& idText,
                           const std::optional<std::string>& barText)
{
    std::vector<const Bar*> bars;
    if (barText) {
        bars.push_back(&resolve(snapshot, *barText));
    } else {
        // The showing bar first: an id copied between bars is most likely meant there.
        if (snapshot.activeBarID) {
            if (const Bar* bar = snapshot.bar(*snapshot.activeBarID)) {
                bars.push_back(bar);
            }
        }
        for (const auto& bar : snapshot.bars) {
            if (bars.empty() || bars.front() != &bar) {
                bars.push_back(&bar);
            }
        }
    }
    auto id = ShortcutID::parse(trimmed(idText));
    if (id) {
        for (const Bar* bar : bars) {
            const library::Library* library = snapshot.library(bar->id);
            if (!library) {
                continue;
            }
            if (const library::Shortcut* shortcut = library->shortcut(*id)) {
                return {bar, library, shortcut};
            }
        }
    }
    throw ToolError::unknownShortcut(idText);
}

std::string groupPath(const library::Library& library, const ShortcutID& id)
{
    std::string path;
    for (const auto& ancestor : library.ancestors(id)) {
        if (const library::Shortcut* group = library.shortcut(ancestor)) {
            if (!path.empty()) {
                path += " › ";
            }
            path += group->name;
        }
    }
    return path;
}

} // namespace kit::tools
