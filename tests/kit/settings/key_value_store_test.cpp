// SPDX-License-Identifier: MIT
#include "kit/settings/key_value_store.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

using kit::settings::JsonFileKeyValueStore;
using kit::settings::Value;
using testing_support::readFile;
using testing_support::writeFile;

class JsonFileStoreTest : public testing::Test
{
protected:
    testing_support::TempDir m_dir;
    std::filesystem::path m_file = m_dir.file("settings.json");
};

TEST_F(JsonFileStoreTest, every_kind_of_value_survives_a_restart)
{
    {
        JsonFileKeyValueStore store(m_file);
        store.setValue("flag", Value(true));
        store.setValue("count", Value(int64_t{-42}));
        store.setValue("ratio", Value(0.25));
        store.setValue("word", Value("a/b “quoted”"));
        store.setValue("data", Value(kit::support::Bytes{0, 255, 10}));
        store.setValue("empty", Value(kit::support::Bytes{}));
        EXPECT_EQ(store.error(), std::nullopt);
    }
    JsonFileKeyValueStore store(m_file);
    EXPECT_EQ(store.value("flag"), Value(true));
    EXPECT_EQ(store.value("count"), Value(int64_t{-42}));
    EXPECT_EQ(store.value("ratio"), Value(0.25));
    EXPECT_EQ(store.value("word"), Value("a/b “quoted”"));
    EXPECT_EQ(store.value("data"), Value(kit::support::Bytes{0, 255, 10}));
    EXPECT_EQ(store.value("empty"), Value(kit::support::Bytes{}));
    EXPECT_EQ(store.value("absent"), std::nullopt);
    // Sorted keys, slashes as they are.
    const std::string text = readFile(m_file);
    EXPECT_LT(text.find("\"count\""), text.find("\"word\""));
    EXPECT_NE(text.find("a/b"), std::string::npos);
}

TEST_F(JsonFileStoreTest, two_processes_do_not_lose_each_others_changes)
{
    JsonFileKeyValueStore app(m_file);
    JsonFileKeyValueStore command(m_file);
    command.setValue("fromCommand", Value(true));
    app.setValue("fromApp", Value(int64_t{1})); // app never reloaded before this

    JsonFileKeyValueStore fresh(m_file);
    EXPECT_EQ(fresh.value("fromCommand"), Value(true));
    EXPECT_EQ(fresh.value("fromApp"), Value(int64_t{1}));
}

TEST_F(JsonFileStoreTest, processes_writing_at_once_lose_nothing)
{
    constexpr int kProcesses = 4;
    constexpr int kKeysEach = 15;
    std::vector<pid_t> children;
    for (int p = 0; p < kProcesses; ++p) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            JsonFileKeyValueStore store(m_file);
            for (int k = 0; k < kKeysEach; ++k) {
                store.setValue("p" + std::to_string(p) + "k" + std::to_string(k), Value(true));
            }
            ::_exit(store.error() ? 1 : 0);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    const auto written = nlohmann::json::parse(readFile(m_file));
    EXPECT_EQ(written.size(), static_cast<size_t>(kProcesses) * kKeysEach);
}

TEST_F(JsonFileStoreTest, reload_tells_observers_exactly_what_changed)
{
    JsonFileKeyValueStore app(m_file);
    app.setValue("same", Value(true));
    app.setValue("changes", Value(int64_t{1}));
    app.setValue("goes", Value("x"));
    std::vector<std::string> heard;
    app.observe([&](const std::string& key) { heard.push_back(key); });

    JsonFileKeyValueStore command(m_file);
    command.setValue("changes", Value(int64_t{2}));
    command.remove("goes");
    command.setValue("arrives", Value(false));
    EXPECT_TRUE(heard.empty());

    app.reload();
    EXPECT_EQ(heard, (std::vector<std::string>{"arrives", "changes", "goes"}));
    EXPECT_EQ(app.value("goes"), std::nullopt);
}

TEST_F(JsonFileStoreTest, writing_the_same_value_again_does_not_touch_the_file)
{
    JsonFileKeyValueStore store(m_file);
    store.setValue("flag", Value(true));
    std::filesystem::remove(m_file);
    // The store re-reads first, so it sees the value gone and writes it again.
    store.setValue("flag", Value(true));
    EXPECT_TRUE(std::filesystem::exists(m_file));

    int heard = 0;
    store.observe([&](const std::string&) { ++heard; });
    const auto before = std::filesystem::last_write_time(m_file);
    store.setValue("flag", Value(true));
    store.remove("absent");
    EXPECT_EQ(heard, 0);
    EXPECT_EQ(std::filesystem::last_write_time(m_file), before);
}

TEST_F(JsonFileStoreTest, an_unreadable_file_is_never_written_over)
{
    const std::string broken = "{\"assistantsEnabled\": tru";
    writeFile(m_file, broken);
    JsonFileKeyValueStore store(m_file);
    EXPECT_TRUE(store.isUnreadable());
    EXPECT_EQ(store.value("assistantsEnabled"), std::nullopt);
    EXPECT_EQ(store.error(),
              "Could not read “settings.json”: it is not a JSON object; settings changed now are "
              "not saved.");

    // The change holds for this run only.
    int heard = 0;
    store.observe([&](const std::string&) { ++heard; });
    store.setValue("blocksAds", Value(false));
    store.remove("blocksAds");
    store.setValue("blocksAds", Value(false));
    EXPECT_EQ(heard, 3);
    EXPECT_EQ(store.value("blocksAds"), Value(false));
    EXPECT_EQ(readFile(m_file), broken);
    EXPECT_TRUE(store.error().has_value());
    EXPECT_FALSE(std::filesystem::exists(m_dir.file("settings.json.unreadable")));
}

TEST_F(JsonFileStoreTest, breaking_the_file_meanwhile_keeps_the_values_read_before)
{
    JsonFileKeyValueStore store(m_file);
    store.setValue("assistantsEnabled", Value(true));
    int heard = 0;
    store.observe([&](const std::string&) { ++heard; });

    writeFile(m_file, "{\"assistantsEnabled\": true,"); // a hand edit half done
    store.reload();
    EXPECT_EQ(store.value("assistantsEnabled"), Value(true));
    EXPECT_EQ(heard, 0);
    EXPECT_TRUE(store.error().has_value());

    writeFile(m_file, R"({"assistantsEnabled": false})");
    store.reload();
    EXPECT_EQ(store.value("assistantsEnabled"), Value(false));
    EXPECT_EQ(heard, 1);
    EXPECT_EQ(store.error(), std::nullopt);
    store.setValue("wheelSwitchesBars", Value(true)); // writable again
    EXPECT_NE(readFile(m_file).find("wheelSwitchesBars"), std::string::npos);
}

TEST_F(JsonFileStoreTest, a_folder_in_the_files_place_is_left_alone)
{
    std::filesystem::create_directory(m_file);
    JsonFileKeyValueStore store(m_file);
    store.setValue("flag", Value(true));
    EXPECT_TRUE(std::filesystem::is_directory(m_file));
    EXPECT_EQ(store.value("flag"), Value(true));
    EXPECT_EQ(store.error(),
              "Could not read “settings.json”: it is a folder; settings changed now are not "
              "saved.");
}

TEST_F(JsonFileStoreTest, starting_fresh_sets_each_unreadable_copy_aside)
{
    writeFile(m_file, "first broken");
    JsonFileKeyValueStore store(m_file);
    store.setValue("blocksAds", Value(false));
    EXPECT_EQ(store.startFresh(), std::nullopt);
    EXPECT_FALSE(store.isUnreadable());
    EXPECT_EQ(readFile(m_dir.file("settings.json.unreadable")), "first broken");
    EXPECT_EQ(nlohmann::json::parse(readFile(m_file)), nlohmann::json({{"blocksAds", false}}));

    writeFile(m_file, "second broken");
    store.reload();
    EXPECT_EQ(store.startFresh(), std::nullopt);
    EXPECT_EQ(readFile(m_dir.file("settings.json.unreadable")), "first broken");
    EXPECT_EQ(readFile(m_dir.file("settings.json.unreadable-2")), "second broken");
    EXPECT_EQ(nlohmann::json::parse(readFile(m_file)), nlohmann::json({{"blocksAds", false}}));
}

TEST_F(JsonFileStoreTest, members_of_other_shapes_are_no_values_but_survive_writes)
{
    writeFile(m_file, R"({"list": [1, 2], "object": {"a": 1}, "nothing": null, "ok": 3,
                          "big": 18446744073709551615, "badData": {"base64": "***"}})");
    JsonFileKeyValueStore store(m_file);
    EXPECT_EQ(store.value("list"), std::nullopt);
    EXPECT_EQ(store.value("object"), std::nullopt);
    EXPECT_EQ(store.value("nothing"), std::nullopt);
    EXPECT_EQ(store.value("badData"), std::nullopt);
    EXPECT_EQ(store.value("ok"), Value(int64_t{3}));
    EXPECT_EQ(store.value("big"), Value(18446744073709551615.0));

    store.setValue("ok", Value(int64_t{4}));
    const auto written = nlohmann::json::parse(readFile(m_file));
    EXPECT_EQ(written["list"], nlohmann::json({1, 2}));
    EXPECT_EQ(written["nothing"], nullptr);
    EXPECT_EQ(written["ok"], 4);
}

TEST_F(JsonFileStoreTest, a_write_that_fails_is_reported)
{
    const auto blocked = m_dir.file("plain") / "settings.json";
    writeFile(m_dir.file("plain"), "a file where a folder should be");
    JsonFileKeyValueStore store(blocked);
    store.setValue("flag", Value(true));
    ASSERT_TRUE(store.error().has_value());
    EXPECT_NE(store.error()->find("settings.json"), std::string::npos);
    EXPECT_EQ(store.value("flag"), Value(true)); // kept in memory for this run
}

} // namespace
