// SPDX-License-Identifier: MIT
#pragma once

#include <QIcon>
#include <QWidget>

#include <functional>
#include <string>
#include <utility>
#include <vector>

class QAction;
class QLabel;
class QLineEdit;
class QToolButton;
class QWebEnginePage;

namespace desktop::pages {

// The strip above a page: the shortcut's name and where the page is, back, forward, reload, the
// zoom when it is not 100% and "Open in Browser". A window's strip has an address field instead
// of the host. Main thread; it follows the page it was made for and never outlives it.
class PageHeader final : public QWidget
{
public:
    struct Callbacks
    {
        std::function<void(const QUrl& address)> openInBrowser;
        // The person clicked the zoom to put it back to 100%.
        std::function<void()> resetZoom;
    };

    PageHeader(QWebEnginePage& page, bool withAddressField, Callbacks callbacks, QWidget* parent);

    void setName(const std::string& name);
    // Empty at 100%, which hides the zoom.
    void setZoomText(const QString& text);
    // Puts the keyboard in the address field with its text selected; false when there is none.
    bool focusAddress();

protected:
    void changeEvent(QEvent* event) override;

private:
    void showAddress();
    void goToTyped();
    void tintIcons();

    QWebEnginePage& m_page;
    Callbacks m_callbacks;
    QLabel* m_name = nullptr;
    QLabel* m_host = nullptr;
    QLineEdit* m_address = nullptr;
    QToolButton* m_zoom = nullptr;
    // Each arrow with the icon it is drawn from, tinted anew when the look changes.
    std::vector<std::pair<QAction*, QIcon>> m_steps;
};

} // namespace desktop::pages
