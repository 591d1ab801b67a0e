// SPDX-License-Identifier: MIT
#include "kit/proposal/proposal_inbox.h"

#include "kit/storage/library_store.h"

#include <unordered_map>
#include <unordered_set>

namespace kit::proposal {

using namespace kit::library;

ProposalInbox::ProposalInbox(Reach reach,
                             RemoveSession removeSession,
                             GrantedFolders grantedFolders)
    : m_reach(std::move(reach))
    , m_removeSession(std::move(removeSession))
    , m_grantedFolders(std::move(grantedFolders))
{}

ProposalInbox::~ProposalInbox()
{
    if (m_onDecision) {
        tell({Decision::Kind::Declined, std::nullopt, {}, std::nullopt});
    }
}

void ProposalInbox::tell(const Decision& decision)
{
    // Taken out first: the proposer may hand in another proposal from inside its callback.
    DecisionCallback callback = std::move(m_onDecision);
    m_onDecision = nullptr;
    if (callback) {
        callback(decision);
    }
}

void ProposalInbox::receive(Proposal proposal,
                            DecisionCallback onDecision,
                            const storage::LibraryStore& store,
                            std::optional<std::string> fileName)
{
    if (m_proposal) {
        tell({Decision::Kind::Replaced, std::nullopt, {}, std::nullopt});
    }
    m_leftOut.clear();
    m_notice.reset();
    m_proposal = std::move(proposal);
    m_fileName = std::move(fileName);
    m_onDecision = std::move(onDecision);
    refresh(store);
}

void ProposalInbox::refresh(const storage::LibraryStore& store)
{
    if (!m_proposal) {
        return;
    }
    LibrarySnapshot snapshot(store);
    if (m_grantedFolders) {
        snapshot.grantedBookmarks = m_grantedFolders();
    }
    // What the person picked for this proposal reaches as a granted folder would; nothing the
    // proposal brings does by itself.
    const Reach reach = [this](const std::string& path) -> std::optional<Bookmark> {
        if (auto picked = m_picked.find(path); picked != m_picked.end()) {
            return picked->second;
        }
        return m_reach ? m_reach(path) : std::nullopt;
    };
    m_review = proposal::review(*m_proposal, snapshot, reach);
    // With nothing left out the review is what applying writes; a large one is not copied.
    if (m_leftOut.empty()) {
        m_applying.reset();
    } else {
        m_applying = proposal::review(m_proposal->leavingOut(m_leftOut), snapshot, reach);
    }
    notify();
}

void ProposalInbox::setLeftOut(const ProposalEntry& entry,
                               bool isLeftOut,
                               const storage::LibraryStore& store)
{
    if (isLeftOut) {
        m_leftOut.insert(entry);
    } else {
        m_leftOut.erase(entry);
    }
    refresh(store);
}

bool ProposalInbox::replace(const ProposedShortcut& shortcut, const storage::LibraryStore& store)
{
    if (!m_proposal || !m_proposal->replace(shortcut)) {
        return false;
    }
    refresh(store);
    return true;
}

bool ProposalInbox::reach(const ShortcutID& id,
                          const Bookmark& bookmark,
                          const storage::LibraryStore& store)
{
    if (!m_proposal || !m_proposal->reach(id, bookmark)) {
        return false;
    }
    if (!bookmark.displayPath.empty()) {
        m_picked[bookmark.displayPath] = bookmark;
    }
    refresh(store);
    return true;
}

std::vector<std::string> ProposalInbox::leftOutNames() const
{
    std::vector<std::string> names;
    if (!m_review || m_leftOut.empty()) {
        return names;
    }
    ProposalEntries named;
    auto name = [&](const ProposalEntry& entry, const std::string& text) {
        if (m_leftOut.contains(entry) && named.insert(entry).second) {
            names.push_back(text.empty() ? entry.id.string() : text);
        }
    };
    for (const auto& row : m_review->sessions) {
        name(ProposalEntry::session(row.id), row.session.name);
    }
    for (const auto& bar : m_review->bars) {
        if (bar.isEmptyNewBar()) {
            name(ProposalEntry::newBar(bar.destination.name), bar.name);
        }
    }
    for (const auto* item : m_review->items()) {
        name(ProposalEntry::shortcut(item->id), std::string(item->name()));
    }
    for (const auto& row : m_review->barRenames) {
        name(ProposalEntry::barRename(row.id), row.from);
    }
    for (const auto& row : m_review->moves) {
        name(ProposalEntry::move(row.id), row.name);
    }
    for (const auto& row : m_review->barRemovals) {
        name(ProposalEntry::barRemoval(row.id), row.name);
    }
    return names;
}

bool ProposalInbox::apply(storage::LibraryStore& store)
{
    refresh(store);
    if (!applying() || !applying()->hasWork()) {
        return false;
    }
    std::vector<std::string> leftOut = leftOutNames();
    // Taken, not copied: the inbox is cleared once the writes are done.
    ProposalReview written = std::move(*(m_leftOut.empty() ? m_review : m_applying));

    for (const auto& session : written.sessionsToWrite()) {
        store.upsertSession(session);
    }
    // One bar per distinct new name, whether shortcuts are placed or moved onto it.
    std::unordered_map<std::string, std::optional<BarID>> made;
    auto newBar = [&](const std::string& name) {
        auto it = made.find(name);
        if (it == made.end()) {
            it = made.emplace(name, store.addBar(name)).first;
        }
        return it->second;
    };
    for (const auto& bar : written.bars) {
        if (!bar.writes()) {
            continue;
        }
        std::optional<BarID> id = bar.isNew ? newBar(bar.name) : bar.barID;
        if (id) {
            store.mutate(*id, [&](Library& library) { bar.apply(library); });
        }
    }
    for (const auto& rename : written.barRenames) {
        if (rename.verdict.kind == Verdict::Kind::Changed) {
            store.renameBar(rename.id, rename.to);
        }
    }
    for (const auto& move : written.moves) {
        if (move.verdict.kind != Verdict::Kind::Moved) {
            continue;
        }
        std::optional<BarID> to;
        switch (move.to.kind) {
        case BarDestination::Kind::Active:
            to = store.activeBarID();
            break;
        case BarDestination::Kind::Existing:
            to = move.to.id;
            break;
        case BarDestination::Kind::New:
            to = newBar(move.toName);
            break;
        }
        if (to) {
            store.move(move.id, *to);
        }
    }
    for (const auto& session : written.sessionsToRemove()) {
        if (m_removeSession) {
            m_removeSession(session);
        } else {
            store.removeSession(session);
        }
    }
    for (const auto& removal : written.barRemovals) {
        if (removal.verdict.kind == Verdict::Kind::Removed) {
            store.removeBar(removal.id);
        }
    }

    // Whoever asked is told whether it reached the disk, so the wait for the write is worth it.
    store.flush();
    clear();
    notify();
    tell({Decision::Kind::Applied, std::move(written), std::move(leftOut), store.saveError()});
    return true;
}

void ProposalInbox::dismiss()
{
    if (!m_proposal) {
        return;
    }
    clear();
    notify();
    tell({Decision::Kind::Declined, std::nullopt, {}, std::nullopt});
}

void ProposalInbox::withdraw()
{
    if (!m_proposal) {
        return;
    }
    m_onDecision = nullptr;
    clear();
    m_notice = kWithdrawn;
    notify();
}

void ProposalInbox::clear()
{
    m_proposal.reset();
    m_review.reset();
    m_applying.reset();
    m_leftOut.clear();
    m_fileName.reset();
    m_picked.clear();
}

size_t ProposalInbox::observe(Observer observer)
{
    size_t token = m_nextObserver++;
    m_observers.emplace_back(token, std::move(observer));
    return token;
}

void ProposalInbox::removeObserver(size_t token)
{
    std::erase_if(m_observers, [&](const auto& entry) { return entry.first == token; });
}

void ProposalInbox::notify()
{
    auto observers = m_observers;
    for (const auto& [token, observer] : observers) {
        observer();
    }
}

} // namespace kit::proposal
