// SPDX-License-Identifier: MIT
#include "app/terminal_review.h"

#include "kit/proposal/review_rows.h"
#include "kit/storage/library_store.h"
#include "kit/support/text.h"
#include "kit/support/visible_text.h"

#include <charconv>
#include <sstream>

namespace app {

using namespace kit::proposal;

namespace {

using kit::support::visibleText;

std::string inQuotes(const std::string& text)
{
    return "“" + text + "”";
}

} // namespace

TerminalReview::TerminalReview(ProposalInbox& inbox, kit::storage::LibraryStore& store, Print print)
    : m_inbox(inbox)
    , m_store(store)
    , m_print(std::move(print))
{
    m_observation = m_inbox.observe([this] { inboxChanged(); });
}

TerminalReview::~TerminalReview()
{
    m_inbox.removeObserver(m_observation);
}

void TerminalReview::inboxChanged()
{
    // Shown once when it arrives; later changes are the person's own, answered by their command.
    if (!m_inbox.proposal()) {
        // A review that closed without the person: say why, once.
        if (m_shown && m_inbox.notice() && m_print) {
            m_print(*m_inbox.notice() + "\n");
        }
        m_shown.reset();
        return;
    }
    if (m_shown && *m_shown == *m_inbox.proposal()) {
        return;
    }
    m_shown = m_inbox.proposal();
    if (m_print) {
        m_print(render());
    }
}

std::vector<TerminalReview::Row> TerminalReview::rows() const
{
    std::vector<Row> list;
    const auto& review = m_inbox.review();
    if (!review) {
        return list;
    }
    for (auto& row : reviewRows(*review, m_inbox.leftOut(), m_store.sessions())) {
        std::string text = row.subject;
        if (row.kind == ReviewRow::Kind::Shortcut) {
            text = std::string(static_cast<size_t>(row.depth) * 2, ' ')
                   + visibleText(barLabel(review->bars[*row.bar])) + " › " + row.subject;
        }
        list.push_back(
            {row.entry, text + ": " + row.verdict, std::move(row.details), row.isLeftOut});
    }
    return list;
}

std::string TerminalReview::render() const
{
    const auto& proposal = m_inbox.proposal();
    if (!proposal) {
        return "There is no proposal to review.\n";
    }
    std::ostringstream out;
    // Everything the proposal brings is made visible text: a name must not be able to end the
    // output early or move the cursor over rows printed before it.
    out << visibleText(proposal->title.value_or("A proposal")) << "\n";
    if (m_inbox.fileName()) {
        out << "From the document " << inQuotes(visibleText(*m_inbox.fileName())) << "\n";
    } else if (proposal->source) {
        out << "From: " << visibleText(*proposal->source) << "\n";
    }
    const auto list = rows();
    for (size_t i = 0; i < list.size(); ++i) {
        const Row& row = list[i];
        std::string box = "   ";
        if (row.entry) {
            box = row.isLeftOut ? "[ ]" : "[x]";
        }
        out << (i + 1 < 10 ? " " : "") << (i + 1) << ". " << box << " " << row.text << "\n";
        for (const auto& detail : row.details) {
            out << "         " << detail << "\n";
        }
    }
    out << summarySentence(m_inbox.applying() ? *m_inbox.applying() : *m_inbox.review()) << "\n";
    out << "Type one of: " << kCommands << ".\n";
    return out.str();
}

std::string TerminalReview::check(const std::string& argument, bool checked)
{
    const auto list = rows();
    size_t number = 0;
    const char* begin = argument.data();
    const char* end = begin + argument.size();
    auto [next, error] = std::from_chars(begin, end, number);
    if (argument.empty() || error != std::errc() || next != end) {
        return "Give the number of a row, as in “" + std::string(checked ? "check" : "uncheck")
               + " 2”.\n";
    }
    if (number < 1 || number > list.size()) {
        return "There is no row " + visibleText(argument) + "; the rows go from 1 to "
               + std::to_string(list.size()) + ".\n";
    }
    const Row& row = list[number - 1];
    if (!row.entry) {
        return "Row " + argument + " changes nothing, so there is nothing to "
               + (checked ? "check" : "uncheck") + ".\n";
    }
    m_inbox.setLeftOut(*row.entry, !checked, m_store);
    const auto& applying = m_inbox.applying() ? *m_inbox.applying() : *m_inbox.review();
    return "Row " + argument + (checked ? " is checked. " : " is left out. ")
           + (applying.hasWork() ? summarySentence(applying) : std::string(kNothingChecked)) + "\n";
}

std::string TerminalReview::handle(const std::string& line)
{
    std::string command(kit::support::trimmed(line, " \t\r"));
    std::string argument;
    if (auto space = command.find(' '); space != std::string::npos) {
        argument = kit::support::trimmed(std::string_view(command).substr(space + 1), " \t\r");
        command = command.substr(0, space);
    }
    const bool known = command == "show" || command == "check" || command == "uncheck"
                       || command == "apply" || command == "decline";
    if (command.empty()) {
        return {};
    }
    if (!known) {
        return inQuotes(visibleText(command)) + " is not a command. The commands are: " + kCommands
               + ".\n";
    }
    if (!m_inbox.isPending()) {
        return "There is no proposal to review.\n";
    }
    if (command == "show") {
        return render();
    }
    if (command == "check" || command == "uncheck") {
        return check(argument, command == "check");
    }
    if (command == "decline") {
        m_inbox.dismiss();
        return "Declined; nothing was changed.\n";
    }
    // Apply.
    m_inbox.refresh(m_store);
    if (!m_inbox.apply(m_store)) {
        return std::string(kNothingChecked) + " Check a row, or decline.\n";
    }
    return "Applied: the checked rows are on your bars now.\n";
}

} // namespace app
