// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/shortcut.h"

#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kit::library {

// A link into another application with named blanks written in braces ("{channel}"), the
// application it opens and the hint for whoever fills the blanks. A plain value.
struct DeepLinkTemplate
{
    std::string appName;
    std::string bundleID; // the application's macOS bundle identifier; see desktopEntryIDs()
    std::string title;    // what the link does: "Open a channel"
    std::string address;  // "slack://channel?team={workspace}&id={channel}"
    std::optional<std::string> placeholder; // absent exactly when there is nothing to fill in
    std::string suggestedName;
    // True when the blanks are typed (a number, a name); false when they come from a pasted link
    // (see DeepLinkTemplates::reading).
    bool typed = false;
    std::optional<IconOverride> icon; // when the application's own icon is not wanted

    // bundleID + "/" + title; unique within the catalogue.
    std::string id() const { return bundleID + "/" + title; }
    bool isComplete() const { return !placeholder.has_value(); }

    bool operator==(const DeepLinkTemplate&) const = default;
};

// A pasted address fitted to a template: the values found for its blanks (blanks whose value
// the address does not carry are left out) and the template's address filled with them.
struct DeepLinkReading
{
    DeepLinkTemplate link;
    std::map<std::string, std::string> values;
    std::string address;

    bool operator==(const DeepLinkReading&) const = default;
};

// The fixed catalogue of deep links and the rules for filling and recognising them. Stateless
// apart from the catalogue, which is built once on first use; safe from any thread.
class DeepLinkTemplates
{
public:
    DeepLinkTemplates() = delete;

    // The whole catalogue: the applications' links, then one complete link per settings pane.
    static const std::vector<DeepLinkTemplate>& all();

    // The names written between "{" and "}", in order of first appearance, each once.
    static std::vector<std::string> blanks(std::string_view address);
    static bool hasBlank(std::string_view address);

    // Each blank replaced by its value, trimmed; a blank named "... number" keeps only digits,
    // any other value is percent-encoded. A missing or empty value leaves the blank in place.
    static std::string filled(std::string_view address,
                              const std::map<std::string, std::string>& values);

    // The first template whose address equals the text exactly, case included.
    static std::optional<DeepLinkTemplate> matching(std::string_view address);

    // Fits a pasted address to a template: a catalogue address, an app link of a template's
    // shape, or a web link of an application whose web addresses are known (Slack, WhatsApp,
    // Figma, Notion, Zoom, Telegram, Spotify, Teams, Discord).
    static std::optional<DeepLinkReading> reading(std::string_view address);

    // Linux desktop-entry ids (without ".desktop") under which the application of a catalogue
    // bundle identifier is installed, most common first; empty when it has no Linux build.
    static std::span<const std::string_view> desktopEntryIDs(std::string_view bundleID);
};

} // namespace kit::library
