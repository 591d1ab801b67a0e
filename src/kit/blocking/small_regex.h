// SPDX-License-Identifier: MIT
#pragma once

#include <bitset>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit::blocking {

// The regular expressions a content-blocker url-filter may hold: literals, ".", classes, groups
// with "*", "+" and "?", "^" at the start and "$" at the end (no alternation, counts or back
// references). Runs as a Thompson machine, so time is linear in the text and nothing recurses.
// Immutable once built; search() may be called from any thread.
class SmallRegex
{
public:
    // The expression, or the reason it is not one this engine (and the content-blocker format)
    // accepts. Case-insensitive expressions must be searched in lower-case text.
    static std::optional<SmallRegex>
    parse(std::string_view pattern, bool caseSensitive, std::string* error = nullptr);

    // Adds the threads it advanced to `steps`: at most the program's size per character.
    bool search(std::string_view text, size_t* steps = nullptr) const;

    // A run of characters every match contains, lower-cased, and the characters that may stand
    // right before and after it in the text (lower-cased; the text's own start or end aside).
    struct RequiredText
    {
        std::string text;
        std::bitset<256> before;
        std::bitset<256> after;
    };
    // The required runs of an expression parse() accepts; none for one it does not.
    static std::vector<RequiredText> requiredTexts(std::string_view pattern, bool caseSensitive);

private:
    enum class Op : uint8_t { Char, Class, Any, Split, Jump, Match };
    struct Instruction
    {
        Op op;
        unsigned char c = 0;
        // A ".*" right before the end: whatever is left of the text, the expression matches.
        bool acceptsRest = false;
        // For a split or jump: whether what it reaches without a character accepts the rest.
        bool closureAccepts = false;
        uint32_t x = 0; // class index, or the first target
        uint32_t y = 0; // the second target of a split
    };
    class Parser;
    // The characters a match may begin with, when it cannot be empty.
    void findFirst();
    // What each split or jump reaches without consuming a character, so a search needs no stack.
    void findClosures();
    // Follows jumps and splits from `pc`, appending to `reached` each instruction that reads a
    // character, once per `mark` in `seen`; says whether the walk passed an accepting one.
    static bool followJumps(const Instruction* program,
                            uint32_t pc,
                            size_t* seen,
                            size_t mark,
                            std::vector<uint32_t>& stack,
                            std::vector<uint32_t>& reached);

    std::vector<Instruction> m_program;
    std::vector<std::bitset<256>> m_classes;
    bool m_anchoredStart = false;
    bool m_anchoredEnd = false;
    bool m_skipToFirst = false;
    std::bitset<256> m_first;
    std::vector<uint32_t> m_closureBegin; // by instruction, one past the end; empty: walk
    std::vector<uint32_t> m_closure;
};

} // namespace kit::blocking
