// SPDX-License-Identifier: MIT
#include "kit/storage/library_store.h"

#include "kit/library/fixtures.h"
#include "kit/library/library_json.h"
#include "support/manual_queue.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mount.h>

#include <cerrno>
#include <cstdio>

using namespace kit::library;
using namespace kit::storage;
using namespace testing_support;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

class LibraryStoreTest : public ::testing::Test
{
protected:
    std::unique_ptr<LibraryStore> open()
    {
        // A long debounce: nothing reaches disk unless flushed, so tests see exactly what flush
        // wrote.
        LibraryStore::Options options;
        options.interval = std::chrono::milliseconds(60'000);
        return std::make_unique<LibraryStore>(SupportDirectory{dir.path(), true}, options);
    }

    std::string file(const std::string& name) const { return readFile(dir.file(name)); }
    bool exists(const std::string& name) const { return std::filesystem::exists(dir.file(name)); }

    TempDir dir;
};

} // namespace

TEST_F(LibraryStoreTest, AFreshFolderGetsOneBarAndWritesTheLibraryOnTheFirstChange)
{
    auto store = open();
    store->flush();
    ASSERT_EQ(store->bars().size(), 1u);
    EXPECT_EQ(store->loadState().kind, LibraryStore::LoadState::Kind::Fresh);
    EXPECT_EQ(decodeBarIndex(file("bars.json")), store->barIndex());
    EXPECT_FALSE(exists("library.json"));

    store->mutate([](Library& l) { l.add(webLink("Docs")); });
    store->flush();
    EXPECT_EQ(decodeLibrary(file("library.json")).shortcuts.size(), 1u);

    // Reopening reads back what was written.
    store.reset();
    auto again = open();
    EXPECT_EQ(again->loadState().kind, LibraryStore::LoadState::Kind::Loaded);
    EXPECT_EQ(again->library().shortcuts[0].name, "Docs");
}

// Broken, newer and huge files: each is held in memory and never written over.
TEST_F(LibraryStoreTest, AnUnreadableBarIsNeverWrittenOverUntilStartedFresh)
{
    const struct
    {
        std::string text;
        std::uintmax_t size; // grown with holes to this size when larger than the text
        std::string message;
    } rows[] = {
        {"{\"schemaVersion\": 1, \"shortcuts\": [oops", 0, "syntax error"},
        {R"({"schemaVersion": 2, "shortcuts": []})",
         0,
         "written by a newer Vantorel (schema 2, this build reads up to 1)"},
        {"", std::uintmax_t{1} << 30, "Could not read “library.json”: it is larger than 256 MiB."},
    };
    open().reset();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        writeFile(dir.file("library.json"), row.text);
        if (row.size > row.text.size()) {
            std::filesystem::resize_file(dir.file("library.json"), row.size);
        }
        const auto size = std::filesystem::file_size(dir.file("library.json"));
        auto store = open();
        EXPECT_EQ(store->loadState().kind, LibraryStore::LoadState::Kind::Unreadable);
        EXPECT_THAT(store->loadState().message, HasSubstr(row.message));
        EXPECT_TRUE(store->isHeldAfterCorruption());
        store->mutate([](Library& l) { l.add(webLink("Kept in memory")); });
        EXPECT_EQ(store->library().shortcuts.size(), 1u);
        store->flush();
        store.reset();
        EXPECT_EQ(std::filesystem::file_size(dir.file("library.json")), size);
        if (row.size == 0) {
            EXPECT_EQ(file("library.json"), row.text);
        }
    }

    auto store = open();
    EXPECT_TRUE(store->startFreshAfterCorruption());
    EXPECT_FALSE(store->startFreshAfterCorruption()) << "only once";
    store->flush();
    EXPECT_EQ(decodeLibrary(file("library.json")), Library::empty());
    EXPECT_FALSE(store->isHeldAfterCorruption());
}

TEST_F(LibraryStoreTest, DuplicateIdsAreRepairedOnLoadAndWrittenBack)
{
    open().reset();
    Library broken;
    broken.add(webLink("First"));
    Shortcut again = broken.shortcuts[0];
    again.name = "Second";
    broken.add(group("Group", {again}));
    writeFile(dir.file("library.json"), encodeLibrary(broken));

    auto store = open();
    ASSERT_EQ(store->repairs().size(), 1u);
    EXPECT_EQ(store->repairs()[0].kind, Violation::Kind::DuplicateShortcut);
    EXPECT_TRUE(store->library().shortcuts[1].target.members().empty());
    store->flush();
    EXPECT_EQ(decodeLibrary(file("library.json")), store->library());
}

TEST_F(LibraryStoreTest, SessionsAreGatheredFromOlderBarFilesAndColoured)
{
    open().reset();
    std::filesystem::remove(dir.file("sessions.json"));
    SessionID work = SessionID::make();
    writeFile(dir.file("library.json"),
              R"({"schemaVersion": 1, "shortcuts": [], "sessions": [{"id": ")" + work.string()
                  + R"(", "name": "Work"}]})");
    auto store = open();
    ASSERT_EQ(store->sessions().size(), 1u);
    EXPECT_EQ(store->sessions()[0].name, "Work");
    EXPECT_EQ(store->sessions()[0].colour, 0);
    store->flush();
    EXPECT_EQ(decodeSessionIndex(file("sessions.json")).sessions, store->sessions());
}

TEST_F(LibraryStoreTest, AnUnreadableSessionListKeepsEveryLinksSession)
{
    SessionID work;
    {
        auto store = open();
        work = *store->addSession("Work");
        store->mutate([&](Library& l) {
            l.add(webLink("Mail"));
            l.apply(change::Account{work}, l.shortcuts[0].id);
        });
    }
    writeFile(dir.file("sessions.json"), "not json");
    auto store = open();
    EXPECT_TRUE(store->repairs().empty());
    EXPECT_EQ(store->library().shortcuts[0].target.urlTarget()->sessionID, work);
    std::vector<unsigned> told;
    store->observe([&](unsigned changes) { told.push_back(changes); });
    ASSERT_TRUE(store->addSession("Home"));
    // Kept in memory, and the person is told it will not last.
    EXPECT_EQ(store->sessions().size(), 1u);
    EXPECT_EQ(store->saveError(), LibraryStore::heldNotice("sessions.json"));
    EXPECT_THAT(told, ElementsAre(LibraryStore::SaveStateChanged, LibraryStore::SessionsChanged));
    store.reset();
    EXPECT_EQ(file("sessions.json"), "not json");
}

TEST_F(LibraryStoreTest, AnUnreadableBarListIsPutAsideAndWhatItLinksToIsLeftAlone)
{
    for (bool huge : {false, true}) {
        SCOPED_TRACE(huge ? "a gibibyte of holes" : "a link to notes");
        TempDir folder;
        auto notes = folder.file("notes.txt");
        writeFile(notes, "my notes, not a bar list");
        if (huge) {
            std::filesystem::resize_file(notes, std::uintmax_t{1} << 30);
        }
        std::filesystem::create_symlink(notes, folder.file("bars.json"));
        LibraryStore::Options options;
        options.interval = std::chrono::milliseconds(60'000);
        auto before = std::filesystem::file_size(notes);
        {
            LibraryStore store(SupportDirectory{folder.path(), true}, options);
            ASSERT_EQ(store.bars().size(), 1u);
            store.addBar("Work");
        }
        EXPECT_EQ(std::filesystem::file_size(notes), before);
        if (!huge) {
            EXPECT_EQ(readFile(notes), "my notes, not a bar list");
        }
        EXPECT_TRUE(std::filesystem::is_symlink(folder.file("bars.json.unreadable-1")));
        EXPECT_FALSE(std::filesystem::is_symlink(folder.file("bars.json")));
        EXPECT_EQ(decodeBarIndex(readFile(folder.file("bars.json"))).bars.size(), 2u);
    }
}

TEST_F(LibraryStoreTest, BarsAreAddedRenamedMovedSwitchedAndRemoved)
{
    auto store = open();
    BarID first = store->activeBarID();
    store->mutate([](Library& l) { l.add(webLink("On first")); });
    auto work = store->addBar("  Work  ");
    ASSERT_TRUE(work);
    EXPECT_EQ(store->addBar("   "), std::nullopt);
    EXPECT_EQ(store->bars()[1].name, "Work");
    EXPECT_THAT(store->bars()[1].file, ::testing::MatchesRegex("library-[0-9a-f]{8}\\.json"));

    EXPECT_TRUE(store->mutate(*work, [](Library& l) { l.add(webLink("On work")); }));
    EXPECT_EQ(store->library(*work)->shortcuts[0].name, "On work");
    EXPECT_EQ(store->library().shortcuts[0].name, "On first");

    store->activate(*work);
    EXPECT_EQ(store->activeBarID(), *work);
    EXPECT_EQ(store->library().shortcuts[0].name, "On work");
    EXPECT_EQ(store->library(first)->shortcuts[0].name, "On first") << "the switch flushed it";

    EXPECT_TRUE(store->renameBar(*work, "Office"));
    EXPECT_FALSE(store->renameBar(*work, ""));
    store->moveBars({1}, 0);
    EXPECT_EQ(store->bars()[0].name, "Office");

    ShortcutID moving = store->library().shortcuts[0].id;
    EXPECT_TRUE(store->move(moving, first));
    EXPECT_TRUE(store->library().shortcuts.empty());
    EXPECT_EQ(store->library(first)->shortcuts.size(), 2u);
    EXPECT_FALSE(store->move(moving, first)) << "already there";

    // Removing the showing bar shows its neighbour; the last bar stays.
    std::string officeFile = store->activeBar().file;
    EXPECT_EQ(store->removeBar(*work), std::nullopt);
    EXPECT_EQ(store->activeBarID(), first);
    EXPECT_FALSE(exists(officeFile));
    EXPECT_EQ(store->removeBar(first), LibraryStore::kLastBarRefusal);
    store->flush();
    EXPECT_EQ(decodeBarIndex(file("bars.json")), store->barIndex());
    EXPECT_EQ(store->library().shortcuts.size(), 2u);
}

TEST_F(LibraryStoreTest, RemovingASessionSendsItsLinksBackOnEveryBar)
{
    auto store = open();
    SessionID work = *store->addSession("Work");
    SessionID home = *store->addSession("Home");
    EXPECT_NE(store->sessions()[0].colour, store->sessions()[1].colour);
    auto other = *store->addBar("Other");
    auto useSession = [&](SessionID session) {
        return [session](Library& l) {
            l.add(webLink("Linked"));
            l.apply(change::Account{session}, l.shortcuts.back().id);
        };
    };
    store->mutate(useSession(work));
    store->mutate(other, useSession(work));
    store->mutate(other, useSession(home));
    EXPECT_EQ(store->usage(work), 2);
    EXPECT_EQ(store->usage(SessionID::make()), std::nullopt);
    // Counted apart from the store, as the Accounts pane does off the main thread.
    const auto counts = LibraryStore::countUsage(store->usageInputs());
    EXPECT_EQ(counts, (std::unordered_map<SessionID, int>{{work, 2}, {home, 1}}));
    EXPECT_EQ(store->sessionIDsAcrossBars()->size(), 2u);

    store->removeSession(work);
    EXPECT_EQ(store->sessions().size(), 1u);
    EXPECT_EQ(store->usage(home), 1);
    EXPECT_FALSE(store->library(other)->shortcuts[0].target.urlTarget()->sessionID);
    EXPECT_FALSE(store->library().shortcuts[0].target.urlTarget()->sessionID);
    EXPECT_TRUE(store->renameSession(home, "House"));
    EXPECT_EQ(store->sessions()[0].name, "House");
}

TEST_F(LibraryStoreTest, WebsiteDataIsKeptForEverySessionUnlessABarCannotBeRead)
{
    auto store = open();
    EXPECT_EQ(store->sessionIDsToKeep(), std::nullopt) << "nothing was read: a fresh library";
    SessionID kept = *store->addSession("Kept without links");
    SessionID linked = *store->addSession("Linked");
    auto other = *store->addBar("Other");
    store->mutate([](Library& l) { l.add(webLink("Docs")); });
    store->mutate(other, [&](Library& l) {
        l.add(webLink("Mail"));
        l.apply(change::Account{linked}, l.shortcuts.back().id);
    });
    store->flush();
    const auto otherFile = store->bars().back().file;
    store.reset();

    store = open();
    EXPECT_EQ(store->sessionIDsToKeep(), (std::unordered_set<SessionID>{kept, linked}));
    store.reset();

    // The other bar may name any session, so no website data may go.
    writeFile(dir.file(otherFile), "{");
    store = open();
    EXPECT_EQ(store->loadState().kind, LibraryStore::LoadState::Kind::Loaded);
    EXPECT_EQ(store->sessionIDsToKeep(), std::nullopt);
}

TEST_F(LibraryStoreTest, AFailedSaveKeepsTheChangeAndIsHeardOnTheMainQueueUntilASaveSucceeds)
{
    ManualQueue mainQueue;
    LibraryStore::Options options;
    options.interval = std::chrono::milliseconds(60'000);
    options.mainQueue = &mainQueue;
    auto store = std::make_unique<LibraryStore>(SupportDirectory{dir.path(), true}, options);
    std::vector<std::optional<std::string>> heard;
    store->observe([&](unsigned changes) {
        if (changes & LibraryStore::SaveStateChanged) {
            heard.push_back(store->saveError());
        }
    });

    // A folder where the file should be: the rename over it fails, whoever runs the test.
    std::filesystem::create_directory(dir.file("library.json"));
    store->mutate([](Library& l) { l.add(webLink("Mail")); });
    store->flush();
    EXPECT_EQ(store->library().shortcuts.size(), 1u);
    EXPECT_TRUE(heard.empty()) << "told on the main thread only";
    mainQueue.runAll();
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_THAT(heard[0].value_or(""), testing::StartsWith("Could not save “library.json”: "));

    std::filesystem::remove(dir.file("library.json"));
    store->mutate([](Library& l) { l.add(webLink("More")); });
    store->flush();
    mainQueue.runAll();
    EXPECT_EQ(heard.size(), 2u);
    EXPECT_EQ(heard.back(), std::nullopt);
    EXPECT_EQ(decodeLibrary(file("library.json")).shortcuts.size(), 2u);

    store.reset();
    mainQueue.runAll(); // a report that outlives the store is dropped
}

TEST(LibraryStoreFullDisk, AChangeMadeOnAFullDiskReachesItOnceSpaceComesBack)
{
    TempDir dir;
    if (::mount("tmpfs", dir.path().c_str(), "tmpfs", 0, "size=512k,mode=0700") != 0) {
        GTEST_SKIP() << "Mounting a small tmpfs is not allowed here, so a full disk cannot be "
                        "tried.";
    }
    struct Unmount
    {
        std::filesystem::path path;
        ~Unmount() { ::umount2(path.c_str(), MNT_DETACH); }
    } unmount{dir.path()};
    LibraryStore::Options options;
    options.interval = std::chrono::milliseconds(60'000);
    auto store = std::make_unique<LibraryStore>(SupportDirectory{dir.path(), true}, options);
    store->mutate([](Library& l) { l.add(webLink("Mail")); });
    store->flush();
    ASSERT_FALSE(store->saveError());

    // Fill what is left, a block at a time, until the disk refuses.
    const auto filler = dir.file("filler");
    {
        std::FILE* out = std::fopen(filler.c_str(), "wb");
        ASSERT_NE(out, nullptr);
        const std::string block(4096, 'x');
        while (std::fwrite(block.data(), 1, block.size(), out) == block.size()
               && std::fflush(out) == 0) {
        }
        std::fclose(out);
    }
    store->mutate([](Library& l) { l.shortcuts[0].name = "Post"; });
    store->flush();
    ASSERT_TRUE(store->saveError());
    EXPECT_THAT(*store->saveError(), HasSubstr("No space left on device"));
    EXPECT_EQ(decodeLibrary(readFile(dir.file("library.json"))).shortcuts[0].name, "Mail");

    std::filesystem::remove(filler);
    store.reset(); // quitting writes what the full disk refused
    EXPECT_EQ(decodeLibrary(readFile(dir.file("library.json"))).shortcuts[0].name, "Post");
}
