// SPDX-License-Identifier: MIT
#include "kit/web/session_stores.h"

#include "fakes.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

using namespace kit::web;
using kit::library::SessionID;
using web_testing::FakeDataStore;
using web_testing::FakeWebEngine;

namespace {

class SessionStoresTest : public testing::Test
{
protected:
    static const FakeDataStore& fake(const DataStorePtr& store)
    {
        return static_cast<const FakeDataStore&>(*store);
    }

    FakeWebEngine engine;
    SessionStores stores{engine};
    SessionID work = SessionID::make();
    SessionID home = SessionID::make();
};

TEST_F(SessionStoresTest, a_session_gets_the_store_named_by_its_id_once_and_none_the_default)
{
    EXPECT_EQ(stores.store(std::nullopt), engine.defaultStore);
    auto first = stores.store(work);
    EXPECT_EQ(fake(first).identifier, work.uuid);
    EXPECT_EQ(stores.store(work), first);
    EXPECT_NE(stores.store(home), first);
    EXPECT_EQ(engine.storesMade, 2);
}

TEST_F(SessionStoresTest, the_all_zero_id_uses_the_default_store_and_says_so)
{
    SessionID zero{};
    testing::internal::CaptureStderr();
    auto store = stores.store(zero);
    std::string log = testing::internal::GetCapturedStderr();

    EXPECT_EQ(store, engine.defaultStore);
    EXPECT_EQ(engine.storesMade, 0);
    EXPECT_EQ(stores.cachedCount(), 0U);
    EXPECT_NE(log.find("session 00000000-0000-0000-0000-000000000000 has an unusable id; using "
                       "the default store"),
              std::string::npos)
        << log;

    bool removed = false;
    stores.deleteStore(zero, [&removed](bool ok) { removed = ok; });
    engine.finish();
    EXPECT_TRUE(removed);
    EXPECT_TRUE(engine.defaultStore != nullptr);
}

TEST_F(SessionStoresTest, clearing_data_keeps_the_store_and_leaves_others_alone)
{
    engine.records[work.uuid] = 4;
    engine.records[home.uuid] = 2;
    auto kept = stores.store(work);
    stores.store(home);

    std::optional<int> count;
    stores.siteCount(work, [&count](int n) { count = n; });
    engine.finish();
    EXPECT_EQ(count, 4);

    bool cleared = false;
    stores.clearData(work, [&cleared] { cleared = true; });
    EXPECT_FALSE(cleared) << "the engine has not answered yet";
    engine.finish();
    EXPECT_TRUE(cleared);

    stores.siteCount(work, [&count](int n) { count = n; });
    engine.finish();
    EXPECT_EQ(count, 0);
    EXPECT_EQ(stores.store(work), kept);
    EXPECT_TRUE(engine.held.contains(work.uuid));
    stores.siteCount(home, [&count](int n) { count = n; });
    engine.finish();
    EXPECT_EQ(count, 2);
}

TEST_F(SessionStoresTest, deleting_removes_the_store_unless_the_engine_refuses_which_is_logged)
{
    auto kept = stores.store(home);
    stores.store(work);
    engine.refusesRemoval.insert(home.uuid);
    std::optional<bool> removed;
    std::optional<bool> refused;
    testing::internal::CaptureStderr();
    stores.deleteStore(work, [&removed](bool ok) { removed = ok; });
    stores.deleteStore(home, [&refused](bool ok) { refused = ok; });
    engine.finish();
    std::string log = testing::internal::GetCapturedStderr();

    EXPECT_EQ(removed, true);
    EXPECT_FALSE(engine.held.contains(work.uuid));
    EXPECT_EQ(refused, false);
    EXPECT_NE(log.find("cannot remove session " + home.string() + ": the store is in use"),
              std::string::npos)
        << log;
    EXPECT_EQ(stores.cachedCount(), 1U);
    EXPECT_EQ(stores.store(home), kept);
}

TEST_F(SessionStoresTest, orphans_are_removed_and_sessions_in_use_kept)
{
    SessionID gone = SessionID::make();
    SessionID stuck = SessionID::make();
    engine.held = {work.uuid, home.uuid, gone.uuid, stuck.uuid};
    engine.refusesRemoval.insert(stuck.uuid);

    std::optional<int> removed;
    testing::internal::CaptureStderr();
    stores.removeOrphans({work, home}, [&removed](int n) { removed = n; });
    engine.finish();
    testing::internal::GetCapturedStderr();

    EXPECT_EQ(removed, 1);
    EXPECT_EQ(engine.held, (std::set<kit::support::Uuid>{work.uuid, home.uuid, stuck.uuid}));

    stores.removeOrphans({work, home, stuck}, [&removed](int n) { removed = n; });
    engine.finish();
    EXPECT_EQ(removed, 0);
}

TEST(SessionStoresLifetime, answers_arriving_after_destruction_are_dropped)
{
    FakeWebEngine engine;
    bool answered = false;
    {
        SessionStores stores{engine};
        const SessionID work = SessionID::make();
        stores.deleteStore(work, [&answered](bool) { answered = true; });
        stores.siteCount(work, [&answered](int) { answered = true; });
        stores.clearData(work, [&answered] { answered = true; });
    }
    engine.finish();
    EXPECT_FALSE(answered);
}

} // namespace
