// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class QCheckBox;
class QComboBox;
class QLabel;
class QListWidget;
class QPlainTextEdit;
class QPushButton;

namespace app {
class LoginItem;
}
namespace kit::proposal {
class RootGrantStore;
}
namespace kit::settings {
class AppSettings;
}
namespace kit::web {
class PageOptions;
}

namespace desktop {

class KeyRecorder;

// The Settings window: every app-wide choice and the granted folders. Each control writes through
// AppSettings at once and follows the settings when they change elsewhere; the core checks every
// value. Main thread only; the settings and the grant store must outlive the window.
class SettingsWindow : public QWidget
{
    Q_OBJECT

public:
    // The path of the bridge program assistants start; empty when it cannot be found.
    using BridgePath = std::function<std::string()>;
    // The hot keys the system refused to register, as display text ("Ctrl+Super+A"); empty when all
    // took.
    using RefusedHotKeys = std::function<std::vector<std::string>()>;
    // Asks the person for a folder; an empty string when they cancelled. Tests replace the dialog.
    using ChooseFolder = std::function<std::string(QWidget* parent)>;

    SettingsWindow(kit::settings::AppSettings& settings,
                   kit::proposal::RootGrantStore& grants,
                   QWidget* parent = nullptr,
                   BridgePath bridgePath = {},
                   RefusedHotKeys refusedHotKeys = {},
                   ChooseFolder chooseFolder = {},
                   app::LoginItem* loginItem = nullptr,
                   kit::web::PageOptions* pageOptions = nullptr);
    ~SettingsWindow() override;

    // Shows, raises and activates the window.
    void present();

    // Re-reads every control from the settings and the grants.
    void reload();

private:
    QWidget* makeStartSection();
    void reloadLoginItem();
    QWidget* makeKeysSection();
    QWidget* makeAppearanceSection();
    QWidget* makeAssistantsSection();
    QWidget* makeBrowsingSection();
    QWidget* makeFoldersSection();
    void reloadFolders();
    void addFolder();
    void removeFolder();
    // Writes one key from its text form and shows the core's answer in `message`.
    void write(const char* key, const std::string& text, QLabel* message);
    void writeHotKey(bool menu, std::optional<std::pair<std::uint16_t, std::uint32_t>> combo);

    kit::settings::AppSettings& m_settings;
    // Everything inside the scroll area, measured when the window opens.
    QWidget* m_content = nullptr;
    kit::proposal::RootGrantStore& m_grants;
    BridgePath m_bridgePath;
    RefusedHotKeys m_refusedHotKeys;
    ChooseFolder m_chooseFolder;
    // Optional: without one the switch is not shown.
    app::LoginItem* m_loginItem = nullptr;
    // Optional: without them the pages' own rows are not shown.
    kit::web::PageOptions* m_pageOptions = nullptr;
    size_t m_pageOptionsToken = 0;
    size_t m_settingsToken = 0;

    QCheckBox* m_startAtLogin = nullptr;
    QLabel* m_startAtLoginMessage = nullptr;
    QComboBox* m_digitKeys = nullptr;
    KeyRecorder* m_customPair = nullptr;
    QLabel* m_customPairMessage = nullptr;
    KeyRecorder* m_menuHotKey = nullptr;
    QLabel* m_menuHotKeyMessage = nullptr;
    KeyRecorder* m_barHotKey = nullptr;
    QLabel* m_barHotKeyMessage = nullptr;
    QLabel* m_refusedMessage = nullptr;
    QComboBox* m_appearance = nullptr;
    QLabel* m_appearanceMessage = nullptr;
    QCheckBox* m_assistants = nullptr;
    QCheckBox* m_assistantWrites = nullptr;
    QLabel* m_assistantsMessage = nullptr;
    QWidget* m_assistantSetup = nullptr;
    QLabel* m_bridgePathLabel = nullptr;
    QPlainTextEdit* m_configText = nullptr;
    QLabel* m_addCommand = nullptr;
    QCheckBox* m_blocksAds = nullptr;
    QCheckBox* m_asksDownloads = nullptr;
    QComboBox* m_newWindowLinks = nullptr;
    QComboBox* m_unloadAfter = nullptr;
    QCheckBox* m_notifications = nullptr;
    QLabel* m_browsingMessage = nullptr;
    QCheckBox* m_wheel = nullptr;
    QListWidget* m_folders = nullptr;
    QPushButton* m_addFolder = nullptr;
    QPushButton* m_removeFolder = nullptr;
    QLabel* m_foldersMessage = nullptr;
};

} // namespace desktop
