// SPDX-License-Identifier: MIT
#pragma once

#include "kit/menubar/status_bar.h"

#include <QWidget>

#include <functional>
#include <optional>

class QLabel;

namespace kit::settings {
class AppSettings;
}

namespace desktop {

// The introduction shown once beside the application's icon: what bars and icons are, the keys
// as the settings have them, and how to let an assistant in. Closes itself when dismissed.
// Main thread only; the settings must outlive the window.
class ManagerIntroduction final : public QWidget
{
public:
    // `place` says where Vantorel's own icon stands on this host and how icons are clicked.
    ManagerIntroduction(const kit::settings::AppSettings& settings,
                        const std::function<void()>& manageBars,
                        const std::function<void()>& openSettings,
                        const std::string& place,
                        QWidget* parent = nullptr);

    // Shows the window under the icon at `place`, kept on its screen, or centred without one.
    void present(const std::optional<kit::menubar::Rect>& place);

    // The keys paragraph, as the settings have it now.
    static QString keysText(const kit::settings::AppSettings& settings);

    QLabel* keysLabel() const { return m_keys; }

private:
    QLabel* m_keys = nullptr;
};

} // namespace desktop
