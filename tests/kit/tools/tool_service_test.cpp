// SPDX-License-Identifier: MIT
#include "kit/tools/tool_service.h"

#include "kit/support/run_loop.h"
#include "kit/tools/read_tools.h"
#include "kit/tools/tools_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace testing_support;
using kit::mcp::ToolError;
using kit::proposal::ProposalInbox;
using kit::tools::ToolService;
using nlohmann::json;
using ::testing::ElementsAre;

namespace {

class ToolServiceTest : public ToolsTest
{
protected:
    std::string rename(const Shortcut& shortcut, const std::string& name)
    {
        return R"({"id":")" + idOf(shortcut) + R"(","name":")" + name + R"("})";
    }
};

TEST_F(ToolServiceTest, WithWritesOffReadingWorksAndEverythingElseAnswersWritesOff)
{
    writesAllowed = false;
    EXPECT_TRUE(one("list_bars").ok());
    const std::string off = ToolError::writesOff().message();
    EXPECT_EQ(failure("switch_bar", R"({"bar":"Home"})"), off);
    EXPECT_EQ(failure("add_bar", R"({"name":"Travel"})"), off);
    // The gate comes before parsing.
    EXPECT_EQ(failure("open_shortcut", "not json"), off);
    EXPECT_EQ(failure("create_apple_shortcut", R"({"name":"x"})"), off);
    EXPECT_TRUE(proposals.empty());
    EXPECT_EQ(store->activeBarID(), work);
}

TEST_F(ToolServiceTest, ServerToolsAndUnknownNamesAreUnknownTools)
{
    EXPECT_EQ(failure("create_apple_shortcut", R"({"name":"x"})"),
              "There is no tool called “create_apple_shortcut”.");
}

TEST_F(ToolServiceTest, AProposalThatChangesNothingAnswersAtOnceAndShowsNothing)
{
    auto a = answer("rename_shortcut", rename(docs, "Docs"));
    EXPECT_EQ(a["status"], "nothing");
    EXPECT_EQ(a["message"],
              kit::tools::WriteTools::message(kit::tools::WriteTools::Status::Nothing));
    EXPECT_EQ(a["items"][0]["verdict"], "already there");
    EXPECT_TRUE(proposals.empty());
}

TEST_F(ToolServiceTest, AWriteWaitsForTheDecisionAndAnswersOnce)
{
    auto results = call("rename_shortcut", rename(docs, "Documents"));
    EXPECT_TRUE(results.empty());
    ASSERT_EQ(proposals.size(), 1u);
    EXPECT_EQ(proposals[0].source, "An assistant");

    std::vector<kit::mcp::ToolResult> answers;
    service->call("rename_shortcut", rename(acme, "Acme Ltd"), "An assistant", [&](auto result) {
        answers.push_back(std::move(result));
    });
    decide[1](ProposalInbox::Decision{ProposalInbox::Decision::Kind::Declined, {}, {}, {}});
    queue.advance(std::chrono::minutes(5));
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(json::parse(answers[0].text())["status"], "declined");
}

TEST_F(ToolServiceTest, ADecisionAfterTheServiceIsGoneStillAnswers)
{
    std::vector<kit::mcp::ToolResult> answers;
    service->call("rename_shortcut", rename(docs, "Documents"), "An assistant", [&](auto result) {
        answers.push_back(std::move(result));
    });
    service.reset();
    decide[0](ProposalInbox::Decision{ProposalInbox::Decision::Kind::Declined, {}, {}, {}});
    queue.advance(std::chrono::minutes(5));
    EXPECT_EQ(answers.size(), 1u);
}

// The decision and the end of the wait race on a real main loop, the decision told from another
// thread as a careless caller might: whichever wins, the call answers exactly once.
TEST_F(ToolServiceTest, ADecisionRacingTheEndOfTheWaitAnswersOnce)
{
    kit::support::RunLoop loop;
    ToolService::Bindings bindings = service->bindings();
    bindings.decisionWait = std::chrono::milliseconds(1);
    ToolService racing(*store, loop, apps, icons, bindings);
    constexpr int kRounds = 50;
    std::atomic<int> answered{0};
    std::atomic<int> doubled{0};
    std::vector<std::thread> deciders;
    for (int round = 0; round < kRounds; ++round) {
        auto once = std::make_shared<std::atomic<int>>(0);
        racing.call("rename_shortcut",
                    rename(docs, "Documents " + std::to_string(round)),
                    "An assistant",
                    [&, once](kit::mcp::ToolResult result) {
                        auto status = json::parse(result.text())["status"];
                        EXPECT_TRUE(status == "waiting" || status == "declined") << status;
                        doubled += once->fetch_add(1) > 0 ? 1 : 0;
                        ++answered;
                    });
        auto callback = decide.back();
        deciders.emplace_back([callback, round] {
            std::this_thread::sleep_for(std::chrono::microseconds(round * 40));
            callback(ProposalInbox::Decision{ProposalInbox::Decision::Kind::Declined, {}, {}, {}});
        });
        loop.runFor(std::chrono::milliseconds(round % 3));
    }
    for (auto& decider : deciders) {
        decider.join();
    }
    loop.runUntil([&] { return answered == kRounds; }, std::chrono::seconds(5));
    EXPECT_EQ(answered, kRounds);
    EXPECT_EQ(doubled, 0);
}

// Through the real inbox: applying writes the change, and a second proposal replaces the first.
class ToolServiceInboxTest : public ToolServiceTest
{
protected:
    ToolServiceInboxTest()
    {
        service->bindings().onProposal = [this](kit::proposal::Proposal proposal,
                                                ProposalInbox::DecisionCallback callback) {
            inbox.receive(std::move(proposal), std::move(callback), *store);
        };
    }

    std::vector<kit::mcp::ToolResult> answers;
    ToolService::Completion record()
    {
        return [this](kit::mcp::ToolResult result) { answers.push_back(std::move(result)); };
    }

    ProposalInbox inbox;
};

TEST_F(ToolServiceInboxTest, ASecondProposalReplacesTheFirst)
{
    service->call("rename_shortcut", rename(docs, "Documents"), "An assistant", record());
    service->call("rename_shortcut", rename(acme, "Acme Ltd"), "An assistant", record());
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(json::parse(answers[0].text())["status"], "replaced");
    inbox.dismiss();
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(json::parse(answers[1].text())["status"], "declined");
    queue.advance(std::chrono::minutes(5));
    EXPECT_EQ(answers.size(), 2u);
}

TEST_F(ToolServiceTest, SwitchBarShowsTheBarEvenWhenItIsShowing)
{
    EXPECT_EQ(answer("switch_bar", R"({"bar":"home"})")["message"],
              "The menu bar is showing “Home”.");
    EXPECT_EQ(store->activeBarID(), home);
    // Action answers are pretty-printed.
    EXPECT_EQ(one("switch_bar", R"({"bar":"Home"})").text(),
              "{\n  \"done\": true,\n  \"message\": \"The menu bar is showing “Home”.\"\n}");
}

TEST_F(ToolServiceTest, OpenShortcutOpensThroughTheBindingAndSaysSo)
{
    EXPECT_EQ(answer("open_shortcut", R"({"id":")" + idOf(news) + R"("})")["message"],
              "Opened “News”.");
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0], std::make_pair(news.id, home));

    openSucceeds = false;
    auto failed = one("open_shortcut", R"({"id":")" + idOf(acme) + R"(","bar":"work"})");
    EXPECT_TRUE(failed.ok()); // a failed open is an answer
    EXPECT_EQ(json::parse(failed.text()),
              (json{{"done", false},
                    {"message", "“Acme” could not be opened; what it points at may be missing."}}));
}

struct Refusal
{
    const char* tool;
    const char* arguments; // nullptr for none; "$Name" stands for that shortcut's id
    std::string message;
};

TEST_F(ToolServiceTest, RefusalsSayWhatWasWrong)
{
    const std::string read = "The arguments could not be read: ";
    const std::string noNews = "There is no shortcut with the id $News on that bar.";
    const Refusal rows[] = {
        {"list_shortcuts",
         R"({"bar":"nope"})",
         "There is no bar “nope”. list_bars says which there are."},
        {"get_shortcut", R"({"id":"$News","bar":"Work"})", noNews},
        {"search_shortcuts", nullptr, read + "query is required."},
        {"search_shortcuts", R"({"query":3})", read + "query must be a string, but is number."},
        {"open_shortcut", R"({"id":"$Divider"})", read + "A divider opens nothing."},
        {"open_shortcut",
         R"({"id":"$Mail"})",
         read + "“Mail” is a group; open one of its members, from list_shortcuts."},
        {"open_shortcut", R"({"id":"$News","bar":"Work"})", noNews},
        {"switch_bar", "{}", read + "bar is required."},
        {"switch_bar",
         R"({"bar":"Attic"})",
         "There is no bar “Attic”. list_bars says which there are."},
        {"add_shortcuts", R"({"shortcuts":[]})", read + "shortcuts is empty."},
        {"add_shortcuts", R"({"shortcuts":[{"name":"x"}]})", read + "key \"target\" is missing"},
        {"add_shortcuts",
         R"({"bar":"Nope","shortcuts":[{"target":{"kind":"divider"}}]})",
         "There is no bar “Nope”. list_bars says which there are."},
        {"add_group", R"({"name":"  "})", read + "A group needs a name."},
        {"set_open_mode",
         R"({"id":"$Calculator","openMode":"window"})",
         read + "“Calculator” is not a link; only a link has an open mode."},
        {"set_open_mode",
         R"({"id":"$Docs","openMode":"sideways"})",
         read + "openMode must be one of system, popover, window, but is “sideways”."},
        {"set_icon",
         R"({"id":"$Docs","colour":"red"})",
         read + "“red” is not a colour; use #RRGGBB."},
        {"show_in_menu_bar",
         R"({"id":"$Acme","shown":false})",
         read + "“Acme” is inside a group; it is behind the group's icon either way."},
        {"set_account",
         R"({"id":"$Report","session":"Work"})",
         read + "“Report” is not a link; only a link has an account."},
        {"move_shortcut",
         R"({"id":"$Docs","group":"$Calculator"})",
         read + "$Calculator is not a group id."},
        {"remove_shortcuts", R"({"ids":[]})", read + "ids is empty."},
        {"remove_shortcuts", R"({"ids":["$News"]})", noNews},
        {"propose",
         R"({"bars":[{"shortcuts":[{"target":{"kind":"teleport"}}]}]})",
         read + "unknown target kind: teleport"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.tool) + " " + (row.arguments ? row.arguments : ""));
        const auto arguments = row.arguments ? std::optional(withIds(row.arguments)) : std::nullopt;
        EXPECT_EQ(failure(row.tool, arguments), withIds(row.message));
    }
    EXPECT_TRUE(opened.empty());
    EXPECT_TRUE(proposals.empty());
}

// The picture of the bars is kept between calls; every change of the store must show at once.
TEST_F(ToolServiceTest, ReadsSeeEachChangeOfTheStore)
{
    for (const char* read : {"list_bars", "list_shortcuts", "list_sessions"}) {
        answer(read);
    }
    store->addBar("Later");
    EXPECT_EQ(answer("list_bars")["bars"].back()["name"], "Later");
    store->mutate([](Library& l) { l.add(testing_support::webLink("Fresh")); });
    EXPECT_EQ(answer("list_shortcuts")["shortcuts"].back()["name"], "Fresh");
    store->addSession("Second account");
    EXPECT_EQ(answer("list_sessions")["sessions"].size(), 2u);
    // Kept answers are per arguments: another bar's list is not the showing one's.
    EXPECT_EQ(answer("list_shortcuts", R"({"bar":"Later"})")["bar"], "Later");
    EXPECT_EQ(answer("list_shortcuts")["bar"], "Work");
}

// A caller that waits on the person: it hears progress on the clock, and may take the call back.
class ToolServiceWaitingTest : public ToolServiceInboxTest
{
protected:
    ToolServiceWaitingTest()
    {
        service->bindings().withdrawProposal = [this] { inbox.withdraw(); };
    }

    void propose(const std::string& key, const std::string& name)
    {
        service->call("rename_shortcut",
                      rename(docs, name),
                      "An assistant",
                      record(),
                      {key, [this](std::chrono::milliseconds waited) { heard.push_back(waited); }});
    }

    std::vector<std::chrono::milliseconds> heard;
};

using std::chrono::seconds;

TEST_F(ToolServiceWaitingTest, ProgressComesEveryTenSecondsUntilTheDecision)
{
    propose("1 7", "Documents");
    queue.advance(seconds(9));
    EXPECT_TRUE(heard.empty());
    queue.advance(seconds(21));
    EXPECT_THAT(heard, ElementsAre(seconds(10), seconds(20), seconds(30)));
    ASSERT_TRUE(inbox.apply(*store));
    ASSERT_EQ(answers.size(), 1u);
    auto applied = json::parse(answers[0].text());
    EXPECT_EQ(applied["status"], "applied");
    EXPECT_EQ(applied["items"][0]["verdict"], "changed");
    EXPECT_EQ(store->library().shortcut(docs.id)->name, "Documents");
    queue.advance(seconds(200));
    EXPECT_EQ(heard.size(), 3u);
    EXPECT_EQ(answers.size(), 1u);
}

TEST_F(ToolServiceWaitingTest, TheWaitRunningOutAnswersWaitingEndsProgressAndDropsALaterDecision)
{
    propose("1 7", "Documents");
    queue.advance(seconds(119));
    EXPECT_TRUE(answers.empty());
    queue.advance(seconds(181));
    EXPECT_EQ(heard.size(), 11u); // 10 s to 110 s
    ASSERT_EQ(answers.size(), 1u);
    auto waiting = json::parse(answers[0].text());
    EXPECT_EQ(waiting["status"], "waiting");
    EXPECT_EQ(waiting["title"], "Rename “Docs”");
    inbox.apply(*store);
    EXPECT_EQ(answers.size(), 1u);
}

TEST_F(ToolServiceWaitingTest, WithdrawingTakesOnlyItsOwnWaitingProposalBack)
{
    propose("1 7", "Documents");
    service->withdraw("2 7"); // another client's request of the same id
    EXPECT_TRUE(inbox.isPending());
    service->withdraw("1 7");
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_TRUE(answers[0].isWithdrawn());
    EXPECT_FALSE(inbox.isPending());
    EXPECT_EQ(inbox.notice(), ProposalInbox::kWithdrawn);
    queue.advance(seconds(300));
    EXPECT_EQ(answers.size(), 1u);
    EXPECT_TRUE(heard.empty());

    // Once replaced, a call no longer owns the review: withdrawing it leaves the newer one.
    propose("1 8", "Papers");
    propose("1 9", "Files");
    service->withdraw("1 8");
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_EQ(json::parse(answers[1].text())["status"], "replaced");
    EXPECT_TRUE(inbox.isPending());
    EXPECT_FALSE(inbox.notice());
}

} // namespace
