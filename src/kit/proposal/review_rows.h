// SPDX-License-Identifier: MIT
#pragma once

#include "kit/proposal/proposal_review.h"

#include <optional>
#include <string>
#include <vector>

namespace kit::proposal {

// One row of a review as the person reads it, whatever shows it: what it is about, the verdict in
// words, the lines under it and the entry its check box leaves out.
struct ReviewRow
{
    enum class Kind {
        Account,
        Bar, // a bar that cannot be found (its shortcuts are not reviewed), or a new empty one
        Shortcut,
        BarRemoval,
        BarRename,
        Move,
    };
    // How the verdict reads at a glance.
    enum class Tone {
        Writes,
        Unchanged,
        NeedsAccess,
        Refused,
    };

    Kind kind = Kind::Shortcut;
    Tone tone = Tone::Unchanged;
    // The group the row belongs to: the index of its bar review for bar and shortcut rows.
    std::optional<size_t> bar;
    // “Mail”, Divider, Account “Work”, Bar “Home” renamed to “House”.
    std::string subject;
    std::string verdict; // "added", "renamed from “Home”", "refused"
    int depth = 0;
    // What it is (the address or path, the account, the icon) and then what changes: refusal
    // sentence, note, field changes.
    std::vector<std::string> details;
    std::optional<ProposalEntry> entry; // none: the row has no box (it changes nothing)
    bool isLeftOut = false;             // unchecked, or inside an unchecked group
    // The shortcut as applying would write it, for drawing its icon as the bar would.
    std::optional<library::Shortcut> shortcut;

    bool operator==(const ReviewRow&) const = default;
};

// Every row of the review in order: accounts, each bar's shortcuts, bar removals, renames, moves.
// A group's members follow it; each row that writes has a box of its own, at any depth. Rows in
// `leftOut`, and the members of a group in it, read "left out". `accounts` names the accounts the
// library already has. Every text that came from outside is made visible text.
std::vector<ReviewRow> reviewRows(const ProposalReview& review,
                                  const ProposalEntries& leftOut = {},
                                  const std::vector<library::Session>& accounts = {});

// The verdict of a row the person unchecked.
inline constexpr const char* kLeftOutVerdict = "left out";

// How a bar reads in a row: “Work”, “Reading” (new), or the showing bar.
std::string barLabel(const BarReview& bar);
// "Name: Mail → Post"; an empty value reads "none".
std::string changeText(const FieldChange& change);
// The summary line as a sentence of its own.
std::string summarySentence(const ProposalReview& review);

// What the summary says when rows would write but every one of them is unchecked.
inline constexpr const char* kNothingChecked = "Nothing checked would change your bars.";

} // namespace kit::proposal
