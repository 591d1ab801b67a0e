// SPDX-License-Identifier: MIT
#pragma once

#include "kit/proposal/proposal_inbox.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kit::storage {
class LibraryStore;
}

namespace app {

// The review of a waiting proposal in a terminal: the rows numbered from 1 with a check box for
// each that would change something, and one command a line to check, uncheck, apply or decline.
// Main thread only; the inbox and the store must outlive it.
class TerminalReview
{
public:
    using Print = std::function<void(const std::string& text)>;

    static constexpr const char* kCommands = "show, uncheck N, check N, apply, decline";

    TerminalReview(kit::proposal::ProposalInbox& inbox,
                   kit::storage::LibraryStore& store,
                   Print print);
    ~TerminalReview();
    TerminalReview(const TerminalReview&) = delete;
    TerminalReview& operator=(const TerminalReview&) = delete;

    // The whole review as the person reads it, ending with the summary line and the commands.
    std::string render() const;
    // Carries out one command line; answers what to print.
    std::string handle(const std::string& line);

private:
    struct Row
    {
        std::optional<kit::proposal::ProposalEntry> entry; // none: the row changes nothing
        std::string text;
        std::vector<std::string> details;
        bool isLeftOut = false;
    };

    std::vector<Row> rows() const;
    std::string check(const std::string& argument, bool checked);
    void inboxChanged();

    kit::proposal::ProposalInbox& m_inbox;
    kit::storage::LibraryStore& m_store;
    Print m_print;
    size_t m_observation = 0;
    std::optional<kit::proposal::Proposal> m_shown;
};

} // namespace app
