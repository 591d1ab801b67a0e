// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/fixtures.h"
#include "kit/storage/library_store.h"
#include "kit/support/main_queue.h"
#include "kit/tools/tool_service.h"
#include "support/manual_scheduler.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace testing_support {

// Keeps time for the tasks posted to it: advance() runs those falling due, in time order.
class ClockQueue final : public kit::support::MainQueue
{
public:
    void post(std::function<void()> task) override { m_clock.after({}, std::move(task)); }
    void postAfter(std::chrono::milliseconds delay, std::function<void()> task) override
    {
        m_clock.after(delay, std::move(task));
    }
    void advance(std::chrono::milliseconds by) { m_clock.advance(by); }

private:
    ManualScheduler m_clock;
};

class FixedIcons final : public kit::tools::IconProvider
{
public:
    explicit FixedIcons(std::vector<kit::tools::IconEntry> icons)
        : m_icons(std::make_shared<const std::vector<kit::tools::IconEntry>>(std::move(icons)))
    {}
    kit::tools::IconList icons() override { return m_icons; }

private:
    kit::tools::IconList m_icons;
};

// A store in a temporary folder with two bars. The showing bar "Work" holds: Mail (a group with
// Inbox, which uses the account "Personal", and the group Clients with Acme), Docs, a divider,
// Calculator (an app) and Report (a file). The bar "Home" holds News.
class ToolsTest : public ::testing::Test
{
protected:
    ToolsTest()
    {
        kit::storage::LibraryStore::Options options;
        options.interval = std::chrono::milliseconds(60'000);
        store = std::make_unique<kit::storage::LibraryStore>(
            kit::storage::SupportDirectory{dir.path(), true}, options);
        work = store->activeBarID();
        store->renameBar(work, "Work");
        personal = *store->addSession("Personal");
        home = *store->addBar("Home");

        inbox = webLink("Inbox", "https://mail.example.com/inbox");
        inbox.target.urlTarget()->sessionID = personal;
        acme = webLink("Acme", "https://acme.example.org/");
        clients = group("Clients", {acme});
        mail = group("Mail", {inbox, clients});
        docs = webLink("Docs", "https://docs.example.com/");
        divider = Shortcut::make("", Target::divider());
        calculator =
            Shortcut::make("Calculator", Target::app(AppTarget{"org.gnome.Calculator", {}}));
        report = fileShortcut("Report", "/home/someone/report.pdf");
        store->mutate([&](Library& l) {
            for (const auto& s : {mail, docs, divider, calculator, report}) {
                l.add(s);
            }
        });
        news = webLink("News", "https://news.example.net/");
        store->mutate(home, [&](Library& l) { l.add(news); });

        apps = std::make_shared<kit::tools::InstalledApps>(
            std::vector<std::filesystem::path>{dir.path() / "no-data"});
        icons = std::make_shared<FixedIcons>(std::vector<kit::tools::IconEntry>{
            {"go-next", "Actions"},
            {"go-previous", "Actions"},
            {"mail-send", "Actions"},
            {"folder", "Places"},
            {"user-home", "Places"},
            {"battery", "Status"},
        });
        kit::tools::ToolService::Bindings bindings;
        bindings.appVersion = "1.2.3";
        bindings.allowsWrites = [this] { return writesAllowed; };
        bindings.onProposal = [this](kit::proposal::Proposal proposal,
                                     kit::proposal::ProposalInbox::DecisionCallback callback) {
            proposals.push_back(std::move(proposal));
            decide.push_back(std::move(callback));
        };
        bindings.openShortcut = [this](const Shortcut& shortcut, const BarID& bar) {
            opened.emplace_back(shortcut.id, bar);
            return openSucceeds;
        };
        service = std::make_unique<kit::tools::ToolService>(*store, queue, apps, icons, bindings);
    }

    // Every call but a waiting write completes at once.
    std::vector<kit::mcp::ToolResult> call(const std::string& name,
                                           std::optional<std::string> arguments = {})
    {
        std::vector<kit::mcp::ToolResult> results;
        service->call(name, arguments, "An assistant", [&results](kit::mcp::ToolResult result) {
            results.push_back(std::move(result));
        });
        return results;
    }

    kit::mcp::ToolResult one(const std::string& name, std::optional<std::string> arguments = {})
    {
        auto results = call(name, std::move(arguments));
        EXPECT_EQ(results.size(), 1u) << name;
        return results.empty() ? kit::mcp::ToolResult::failure("no result") : results.front();
    }

    nlohmann::json answer(const std::string& name, std::optional<std::string> arguments = {})
    {
        auto result = one(name, std::move(arguments));
        EXPECT_TRUE(result.ok()) << result.text();
        return result.ok() ? nlohmann::json::parse(result.text()) : nlohmann::json();
    }

    std::string failure(const std::string& name, std::optional<std::string> arguments = {})
    {
        auto result = one(name, std::move(arguments));
        EXPECT_FALSE(result.ok()) << result.text();
        return result.text();
    }

    // The text with each "$Name" of a shortcut above replaced by its id.
    std::string withIds(std::string text) const
    {
        const std::pair<std::string, const Shortcut*> named[] = {
            {"$Inbox", &inbox},
            {"$Acme", &acme},
            {"$Clients", &clients},
            {"$Mail", &mail},
            {"$Docs", &docs},
            {"$Divider", &divider},
            {"$Calculator", &calculator},
            {"$Report", &report},
            {"$News", &news},
        };
        for (const auto& [token, shortcut] : named) {
            for (size_t at; (at = text.find(token)) != std::string::npos;) {
                text.replace(at, token.size(), shortcut->id.string());
            }
        }
        return text;
    }

    TempDir dir;
    std::unique_ptr<kit::storage::LibraryStore> store;
    BarID work;
    BarID home;
    SessionID personal;
    Shortcut inbox, acme, clients, mail, docs, divider, calculator, report, news;

    ClockQueue queue;
    std::shared_ptr<kit::tools::InstalledApps> apps;
    std::shared_ptr<FixedIcons> icons;
    std::unique_ptr<kit::tools::ToolService> service;
    bool writesAllowed = true;
    bool openSucceeds = true;
    std::vector<kit::proposal::Proposal> proposals;
    std::vector<kit::proposal::ProposalInbox::DecisionCallback> decide;
    std::vector<std::pair<ShortcutID, BarID>> opened;
};

// Writes the file, making its folders first.
inline void put(const std::filesystem::path& file, std::string_view contents)
{
    std::filesystem::create_directories(file.parent_path());
    writeFile(file, contents);
}

inline std::string idOf(const Shortcut& shortcut)
{
    return shortcut.id.string();
}

} // namespace testing_support
