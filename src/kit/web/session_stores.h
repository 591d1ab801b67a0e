// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/ids.h"
#include "kit/web/web_engine.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace kit::web {

// Maps each session to its website data store (its identifier is the session's UUID, so logins
// last as long as the session does) and counts, clears and removes a session's data. No session
// means the engine's default store. Main thread; completions run on the main thread and are
// dropped once this object is gone.
class SessionStores
{
public:
    explicit SessionStores(WebEngine& engine);
    SessionStores(const SessionStores&) = delete;
    SessionStores& operator=(const SessionStores&) = delete;

    DataStorePtr store(const std::optional<library::SessionID>& session);
    // The number of sites that left a login, a cookie or anything else in the session's store.
    void siteCount(const std::optional<library::SessionID>& session, std::function<void(int)> done);
    // Removes every kind of data, of any age; the store and the shortcuts using it stay.
    void clearData(const std::optional<library::SessionID>& session, std::function<void()> done);
    // Removes the session's whole store; answers false (and logs why) when the engine cannot.
    void deleteStore(const library::SessionID& session, std::function<void(bool)> done);
    // Removes every store whose identifier is not among `inUse` (the sessions of all bars);
    // answers how many went.
    void removeOrphans(const std::unordered_set<library::SessionID>& inUse,
                       std::function<void(int removed)> done);

    size_t cachedCount() const { return m_cache.size(); }

private:
    static bool isUnusable(const library::SessionID& session);

    WebEngine& m_engine;
    std::unordered_map<support::Uuid, DataStorePtr> m_cache;
    // Completions hold this weakly, so none touches the cache after destruction.
    std::shared_ptr<SessionStores*> m_self;
};

} // namespace kit::web
