// SPDX-License-Identifier: MIT
#include "kit/tools/tool_service.h"

#include "kit/library/library_json.h"
#include "kit/storage/library_store.h"
#include "kit/support/platform_words.h"
#include "kit/tools/read_tools.h"

#include <atomic>

namespace kit::tools {

using mcp::ToolDescription;
using mcp::ToolError;
using mcp::ToolResult;

ToolService::ToolService(storage::LibraryStore& store,
                         support::MainQueue& mainQueue,
                         std::shared_ptr<InstalledApps> installedApps,
                         std::shared_ptr<IconProvider> icons,
                         Bindings bindings)
    : m_store(store)
    , m_mainQueue(mainQueue)
    , m_installedApps(std::move(installedApps))
    , m_icons(std::move(icons))
    , m_bindings(std::move(bindings))
{
    m_storeObservation = m_store.observe([this](unsigned) {
        m_snapshot.reset();
        m_answers.clear();
        m_answerBytes = 0;
    });
}

ToolService::~ToolService()
{
    m_store.removeObserver(m_storeObservation);
}

ToolContext ToolService::context() const
{
    return context(true, true);
}

ToolContext ToolService::context(bool withApps, bool withIcons) const
{
    if (!m_snapshot) {
        m_snapshot = std::make_shared<const proposal::LibrarySnapshot>(m_store);
    }
    return ToolContext{
        m_snapshot,
        m_bindings.browsing ? m_bindings.browsing() : library::BrowsingDefaults::standard(),
        withApps && m_installedApps ? m_installedApps->list() : nullptr,
        withIcons && m_icons ? m_icons->icons() : nullptr,
        m_bindings.appVersion,
        m_bindings.reach,
    };
}

bool ToolService::allowsWrites() const
{
    return !m_bindings.allowsWrites || m_bindings.allowsWrites();
}

void ToolService::call(const std::string& name,
                       const std::optional<std::string>& arguments,
                       const std::string& source,
                       Completion completion)
{
    // The completion runs outside the try, so a throw from it can never lead to a second one.
    std::optional<ToolResult> result;
    std::optional<WriteTools::Call> write;
    try {
        if (ReadTools::handles(name)) {
            result = ToolResult::success(read(name, arguments));
        } else if (!allowsWrites()) {
            result = ToolResult::failure(ToolError::writesOff());
        } else if (ActionTools::handles(name)) {
            auto action = ActionTools::parse(name, arguments, context(false, false));
            result = ToolResult::success(perform(action).encoded());
        } else if (!WriteTools::handles(name)) {
            result = ToolResult::failure(ToolError::unknownTool(name));
        } else {
            write = WriteTools::call(name, arguments, context(false, false), source);
        }
    } catch (const ToolError& error) {
        result = ToolResult::failure(error);
    } catch (const std::exception& error) {
        result = ToolResult::failure(ToolError::badArguments(library::plainMessage(error)));
    }
    if (result) {
        completion(std::move(*result));
        return;
    }
    propose(std::move(*write), std::move(completion));
}

std::string ToolService::read(const std::string& name, const std::optional<std::string>& arguments)
{
    if (!ReadTools::answersFromBarsAlone(name)) {
        // Scans are slow the first time, so only the tools that read them start them.
        const bool apps = name == "find_apps" || name == "list_deep_links";
        const bool icons = name == "search_icons";
        return ReadTools::call(name, arguments, context(apps, icons));
    }
    std::string key = name;
    key.push_back('\0');
    key += arguments.value_or(std::string());
    if (auto it = m_answers.find(key); it != m_answers.end()) {
        return it->second;
    }
    std::string answer = ReadTools::call(name, arguments, context(false, false));
    if (m_answerBytes + answer.size() > kAnswerBudget) {
        m_answers.clear();
        m_answerBytes = 0;
    }
    if (answer.size() <= kAnswerBudget) {
        m_answerBytes += answer.size();
        m_answers.emplace(std::move(key), answer);
    }
    return answer;
}

void ToolService::propose(WriteTools::Call call, Completion completion)
{
    if (call.answer.status == WriteTools::Status::Nothing || !m_bindings.onProposal) {
        completion(ToolResult::success(call.answer.encoded()));
        return;
    }
    // Whichever comes first, the decision or the end of the wait, answers; the other finds the
    // call finished. Neither holds the service, which may be gone by then. The flag is atomic so
    // that a decision told from another thread still answers only once.
    struct Pending
    {
        WriteTools::Answer answer;
        Completion completion;
        std::atomic<bool> finished{false};

        void finish(const WriteTools::Answer& final)
        {
            if (finished.exchange(true)) {
                return;
            }
            auto done = std::move(completion);
            done(ToolResult::success(final.encoded()));
        }
    };
    auto pending = std::make_shared<Pending>();
    pending->answer = std::move(call.answer);
    pending->completion = std::move(completion);
    m_mainQueue.postAfter(m_bindings.decisionWait, [pending] { pending->finish(pending->answer); });
    m_bindings.onProposal(std::move(call.proposal),
                          [pending](const proposal::ProposalInbox::Decision& decision) {
                              pending->finish(pending->answer.decided(decision));
                          });
}

ActionTools::Answer ToolService::perform(const ActionTools::Action& action)
{
    switch (action.kind) {
    case ActionTools::Action::Kind::SwitchBar:
        if (m_bindings.switchBar) {
            m_bindings.switchBar(action.bar.id);
        } else {
            m_store.activate(action.bar.id);
        }
        return ActionTools::switched(action.bar);
    case ActionTools::Action::Kind::Open: {
        bool opened =
            m_bindings.openShortcut && m_bindings.openShortcut(action.shortcut, action.barID);
        return ActionTools::opened(action.shortcut, opened);
    }
    }
    return {};
}

const std::vector<ToolDescription>& ToolService::serverDescriptions()
{
    static const std::vector<ToolDescription> kDescriptions{
        {"list_apple_shortcuts",
         support::inPlatformWords(
             "The Apple Shortcuts on this Mac, by name, each with the address a Vantorel shortcut "
             "runs it with (shortcuts://run-shortcut?name=...). Vantorel runs no scripts itself; a "
             "Shortcut is how something is run from the menu bar, and Shortcuts can run shell "
             "commands, AppleScript and every app's actions. Propose one with add_shortcuts as a "
             "url target with openMode system, or several as a group."),
         R"({"type":"object","properties":{"query":{"type":"string","description":"Part of a name. Omit for all of them."}},"additionalProperties":false})"},
        {"create_apple_shortcut",
         support::inPlatformWords(
             "Makes an Apple Shortcut and opens it in the Shortcuts app, which asks the person to "
             "add it; nothing is installed without that click. Give shell for a Shortcut that runs "
             "those commands in zsh (the common case: pull the repos, start the database, switch "
             "the audio output), or plist for a whole Shortcut you wrote yourself (the XML of a "
             ".shortcut file, WFWorkflowActions and all). Once the person has added it, propose a "
             "Vantorel link that runs it: add_shortcuts with a url target of "
             "shortcuts://run-shortcut?name=<the name> and openMode system. Vantorel runs no "
             "scripts itself; this is how something is run from the menu bar."),
         R"({"type":"object","properties":{"name":{"type":"string","description":"What the Shortcut is called; also what the link runs it by."},"shell":{"type":"string","description":"zsh commands, one Shortcut action that runs them."},"plist":{"type":"string","description":"The XML of a whole .shortcut file, instead of shell."}},"required":["name"],"additionalProperties":false})"},
    };
    return kDescriptions;
}

const std::vector<ToolDescription>& ToolService::descriptions()
{
    static const std::vector<ToolDescription> kDescriptions = [] {
        std::vector<ToolDescription> all = ReadTools::descriptions();
        for (const auto* group :
             {&WriteTools::descriptions(), &ActionTools::descriptions(), &serverDescriptions()}) {
            all.insert(all.end(), group->begin(), group->end());
        }
        return all;
    }();
    return kDescriptions;
}

} // namespace kit::tools
