// SPDX-License-Identifier: MIT
#include "kit/tools/tool_context.h"

#include "kit/support/text.h"
#include "kit/support/utf8.h"

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

namespace {

// Lower case for the scripts names are mostly written in (Latin, Greek, Cyrillic); other
// letters compare as they are.
char32_t lowered(char32_t c)
{
    if (c < 0x80) {
        return c >= 'A' && c <= 'Z' ? c + 0x20 : c;
    }
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) {
        return c + 0x20;
    }
    if (c == 0x130) {
        return 'i';
    }
    const bool even = c % 2 == 0;
    if ((c >= 0x100 && c <= 0x137) || (c >= 0x14A && c <= 0x177)) {
        return even ? c + 1 : c;
    }
    if ((c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E)) {
        return even ? c : c + 1;
    }
    if (c == 0x178) {
        return 0xFF;
    }
    if (c == 0x3C2) {
        return 0x3C3; // final sigma
    }
    if (c >= 0x391 && c <= 0x3AB && c != 0x3A2) {
        return c + 0x20;
    }
    if (c >= 0x400 && c <= 0x40F) {
        return c + 0x50;
    }
    if (c >= 0x410 && c <= 0x42F) {
        return c + 0x20;
    }
    return c;
}

// The code point starting at text[at] and its length in bytes; a byte that does not start a
// well-formed sequence stands for itself, so any text folds without failing.
std::pair<char32_t, size_t> decode(std::string_view text, size_t at)
{
    const auto lead = static_cast<unsigned char>(text[at]);
    size_t length = lead >= 0xF0 && lead <= 0xF4 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 1;
    if (lead < 0x80 || length == 1 || lead > 0xF4 || at + length > text.size()) {
        return {lead, 1};
    }
    char32_t c = lead & (0x7F >> length);
    for (size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0) != 0x80) {
            return {lead, 1};
        }
        c = (c << 6) | (next & 0x3F);
    }
    return {c, length};
}

} // namespace

std::string folded(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    size_t at = 0;
    while (at < text.size()) {
        const auto lead = static_cast<unsigned char>(text[at]);
        if (lead < 0x80) {
            out += static_cast<char>(lead >= 'A' && lead <= 'Z' ? lead + 0x20 : lead);
            ++at;
            continue;
        }
        auto [c, length] = decode(text, at);
        if (length == 1) {
            out += text[at]; // not UTF-8: kept byte for byte
        } else {
            support::appendUtf8(out, static_cast<uint32_t>(lowered(c)));
        }
        at += length;
    }
    return out;
}

bool containsFolded(std::string_view haystack, const std::string& foldedNeedle)
{
    return foldedNeedle.empty() || folded(haystack).find(foldedNeedle) != std::string::npos;
}

std::vector<std::string> namesOf(const std::vector<mcp::ToolDescription>& descriptions)
{
    std::vector<std::string> names;
    names.reserve(descriptions.size());
    for (const auto& description : descriptions) {
        names.push_back(description.name);
    }
    return names;
}

bool isNamed(const std::vector<std::string>& names, std::string_view name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::string trimmed(std::string_view text)
{
    return std::string(support::trimmed(text));
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
