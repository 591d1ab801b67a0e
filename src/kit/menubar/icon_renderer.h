// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/shortcut.h"

#include <optional>
#include <string>
#include <string_view>

namespace kit::menubar {

// What a site's icon falls back to while there is no picture of it: letters of the shortcut's
// name on a rounded square of a colour that comes from the site's host.
struct Monogram
{
    std::string letters; // one or two
    std::string colour;  // "#RRGGBB", dark enough for white letters

    bool operator==(const Monogram&) const = default;
};

// The first letter of the name, or the first of each of its first two words; the site's own
// name when the name has no letter. The colour is the same for every address on one host.
Monogram monogramFor(std::string_view name, std::string_view address);

// What one icon in the menu bar shows, described without drawing it: the desktop layer turns it
// into pixels. Equal glyphs draw the same picture.
struct Glyph
{
    enum class Kind {
        Image, // drawn as a picture
        Text,  // set as the item's title: short emoji or letters
    };

    // Where an image's picture comes from.
    enum class Source {
        Symbol,   // an icon name from the icon theme, in `name`
        Letters,  // `name` drawn as a picture (text that must carry a badge)
        Picture,  // image bytes, in `data`
        AppIcon,  // the icon of the application whose desktop-entry id is `name`
        FileIcon, // the icon the file manager shows for the path in `name`
        SiteIcon, // the page icon of the site whose address is `name`
        Divider,  // a thin vertical line
    };

    Kind kind = Kind::Image;
    Source source = Source::Symbol;
    std::string name;
    library::Bytes data;
    // "#RRGGBB"; none draws the picture as a template that follows the menu bar's colour.
    std::optional<std::string> tint;
    double opacity = 1.0;
    double pointSize = 18;
    bool playing = false;      // a mark saying the page keeps playing after it was closed
    std::optional<int> number; // a badge shown while number keys are held
    // The page's count ("3", "99+"), a badge in the top corner.
    std::optional<std::string> count;
    // Drawn for a site icon that has no picture yet (offline, failing, absent).
    std::optional<Monogram> monogram;

    bool operator==(const Glyph&) const = default;
};

// A theme icon named "…-symbolic" is a one-colour shape drawn in the panel's colour; any other
// name is drawn in its own colours where the theme has it so, else as its symbolic variant.
bool isSymbolicName(std::string_view name);
// The name an icon is listed under, whichever variant or file stem was given: "mail-unread" for
// "mail-unread-symbolic" and for a "mail-unread-symbolic.symbolic" PNG's stem.
std::string baseIconName(std::string_view name);

// Gives the glyph for a shortcut and its playing and numbered variants. Main thread only.
class IconRenderer
{
public:
    virtual ~IconRenderer() = default;

    virtual Glyph glyph(const library::Shortcut& shortcut, double pointSize) const = 0;
    virtual Glyph playing(const Glyph& glyph, double pointSize) const = 0;
    virtual Glyph numbered(const Glyph& glyph, int number, double pointSize) const = 0;
    // A title cannot carry a badge, so the glyph becomes a picture.
    virtual Glyph counted(const Glyph& glyph, const std::string& count, double pointSize) const
    {
        Glyph result = glyph;
        result.pointSize = pointSize;
        result.count = count;
        result.kind = Glyph::Kind::Image;
        return result;
    }
};

// The renderer the application uses: the icon the person chose, else the target's own icon, with
// the chosen tint and opacity. Emoji and letters stand as text until a badge needs a picture.
class StandardIconRenderer final : public IconRenderer
{
public:
    Glyph glyph(const library::Shortcut& shortcut, double pointSize) const override;
    Glyph playing(const Glyph& glyph, double pointSize) const override;
    Glyph numbered(const Glyph& glyph, int number, double pointSize) const override;

    // The theme icons used where a target has no icon of its own to show.
    static constexpr const char* kGroupSymbol = "folder-symbolic";
    static constexpr const char* kFallbackSymbol = "application-x-executable-symbolic";
};

} // namespace kit::menubar
