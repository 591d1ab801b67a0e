// SPDX-License-Identifier: MIT
#include "desktop/tray/app_menu.h"

#include <QApplication>
#include <QClipboard>
#include <QMimeData>
#include <QUrl>
#include <QWidget>

#include <algorithm>

namespace desktop {

QtAppEvents::QtAppEvents()
{
    connect(qApp, &QGuiApplication::applicationStateChanged, this, &QtAppEvents::stateChanged);
}

QtAppEvents::Token QtAppEvents::addGlobalMouseDown(std::function<void(kit::menubar::Point)>)
{
    return m_next++;
}

QtAppEvents::Token QtAppEvents::addResignActive(std::function<void()> handler)
{
    const Token token = m_next++;
    m_resign.emplace_back(token, std::move(handler));
    return token;
}

void QtAppEvents::remove(Token token)
{
    std::erase_if(m_resign, [token](const auto& entry) { return entry.first == token; });
}

void QtAppEvents::activate()
{
    if (QWidget* window = QApplication::activeWindow()) {
        window->raise();
        window->activateWindow();
    }
}

bool QtAppEvents::isActive() const
{
    return QGuiApplication::applicationState() == Qt::ApplicationActive;
}

void QtAppEvents::stateChanged(Qt::ApplicationState state)
{
    if (state == Qt::ApplicationActive) {
        return;
    }
    // A copy: a handler may remove itself.
    const auto handlers = m_resign;
    for (const auto& entry : handlers) {
        entry.second();
    }
}

std::string clipboardText()
{
    const QClipboard* clipboard = QGuiApplication::clipboard();
    const QMimeData* data = clipboard ? clipboard->mimeData() : nullptr;
    if (!data) {
        return {};
    }
    if (data->hasUrls() && !data->urls().isEmpty()) {
        QStringList lines;
        for (const QUrl& url : data->urls()) {
            lines << url.toString(QUrl::FullyEncoded);
        }
        return lines.join(QLatin1Char('\n')).toStdString();
    }
    return data->text().toStdString();
}

} // namespace desktop
