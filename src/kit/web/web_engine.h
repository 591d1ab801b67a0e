// SPDX-License-Identifier: MIT
#pragma once

#include "kit/support/uuid.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kit::web {

// A website data store of the web engine (cookies, site storage, caches); opaque to the core.
class DataStore
{
public:
    virtual ~DataStore() = default;
};
using DataStorePtr = std::shared_ptr<DataStore>;

// A compiled content rule list; opaque apart from the identifier it was kept under.
class ContentRuleList
{
public:
    virtual ~ContentRuleList() = default;
    virtual std::string identifier() const = 0;
};
using ContentRuleListPtr = std::shared_ptr<const ContentRuleList>;

// The rule lists of one page view (its user content controller). Main thread.
class PageView
{
public:
    virtual ~PageView() = default;
    virtual void addContentRuleList(const ContentRuleListPtr& list) = 0;
    virtual void removeAllContentRuleLists() = 0;
};

// Compiled rule lists kept across launches by identifier. Called from a background thread, one
// call at a time; each call blocks until done.
class ContentRuleListStore
{
public:
    // A compiled list, or the reason compiling failed.
    struct Compiled
    {
        ContentRuleListPtr list;
        std::string error;
    };

    virtual ~ContentRuleListStore() = default;

    // Null when no list is kept under the identifier.
    virtual ContentRuleListPtr lookUp(const std::string& identifier) = 0;
    // Compiles rules in the engine's content-blocker JSON format and keeps them under identifier.
    virtual Compiled compile(const std::string& identifier, const std::string& encodedRules) = 0;
    virtual std::vector<std::string> identifiers() = 0;
    // False when the list could not be removed.
    virtual bool remove(const std::string& identifier) = 0;
};

// The web engine's website data stores and its rule-list store. Data-store calls are made on the
// main thread, and their completions run there too, once the engine is done.
class WebEngine
{
public:
    virtual ~WebEngine() = default;

    // The store shared by pages that use no session.
    virtual DataStorePtr defaultDataStore() = 0;
    // The persistent store with that identifier, made on first use.
    virtual DataStorePtr dataStore(const support::Uuid& identifier) = 0;
    // The identifiers of every persistent store the engine holds, in use or not.
    virtual void
    fetchDataStoreIdentifiers(std::function<void(std::vector<support::Uuid>)> done) = 0;
    // Removes the store and everything in it; `done` gets the reason on failure.
    virtual void removeDataStore(const support::Uuid& identifier,
                                 std::function<void(std::optional<std::string> error)> done) = 0;
    // The number of sites that left data of any kind in the store.
    virtual void fetchDataRecordCount(const DataStorePtr& store, std::function<void(int)> done) = 0;
    // Removes data of every kind and any age, keeping the store itself.
    virtual void removeAllData(const DataStorePtr& store, std::function<void()> done) = 0;

    virtual ContentRuleListStore& ruleLists() = 0;
};

} // namespace kit::web
