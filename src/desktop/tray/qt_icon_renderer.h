// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/icon_renderer.h"
#include "kit/menubar/status_bar.h"

#include <QIcon>
#include <QImage>

#include <functional>
#include <optional>
#include <string>
#include <thread>

namespace desktop {

// Gives a site's page icon once it was fetched; without one the site's monogram is drawn.
using SiteIconSource = std::function<std::optional<QImage>(const std::string& address)>;

// Loads, on a thread of its own, what the first icons drawn would otherwise wait for on the main
// thread while the tray shows blank squares: the image format plug-ins and the font database.
// Made right after the application object; the destructor waits for it.
class DrawingWarmUp final
{
public:
    DrawingWarmUp();
    ~DrawingWarmUp();
    DrawingWarmUp(const DrawingWarmUp&) = delete;
    DrawingWarmUp& operator=(const DrawingWarmUp&) = delete;

private:
    std::thread m_thread;
};

// Turns glyphs into pixels: theme icons, letters and emoji, pictures, an app's icon from its
// desktop entry, a file's icon from its MIME type, with tint, opacity, the playing mark and the
// number badge. Which glyph a shortcut wears is the core's decision (StandardIconRenderer), passed
// through unchanged. Main (GUI) thread only; every draw yields a picture, a generic one when the
// named icon cannot be found.
class QtIconRenderer final : public kit::menubar::IconRenderer
{
public:
    explicit QtIconRenderer(SiteIconSource siteIcons = {});

    kit::menubar::Glyph glyph(const kit::library::Shortcut& shortcut,
                              double pointSize) const override;
    kit::menubar::Glyph playing(const kit::menubar::Glyph& glyph, double pointSize) const override;
    kit::menubar::Glyph
    numbered(const kit::menubar::Glyph& glyph, int number, double pointSize) const override;

    void setSiteIconSource(SiteIconSource siteIcons) { m_siteIcons = std::move(siteIcons); }

    // The glyph in a square of `side` pixels, for a bar of the given appearance (templates take
    // the bar's text colour).
    QImage
    draw(const kit::menubar::Glyph& glyph, int side, kit::menubar::Appearance appearance) const;
    // The application's own icon: its symbol or named image, gauges and alert mark.
    QImage draw(const kit::menubar::AppIconImage& image, int side) const;

    // The same pictures at the sizes tray hosts ask for.
    QIcon icon(const kit::menubar::Glyph& glyph, kit::menubar::Appearance appearance) const;
    QIcon icon(const kit::menubar::AppIconImage& image) const;

    // The colour of text and template pictures in a bar of this appearance.
    static QColor foreground(kit::menubar::Appearance appearance);

private:
    // The picture a glyph names, before tint, opacity and marks; `isTemplate` says whether it is
    // a one-colour picture that takes the bar's colour.
    QImage picture(const kit::menubar::Glyph& glyph, int side, bool& isTemplate) const;
    QImage themed(const std::string& name, int side, bool& isTemplate) const;
    QImage fallback(kit::menubar::Glyph::Source source, int side) const;
    std::optional<QImage> siteIcon(const kit::menubar::Glyph& glyph) const;

    kit::menubar::StandardIconRenderer m_standard;
    SiteIconSource m_siteIcons;
};

// The icon a desktop entry names (a desktop-entry id, with or without ".desktop"); a null icon
// when there is no such entry or it names no icon.
QIcon desktopEntryIcon(const std::string& desktopID);
// The icon the file manager shows for this path, from its MIME type.
QIcon fileIcon(const std::string& path);

} // namespace desktop
