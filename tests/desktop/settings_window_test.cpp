// SPDX-License-Identifier: MIT
#include "desktop/manager/settings_window.h"

#include "app/login_item.h"
#include "kit/proposal/root_grant_store.h"
#include "kit/settings/app_settings.h"
#include "kit/settings/key_value_store.h"
#include "kit/web/page_options.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>

#include <algorithm>
#include <filesystem>

using desktop::SettingsWindow;
using kit::proposal::RootGrantStore;
using kit::settings::AppSettings;
using kit::settings::DigitKeys;
using kit::settings::HotKeyCombo;
using kit::settings::MemoryKeyValueStore;
using ::testing::HasSubstr;
namespace modifier = kit::settings::modifier;

namespace {

class SettingsWindowTest : public ::testing::Test
{
protected:
    SettingsWindowTest()
        : m_settings(m_store)
        , m_grants(m_dir.path() / RootGrantStore::kFileName)
        , m_loginItem(m_dir.path() / "config", "/opt/vantorel/vantorel")
        , m_pageOptions(m_store)
        , m_window(
              m_settings,
              m_grants,
              nullptr,
              [] { return std::string("/opt/vantorel/vantorel-mcp"); },
              [] { return std::vector<std::string>{"Ctrl+Super+A"}; },
              [this](QWidget*) { return m_chosen; },
              &m_loginItem,
              &m_pageOptions)
    {}

    template <class Widget> Widget* control(const char* name)
    {
        auto* widget = m_window.findChild<Widget*>(QString::fromLatin1(name));
        EXPECT_NE(widget, nullptr) << name;
        return widget;
    }

    // A choice made in a list box, as a person makes it.
    void choose(const char* name, const QVariant& data)
    {
        auto* box = control<QComboBox>(name);
        box->setCurrentIndex(box->findData(data));
        Q_EMIT box->activated(box->currentIndex());
    }

    // The message shown under a control, if any.
    QStringList messages()
    {
        QStringList shown;
        for (auto* label : m_window.findChildren<QLabel*>()) {
            if (label->isVisibleTo(&m_window) && label->text().contains(QStringLiteral("take"))) {
                shown << label->text();
            }
        }
        return shown;
    }

    void press(QWidget* widget, QEvent::Type type, int key, Qt::KeyboardModifiers modifiers)
    {
        QKeyEvent event(type, key, modifiers);
        QApplication::sendEvent(widget, &event);
    }

    // A modifier held, then Super with it, and both let go.
    void pressPair(QWidget* field, int key, Qt::KeyboardModifier modifier)
    {
        press(field, QEvent::KeyPress, key, Qt::NoModifier);
        press(field, QEvent::KeyPress, Qt::Key_Meta, modifier);
        press(field, QEvent::KeyRelease, Qt::Key_Meta, modifier | Qt::MetaModifier);
        press(field, QEvent::KeyRelease, key, modifier);
    }

    testing_support::TempDir m_dir;
    MemoryKeyValueStore m_store;
    AppSettings m_settings;
    RootGrantStore m_grants;
    std::string m_chosen;
    app::XdgLoginItem m_loginItem;
    kit::web::PageOptions m_pageOptions;
    SettingsWindow m_window;
};

TEST_F(SettingsWindowTest, ControlsWriteTheSettingsAtOnce)
{
    choose("appearance", "dark");
    EXPECT_EQ(m_settings.appearance(), kit::settings::AppAppearance::Dark);

    control<QCheckBox>("assistantsEnabled")->click();
    EXPECT_TRUE(m_settings.assistantsEnabled());
    control<QCheckBox>("assistantWritesEnabled")->click();
    EXPECT_FALSE(m_settings.assistantWritesEnabled());
    control<QCheckBox>("blocksAds")->click();
    EXPECT_FALSE(m_settings.blocksAds());
    control<QCheckBox>("wheelSwitchesBars")->click();
    EXPECT_FALSE(m_settings.wheelSwitchesBars());

    choose("newWindowLinks", "thisPage");
    EXPECT_EQ(m_settings.newWindowLinks(), kit::library::NewWindowLinks::ThisPage);

    choose("digitKeys", "off");
    EXPECT_EQ(m_settings.shortcutKeys(), DigitKeys::Off);

    // Start at login follows the autostart entry, also when it is switched on elsewhere.
    auto* start = control<QCheckBox>("startAtLogin");
    start->setChecked(true);
    EXPECT_TRUE(std::filesystem::exists(m_loginItem.file()));
    start->setChecked(false);
    EXPECT_FALSE(std::filesystem::exists(m_loginItem.file()));
    ASSERT_TRUE(m_loginItem.enable());
    m_window.reload();
    EXPECT_TRUE(start->isChecked());
}

TEST_F(SettingsWindowTest, AChangeMadeElsewhereShows)
{
    // As a settings command in a terminal would write it, seen when the store reloads.
    m_store.setValue("assistantsEnabled", kit::settings::Value(true));
    m_store.setValue("shortcutKeys", kit::settings::Value(std::string("shiftControl")));
    m_settings.setMenuHotKey(std::nullopt);

    EXPECT_TRUE(control<QCheckBox>("assistantsEnabled")->isChecked());
    EXPECT_TRUE(control<QCheckBox>("assistantWritesEnabled")->isEnabled());
    EXPECT_EQ(control<QComboBox>("digitKeys")->currentData().toString(), "shiftControl");
    EXPECT_EQ(control<QPushButton>("menuHotKey")->text(), "Off");
    // With assistants on, the texts to register the bridge name its path.
    EXPECT_THAT(control<QPlainTextEdit>("configJSON")->toPlainText().toStdString(),
                HasSubstr("\"command\": \"/opt/vantorel/vantorel-mcp\""));
    EXPECT_EQ(control<QLabel>("addCommand")->text(),
              "<client> mcp add vantorel -- \"/opt/vantorel/vantorel-mcp\"");
}

TEST_F(SettingsWindowTest, HiddenPagesUnloadAfterAnOfferedTime)
{
    auto* after = control<QComboBox>("pageDiscardMinutes");
    // Each row: what the store holds (nothing: never set) and the minutes the row shows.
    const struct
    {
        std::optional<std::int64_t> stored;
        int shown;
    } rows[] = {
        {std::nullopt, 15},
        {0, 0},
        {5, 5},
        {60, 60},
        // Set elsewhere to what is not offered: the next offered time up, or the longest.
        {20, 60},
        {3, 5},
        {600, 60},
        // Not a time at all: the default.
        {-4, 15},
    };
    for (const auto& row : rows) {
        if (row.stored) {
            m_store.setValue(kit::web::PageOptions::kDiscardKey, *row.stored);
        } else {
            m_store.remove(kit::web::PageOptions::kDiscardKey);
        }
        EXPECT_EQ(after->currentData().toInt(), row.shown) << row.stored.value_or(-1);
    }
    EXPECT_EQ(after->itemText(0), "Off");
    EXPECT_EQ(after->itemText(2), "15 minutes");

    choose("pageDiscardMinutes", 0);
    EXPECT_EQ(m_pageOptions.discardAfter(), std::nullopt);
    choose("pageDiscardMinutes", 5);
    EXPECT_EQ(m_pageOptions.discardAfter(), std::chrono::minutes(5));

    auto* notifications = control<QCheckBox>("pageNotifications");
    EXPECT_TRUE(notifications->isChecked());
    notifications->click();
    EXPECT_FALSE(m_pageOptions.notificationsAllowed());
    m_pageOptions.setNotificationsAllowed(true);
    EXPECT_TRUE(notifications->isChecked());
}

TEST_F(SettingsWindowTest, RecordingAHotKeyKeepsItOrSaysWhyNot)
{
    auto* recorder = control<QPushButton>("menuHotKey");
    recorder->click();
    press(recorder, QEvent::KeyPress, Qt::Key_M, Qt::ControlModifier | Qt::AltModifier);
    ASSERT_TRUE(m_settings.menuHotKey());
    EXPECT_EQ(*m_settings.menuHotKey(), (HotKeyCombo{46, modifier::kControl | modifier::kOption}));
    EXPECT_EQ(recorder->text(), "Ctrl+Alt+M");

    // A bare letter would be taken from every other app.
    recorder->click();
    press(recorder, QEvent::KeyPress, Qt::Key_K, Qt::NoModifier);
    EXPECT_EQ(m_settings.menuHotKey()->keyCode, 46);
    EXPECT_EQ(messages().size(), 2); // the bare key, and the key the system refused
    EXPECT_THAT(messages().join('|').toStdString(),
                HasSubstr("Ctrl+Super+A is taken by another app."));

    control<QPushButton>("activeBarHotKeyOff")->click();
    EXPECT_FALSE(m_settings.activeBarHotKey());
    EXPECT_EQ(control<QPushButton>("activeBarHotKey")->text(), "Off");
}

TEST_F(SettingsWindowTest, ACustomPairMustFollowTheRules)
{
    auto* pair = control<QPushButton>("customPair");
    pair->click();
    // Shift+Super takes screenshots: refused, with the rule beside the field.
    pressPair(pair, Qt::Key_Shift, Qt::ShiftModifier);
    EXPECT_EQ(m_settings.customShortcutModifiers(), AppSettings::kCustomModifiersDefault);
    EXPECT_NE(m_settings.shortcutKeys(), DigitKeys::Custom);

    pair->click();
    pressPair(pair, Qt::Key_Alt, Qt::AltModifier);
    EXPECT_EQ(m_settings.customShortcutModifiers(), modifier::kOption | modifier::kCommand);
    EXPECT_EQ(m_settings.shortcutKeys(), DigitKeys::Custom);
    EXPECT_EQ(control<QComboBox>("digitKeys")->currentData().toString(), "custom");
}

TEST_F(SettingsWindowTest, FoldersAreGrantedAndTakenBack)
{
    const auto folder = m_dir.path() / "Documents";
    std::filesystem::create_directory(folder);
    auto* list = control<QListWidget>("folders");

    m_chosen = (m_dir.path() / "missing").string();
    control<QPushButton>("addFolder")->click();
    EXPECT_TRUE(m_grants.grants().empty());

    m_chosen = folder.string();
    control<QPushButton>("addFolder")->click();
    ASSERT_EQ(list->count(), 1);
    EXPECT_EQ(list->item(0)->text().toStdString(), folder.string());
    EXPECT_TRUE(m_grants.reach((folder / "notes.txt").string()));

    auto* remove = control<QPushButton>("removeFolder");
    EXPECT_FALSE(remove->isEnabled());
    list->setCurrentRow(0);
    remove->click();
    EXPECT_EQ(list->count(), 0);
    EXPECT_TRUE(m_grants.grants().empty());

    // Cancelling the dialog grants nothing.
    m_chosen.clear();
    control<QPushButton>("addFolder")->click();
    EXPECT_EQ(list->count(), 0);
}

// A settings file that cannot be read is never written over; the control says why its change
// will not last.
TEST(SettingsWindowStoreTest, AValueTheStoreCannotSaveSaysWhy)
{
    testing_support::TempDir dir;
    const auto file = dir.path() / "settings.json";
    testing_support::writeFile(file, "{ not json");
    kit::settings::JsonFileKeyValueStore store(file);
    AppSettings settings(store);
    RootGrantStore grants(dir.path() / RootGrantStore::kFileName);
    SettingsWindow window(settings, grants);
    ASSERT_TRUE(store.error());

    window.findChild<QCheckBox*>("blocksAds")->click();
    const auto labels = window.findChildren<QLabel*>();
    const bool said = std::any_of(labels.begin(), labels.end(), [&](QLabel* label) {
        return label->isVisibleTo(&window) && label->text().toStdString() == *store.error();
    });
    EXPECT_TRUE(said);
    EXPECT_EQ(testing_support::readFile(file), "{ not json");
}

} // namespace
