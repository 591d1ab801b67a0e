// SPDX-License-Identifier: MIT
#pragma once

#include "kit/web/web_engine.h"
#include "support/manual_queue.h"

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace web_testing {

class FakeRuleList final : public kit::web::ContentRuleList
{
public:
    explicit FakeRuleList(std::string identifier)
        : m_identifier(std::move(identifier))
    {}
    std::string identifier() const override { return m_identifier; }

private:
    std::string m_identifier;
};

// Rule lists in a map that outlives any one blocker, as the engine's store outlives a launch.
// Rules reading "broken" fail to compile.
class FakeRuleListStore final : public kit::web::ContentRuleListStore
{
public:
    kit::web::ContentRuleListPtr lookUp(const std::string& identifier) override
    {
        auto it = lists.find(identifier);
        return it == lists.end() ? nullptr : it->second;
    }

    Compiled compile(const std::string& identifier, const std::string& encodedRules) override
    {
        ++compiles;
        if (encodedRules == "broken") {
            return {nullptr, "Rule list compilation failed: unexpected token."};
        }
        auto list = std::make_shared<FakeRuleList>(identifier);
        lists[identifier] = list;
        compiledText[identifier] = encodedRules;
        return {list, {}};
    }

    std::vector<std::string> identifiers() override
    {
        std::vector<std::string> out;
        for (const auto& [identifier, list] : lists) {
            out.push_back(identifier);
        }
        return out;
    }

    bool remove(const std::string& identifier) override { return lists.erase(identifier) == 1; }

    std::map<std::string, kit::web::ContentRuleListPtr> lists;
    std::map<std::string, std::string> compiledText;
    int compiles = 0;
};

struct FakeDataStore final : kit::web::DataStore
{
    std::optional<kit::support::Uuid> identifier; // none for the default store
    int records = 0;
};

// Data stores by identifier; completions wait in a queue until finish() runs them, as the engine
// would answer later on the main thread.
class FakeWebEngine final : public kit::web::WebEngine
{
public:
    kit::web::DataStorePtr defaultDataStore() override { return defaultStore; }

    kit::web::DataStorePtr dataStore(const kit::support::Uuid& identifier) override
    {
        ++storesMade;
        auto store = std::make_shared<FakeDataStore>();
        store->identifier = identifier;
        store->records = records[identifier];
        held.insert(identifier);
        return store;
    }

    void
    fetchDataStoreIdentifiers(std::function<void(std::vector<kit::support::Uuid>)> done) override
    {
        later([this, done] { done({held.begin(), held.end()}); });
    }

    void removeDataStore(const kit::support::Uuid& identifier,
                         std::function<void(std::optional<std::string>)> done) override
    {
        later([this, identifier, done] {
            if (refusesRemoval.contains(identifier)) {
                done("the store is in use");
                return;
            }
            held.erase(identifier);
            records.erase(identifier);
            done(std::nullopt);
        });
    }

    void fetchDataRecordCount(const kit::web::DataStorePtr& store,
                              std::function<void(int)> done) override
    {
        later([store, done] { done(static_cast<FakeDataStore&>(*store).records); });
    }

    void removeAllData(const kit::web::DataStorePtr& store, std::function<void()> done) override
    {
        later([store, done] {
            static_cast<FakeDataStore&>(*store).records = 0;
            done();
        });
    }

    kit::web::ContentRuleListStore& ruleLists() override { return ruleListStore; }

    void finish()
    {
        while (!m_pending.empty()) {
            auto task = std::move(m_pending.front());
            m_pending.pop_front();
            task();
        }
    }

    std::shared_ptr<FakeDataStore> defaultStore = std::make_shared<FakeDataStore>();
    std::set<kit::support::Uuid> held;
    std::map<kit::support::Uuid, int> records;
    std::set<kit::support::Uuid> refusesRemoval;
    int storesMade = 0;
    FakeRuleListStore ruleListStore;

private:
    void later(std::function<void()> task) { m_pending.push_back(std::move(task)); }

    std::deque<std::function<void()>> m_pending;
};

using FakeMainQueue = testing_support::ManualQueue;

// A page's user content controller, counting the calls that reach it.
class FakePage final : public kit::web::PageView
{
public:
    void addContentRuleList(const kit::web::ContentRuleListPtr& list) override
    {
        ++adds;
        lists.push_back(list);
    }
    void removeAllContentRuleLists() override
    {
        ++removals;
        lists.clear();
    }

    std::vector<kit::web::ContentRuleListPtr> lists;
    int adds = 0;
    int removals = 0;
};

} // namespace web_testing
