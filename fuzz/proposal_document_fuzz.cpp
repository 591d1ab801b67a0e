// SPDX-License-Identifier: MIT
// Proposal documents as they arrive from files and assistants. Any bytes must decode or fail with
// a DecodeError, never crash; what decodes must read back equal after encoding; and reviewing it
// against a small library, then writing the review into a copy of that library, must not crash or
// break the library's invariants.
#include "kit/library/library_json.h"
#include "kit/proposal/proposal_review.h"
#include "kit/proposal/review_rows.h"
#include "kit/support/visible_text.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace kit::library;
using namespace kit::proposal;

namespace {

// Fixed ids, so seeds can name what is on the bar.
template <class Id> Id fixed(const char* text)
{
    return *Id::parse(text);
}

const LibrarySnapshot& snapshot()
{
    static const LibrarySnapshot kSnapshot = [] {
        SessionID work = fixed<SessionID>("5E55105E-0000-4000-8000-000000000001");
        URLTarget mailURL;
        mailURL.url = "https://mail.example.com/";
        mailURL.sessionID = work;
        Shortcut inbox{fixed<ShortcutID>("5C000000-0000-4000-8000-000000000002"),
                       "Inbox",
                       Target::url(mailURL),
                       {},
                       {},
                       {},
                       true};
        Shortcut mail{fixed<ShortcutID>("5C000000-0000-4000-8000-000000000001"),
                      "Mail",
                      Target::group({inbox}),
                      {},
                      {},
                      {},
                      true};
        Shortcut notes{fixed<ShortcutID>("5C000000-0000-4000-8000-000000000003"),
                       "Notes",
                       Target::file(FileTarget{Bookmark{{1, 2}, "/home/me/notes.txt"}, {}}),
                       {},
                       {},
                       {},
                       true};
        Bar main{fixed<BarID>("BA000000-0000-4000-8000-000000000001"), "Main", "library.json"};
        Bar side{fixed<BarID>("BA000000-0000-4000-8000-000000000002"), "Side", "library-a.json"};
        return LibrarySnapshot({main, side},
                               main.id,
                               {{main.id, Library{1, {mail, notes}}}, {side.id, Library{}}},
                               {Session{work, "Work", 2}});
    }();
    return kSnapshot;
}

std::optional<Bookmark> reachHome(const std::string& path)
{
    if (path.rfind("/home/", 0) == 0) {
        return Bookmark{{7}, "/home"};
    }
    return std::nullopt;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    Proposal proposal;
    try {
        proposal = Proposal::decode(text);
    } catch (const DecodeError&) {
        return 0;
    }
    // The streamed coding must agree with the tree coding. Ids the document left out are fresh
    // on each reading, so those are carried over before comparing.
    Proposal tree = kit::proposal::reference::decode(text);
    auto mine = proposal.allShortcuts();
    auto theirs = tree.allShortcuts();
    if (mine.size() != theirs.size()) {
        std::abort();
    }
    for (size_t i = 0; i < mine.size(); ++i) {
        if (mine[i]->id != theirs[i]->id) {
            if (text.find(mine[i]->id.string()) != std::string_view::npos) {
                std::abort();
            }
            const_cast<ProposedShortcut*>(theirs[i])->id = mine[i]->id;
        }
    }
    if (tree != proposal) {
        std::abort();
    }
    std::string encoded = proposal.encoded();
    if (encoded != kit::proposal::reference::encode(proposal)
        || Proposal::decode(encoded) != proposal) {
        std::abort();
    }
    ProposalReview result = review(proposal, snapshot(), &reachHome);
    (void)summaryLine(result);
    // Whatever the names hold, every row reads as plain text that cannot act on a terminal.
    auto isShowable = [](const std::string& text) {
        for (char c : text) {
            auto byte = static_cast<unsigned char>(c);
            if (byte < 0x20 || byte == 0x7F) {
                return false;
            }
        }
        return kit::support::validUtf8(text) == text;
    };
    for (const auto& row : reviewRows(result, {}, snapshot().sessions)) {
        if (!isShowable(row.subject) || !isShowable(row.verdict)) {
            std::abort();
        }
        for (const auto& detail : row.details) {
            if (!isShowable(detail)) {
                std::abort();
            }
        }
    }
    for (const auto& bar : result.bars) {
        if (!bar.barID || bar.isNew) {
            continue;
        }
        const Library* before = snapshot().library(*bar.barID);
        if (before == nullptr) {
            continue;
        }
        Library library = *before;
        bar.apply(library);
        for (const auto& violation : library.validate({snapshot().sessions[0].id})) {
            if (violation.kind == Violation::Kind::DuplicateShortcut) {
                std::abort();
            }
        }
    }
    return 0;
}
