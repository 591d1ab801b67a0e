// SPDX-License-Identifier: MIT
#include "kit/web/content_blocker.h"

#include "kit/support/log.h"
#include "kit/web/rules_digest.h"

#include <cerrno>
#include <cstdio>
#include <exception>
#include <system_error>
#include <utility>
#include <variant>

namespace kit::web {

namespace {

constexpr support::Logger kLog("browser");
constexpr std::string_view kRulesName = "adblock-rules.json";
constexpr size_t kIdentifierDigits = 16;

// The file's bytes, or the system's description of why they cannot be read.
std::variant<std::string, std::string> readBytes(const std::filesystem::path& file)
{
    std::unique_ptr<std::FILE, decltype(&std::fclose)> stream(std::fopen(file.c_str(), "rb"),
                                                              &std::fclose);
    if (!stream) {
        return std::variant<std::string, std::string>(std::in_place_index<1>,
                                                      std::generic_category().message(errno));
    }
    std::string bytes;
    char buffer[65536];
    size_t got = 0;
    while ((got = std::fread(buffer, 1, sizeof buffer, stream.get())) > 0) {
        bytes.append(buffer, got);
    }
    if (std::ferror(stream.get())) {
        return std::variant<std::string, std::string>(std::in_place_index<1>,
                                                      std::generic_category().message(errno));
    }
    return std::variant<std::string, std::string>(std::in_place_index<0>, std::move(bytes));
}

} // namespace

std::optional<std::filesystem::path> findRulesFile(const std::filesystem::path& bundleRoot)
{
    for (const auto& candidate : {bundleRoot / "AdBlock" / kRulesName, bundleRoot / kRulesName}) {
        std::error_code error;
        if (std::filesystem::exists(candidate, error)) {
            return candidate;
        }
    }
    return std::nullopt;
}

std::string ruleListPrefix(std::string_view bundleIdentifier)
{
    return std::string(bundleIdentifier.empty() ? "Vantorel" : bundleIdentifier) + ".adblock.";
}

std::string ruleListIdentifier(std::string_view bundleIdentifier, std::string_view digest)
{
    return ruleListPrefix(bundleIdentifier) + std::string(digest.substr(0, kIdentifierDigits));
}

ContentBlocker::ContentBlocker(ContentRuleListStore& store,
                               RulesBundle bundle,
                               support::Scheduler& background,
                               support::MainQueue& mainQueue)
    : m_store(store)
    , m_bundle(std::move(bundle))
    , m_background(background)
    , m_mainQueue(mainQueue)
    , m_self(std::make_shared<ContentBlocker*>(this))
{}

void ContentBlocker::prepare()
{
    if (m_started) {
        return;
    }
    m_started = true;
    std::weak_ptr<ContentBlocker*> weak = m_self;
    ContentRuleListStore* store = &m_store;
    support::MainQueue* mainQueue = &m_mainQueue;
    m_background.after(std::chrono::nanoseconds(0), [weak, store, mainQueue, bundle = m_bundle] {
        Outcome outcome = prepareInBackground(*store, bundle);
        mainQueue->post([weak, outcome = std::move(outcome)]() mutable {
            if (auto self = weak.lock()) {
                (*self)->finish(std::move(outcome));
            }
        });
    });
}

ContentBlocker::Outcome ContentBlocker::prepareInBackground(ContentRuleListStore& store,
                                                            const RulesBundle& bundle)
{
    auto file = findRulesFile(bundle.root);
    if (!file) {
        return {nullptr, std::string(kMissing)};
    }
    auto bytes = readBytes(*file);
    if (bytes.index() == 1) {
        return {nullptr, std::string(kUnreadable) + std::get<1>(bytes)};
    }
    const std::string& rules = std::get<0>(bytes);
    std::string digest;
    try {
        digest = sha256Hex(rules);
    } catch (const std::exception& error) {
        // Without a digest there is no identifier to keep a compiled list under.
        return {nullptr, std::string(kUnreadable) + error.what()};
    }
    const std::string identifier = ruleListIdentifier(bundle.identifier, digest);

    ContentRuleListPtr list = store.lookUp(identifier);
    if (!list) {
        auto compiled = store.compile(identifier, rules);
        if (!compiled.list) {
            return {nullptr, std::string(kUncompilable) + compiled.error};
        }
        list = compiled.list;
    }

    // Lists of earlier builds are dead weight; lists of other applications are not ours to touch.
    const std::string prefix = ruleListPrefix(bundle.identifier);
    for (const auto& kept : store.identifiers()) {
        if (kept.starts_with(prefix) && kept != identifier && !store.remove(kept)) {
            kLog.error("cannot remove the rule list " + kept);
        }
    }
    return {list, {}};
}

void ContentBlocker::finish(Outcome outcome)
{
    if (!outcome.list) {
        kLog.error(outcome.error);
        m_lastError = std::move(outcome.error);
    } else {
        m_list = std::move(outcome.list);
        m_lastError.reset();
        auto waiting = std::move(m_waiting);
        m_waiting.clear();
        for (const auto& ref : waiting) {
            if (auto page = ref.lock()) {
                apply(page, true);
            }
        }
    }
    if (onChange) {
        onChange();
    }
}

void ContentBlocker::apply(const std::shared_ptr<PageView>& page, bool enabled)
{
    dropClosedPages();
    bool effective = false;
    if (enabled && m_list) {
        m_waiting.erase(page);
        effective = true;
    } else if (enabled) {
        m_waiting.insert(page);
    } else {
        m_waiting.erase(page);
    }

    auto recorded = m_applied.find(page);
    if (recorded != m_applied.end() ? recorded->second == effective : !effective) {
        return;
    }
    if (effective) {
        page->addContentRuleList(m_list);
    } else {
        page->removeAllContentRuleLists();
    }
    m_applied[page] = effective;
}

size_t ContentBlocker::waitingCount() const
{
    size_t count = 0;
    for (const auto& ref : m_waiting) {
        count += ref.expired() ? 0 : 1;
    }
    return count;
}

void ContentBlocker::dropClosedPages()
{
    std::erase_if(m_waiting, [](const PageRef& ref) { return ref.expired(); });
    std::erase_if(m_applied, [](const auto& entry) { return entry.first.expired(); });
}

} // namespace kit::web
