// SPDX-License-Identifier: MIT
#include "kit/web/session_stores.h"

#include "kit/support/log.h"

#include <string>
#include <vector>

namespace kit::web {

namespace {

constexpr support::Logger kLog("browser");

} // namespace

SessionStores::SessionStores(WebEngine& engine)
    : m_engine(engine)
    , m_self(std::make_shared<SessionStores*>(this))
{}

bool SessionStores::isUnusable(const library::SessionID& session)
{
    return session.uuid == support::Uuid{};
}

DataStorePtr SessionStores::store(const std::optional<library::SessionID>& session)
{
    if (!session) {
        return m_engine.defaultDataStore();
    }
    if (isUnusable(*session)) {
        kLog.error("session " + session->string() + " has an unusable id; using the default store");
        return m_engine.defaultDataStore();
    }
    auto& cached = m_cache[session->uuid];
    if (!cached) {
        cached = m_engine.dataStore(session->uuid);
    }
    return cached;
}

void SessionStores::siteCount(const std::optional<library::SessionID>& session,
                              std::function<void(int)> done)
{
    m_engine.fetchDataRecordCount(
        store(session), [weak = std::weak_ptr(m_self), done = std::move(done)](int count) {
            if (weak.lock()) {
                done(count);
            }
        });
}

void SessionStores::clearData(const std::optional<library::SessionID>& session,
                              std::function<void()> done)
{
    m_engine.removeAllData(store(session), [weak = std::weak_ptr(m_self), done = std::move(done)] {
        if (weak.lock()) {
            done();
        }
    });
}

void SessionStores::deleteStore(const library::SessionID& session, std::function<void(bool)> done)
{
    // Such a session has been using the default store, which other shortcuts share.
    if (isUnusable(session)) {
        done(true);
        return;
    }
    std::weak_ptr<SessionStores*> weak = m_self;
    m_engine.removeDataStore(
        session.uuid, [weak, session, done = std::move(done)](std::optional<std::string> error) {
            auto self = weak.lock();
            if (!self) {
                return;
            }
            if (error) {
                kLog.error("cannot remove session " + session.string() + ": " + *error);
                done(false);
                return;
            }
            (*self)->m_cache.erase(session.uuid);
            done(true);
        });
}

void SessionStores::removeOrphans(const std::unordered_set<library::SessionID>& inUse,
                                  std::function<void(int)> done)
{
    std::weak_ptr<SessionStores*> weak = m_self;
    m_engine.fetchDataStoreIdentifiers(
        [weak, inUse, done = std::move(done)](const std::vector<support::Uuid>& identifiers) {
            auto self = weak.lock();
            if (!self) {
                return;
            }
            std::vector<library::SessionID> orphans;
            for (const auto& identifier : identifiers) {
                library::SessionID session{identifier};
                if (!inUse.contains(session) && !isUnusable(session)) {
                    orphans.push_back(session);
                }
            }
            if (orphans.empty()) {
                done(0);
                return;
            }
            struct Tally
            {
                size_t pending;
                int removed = 0;
                std::function<void(int)> done;
            };
            auto tally = std::make_shared<Tally>(Tally{orphans.size(), 0, done});
            for (const auto& orphan : orphans) {
                (*self)->deleteStore(orphan, [tally](bool removed) {
                    tally->removed += removed ? 1 : 0;
                    if (--tally->pending == 0) {
                        tally->done(tally->removed);
                    }
                });
            }
        });
}

} // namespace kit::web
