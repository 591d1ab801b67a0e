// SPDX-License-Identifier: MIT
#include "kit/storage/json_store.h"

#include "kit/support/atomic_file.h"
#include "support/manual_scheduler.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using namespace kit::storage;
using testing_support::ManualScheduler;
using testing_support::readFile;
using testing_support::TempDir;
using testing_support::writeFile;
namespace fs = std::filesystem;

namespace {

using Store = JsonStore<std::string>;

constexpr auto kInterval = 300ms;

// Text as a JSON string.
JsonCoding<std::string> textCoding()
{
    return {
        [](const std::string& value) { return nlohmann::json(value).dump(); },
        [](std::string_view text) { return nlohmann::json::parse(text).get<std::string>(); },
    };
}

// The decoder's own reason, which load passes on unchanged.
std::string decodeError(std::string_view text)
{
    try {
        textCoding().decode(text);
    } catch (const std::exception& e) {
        return e.what();
    }
    return "decoded";
}

std::string encoded(const std::string& value)
{
    return nlohmann::json(value).dump();
}

} // namespace

namespace kit::storage {

void PrintTo(const LoadUnreadable& unreadable, std::ostream* out)
{
    *out << "unreadable: " << unreadable.message;
}

void PrintTo(const LoadMissing&, std::ostream* out)
{
    *out << "missing";
}

} // namespace kit::storage

class JsonStoreTest : public testing::Test
{
protected:
    std::unique_ptr<Store> makeStore(const fs::path& file)
    {
        return std::make_unique<Store>(file, kInterval, textCoding(), m_scheduler);
    }

    TempDir m_dir;
    fs::path m_file = m_dir.file("note.json");
    std::shared_ptr<ManualScheduler> m_scheduler = std::make_shared<ManualScheduler>();
    std::unique_ptr<Store> m_store = makeStore(m_file);
};

TEST_F(JsonStoreTest, ABurstOfSavesWritesOnceWithTheLastAndALaterSaveWaitsAgain)
{
    for (int i = 0; i < 1000; ++i) {
        m_store->save("value " + std::to_string(i));
        m_scheduler->advance(100us);
    }
    // The interval counts from the first unwritten save, 100 ms ago.
    m_scheduler->advance(kInterval - 100ms - 1ms);
    EXPECT_FALSE(fs::exists(m_file));
    m_scheduler->advance(1ms);
    EXPECT_EQ(m_store->writeCount(), 1U);
    EXPECT_EQ(readFile(m_file), encoded("value 999"));
    m_scheduler->advance(1h);
    EXPECT_EQ(m_store->writeCount(), 1U);

    // A save after the write waits an interval of its own.
    m_store->save("two");
    m_scheduler->advance(kInterval - 1ms);
    EXPECT_EQ(readFile(m_file), encoded("value 999"));
    m_scheduler->advance(1ms);
    EXPECT_EQ(readFile(m_file), encoded("two"));
    EXPECT_EQ(m_store->writeCount(), 2U);
}

TEST_F(JsonStoreTest, DestructionFlushesAndALateScheduledWriteIsHarmless)
{
    m_store->save("pending");
    m_store.reset();
    EXPECT_EQ(readFile(m_file), encoded("pending"));
    // The write scheduled by the save outlives the store.
    EXPECT_EQ(m_scheduler->scheduledCount(), 1U);
    m_scheduler->advance(kInterval);
}

TEST_F(JsonStoreTest, SavesFromManyThreadsEndWithOneOfTheLastValues)
{
    Store store(m_file, 1ms, textCoding());
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&store, t] {
            for (int i = 0; i < 200; ++i) {
                store.save(std::to_string(t) + ":" + std::to_string(i));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    store.flush();
    auto loaded = store.load();
    ASSERT_TRUE(std::holds_alternative<std::string>(loaded));
    EXPECT_THAT(std::get<std::string>(loaded), testing::EndsWith(":199"));
    EXPECT_EQ(store.lastSaveError(), std::nullopt);
}

// Ways to make the folder refuse the write, and to give it back.
struct Blocker
{
    const char* name;
    std::function<bool(const fs::path& folder)> block; // false: cannot block here
    std::function<void(const fs::path& folder)> unblock;
    const char* reason; // empty: any
};

void PrintTo(const Blocker& blocker, std::ostream* out)
{
    *out << blocker.name;
}

class JsonStoreFailure : public JsonStoreTest, public testing::WithParamInterface<Blocker>
{};

// Reported and kept pending; then written by a retry, at quit or with the next change.
TEST_P(JsonStoreFailure, IsReportedAndWrittenOnceTheFolderTakesItAgain)
{
    const auto folder = m_dir.path() / "bars";
    fs::create_directories(folder);
    for (const std::string how : {"retry", "quit", "later change"}) {
        SCOPED_TRACE(how);
        auto store = makeStore(folder / "note.json");
        if (!GetParam().block(folder)) {
            GTEST_SKIP() << "cannot block the folder here";
        }
        store->save("renamed");
        m_scheduler->advance(kInterval);
        auto error = store->lastSaveError();
        ASSERT_TRUE(error);
        EXPECT_THAT(*error, testing::StartsWith("Could not save “note.json”: "));
        EXPECT_THAT(*error, testing::EndsWith(std::string(GetParam().reason) + "."));
        EXPECT_EQ(store->writeCount(), 0U);
        std::string written = "renamed";
        if (how == "retry") {
            // Still blocked: one retry after a second, the next after two more, never piling up.
            m_scheduler->advance(1s);
            EXPECT_EQ(m_scheduler->scheduledCount(), 1U);
            EXPECT_TRUE(store->lastSaveError());
            GetParam().unblock(folder);
            m_scheduler->advance(2s);
            EXPECT_EQ(store->lastSaveError(), std::nullopt);
            EXPECT_EQ(m_scheduler->scheduledCount(), 0U);
        } else if (how == "quit") {
            GetParam().unblock(folder);
            store.reset();
        } else {
            GetParam().unblock(folder);
            written = "renamed twice";
            store->save(written);
            m_scheduler->advance(kInterval);
        }
        EXPECT_EQ(readFile(folder / "note.json"), encoded(written));
        fs::remove(folder / "note.json");
        m_scheduler->advance(1h); // retries of a store that is gone do nothing
    }
}

INSTANTIATE_TEST_SUITE_P(
    Folders,
    JsonStoreFailure,
    testing::Values(Blocker{"ReadOnly",
                            [](const fs::path& folder) {
                                fs::permissions(folder,
                                                fs::perms::owner_read | fs::perms::owner_exec);
                                return ::geteuid() != 0; // root writes regardless
                            },
                            [](const fs::path& folder) {
                                fs::permissions(folder, fs::perms::owner_all);
                            },
                            "Permission denied"},
                    Blocker{"AFileInItsPlace",
                            [](const fs::path& folder) {
                                fs::remove(folder);
                                writeFile(folder, "not a folder");
                                return true;
                            },
                            [](const fs::path& folder) { fs::remove(folder); },
                            ""}),
    [](const testing::TestParamInfo<Blocker>& info) { return info.param.name; });

TEST_F(JsonStoreTest, LoadAnswersForEachStateOfTheFile)
{
    struct Row
    {
        const char* name;
        std::optional<std::string> text; // none: no file
        LoadResult<std::string> expected;
    };
    const std::vector<Row> rows{
        {"Missing", std::nullopt, LoadMissing{}},
        {"Valid", R"("hello")", std::string("hello")},
        {"Truncated", R"("hel)", LoadUnreadable{decodeError(R"("hel)")}},
        {"WrongType", "[1]", LoadUnreadable{decodeError("[1]")}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove(m_file);
        if (row.text) {
            writeFile(m_file, *row.text);
        }
        EXPECT_EQ(m_store->load(), row.expected);
    }
}

// A process killed at any moment of its writes leaves the file wholly old or wholly new, and the
// temporary files it leaves cannot disturb the next writer.
TEST(JsonStoreCrash, AKilledWriterLeavesAWholeFile)
{
    TempDir dir;
    const auto file = dir.file("note.json");
    constexpr size_t kSize = size_t{512} * 1024;
    const std::string values[] = {std::string(kSize, 'a'), std::string(kSize, 'b')};
    writeFile(file, encoded(values[0]));

    std::random_device seed;
    std::mt19937 random(seed());
    std::uniform_int_distribution<int> delayMs(0, 25);

    for (int round = 0; round < 6; ++round) {
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(ready[0]);
            Store store(file, 0ms, textCoding());
            for (size_t i = 0;; ++i) {
                store.save(values[i % 2]);
                store.flush();
                if (i == 1) {
                    (void)!::write(ready[1], "r", 1);
                }
            }
        }
        ::close(ready[1]);
        // Whatever happens to the assertions below, the child does not outlive the round.
        struct Killer
        {
            pid_t pid;
            ~Killer()
            {
                if (pid > 0) {
                    ::kill(pid, SIGKILL);
                    ::waitpid(pid, nullptr, 0);
                }
            }
        } killer{child};
        char byte = 0;
        ASSERT_EQ(::read(ready[0], &byte, 1), 1);
        ::close(ready[0]);
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs(random)));
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        killer.pid = 0;
        ASSERT_TRUE(WIFSIGNALED(status));

        Store reader(file, 0ms, textCoding());
        auto loaded = reader.load();
        ASSERT_TRUE(std::holds_alternative<std::string>(loaded)) << "round " << round;
        EXPECT_THAT(std::get<std::string>(loaded), testing::AnyOfArray(values))
            << "round " << round;
        for (const auto& entry : fs::directory_iterator(dir.path())) {
            auto name = entry.path().filename().string();
            EXPECT_TRUE(name == "note.json" || kit::support::isTemporaryNameOf(name, "note.json"))
                << name;
        }
    }

    // Leftovers of the killed writers, once old, are swept by the next store's first write.
    std::vector<fs::path> leftovers;
    for (const auto& entry : fs::directory_iterator(dir.path())) {
        if (entry.path() != file) {
            leftovers.push_back(entry.path());
            fs::last_write_time(entry.path(), fs::file_time_type::clock::now() - 1h);
        }
    }
    Store next(file, 0ms, textCoding(), std::make_shared<ManualScheduler>());
    next.save("after");
    next.flush();
    EXPECT_EQ(next.lastSaveError(), std::nullopt);
    EXPECT_EQ(readFile(file), encoded("after"));
    for (const auto& leftover : leftovers) {
        EXPECT_FALSE(fs::exists(leftover)) << leftover;
    }
}
