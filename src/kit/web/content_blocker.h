// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/main_queue.h"
#include "kit/support/serial_queue.h"
#include "kit/web/web_engine.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace kit::web {

// Where the shipped rules lie and whose rule lists in the store are ours.
struct RulesBundle
{
    std::filesystem::path root;
    // Empty when the application has none; "Vantorel" is used then.
    std::string identifier;
};

// The rules file in a bundle: "AdBlock/adblock-rules.json", else "adblock-rules.json" at the top.
std::optional<std::filesystem::path> findRulesFile(const std::filesystem::path& bundleRoot);
// "<bundle id>.adblock.": every rule list this application keeps starts with it.
std::string ruleListPrefix(std::string_view bundleIdentifier);
// The prefix and the first 16 digits of the rules' digest, so changed rules get a new list.
std::string ruleListIdentifier(std::string_view bundleIdentifier, std::string_view digest);

// Ad and tracker blocking for pages: compiles the shipped rules once per build (reusing the list
// kept from an earlier launch), removes this application's lists from older builds, and adds the
// list to the pages that ask for it, including pages that asked before it was ready. Main thread;
// the file, digest and store work run on `background` and report back through `mainQueue`.
// Pages are held weakly: a closed page drops out.
class ContentBlocker
{
public:
    static constexpr std::string_view kMissing = "The blocking rules are missing from this build.";
    static constexpr std::string_view kUnreadable = "The blocking rules could not be read: ";
    static constexpr std::string_view kUncompilable = "The blocking rules could not be compiled: ";

    // Called on the main thread once the rules are ready or have failed.
    std::function<void()> onChange;

    ContentBlocker(ContentRuleListStore& store,
                   RulesBundle bundle,
                   support::Scheduler& background,
                   support::MainQueue& mainQueue);
    ContentBlocker(const ContentBlocker&) = delete;
    ContentBlocker& operator=(const ContentBlocker&) = delete;

    // Starts preparing the rules; later calls do nothing.
    void prepare();
    // Makes the page's blocking match `enabled`; before the rules are ready the page waits for
    // them and loads without blocking meanwhile.
    void apply(const std::shared_ptr<PageView>& page, bool enabled);

    bool isReady() const { return m_list != nullptr; }
    // Shown in Settings after "Ads are not being blocked:".
    const std::optional<std::string>& lastError() const { return m_lastError; }

    // Pages still waiting for the rules, closed pages left out.
    size_t waitingCount() const;

private:
    using PageRef = std::weak_ptr<PageView>;
    // Either a compiled list or the failure text.
    struct Outcome
    {
        ContentRuleListPtr list;
        std::string error;
    };

    static Outcome prepareInBackground(ContentRuleListStore& store, const RulesBundle& bundle);
    void finish(Outcome outcome);
    void dropClosedPages();

    ContentRuleListStore& m_store;
    RulesBundle m_bundle;
    support::Scheduler& m_background;
    support::MainQueue& m_mainQueue;
    bool m_started = false;
    ContentRuleListPtr m_list;
    std::optional<std::string> m_lastError;
    std::set<PageRef, std::owner_less<PageRef>> m_waiting;
    std::map<PageRef, bool, std::owner_less<PageRef>> m_applied;
    // Results posted to the main thread hold this weakly, so none lands after destruction.
    std::shared_ptr<ContentBlocker*> m_self;
};

} // namespace kit::web
