// SPDX-License-Identifier: MIT
#include "kit/blocking/small_regex.h"

namespace kit::blocking {

namespace {

constexpr size_t kMaxPatternLength = 4096;
constexpr int kMaxDepth = 32;

unsigned char lowerChar(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c - 'A' + 'a') : c;
}

std::bitset<256> lowered(const std::bitset<256>& set)
{
    std::bitset<256> out;
    for (unsigned c = 0; c < 256; ++c) {
        if (set.test(c)) {
            out.set(lowerChar(static_cast<unsigned char>(c)));
        }
    }
    return out;
}

} // namespace

class SmallRegex::Parser
{
public:
    Parser(std::string_view pattern, bool caseSensitive, SmallRegex& out)
        : m_pattern(pattern)
        , m_caseSensitive(caseSensitive)
        , m_out(out)
    {}

    struct Node
    {
        Op op = Op::Char; // Char, Class or Any; Split marks a group
        unsigned char c = 0;
        uint32_t cls = 0;
        char quantifier = 0;
        std::vector<Node> children;
    };

    bool parse(std::vector<Node>& sequence)
    {
        if (m_pattern.size() > kMaxPatternLength) {
            return fail("the expression is too long");
        }
        if (!m_pattern.empty() && m_pattern.front() == '^') {
            m_out.m_anchoredStart = true;
            ++m_at;
        }
        if (!parseSequence(sequence, 0)) {
            return false;
        }
        if (m_at < m_pattern.size() && m_pattern[m_at] == ')') {
            return fail("unbalanced parenthesis");
        }
        return true;
    }

    bool run()
    {
        std::vector<Node> sequence;
        if (!parse(sequence)) {
            return false;
        }
        for (const Node& node : sequence) {
            emit(node);
        }
        auto& program = m_out.m_program;
        program.push_back({Op::Match});
        for (uint32_t pc = 0; pc < program.size(); ++pc) {
            Instruction& split = program[pc];
            split.acceptsRest = split.op == Op::Split && split.x + 1 < program.size()
                                && program[split.x].op == Op::Any
                                && program[split.x + 1].op == Op::Jump
                                && program[split.x + 1].x == pc && split.y < program.size()
                                && program[split.y].op == Op::Match;
        }
        m_out.findFirst();
        m_out.findClosures();
        return true;
    }

    std::string error;

private:
    bool fail(std::string message)
    {
        error = std::move(message);
        return false;
    }

    bool parseSequence(std::vector<Node>& sequence, int depth)
    {
        while (m_at < m_pattern.size()) {
            char c = m_pattern[m_at];
            if (c == ')') {
                return true;
            }
            if (c == '$') {
                if (m_at + 1 != m_pattern.size() || depth != 0) {
                    return fail("\"$\" is allowed only at the end");
                }
                m_out.m_anchoredEnd = true;
                ++m_at;
                return true;
            }
            Node node;
            if (c == '(') {
                if (depth + 1 > kMaxDepth) {
                    return fail("groups are nested too deeply");
                }
                ++m_at;
                node.op = Op::Split;
                if (!parseSequence(node.children, depth + 1)) {
                    return false;
                }
                if (m_at >= m_pattern.size() || m_pattern[m_at] != ')') {
                    return fail("unbalanced parenthesis");
                }
                ++m_at;
            } else if (c == '[') {
                if (!parseClass(node)) {
                    return false;
                }
            } else if (c == '.') {
                node.op = Op::Any;
                ++m_at;
            } else if (c == '\\') {
                if (m_at + 1 >= m_pattern.size()) {
                    return fail("the expression ends with a backslash");
                }
                setChar(node, static_cast<unsigned char>(m_pattern[m_at + 1]));
                m_at += 2;
            } else if (c == '|') {
                return fail("alternation (\"|\") is not supported");
            } else if (c == '{' || c == '}') {
                return fail("counted repetition (\"{}\") is not supported");
            } else if (c == '*' || c == '+' || c == '?') {
                return fail("a quantifier follows nothing");
            } else if (c == '^') {
                return fail("\"^\" is allowed only at the start");
            } else if (static_cast<unsigned char>(c) >= 0x80) {
                return fail("only ASCII is allowed");
            } else {
                setChar(node, static_cast<unsigned char>(c));
                ++m_at;
            }
            if (m_at < m_pattern.size()
                && (m_pattern[m_at] == '*' || m_pattern[m_at] == '+' || m_pattern[m_at] == '?')) {
                node.quantifier = m_pattern[m_at++];
                if (m_at < m_pattern.size()
                    && (m_pattern[m_at] == '*' || m_pattern[m_at] == '+'
                        || m_pattern[m_at] == '?')) {
                    return fail("quantifiers follow each other");
                }
            }
            sequence.push_back(std::move(node));
        }
        return true;
    }

    void setChar(Node& node, unsigned char c) const
    {
        node.op = Op::Char;
        node.c = m_caseSensitive ? c : lowerChar(c);
    }

    bool parseClass(Node& node)
    {
        ++m_at; // '['
        std::bitset<256> set;
        bool negated = false;
        if (m_at < m_pattern.size() && m_pattern[m_at] == '^') {
            negated = true;
            ++m_at;
        }
        bool first = true;
        while (true) {
            if (m_at >= m_pattern.size()) {
                return fail("unterminated character class");
            }
            auto c = static_cast<unsigned char>(m_pattern[m_at]);
            if (c == ']' && !first) {
                ++m_at;
                break;
            }
            first = false;
            if (c == '\\') {
                if (m_at + 1 >= m_pattern.size()) {
                    return fail("unterminated character class");
                }
                c = static_cast<unsigned char>(m_pattern[++m_at]);
            }
            ++m_at;
            unsigned char last = c;
            if (m_at + 1 < m_pattern.size() && m_pattern[m_at] == '-'
                && m_pattern[m_at + 1] != ']') {
                last = static_cast<unsigned char>(m_pattern[m_at + 1]);
                if (last == '\\') {
                    if (m_at + 2 >= m_pattern.size()) {
                        return fail("unterminated character class");
                    }
                    last = static_cast<unsigned char>(m_pattern[m_at + 2]);
                    ++m_at;
                }
                m_at += 2;
                if (last < c) {
                    return fail("a character range is reversed");
                }
            }
            for (unsigned v = c; v <= last; ++v) {
                set.set(v);
                if (!m_caseSensitive) {
                    set.set(lowerChar(static_cast<unsigned char>(v)));
                }
            }
        }
        if (negated) {
            set.flip();
        }
        node.op = Op::Class;
        node.cls = static_cast<uint32_t>(m_out.m_classes.size());
        m_out.m_classes.push_back(set);
        return true;
    }

    uint32_t here() const { return static_cast<uint32_t>(m_out.m_program.size()); }

    void emitBody(const Node& node)
    {
        if (node.op == Op::Split) {
            for (const Node& child : node.children) {
                emit(child);
            }
        } else {
            m_out.m_program.push_back({node.op, node.c, false, false, node.cls, 0});
        }
    }

    void emit(const Node& node)
    {
        auto& program = m_out.m_program;
        switch (node.quantifier) {
        case '?': {
            uint32_t split = here();
            program.push_back({Op::Split, 0, false, false, split + 1, 0});
            emitBody(node);
            program[split].y = here();
            break;
        }
        case '*': {
            uint32_t split = here();
            program.push_back({Op::Split, 0, false, false, split + 1, 0});
            emitBody(node);
            program.push_back({Op::Jump, 0, false, false, split, 0});
            program[split].y = here();
            break;
        }
        case '+': {
            uint32_t start = here();
            emitBody(node);
            program.push_back({Op::Split, 0, false, false, start, here() + 1});
            break;
        }
        default:
            emitBody(node);
        }
    }

    std::string_view m_pattern;
    bool m_caseSensitive;
    SmallRegex& m_out;
    size_t m_at = 0;
};

void SmallRegex::findClosures()
{
    // Worst case quadratic ("a?a?a?..."): past a few entries per instruction, the search walks.
    const size_t limit = m_program.size() * 4 + 64;
    std::vector<size_t> seen(m_program.size(), SIZE_MAX);
    std::vector<uint32_t> stack;
    m_closureBegin.assign(m_program.size() + 1, 0);
    m_closure.clear();
    for (uint32_t pc = 0; pc < m_program.size(); ++pc) {
        m_closureBegin[pc] = static_cast<uint32_t>(m_closure.size());
        Instruction& from = m_program[pc];
        if (from.op != Op::Jump && from.op != Op::Split) {
            continue;
        }
        from.closureAccepts = followJumps(m_program.data(), pc, seen.data(), pc, stack, m_closure);
        if (m_closure.size() > limit) {
            m_closureBegin.clear();
            m_closure.clear();
            return;
        }
    }
    m_closureBegin.back() = static_cast<uint32_t>(m_closure.size());
    m_closureBegin.shrink_to_fit();
    m_closure.shrink_to_fit();
}

bool SmallRegex::followJumps(const Instruction* program,
                             uint32_t pc,
                             size_t* seen,
                             size_t mark,
                             std::vector<uint32_t>& stack,
                             std::vector<uint32_t>& reached)
{
    bool accepts = false;
    stack.push_back(pc);
    while (!stack.empty()) {
        uint32_t at = stack.back();
        stack.pop_back();
        if (seen[at] == mark) {
            continue;
        }
        seen[at] = mark;
        const Instruction& instruction = program[at];
        accepts = accepts || instruction.acceptsRest;
        if (instruction.op == Op::Jump) {
            stack.push_back(instruction.x);
        } else if (instruction.op == Op::Split) {
            stack.push_back(instruction.y);
            stack.push_back(instruction.x);
        } else {
            reached.push_back(at);
        }
    }
    return accepts;
}

void SmallRegex::findFirst()
{
    m_first.reset();
    m_skipToFirst = false;
    if (m_anchoredStart || m_program.empty()) {
        return;
    }
    std::vector<bool> seen(m_program.size());
    std::vector<uint32_t> stack{0};
    while (!stack.empty()) {
        uint32_t at = stack.back();
        stack.pop_back();
        if (seen[at]) {
            continue;
        }
        seen[at] = true;
        const Instruction& instruction = m_program[at];
        switch (instruction.op) {
        case Op::Jump:
            stack.push_back(instruction.x);
            break;
        case Op::Split:
            if (instruction.acceptsRest) {
                return;
            }
            stack.push_back(instruction.x);
            stack.push_back(instruction.y);
            break;
        case Op::Char:
            m_first.set(instruction.c);
            break;
        case Op::Class:
            m_first |= m_classes[instruction.x];
            break;
        case Op::Any:
        case Op::Match:
            return;
        }
    }
    m_skipToFirst = !m_first.all();
}

std::optional<SmallRegex>
SmallRegex::parse(std::string_view pattern, bool caseSensitive, std::string* error)
{
    SmallRegex regex;
    Parser parser(pattern, caseSensitive, regex);
    if (!parser.run()) {
        if (error) {
            *error = parser.error;
        }
        return std::nullopt;
    }
    return regex;
}

namespace {

// What one node of an expression may start and end with, and whether it may match nothing.
struct Reach
{
    std::bitset<256> first;
    std::bitset<256> last;
    bool empty = false;
};

// One required character or anything else, in a group-free sequence.
struct Item
{
    bool literal = false;
    unsigned char c = 0;
    Reach reach;
};

} // namespace

std::vector<SmallRegex::RequiredText> SmallRegex::requiredTexts(std::string_view pattern,
                                                                bool caseSensitive)
{
    SmallRegex regex;
    Parser parser(pattern, caseSensitive, regex);
    std::vector<Parser::Node> sequence;
    if (!parser.parse(sequence)) {
        return {};
    }
    auto reachOf = [&](const Parser::Node& node, auto& self) -> Reach {
        Reach reach;
        if (node.op == Op::Split) {
            reach.empty = true;
            for (const Parser::Node& child : node.children) {
                Reach inner = self(child, self);
                if (reach.empty) {
                    reach.first |= inner.first;
                }
                reach.last = inner.empty ? reach.last | inner.last : inner.last;
                reach.empty = reach.empty && inner.empty;
            }
        } else {
            if (node.op == Op::Char) {
                reach.first.set(lowerChar(node.c));
            } else if (node.op == Op::Class) {
                // A case-insensitive expression only ever sees lower-case text.
                std::bitset<256> set = regex.m_classes[node.cls];
                for (unsigned c = 'A'; c <= 'Z' && !caseSensitive; ++c) {
                    set.reset(c);
                }
                reach.first = lowered(set);
            } else {
                reach.first.set();
            }
            reach.last = reach.first;
        }
        reach.empty = reach.empty || node.quantifier == '?' || node.quantifier == '*';
        return reach;
    };
    // Groups that must match once are spliced in; everything else stays whole.
    std::vector<Item> items;
    auto flatten = [&](const std::vector<Parser::Node>& nodes, auto& self) -> void {
        for (const Parser::Node& node : nodes) {
            if (node.op == Op::Split && node.quantifier == 0) {
                self(node.children, self);
                continue;
            }
            Item item{false, 0, reachOf(node, reachOf)};
            item.literal = node.quantifier == 0 && item.reach.first.count() == 1;
            if (item.literal) {
                for (unsigned c = 0; c < 256; ++c) {
                    if (item.reach.first.test(c)) {
                        item.c = static_cast<unsigned char>(c);
                    }
                }
            }
            items.push_back(item);
        }
    };
    flatten(sequence, flatten);

    std::vector<RequiredText> texts;
    for (size_t i = 0; i < items.size();) {
        if (!items[i].literal) {
            ++i;
            continue;
        }
        size_t end = i;
        RequiredText text;
        for (; end < items.size() && items[end].literal; ++end) {
            text.text += static_cast<char>(items[end].c);
        }
        // What comes before: the ends of the items back to the first that cannot be empty.
        size_t k = i;
        for (; k > 0; --k) {
            text.before |= items[k - 1].reach.last;
            if (!items[k - 1].reach.empty) {
                break;
            }
        }
        if (k == 0 && !regex.m_anchoredStart) {
            text.before.set();
        }
        k = end;
        for (; k < items.size(); ++k) {
            text.after |= items[k].reach.first;
            if (!items[k].reach.empty) {
                break;
            }
        }
        if (k == items.size() && !regex.m_anchoredEnd) {
            text.after.set();
        }
        texts.push_back(std::move(text));
        i = end;
    }
    return texts;
}

bool SmallRegex::search(std::string_view text, size_t* steps) const
{
    const size_t size = m_program.size();
    // Sparse sets of program counters: the threads alive before and after one character. Kept
    // per thread, so a search allocates nothing once warm.
    thread_local std::vector<uint32_t> current, next, stack;
    thread_local std::vector<size_t> seenAt;
    thread_local size_t generation = 0;
    current.clear();
    next.clear();
    stack.clear();
    if (seenAt.size() < size) {
        seenAt.assign(size, SIZE_MAX);
        generation = 0;
    }
    ++generation;
    size_t advanced = 0;
    bool accepted = false;
    const Instruction* program = m_program.data();
    size_t* seen = seenAt.data();

    auto add = [&](std::vector<uint32_t>& list, uint32_t pc) {
        // Most targets consume a character: they need no stack.
        const Instruction& first = program[pc];
        if (first.op != Op::Jump && first.op != Op::Split) {
            if (seen[pc] != generation) {
                seen[pc] = generation;
                list.push_back(pc);
            }
            return;
        }
        if (!m_closureBegin.empty()) {
            for (uint32_t i = m_closureBegin[pc]; i < m_closureBegin[pc + 1]; ++i) {
                uint32_t at = m_closure[i];
                if (seen[at] != generation) {
                    seen[at] = generation;
                    list.push_back(at);
                }
            }
            accepted = accepted || first.closureAccepts;
            return;
        }
        accepted = followJumps(program, pc, seen, generation, stack, list) || accepted;
    };

    auto run = [&] {
        for (size_t pos = 0; pos <= text.size(); ++pos) {
            if (!m_anchoredStart || pos == 0) {
                if (current.empty() && m_skipToFirst) {
                    // No thread alive: no match can start before a character that begins one.
                    while (pos < text.size()
                           && !m_first.test(static_cast<unsigned char>(text[pos]))) {
                        ++pos;
                    }
                    if (pos == text.size()) {
                        return false;
                    }
                }
                add(current, 0);
                if (accepted) {
                    return true;
                }
            }
            if (current.empty()) {
                return false;
            }
            ++generation;
            next.clear();
            advanced += current.size();
            const bool atEnd = pos == text.size();
            const auto c = atEnd ? 0 : static_cast<unsigned char>(text[pos]);
            for (uint32_t pc : current) {
                const Instruction& instruction = program[pc];
                bool matches = false;
                switch (instruction.op) {
                case Op::Match:
                    if (!m_anchoredEnd || atEnd) {
                        return true;
                    }
                    continue;
                case Op::Char:
                    matches = !atEnd && instruction.c == c;
                    break;
                case Op::Class:
                    matches = !atEnd && m_classes[instruction.x].test(c);
                    break;
                case Op::Any:
                    matches = !atEnd;
                    break;
                default:
                    break;
                }
                if (matches) {
                    add(next, pc + 1);
                    if (accepted) {
                        return true;
                    }
                }
            }
            std::swap(current, next);
        }
        return false;
    };
    bool found = run();
    if (steps) {
        *steps += advanced;
    }
    return found;
}

} // namespace kit::blocking
