// SPDX-License-Identifier: MIT
#include "kit/settings/key_value_store.h"

#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

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

TEST_F(JsonFileStoreTest, an_unreadable_file_is_set_aside_before_it_is_replaced)
{
    writeFile(m_file, "{\"assistantsEnabled\": tru");
    JsonFileKeyValueStore store(m_file);
    EXPECT_EQ(store.value("assistantsEnabled"), std::nullopt);
    ASSERT_TRUE(store.error().has_value());
    EXPECT_EQ(*store.error(),
              "The settings in “settings.json” could not be read; they start again from the "
              "defaults.");
    EXPECT_EQ(readFile(m_file), "{\"assistantsEnabled\": tru"); // untouched until a write

    store.setValue("blocksAds", Value(false));
    EXPECT_EQ(store.error(), std::nullopt);
    EXPECT_EQ(readFile(m_dir.file("settings.json.unreadable")), "{\"assistantsEnabled\": tru");
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
