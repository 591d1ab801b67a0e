// SPDX-License-Identifier: MIT
#include "kit/settings/app_settings.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>

namespace {

using kit::settings::AppSettings;
using kit::settings::DigitKeys;
using kit::settings::HotKeyCombo;
using kit::settings::JsonFileKeyValueStore;
using kit::settings::MemoryKeyValueStore;
using kit::settings::Value;
using Key = AppSettings::Key;
namespace modifier = kit::settings::modifier;

kit::support::Bytes bytes(std::string_view text)
{
    return kit::support::Bytes(text.begin(), text.end());
}

TEST(AppSettingsHotKeys, cleared_hot_key_stays_off_after_a_restart)
{
    testing_support::TempDir dir;
    {
        JsonFileKeyValueStore store(dir.file("settings.json"));
        AppSettings settings(store);
        settings.setMenuHotKey(std::nullopt);
        EXPECT_EQ(settings.menuHotKey(), std::nullopt);
    }
    JsonFileKeyValueStore store(dir.file("settings.json"));
    AppSettings settings(store);
    EXPECT_EQ(settings.menuHotKey(), std::nullopt);
    EXPECT_EQ(settings.activeBarHotKey(), AppSettings::kActiveBarHotKeyDefault);
    EXPECT_EQ(store.value("menuHotKey"), Value(kit::support::Bytes{}));
}

TEST(AppSettingsHotKeys, a_set_combo_is_stored_as_json_data)
{
    MemoryKeyValueStore store;
    AppSettings settings(store);
    settings.setActiveBarHotKey(HotKeyCombo{12, modifier::kOption | modifier::kShift});

    AppSettings restarted(store);
    EXPECT_EQ(restarted.activeBarHotKey(), (HotKeyCombo{12, 0xA0000}));
    EXPECT_EQ(store.value("activeBarHotKey"), Value(bytes(R"({"keyCode":12,"modifiers":655360})")));
}

// What each key reads as when the store holds something it cannot use.
struct UnreadableCase
{
    const char* name;
    const char* key;
    Value stored;
    const char* readsAs; // through get()
};

const std::vector<UnreadableCase> kUnreadable{
    {"unknown_digit_keys", "shortcutKeys", Value("banana"), "controlCommand"},
    {"negative_modifiers", "customShortcutModifiers", Value(int64_t{-1}), "Ctrl+Alt"},
    {"too_large_modifiers", "customShortcutModifiers", Value(int64_t{1} << 40), "Ctrl+Alt"},
    {"hot_key_garbage", "menuHotKey", Value(bytes("{not json")), "off"},
    {"hot_key_without_modifiers", "menuHotKey", Value(bytes(R"({"keyCode":5})")), "off"},
    {"hot_key_code_too_large",
     "menuHotKey",
     Value(bytes(R"({"keyCode":70000,"modifiers":0})")),
     "off"},
    {"unknown_appearance", "appearance", Value("sepia"), "system"},
    {"assistants_as_text", "assistantsEnabled", Value("yes"), "false"},
    // Text an INI file keeps in place of the typed value reads as that value.
    {"ini_boolean", "assistantsEnabled", Value("true"), "true"},
    {"ini_integer", "customShortcutModifiers", Value("1179648"), "Shift+Super"},
    {"ini_hot_key", "menuHotKey", Value(R"({"keyCode":1,"modifiers":0})"), "S"},
};

TEST(AppSettingsUnreadable, reads_as_the_fallback)
{
    for (const UnreadableCase& param : kUnreadable) {
        SCOPED_TRACE(param.name);
        MemoryKeyValueStore store;
        store.setValue(param.key, param.stored);
        AppSettings settings(store);
        EXPECT_EQ(settings.get(param.key), param.readsAs);
    }
}

class AppSettingsObserving : public testing::Test
{
protected:
    MemoryKeyValueStore m_store;
    AppSettings m_settings{m_store};
    std::vector<Key> m_heard;

    void SetUp() override
    {
        m_settings.observeAll([this](Key key) { m_heard.push_back(key); });
    }
};

// Only a change of what a key reads as is heard, whoever made it.
TEST_F(AppSettingsObserving, a_change_is_heard_once_and_a_repeat_not_at_all)
{
    int assistants = 0;
    m_settings.observe(Key::AssistantsEnabled, [&] { ++assistants; });
    m_settings.setAssistantsEnabled(true);
    m_settings.setAssistantsEnabled(true);
    m_settings.setWheelSwitchesBars(true);               // already the default
    m_store.setValue("shortcutKeys", Value("nonsense")); // still controlCommand
    m_store.setValue("unrelated", Value(true));
    m_store.setValue("shortcutKeys", Value("off"));
    EXPECT_EQ(assistants, 1);
    EXPECT_EQ(m_heard, (std::vector<Key>{Key::AssistantsEnabled, Key::ShortcutKeys}));
    EXPECT_EQ(m_settings.shortcutKeys(), DigitKeys::Off);
}

TEST(AppSettingsThreads, a_read_off_the_main_thread_is_reported)
{
    MemoryKeyValueStore store;
    AppSettings settings(store);
    testing::internal::CaptureStderr();
    (void)settings.blocksAds();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    std::thread([&] { (void)settings.browsing(); }).join();
    EXPECT_NE(testing::internal::GetCapturedStderr().find("off the main thread"),
              std::string::npos);
}

// Each key set by name and read back as the person typed it, before and after a restart.
TEST(AppSettingsByName, set_and_read_back)
{
    const std::array<const char*, 3> rows[] = {
        {"assistantsEnabled", "true", "true"},
        {"assistantWritesEnabled", " False ", "false"},
        {"shortcutKeys", "custom", "custom"},
        {"appearance", "dark", "dark"},
        {"customShortcutModifiers", "command+ctrl", "Ctrl+Super"},
        {"customShortcutModifiers", "0x140000", "Ctrl+Super"},
        {"customShortcutModifiers", "none", "none"},
        {"customShortcutModifiers", "alt+0x800000", "Alt+0x800000"},
        {"menuHotKey", "off", "off"},
        {"menuHotKey", "Super + Alt + space", "Alt+Super+Space"},
        {"activeBarHotKey", "control+shift+7", "Ctrl+Shift+7"},
        {"activeBarHotKey", "meta+#96", "Super+#96"},
        {"activeBarHotKey", "f", "F"},
    };
    for (const auto& [key, typed, readBack] : rows) {
        SCOPED_TRACE(std::string(key) + " = " + typed);
        MemoryKeyValueStore store;
        AppSettings settings(store);
        EXPECT_EQ(settings.set(key, typed), std::nullopt);
        EXPECT_EQ(settings.get(key), readBack);
        EXPECT_EQ(AppSettings(store).get(key), readBack);
    }
}

TEST(AppSettingsByName, refusals_are_one_sentence)
{
    MemoryKeyValueStore store;
    AppSettings settings(store);
    EXPECT_EQ(settings.set("foo", "true"),
              "“foo” is not a setting. Settings are: activeBarHotKey, shortcutKeys, "
              "customShortcutModifiers, menuHotKey, appearance, assistantsEnabled, "
              "assistantWritesEnabled, blocksAds, asksWhereToSaveDownloads, newWindowLinks, "
              "wheelSwitchesBars, welcomeShown, loginItemOffered.");
    EXPECT_EQ(settings.get("foo"), std::nullopt);
    EXPECT_EQ(settings.set("assistantsEnabled", "yes"), "“assistantsEnabled” takes true or false.");
    EXPECT_EQ(settings.set("shortcutKeys", "alt"),
              "“shortcutKeys” takes optionCommand, controlCommand, shiftControl, custom or off.");
    EXPECT_EQ(settings.set("appearance", ""), "“appearance” takes system, light or dark.");
    EXPECT_EQ(settings.set("customShortcutModifiers", "control+hyper"),
              "“customShortcutModifiers” takes modifiers joined by +, such as Ctrl+Alt.");
    EXPECT_EQ(settings.set("menuHotKey", "control+command"),
              "“menuHotKey” takes a key with modifiers, such as Ctrl+Super+G, or off.");
    // Nothing was written by the refusals.
    EXPECT_EQ(store.value("assistantsEnabled"), std::nullopt);
    EXPECT_EQ(store.value("menuHotKey"), std::nullopt);
}

TEST(AppSettingsByName, every_key_is_listed_with_its_type_and_reads_as_text)
{
    MemoryKeyValueStore store;
    AppSettings settings(store);
    const auto keys = AppSettings::keyDescriptions();
    ASSERT_EQ(keys.size(), AppSettings::kKeyCount);
    EXPECT_EQ(settings.keys().size(), AppSettings::kKeyCount);
    for (const auto& key : keys) {
        EXPECT_TRUE(settings.get(key.name).has_value()) << key.name;
        EXPECT_EQ(AppSettings::keyName(*AppSettings::keyNamed(key.name)), key.name);
        // What a key reads as is what it takes.
        EXPECT_EQ(settings.set(key.name, *settings.get(key.name)), std::nullopt) << key.name;
    }
    EXPECT_TRUE(store.value("blocksAds").has_value()); // written back as it read
}

TEST(AppSettingsByName, a_value_the_file_cannot_take_is_refused_with_the_files_reason)
{
    testing_support::TempDir dir;
    testing_support::writeFile(dir.file("settings.json"), "not json");
    JsonFileKeyValueStore store(dir.file("settings.json"));
    AppSettings settings(store);
    EXPECT_EQ(settings.set("assistantsEnabled", "true"),
              "Could not read “settings.json”: it is not a JSON object; settings changed now are "
              "not saved.");
    EXPECT_EQ(testing_support::readFile(dir.file("settings.json")), "not json");
}

} // namespace
