// SPDX-License-Identifier: MIT
#include "desktop/pages/page_header.h"

#include "desktop/qt_text.h"

#include <QAction>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWebEnginePage>
#include <QWebEngineView>

namespace desktop::pages {

namespace {

constexpr int kHeight = 34;

// What the strip says of where the page is: its host, or a local file's name.
QString placeOf(const QUrl& address)
{
    if (address.isLocalFile()) {
        return address.fileName();
    }
    return address.host().isEmpty() ? address.toDisplayString() : address.host();
}

constexpr int kIconSize = 16;
// How much of the text's colour a disabled arrow keeps over the header's background.
constexpr double kDisabledStrength = 0.35;

QColor mixed(const QColor& over, const QColor& under, double strength)
{
    return QColor::fromRgbF(
        static_cast<float>(over.redF() * strength + under.redF() * (1 - strength)),
        static_cast<float>(over.greenF() * strength + under.greenF() * (1 - strength)),
        static_cast<float>(over.blueF() * strength + under.blueF() * (1 - strength)));
}

// The icon's shape in one colour.
QPixmap inColour(const QPixmap& shape, const QColor& colour)
{
    QPixmap tinted(shape.size());
    tinted.setDevicePixelRatio(shape.devicePixelRatio());
    tinted.fill(Qt::transparent);
    QPainter painter(&tinted);
    painter.drawPixmap(0, 0, shape);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(tinted.rect(), colour);
    return tinted;
}

QToolButton* toolButton(QWidget* parent, QAction* action)
{
    auto* button = new QToolButton(parent);
    button->setDefaultAction(action);
    button->setAutoRaise(true);
    button->setFocusPolicy(Qt::NoFocus);
    return button;
}

} // namespace

PageHeader::PageHeader(QWebEnginePage& page,
                       bool withAddressField,
                       Callbacks callbacks,
                       QWidget* parent)
    : QWidget(parent)
    , m_page(page)
    , m_callbacks(std::move(callbacks))
    , m_name(new QLabel(this))
{
    setObjectName(QStringLiteral("pageHeader"));
    setAutoFillBackground(true);
    setFixedHeight(kHeight);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(6, 0, 6, 0);
    row->setSpacing(2);

    struct Step
    {
        QWebEnginePage::WebAction action;
        const char* themeIcon;
        QStyle::StandardPixmap fallback;
        QString text;
    };
    const Step steps[] = {
        {QWebEnginePage::Back, "go-previous", QStyle::SP_ArrowBack, tr("Back (Alt+Left)")},
        {QWebEnginePage::Forward, "go-next", QStyle::SP_ArrowForward, tr("Forward (Alt+Right)")},
        {QWebEnginePage::Reload, "view-refresh", QStyle::SP_BrowserReload, tr("Reload (Ctrl+R)")},
    };
    for (const auto& step : steps) {
        auto* action = new QAction(
            QIcon::fromTheme(QLatin1String(step.themeIcon), style()->standardIcon(step.fallback)),
            step.text,
            this);
        // The engine knows when there is somewhere to go back or forward to.
        if (step.action != QWebEnginePage::Reload) {
            QAction* engines = m_page.action(step.action);
            action->setEnabled(engines->isEnabled());
            connect(engines, &QAction::changed, action, [action, engines] {
                action->setEnabled(engines->isEnabled());
            });
        }
        connect(action, &QAction::triggered, this, [this, which = step.action] {
            m_page.triggerAction(which);
        });
        m_steps.emplace_back(action, action->icon());
        row->addWidget(toolButton(this, action));
    }
    tintIcons();
    row->addSpacing(6);

    auto* place = new QVBoxLayout;
    place->setContentsMargins(0, 0, 0, 0);
    place->setSpacing(0);
    m_name->setTextFormat(Qt::PlainText);
    m_name->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    QFont bold = m_name->font();
    bold.setBold(true);
    m_name->setFont(bold);
    if (withAddressField) {
        // A window is wide enough for the name and the whole address side by side.
        auto* line = new QHBoxLayout;
        line->setSpacing(8);
        m_name->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Preferred);
        m_name->setMaximumWidth(220);
        line->addWidget(m_name);
        m_address = new QLineEdit(this);
        m_address->setClearButtonEnabled(false);
        m_address->setPlaceholderText(tr("Address"));
        connect(m_address, &QLineEdit::returnPressed, this, &PageHeader::goToTyped);
        line->addWidget(m_address, 1);
        place->addLayout(line);
    } else {
        m_host = new QLabel(this);
        m_host->setTextFormat(Qt::PlainText);
        m_host->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        m_host->setForegroundRole(QPalette::PlaceholderText);
        QFont small = m_host->font();
        small.setPointSizeF(small.pointSizeF() * 0.85);
        m_host->setFont(small);
        place->addWidget(m_name);
        place->addWidget(m_host);
    }
    row->addLayout(place, 1);

    m_zoom = new QToolButton(this);
    m_zoom->setAutoRaise(true);
    m_zoom->setFocusPolicy(Qt::NoFocus);
    m_zoom->setToolTip(tr("Actual Size (Ctrl+0)"));
    m_zoom->hide();
    connect(m_zoom, &QToolButton::clicked, this, [this] {
        if (m_callbacks.resetZoom) {
            m_callbacks.resetZoom();
        }
    });
    row->addWidget(m_zoom);

    auto* browser = new QToolButton(this);
    browser->setText(tr("Open in Browser"));
    browser->setAutoRaise(true);
    browser->setFocusPolicy(Qt::NoFocus);
    connect(browser, &QToolButton::clicked, this, [this] {
        if (m_callbacks.openInBrowser) {
            m_callbacks.openInBrowser(m_page.url());
        }
    });
    row->addWidget(browser);

    connect(&m_page, &QWebEnginePage::urlChanged, this, &PageHeader::showAddress);
    showAddress();
}

void PageHeader::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
        tintIcons();
    }
}

// The arrows in the header's text colour, and dimmed towards its background when there is
// nowhere to go: the style's own disabled icon is made for light headers and on the dark one
// looks no different from an enabled arrow.
void PageHeader::tintIcons()
{
    const QColor text = palette().color(QPalette::Active, QPalette::ButtonText);
    const QColor dim = mixed(text, palette().color(QPalette::Window), kDisabledStrength);
    for (const auto& [action, source] : m_steps) {
        QIcon icon;
        for (const int scale : {1, 2}) {
            const QPixmap shape = source.pixmap(QSize(kIconSize, kIconSize), scale);
            icon.addPixmap(inColour(shape, text), QIcon::Normal);
            icon.addPixmap(inColour(shape, dim), QIcon::Disabled);
        }
        action->setIcon(icon);
    }
}

void PageHeader::setName(const std::string& name)
{
    m_name->setText(shownText(name));
}

void PageHeader::setZoomText(const QString& text)
{
    m_zoom->setText(text);
    m_zoom->setVisible(!text.isEmpty());
}

bool PageHeader::focusAddress()
{
    if (!m_address) {
        return false;
    }
    m_address->setFocus(Qt::ShortcutFocusReason);
    m_address->selectAll();
    return true;
}

void PageHeader::showAddress()
{
    const QUrl address = m_page.url();
    const std::string shown =
        (m_address ? address.toDisplayString() : placeOf(address)).toStdString();
    if (m_host) {
        m_host->setText(shownText(shown));
        m_host->setToolTip(plainToolTip(address.toDisplayString().toStdString()));
    }
    // What the person is typing stays until they go.
    if (m_address && !m_address->hasFocus()) {
        m_address->setText(shownText(shown));
        m_address->setCursorPosition(0);
    }
}

void PageHeader::goToTyped()
{
    const QUrl address = QUrl::fromUserInput(m_address->text().trimmed());
    if (!address.isValid()) {
        return;
    }
    m_page.load(address);
    if (auto* view = QWebEngineView::forPage(&m_page)) {
        view->setFocus();
    }
}

} // namespace desktop::pages
