// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/panel_look.h"

#include <QDBusConnection>
#include <QDBusVariant>
#include <QObject>
#include <QRect>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QTimer;

namespace desktop {

// Gathers what the session says about the panel our icons sit on and hands it to the core's
// panelLook(), which decides. XEmbed: the tray's _NET_SYSTEM_TRAY_COLORS and the panel's pixels
// beside our icons, read again whenever an icon window is shown or moves (a tray that restarts
// docks them anew). StatusNotifierItem: the host's fixed look and the settings portal's colour
// scheme. GUI thread only; X and D-Bus are read asynchronously or in small bounded requests.
class PanelWatch final : public QObject
{
    Q_OBJECT

public:
    using Changed = std::function<void(kit::menubar::Appearance)>;
    // The screen rectangles of our docked icons, for reading the pixels around them.
    using IconPlaces = std::function<std::vector<QRect>()>;

    // XEmbed when `places` is given; otherwise the colour scheme is asked of the portal on `bus`.
    PanelWatch(kit::menubar::PanelClues clues,
               IconPlaces places,
               std::optional<QDBusConnection> bus,
               Changed changed);
    ~PanelWatch() override;

    kit::menubar::Appearance look() const { return m_look; }
    const kit::menubar::PanelClues& clues() const { return m_clues; }
    void setForced(std::optional<kit::menubar::Appearance> forced);
    // Reads the panel again soon (debounced); XEmbed only.
    void readPanelSoon();

    // The application palette's look: what nothing better than it decides by.
    static kit::menubar::Appearance paletteLook();

private Q_SLOTS:
    // The portal's SettingChanged signal.
    void settingChanged(const QString& group, const QString& key, const QDBusVariant& value);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void readPanel();
    void askPortal();
    void schemeChanged(uint32_t value);
    void update();

    kit::menubar::PanelClues m_clues;
    kit::menubar::Appearance m_look;
    IconPlaces m_places;
    std::optional<QDBusConnection> m_bus;
    Changed m_changed;
    QTimer* m_readSoon = nullptr;
};

// The foreground colour the XEmbed tray asks its icons to draw in, when it says.
std::optional<kit::menubar::Rgb> trayForegroundColour();
// Pixels of the screen beside each rectangle (as wide again to either side, clipped to the
// screen): mostly the panel's own background, with what icons stand there.
std::vector<kit::menubar::Rgb> pixelsAround(const std::vector<QRect>& places);

} // namespace desktop
