// SPDX-License-Identifier: MIT
#include "kit/blocking/disk_rule_list_store.h"

#include "kit/web/content_blocker.h"
#include "kit/web/rules_digest.h"
#include "support/manual_queue.h"
#include "support/manual_scheduler.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

using namespace kit::blocking;
using testing_support::TempDir;
using testing_support::writeFile;

namespace {

constexpr const char* kRules =
    R"([{"trigger":{"url-filter":"ads\\."},"action":{"type":"block"}},
        {"trigger":{"url-filter":".*","if-domain":["*site.com"]},
         "action":{"type":"css-display-none","selector":".promo"}}])";

class DiskRuleListStoreTest : public testing::Test
{
protected:
    TempDir dir;
    DiskRuleListStore store{dir.path() / "RuleLists", dir.file("no-suffix-list")};

    static const Matcher& matcherOf(const kit::web::ContentRuleListPtr& list)
    {
        auto compiled = std::dynamic_pointer_cast<const CompiledRuleList>(list);
        EXPECT_TRUE(compiled);
        return *compiled->matcher();
    }
};

TEST_F(DiskRuleListStoreTest, ADamagedCacheCountsAsAbsent)
{
    ASSERT_TRUE(store.compile("app.adblock.1", kRules).list);
    // Another store, as at the next launch, finds the list and it still decides.
    auto found = DiskRuleListStore(dir.path() / "RuleLists").lookUp("app.adblock.1");
    ASSERT_TRUE(found);
    const Matcher& matcher = matcherOf(found);
    EXPECT_TRUE(matcher.decide({"https://ads.example/x", "", ResourceType::Image}).block);
    EXPECT_EQ(matcher.hiddenSelectors("https://site.com/"), std::vector<std::string>{".promo"});
    auto file = dir.path() / "RuleLists" / "app.adblock.1.rules";
    std::string bytes = testing_support::readFile(file);
    bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
    writeFile(file, bytes);
    EXPECT_FALSE(store.lookUp("app.adblock.1"));
    writeFile(file, "");
    EXPECT_FALSE(store.lookUp("app.adblock.1"));
}

TEST_F(DiskRuleListStoreTest, BadRulesFailWithTheReasonAndLeaveNoFile)
{
    auto compiled = store.compile("app.adblock.1", R"([{"trigger":{},"action":{"type":"block"}}])");
    EXPECT_FALSE(compiled.list);
    EXPECT_EQ(compiled.error, "Rule 1 has no url-filter.");
    EXPECT_TRUE(store.identifiers().empty());
}

TEST_F(DiskRuleListStoreTest, ListsAndRemovesOnlyRuleLists)
{
    ASSERT_TRUE(store.compile("app.adblock.1", kRules).list);
    ASSERT_TRUE(store.compile("other.adblock.9", kRules).list);
    writeFile(dir.path() / "RuleLists" / "notes.txt", "x");
    writeFile(dir.path() / "RuleLists" / ".app.adblock.2.rules.Ab12Cd.tmp", "x");
    EXPECT_EQ(store.identifiers(), (std::vector<std::string>{"app.adblock.1", "other.adblock.9"}));

    EXPECT_TRUE(store.remove("app.adblock.1"));
    EXPECT_FALSE(store.remove("app.adblock.1"));
    EXPECT_FALSE(store.lookUp("app.adblock.1"));
    EXPECT_EQ(store.identifiers(), std::vector<std::string>{"other.adblock.9"});
}

TEST_F(DiskRuleListStoreTest, IdentifiersCannotLeaveTheFolder)
{
    writeFile(dir.file("outside.rules"), "x");
    EXPECT_FALSE(store.compile("../outside", kRules).list);
    EXPECT_FALSE(store.remove("../outside"));
    EXPECT_FALSE(store.lookUp("../outside"));
    EXPECT_TRUE(std::filesystem::exists(dir.file("outside.rules")));
}

// The content blocker over the real store: one compile per rules file, across launches, and the
// lists of earlier builds pruned while other applications' lists stay.
class ContentBlockerOnDisk : public testing::Test
{
protected:
    TempDir bundle;
    TempDir support;
    testing_support::ManualScheduler background;
    testing_support::ManualQueue mainQueue;

    bool launch(const std::string& rules)
    {
        std::filesystem::create_directories(bundle.path() / "AdBlock");
        writeFile(bundle.path() / "AdBlock" / "adblock-rules.json", rules);
        DiskRuleListStore store(support.path());
        kit::web::ContentBlocker blocker(store, {bundle.path(), "app"}, background, mainQueue);
        blocker.prepare();
        background.advance(std::chrono::nanoseconds(0));
        mainQueue.runAll();
        return blocker.isReady();
    }

    std::filesystem::path fileFor(const std::string& rules)
    {
        return support.path()
               / (kit::web::ruleListIdentifier("app", kit::web::sha256Hex(rules)) + ".rules");
    }
};

TEST_F(ContentBlockerOnDisk, CompilesOncePerRulesAndPrunesOlderBuilds)
{
    ASSERT_TRUE(launch(kRules));
    auto first = fileFor(kRules);
    ASSERT_TRUE(std::filesystem::exists(first));
    auto written = std::filesystem::last_write_time(first);
    // Other applications' lists, one whose name merely starts like ours among them, are kept.
    const char* others[] = {"other.adblock.0123456789abcdef.rules",
                            "appBeta.adblock.0123456789abcdef.rules",
                            "app.adblockers.rules"};
    for (const char* other : others) {
        writeFile(support.file(other), "kept");
    }

    ASSERT_TRUE(launch(kRules));
    EXPECT_EQ(std::filesystem::last_write_time(first), written);

    std::string changed = R"([{"trigger":{"url-filter":"track"},"action":{"type":"block"}}])";
    ASSERT_TRUE(launch(changed));
    EXPECT_FALSE(std::filesystem::exists(first));
    EXPECT_TRUE(std::filesystem::exists(fileFor(changed)));
    for (const char* other : others) {
        EXPECT_TRUE(std::filesystem::exists(support.file(other))) << other;
    }
}

TEST(DiskRuleListStore, AMissingFolderHasNoLists)
{
    DiskRuleListStore store("/nonexistent/vantorel/rules");
    EXPECT_TRUE(store.identifiers().empty());
    EXPECT_FALSE(store.lookUp("x"));
}

} // namespace
