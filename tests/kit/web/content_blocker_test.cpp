// SPDX-License-Identifier: MIT
#include "kit/web/content_blocker.h"

#include "fakes.h"
#include "kit/web/rules_digest.h"
#include "support/manual_scheduler.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

using namespace kit::web;
using testing_support::ManualScheduler;
using testing_support::TempDir;
using testing_support::writeFile;
using web_testing::FakeMainQueue;
using web_testing::FakePage;
using web_testing::FakeRuleListStore;
namespace fs = std::filesystem;

namespace {

constexpr const char* kBundleID = "app.vantorel.Vantorel";
constexpr const char* kRules = R"([{"trigger":{"url-filter":"ads\\."},"action":{"type":"block"}}])";

TEST(RulesDigest, names_the_list_by_the_sha256_of_the_rules)
{
    EXPECT_EQ(sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_NE(sha256Hex(std::string("a\0b", 3)), sha256Hex("a"));
    EXPECT_EQ(ruleListIdentifier(kBundleID, sha256Hex("abc")),
              "app.vantorel.Vantorel.adblock.ba7816bf8f01cfea");
    EXPECT_EQ(ruleListIdentifier("", sha256Hex("abc")), "Vantorel.adblock.ba7816bf8f01cfea");
}

TEST(RulesFile, is_looked_for_in_the_subfolder_first)
{
    TempDir bundle;
    EXPECT_EQ(findRulesFile(bundle.path()), std::nullopt);
    writeFile(bundle.file("adblock-rules.json"), "[]");
    EXPECT_EQ(findRulesFile(bundle.path()), bundle.file("adblock-rules.json"));
    fs::create_directory(bundle.file("AdBlock"));
    writeFile(bundle.path() / "AdBlock" / "adblock-rules.json", "[]");
    EXPECT_EQ(findRulesFile(bundle.path()), bundle.path() / "AdBlock" / "adblock-rules.json");
}

class ContentBlockerTest : public testing::Test
{
protected:
    std::unique_ptr<ContentBlocker> makeBlocker(const std::string& bundleID = kBundleID)
    {
        auto blocker = std::make_unique<ContentBlocker>(
            store, RulesBundle{bundle.path(), bundleID}, background, mainQueue);
        blocker->onChange = [this] { ++changes; };
        return blocker;
    }

    void writeRules(const std::string& rules)
    {
        fs::create_directories(bundle.file("AdBlock"));
        writeFile(bundle.path() / "AdBlock" / "adblock-rules.json", rules);
    }

    // Runs the background work, then what it hands to the main thread.
    void settle()
    {
        background.advance(std::chrono::nanoseconds(0));
        mainQueue.runAll();
    }

    std::unique_ptr<ContentBlocker> prepared()
    {
        auto blocker = makeBlocker();
        blocker->prepare();
        settle();
        return blocker;
    }

    static std::string identifierFor(const std::string& rules)
    {
        return ruleListIdentifier(kBundleID, sha256Hex(rules));
    }

    TempDir bundle;
    FakeRuleListStore store;
    ManualScheduler background;
    FakeMainQueue mainQueue;
    int changes = 0;
};

TEST_F(ContentBlockerTest, compiles_the_rules_under_their_digest)
{
    writeRules(kRules);
    auto blocker = makeBlocker();
    blocker->prepare();
    background.advance(std::chrono::nanoseconds(0));
    EXPECT_FALSE(blocker->isReady()) << "state changed off the main thread";
    mainQueue.runAll();

    EXPECT_TRUE(blocker->isReady());
    EXPECT_EQ(blocker->lastError(), std::nullopt);
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(store.compiledText[identifierFor(kRules)], kRules);
}

struct FailureCase
{
    const char* name;
    std::function<void(const TempDir&)> arrange;
    std::string message;
};

void PrintTo(const FailureCase& c, std::ostream* out)
{
    *out << c.name;
}

class ContentBlockerFailure : public ContentBlockerTest,
                              public testing::WithParamInterface<FailureCase>
{};

TEST_P(ContentBlockerFailure, leaves_pages_unblocked_and_says_why)
{
    GetParam().arrange(bundle);
    testing::internal::CaptureStderr();
    auto blocker = prepared();
    std::string log = testing::internal::GetCapturedStderr();

    EXPECT_FALSE(blocker->isReady());
    EXPECT_EQ(blocker->lastError(), GetParam().message);
    EXPECT_NE(log.find(GetParam().message), std::string::npos) << log;
    EXPECT_EQ(changes, 1);

    auto page = std::make_shared<FakePage>();
    blocker->apply(page, true);
    EXPECT_EQ(page->adds, 0);
    EXPECT_EQ(page->removals, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Rules,
    ContentBlockerFailure,
    testing::Values(
        FailureCase{
            "Missing", [](const TempDir&) {}, "The blocking rules are missing from this build."},
        FailureCase{"Unreadable",
                    [](const TempDir& bundle) {
                        // A folder in the file's place cannot be read, even by root.
                        fs::create_directories(bundle.path() / "AdBlock" / "adblock-rules.json");
                    },
                    "The blocking rules could not be read: Is a directory"},
        FailureCase{
            "Uncompilable",
            [](const TempDir& bundle) { writeFile(bundle.file("adblock-rules.json"), "broken"); },
            "The blocking rules could not be compiled: Rule list compilation failed: "
            "unexpected token."}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ContentBlockerTest, pages_that_asked_early_get_the_list_once_it_is_ready)
{
    writeRules(kRules);
    auto blocker = makeBlocker();
    blocker->prepare();

    auto early = std::make_shared<FakePage>();
    auto closed = std::make_shared<FakePage>();
    auto changedMind = std::make_shared<FakePage>();
    blocker->apply(early, true);
    blocker->apply(closed, true);
    blocker->apply(changedMind, true);
    blocker->apply(changedMind, false);
    EXPECT_EQ(early->adds, 0);
    EXPECT_EQ(blocker->waitingCount(), 2U);
    closed.reset();
    EXPECT_EQ(blocker->waitingCount(), 1U);

    settle();
    EXPECT_EQ(early->adds, 1);
    ASSERT_EQ(early->lists.size(), 1U);
    EXPECT_EQ(early->lists[0]->identifier(), identifierFor(kRules));
    EXPECT_EQ(changedMind->adds, 0);
    EXPECT_EQ(changedMind->removals, 0);
    EXPECT_EQ(blocker->waitingCount(), 0U);

    blocker->apply(early, true);
    EXPECT_EQ(early->adds, 1);
}

TEST_F(ContentBlockerTest, applying_touches_a_page_only_when_its_state_changes)
{
    writeRules(kRules);
    auto blocker = prepared();
    auto page = std::make_shared<FakePage>();

    blocker->apply(page, false);
    EXPECT_EQ(page->removals, 0) << "nothing was ever added";
    blocker->apply(page, true);
    blocker->apply(page, true);
    EXPECT_EQ(page->adds, 1);
    blocker->apply(page, false);
    blocker->apply(page, false);
    EXPECT_EQ(page->removals, 1);
    blocker->apply(page, true);
    EXPECT_EQ(page->adds, 2);
}

TEST_F(ContentBlockerTest, prepares_once_and_not_after_destruction)
{
    writeRules(kRules);
    auto blocker = makeBlocker();
    blocker->prepare();
    blocker->prepare();
    EXPECT_EQ(background.scheduledCount(), 1U);
    blocker.reset();
    settle();
    EXPECT_EQ(changes, 0);
}

} // namespace
