// SPDX-License-Identifier: MIT
#include "desktop/editor/editor_dialog.h"

#include "desktop/editor/icon_picker.h"
#include "desktop/qt_text.h"
#include "desktop/tray/qt_icon_renderer.h"
#include "desktop/window_fit.h"
#include "kit/library/web_address.h"
#include "kit/library/words.h"
#include "kit/storage/library_store.h"
#include "kit/tools/icon_provider.h"
#include "kit/tools/installed_apps.h"
#include "kit/web/kept_icons.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>

#include <gio/gio.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace desktop::editor {

using kit::library::BrowserAgent;
using kit::library::ContentSize;
using kit::library::NewWindowLinks;
using kit::library::OpenMode;
using kit::library::PageAppearance;
using kit::library::PageZoom;
using kit::library::SurfaceLimits;
using kit::library::Target;

namespace {

constexpr int kDefault = -1;
constexpr int kLargestSide = 5000;

namespace words = kit::library::words;

QString defaultText(std::string_view what)
{
    return toQt(words::followsDefault(what));
}

// A field's label in the words the menu and a review use, its mnemonic on the first `key`.
QString fieldLabel(std::string_view name, QChar key)
{
    QString text = toQt(name);
    const qsizetype at = text.indexOf(key);
    if (at >= 0) {
        text.insert(at, QLatin1Char('&'));
    }
    return text + QLatin1Char(':');
}

void select(QComboBox* box, const QVariant& data)
{
    const QSignalBlocker blocker(box);
    box->setCurrentIndex(std::max(0, box->findData(data)));
}

template <class E> void fillEnum(QComboBox* box, std::string_view defaultWord, size_t count)
{
    box->addItem(defaultText(defaultWord), kDefault);
    for (size_t i = 0; i < count; ++i) {
        box->addItem(toQt(readableWord(static_cast<E>(i))), static_cast<int>(i));
    }
}

template <class E> std::optional<E> enumIn(const QComboBox* box)
{
    const int value = box->currentData().toInt();
    return value == kDefault ? std::nullopt : std::optional<E>(static_cast<E>(value));
}

template <class E> void selectEnum(QComboBox* box, const std::optional<E>& value)
{
    select(box, value ? static_cast<int>(*value) : kDefault);
}

std::optional<std::string> stringIn(const QComboBox* box)
{
    const QVariant data = box->currentData();
    return data.isValid() && !data.toString().isEmpty()
               ? std::optional<std::string>(data.toString().toStdString())
               : std::nullopt;
}

std::string blocksWord(bool blocks)
{
    return std::string(words::yesNo(blocks));
}

// The applications that open web addresses, as desktop-entry ids without ".desktop".
std::vector<kit::tools::InstalledApp> browsers()
{
    std::vector<kit::tools::InstalledApp> found;
    GList* all = g_app_info_get_all_for_type("x-scheme-handler/https");
    for (GList* node = all; node; node = node->next) {
        auto* info = static_cast<GAppInfo*>(node->data);
        std::string id = g_app_info_get_id(info) ? g_app_info_get_id(info) : "";
        if (id.ends_with(".desktop")) {
            id.resize(id.size() - 8);
        }
        const char* name = g_app_info_get_name(info);
        if (!id.empty() && g_app_info_should_show(info)) {
            found.push_back({name ? name : id, id});
        }
        g_object_unref(info);
    }
    g_list_free(all);
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
        return QString::localeAwareCompare(toQt(a.name), toQt(b.name)) < 0;
    });
    return found;
}

QString kindTitle(Target::Kind kind)
{
    switch (kind) {
    case Target::Kind::App:
        return EditorDialog::tr("App");
    case Target::Kind::File:
        return EditorDialog::tr("File");
    case Target::Kind::Folder:
        return EditorDialog::tr("Folder");
    case Target::Kind::Url:
        return EditorDialog::tr("Link");
    case Target::Kind::Group:
        return EditorDialog::tr("Group");
    case Target::Kind::Divider:
        return EditorDialog::tr("Divider");
    }
    return {};
}

QCheckBox* check(const QString& text)
{
    return new QCheckBox(text);
}

} // namespace

EditorDialog::EditorDialog(EditorServices& services,
                           ShortcutForm form,
                           Save save,
                           QWidget* parent,
                           const std::string& appSearch)
    : QDialog(parent)
    , m_services(services)
    , m_form(std::move(form))
    , m_save(std::move(save))
{
    const QString kind = kindTitle(m_form.kind());
    setWindowTitle(m_form.isNew() ? tr("New %1").arg(kind)
                                  : tr("Edit \u201c%1\u201d").arg(toQt(m_form.original().name)));
    build();
    if (m_apps) {
        m_appSearch->setText(toQt(appSearch));
    }
    fillChoices();
    loadValues();
    refresh();
}

EditorDialog::~EditorDialog()
{
    // The fields outlive the form and the services they call into (a focused line edit reports
    // its editing finished as it goes): they fall silent first.
    for (auto* child : findChildren<QObject*>()) {
        child->blockSignals(true);
    }
}

void EditorDialog::addRow(FormRows& rows, Field field, const QString& label, QWidget* widget)
{
    auto* holder = new QWidget;
    auto* column = new QVBoxLayout(holder);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(2);
    column->addWidget(widget);
    auto* problem = new QLabel;
    problem->setWordWrap(true);
    problem->setStyleSheet(QStringLiteral("color: #c4262e;"));
    problem->hide();
    column->addWidget(problem);
    auto* caption = new QLabel(label);
    caption->setBuddy(widget);
    rows.add(caption, holder);
    m_rows[field] = {&rows, holder, problem};
}

void EditorDialog::build()
{
    const auto kind = m_form.kind();
    m_main = std::make_unique<FormRows>(new QFormLayout);
    m_main->layout()->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);

    m_name = new QLineEdit;
    addRow(*m_main, Field::Name, tr("&Name:"), m_name);
    connect(m_name, &QLineEdit::textEdited, this, [this](const QString& text) {
        m_form.setName(text.toStdString());
        touch(Field::Name);
    });

    if (kind == Target::Kind::Url) {
        addRow(*m_main, Field::Template, tr("&Link to:"), makeTemplateBox());

        auto* addressBox = new QWidget;
        auto* addressColumn = new QVBoxLayout(addressBox);
        addressColumn->setContentsMargins(0, 0, 0, 0);
        m_address = new QLineEdit;
        m_address->setPlaceholderText(tr("example.com, or a link into an app"));
        addressColumn->addWidget(m_address);
        m_suggestion = new QWidget;
        auto* suggestionRow = new QHBoxLayout(m_suggestion);
        suggestionRow->setContentsMargins(0, 0, 0, 0);
        m_suggestionText = new QLabel;
        m_suggestionText->setWordWrap(true);
        auto* useLink = new QPushButton(tr("Use the App Link"));
        suggestionRow->addWidget(m_suggestionText, 1);
        suggestionRow->addWidget(useLink);
        addressColumn->addWidget(m_suggestion);
        addressBox->setFocusProxy(m_address);
        addRow(*m_main, Field::Address, tr("&Address:"), addressBox);
        connect(m_address, &QLineEdit::textEdited, this, [this](const QString& text) {
            m_form.setAddress(text.toStdString());
            touch(Field::Address);
        });
        connect(useLink, &QPushButton::clicked, this, [this] {
            m_form.pasteLink(m_form.address());
            rebuildBlanks();
            select(m_template, toQt(m_form.linkTemplate()->id()));
            refresh();
        });

        m_paste = new QLineEdit;
        addRow(*m_main, Field::PasteLink, tr("&Paste a link:"), m_paste);
        connect(m_paste, &QLineEdit::textEdited, this, [this](const QString& text) {
            if (m_form.pasteLink(text.toStdString())) {
                select(m_template, toQt(m_form.linkTemplate()->id()));
                rebuildBlanks();
            }
            refresh();
        });

        m_blankBox = new QWidget;
        auto* blankColumn = new QVBoxLayout(m_blankBox);
        blankColumn->setContentsMargins(0, 0, 0, 0);
        m_blankForm = new QFormLayout;
        m_blankForm->setContentsMargins(0, 0, 0, 0);
        blankColumn->addLayout(m_blankForm);
        m_opens = new QLabel;
        m_opens->setTextInteractionFlags(Qt::TextSelectableByMouse);
        m_opens->setWordWrap(true);
        m_opens->setStyleSheet(QStringLiteral("color: palette(placeholder-text);"));
        blankColumn->addWidget(m_opens);
        m_main->add(nullptr, m_blankBox);
        m_rows[Field::Blank] = {m_main.get(), m_blankBox, nullptr};

        m_openMode = new QComboBox;
        fillEnum<OpenMode>(m_openMode, readableWord(m_form.defaults().openMode), 3);
        addRow(*m_main, Field::OpenMode, fieldLabel(words::kOpens, QLatin1Char('O')), m_openMode);
        connect(m_openMode, &QComboBox::currentIndexChanged, this, [this] {
            m_form.page().openMode = enumIn<OpenMode>(m_openMode);
            refresh();
        });
        m_browser = new QComboBox;
        addRow(*m_main, Field::Browser, fieldLabel(words::kBrowser, QLatin1Char('B')), m_browser);
        connect(m_browser, &QComboBox::currentIndexChanged, this, [this] {
            m_form.page().browserBundleID = stringIn(m_browser);
        });

        m_pageToggle = new QToolButton;
        m_pageToggle->setText(tr("Page &Settings"));
        m_pageToggle->setCheckable(true);
        m_pageToggle->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        m_pageToggle->setArrowType(Qt::RightArrow);
        m_pageToggle->setAutoRaise(true);
        m_main->add(m_pageToggle);
        m_pageBox = new QGroupBox;
        m_pageForm = std::make_unique<FormRows>(new QFormLayout(m_pageBox));
        m_pageForm->layout()->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
        m_main->add(m_pageBox);
        connect(m_pageToggle, &QToolButton::toggled, this, [this](bool shown) {
            setPageSettingsShown(shown);
        });

        m_session = new QComboBox;
        addRow(
            *m_pageForm, Field::Session, fieldLabel(words::kAccount, QLatin1Char('c')), m_session);
        connect(m_session, &QComboBox::currentIndexChanged, this, [this] {
            const auto id = stringIn(m_session);
            m_form.page().sessionID = id ? kit::library::SessionID::parse(*id) : std::nullopt;
        });
        m_private = check(tr("P&rivate: the page keeps nothing once closed"));
        addRow(*m_pageForm, Field::Private, {}, m_private);
        connect(m_private, &QCheckBox::toggled, this, [this](bool on) {
            m_form.page().isPrivate = on;
            refresh();
        });
        m_userAgent = new QComboBox;
        fillEnum<BrowserAgent>(m_userAgent, readableWord(m_form.defaults().userAgent), 6);
        addRow(*m_pageForm,
               Field::UserAgent,
               fieldLabel(words::kBrowserAgent, QLatin1Char('t')),
               m_userAgent);
        connect(m_userAgent, &QComboBox::currentIndexChanged, this, [this] {
            m_form.page().userAgent = enumIn<BrowserAgent>(m_userAgent);
            refresh();
        });
        m_customAgent = new QLineEdit;
        m_customAgent->setPlaceholderText(tr("Mozilla/5.0 …"));
        addRow(*m_pageForm, Field::CustomUserAgent, tr("&User agent:"), m_customAgent);
        connect(m_customAgent, &QLineEdit::textEdited, this, [this](const QString& text) {
            m_form.page().customUserAgent = text.toStdString();
            refresh();
        });
        m_appearance = new QComboBox;
        fillEnum<PageAppearance>(m_appearance, readableWord(m_form.defaults().pageAppearance), 4);
        addRow(*m_pageForm,
               Field::Appearance,
               fieldLabel(words::kAppearance, QLatin1Char('e')),
               m_appearance);
        connect(m_appearance, &QComboBox::currentIndexChanged, this, [this] {
            m_form.page().pageAppearance = enumIn<PageAppearance>(m_appearance);
        });
        m_blocksAds = new QComboBox;
        m_blocksAds->addItem(defaultText(blocksWord(m_form.defaults().blocksAds)), kDefault);
        m_blocksAds->addItem(toQt(words::yesNo(true)), 1);
        m_blocksAds->addItem(toQt(words::yesNo(false)), 0);
        addRow(*m_pageForm,
               Field::BlocksAds,
               fieldLabel(words::kBlocksAds, QLatin1Char('d')),
               m_blocksAds);
        connect(m_blocksAds, &QComboBox::currentIndexChanged, this, [this] {
            const int value = m_blocksAds->currentData().toInt();
            m_form.page().blocksAds =
                value == kDefault ? std::nullopt : std::optional<bool>(value == 1);
        });
        m_zoom = new QComboBox;
        addRow(*m_pageForm, Field::Zoom, fieldLabel(words::kZoom, QLatin1Char('Z')), m_zoom);
        connect(m_zoom, &QComboBox::currentIndexChanged, this, [this] {
            const QVariant data = m_zoom->currentData();
            m_form.page().pageZoom =
                data.isValid() ? std::optional<double>(data.toDouble()) : std::nullopt;
        });
        addRow(*m_pageForm, Field::PopoverSize, tr("Panel size:"), makeSizeRow(false));
        addRow(*m_pageForm, Field::WindowSize, tr("&Window size:"), makeSizeRow(true));
        m_staysOnTop = check(tr("Window stays in &front"));
        addRow(*m_pageForm, Field::StaysOnTop, {}, m_staysOnTop);
        connect(m_staysOnTop, &QCheckBox::toggled, this, [this](bool on) {
            m_form.page().staysOnTop = on;
        });
        m_reloads = check(tr("Reload eac&h time it opens"));
        addRow(*m_pageForm, Field::ReloadsOnOpen, {}, m_reloads);
        connect(m_reloads, &QCheckBox::toggled, this, [this](bool on) {
            m_form.page().reloadsOnOpen = on;
        });
        m_keepsPlaying = check(tr("&Keep playing sound and video when closed"));
        addRow(*m_pageForm, Field::KeepsPlaying, {}, m_keepsPlaying);
        connect(m_keepsPlaying, &QCheckBox::toggled, this, [this](bool on) {
            m_form.page().keepsPlaying = on;
        });
        if (m_services.showsCount && m_services.setShowsCount) {
            m_showsCount = check(tr("Show the page's &count on its icon"));
            m_showsCount->setChecked(m_services.showsCount(m_form.shortcut().id));
            m_pageForm->add(nullptr, m_showsCount);
        }
        if (m_services.notifies && m_services.setNotifies) {
            m_notifies = check(tr("Let the page show &notifications"));
            m_notifies->setChecked(m_services.notifies(m_form.shortcut().id));
            m_pageForm->add(nullptr, m_notifies);
        }
        m_newWindows = new QComboBox;
        fillEnum<NewWindowLinks>(m_newWindows, readableWord(m_form.defaults().newWindowLinks), 3);
        addRow(*m_pageForm, Field::NewWindowLinks, tr("Links to new windows &go:"), m_newWindows);
        connect(m_newWindows, &QComboBox::currentIndexChanged, this, [this] {
            m_form.page().newWindowLinks = enumIn<NewWindowLinks>(m_newWindows);
        });
    } else if (kind == Target::Kind::App) {
        addRow(*m_main, Field::App, tr("A&pp:"), makeAppList({}));
    } else if (kind == Target::Kind::File || kind == Target::Kind::Folder) {
        addRow(*m_main,
               Field::Path,
               kind == Target::Kind::Folder ? tr("&Folder:") : tr("&File:"),
               makePathRow());
        m_openWith = new QComboBox;
        addRow(*m_main, Field::OpenWith, tr("Open &with:"), m_openWith);
        connect(m_openWith, &QComboBox::currentIndexChanged, this, [this] {
            m_form.setOpenWith(stringIn(m_openWith));
        });
    }

    if (kind != Target::Kind::Divider) {
        addRow(*m_main, Field::Icon, tr("&Icon:"), makeIconRow());
        m_inMenuBar = check(tr("Show in the &menu bar"));
        addRow(*m_main, Field::ShowInMenuBar, {}, m_inMenuBar);
        connect(
            m_inMenuBar, &QCheckBox::toggled, this, [this](bool on) { m_form.setInMenuBar(on); });
    }

    auto* layout = new QVBoxLayout(this);
    if (kind == Target::Kind::Divider) {
        layout->addWidget(new QLabel(tr("A divider is a line between icons; it has nothing to "
                                        "set. Move it in the list.")));
    }
    auto* fields = new QWidget;
    auto* fieldsLayout = new QVBoxLayout(fields);
    fieldsLayout->setContentsMargins(0, 0, 0, 0);
    fieldsLayout->addLayout(m_main->layout());
    fieldsLayout->addStretch();
    m_scroll = new QScrollArea;
    m_scroll->setWidget(fields);
    m_scroll->setWidgetResizable(true);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // The fields take the focus, not their frame: the name is typed into as soon as it opens.
    m_scroll->setFocusPolicy(Qt::NoFocus);
    layout->addWidget(m_scroll, 1);
    m_error = new QLabel;
    m_error->setWordWrap(true);
    m_error->setStyleSheet(QStringLiteral("color: #c4262e;"));
    m_error->hide();
    layout->addWidget(m_error);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    m_saveButton = buttons->button(QDialogButtonBox::Save);
    connect(buttons, &QDialogButtonBox::accepted, this, &EditorDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    // Enter always saves: no other button may take the default, and Save can only claim it once
    // it is inside the dialog.
    for (auto* button : findChildren<QPushButton*>()) {
        button->setAutoDefault(false);
    }
    m_saveButton->setDefault(true);
    if (m_pageBox) {
        setPageSettingsShown(false);
    }
}

QWidget* EditorDialog::makeTemplateBox()
{
    auto* box = new QWidget;
    auto* column = new QVBoxLayout(box);
    column->setContentsMargins(0, 0, 0, 0);
    m_template = new QComboBox;
    m_template->addItem(tr("A web address"), QString());
    m_template->insertSeparator(1);
    for (const auto& link : kit::library::DeepLinkTemplates::all()) {
        m_template->addItem(toQt(link.appName + " \u2014 " + link.title), toQt(link.id()));
    }
    m_template->setMaxVisibleItems(20);
    box->setFocusProxy(m_template);
    column->addWidget(m_template);
    m_templateHint = new QLabel;
    m_templateHint->setWordWrap(true);
    m_templateHint->setStyleSheet(QStringLiteral("color: palette(placeholder-text);"));
    column->addWidget(m_templateHint);
    connect(m_template, &QComboBox::currentIndexChanged, this, [this] {
        const QString id = m_template->currentData().toString();
        m_form.chooseTemplate(id.isEmpty() ? std::nullopt : std::optional(id.toStdString()));
        if (!m_form.linkTemplate()) {
            m_address->setText(toQt(m_form.address()));
        }
        rebuildBlanks();
        refresh();
    });
    return box;
}

QWidget* EditorDialog::makeAppList(const std::string& search)
{
    auto* box = new QWidget;
    auto* column = new QVBoxLayout(box);
    column->setContentsMargins(0, 0, 0, 0);
    m_appSearch = new QLineEdit(toQt(search));
    m_appSearch->setPlaceholderText(tr("Search apps"));
    m_appSearch->setClearButtonEnabled(true);
    m_appSearch->setAccessibleName(tr("Search apps"));
    m_apps = new QListWidget;
    m_apps->setIconSize(QSize(24, 24));
    m_apps->setMinimumHeight(220);
    m_apps->setAccessibleName(tr("Installed apps"));
    column->addWidget(m_appSearch);
    column->addWidget(m_apps);
    connect(m_appSearch, &QLineEdit::textChanged, this, &EditorDialog::refillApps);
    connect(m_apps, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* item) {
        if (!item) {
            return;
        }
        m_form.chooseApp({item->data(Qt::UserRole + 1).toString().toStdString(),
                          item->data(Qt::UserRole).toString().toStdString()});
        touch(Field::App);
    });
    box->setFocusProxy(m_appSearch);
    return box;
}

void EditorDialog::refillApps(const QString& search)
{
    const QSignalBlocker blocker(m_apps);
    m_apps->clear();
    const auto apps = m_services.apps.list();
    const QString wanted = search.trimmed();
    const QString current = toQt(m_form.appID());
    bool listed = false;
    if (apps) {
        for (const auto& app : *apps) {
            const QString name = toQt(app.name);
            const QString id = toQt(app.bundleID);
            if (!wanted.isEmpty() && !name.contains(wanted, Qt::CaseInsensitive)
                && !id.contains(wanted, Qt::CaseInsensitive)) {
                continue;
            }
            auto* item = new QListWidgetItem(desktopEntryIcon(app.bundleID), name, m_apps);
            item->setData(Qt::UserRole, id);
            item->setData(Qt::UserRole + 1, name);
            item->setToolTip(id);
            if (id == current) {
                m_apps->setCurrentItem(item);
                listed = true;
            }
        }
    }
    if (!listed && !current.isEmpty() && wanted.isEmpty()) {
        // An app that is no longer installed stays chosen until another is picked.
        auto* item = new QListWidgetItem(tr("%1 (not installed)").arg(current));
        item->setData(Qt::UserRole, current);
        item->setData(Qt::UserRole + 1, toQt(m_form.name()));
        m_apps->insertItem(0, item);
        m_apps->setCurrentItem(item);
    }
}

QWidget* EditorDialog::makePathRow()
{
    auto* box = new QWidget;
    auto* row = new QHBoxLayout(box);
    row->setContentsMargins(0, 0, 0, 0);
    m_path = new QLabel;
    m_path->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_path->setWordWrap(true);
    auto* choose = new QPushButton(tr("C&hoose…"));
    row->addWidget(m_path, 1);
    row->addWidget(choose);
    connect(choose, &QPushButton::clicked, this, &EditorDialog::choosePath);
    // The caption's mnemonic reaches the button, the only part that takes focus.
    box->setFocusProxy(choose);
    return box;
}

QWidget* EditorDialog::makeSizeRow(bool window)
{
    auto* box = new QWidget;
    auto* row = new QHBoxLayout(box);
    row->setContentsMargins(0, 0, 0, 0);
    auto* own = new QCheckBox(tr("Own size"));
    auto* width = new QSpinBox;
    auto* height = new QSpinBox;
    const auto minimum = SurfaceLimits::kMinimum;
    width->setRange(static_cast<int>(minimum.width), kLargestSide);
    height->setRange(static_cast<int>(minimum.height), kLargestSide);
    width->setAccessibleName(tr("Width"));
    height->setAccessibleName(tr("Height"));
    width->setSuffix(tr(" wide"));
    height->setSuffix(tr(" high"));
    row->addWidget(own);
    row->addWidget(width);
    row->addWidget(new QLabel(QStringLiteral("\u00d7")));
    row->addWidget(height);
    row->addStretch();
    box->setFocusProxy(own);
    (window ? m_ownWindowSize : m_ownPopoverSize) = own;
    (window ? m_windowWidth : m_popoverWidth) = width;
    (window ? m_windowHeight : m_popoverHeight) = height;

    auto write = [this, window, own, width, height] {
        width->setEnabled(own->isChecked());
        height->setEnabled(own->isChecked());
        std::optional<ContentSize> size;
        if (own->isChecked()) {
            size = ContentSize{static_cast<double>(width->value()),
                               static_cast<double>(height->value())};
        }
        (window ? m_form.page().windowSize : m_form.page().popoverSize) = size;
    };
    connect(own, &QCheckBox::toggled, this, write);
    connect(width, &QSpinBox::valueChanged, this, write);
    connect(height, &QSpinBox::valueChanged, this, write);
    return box;
}

QWidget* EditorDialog::makeIconRow()
{
    auto* box = new QWidget;
    auto* row = new QHBoxLayout(box);
    row->setContentsMargins(0, 0, 0, 0);
    m_icon = new QPushButton(tr("Choose…"));
    m_icon->setIconSize(QSize(22, 22));
    row->addWidget(m_icon);
    if (m_services.refreshSiteIcon) {
        m_refreshIcon = new QPushButton(tr("Refresh Icon"));
        m_refreshIcon->setToolTip(tr("Fetch the site's icon again"));
        row->addWidget(m_refreshIcon);
        connect(m_refreshIcon, &QPushButton::clicked, this, [this] {
            const auto shortcut = m_form.shortcut();
            if (const auto* url = shortcut.target.urlTarget()) {
                m_services.refreshSiteIcon(url->url);
            }
        });
    }
    row->addStretch();
    box->setFocusProxy(m_icon);
    connect(m_icon, &QPushButton::clicked, this, &EditorDialog::chooseIcon);
    return box;
}

void EditorDialog::fillChoices()
{
    // The first item added becomes current, which must not read as the person's choice.
    std::vector<std::unique_ptr<QSignalBlocker>> quiet;
    for (QComboBox* box : {m_browser, m_session, m_zoom, m_openWith}) {
        if (box) {
            quiet.push_back(std::make_unique<QSignalBlocker>(box));
        }
    }
    if (m_browser) {
        const auto fallback = m_form.defaults().browserBundleID;
        m_browser->addItem(fallback ? defaultText(*fallback) : toQt(words::kDefaultBrowser),
                           QString());
        for (const auto& app : browsers()) {
            m_browser->addItem(desktopEntryIcon(app.bundleID), toQt(app.name), toQt(app.bundleID));
        }
        const auto& chosen = m_form.page().browserBundleID;
        if (chosen && m_browser->findData(toQt(*chosen)) < 0) {
            m_browser->addItem(tr("%1 (not installed)").arg(toQt(*chosen)), toQt(*chosen));
        }
    }
    if (m_session) {
        m_session->addItem(toQt(words::kDefaultAccount), QString());
        for (const auto& session : m_services.store.sessions()) {
            QPixmap dot(12, 12);
            dot.fill(QColor(toQt(sessionColour(kit::library::Session::colourIndex(session)))));
            m_session->addItem(QIcon(dot), toQt(session.name), toQt(session.id.string()));
        }
        const auto& chosen = m_form.page().sessionID;
        if (chosen && m_session->findData(toQt(chosen->string())) < 0) {
            m_session->addItem(toQt(words::kUnknownAccount), toQt(chosen->string()));
        }
    }
    if (m_zoom) {
        m_zoom->addItem(defaultText(PageZoom::title(m_form.defaults().pageZoom)), QVariant());
        std::vector<double> steps(PageZoom::kSteps.begin(), PageZoom::kSteps.end());
        const auto& chosen = m_form.page().pageZoom;
        if (chosen && std::none_of(steps.begin(), steps.end(), [&](double step) {
                return std::abs(step - *chosen) < 1e-9;
            })) {
            steps.insert(std::upper_bound(steps.begin(), steps.end(), *chosen), *chosen);
        }
        for (double step : steps) {
            m_zoom->addItem(toQt(PageZoom::title(step)), step);
        }
    }
    if (m_openWith) {
        m_openWith->addItem(tr("The default app"), QString());
        if (const auto apps = m_services.apps.list()) {
            for (const auto& app : *apps) {
                m_openWith->addItem(
                    desktopEntryIcon(app.bundleID), toQt(app.name), toQt(app.bundleID));
            }
        }
        const auto& chosen = m_form.openWith();
        if (chosen && m_openWith->findData(toQt(*chosen)) < 0) {
            m_openWith->addItem(tr("%1 (not installed)").arg(toQt(*chosen)), toQt(*chosen));
        }
    }
    if (m_apps) {
        refillApps(m_appSearch->text());
    }
}

void EditorDialog::loadValues()
{
    m_name->setText(toQt(m_form.name()));
    if (m_inMenuBar) {
        const QSignalBlocker blocker(m_inMenuBar);
        m_inMenuBar->setChecked(m_form.isInMenuBar());
    }
    if (m_form.kind() == Target::Kind::Url) {
        const auto& page = m_form.page();
        select(m_template, m_form.linkTemplate() ? toQt(m_form.linkTemplate()->id()) : QString());
        m_address->setText(toQt(m_form.address()));
        rebuildBlanks();
        selectEnum(m_openMode, page.openMode);
        select(m_browser, toQt(page.browserBundleID.value_or("")));
        select(m_session, page.sessionID ? toQt(page.sessionID->string()) : QString());
        selectEnum(m_userAgent, page.userAgent);
        selectEnum(m_appearance, page.pageAppearance);
        selectEnum(m_newWindows, page.newWindowLinks);
        select(m_blocksAds, page.blocksAds ? (*page.blocksAds ? 1 : 0) : kDefault);
        {
            const QSignalBlocker blocker(m_zoom);
            int index = 0;
            for (int i = 1; page.pageZoom && i < m_zoom->count(); ++i) {
                if (std::abs(m_zoom->itemData(i).toDouble() - *page.pageZoom) < 1e-9) {
                    index = i;
                }
            }
            m_zoom->setCurrentIndex(index);
        }
        const QSignalBlocker customBlocker(m_customAgent);
        m_customAgent->setText(toQt(page.customUserAgent.value_or("")));
        for (auto [box, value] : {std::pair{m_private, page.isPrivate},
                                  std::pair{m_staysOnTop, page.staysOnTop},
                                  std::pair{m_reloads, page.reloadsOnOpen},
                                  std::pair{m_keepsPlaying, page.keepsPlaying}}) {
            const QSignalBlocker blocker(box);
            box->setChecked(value);
        }
        auto loadSize = [](QCheckBox* own,
                           QSpinBox* width,
                           QSpinBox* height,
                           const std::optional<ContentSize>& size,
                           const ContentSize& fallback) {
            const QSignalBlocker a(own);
            const QSignalBlocker b(width);
            const QSignalBlocker c(height);
            const ContentSize shown = size.value_or(fallback);
            own->setChecked(size.has_value());
            width->setValue(static_cast<int>(std::lround(shown.width)));
            height->setValue(static_cast<int>(std::lround(shown.height)));
            width->setEnabled(size.has_value());
            height->setEnabled(size.has_value());
        };
        loadSize(m_ownPopoverSize,
                 m_popoverWidth,
                 m_popoverHeight,
                 page.popoverSize,
                 m_form.defaults().popoverSize);
        loadSize(m_ownWindowSize,
                 m_windowWidth,
                 m_windowHeight,
                 page.windowSize,
                 m_form.defaults().windowSize);
        // Set page settings are worth seeing; unset ones stay folded away.
        const bool anySet = page.sessionID || page.userAgent || page.pageAppearance
                            || page.blocksAds || page.popoverSize || page.windowSize
                            || page.isPrivate || page.staysOnTop || page.reloadsOnOpen
                            || page.keepsPlaying || page.newWindowLinks || page.pageZoom;
        setPageSettingsShown(anySet);
    }
    if (m_openWith) {
        select(m_openWith, toQt(m_form.openWith().value_or("")));
    }
}

void EditorDialog::rebuildBlanks()
{
    while (m_blankForm->rowCount() > 0) {
        m_blankForm->removeRow(0);
    }
    m_blankFields.clear();
    const auto& link = m_form.linkTemplate();
    if (m_paste) {
        m_paste->setPlaceholderText(link && link->placeholder ? toQt(*link->placeholder)
                                                              : QString());
    }
    // Fields made after the window was built would otherwise be reached last by Tab.
    QWidget* previous = m_paste;
    for (const auto& blank : m_form.blanks()) {
        auto* holder = new QWidget;
        auto* column = new QVBoxLayout(holder);
        column->setContentsMargins(0, 0, 0, 0);
        column->setSpacing(2);
        auto* edit = new QLineEdit(toQt(m_form.blankValue(blank)));
        if (link && link->typed && link->placeholder) {
            edit->setPlaceholderText(toQt(*link->placeholder));
        }
        auto* problem = new QLabel;
        problem->setStyleSheet(QStringLiteral("color: #c4262e;"));
        problem->hide();
        column->addWidget(edit);
        column->addWidget(problem);
        QString caption = toQt(blank);
        caption[0] = caption[0].toUpper();
        auto* label = new QLabel(caption + ":");
        label->setBuddy(edit);
        m_blankForm->addRow(label, holder);
        m_blankFields[blank] = {edit, problem};
        setTabOrder(previous, edit);
        previous = edit;
        connect(edit, &QLineEdit::textEdited, this, [this, blank](const QString& text) {
            m_form.setBlank(blank, text.toStdString());
            refresh();
        });
    }
}

void EditorDialog::choosePath()
{
    const bool folder = m_form.kind() == Target::Kind::Folder;
    std::string path;
    if (m_services.choosePath) {
        path = m_services.choosePath(this, folder);
    } else if (folder) {
        path = QFileDialog::getExistingDirectory(this, tr("Choose a Folder")).toStdString();
    } else {
        path = QFileDialog::getOpenFileName(this, tr("Choose a File")).toStdString();
    }
    if (path.empty()) {
        return;
    }
    try {
        m_pathProblem = m_form.chooseFile(m_services.targets.draft(path));
    } catch (const kit::opening::TargetFactory::Failure& failure) {
        m_pathProblem = failure.what();
    }
    touch(Field::Path);
}

void EditorDialog::chooseIcon()
{
    IconPicker picker(
        m_services.icons, m_form.shortcut(), m_services.iconTheme.icons(), this, {}, panelLook());
    if (picker.exec() == QDialog::Accepted) {
        m_form.setIcon(picker.choice());
        refresh();
    }
}

void EditorDialog::touch(Field field)
{
    m_touched.insert(field);
    refresh();
}

void EditorDialog::setPageSettingsShown(bool shown)
{
    if (!m_pageToggle) {
        return;
    }
    const QSignalBlocker blocker(m_pageToggle);
    m_pageToggle->setChecked(shown);
    m_pageToggle->setArrowType(shown ? Qt::DownArrow : Qt::RightArrow);
    refresh();
    if (isVisible()) {
        fitToScreen(*this, wantedSize());
    }
}

QSize EditorDialog::wantedSize() const
{
    QSize wanted = sizeHint() - m_scroll->sizeHint() + m_scroll->widget()->sizeHint();
    // Room for the scroll bar, should the screen cut the fields short.
    wanted.rwidth() += style()->pixelMetric(QStyle::PM_ScrollBarExtent);
    return wanted.expandedTo(minimumSizeHint());
}

bool EditorDialog::isFieldShown(Field field) const
{
    auto found = m_rows.find(field);
    return found != m_rows.end() && found->second.field->isVisibleTo(this);
}

QWidget* EditorDialog::field(Field field) const
{
    switch (field) {
    case Field::Name:
        return m_name;
    case Field::Address:
        return m_address;
    case Field::Template:
        return m_template;
    case Field::Blank:
        return m_blankBox;
    case Field::PasteLink:
        return m_paste;
    case Field::OpenMode:
        return m_openMode;
    case Field::Session:
        return m_session;
    case Field::Browser:
        return m_browser;
    case Field::UserAgent:
        return m_userAgent;
    case Field::CustomUserAgent:
        return m_customAgent;
    case Field::Appearance:
        return m_appearance;
    case Field::BlocksAds:
        return m_blocksAds;
    case Field::PopoverSize:
        return m_ownPopoverSize;
    case Field::WindowSize:
        return m_ownWindowSize;
    case Field::Zoom:
        return m_zoom;
    case Field::StaysOnTop:
        return m_staysOnTop;
    case Field::ReloadsOnOpen:
        return m_reloads;
    case Field::KeepsPlaying:
        return m_keepsPlaying;
    case Field::NewWindowLinks:
        return m_newWindows;
    case Field::Private:
        return m_private;
    case Field::App:
        return m_apps;
    case Field::Path:
        return m_path;
    case Field::OpenWith:
        return m_openWith;
    case Field::Icon:
        return m_icon;
    case Field::ShowInMenuBar:
        return m_inMenuBar;
    }
    return nullptr;
}

QLabel* EditorDialog::problemLabel(Field field) const
{
    auto found = m_rows.find(field);
    return found == m_rows.end() ? nullptr : found->second.problem;
}

QLineEdit* EditorDialog::blankField(const std::string& blank) const
{
    auto found = m_blankFields.find(blank);
    return found == m_blankFields.end() ? nullptr : found->second.first;
}

QLabel* EditorDialog::blankProblem(const std::string& blank) const
{
    auto found = m_blankFields.find(blank);
    return found == m_blankFields.end() ? nullptr : found->second.second;
}

void EditorDialog::refresh()
{
    const auto visible = m_form.visibleFields();
    const auto shown = [&](Field field) {
        return std::find(visible.begin(), visible.end(), field) != visible.end();
    };
    bool anyPageField = false;
    for (auto& [field, row] : m_rows) {
        const bool on = shown(field);
        if (row.rows == m_pageForm.get()) {
            anyPageField = anyPageField || on;
        }
        row.rows->setShown(row.field, on);
    }
    if (m_pageBox) {
        m_main->setShown(m_pageToggle, anyPageField);
        m_main->setShown(m_pageBox, anyPageField && m_pageToggle->isChecked());
    }

    // A new shortcut is not scolded for what the person has not reached yet.
    const auto problems = m_form.problems();
    for (auto& [field, row] : m_rows) {
        if (!row.problem) {
            continue;
        }
        // A refused file says why over the form's "Choose a file."
        std::optional<std::string> message = field == Field::Path ? m_pathProblem : std::nullopt;
        for (const auto& problem : problems) {
            if (!message && problem.field == field) {
                message = problem.message;
                break;
            }
        }
        const bool quiet = m_form.isNew() && !m_touched.contains(field);
        row.problem->setText(message ? toQt(*message) : QString());
        row.problem->setVisible(message && !quiet);
    }
    for (auto& [blank, entry] : m_blankFields) {
        const auto message = m_form.problem(Field::Blank, blank);
        entry.second->setText(message ? toQt(*message) : QString());
        entry.second->setVisible(message.has_value());
    }

    if (m_form.kind() == Target::Kind::Url) {
        const auto& link = m_form.linkTemplate();
        m_templateHint->setText(link && link->placeholder ? toQt(*link->placeholder) : QString());
        m_templateHint->setVisible(link && link->placeholder && link->typed);
        m_opens->setText(link ? tr("Opens %1").arg(toQt(m_form.resolvedAddress())) : QString());
        m_opens->setVisible(link.has_value());
        if (link) {
            m_main->setShown(m_blankBox, true);
        }
        const auto suggestion = m_form.appLinkSuggestion();
        m_suggestion->setVisible(suggestion.has_value());
        if (suggestion) {
            m_suggestionText->setText(
                tr("%1 can open this as its own link.").arg(toQt(suggestion->link.appName)));
        }
    }
    if (m_name->text().toStdString() != m_form.name()) {
        m_name->setText(toQt(m_form.name()));
    }
    if (m_path) {
        const auto& bookmark = m_form.bookmark();
        m_path->setText(bookmark ? toQt(bookmark->displayPath) : tr("Nothing chosen yet"));
    }
    if (m_icon) {
        // The button sits on this window, so the picture is drawn for the window's look.
        const auto appearance = palette().color(QPalette::Window).lightness() < 128
                                    ? kit::menubar::Appearance::Dark
                                    : kit::menubar::Appearance::Light;
        m_icon->setIcon(QIcon(QPixmap::fromImage(
            menuBarPicture(m_services.icons, m_form.shortcut(), 22, appearance))));
    }
    if (m_refreshIcon) {
        m_refreshIcon->setVisible(kit::web::wearsSiteIcon(m_form.shortcut()));
    }
    m_saveButton->setEnabled(m_form.isValid());
    if (const auto problems = m_form.problems(); !problems.empty()) {
        m_saveButton->setToolTip(toQt(problems.front().message));
    } else {
        m_saveButton->setToolTip(QString());
    }
}

void EditorDialog::accept()
{
    if (!m_form.isValid()) {
        return;
    }
    if (auto failure = m_save(m_form.shortcut())) {
        m_error->setText(toQt(*failure));
        m_error->show();
        return;
    }
    if (m_showsCount) {
        m_services.setShowsCount(m_form.shortcut().id, m_showsCount->isChecked());
    }
    if (m_notifies) {
        m_services.setNotifies(m_form.shortcut().id, m_notifies->isChecked());
    }
    QDialog::accept();
}

kit::menubar::Appearance EditorDialog::panelLook() const
{
    if (m_services.panelLook) {
        return m_services.panelLook();
    }
    return palette().color(QPalette::Window).lightness() < 128 ? kit::menubar::Appearance::Dark
                                                               : kit::menubar::Appearance::Light;
}

} // namespace desktop::editor
