// SPDX-License-Identifier: MIT
#pragma once

#include "kit/mcp/tool_error.h"
#include "kit/proposal/proposal_inbox.h"
#include "kit/tools/tool_context.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit::tools {

class Arguments;

// An option of set_link_options that may be cleared: given a value, given as null (back to the
// default), or not given at all (left as it is).
template <class T> struct Setting
{
    enum class State {
        Absent,
        Cleared,
        Value,
    };
    State state = State::Absent;
    T value{};

    static Setting absent() { return {}; }
    static Setting cleared() { return {State::Cleared, T{}}; }
    static Setting of(T value) { return {State::Value, std::move(value)}; }

    void applyTo(std::optional<T>& field) const
    {
        if (state == State::Cleared) {
            field.reset();
        } else if (state == State::Value) {
            field = value;
        }
    }

    bool operator==(const Setting&) const = default;
};

// The eighteen tools that propose changes. None changes anything: each builds a proposal, reviews
// it against the context's snapshot and says what the review found; the tool service hands it to
// the person and completes the answer with their decision. Stateless.
class WriteTools
{
public:
    WriteTools() = delete;

    static const std::vector<mcp::ToolDescription>& descriptions();
    static const std::vector<std::string>& names();
    static bool handles(std::string_view name);

    // What became of a proposal, as the assistant is told.
    enum class Status {
        Waiting,
        Nothing,
        Applied,
        Declined,
        Replaced,
    };

    struct Item
    {
        std::string id;
        std::string name;
        std::string verdict;
        std::optional<std::string> detail;

        bool operator==(const Item&) const = default;
    };

    struct Answer
    {
        Status status = Status::Nothing;
        std::string title;
        std::string message;
        std::vector<Item> items;
        std::vector<std::string> newBars;
        std::vector<std::string> removedBars;
        std::vector<std::string> renamedBars;
        std::vector<std::string> moves;
        std::vector<std::string> newSessions;
        std::vector<std::string> removedSessions;
        std::vector<std::string> hints;
        std::vector<std::string> leftOut;

        // "waiting" when the review has something to do, else "nothing".
        static Answer of(const proposal::ProposalReview& review, std::string title);
        // The answer once the person has decided.
        Answer decided(const proposal::ProposalInbox::Decision& decision) const;
        // Compact JSON, keys sorted.
        std::string encoded() const;

        bool operator==(const Answer&) const = default;
    };

    struct Call
    {
        proposal::Proposal proposal;
        proposal::ProposalReview review;
        Answer answer;
    };

    // Throws mcp::ToolError: unknownTool for a name not among the eighteen, badArguments and the
    // lookup errors for arguments that cannot become a proposal.
    static Call call(const std::string& name,
                     const std::optional<std::string>& arguments,
                     const ToolContext& context,
                     const std::string& source);
    static Call call(const std::string& name,
                     const Arguments& arguments,
                     const ToolContext& context,
                     const std::string& source);

    static std::string_view word(Status status);
    static std::string_view message(Status status, bool unchecked = false);

    static constexpr const char* kUntitled = "Proposed changes";
    // propose arguments longer than this are read by the streamed document reader.
    static constexpr std::size_t kStreamedAbove = std::size_t{64} << 10;
    // Whether call() reads these arguments whole with a strict JSON reader before anything else
    // is done with them, so a fault in them as JSON always makes it fail.
    static bool readsStrictly(std::string_view name, std::string_view arguments)
    {
        return name == "propose" && arguments.size() > kStreamedAbove && arguments.front() == '{';
    }

private:
    static Call
    reviewed(proposal::Proposal proposal, const ToolContext& context, const std::string& source);
};

} // namespace kit::tools
