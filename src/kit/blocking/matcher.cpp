// SPDX-License-Identifier: MIT
#include "kit/blocking/matcher.h"

#include "kit/blocking/filter_list.h"
#include "kit/blocking/small_regex.h"
#include "kit/support/json_reader.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cstring>
#include <map>
#include <type_traits>
#include <unordered_map>

namespace kit::blocking {

namespace {

// Flat records, copied to and from the cache byte for byte.
enum PartKind : uint8_t { PartLiteral, PartStar, PartSeparator, PartSeparatorOrEnd };
struct Part
{
    uint32_t offset;
    uint32_t length;
    uint8_t kind;
    uint8_t pad[3];
};

enum PatternFlag : uint8_t {
    FlagHostAnchor = 1,
    FlagStartAnchor = 2,
    FlagEndAnchor = 4,
    FlagCaseSensitive = 8,
    FlagRegex = 16,
    FlagEverything = 32,
};
struct Pattern
{
    uint32_t partsBegin;
    uint32_t partsCount;
    uint32_t regex;
    uint8_t flags;
    uint8_t pad[3];
};

struct RegexSource
{
    uint32_t offset;
    uint32_t length;
    uint32_t caseSensitive;
};

enum Action : uint8_t {
    ActionBlock,
    ActionIgnore,
    ActionHide,
    ActionBlockCookies,
    ActionMakeHttps,
    ActionCount
};
enum RuleFlag : uint8_t {
    FirstParty = 1,
    ThirdParty = 2,
    UnlessDomain = 4,
    UnlessTopUrl = 8,
    // Which documents the rule's "document" type covers; neither bit: both.
    TopFrame = 16,
    ChildFrame = 32,
};
// Whose frame a decision is for: hiding asks for a page whatever frame it is in.
enum class Frame : uint8_t { Top, Child, Any };
struct Rule
{
    uint32_t pattern;
    uint32_t domainsBegin;
    uint32_t domainsCount;
    uint32_t topBegin;
    uint32_t topCount;
    uint32_t selectorOffset;
    uint32_t selectorLength;
    uint16_t types;
    uint8_t action;
    uint8_t flags;
};

struct DomainEntry
{
    uint64_t hash;
    uint32_t star;
    uint32_t pad;
};

struct Slot
{
    uint64_t key;
    uint32_t begin;
    uint32_t count;
};

enum SuffixKind : uint32_t { SuffixRule = 1, WildcardParent = 2, SuffixException = 4 };

// What a token posting's first test needs, next to it so that most candidates are turned away
// without touching their rule: the rule's types and action, and up to four characters on each
// side of the token in the rule's literal, which the address must show around the same token.
constexpr size_t kProbeReach = 4;
struct Probe
{
    std::array<char, kProbeReach> before;
    std::array<char, kProbeReach> after;
    uint16_t summary;
    uint8_t beforeLength;
    uint8_t afterLength;
};

static_assert(sizeof(Probe) == 12 && sizeof(Part) == 12 && sizeof(Pattern) == 16
              && sizeof(Rule) == 32 && sizeof(DomainEntry) == 16 && sizeof(Slot) == 16);

constexpr size_t kMaxParts = 256;
// Resource types take the low 13 bits of a rule summary, the action the 3 above.
constexpr unsigned kSummaryActionShift = 13;
static_assert(kAllResourceTypes < (1u << kSummaryActionShift) && ActionCount <= 8);
constexpr uint32_t kNoRegex = UINT32_MAX;
constexpr std::string_view kMagic = "VTRBLOCK";
// Magic, format version, byte order, payload length, payload checksum.
constexpr size_t kHeaderSize = 8 + 4 + 4 + 8 + 8;

uint64_t hashBytes(std::string_view text)
{
    uint64_t hash = 0xcbf29ce484222325ULL;
    for (char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3ULL;
    }
    return hash == 0 ? 1 : hash;
}

uint64_t checksum(std::string_view bytes)
{
    uint64_t hash = 0x9e3779b97f4a7c15ULL ^ bytes.size();
    size_t i = 0;
    for (; i + 8 <= bytes.size(); i += 8) {
        uint64_t word;
        std::memcpy(&word, bytes.data() + i, 8);
        hash = (hash ^ word) * 0xff51afd7ed558ccdULL;
        hash ^= hash >> 32;
    }
    for (; i < bytes.size(); ++i) {
        hash = (hash ^ static_cast<unsigned char>(bytes[i])) * 0x100000001b3ULL;
    }
    return hash;
}

bool isTokenChar(unsigned char c)
{
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '%';
}

// Calls visit(start, end) for each run of token characters in lower-case text; the same cut on
// both sides, rules and requests, so a rule's token is found whole in the addresses it matches.
// Forced inline: on the request side it is the hot loop, and as a call it cost about 5%.
template <class Visit>
[[gnu::always_inline]] inline void forEachToken(std::string_view text, Visit&& visit)
{
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && !isTokenChar(static_cast<unsigned char>(text[i]))) {
            ++i;
        }
        const size_t start = i;
        while (i < text.size() && isTokenChar(static_cast<unsigned char>(text[i]))) {
            ++i;
        }
        if (i > start) {
            visit(start, i);
        }
    }
}

bool isSeparator(unsigned char c)
{
    return !((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_'
             || c == '.' || c == '%' || c == '-');
}

char lowerChar(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// An open-addressed table from a 64-bit key to a run of postings.
struct Table
{
    std::vector<Slot> slots;
    std::vector<uint32_t> postings;
    // One bit per key hash, small enough to stay in cache: most tokens of an address are no key,
    // and this answers for them without touching the (much larger) slots. Derived, never stored.
    std::vector<uint64_t> presence;

    size_t presenceBit(uint64_t key) const { return (key >> 32) & (presence.size() * 64 - 1); }

    void buildPresence()
    {
        size_t keys = 0;
        for (const Slot& slot : slots) {
            keys += slot.key != 0;
        }
        size_t words = 1;
        while (words * 64 < keys * 12) {
            words *= 2;
        }
        presence.assign(words, 0);
        for (const Slot& slot : slots) {
            if (slot.key != 0) {
                size_t at = presenceBit(slot.key);
                presence[at / 64] |= uint64_t{1} << (at % 64);
            }
        }
    }

    std::pair<const uint32_t*, const uint32_t*> find(uint64_t key) const
    {
        if (slots.empty()) {
            return {nullptr, nullptr};
        }
        if (!presence.empty()) {
            size_t at = presenceBit(key);
            if (!(presence[at / 64] & (uint64_t{1} << (at % 64)))) {
                return {nullptr, nullptr};
            }
        }
        size_t mask = slots.size() - 1;
        for (size_t i = key & mask, probes = 0; probes < slots.size();
             i = (i + 1) & mask, ++probes) {
            const Slot& slot = slots[i];
            if (slot.key == key) {
                return {postings.data() + slot.begin, postings.data() + slot.begin + slot.count};
            }
            if (slot.key == 0) {
                break;
            }
        }
        return {nullptr, nullptr};
    }

    // Builds from (key, posting) pairs; pairs of one key keep their order.
    static Table build(std::vector<std::pair<uint64_t, uint32_t>> pairs)
    {
        std::stable_sort(pairs.begin(), pairs.end(), [](const auto& a, const auto& b) {
            return a.first < b.first;
        });
        size_t keys = 0;
        for (size_t i = 0; i < pairs.size(); ++i) {
            keys += i == 0 || pairs[i].first != pairs[i - 1].first;
        }
        Table table;
        // Up to 7/8 full: the presence bits turn most misses away before any probing, and the
        // slots are the largest table of all.
        size_t capacity = 16;
        while (capacity * 7 < keys * 8) {
            capacity *= 2;
        }
        table.slots.assign(capacity, Slot{0, 0, 0});
        table.postings.reserve(pairs.size());
        for (size_t i = 0; i < pairs.size();) {
            uint64_t key = pairs[i].first;
            auto begin = static_cast<uint32_t>(table.postings.size());
            for (; i < pairs.size() && pairs[i].first == key; ++i) {
                if (table.postings.size() == begin || table.postings.back() != pairs[i].second) {
                    table.postings.push_back(pairs[i].second);
                }
            }
            size_t at = key & (capacity - 1);
            while (table.slots[at].key != 0) {
                at = (at + 1) & (capacity - 1);
            }
            table.slots[at] =
                Slot{key, begin, static_cast<uint32_t>(table.postings.size() - begin)};
        }
        table.buildPresence();
        return table;
    }
};

// Rules of one kind found through tokens of the address, domains of the page, or always.
struct Index
{
    Table tokens;
    Table domains;
    std::vector<uint32_t> rest;
};

// Writes and reads the flat records; the reader checks every length against what is left.
class Writer
{
public:
    std::string bytes;

    template <class T> void put(const std::vector<T>& items)
    {
        static_assert(std::is_trivially_copyable_v<T>);
        putCount(items.size());
        bytes.append(reinterpret_cast<const char*>(items.data()), items.size() * sizeof(T));
    }
    void put(const std::string& text)
    {
        putCount(text.size());
        bytes.append(text);
    }
    void put(const Index& index)
    {
        put(index.tokens.slots);
        put(index.tokens.postings);
        put(index.domains.slots);
        put(index.domains.postings);
        put(index.rest);
    }

private:
    void putCount(uint64_t count) { bytes.append(reinterpret_cast<const char*>(&count), 8); }
};

class Reader
{
public:
    explicit Reader(std::string_view bytes)
        : m_bytes(bytes)
    {}

    template <class T> bool get(std::vector<T>& items)
    {
        uint64_t count = 0;
        if (!getCount(count) || count > (m_bytes.size() - m_at) / sizeof(T)) {
            return false;
        }
        items.resize(count);
        if (count > 0) {
            std::memcpy(items.data(), m_bytes.data() + m_at, count * sizeof(T));
        }
        m_at += count * sizeof(T);
        return true;
    }
    bool get(std::string& text)
    {
        uint64_t count = 0;
        if (!getCount(count) || count > m_bytes.size() - m_at) {
            return false;
        }
        text.assign(m_bytes.substr(m_at, count));
        m_at += count;
        return true;
    }
    bool get(Index& index)
    {
        return get(index.tokens.slots) && get(index.tokens.postings) && get(index.domains.slots)
               && get(index.domains.postings) && get(index.rest);
    }
    bool atEnd() const { return m_at == m_bytes.size(); }

private:
    bool getCount(uint64_t& count)
    {
        if (m_bytes.size() - m_at < 8) {
            return false;
        }
        std::memcpy(&count, m_bytes.data() + m_at, 8);
        m_at += 8;
        return true;
    }

    std::string_view m_bytes;
    size_t m_at = 0;
};

// Where the host lies in an address: after "scheme:" and an optional "//", up to the path.
std::pair<size_t, size_t> hostRange(std::string_view url)
{
    size_t colon = url.find(':');
    if (colon == std::string_view::npos) {
        return {std::string_view::npos, std::string_view::npos};
    }
    size_t start = colon + 1;
    if (url.substr(start, 2) == "//") {
        start += 2;
    }
    // A plain loop: find_first_of looks each character up in the set with a call.
    size_t end = start;
    while (end < url.size() && url[end] != '/' && url[end] != '?' && url[end] != '#') {
        ++end;
    }
    // Credentials and a port are not part of the host.
    size_t at = url.substr(start, end - start).rfind('@');
    if (at != std::string_view::npos) {
        start += at + 1;
    }
    return {start, end};
}

std::string_view hostOf(std::string_view lowerUrl)
{
    auto [start, end] = hostRange(lowerUrl);
    if (start == std::string_view::npos) {
        return {};
    }
    std::string_view host = lowerUrl.substr(start, end - start);
    if (!host.empty() && host.front() == '[') {
        return host.substr(0, host.find(']') + 1);
    }
    return host.substr(0, host.find(':'));
}

} // namespace

// Everything a matcher holds, as flat arrays that serialize() writes out unchanged.
struct Matcher::Tables
{
    std::string blob;
    std::vector<Part> parts;
    std::vector<Pattern> patterns;
    std::vector<RegexSource> regexSources;
    std::vector<Rule> rules;
    std::vector<DomainEntry> domains;
    std::vector<uint32_t> topPatterns;
    Index network;
    Index hiding;
    std::vector<Slot> suffixes;
    // Built from regexSources when compiled or loaded; never stored.
    std::vector<SmallRegex> regexes;
    // One per posting of network.tokens, in the same order. Stored: deriving them visits every
    // rule's pattern, which costs a load more than reading them does.
    std::vector<Probe> probes;
    // Each rule's resource types and action in 16 bits, derived like regexes.
    std::vector<uint16_t> summaries;

    void buildSummaries()
    {
        summaries.resize(rules.size());
        for (size_t i = 0; i < rules.size(); ++i) {
            summaries[i] = static_cast<uint16_t>((rules[i].types & kAllResourceTypes)
                                                 | (rules[i].action << kSummaryActionShift));
        }
    }

    // After buildSummaries(); `byRule` holds the characters round each rule's indexed token.
    void buildProbes(const std::vector<Probe>& byRule)
    {
        probes.resize(network.tokens.postings.size());
        for (size_t i = 0; i < probes.size(); ++i) {
            uint32_t rule = network.tokens.postings[i];
            probes[i] = byRule[rule];
            probes[i].summary = summaries[rule];
        }
    }

    size_t memory() const
    {
        auto bytes = [](const auto& v) { return v.capacity() * sizeof(v[0]); };
        auto index = [&](const Index& i) {
            return bytes(i.tokens.slots) + bytes(i.tokens.postings) + bytes(i.tokens.presence)
                   + bytes(i.domains.slots) + bytes(i.domains.postings) + bytes(i.domains.presence)
                   + bytes(i.rest);
        };
        return blob.capacity() + bytes(parts) + bytes(patterns) + bytes(regexSources) + bytes(rules)
               + bytes(domains) + bytes(topPatterns) + index(network) + index(hiding)
               + bytes(suffixes) + bytes(summaries) + bytes(probes)
               + regexes.capacity() * sizeof(SmallRegex);
    }

    uint32_t suffixKind(std::string_view name) const
    {
        if (suffixes.empty()) {
            return 0;
        }
        uint64_t key = hashBytes(name);
        size_t mask = suffixes.size() - 1;
        for (size_t i = key & mask, probes = 0; probes < suffixes.size();
             i = (i + 1) & mask, ++probes) {
            if (suffixes[i].key == key) {
                return suffixes[i].begin;
            }
            if (suffixes[i].key == 0) {
                break;
            }
        }
        return 0;
    }

    std::string_view registrable(std::string_view host) const
    {
        if (host.empty() || host.front() == '[') {
            return host;
        }
        size_t lastDot = host.rfind('.');
        std::string_view last = lastDot == std::string_view::npos ? host : host.substr(lastDot + 1);
        if (!last.empty()
            && std::all_of(last.begin(), last.end(), [](char c) { return c >= '0' && c <= '9'; })) {
            return host; // an IPv4 address
        }
        // The public suffix's start: the longest suffix rule that matches.
        size_t suffixStart = lastDot == std::string_view::npos ? 0 : lastDot + 1;
        if (suffixes.empty()) {
            // Without a list: two-letter country codes under a short generic label ("co.uk").
            size_t previous = lastDot == std::string_view::npos || lastDot == 0
                                  ? std::string_view::npos
                                  : host.rfind('.', lastDot - 1);
            size_t secondStart = previous == std::string_view::npos ? 0 : previous + 1;
            std::string_view second = lastDot == std::string_view::npos
                                          ? std::string_view()
                                          : host.substr(secondStart, lastDot - secondStart);
            static constexpr std::string_view kGeneric[] = {
                "co", "com", "net", "org", "gov", "ac", "edu", "ne", "or"};
            if (last.size() == 2
                && std::find(std::begin(kGeneric), std::end(kGeneric), second)
                       != std::end(kGeneric)) {
                suffixStart = secondStart;
            }
        } else {
            for (size_t start = 0; start < host.size();) {
                std::string_view candidate = host.substr(start);
                uint32_t kind = suffixKind(candidate);
                if (kind & SuffixException) {
                    size_t dot = candidate.find('.');
                    suffixStart = dot == std::string_view::npos ? host.size() : start + dot + 1;
                    break;
                }
                if (kind & SuffixRule) {
                    suffixStart = start;
                    break;
                }
                size_t dot = candidate.find('.');
                if (dot == std::string_view::npos) {
                    break;
                }
                if (suffixKind(candidate.substr(dot + 1)) & WildcardParent) {
                    suffixStart = start;
                    break;
                }
                start += dot + 1;
            }
        }
        if (suffixStart == 0) {
            return host;
        }
        size_t labelStart = host.rfind('.', suffixStart - 2);
        return host.substr(labelStart == std::string_view::npos ? 0 : labelStart + 1);
    }

    bool buildRegexes()
    {
        regexes.clear();
        regexes.reserve(regexSources.size());
        for (const RegexSource& source : regexSources) {
            auto regex =
                SmallRegex::parse(std::string_view(blob).substr(source.offset, source.length),
                                  source.caseSensitive != 0);
            if (!regex) {
                return false;
            }
            regexes.push_back(std::move(*regex));
        }
        return true;
    }

    // Every index and range in the tables points inside them, so a damaged cache cannot make a
    // decision read out of bounds or loop.
    bool valid() const
    {
        auto inBlob = [&](uint64_t offset, uint64_t length) {
            return offset + length <= blob.size();
        };
        for (const Part& part : parts) {
            if (!inBlob(part.offset, part.length) || part.kind > PartSeparatorOrEnd) {
                return false;
            }
        }
        for (const Pattern& pattern : patterns) {
            if (uint64_t{pattern.partsBegin} + pattern.partsCount > parts.size()
                || pattern.partsCount > kMaxParts
                || ((pattern.flags & FlagRegex) && pattern.regex >= regexSources.size())) {
                return false;
            }
        }
        for (const RegexSource& source : regexSources) {
            if (!inBlob(source.offset, source.length)) {
                return false;
            }
        }
        for (const Rule& rule : rules) {
            if (rule.pattern >= patterns.size() || rule.action >= ActionCount
                || uint64_t{rule.domainsBegin} + rule.domainsCount > domains.size()
                || uint64_t{rule.topBegin} + rule.topCount > topPatterns.size()
                || !inBlob(rule.selectorOffset, rule.selectorLength)) {
                return false;
            }
        }
        for (uint32_t pattern : topPatterns) {
            if (pattern >= patterns.size()) {
                return false;
            }
        }
        auto validTable = [&](const Table& table) {
            if (!table.slots.empty() && (table.slots.size() & (table.slots.size() - 1)) != 0) {
                return false;
            }
            for (const Slot& slot : table.slots) {
                if (uint64_t{slot.begin} + slot.count > table.postings.size()) {
                    return false;
                }
            }
            return std::all_of(table.postings.begin(), table.postings.end(), [&](uint32_t r) {
                return r < rules.size();
            });
        };
        auto validIndex = [&](const Index& index) {
            return validTable(index.tokens) && validTable(index.domains)
                   && std::all_of(index.rest.begin(), index.rest.end(), [&](uint32_t r) {
                          return r < rules.size();
                      });
        };
        bool suffixesSized = suffixes.empty() || (suffixes.size() & (suffixes.size() - 1)) == 0;
        bool probesFit = probes.size() == network.tokens.postings.size()
                         && std::all_of(probes.begin(), probes.end(), [](const Probe& probe) {
                                return probe.beforeLength <= kProbeReach
                                       && probe.afterLength <= kProbeReach
                                       && (probe.summary >> kSummaryActionShift) < ActionCount;
                            });
        return validIndex(network) && validIndex(hiding) && suffixesSized && probesFit;
    }
};

// One side of a decision (the request or its page): the address, lowered, and its host.
struct Subject
{
    std::string_view raw;
    std::string_view lower;
    size_t hostStart = std::string_view::npos;
    size_t hostEnd = std::string_view::npos;
};

struct Matcher::Context
{
    const Tables& tables;
    Subject request;
    Subject top;
    std::string_view topHost;
    ResourceType type;
    Frame frame = Frame::Any;
    Effort* effort = nullptr;
    // Lowered copies live in per-thread buffers, so a decision allocates nothing once warm.
    static thread_local std::string lowerStorage;
    // The page side of the last decision on this thread: a page's loads come one after
    // another, and its address need not be lowered and hashed again for each.
    struct Page
    {
        std::string raw;
        std::string lower;
        size_t hostStart = std::string_view::npos;
        size_t hostEnd = std::string_view::npos;
        std::string_view host;
        std::array<uint64_t, 16> hashes{};
        size_t hashCount = 0;
    };
    static thread_local Page lastPage;
    // Hashes of the page host and each of its parent domains, whole host first.
    std::array<uint64_t, 16> topHashes{};
    size_t topHashCount = 0;
    int party = -1; // unknown, else 1 for third-party
    int steps = 0;

    Context(const Tables& t,
            std::string_view url,
            std::string_view topUrl,
            ResourceType resourceType)
        : tables(t)
        , type(resourceType)
    {
        request = subject(url, lowerStorage);
        if (topUrl == url) {
            top = Subject{topUrl, request.lower, request.hostStart, request.hostEnd};
            if (top.hostStart != std::string_view::npos) {
                topHost = hostOf(top.lower);
            }
            topHashCount = domainHashes(topHost, topHashes);
            return;
        }
        Page& page = lastPage;
        if (page.raw != topUrl) {
            page.raw.assign(topUrl);
            Subject fresh = subject(topUrl, page.lower);
            page.hostStart = fresh.hostStart;
            page.hostEnd = fresh.hostEnd;
            page.host =
                fresh.hostStart == std::string_view::npos ? std::string_view() : hostOf(page.lower);
            page.hashCount = domainHashes(page.host, page.hashes);
        }
        top = Subject{topUrl, page.lower, page.hostStart, page.hostEnd};
        topHost = page.host;
        topHashes = page.hashes;
        topHashCount = page.hashCount;
    }

    static size_t domainHashes(std::string_view host, std::array<uint64_t, 16>& hashes)
    {
        size_t count = 0;
        while (!host.empty() && count < hashes.size()) {
            hashes[count++] = hashBytes(host);
            size_t dot = host.find('.');
            if (dot == std::string_view::npos) {
                break;
            }
            host.remove_prefix(dot + 1);
        }
        return count;
    }

    static Subject subject(std::string_view url, std::string& storage)
    {
        storage.assign(url);
        for (char& c : storage) {
            c = lowerChar(c);
        }
        Subject s{url, storage};
        auto [start, end] = hostRange(storage);
        s.hostStart = start;
        s.hostEnd = end;
        return s;
    }

    bool thirdParty()
    {
        if (party < 0) {
            std::string_view requestHost = hostOf(request.lower);
            party = (!topHost.empty() && requestHost != topHost
                     && tables.registrable(requestHost) != tables.registrable(topHost))
                        ? 1
                        : 0;
        }
        return party == 1;
    }

    bool matchParts(const Part* parts,
                    size_t count,
                    std::string_view text,
                    size_t pos,
                    bool anchored,
                    bool endAnchor)
    {
        if (++steps > 20000) {
            return false;
        }
        if (count == 0) {
            return !endAnchor || pos == text.size();
        }
        const Part& part = parts[0];
        switch (part.kind) {
        case PartStar:
            return matchParts(parts + 1, count - 1, text, pos, false, endAnchor);
        case PartSeparatorOrEnd:
            if (anchored) {
                return pos == text.size() || isSeparator(static_cast<unsigned char>(text[pos]));
            }
            return true;
        case PartSeparator:
            for (size_t at = pos; at < text.size(); ++at) {
                if (isSeparator(static_cast<unsigned char>(text[at]))
                    && matchParts(parts + 1, count - 1, text, at + 1, true, endAnchor)) {
                    return true;
                }
                if (anchored) {
                    break;
                }
            }
            return false;
        default: {
            std::string_view literal(tables.blob.data() + part.offset, part.length);
            if (anchored) {
                return text.substr(pos, literal.size()) == literal
                       && matchParts(
                           parts + 1, count - 1, text, pos + literal.size(), true, endAnchor);
            }
            if (count == 1 && endAnchor) {
                return text.size() >= pos + literal.size() && text.ends_with(literal);
            }
            for (size_t at = text.find(literal, pos); at != std::string_view::npos;
                 at = text.find(literal, at + 1)) {
                if (matchParts(parts + 1, count - 1, text, at + literal.size(), true, endAnchor)) {
                    return true;
                }
            }
            return false;
        }
        }
    }

    bool matchPattern(uint32_t index, const Subject& subject)
    {
        const Pattern& pattern = tables.patterns[index];
        if (pattern.flags & FlagEverything) {
            return true;
        }
        // Each pattern gets its own budget, so one pathological rule cannot starve the others.
        steps = 0;
        std::string_view text = (pattern.flags & FlagCaseSensitive) ? subject.raw : subject.lower;
        if (pattern.flags & FlagRegex) {
            // The longest text every match holds rules out most addresses before the engine runs.
            if (pattern.partsCount == 1) {
                const Part& required = tables.parts[pattern.partsBegin];
                std::string_view literal(tables.blob.data() + required.offset, required.length);
                if (subject.lower.find(literal) == std::string_view::npos) {
                    return false;
                }
            }
            return tables.regexes[pattern.regex].search(text,
                                                        effort ? &effort->regexSteps : nullptr);
        }
        const Part* parts = tables.parts.data() + pattern.partsBegin;
        bool endAnchor = pattern.flags & FlagEndAnchor;
        if (pattern.flags & FlagHostAnchor) {
            if (subject.hostStart == std::string_view::npos) {
                return false;
            }
            auto labelStart = [&](size_t at) {
                return at == subject.hostStart || subject.lower[at - 1] == '.';
            };
            if (pattern.partsCount > 0 && parts[0].kind == PartLiteral && parts[0].length > 0
                && subject.hostEnd > subject.hostStart) {
                // Only where the first literal starts inside the host: found, not walked to.
                std::string_view first(tables.blob.data() + parts[0].offset, parts[0].length);
                std::string_view window =
                    text.substr(0, std::min(text.size(), subject.hostEnd + first.size() - 1));
                for (size_t at = window.find(first, subject.hostStart);
                     at != std::string_view::npos;
                     at = window.find(first, at + 1)) {
                    if (labelStart(at)
                        && matchParts(parts, pattern.partsCount, text, at, true, endAnchor)) {
                        return true;
                    }
                }
                return false;
            }
            for (size_t at = subject.hostStart; at < subject.hostEnd; ++at) {
                if (labelStart(at)
                    && matchParts(parts, pattern.partsCount, text, at, true, endAnchor)) {
                    return true;
                }
            }
            return false;
        }
        return matchParts(
            parts, pattern.partsCount, text, 0, (pattern.flags & FlagStartAnchor) != 0, endAnchor);
    }

    bool topDomainIn(const Rule& rule) const
    {
        for (uint32_t i = 0; i < rule.domainsCount; ++i) {
            const DomainEntry& entry = tables.domains[rule.domainsBegin + i];
            size_t candidates = entry.star ? topHashCount : std::min<size_t>(topHashCount, 1);
            for (size_t j = 0; j < candidates; ++j) {
                if (topHashes[j] == entry.hash) {
                    return true;
                }
            }
        }
        return false;
    }

    // Cheapest checks first: the type and page domain, then a literal pattern, and only then
    // the registrable domains (suffix look-ups) and any regular expression.
    bool applies(const Rule& rule)
    {
        if (!(rule.types & bit(type))) {
            return false;
        }
        if (type == ResourceType::Document && frame != Frame::Any
            && (rule.flags & (TopFrame | ChildFrame)) != 0
            && !(rule.flags & (frame == Frame::Top ? TopFrame : ChildFrame))) {
            return false;
        }
        if (rule.domainsCount > 0 && topDomainIn(rule) == ((rule.flags & UnlessDomain) != 0)) {
            return false;
        }
        bool regex = tables.patterns[rule.pattern].flags & FlagRegex;
        if (!regex && !matchPattern(rule.pattern, request)) {
            return false;
        }
        if (rule.flags & (FirstParty | ThirdParty)) {
            uint8_t wanted = thirdParty() ? ThirdParty : FirstParty;
            if (!(rule.flags & wanted)) {
                return false;
            }
        }
        if (rule.topCount > 0) {
            bool any = false;
            for (uint32_t i = 0; i < rule.topCount && !any; ++i) {
                any = matchPattern(tables.topPatterns[rule.topBegin + i], top);
            }
            if (any == ((rule.flags & UnlessTopUrl) != 0)) {
                return false;
            }
        }
        return !regex || matchPattern(rule.pattern, request);
    }

    // Whether the address shows the probe's characters around the token at [start, end).
    static bool around(const Probe& probe, std::string_view text, size_t start, size_t end)
    {
        if (probe.beforeLength > start || probe.afterLength > text.size() - end) {
            return false;
        }
        for (size_t i = 0; i < probe.beforeLength; ++i) {
            if (text[start - probe.beforeLength + i] != probe.before[i]) {
                return false;
            }
        }
        for (size_t i = 0; i < probe.afterLength; ++i) {
            if (text[end + i] != probe.after[i]) {
                return false;
            }
        }
        return true;
    }

    // Calls visit(rule, summary) with every rule of the index that may apply (some more than
    // once) and whose summary has a bit of `wanted`. Through tokens with probes (the network's),
    // only rules whose probe fits the address come, and their rules stay untouched till then.
    template <class Visit>
    void candidates(const Index& index, uint16_t wanted, const Probe* probes, Visit&& visit)
    {
        auto each = [&](std::pair<const uint32_t*, const uint32_t*> run) {
            for (const uint32_t* r = run.first; r != run.second; ++r) {
                uint16_t summary = tables.summaries[*r];
                if (summary & wanted) {
                    visit(*r, summary);
                }
            }
        };
        if (!index.tokens.slots.empty()) {
            const std::string_view text = request.lower;
            const uint32_t* postings = index.tokens.postings.data();
            forEachToken(text, [&](size_t start, size_t end) {
                auto run = index.tokens.find(hashBytes(text.substr(start, end - start)));
                if (!probes) {
                    each(run);
                    return;
                }
                for (const uint32_t* r = run.first; r != run.second; ++r) {
                    const Probe& probe = probes[r - postings];
                    if ((probe.summary & wanted) && around(probe, text, start, end)) {
                        visit(*r, probe.summary);
                    }
                }
            });
        }
        if (!index.domains.slots.empty()) {
            for (size_t j = 0; j < topHashCount; ++j) {
                each(index.domains.find(topHashes[j]));
            }
        }
        each({index.rest.data(), index.rest.data() + index.rest.size()});
    }
};

thread_local std::string Matcher::Context::lowerStorage;
thread_local Matcher::Context::Page Matcher::Context::lastPage;

Matcher::Matcher(std::unique_ptr<Tables> tables)
    : m_tables(std::move(tables))
{}
Matcher::Matcher(Matcher&&) noexcept = default;
Matcher& Matcher::operator=(Matcher&&) noexcept = default;
Matcher::~Matcher() = default;

size_t Matcher::ruleCount() const
{
    return m_tables->rules.size();
}
size_t Matcher::memoryBytes() const
{
    return sizeof(Tables) + m_tables->memory();
}

std::string_view Matcher::registrableDomain(std::string_view host) const
{
    return m_tables->registrable(host);
}

Decision Matcher::decide(const Request& request, Effort* effort) const
{
    Context context(*m_tables, request.url, request.topUrl, request.type);
    context.frame = request.topFrame ? Frame::Top : Frame::Child;
    context.effort = effort;
    int64_t latest[ActionCount] = {-1, -1, -1, -1, -1};
    const uint16_t wanted = bit(request.type);
    auto visit = [&](uint32_t index, uint16_t summary) {
        uint8_t action = summary >> kSummaryActionShift;
        if (static_cast<int64_t>(index) <= latest[action]) {
            return;
        }
        if (effort) {
            ++effort->rulesChecked;
        }
        if (context.applies(m_tables->rules[index])) {
            latest[action] = index;
        }
    };
    context.candidates(m_tables->network, wanted, m_tables->probes.data(), visit);
    int64_t ignored = latest[ActionIgnore];
    return Decision{latest[ActionBlock] > ignored,
                    latest[ActionBlockCookies] > ignored,
                    latest[ActionMakeHttps] > ignored};
}

std::vector<std::string> Matcher::hiddenSelectors(std::string_view pageUrl) const
{
    Context context(*m_tables, pageUrl, pageUrl, ResourceType::Document);
    int64_t ignored = -1;
    context.candidates(m_tables->network, UINT16_MAX, nullptr, [&](uint32_t index, uint16_t) {
        const Rule& rule = m_tables->rules[index];
        if (rule.action == ActionIgnore && static_cast<int64_t>(index) > ignored
            && context.applies(rule)) {
            ignored = index;
        }
    });
    std::vector<uint32_t> hidden;
    context.candidates(m_tables->hiding, UINT16_MAX, nullptr, [&](uint32_t index, uint16_t) {
        if (static_cast<int64_t>(index) > ignored && context.applies(m_tables->rules[index])) {
            hidden.push_back(index);
        }
    });
    std::sort(hidden.begin(), hidden.end());
    hidden.erase(std::unique(hidden.begin(), hidden.end()), hidden.end());

    // A rule's selector may list several; each is kept apart so one the engine rejects does not
    // take the others with it.
    std::vector<std::string> selectors;
    for (uint32_t index : hidden) {
        const Rule& rule = m_tables->rules[index];
        std::string_view list(m_tables->blob.data() + rule.selectorOffset, rule.selectorLength);
        int depth = 0;
        char quote = 0;
        size_t start = 0;
        for (size_t i = 0; i <= list.size(); ++i) {
            char c = i < list.size() ? list[i] : ',';
            if (quote) {
                if (c == '\\') {
                    ++i;
                } else if (c == quote) {
                    quote = 0;
                }
            } else if (c == '"' || c == '\'') {
                quote = c;
            } else if (c == '(' || c == '[') {
                ++depth;
            } else if ((c == ')' || c == ']') && depth > 0) {
                --depth;
            } else if (c == ',' && depth == 0) {
                std::string_view one = list.substr(start, std::min(i, list.size()) - start);
                while (!one.empty() && one.front() == ' ') {
                    one.remove_prefix(1);
                }
                while (!one.empty() && one.back() == ' ') {
                    one.remove_suffix(1);
                }
                if (!one.empty()) {
                    selectors.emplace_back(one);
                }
                start = i + 1;
            }
        }
    }
    return selectors;
}

// ---- Compiling ----

namespace {

struct PendingToken
{
    uint64_t hash;
    uint32_t length;
    // The characters next to it in the text it was cut from.
    Probe around;
};

// Reads a url-filter in the shapes urlFilterFor() writes into parts; none when it is some other
// regular expression.
std::optional<std::pair<uint8_t, std::vector<std::pair<PartKind, std::string>>>>
readShape(std::string_view filter)
{
    std::vector<std::pair<PartKind, std::string>> parts;
    uint8_t flags = 0;
    if (filter == ".*" || filter == "^.*" || filter.empty()) {
        return std::pair{uint8_t{FlagEverything}, parts};
    }
    if (filter.starts_with(kHostAnchor)) {
        flags |= FlagHostAnchor;
        filter.remove_prefix(kHostAnchor.size());
    } else if (filter.starts_with('^')) {
        flags |= FlagStartAnchor;
        filter.remove_prefix(1);
    }
    auto literal = [&](char c) {
        if (parts.empty() || parts.back().first != PartLiteral) {
            parts.emplace_back(PartLiteral, std::string());
        }
        parts.back().second += c;
    };
    while (!filter.empty()) {
        if (filter == kSeparatorOrEnd) {
            parts.emplace_back(PartSeparatorOrEnd, std::string());
            break;
        }
        if (filter == "$") {
            flags |= FlagEndAnchor;
            break;
        }
        if (filter.starts_with(".*")) {
            if (parts.empty() || parts.back().first != PartStar) {
                parts.emplace_back(PartStar, std::string());
            }
            filter.remove_prefix(2);
        } else if (filter.starts_with(kSeparatorClass)
                   && !filter.substr(kSeparatorClass.size()).starts_with("?")
                   && !filter.substr(kSeparatorClass.size()).starts_with("*")
                   && !filter.substr(kSeparatorClass.size()).starts_with("+")) {
            parts.emplace_back(PartSeparator, std::string());
            filter.remove_prefix(kSeparatorClass.size());
        } else if (filter.front() == '\\' && filter.size() >= 2
                   && std::string_view(".+?$^{}()|[]\\/*-").find(filter[1])
                          != std::string_view::npos) {
            literal(filter[1]);
            filter.remove_prefix(2);
        } else if (std::string_view(".+?$^{}()|[]\\*").find(filter.front())
                       == std::string_view::npos
                   && static_cast<unsigned char>(filter.front()) < 0x80
                   && !(filter.size() >= 2
                        && (filter[1] == '*' || filter[1] == '+' || filter[1] == '?'))) {
            literal(filter.front());
            filter.remove_prefix(1);
        } else {
            return std::nullopt;
        }
    }
    if (parts.size() > kMaxParts) {
        return std::nullopt;
    }
    // Leading and trailing stars add nothing to a search that is not anchored there.
    if (!(flags & (FlagHostAnchor | FlagStartAnchor))) {
        while (!parts.empty() && parts.front().first == PartStar) {
            parts.erase(parts.begin());
        }
    }
    if (!(flags & FlagEndAnchor)) {
        while (!parts.empty() && parts.back().first == PartStar) {
            parts.pop_back();
        }
    }
    if (parts.empty() && !(flags & (FlagHostAnchor | FlagEndAnchor))) {
        return std::pair{uint8_t{FlagEverything}, parts};
    }
    return std::pair{flags, parts};
}

// The tokens of `text`, leaving out one at an end that the text does not bound.
void addTokens(std::string_view text,
               bool boundedBefore,
               bool boundedAfter,
               std::vector<PendingToken>& tokens)
{
    forEachToken(text, [&](size_t start, size_t end) {
        if ((start == 0 && !boundedBefore) || (end == text.size() && !boundedAfter)) {
            return;
        }
        Probe around{};
        around.beforeLength = static_cast<uint8_t>(std::min(start, kProbeReach));
        around.afterLength = static_cast<uint8_t>(std::min(text.size() - end, kProbeReach));
        text.copy(around.before.data(), around.beforeLength, start - around.beforeLength);
        text.copy(around.after.data(), around.afterLength, end);
        tokens.push_back({hashBytes(text.substr(start, end - start)),
                          static_cast<uint32_t>(end - start),
                          around});
    });
}

// Tokens that surely appear whole in any address the parts match: runs of token characters
// bounded on both sides by the pattern itself.
std::vector<PendingToken> tokensOf(uint8_t flags,
                                   const std::vector<std::pair<PartKind, std::string>>& parts)
{
    std::vector<PendingToken> tokens;
    for (size_t p = 0; p < parts.size(); ++p) {
        if (parts[p].first != PartLiteral) {
            continue;
        }
        std::string text = parts[p].second;
        for (char& c : text) {
            c = lowerChar(c);
        }
        bool boundedBefore = p == 0 ? (flags & (FlagHostAnchor | FlagStartAnchor)) != 0
                                    : parts[p - 1].first == PartSeparator;
        bool boundedAfter = p + 1 == parts.size() ? (flags & FlagEndAnchor) != 0
                                                  : (parts[p + 1].first == PartSeparator
                                                     || parts[p + 1].first == PartSeparatorOrEnd);
        addTokens(text, boundedBefore, boundedAfter, tokens);
    }
    return tokens;
}

// Tokens an expression's required texts hold whole: bounded inside the text, or by the
// characters that may stand next to it.
std::vector<PendingToken> tokensOf(const std::vector<SmallRegex::RequiredText>& texts)
{
    auto bounded = [](const std::bitset<256>& around) {
        for (unsigned c = 0; c < 256; ++c) {
            if (around.test(c) && isTokenChar(static_cast<unsigned char>(c))) {
                return false;
            }
        }
        return true;
    };
    std::vector<PendingToken> tokens;
    for (const SmallRegex::RequiredText& required : texts) {
        const std::string& text = required.text;
        bool boundedBefore = bounded(required.before);
        bool boundedAfter = bounded(required.after);
        addTokens(text, boundedBefore, boundedAfter, tokens);
    }
    return tokens;
}

bool isCommonToken(uint64_t hash)
{
    static const uint64_t kCommon[] = {
        hashBytes("http"),
        hashBytes("https"),
        hashBytes("www"),
        hashBytes("com"),
        hashBytes("net"),
        hashBytes("org"),
        hashBytes("js"),
        hashBytes("html"),
        hashBytes("php"),
        hashBytes("jpg"),
        hashBytes("png"),
        hashBytes("gif"),
        hashBytes("css"),
        hashBytes("min"),
        hashBytes("static"),
        hashBytes("cdn"),
    };
    return std::find(std::begin(kCommon), std::end(kCommon), hash) != std::end(kCommon);
}

std::string lowered(std::string_view text)
{
    std::string out(text);
    for (char& c : out) {
        c = lowerChar(c);
    }
    return out;
}

} // namespace

// Turns rule JSON into Tables: reads each rule, checks it, stores its pattern and conditions, then
// indexes every rule by its rarest token (or its page domains). Used once per compile().
class MatcherCompiler
{
public:
    std::unique_ptr<Matcher::Tables>& tables;
    std::string error;
    // Per rule: the characters round the token it is indexed by, if it is.
    std::vector<Probe> probes;

    explicit MatcherCompiler(std::unique_ptr<Matcher::Tables>& t)
        : tables(t)
    {}

    bool fail(size_t rule, const std::string& what)
    {
        error = "Rule " + std::to_string(rule + 1) + " " + what;
        return false;
    }

    uint32_t addBlob(std::string_view text) const
    {
        auto offset = static_cast<uint32_t>(tables->blob.size());
        tables->blob.append(text);
        return offset;
    }

    // Adds the url-filter as a pattern; its tokens go to `tokens`.
    std::optional<uint32_t> addPattern(size_t rule,
                                       std::string_view filter,
                                       bool caseSensitive,
                                       std::vector<PendingToken>* tokens)
    {
        Pattern pattern{static_cast<uint32_t>(tables->parts.size()), 0, kNoRegex, 0, {}};
        if (caseSensitive) {
            pattern.flags |= FlagCaseSensitive;
        }
        if (auto shape = readShape(filter)) {
            pattern.flags |= shape->first;
            for (auto& [kind, text] : shape->second) {
                std::string stored = caseSensitive ? text : lowered(text);
                tables->parts.push_back(
                    Part{addBlob(stored), static_cast<uint32_t>(stored.size()), kind, {}});
            }
            pattern.partsCount = static_cast<uint32_t>(shape->second.size());
            if (tokens) {
                *tokens = tokensOf(shape->first, shape->second);
            }
        } else {
            std::string why;
            auto regex = SmallRegex::parse(filter, caseSensitive, &why);
            if (!regex) {
                fail(rule, "has a url-filter that cannot be used: " + why + ".");
                return std::nullopt;
            }
            pattern.flags |= FlagRegex;
            pattern.regex = static_cast<uint32_t>(tables->regexSources.size());
            tables->regexSources.push_back(RegexSource{
                addBlob(filter), static_cast<uint32_t>(filter.size()), caseSensitive ? 1u : 0u});
            tables->regexes.push_back(std::move(*regex));
            auto required = SmallRegex::requiredTexts(filter, caseSensitive);
            auto longest = std::max_element(
                required.begin(), required.end(), [](const auto& a, const auto& b) {
                    return a.text.size() < b.text.size();
                });
            if (longest != required.end()) {
                tables->parts.push_back(Part{addBlob(longest->text),
                                             static_cast<uint32_t>(longest->text.size()),
                                             PartLiteral,
                                             {}});
                pattern.partsCount = 1;
            }
            if (tokens) {
                *tokens = tokensOf(required);
            }
        }
        tables->patterns.push_back(pattern);
        return static_cast<uint32_t>(tables->patterns.size() - 1);
    }

    // One rule as written, before any checks but JSON's own.
    struct RawRule
    {
        bool isObject = true;
        bool hasTrigger = false;
        bool hasAction = false;
        std::optional<std::string> urlFilter;
        std::optional<bool> caseSensitive;
        std::optional<std::vector<std::string>> ifDomain, unlessDomain, ifTop, unlessTop,
            resourceTypes, loadTypes, loadContexts;
        std::optional<std::string> actionType;
        std::optional<std::string> selector;
        std::string unknownField;
    };

    struct Built
    {
        Rule rule{};
        std::vector<PendingToken> tokens;
        bool byDomain = false;
    };

    // Thrown out of the reader's callbacks to stop at the first bad rule.
    struct Stop
    {};

    static std::vector<std::string> readStrings(support::JsonReader& reader)
    {
        std::vector<std::string> items;
        reader.readArray([&] { items.push_back(reader.readString()); });
        return items;
    }

    static void readRule(support::JsonReader& reader, RawRule& raw)
    {
        if (reader.peek() != support::JsonReader::Type::Object) {
            raw.isObject = false;
            reader.skipValue();
            return;
        }
        reader.readObject([&](std::string_view key) {
            if (key == "trigger") {
                raw.hasTrigger = true;
                reader.readObject([&](std::string_view field) {
                    if (field == "url-filter") {
                        raw.urlFilter = reader.readString();
                    } else if (field == "url-filter-is-case-sensitive") {
                        raw.caseSensitive = reader.readBool();
                    } else if (field == "if-domain") {
                        raw.ifDomain = readStrings(reader);
                    } else if (field == "unless-domain") {
                        raw.unlessDomain = readStrings(reader);
                    } else if (field == "if-top-url") {
                        raw.ifTop = readStrings(reader);
                    } else if (field == "unless-top-url") {
                        raw.unlessTop = readStrings(reader);
                    } else if (field == "resource-type") {
                        raw.resourceTypes = readStrings(reader);
                    } else if (field == "load-type") {
                        raw.loadTypes = readStrings(reader);
                    } else if (field == "load-context") {
                        raw.loadContexts = readStrings(reader);
                    } else {
                        if (raw.unknownField.empty()) {
                            raw.unknownField = std::string(field);
                        }
                        reader.skipValue();
                    }
                });
            } else if (key == "action") {
                raw.hasAction = true;
                reader.readObject([&](std::string_view field) {
                    if (field == "type") {
                        raw.actionType = reader.readString();
                    } else if (field == "selector") {
                        raw.selector = reader.readString();
                    } else {
                        reader.skipValue();
                    }
                });
            } else {
                reader.skipValue();
            }
        });
    }

    bool
    nonEmpty(size_t index, const std::optional<std::vector<std::string>>& list, const char* name)
    {
        if (list && list->empty()) {
            return fail(index, std::string("has an empty ") + name + ".");
        }
        return true;
    }

    bool compileRule(size_t index, const RawRule& raw, Built& built)
    {
        if (!raw.isObject) {
            return fail(index, "is not an object.");
        }
        if (!raw.hasTrigger || !raw.hasAction) {
            return fail(index, "needs a trigger and an action.");
        }
        if (!raw.unknownField.empty()) {
            return fail(index, "has an unknown trigger field \"" + raw.unknownField + "\".");
        }
        Rule& rule = built.rule;
        rule.types = kAllResourceTypes;

        if (!raw.actionType) {
            return fail(index, "has no action type.");
        }
        const std::string& typeName = *raw.actionType;
        if (typeName == "block") {
            rule.action = ActionBlock;
        } else if (typeName == "ignore-previous-rules") {
            rule.action = ActionIgnore;
        } else if (typeName == "css-display-none") {
            rule.action = ActionHide;
            if (!raw.selector || raw.selector->empty()) {
                return fail(index, "hides elements but has no selector.");
            }
            rule.selectorOffset = addBlob(*raw.selector);
            rule.selectorLength = static_cast<uint32_t>(raw.selector->size());
        } else if (typeName == "block-cookies") {
            rule.action = ActionBlockCookies;
        } else if (typeName == "make-https") {
            rule.action = ActionMakeHttps;
        } else {
            return fail(index, "has an unknown action type \"" + typeName + "\".");
        }

        if (!raw.urlFilter) {
            return fail(index, "has no url-filter.");
        }
        bool caseSensitive = raw.caseSensitive.value_or(false);
        auto pattern = addPattern(index, *raw.urlFilter, caseSensitive, &built.tokens);
        if (!pattern) {
            return false;
        }
        rule.pattern = *pattern;

        if (raw.ifDomain.has_value() + raw.unlessDomain.has_value() + raw.ifTop.has_value()
                + raw.unlessTop.has_value()
            > 1) {
            return fail(index,
                        "combines more than one of if-domain, unless-domain, if-top-url "
                        "and unless-top-url.");
        }
        if (!nonEmpty(index, raw.ifDomain, "if-domain")
            || !nonEmpty(index, raw.unlessDomain, "unless-domain")
            || !nonEmpty(index, raw.ifTop, "if-top-url")
            || !nonEmpty(index, raw.unlessTop, "unless-top-url")
            || !nonEmpty(index, raw.resourceTypes, "resource-type")
            || !nonEmpty(index, raw.loadTypes, "load-type")
            || !nonEmpty(index, raw.loadContexts, "load-context")) {
            return false;
        }
        if (raw.ifDomain || raw.unlessDomain) {
            const std::vector<std::string>& names =
                raw.ifDomain ? *raw.ifDomain : *raw.unlessDomain;
            rule.domainsBegin = static_cast<uint32_t>(tables->domains.size());
            rule.domainsCount = static_cast<uint32_t>(names.size());
            for (const std::string& name : names) {
                bool star = name.starts_with('*');
                std::string domain = lowered(star ? std::string_view(name).substr(1) : name);
                if (domain.empty()) {
                    return fail(index, "has an empty domain.");
                }
                tables->domains.push_back(DomainEntry{hashBytes(domain), star ? 1u : 0u, 0});
            }
            if (raw.unlessDomain) {
                rule.flags |= UnlessDomain;
            }
            built.byDomain = raw.ifDomain.has_value();
        }
        if (raw.ifTop || raw.unlessTop) {
            std::vector<uint32_t> added;
            for (const std::string& text : raw.ifTop ? *raw.ifTop : *raw.unlessTop) {
                auto top = addPattern(index, text, caseSensitive, nullptr);
                if (!top) {
                    return false;
                }
                added.push_back(*top);
            }
            rule.topBegin = static_cast<uint32_t>(tables->topPatterns.size());
            rule.topCount = static_cast<uint32_t>(added.size());
            tables->topPatterns.insert(tables->topPatterns.end(), added.begin(), added.end());
            if (raw.unlessTop) {
                rule.flags |= UnlessTopUrl;
            }
        }
        if (raw.resourceTypes) {
            rule.types = 0;
            for (const std::string& name : *raw.resourceTypes) {
                auto resource = resourceTypeFromName(name);
                if (!resource) {
                    return fail(index, "has an unknown resource type \"" + name + "\".");
                }
                rule.types |= bit(*resource);
            }
        }
        if (raw.loadTypes) {
            for (const std::string& name : *raw.loadTypes) {
                if (name == "first-party") {
                    rule.flags |= FirstParty;
                } else if (name == "third-party") {
                    rule.flags |= ThirdParty;
                } else {
                    return fail(index, "has an unknown load type \"" + name + "\".");
                }
            }
        }
        if (raw.loadContexts) {
            for (const std::string& name : *raw.loadContexts) {
                if (name == "top-frame") {
                    rule.flags |= TopFrame;
                } else if (name == "child-frame") {
                    rule.flags |= ChildFrame;
                } else {
                    return fail(index, "has an unknown load context \"" + name + "\".");
                }
            }
        } else if (!raw.resourceTypes) {
            // A rule that names no type leaves the top document alone: a page the person
            // opened is blocked only by a rule meant for pages.
            rule.flags |= ChildFrame;
        }
        // Hiding is decided for the page's own document only.
        if (rule.action == ActionHide && !(rule.types & bit(ResourceType::Document))) {
            rule.types = 0;
        }
        return true;
    }

    bool run(std::string_view json, std::string_view publicSuffixList)
    {
        std::vector<Built> built;
        support::JsonReader reader(json, 8);
        try {
            if (reader.peek() != support::JsonReader::Type::Array) {
                error = "The rules are not a list.";
                return false;
            }
            reader.readArray([&] {
                RawRule raw;
                try {
                    readRule(reader, raw);
                } catch (const support::JsonReadError& e) {
                    fail(built.size(), std::string("cannot be read: ") + e.what());
                    throw Stop{};
                }
                built.emplace_back();
                if (!compileRule(built.size() - 1, raw, built.back())) {
                    throw Stop{};
                }
                tables->rules.push_back(built.back().rule);
            });
            reader.expectEnd();
        } catch (const Stop&) {
            return false;
        } catch (const support::JsonReadError& e) {
            error = std::string("The rules are not valid JSON: ") + e.what();
            return false;
        }

        // Each rule goes under the token fewest other rules share.
        std::unordered_map<uint64_t, uint32_t> frequency;
        for (const Built& rule : built) {
            for (const PendingToken& token : rule.tokens) {
                ++frequency[token.hash];
            }
        }
        std::vector<std::pair<uint64_t, uint32_t>> networkTokens, networkDomains, hidingTokens,
            hidingDomains;
        probes.assign(built.size(), Probe{});
        for (size_t i = 0; i < built.size(); ++i) {
            const Built& rule = built[i];
            auto index = static_cast<uint32_t>(i);
            bool hide = rule.rule.action == ActionHide;
            if (hide && rule.rule.types == 0) {
                continue;
            }
            auto& tokens = hide ? hidingTokens : networkTokens;
            auto& domains = hide ? hidingDomains : networkDomains;
            auto& rest = hide ? tables->hiding.rest : tables->network.rest;
            const PendingToken* best = nullptr;
            uint64_t bestScore = UINT64_MAX;
            for (const PendingToken& token : rule.tokens) {
                uint64_t score =
                    uint64_t{frequency[token.hash]} * 64 + (64 - std::min(token.length, 63u));
                if (isCommonToken(token.hash) || token.length < 2) {
                    score += uint64_t{1} << 40;
                }
                if (score < bestScore) {
                    bestScore = score;
                    best = &token;
                }
            }
            // A common token still beats scanning, but page domains beat a common token.
            bool rareToken = best && bestScore < (uint64_t{1} << 40);
            if (best && (rareToken || !rule.byDomain)) {
                tokens.emplace_back(best->hash, index);
                probes[i] = best->around;
            } else if (rule.byDomain) {
                for (uint32_t d = 0; d < rule.rule.domainsCount; ++d) {
                    domains.emplace_back(tables->domains[rule.rule.domainsBegin + d].hash, index);
                }
            } else {
                rest.push_back(index);
            }
        }
        tables->network.tokens = Table::build(std::move(networkTokens));
        tables->network.domains = Table::build(std::move(networkDomains));
        tables->hiding.tokens = Table::build(std::move(hidingTokens));
        tables->hiding.domains = Table::build(std::move(hidingDomains));
        addSuffixes(publicSuffixList);
        return true;
    }

    void addSuffixes(std::string_view list) const
    {
        std::unordered_map<uint64_t, uint32_t> kinds;
        size_t start = 0;
        while (start < list.size()) {
            size_t end = list.find('\n', start);
            std::string_view line =
                list.substr(start, end == std::string_view::npos ? end : end - start);
            start = end == std::string_view::npos ? list.size() : end + 1;
            line = line.substr(0, line.find_first_of(" \t\r"));
            if (line.empty() || line.starts_with("//")) {
                continue;
            }
            uint32_t kind = SuffixRule;
            if (line.starts_with('!')) {
                kind = SuffixException;
                line.remove_prefix(1);
            } else if (line.starts_with("*.")) {
                kind = WildcardParent;
                line.remove_prefix(2);
            }
            kinds[hashBytes(lowered(line))] |= kind;
        }
        if (kinds.empty()) {
            return;
        }
        // A suffix entry keeps its kind bits where a posting table keeps its start.
        std::vector<std::pair<uint64_t, uint32_t>> pairs(kinds.begin(), kinds.end());
        Table table = Table::build(std::move(pairs));
        for (Slot& slot : table.slots) {
            if (slot.key != 0) {
                slot.begin = table.postings[slot.begin];
                slot.count = 0;
            }
        }
        tables->suffixes = std::move(table.slots);
    }
};

std::variant<Matcher, std::string> Matcher::compile(std::string_view rulesJson,
                                                    std::string_view publicSuffixList)
{
    auto tables = std::make_unique<Tables>();
    MatcherCompiler compiler(tables);
    if (!compiler.run(rulesJson, publicSuffixList)) {
        return compiler.error;
    }
    tables->buildSummaries();
    tables->buildProbes(compiler.probes);
    return Matcher(std::move(tables));
}

std::string Matcher::serialize() const
{
    const Tables& t = *m_tables;
    Writer payload;
    payload.put(t.blob);
    payload.put(t.parts);
    payload.put(t.patterns);
    payload.put(t.regexSources);
    payload.put(t.rules);
    payload.put(t.domains);
    payload.put(t.topPatterns);
    payload.put(t.network);
    payload.put(t.probes);
    payload.put(t.hiding);
    payload.put(t.suffixes);

    std::string out(kMagic);
    uint32_t version = kFormatVersion;
    uint32_t byteOrder = 0x01020304;
    uint64_t size = payload.bytes.size();
    uint64_t sum = checksum(payload.bytes);
    out.append(reinterpret_cast<const char*>(&version), 4);
    out.append(reinterpret_cast<const char*>(&byteOrder), 4);
    out.append(reinterpret_cast<const char*>(&size), 8);
    out.append(reinterpret_cast<const char*>(&sum), 8);
    out += payload.bytes;
    return out;
}

std::string Matcher::resealed(std::string bytes)
{
    if (bytes.size() < kHeaderSize) {
        return bytes;
    }
    std::string_view payload = std::string_view(bytes).substr(kHeaderSize);
    uint64_t size = payload.size();
    uint64_t sum = checksum(payload);
    std::memcpy(bytes.data() + 16, &size, 8);
    std::memcpy(bytes.data() + 24, &sum, 8);
    return bytes;
}

std::optional<Matcher> Matcher::load(std::string_view bytes)
{
    constexpr size_t kHeader = kHeaderSize;
    if (bytes.size() < kHeader || !bytes.starts_with(kMagic)) {
        return std::nullopt;
    }
    uint32_t version = 0;
    uint32_t byteOrder = 0;
    uint64_t size = 0;
    uint64_t sum = 0;
    std::memcpy(&version, bytes.data() + 8, 4);
    std::memcpy(&byteOrder, bytes.data() + 12, 4);
    std::memcpy(&size, bytes.data() + 16, 8);
    std::memcpy(&sum, bytes.data() + 24, 8);
    std::string_view payload = bytes.substr(kHeader);
    if (version != kFormatVersion || byteOrder != 0x01020304 || size != payload.size()
        || sum != checksum(payload)) {
        return std::nullopt;
    }
    auto tables = std::make_unique<Tables>();
    Tables& t = *tables;
    Reader reader(payload);
    if (!(reader.get(t.blob) && reader.get(t.parts) && reader.get(t.patterns)
          && reader.get(t.regexSources) && reader.get(t.rules) && reader.get(t.domains)
          && reader.get(t.topPatterns) && reader.get(t.network) && reader.get(t.probes)
          && reader.get(t.hiding) && reader.get(t.suffixes) && reader.atEnd())) {
        return std::nullopt;
    }
    if (!t.valid() || !t.buildRegexes()) {
        return std::nullopt;
    }
    t.buildSummaries();
    for (Table* table :
         {&t.network.tokens, &t.network.domains, &t.hiding.tokens, &t.hiding.domains}) {
        table->buildPresence();
    }
    return Matcher(std::move(tables));
}

} // namespace kit::blocking
