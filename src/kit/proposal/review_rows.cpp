// SPDX-License-Identifier: MIT
#include "kit/proposal/review_rows.h"

#include "kit/support/visible_text.h"

#include <cctype>
#include <functional>

namespace kit::proposal {

using library::Session;
using library::Shortcut;
using library::Target;

namespace {

using AccountName = std::function<std::string(const SessionID&)>;

std::string inQuotes(const std::string& text)
{
    return "“" + text + "”";
}

ReviewRow::Tone tone(const Verdict& verdict)
{
    switch (verdict.kind) {
    case Verdict::Kind::NeedsAccess:
        return ReviewRow::Tone::NeedsAccess;
    case Verdict::Kind::Refused:
        return ReviewRow::Tone::Refused;
    default:
        return verdict.writes() ? ReviewRow::Tone::Writes : ReviewRow::Tone::Unchanged;
    }
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

ReviewRow sessionRow(const SessionReview& session)
{
    ReviewRow row;
    row.kind = ReviewRow::Kind::Account;
    row.subject = "Account " + inQuotes(session.session.name);
    row.verdict = sessionVerdict(session);
    if (session.verdict.kind == SessionReview::Verdict::Kind::Refused) {
        row.tone = ReviewRow::Tone::Refused;
        row.details.emplace_back(description(session.verdict.refusal));
    } else {
        row.tone = session.verdict.writes() ? ReviewRow::Tone::Writes : ReviewRow::Tone::Unchanged;
    }
    if (session.verdict.isRemoval() && session.verdict.shortcutCount > 0) {
        const int n = session.verdict.shortcutCount;
        row.details.push_back(std::to_string(n) + (n == 1 ? " link goes" : " links go")
                              + " back to the default account.");
    }
    if (session.verdict.writes()) {
        row.entry = ProposalEntry::session(session.id);
    }
    return row;
}

std::string itemName(const ItemReview& item)
{
    if (item.kind == Target::Kind::Divider) {
        return "Divider";
    }
    return item.name().empty() ? "(no name)" : inQuotes(std::string(item.name()));
}

// What a shortcut opens, and with what, so the person can judge it before it is on a bar.
std::vector<std::string> whatItIs(const Shortcut& shortcut, const AccountName& accountName)
{
    std::vector<std::string> lines;
    const Target& target = shortcut.target;
    if (const auto* url = target.urlTarget()) {
        lines.push_back("Address: " + url->url);
        lines.push_back("Account: " + (url->sessionID ? accountName(*url->sessionID) : "Default"));
    } else if (const auto* app = target.appTarget()) {
        lines.push_back("App: " + app->bundleID);
    } else if (const auto* file = target.fileTarget()) {
        lines.push_back(std::string(target.kind() == Target::Kind::Folder ? "Folder: " : "File: ")
                        + file->bookmark.displayPath);
        if (file->openWith) {
            lines.push_back("Opens in: " + *file->openWith);
        }
    } else if (target.isGroup()) {
        const size_t n = target.members().size();
        lines.push_back(n == 1 ? std::string("A group of 1 shortcut")
                               : "A group of " + std::to_string(n) + " shortcuts");
    }
    if (shortcut.icon) {
        switch (shortcut.icon->kind) {
        case library::IconOverride::Kind::Symbol:
            lines.push_back("Icon: Symbol " + shortcut.icon->text);
            break;
        case library::IconOverride::Kind::Emoji:
            lines.push_back("Icon: " + shortcut.icon->text);
            break;
        case library::IconOverride::Kind::Image:
            lines.emplace_back("Icon: a picture");
            break;
        }
    }
    if (!shortcut.isInMenuBar) {
        lines.emplace_back("Not in the menu bar");
    }
    return lines;
}

ReviewRow itemRow(const ItemReview& item, size_t bar, const AccountName& accountName)
{
    ReviewRow row;
    row.kind = ReviewRow::Kind::Shortcut;
    row.bar = bar;
    row.subject = itemName(item);
    row.verdict = std::string(word(item.verdict.kind));
    row.tone = tone(item.verdict);
    row.depth = item.depth;
    const Shortcut* shortcut = item.shortcut();
    if (shortcut != nullptr) {
        row.shortcut = *shortcut;
    }
    if (shortcut != nullptr && item.verdict.kind == Verdict::Kind::Added) {
        row.details = whatItIs(*shortcut, accountName);
    }
    if (item.verdict.kind == Verdict::Kind::Refused) {
        row.details.emplace_back(description(item.verdict.refusal));
    } else if (item.verdict.kind == Verdict::Kind::NeedsAccess) {
        row.details.push_back(item.verdict.path + kNotReachedNote);
    }
    // The review notes a row out of reach itself; the path line above already says it.
    if (auto note = item.note(); note && *note != kNotReachedNote) {
        row.details.emplace_back(*note);
    }
    for (const auto& change : item.changes()) {
        row.details.push_back(changeText(change));
    }
    if (item.verdict.writes()) {
        row.entry = ProposalEntry::shortcut(item.id);
    }
    return row;
}

void makeVisible(ReviewRow& row)
{
    row.subject = support::visibleText(row.subject);
    row.verdict = support::visibleText(row.verdict);
    for (auto& detail : row.details) {
        detail = support::visibleText(detail);
    }
}

} // namespace

std::string barLabel(const BarReview& bar)
{
    std::string label = bar.name.empty() ? std::string("the showing bar") : inQuotes(bar.name);
    if (bar.isNew) {
        label += " (new)";
    }
    return label;
}

std::string changeText(const FieldChange& change)
{
    return change.field + ": " + (change.from.empty() ? "none" : change.from) + " → "
           + (change.to.empty() ? "none" : change.to);
}

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

std::vector<ReviewRow> reviewRows(const ProposalReview& review,
                                  const ProposalEntries& leftOut,
                                  const std::vector<Session>& accounts)
{
    const AccountName accountName = [&](const SessionID& id) -> std::string {
        for (const auto& session : review.sessions) {
            if (session.session.id == id) {
                return session.session.name;
            }
        }
        for (const auto& account : accounts) {
            if (account.id == id) {
                return account.name;
            }
        }
        return "Unknown account";
    };
    std::vector<ReviewRow> rows;
    for (const auto& session : review.sessions) {
        rows.push_back(sessionRow(session));
    }
    for (size_t index = 0; index < review.bars.size(); ++index) {
        const BarReview& bar = review.bars[index];
        if (bar.refusal) {
            ReviewRow row;
            row.kind = ReviewRow::Kind::Bar;
            row.tone = ReviewRow::Tone::Refused;
            row.bar = index;
            row.subject = "Bar " + barLabel(bar);
            row.verdict = "refused";
            row.details.emplace_back(description(*bar.refusal));
            rows.push_back(std::move(row));
            continue;
        }
        if (bar.isEmptyNewBar()) {
            ReviewRow row;
            row.kind = ReviewRow::Kind::Bar;
            row.tone = ReviewRow::Tone::Writes;
            row.bar = index;
            row.subject = "Bar " + inQuotes(bar.name);
            row.verdict = "added";
            row.entry = ProposalEntry::newBar(bar.destination.name);
            row.isLeftOut = leftOut.contains(*row.entry);
            rows.push_back(std::move(row));
            continue;
        }
        // Members of an unchecked group go with it: everything deeper until the depth is back.
        int leftOutDepth = -1; // none left out
        for (const auto& item : bar.items) {
            ReviewRow row = itemRow(item, index, accountName);
            if (leftOutDepth >= 0 && row.depth <= leftOutDepth) {
                leftOutDepth = -1;
            }
            if (leftOutDepth < 0 && row.entry && leftOut.contains(*row.entry)) {
                leftOutDepth = row.depth;
            }
            row.isLeftOut = leftOutDepth >= 0 && row.tone == ReviewRow::Tone::Writes;
            rows.push_back(std::move(row));
        }
    }
    for (const auto& removal : review.barRemovals) {
        ReviewRow row;
        row.kind = ReviewRow::Kind::BarRemoval;
        row.subject = "Bar " + inQuotes(removal.name);
        row.verdict = std::string(word(removal.verdict.kind));
        row.tone = tone(removal.verdict);
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
        rows.push_back(std::move(row));
    }
    for (const auto& rename : review.barRenames) {
        ReviewRow row;
        row.kind = ReviewRow::Kind::BarRename;
        row.subject = "Bar " + inQuotes(rename.from) + " renamed to " + inQuotes(rename.to);
        row.verdict = std::string(word(rename.verdict.kind));
        row.tone = tone(rename.verdict);
        if (rename.verdict.kind == Verdict::Kind::Refused) {
            row.details.emplace_back(description(rename.verdict.refusal));
        }
        if (rename.verdict.writes()) {
            row.entry = ProposalEntry::barRename(rename.id);
        }
        rows.push_back(std::move(row));
    }
    for (const auto& move : review.moves) {
        ReviewRow row;
        row.kind = ReviewRow::Kind::Move;
        row.subject = (move.name.empty() ? std::string("(unknown shortcut)") : inQuotes(move.name))
                      + " from " + (move.fromName.empty() ? "?" : inQuotes(move.fromName)) + " to "
                      + (move.toName.empty() ? "?" : inQuotes(move.toName))
                      + (move.to.isNew() ? " (new)" : "");
        row.verdict = std::string(word(move.verdict.kind));
        row.tone = tone(move.verdict);
        if (move.verdict.kind == Verdict::Kind::Refused) {
            row.details.emplace_back(description(move.verdict.refusal));
        }
        if (move.verdict.writes()) {
            row.entry = ProposalEntry::move(move.id);
        }
        rows.push_back(std::move(row));
    }
    for (auto& row : rows) {
        if (row.entry && leftOut.contains(*row.entry)) {
            row.isLeftOut = true;
        }
        if (row.isLeftOut) {
            row.verdict = kLeftOutVerdict;
        }
        makeVisible(row);
    }
    return rows;
}

} // namespace kit::proposal
