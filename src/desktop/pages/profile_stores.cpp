// SPDX-License-Identifier: MIT
#include "desktop/pages/profile_stores.h"

#include "desktop/pages/profiles.h"

#ifdef VANTOREL_HAS_DISK_RULES
#include "kit/blocking/disk_rule_list_store.h"
#endif

namespace desktop::pages {

using kit::support::Uuid;

namespace {

class NoRuleLists final : public kit::web::ContentRuleListStore
{
public:
    kit::web::ContentRuleListPtr lookUp(const std::string&) override { return nullptr; }
    Compiled compile(const std::string&, const std::string&) override
    {
        return {nullptr, "this build has no content blocking"};
    }
    std::vector<std::string> identifiers() override { return {}; }
    bool remove(const std::string&) override { return true; }
};

} // namespace

std::unique_ptr<kit::web::ContentRuleListStore>
makeRuleListStore(const std::filesystem::path& folder)
{
#ifdef VANTOREL_HAS_DISK_RULES
    return std::make_unique<kit::blocking::DiskRuleListStore>(folder);
#else
    (void)folder;
    return std::make_unique<NoRuleLists>();
#endif
}

ProfileStores::ProfileStores(PagesLoader& loader,
                             kit::support::MainQueue& mainQueue,
                             ProfileRoots roots,
                             std::unique_ptr<kit::web::ContentRuleListStore> ruleLists)
    : m_loader(loader)
    , m_mainQueue(mainQueue)
    , m_roots(std::move(roots))
    , m_ruleLists(std::move(ruleLists))
    , m_default(std::make_shared<ProfileStore>(std::nullopt))
{}

kit::web::DataStorePtr ProfileStores::defaultDataStore()
{
    return m_default;
}

kit::web::DataStorePtr ProfileStores::dataStore(const Uuid& identifier)
{
    return std::make_shared<ProfileStore>(identifier);
}

std::optional<Uuid> ProfileStores::sessionOf(const kit::web::DataStorePtr& store)
{
    const auto* profile = dynamic_cast<const ProfileStore*>(store.get());
    return profile ? profile->session : std::nullopt;
}

void ProfileStores::fetchDataStoreIdentifiers(std::function<void(std::vector<Uuid>)> done)
{
    std::vector<Uuid> identifiers;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(m_roots.storage, error)) {
        // The shared profile and anything else not named by a session is not a session's store.
        auto uuid = Uuid::parse(entry.path().filename().string());
        if (uuid && entry.is_directory(error)) {
            identifiers.push_back(*uuid);
        }
    }
    m_mainQueue.post(
        [done = std::move(done), identifiers = std::move(identifiers)] { done(identifiers); });
}

void ProfileStores::removeDataStore(const Uuid& identifier,
                                    std::function<void(std::optional<std::string>)> done)
{
    auto remove = [roots = m_roots, identifier, done = std::move(done)] {
        std::optional<std::string> failure;
        for (const auto& root : {roots.storage, roots.cache}) {
            std::error_code error;
            std::filesystem::remove_all(root / identifier.string(), error);
            if (error && !failure) {
                failure = error.message();
            }
        }
        done(failure);
    };
    if (Pages* pages = m_loader.loaded()) {
        pages->releaseSession(identifier);
        m_mainQueue.postAfter(kLetGo, std::move(remove));
    } else {
        m_mainQueue.post(std::move(remove));
    }
}

void ProfileStores::fetchDataRecordCount(const kit::web::DataStorePtr& store,
                                         std::function<void(int)> done)
{
    if (Pages* pages = m_loader.load()) {
        pages->siteCount(sessionOf(store), std::move(done));
        return;
    }
    m_mainQueue.post([done = std::move(done)] { done(0); });
}

void ProfileStores::removeAllData(const kit::web::DataStorePtr& store, std::function<void()> done)
{
    if (Pages* pages = m_loader.load()) {
        pages->removeAllData(sessionOf(store), std::move(done));
        return;
    }
    // Without the engine nothing holds the folders, so emptying them is all there is to do.
    const std::string name =
        sessionOf(store) ? sessionOf(store)->string() : std::string(Profiles::kDefaultName);
    for (const auto& root : {m_roots.storage, m_roots.cache}) {
        std::error_code error;
        std::filesystem::remove_all(root / name, error);
    }
    m_mainQueue.post(std::move(done));
}

} // namespace desktop::pages
