// SPDX-License-Identifier: MIT
#include "desktop/manager/settings_window.h"

#include "app/platform.h"
#include "desktop/keys/qt_modifiers.h"
#include "desktop/qt_text.h"
#include "desktop/window_fit.h"
#include "kit/keys/hot_key_combo.h"
#include "kit/keys/number_keys.h"
#include "kit/library/words.h"
#include "kit/mcp/assistant_setup.h"
#include "kit/proposal/root_grant_store.h"
#include "kit/settings/app_settings.h"
#include "kit/web/page_options.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QFileDialog>
#include <QFontDatabase>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <algorithm>
#include <array>
#include <chrono>
#include <map>

namespace desktop {

using kit::keys::ModifierSet;
using kit::settings::AppAppearance;
using kit::settings::AppSettings;
using kit::settings::DigitKeys;

namespace {

// How soon hidden pages may be unloaded, in minutes; zero never.
constexpr std::array kUnloadChoices{0, 5, 15, 60};

std::uint32_t rawModifiers(Qt::KeyboardModifiers modifiers)
{
    return modifierSet(modifiers).raw();
}

bool isModifierKey(int key)
{
    return key == Qt::Key_Shift || key == Qt::Key_Control || key == Qt::Key_Alt
           || key == Qt::Key_Meta || key == Qt::Key_Super_L || key == Qt::Key_Super_R
           || key == Qt::Key_AltGr || key == Qt::Key_Hyper_L || key == Qt::Key_Hyper_R;
}

// The stored key code of a Qt key, found through the core's own key names so the two never
// disagree; none for a key the settings cannot name.
std::optional<std::uint16_t> keyCodeFor(int key)
{
    static const std::map<std::string, std::uint16_t> codes = [] {
        std::map<std::string, std::uint16_t> byName;
        for (std::uint16_t code = 0; code < 256; ++code) {
            byName.emplace(kit::keys::HotKeyCombo::name(code), code);
        }
        return byName;
    }();
    static const std::map<int, std::string> named{
        {Qt::Key_Return, "Enter"},
        {Qt::Key_Enter, "Keypad Enter"},
        {Qt::Key_Tab, "Tab"},
        {Qt::Key_Space, "Space"},
        {Qt::Key_Backspace, "Backspace"},
        {Qt::Key_Delete, "Delete"},
        {Qt::Key_Home, "Home"},
        {Qt::Key_End, "End"},
        {Qt::Key_PageUp, "PgUp"},
        {Qt::Key_PageDown, "PgDown"},
        {Qt::Key_Insert, "Insert"},
        {Qt::Key_Left, "Left"},
        {Qt::Key_Right, "Right"},
        {Qt::Key_Down, "Down"},
        {Qt::Key_Up, "Up"},
    };
    std::string name;
    if (auto found = named.find(key); found != named.end()) {
        name = found->second;
    } else if (key >= Qt::Key_F1 && key <= Qt::Key_F20) {
        // Appended, not "F" + text: g++ 12 at -O2 warns falsely about the latter.
        name = "F";
        name += std::to_string(key - Qt::Key_F1 + 1);
    } else if (key > 0x20 && key < 0x7f) {
        name = std::string(1, char(key));
    } else {
        return std::nullopt;
    }
    if (auto code = codes.find(name); code != codes.end()) {
        return code->second;
    }
    return std::nullopt;
}

QLabel* messageLabel(QWidget* parent)
{
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, QColor(0xb0, 0x1c, 0x1c));
    label->setPalette(palette);
    label->hide();
    return label;
}

void showMessage(QLabel* label, const QString& text)
{
    label->setText(text);
    label->setVisible(!text.isEmpty());
}

QLabel* hint(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

} // namespace

// A field that records keys while it has focus and was clicked: a hot key (a key with its
// modifiers) or a pair of modifiers alone, taken when the last of them is let go.
class KeyRecorder : public QPushButton
{
public:
    enum class Mode {
        HotKey,
        Pair,
    };
    using OnHotKey = std::function<void(std::uint16_t keyCode, std::uint32_t modifiers)>;
    using OnPair = std::function<void(std::uint32_t modifiers)>;
    using OnStart = std::function<void()>;

    KeyRecorder(Mode mode, QWidget* parent)
        : QPushButton(parent)
        , m_mode(mode)
    {
        setFocusPolicy(Qt::StrongFocus);
        setMinimumWidth(150);
        connect(this, &QPushButton::clicked, this, [this] { start(); });
    }

    void setShown(const QString& text)
    {
        m_shown = text;
        if (!m_recording) {
            setText(text);
        }
    }
    bool isRecording() const { return m_recording; }

    OnHotKey onHotKey;
    OnPair onPair;
    OnStart onStart;

    void start()
    {
        m_recording = true;
        m_held = 0;
        setText(m_mode == Mode::Pair ? QStringLiteral("Hold the modifiers you want")
                                     : QStringLiteral("Type the keys…"));
        setFocus(Qt::OtherFocusReason);
        if (onStart) {
            onStart();
        }
    }

    void stop()
    {
        m_recording = false;
        setText(m_shown);
    }

protected:
    void keyPressEvent(QKeyEvent* event) override
    {
        if (!m_recording) {
            QPushButton::keyPressEvent(event);
            return;
        }
        const int key = event->key();
        if (key == Qt::Key_Escape) {
            stop();
            return;
        }
        if (m_mode == Mode::Pair) {
            m_held |= rawModifiers(event->modifiers()) | rawModifiers(modifierOf(key));
            setText(toQt(ModifierSet::fromRaw(m_held).words()));
            return;
        }
        if (isModifierKey(key)) {
            // "Ctrl+Alt+" while the key itself is still to come.
            const std::string held = ModifierSet::fromRaw(rawModifiers(event->modifiers())).words();
            setText(toQt(held.empty() ? held : held + "+"));
            return;
        }
        const auto code = keyCodeFor(key);
        if (!code) {
            return;
        }
        stop();
        if (onHotKey) {
            onHotKey(*code, rawModifiers(event->modifiers()));
        }
    }

    void keyReleaseEvent(QKeyEvent* event) override
    {
        if (!m_recording || m_mode != Mode::Pair) {
            QPushButton::keyReleaseEvent(event);
            return;
        }
        // The pair is what was held at most, once every modifier is up.
        Qt::KeyboardModifiers still = event->modifiers() & ~modifierOf(event->key());
        if (rawModifiers(still) == 0 && m_held != 0) {
            const std::uint32_t pair = m_held;
            stop();
            if (onPair) {
                onPair(pair);
            }
        }
    }

    void focusOutEvent(QFocusEvent* event) override
    {
        if (m_recording) {
            stop();
        }
        QPushButton::focusOutEvent(event);
    }

private:
    static Qt::KeyboardModifiers modifierOf(int key)
    {
        switch (key) {
        case Qt::Key_Shift:
            return Qt::ShiftModifier;
        case Qt::Key_Control:
            return Qt::ControlModifier;
        case Qt::Key_Alt:
            return Qt::AltModifier;
        case Qt::Key_Meta:
        case Qt::Key_Super_L:
        case Qt::Key_Super_R:
            return Qt::MetaModifier;
        default:
            return Qt::NoModifier;
        }
    }

    Mode m_mode;
    bool m_recording = false;
    std::uint32_t m_held = 0;
    QString m_shown;
};

SettingsWindow::SettingsWindow(AppSettings& settings,
                               kit::proposal::RootGrantStore& grants,
                               QWidget* parent,
                               BridgePath bridgePath,
                               RefusedHotKeys refusedHotKeys,
                               ChooseFolder chooseFolder,
                               app::LoginItem* loginItem,
                               kit::web::PageOptions* pageOptions)
    : QWidget(parent, Qt::Window)
    , m_settings(settings)
    , m_grants(grants)
    , m_bridgePath(std::move(bridgePath))
    , m_refusedHotKeys(std::move(refusedHotKeys))
    , m_chooseFolder(std::move(chooseFolder))
    , m_loginItem(loginItem)
    , m_pageOptions(pageOptions)
{
    setWindowTitle(QStringLiteral("Vantorel Settings"));
    if (!m_chooseFolder) {
        m_chooseFolder = [](QWidget* owner) {
            return QFileDialog::getExistingDirectory(owner,
                                                     QStringLiteral("Give Vantorel a folder"))
                .toStdString();
        };
    }

    auto* content = new QWidget;
    auto* columns = new QHBoxLayout(content);
    columns->setContentsMargins(16, 14, 16, 14);
    columns->setSpacing(16);
    auto* left = new QVBoxLayout;
    auto* right = new QVBoxLayout;
    left->addWidget(makeStartSection());
    left->addWidget(makeKeysSection());
    left->addWidget(makeAppearanceSection());
    left->addWidget(makeBrowsingSection());
    left->addStretch(1);
    right->addWidget(makeAssistantsSection());
    right->addWidget(makeFoldersSection());
    right->addStretch(1);
    columns->addLayout(left, 1);
    columns->addLayout(right, 1);

    auto* scroll = new QScrollArea(this);
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(scroll);

    m_settingsToken = m_settings.observeAll([this](AppSettings::Key) { reload(); });
    if (m_pageOptions) {
        m_pageOptionsToken = m_pageOptions->store().observe([this](const std::string& key) {
            if (key == kit::web::PageOptions::kDiscardKey
                || key == kit::web::PageOptions::kNotificationsKey) {
                reload();
            }
        });
    }
    reload();
    m_content = content;
}

SettingsWindow::~SettingsWindow()
{
    m_settings.removeObserver(m_settingsToken);
    if (m_pageOptions) {
        m_pageOptions->store().removeObserver(m_pageOptionsToken);
    }
}

void SettingsWindow::present()
{
    reload();
    if (!isVisible()) {
        // Sized for what shows now (the assistants' texts only while they are on): tall enough
        // that nothing scrolls on a usual screen; the scroll area covers small ones.
        m_content->adjustSize();
        const QSize wanted = m_content->minimumSizeHint();
        fitToScreen(*this, QSize(std::max(wanted.width() + 24, 960), wanted.height() + 8));
    }
    show();
    raise();
    activateWindow();
}

QWidget* SettingsWindow::makeKeysSection()
{
    auto* box = new QGroupBox(QStringLiteral("Keys"), this);
    auto* form = new QFormLayout(box);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);

    m_digitKeys = new QComboBox(box);
    m_digitKeys->setObjectName(QStringLiteral("digitKeys"));
    for (DigitKeys keys : {DigitKeys::OptionCommand,
                           DigitKeys::ControlCommand,
                           DigitKeys::ShiftControl,
                           DigitKeys::Custom,
                           DigitKeys::Off}) {
        m_digitKeys->addItem(QString(), QVariant(toQt(kit::library::enumWord(keys))));
    }
    connect(m_digitKeys, &QComboBox::activated, this, [this](int index) {
        write("shortcutKeys",
              m_digitKeys->itemData(index).toString().toStdString(),
              m_customPairMessage);
    });
    form->addRow(QStringLiteral("Number keys"), m_digitKeys);
    form->addRow(hint(QStringLiteral("Held with a digit, they open that icon of the showing bar; "
                                     "with the arrows, they switch bars."),
                      box));

    m_customPair = new KeyRecorder(KeyRecorder::Mode::Pair, box);
    m_customPair->setObjectName(QStringLiteral("customPair"));
    m_customPairMessage = messageLabel(box);
    m_customPair->onStart = [this] {
        // While it waits, the field's neighbour says what makes a pair.
        QPalette palette = m_customPairMessage->palette();
        palette.setColor(QPalette::WindowText, palette.color(QPalette::Text));
        m_customPairMessage->setPalette(palette);
        showMessage(m_customPairMessage, toQt(kit::keys::kPairRule));
    };
    m_customPair->onPair = [this](std::uint32_t raw) {
        QPalette palette = m_customPairMessage->palette();
        palette.setColor(QPalette::WindowText, QColor(0xb0, 0x1c, 0x1c));
        m_customPairMessage->setPalette(palette);
        const ModifierSet pair = ModifierSet::fromRaw(raw);
        if (!kit::keys::isAllowedPair(pair)) {
            showMessage(m_customPairMessage, toQt(kit::keys::kPairRule));
            return;
        }
        write(
            "customShortcutModifiers", AppSettings::modifiersText(pair.raw()), m_customPairMessage);
        if (m_customPairMessage->isHidden()) {
            write("shortcutKeys", "custom", m_customPairMessage);
        }
    };
    form->addRow(QStringLiteral("Your own pair"), m_customPair);
    form->addRow(m_customPairMessage);

    const auto hotKeyRow = [&](bool menu, const QString& label, const char* name) {
        auto* recorder = new KeyRecorder(KeyRecorder::Mode::HotKey, box);
        recorder->setObjectName(QString::fromLatin1(name));
        auto* off = new QPushButton(QStringLiteral("Off"), box);
        off->setObjectName(QString::fromLatin1(name) + QStringLiteral("Off"));
        off->setToolTip(QStringLiteral("No key opens it"));
        QLabel* message = messageLabel(box);
        recorder->onStart = [message] { showMessage(message, {}); };
        recorder->onHotKey = [this, menu](std::uint16_t code, std::uint32_t modifiers) {
            writeHotKey(menu, std::make_pair(code, modifiers));
        };
        connect(off, &QPushButton::clicked, this, [this, menu] { writeHotKey(menu, {}); });
        auto* row = new QHBoxLayout;
        row->addWidget(recorder, 1);
        row->addWidget(off);
        form->addRow(label, row);
        form->addRow(message);
        (menu ? m_menuHotKey : m_barHotKey) = recorder;
        (menu ? m_menuHotKeyMessage : m_barHotKeyMessage) = message;
    };
    hotKeyRow(true, QStringLiteral("Menu of the bars"), "menuHotKey");
    hotKeyRow(false, QStringLiteral("Open the showing bar"), "activeBarHotKey");

    m_refusedMessage = messageLabel(box);
    form->addRow(m_refusedMessage);

    m_wheel = new QCheckBox(QStringLiteral("Rolling the wheel over an icon switches bars"), box);
    m_wheel->setObjectName(QStringLiteral("wheelSwitchesBars"));
    QLabel* wheelMessage = messageLabel(box);
    connect(m_wheel, &QCheckBox::toggled, this, [this, wheelMessage](bool on) {
        write("wheelSwitchesBars", on ? "true" : "false", wheelMessage);
    });
    form->addRow(m_wheel);
    form->addRow(wheelMessage);
    return box;
}

QWidget* SettingsWindow::makeStartSection()
{
    auto* box = new QGroupBox(QStringLiteral("Start"), this);
    auto* form = new QFormLayout(box);
    m_startAtLogin = new QCheckBox(QStringLiteral("Start Vantorel at login"), box);
    m_startAtLogin->setObjectName(QStringLiteral("startAtLogin"));
    m_startAtLoginMessage = messageLabel(box);
    connect(m_startAtLogin, &QCheckBox::toggled, this, [this](bool on) {
        if (!m_loginItem) {
            return;
        }
        const bool done = on ? m_loginItem->enable() : m_loginItem->disable();
        showMessage(m_startAtLoginMessage,
                    done ? QString()
                    : on ? QStringLiteral("Vantorel could not add itself to the programs "
                                          "started at login; the log says why.")
                         : QStringLiteral("Vantorel could not take itself out of the "
                                          "programs started at login; the log says why."));
        reloadLoginItem();
    });
    form->addRow(m_startAtLogin);
    form->addRow(m_startAtLoginMessage);
    box->setVisible(m_loginItem != nullptr);
    return box;
}

void SettingsWindow::reloadLoginItem()
{
    // The entry itself is the truth: the person may have removed it by hand or in the desktop's
    // own settings.
    QSignalBlocker block(m_startAtLogin);
    m_startAtLogin->setChecked(m_loginItem && m_loginItem->isEnabled());
}

QWidget* SettingsWindow::makeAppearanceSection()
{
    auto* box = new QGroupBox(QStringLiteral("Appearance"), this);
    auto* form = new QFormLayout(box);
    m_appearance = new QComboBox(box);
    m_appearance->setObjectName(QStringLiteral("appearance"));
    m_appearance->addItem(QStringLiteral("As the system is"), QStringLiteral("system"));
    m_appearance->addItem(QStringLiteral("Light"), QStringLiteral("light"));
    m_appearance->addItem(QStringLiteral("Dark"), QStringLiteral("dark"));
    m_appearanceMessage = messageLabel(box);
    connect(m_appearance, &QComboBox::activated, this, [this](int index) {
        write("appearance",
              m_appearance->itemData(index).toString().toStdString(),
              m_appearanceMessage);
    });
    form->addRow(QStringLiteral("Pages and panels"), m_appearance);
    form->addRow(m_appearanceMessage);
    return box;
}

QWidget* SettingsWindow::makeBrowsingSection()
{
    auto* box = new QGroupBox(QStringLiteral("Pages, unless a shortcut says otherwise"), this);
    auto* form = new QFormLayout(box);
    m_blocksAds = new QCheckBox(QStringLiteral("Block ads and trackers"), box);
    m_blocksAds->setObjectName(QStringLiteral("blocksAds"));
    m_asksDownloads = new QCheckBox(QStringLiteral("Ask where to save each download"), box);
    m_asksDownloads->setObjectName(QStringLiteral("asksWhereToSaveDownloads"));
    m_newWindowLinks = new QComboBox(box);
    m_newWindowLinks->setObjectName(QStringLiteral("newWindowLinks"));
    m_newWindowLinks->addItem(QStringLiteral("Open in the same page"), QStringLiteral("thisPage"));
    m_newWindowLinks->addItem(QStringLiteral("Open in a new window"), QStringLiteral("newWindow"));
    m_newWindowLinks->addItem(QStringLiteral("Open in the browser"), QStringLiteral("browser"));
    m_browsingMessage = messageLabel(box);
    connect(m_blocksAds, &QCheckBox::toggled, this, [this](bool on) {
        write("blocksAds", on ? "true" : "false", m_browsingMessage);
    });
    connect(m_asksDownloads, &QCheckBox::toggled, this, [this](bool on) {
        write("asksWhereToSaveDownloads", on ? "true" : "false", m_browsingMessage);
    });
    connect(m_newWindowLinks, &QComboBox::activated, this, [this](int index) {
        write("newWindowLinks",
              m_newWindowLinks->itemData(index).toString().toStdString(),
              m_browsingMessage);
    });
    form->addRow(m_blocksAds);
    form->addRow(m_asksDownloads);
    form->addRow(QStringLiteral("Links that ask for a window"), m_newWindowLinks);
    if (m_pageOptions) {
        namespace words = kit::library::words;
        m_unloadAfter = new QComboBox(box);
        m_unloadAfter->setObjectName(QStringLiteral("pageDiscardMinutes"));
        for (const int minutes : kUnloadChoices) {
            m_unloadAfter->addItem(toQt(words::minutesOrOff(minutes)), minutes);
        }
        connect(m_unloadAfter, &QComboBox::activated, this, [this](int index) {
            const int minutes = m_unloadAfter->itemData(index).toInt();
            m_pageOptions->setDiscardAfter(
                minutes > 0 ? std::optional(std::chrono::minutes(minutes)) : std::nullopt);
        });
        form->addRow(toQt(words::kHiddenPagesUnload), m_unloadAfter);
        form->addRow(hint(QStringLiteral("An unloaded page frees its memory and loads again "
                                         "where it was when you open it. Pages that play or "
                                         "hold what you typed stay."),
                          box));
        m_notifications = new QCheckBox(QStringLiteral("Let sites show notifications"), box);
        m_notifications->setObjectName(QStringLiteral("pageNotifications"));
        connect(m_notifications, &QCheckBox::toggled, this, [this](bool on) {
            m_pageOptions->setNotificationsAllowed(on);
        });
        form->addRow(m_notifications);
        form->addRow(hint(QStringLiteral("Each site asks once; Accounts lists the sites you "
                                         "answered."),
                          box));
    }
    form->addRow(m_browsingMessage);
    return box;
}

QWidget* SettingsWindow::makeAssistantsSection()
{
    auto* box = new QGroupBox(QStringLiteral("Assistants"), this);
    auto* layout = new QVBoxLayout(box);
    m_assistants = new QCheckBox(QStringLiteral("Let assistants see your bars"), box);
    m_assistants->setObjectName(QStringLiteral("assistantsEnabled"));
    m_assistantWrites =
        new QCheckBox(QStringLiteral("Let them propose changes and open shortcuts"), box);
    m_assistantWrites->setObjectName(QStringLiteral("assistantWritesEnabled"));
    m_assistantsMessage = messageLabel(box);
    connect(m_assistants, &QCheckBox::toggled, this, [this](bool on) {
        write("assistantsEnabled", on ? "true" : "false", m_assistantsMessage);
    });
    connect(m_assistantWrites, &QCheckBox::toggled, this, [this](bool on) {
        write("assistantWritesEnabled", on ? "true" : "false", m_assistantsMessage);
    });
    layout->addWidget(m_assistants);
    layout->addWidget(m_assistantWrites);
    layout->addWidget(hint(QStringLiteral("Every change an assistant proposes waits for you to "
                                          "review it."),
                           box));
    layout->addWidget(m_assistantsMessage);

    m_assistantSetup = new QWidget(box);
    auto* setup = new QVBoxLayout(m_assistantSetup);
    setup->setContentsMargins(0, 6, 0, 0);
    setup->addWidget(new QLabel(QStringLiteral("To register Vantorel with an assistant, add this "
                                               "to its configuration file:"),
                                m_assistantSetup));
    m_configText = new QPlainTextEdit(m_assistantSetup);
    m_configText->setObjectName(QStringLiteral("configJSON"));
    m_configText->setReadOnly(true);
    m_configText->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_configText->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_configText->setFixedHeight(m_configText->fontMetrics().lineSpacing() * 7 + 12);
    setup->addWidget(m_configText);
    auto* copy = new QPushButton(QStringLiteral("Copy"), m_assistantSetup);
    connect(copy, &QPushButton::clicked, this, [this] {
        QApplication::clipboard()->setText(m_configText->toPlainText());
    });
    setup->addWidget(copy, 0, Qt::AlignRight);
    setup->addWidget(
        new QLabel(QStringLiteral("or, for assistants run from a terminal:"), m_assistantSetup));
    m_addCommand = new QLabel(m_assistantSetup);
    m_addCommand->setObjectName(QStringLiteral("addCommand"));
    m_addCommand->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_addCommand->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_addCommand->setWordWrap(true);
    setup->addWidget(m_addCommand);
    m_bridgePathLabel = hint({}, m_assistantSetup);
    m_bridgePathLabel->setObjectName(QStringLiteral("bridgePath"));
    m_bridgePathLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    setup->addWidget(m_bridgePathLabel);
    auto* guide = new QLabel(QStringLiteral("<a href=\"%1\">How to set up an assistant</a>")
                                 .arg(toQt(kit::mcp::AssistantSetup::kGuideURL)),
                             m_assistantSetup);
    guide->setOpenExternalLinks(true);
    setup->addWidget(guide);
    layout->addWidget(m_assistantSetup);
    return box;
}

QWidget* SettingsWindow::makeFoldersSection()
{
    auto* box = new QGroupBox(QStringLiteral("Folders Vantorel may reach"), this);
    auto* layout = new QVBoxLayout(box);
    layout->addWidget(hint(QStringLiteral("Proposed files and folders inside these can be added "
                                          "to your bars."),
                           box));
    m_folders = new QListWidget(box);
    m_folders->setObjectName(QStringLiteral("folders"));
    m_folders->setMinimumHeight(90);
    m_folders->setMaximumHeight(150);
    layout->addWidget(m_folders);
    m_addFolder = new QPushButton(QStringLiteral("Add…"), box);
    m_addFolder->setObjectName(QStringLiteral("addFolder"));
    m_removeFolder = new QPushButton(QStringLiteral("Remove"), box);
    m_removeFolder->setObjectName(QStringLiteral("removeFolder"));
    m_foldersMessage = messageLabel(box);
    connect(m_addFolder, &QPushButton::clicked, this, &SettingsWindow::addFolder);
    connect(m_removeFolder, &QPushButton::clicked, this, &SettingsWindow::removeFolder);
    connect(m_folders, &QListWidget::currentRowChanged, this, [this](int row) {
        m_removeFolder->setEnabled(row >= 0);
    });
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_addFolder);
    buttons->addWidget(m_removeFolder);
    buttons->addStretch(1);
    layout->addLayout(buttons);
    layout->addWidget(m_foldersMessage);
    return box;
}

void SettingsWindow::write(const char* key, const std::string& text, QLabel* message)
{
    const auto error = m_settings.set(key, text);
    showMessage(message, error ? toQt(*error) : QString());
    // A refused value puts the control back to what is kept.
    if (error) {
        reload();
    }
}

void SettingsWindow::writeHotKey(bool menu,
                                 std::optional<std::pair<std::uint16_t, std::uint32_t>> combo)
{
    QLabel* message = menu ? m_menuHotKeyMessage : m_barHotKeyMessage;
    const char* key = menu ? "menuHotKey" : "activeBarHotKey";
    std::optional<kit::settings::HotKeyCombo> stored;
    if (combo) {
        stored = kit::settings::HotKeyCombo{combo->first, combo->second};
        const kit::keys::HotKeyCombo keys(*stored);
        if (!keys.isUsable()) {
            showMessage(message,
                        toQt(keys.display())
                            + QStringLiteral(" needs a modifier key held with it, or "
                                             "it would take the key from every app."));
            return;
        }
    }
    // Through the text form when it names the combo exactly, so a store that cannot save says so.
    const std::string text = AppSettings::hotKeyText(stored);
    const auto parsed = AppSettings::hotKeyFromText(text);
    if (parsed && *parsed == stored) {
        write(key, text, message);
        return;
    }
    showMessage(message, {});
    if (menu) {
        m_settings.setMenuHotKey(stored);
    } else {
        m_settings.setActiveBarHotKey(stored);
    }
}

void SettingsWindow::reload()
{
    const ModifierSet custom = ModifierSet::fromRaw(m_settings.customShortcutModifiers());
    {
        QSignalBlocker block(m_digitKeys);
        for (int i = 0; i < m_digitKeys->count(); ++i) {
            const auto keys = kit::library::enumFromWord<DigitKeys>(
                m_digitKeys->itemData(i).toString().toStdString());
            if (keys) {
                m_digitKeys->setItemText(i, toQt(kit::keys::displayText(*keys, custom)));
                if (*keys == m_settings.shortcutKeys()) {
                    m_digitKeys->setCurrentIndex(i);
                }
            }
        }
    }
    m_customPair->setShown(toQt(custom.words()));
    const auto shownHotKey = [](const std::optional<kit::settings::HotKeyCombo>& combo) {
        return combo ? toQt(kit::keys::HotKeyCombo(*combo).display()) : QStringLiteral("Off");
    };
    m_menuHotKey->setShown(shownHotKey(m_settings.menuHotKey()));
    m_barHotKey->setShown(shownHotKey(m_settings.activeBarHotKey()));
    if (m_refusedHotKeys) {
        QStringList taken;
        for (const auto& key : m_refusedHotKeys()) {
            taken << toQt(key);
        }
        showMessage(m_refusedMessage,
                    taken.isEmpty()
                        ? QString()
                        : taken.join(QStringLiteral(", "))
                              + (taken.size() == 1 ? QStringLiteral(" is") : QStringLiteral(" are"))
                              + QStringLiteral(" taken by another app."));
    }
    const auto select = [](QComboBox* box, std::string_view word) {
        QSignalBlocker block(box);
        box->setCurrentIndex(box->findData(toQt(word)));
    };
    select(m_appearance, kit::library::enumWord(m_settings.appearance()));
    select(m_newWindowLinks, kit::library::enumWord(m_settings.newWindowLinks()));
    const auto tick = [](QCheckBox* box, bool on) {
        QSignalBlocker block(box);
        box->setChecked(on);
    };
    reloadLoginItem();
    tick(m_wheel, m_settings.wheelSwitchesBars());
    tick(m_assistants, m_settings.assistantsEnabled());
    tick(m_assistantWrites, m_settings.assistantWritesEnabled());
    tick(m_blocksAds, m_settings.blocksAds());
    tick(m_asksDownloads, m_settings.asksWhereToSaveDownloads());
    if (m_pageOptions) {
        const auto after = m_pageOptions->discardAfter();
        // A number set elsewhere that is not offered shows as the next offered one up.
        int shown = 0;
        if (after) {
            const auto* choice =
                std::find_if(kUnloadChoices.begin(), kUnloadChoices.end(), [&](int minutes) {
                    return minutes > 0 && minutes >= after->count();
                });
            shown = choice == kUnloadChoices.end() ? kUnloadChoices.back() : *choice;
        }
        QSignalBlocker block(m_unloadAfter);
        m_unloadAfter->setCurrentIndex(m_unloadAfter->findData(shown));
        tick(m_notifications, m_pageOptions->notificationsAllowed());
    }

    m_assistantWrites->setEnabled(m_settings.assistantsEnabled());
    m_assistantSetup->setVisible(m_settings.assistantsEnabled());
    const std::string bridge = m_bridgePath ? m_bridgePath() : std::string();
    if (bridge.empty()) {
        m_configText->setPlainText({});
        m_addCommand->clear();
        m_bridgePathLabel->setText(
            QStringLiteral("The bridge program was not found next to Vantorel; reinstalling "
                           "Vantorel puts it back."));
    } else {
        m_configText->setPlainText(toQt(kit::mcp::AssistantSetup::configJSON(bridge)));
        m_addCommand->setText(toQt(kit::mcp::AssistantSetup::addCommand("<client>", bridge)));
        m_bridgePathLabel->setText(QStringLiteral("The bridge: ") + toQt(bridge));
    }
    reloadFolders();
}

void SettingsWindow::reloadFolders()
{
    const QString current = m_folders->currentItem() ? m_folders->currentItem()->text() : QString();
    m_folders->clear();
    for (const auto& grant : m_grants.grants()) {
        m_folders->addItem(toQt(grant.displayPath));
    }
    const auto matches = m_folders->findItems(current, Qt::MatchExactly);
    if (!current.isEmpty() && !matches.isEmpty()) {
        m_folders->setCurrentItem(matches.front());
    }
    m_removeFolder->setEnabled(m_folders->currentRow() >= 0);
}

void SettingsWindow::addFolder()
{
    const std::string folder = m_chooseFolder(this);
    if (folder.empty()) {
        return;
    }
    if (!m_grants.grant(folder)) {
        showMessage(m_foldersMessage,
                    toQt(folder)
                        + QStringLiteral(" is not a folder Vantorel can "
                                         "reach."));
        return;
    }
    showMessage(m_foldersMessage, {});
    reloadFolders();
}

void SettingsWindow::removeFolder()
{
    const auto* item = m_folders->currentItem();
    if (!item) {
        return;
    }
    m_grants.revoke(item->text().toStdString());
    showMessage(m_foldersMessage, {});
    reloadFolders();
}

} // namespace desktop
