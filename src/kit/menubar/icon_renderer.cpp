// SPDX-License-Identifier: MIT
#include "kit/menubar/icon_renderer.h"

#include <algorithm>

namespace kit::menubar {

using library::IconOverride;
using library::Shortcut;
using library::Target;

namespace {

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
    case Target::Kind::Url:
        glyph.source = Glyph::Source::SiteIcon;
        glyph.name = target.urlTarget()->url;
        break;
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
