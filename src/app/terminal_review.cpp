// SPDX-License-Identifier: MIT
#include "app/terminal_review.h"

#include "kit/storage/library_store.h"

#include <cctype>
#include <charconv>
#include <sstream>

namespace app {

using namespace kit::proposal;
using kit::library::Target;

namespace {

constexpr const char* kNothingChecked = "Nothing checked would change your bars.";

std::string inQuotes(const std::string& text)
{
    return "“" + text + "”";
}

std::string trimmed(const std::string& text)
{
    auto begin = text.find_first_not_of(" \t\r");
    if (begin == std::string::npos) {
        return {};
    }
    auto end = text.find_last_not_of(" \t\r");
    return text.substr(begin, end - begin + 1);
}

std::string sessionVerdict(const SessionReview& row)
{
    using Kind = SessionReview::Verdict::Kind;
    switch (row.verdict.kind) {
    case Kind::Added:
        return "added";
    case Kind::MatchedByName:
        return "matched by name";
    case Kind::Unchanged:
        return "unchanged";
    case Kind::Renamed:
        return "renamed from " + inQuotes(row.verdict.from);
    case Kind::Removed:
        return "removed";
    case Kind::Refused:
        return "refused";
    }
    return {};
}

// The summary line as a sentence of its own.
std::string summarySentence(const ProposalReview& review)
{
    std::string line = summaryLine(review);
    if (!line.empty() && line.back() != '.') {
        line += '.';
    }
    if (!line.empty()) {
        line[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(line[0])));
    }
    return line;
}

std::string itemName(const ItemReview& item)
{
    if (item.kind == Target::Kind::Divider) {
        return "Divider";
    }
    return item.name.empty() ? "(no name)" : inQuotes(item.name);
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
    for (const auto& session : review->sessions) {
        Row row;
        row.text = "Account " + inQuotes(session.session.name) + ": " + sessionVerdict(session);
        if (session.verdict.kind == SessionReview::Verdict::Kind::Refused) {
            row.details.emplace_back(description(session.verdict.refusal));
        } else if (session.verdict.isRemoval() && session.verdict.shortcutCount > 0) {
            int n = session.verdict.shortcutCount;
            row.details.push_back(std::to_string(n) + (n == 1 ? " link goes" : " links go")
                                  + " back to the default account.");
        }
        if (session.verdict.writes()) {
            row.entry = ProposalEntry::session(session.id);
        }
        list.push_back(std::move(row));
    }
    for (const auto& bar : review->bars) {
        std::string barName =
            bar.name.empty() ? std::string("the showing bar") : inQuotes(bar.name);
        if (bar.isNew) {
            barName += " (new)";
        }
        if (bar.refusal) {
            list.push_back({std::nullopt,
                            "Bar " + barName + ": refused",
                            {std::string(description(*bar.refusal))}});
            continue;
        }
        for (const auto& item : bar.items) {
            Row row;
            row.text = std::string(static_cast<size_t>(item.depth) * 2, ' ') + barName + " › "
                       + itemName(item) + ": " + std::string(word(item.verdict.kind));
            if (item.verdict.kind == Verdict::Kind::Refused) {
                row.details.emplace_back(description(item.verdict.refusal));
            } else if (item.verdict.kind == Verdict::Kind::NeedsAccess) {
                row.details.push_back(item.verdict.path + kNotReachedNote);
            }
            if (item.note) {
                row.details.push_back(*item.note);
            }
            for (const auto& change : item.changes) {
                row.details.push_back(change.field + ": "
                                      + (change.from.empty() ? "none" : change.from) + " → "
                                      + (change.to.empty() ? "none" : change.to));
            }
            // Members are checked with their group.
            if (item.verdict.writes() && item.depth == 0) {
                row.entry = ProposalEntry::shortcut(item.id);
            }
            list.push_back(std::move(row));
        }
    }
    for (const auto& removal : review->barRemovals) {
        Row row;
        row.text = "Bar " + inQuotes(removal.name) + ": " + std::string(word(removal.verdict.kind));
        if (removal.verdict.kind == Verdict::Kind::Refused) {
            row.details.emplace_back(description(removal.verdict.refusal));
        } else if (removal.shortcutCount > 0) {
            row.details.push_back(
                "Its " + std::to_string(removal.shortcutCount)
                + (removal.shortcutCount == 1 ? " shortcut goes" : " shortcuts go") + " too.");
        }
        if (removal.verdict.writes()) {
            row.entry = ProposalEntry::barRemoval(removal.id);
        }
        list.push_back(std::move(row));
    }
    for (const auto& rename : review->barRenames) {
        Row row;
        row.text = "Bar " + inQuotes(rename.from) + " renamed to " + inQuotes(rename.to) + ": "
                   + std::string(word(rename.verdict.kind));
        if (rename.verdict.kind == Verdict::Kind::Refused) {
            row.details.emplace_back(description(rename.verdict.refusal));
        }
        if (rename.verdict.writes()) {
            row.entry = ProposalEntry::barRename(rename.id);
        }
        list.push_back(std::move(row));
    }
    for (const auto& move : review->moves) {
        Row row;
        std::string name =
            move.name.empty() ? std::string("(unknown shortcut)") : inQuotes(move.name);
        row.text = name + " from " + (move.fromName.empty() ? "?" : inQuotes(move.fromName))
                   + " to " + (move.toName.empty() ? "?" : inQuotes(move.toName))
                   + (move.to.isNew() ? " (new)" : "") + ": "
                   + std::string(word(move.verdict.kind));
        if (move.verdict.kind == Verdict::Kind::Refused) {
            row.details.emplace_back(description(move.verdict.refusal));
        }
        if (move.verdict.writes()) {
            row.entry = ProposalEntry::move(move.id);
        }
        list.push_back(std::move(row));
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
    std::string title = proposal->title.value_or("A proposal");
    out << title;
    out << "\n";
    if (m_inbox.fileName()) {
        out << "From the document " << inQuotes(*m_inbox.fileName()) << "\n";
    } else if (proposal->source) {
        out << "From: " << *proposal->source << "\n";
    }
    const auto list = rows();
    for (size_t i = 0; i < list.size(); ++i) {
        const Row& row = list[i];
        std::string box = "   ";
        if (row.entry) {
            box = m_inbox.leftOut().contains(*row.entry) ? "[ ]" : "[x]";
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
        return "There is no row " + argument + "; the rows go from 1 to "
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
    std::string command = trimmed(line);
    std::string argument;
    if (auto space = command.find(' '); space != std::string::npos) {
        argument = trimmed(command.substr(space + 1));
        command = command.substr(0, space);
    }
    const bool known = command == "show" || command == "check" || command == "uncheck"
                       || command == "apply" || command == "decline";
    if (command.empty()) {
        return {};
    }
    if (!known) {
        return inQuotes(command) + " is not a command. The commands are: " + kCommands + ".\n";
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
