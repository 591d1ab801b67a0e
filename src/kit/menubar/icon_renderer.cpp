// SPDX-License-Identifier: MIT
#include "kit/menubar/icon_renderer.h"

#include "kit/library/deep_link.h"
#include "kit/library/web_address.h"
#include "kit/support/utf8.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>

namespace kit::menubar {

using library::IconOverride;
using library::Shortcut;
using library::Target;

namespace {

// Each gives white letters a contrast of at least 4.5:1.
constexpr std::array<const char*, 16> kMonogramColours{"#C62828",
                                                       "#AD1457",
                                                       "#6A1B9A",
                                                       "#4527A0",
                                                       "#283593",
                                                       "#1565C0",
                                                       "#0277BD",
                                                       "#00695C",
                                                       "#2E7D32",
                                                       "#33691E",
                                                       "#BF360C",
                                                       "#5D4037",
                                                       "#455A64",
                                                       "#00796B",
                                                       "#8E24AA",
                                                       "#3949AB"};

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

// The first letter or digit of a word (a whole UTF-8 sequence), upper-cased when ASCII.
std::string initial(std::string_view word)
{
    for (size_t i = 0; i < word.size();) {
        const auto byte = static_cast<unsigned char>(word[i]);
        if (byte < 0x80) {
            if (std::isalnum(byte)) {
                return std::string(1, static_cast<char>(std::toupper(byte)));
            }
            ++i;
            continue;
        }
        size_t length = support::utf8SequenceLength(
            reinterpret_cast<const unsigned char*>(word.data()) + i, word.size() - i);
        // Ill-formed bytes and C1 control characters are no letter.
        if (length == 0 || (byte == 0xC2 && static_cast<unsigned char>(word[i + 1]) < 0xA0)) {
            i += std::max<size_t>(length, 1);
            continue;
        }
        return std::string(word.substr(i, length));
    }
    return {};
}

std::string initials(std::string_view name)
{
    std::string result;
    int taken = 0;
    size_t i = 0;
    while (i < name.size() && taken < 2) {
        while (i < name.size() && isSpace(name[i])) {
            ++i;
        }
        size_t start = i;
        while (i < name.size() && !isSpace(name[i])) {
            ++i;
        }
        std::string letter = initial(name.substr(start, i - start));
        if (!letter.empty()) {
            result += letter;
            ++taken;
        }
    }
    return result;
}

Glyph sourceOf(const Shortcut& shortcut)
{
    Glyph glyph;
    if (shortcut.icon) {
        switch (shortcut.icon->kind) {
        case IconOverride::Kind::Emoji:
            glyph.kind = Glyph::Kind::Text;
            glyph.source = Glyph::Source::Letters;
            glyph.name = shortcut.icon->text;
            return glyph;
        case IconOverride::Kind::Image:
            glyph.source = Glyph::Source::Picture;
            glyph.data = shortcut.icon->data;
            return glyph;
        case IconOverride::Kind::Symbol:
            if (!shortcut.icon->text.empty()) {
                glyph.source = Glyph::Source::Symbol;
                glyph.name = shortcut.icon->text;
                return glyph;
            }
            break;
        }
    }
    const Target& target = shortcut.target;
    switch (target.kind()) {
    case Target::Kind::App:
        glyph.source = Glyph::Source::AppIcon;
        glyph.name = target.appTarget()->bundleID;
        break;
    case Target::Kind::File:
    case Target::Kind::Folder:
        glyph.source = Glyph::Source::FileIcon;
        glyph.name = target.fileTarget()->bookmark.displayPath;
        break;
    case Target::Kind::Url: {
        const std::string& url = target.urlTarget()->url;
        auto parts = library::WebAddress::parts(url);
        bool isWeb = parts && (parts->scheme == "http" || parts->scheme == "https");
        auto link = isWeb ? std::nullopt : library::DeepLinkTemplates::reading(url);
        auto apps = link ? library::DeepLinkTemplates::desktopEntryIDs(link->link.bundleID)
                         : std::span<const std::string_view>();
        if (!apps.empty()) {
            // A link into an app wears the app's icon, never a fetched one.
            glyph.source = Glyph::Source::AppIcon;
            glyph.name = std::string(apps.front());
        } else {
            glyph.source = Glyph::Source::SiteIcon;
            glyph.name = url;
            if (isWeb) {
                glyph.monogram = monogramFor(shortcut.name, url);
            }
        }
        break;
    }
    case Target::Kind::Group:
        glyph.source = Glyph::Source::Symbol;
        glyph.name = StandardIconRenderer::kGroupSymbol;
        break;
    case Target::Kind::Divider:
        glyph.source = Glyph::Source::Divider;
        break;
    }
    if (glyph.name.empty() && glyph.source != Glyph::Source::Divider) {
        glyph.source = Glyph::Source::Symbol;
        glyph.name = StandardIconRenderer::kFallbackSymbol;
    }
    return glyph;
}

constexpr std::string_view kSymbolic = "-symbolic";

} // namespace

bool isSymbolicName(std::string_view name)
{
    return name.size() > kSymbolic.size() && name.ends_with(kSymbolic);
}

std::string baseIconName(std::string_view name)
{
    // GTK's pre-rendered symbolic PNGs are "<name>.symbolic.png".
    if (name.ends_with(".symbolic")) {
        name.remove_suffix(std::string_view(".symbolic").size());
    }
    if (isSymbolicName(name)) {
        name.remove_suffix(kSymbolic.size());
    }
    return std::string(name);
}

Monogram monogramFor(std::string_view name, std::string_view address)
{
    Monogram monogram;
    monogram.letters = initials(name);
    if (monogram.letters.empty()) {
        monogram.letters = initial(library::WebAddress::suggestedName(address));
    }
    if (monogram.letters.empty()) {
        monogram.letters = "?";
    }
    std::string host = library::WebAddress::host(address).value_or(std::string(address));
    if (host.starts_with("www.")) {
        host.erase(0, 4);
    }
    // FNV-1a: the same host gives the same colour in every run and on every machine.
    uint32_t hash = 2166136261u;
    for (char c : host) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    }
    monogram.colour = kMonogramColours[hash % kMonogramColours.size()];
    return monogram;
}

Glyph StandardIconRenderer::glyph(const Shortcut& shortcut, double pointSize) const
{
    Glyph glyph = sourceOf(shortcut);
    glyph.pointSize = pointSize;
    // Emoji keep their own colours; a tint applies to everything drawn as a template.
    bool takesColour = !shortcut.icon || shortcut.icon->takesColour();
    if (takesColour && shortcut.iconTint) {
        glyph.tint = shortcut.iconTint->hex();
    }
    if (shortcut.iconOpacity) {
        glyph.opacity = std::clamp(*shortcut.iconOpacity, 0.0, 1.0);
    }
    return glyph;
}

Glyph StandardIconRenderer::playing(const Glyph& glyph, double pointSize) const
{
    Glyph result = glyph;
    result.pointSize = pointSize;
    result.playing = true;
    // A title cannot carry the mark.
    result.kind = Glyph::Kind::Image;
    return result;
}

Glyph StandardIconRenderer::numbered(const Glyph& glyph, int number, double pointSize) const
{
    Glyph result = glyph;
    result.pointSize = pointSize;
    result.number = number;
    result.kind = Glyph::Kind::Image;
    return result;
}

} // namespace kit::menubar
