// SPDX-License-Identifier: MIT
#include "kit/tools/tool_service.h"

#include "kit/library/library_json.h"
#include "kit/storage/library_store.h"
#include "kit/support/platform_words.h"
#include "kit/tools/arguments.h"
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
                       Completion completion,
                       Waiting waiting)
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
    propose(std::move(*write), std::move(completion), std::move(waiting));
}

void ToolService::callDecoded(const std::string& name,
                              std::optional<nlohmann::json> arguments,
                              const std::string& source,
                              Completion completion,
                              Waiting waiting)
{
    if (!arguments || !arguments->is_object() || !WriteTools::handles(name) || !allowsWrites()) {
        // Reads and actions are small, and their answers are kept by their arguments' text.
        std::optional<std::string> text;
        if (arguments) {
            text = arguments->dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        }
        call(name, text, source, std::move(completion), std::move(waiting));
        return;
    }
    std::optional<WriteTools::Call> write;
    std::optional<ToolResult> failed;
    try {
        write =
            WriteTools::call(name, Arguments(std::move(*arguments)), context(false, false), source);
    } catch (const ToolError& error) {
        failed = ToolResult::failure(error);
    } catch (const std::exception& error) {
        failed = ToolResult::failure(ToolError::badArguments(library::plainMessage(error)));
    }
    if (failed) {
        completion(std::move(*failed));
        return;
    }
    propose(std::move(*write), std::move(completion), std::move(waiting));
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

// Whichever comes first, the decision, the end of the wait or the caller's withdrawal, answers;
// the others find the call finished. None holds the service, which may be gone by then. The flag
// is atomic so that a decision told from another thread still answers only once.
struct ToolService::Pending
{
    WriteTools::Answer answer;
    Completion completion;
    std::function<void(std::chrono::milliseconds)> progress;
    std::atomic<bool> finished{false};

    bool finish(mcp::ToolResult result)
    {
        if (finished.exchange(true)) {
            return false;
        }
        auto done = std::move(completion);
        done(std::move(result));
        return true;
    }
    void finish(const WriteTools::Answer& final) { finish(ToolResult::success(final.encoded())); }
};

namespace {

// Tells the caller every interval that the person is still deciding, until the call finishes.
template <class Pending>
void keepTelling(support::MainQueue& queue,
                 std::chrono::milliseconds interval,
                 std::chrono::milliseconds waited,
                 const std::shared_ptr<Pending>& pending)
{
    queue.postAfter(interval, [&queue, interval, waited, pending] {
        if (pending->finished) {
            return;
        }
        pending->progress(waited + interval);
        keepTelling(queue, interval, waited + interval, pending);
    });
}

} // namespace

void ToolService::propose(WriteTools::Call call, Completion completion, Waiting waiting)
{
    if (call.answer.status == WriteTools::Status::Nothing || !m_bindings.onProposal) {
        completion(ToolResult::success(call.answer.encoded()));
        return;
    }
    auto pending = std::make_shared<Pending>();
    pending->answer = std::move(call.answer);
    pending->completion = std::move(completion);
    pending->progress = std::move(waiting.progress);
    m_mainQueue.postAfter(m_bindings.decisionWait, [pending] { pending->finish(pending->answer); });
    if (pending->progress && m_bindings.progressInterval.count() > 0) {
        keepTelling(m_mainQueue, m_bindings.progressInterval, {}, pending);
    }
    std::erase_if(m_waiting, [](const auto& entry) { return entry.second.expired(); });
    if (!waiting.key.empty()) {
        m_waiting[waiting.key] = pending;
    }
    m_bindings.onProposal(std::move(call.proposal),
                          [pending](const proposal::ProposalInbox::Decision& decision) {
                              pending->finish(pending->answer.decided(decision));
                          });
}

void ToolService::withdraw(const std::string& key)
{
    auto it = m_waiting.find(key);
    if (it == m_waiting.end()) {
        return;
    }
    std::shared_ptr<Pending> pending = it->second.lock();
    m_waiting.erase(it);
    // A call already answered has left the review: another proposal or the person's decision
    // has taken its place, and that must stay.
    if (pending && pending->finish(ToolResult::withdrawn()) && m_bindings.withdrawProposal) {
        m_bindings.withdrawProposal();
    }
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

namespace {

struct Hint
{
    const char* name;
    const char* title;
    mcp::ToolAnnotations annotations;
};

// readOnly, destructive, idempotent, openWorld. A proposal changes nothing until the person
// applies it, so only the tools whose proposals can take something away are destructive; the
// same call made twice proposes the same thing again unless it adds something new each time.
constexpr mcp::ToolAnnotations kReads{true, false, true, false};
constexpr mcp::ToolAnnotations kAdds{false, false, false, false};
constexpr mcp::ToolAnnotations kChanges{false, false, true, false};
constexpr mcp::ToolAnnotations kRemoves{false, true, true, false};

const Hint kHints[] = {
    {"list_bars", "List bars", kReads},
    {"list_shortcuts", "List shortcuts", kReads},
    {"get_shortcut", "Get a shortcut", kReads},
    {"list_groups", "List groups", kReads},
    {"search_shortcuts", "Search shortcuts", kReads},
    {"list_sessions", "List browsing accounts", kReads},
    {"get_settings", "Get settings", kReads},
    {"search_icons", "Search icons", kReads},
    {"list_deep_links", "List links into apps", kReads},
    {"find_apps", "Find apps", kReads},
    {"add_shortcuts", "Add shortcuts", kAdds},
    {"add_group", "Add a group", kAdds},
    {"rename_shortcut", "Rename a shortcut", kChanges},
    {"set_open_mode", "Set how a link opens", kChanges},
    {"set_icon", "Set an icon", kChanges},
    {"move_shortcut", "Move a shortcut", kChanges},
    {"show_in_menu_bar", "Show in the menu bar", kChanges},
    {"set_account", "Set a link's account", kChanges},
    {"set_link_options", "Set link options", kChanges},
    {"move_to_bar", "Move to another bar", kChanges},
    {"add_bar", "Add a bar", kAdds},
    {"rename_bar", "Rename a bar", kChanges},
    {"add_session", "Add a browsing account", kAdds},
    {"rename_session", "Rename a browsing account", kChanges},
    {"remove_session", "Remove a browsing account", kRemoves},
    {"remove_shortcuts", "Remove shortcuts", kRemoves},
    {"remove_bar", "Remove a bar", kRemoves},
    {"propose", "Propose changes", kRemoves},
    // Actions change what is showing, not what is kept; opening reaches outside the app.
    {"switch_bar", "Switch bars", {false, false, true, false}},
    {"open_shortcut", "Open a shortcut", {false, false, false, true}},
    {"list_apple_shortcuts", "List Apple Shortcuts", kReads},
    {"create_apple_shortcut", "Create an Apple Shortcut", kAdds},
};

} // namespace

const std::vector<ToolDescription>& ToolService::descriptions()
{
    static const std::vector<ToolDescription> kDescriptions = [] {
        std::vector<ToolDescription> all = ReadTools::descriptions();
        for (const auto* group :
             {&WriteTools::descriptions(), &ActionTools::descriptions(), &serverDescriptions()}) {
            all.insert(all.end(), group->begin(), group->end());
        }
        for (auto& tool : all) {
            for (const Hint& hint : kHints) {
                if (tool.name == hint.name) {
                    tool.title = support::inPlatformWords(hint.title);
                    tool.annotations = hint.annotations;
                }
            }
        }
        return all;
    }();
    return kDescriptions;
}

} // namespace kit::tools
