// SPDX-License-Identifier: MIT
#pragma once

#include "kit/mcp/tool_error.h"
#include "kit/proposal/proposal_inbox.h"
#include "kit/support/main_queue.h"
#include "kit/tools/action_tools.h"
#include "kit/tools/icon_provider.h"
#include "kit/tools/installed_apps.h"
#include "kit/tools/tool_context.h"
#include "kit/tools/write_tools.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace kit::storage {
class LibraryStore;
}

namespace kit::tools {

// Carries out the assistants' tool calls against the running app: read tools first, then the
// writes gate, then the action and write tools. Main thread only. Every call completes exactly
// once; a write call completes when the person decides or when the decision wait runs out.
class ToolService
{
public:
    static constexpr std::chrono::milliseconds kDecisionWait{120'000};
    // How often a caller that asked for progress hears that the person is still deciding.
    static constexpr std::chrono::milliseconds kProgressInterval{10'000};

    // What the service asks of the rest of the app; each has a harmless default.
    struct Bindings
    {
        std::function<library::BrowsingDefaults()> browsing;
        // Shows a proposal to the person; the callback is told what they decided.
        std::function<void(proposal::Proposal, proposal::ProposalInbox::DecisionCallback)>
            onProposal;
        proposal::Reach reach;
        // Unset means writes are allowed.
        std::function<bool()> allowsWrites;
        std::function<bool(const library::Shortcut&, const library::BarID&)> openShortcut;
        // Unset: the store's own activation.
        std::function<void(const library::BarID&)> switchBar;
        // Takes back the proposal shown by onProposal, whose proposer no longer waits for it.
        std::function<void()> withdrawProposal;
        std::chrono::milliseconds decisionWait = kDecisionWait;
        std::chrono::milliseconds progressInterval = kProgressInterval;
        std::string appVersion;
    };

    using Completion = std::function<void(mcp::ToolResult)>;

    // What a write call's caller may do while the person decides: hear that they still are,
    // with the time waited so far, and take the call back by its key.
    struct Waiting
    {
        std::string key;
        std::function<void(std::chrono::milliseconds waited)> progress;
    };

    // The apps and icons may be null: the tools then see none.
    ToolService(storage::LibraryStore& store,
                support::MainQueue& mainQueue,
                std::shared_ptr<InstalledApps> installedApps,
                std::shared_ptr<IconProvider> icons,
                Bindings bindings);
    ~ToolService();
    ToolService(const ToolService&) = delete;
    ToolService& operator=(const ToolService&) = delete;

    Bindings& bindings() { return m_bindings; }

    void call(const std::string& name,
              const std::optional<std::string>& arguments,
              const std::string& source,
              Completion completion,
              Waiting waiting = {});
    // The same with arguments already decoded from the request, so a long proposal is not
    // written out and read again.
    void callDecoded(const std::string& name,
                     std::optional<nlohmann::json> arguments,
                     const std::string& source,
                     Completion completion,
                     Waiting waiting = {});
    // Whether call() reads these arguments whole as strict JSON before it answers or proposes
    // anything, so a fault in them always makes it fail at once.
    static bool readsStrictly(const std::string& name, std::string_view arguments)
    {
        return WriteTools::readsStrictly(name, arguments);
    }
    // Withdraws the proposal of the call still waiting under `key`: it leaves the person's
    // review and the call completes with ToolResult::withdrawn(). Nothing for any other key.
    void withdraw(const std::string& key);

    // A picture of the app as it is now, as every call gets.
    ToolContext context() const;
    ActionTools::Answer perform(const ActionTools::Action& action);

    // Read, write, action, then the two tools the bridge carries out.
    static const std::vector<mcp::ToolDescription>& descriptions();
    static const std::vector<mcp::ToolDescription>& serverDescriptions();

private:
    ToolContext context(bool withApps, bool withIcons) const;
    bool allowsWrites() const;
    struct Pending;
    void propose(WriteTools::Call call, Completion completion, Waiting waiting);
    std::string read(const std::string& name, const std::optional<std::string>& arguments);

    storage::LibraryStore& m_store;
    support::MainQueue& m_mainQueue;
    std::shared_ptr<InstalledApps> m_installedApps;
    std::shared_ptr<IconProvider> m_icons;
    Bindings m_bindings;
    // Every bar as the tools see it, kept between calls until the store changes: reading the
    // other bars' files and copying the showing one would cost more than most tools do.
    mutable std::shared_ptr<const proposal::LibrarySnapshot> m_snapshot;
    // Answers of the tools that read only the bars, by tool and arguments, dropped with the
    // snapshot: an assistant asks for the same bar again and again while it works.
    std::unordered_map<std::string, std::string> m_answers;
    size_t m_answerBytes = 0;
    static constexpr size_t kAnswerBudget = 16u << 20;
    size_t m_storeObservation = 0;
    // The calls waiting for the person that their callers can take back, by key.
    std::unordered_map<std::string, std::weak_ptr<Pending>> m_waiting;
};

} // namespace kit::tools
