// SPDX-License-Identifier: MIT
#pragma once

#include "desktop/pages/pages_loader.h"
#include "kit/support/main_queue.h"
#include "kit/web/web_engine.h"

#include <memory>

namespace desktop::pages {

// The compiled rule lists kept in `folder`; a store that compiles nothing when this build has no
// blocking.
std::unique_ptr<kit::web::ContentRuleListStore>
makeRuleListStore(const std::filesystem::path& folder);

// A session's data store as the core holds it: the session's UUID, none for the shared store.
class ProfileStore final : public kit::web::DataStore
{
public:
    explicit ProfileStore(std::optional<kit::support::Uuid> session)
        : session(session)
    {}
    const std::optional<kit::support::Uuid> session;
};

// The core's web engine over the pages' profiles. Listing and removing stores works on the
// profiles' folders and never starts the engine (the orphan clean-up runs at start); counting
// and clearing a store's data start it. Completions run on the main queue. Main thread.
class ProfileStores final : public kit::web::WebEngine
{
public:
    ProfileStores(PagesLoader& loader,
                  kit::support::MainQueue& mainQueue,
                  ProfileRoots roots,
                  std::unique_ptr<kit::web::ContentRuleListStore> ruleLists);

    kit::web::DataStorePtr defaultDataStore() override;
    kit::web::DataStorePtr dataStore(const kit::support::Uuid& identifier) override;
    void
    fetchDataStoreIdentifiers(std::function<void(std::vector<kit::support::Uuid>)> done) override;
    void removeDataStore(const kit::support::Uuid& identifier,
                         std::function<void(std::optional<std::string> error)> done) override;
    void fetchDataRecordCount(const kit::web::DataStorePtr& store,
                              std::function<void(int)> done) override;
    void removeAllData(const kit::web::DataStorePtr& store, std::function<void()> done) override;
    kit::web::ContentRuleListStore& ruleLists() override { return *m_ruleLists; }

    // How long a loaded engine is given to close a dropped profile's files.
    static constexpr std::chrono::milliseconds kLetGo{500};

private:
    static std::optional<kit::support::Uuid> sessionOf(const kit::web::DataStorePtr& store);

    PagesLoader& m_loader;
    kit::support::MainQueue& m_mainQueue;
    ProfileRoots m_roots;
    std::unique_ptr<kit::web::ContentRuleListStore> m_ruleLists;
    kit::web::DataStorePtr m_default;
};

} // namespace desktop::pages
