// SPDX-License-Identifier: MIT
#pragma once

#include "kit/proposal/proposal_review.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kit::storage {
class LibraryStore;
}

namespace kit::proposal {

// Holds the one proposal waiting for the person, its review and the rows they unchecked, and
// writes it through the library store when they apply it. Main thread only. Whoever handed in a
// proposal is told exactly once what became of it: applied, declined or replaced.
class ProposalInbox
{
public:
    struct Decision
    {
        enum class Kind {
            Applied,
            Declined,
            Replaced,
        };
        Kind kind = Kind::Declined;
        std::optional<ProposalReview> review; // applied: what was written
        std::vector<std::string> leftOut;     // applied: the unchecked rows' names
        // applied: why it is in memory only, when writing it to disk failed
        std::optional<std::string> saveError;

        bool operator==(const Decision&) const = default;
    };
    using DecisionCallback = std::function<void(const Decision&)>;
    // Removes an account with its website data.
    using RemoveSession = std::function<void(const SessionID&)>;
    using GrantedFolders = std::function<std::map<std::string, Bookmark>()>;
    using Observer = std::function<void()>;

    // Without `removeSession` an account is removed through the store alone.
    explicit ProposalInbox(Reach reach = {},
                           RemoveSession removeSession = {},
                           GrantedFolders grantedFolders = {});
    // A proposal still pending is declined.
    ~ProposalInbox();
    ProposalInbox(const ProposalInbox&) = delete;
    ProposalInbox& operator=(const ProposalInbox&) = delete;

    const std::optional<Proposal>& proposal() const { return m_proposal; }
    const std::optional<ProposalReview>& review() const { return m_review; }
    // The review of the proposal without the unchecked rows: what Apply would write.
    const std::optional<ProposalReview>& applying() const
    {
        return m_leftOut.empty() ? m_review : m_applying;
    }
    const ProposalEntries& leftOut() const { return m_leftOut; }
    const std::optional<std::string>& fileName() const { return m_fileName; }
    bool isPending() const { return m_proposal.has_value(); }
    // Why the last proposal left without the person deciding, until another arrives.
    const std::optional<std::string>& notice() const { return m_notice; }

    static constexpr const char* kWithdrawn =
        "The assistant withdrew its proposal, so nothing from it changed.";

    // A pending proposal is replaced; its proposer hears so first.
    void receive(Proposal proposal,
                 DecisionCallback onDecision,
                 const storage::LibraryStore& store,
                 std::optional<std::string> fileName = {});
    void refresh(const storage::LibraryStore& store);
    void setLeftOut(const ProposalEntry& entry, bool isLeftOut, const storage::LibraryStore& store);
    // The person edited one proposed shortcut; false when the proposal has no such shortcut.
    bool replace(const ProposedShortcut& shortcut, const storage::LibraryStore& store);
    // The person picked the file or folder a row needed.
    bool reach(const ShortcutID& id, const Bookmark& bookmark, const storage::LibraryStore& store);
    // Reviews against the library as it is now and writes the checked rows; false, with the
    // proposal still pending, when nothing would be written.
    bool apply(storage::LibraryStore& store);
    void dismiss();
    // The proposer took the pending proposal back: the review closes with notice() saying so,
    // and the proposer, who no longer waits, is not told.
    void withdraw();

    // Observers are told after each change of the inbox.
    size_t observe(Observer observer);
    void removeObserver(size_t token);

private:
    void clear();
    void notify();
    std::vector<std::string> leftOutNames() const;
    void tell(const Decision& decision);

    Reach m_reach;
    RemoveSession m_removeSession;
    GrantedFolders m_grantedFolders;

    std::optional<Proposal> m_proposal;
    std::optional<ProposalReview> m_review;
    std::optional<ProposalReview> m_applying; // only while rows are left out
    ProposalEntries m_leftOut;
    // The files and folders the person picked for the pending proposal, by path.
    std::map<std::string, Bookmark> m_picked;
    std::optional<std::string> m_fileName;
    std::optional<std::string> m_notice;
    DecisionCallback m_onDecision;

    std::vector<std::pair<size_t, Observer>> m_observers;
    size_t m_nextObserver = 1;
};

} // namespace kit::proposal
