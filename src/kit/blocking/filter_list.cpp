// SPDX-License-Identifier: MIT
#include "kit/blocking/filter_list.h"

#include "kit/support/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <set>

namespace kit::blocking {

namespace {

constexpr std::array<std::string_view, 13> kTypeNames = {
    "document",
    "image",
    "style-sheet",
    "script",
    "font",
    "raw",
    "svg-document",
    "media",
    "popup",
    "ping",
    "fetch",
    "websocket",
    "other",
};

// Every type but the top document and popups: what a filter without type options covers.
constexpr ResourceTypes kDefaultTypes =
    kAllResourceTypes & ~bit(ResourceType::Document) & ~bit(ResourceType::Popup);

std::string lower(std::string_view text)
{
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return out;
}

bool isAscii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x80 && c >= 0x20;
    });
}

// Selectors may hold any text, but the JSON they go into must be UTF-8.
bool isUtf8(std::string_view text)
{
    for (size_t i = 0; i < text.size();) {
        auto c = static_cast<unsigned char>(text[i]);
        size_t length = c < 0x80           ? 1
                        : (c >> 5) == 0x6  ? 2
                        : (c >> 4) == 0xe  ? 3
                        : (c >> 3) == 0x1e ? 4
                                           : 0;
        if (length == 0 || i + length > text.size() || (length == 2 && c < 0xc2)) {
            return false;
        }
        for (size_t j = 1; j < length; ++j) {
            if ((static_cast<unsigned char>(text[i + j]) & 0xc0) != 0x80) {
                return false;
            }
        }
        i += length;
    }
    return true;
}

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    size_t start = 0;
    while (true) {
        size_t end = text.find(separator, start);
        parts.push_back(text.substr(start, end == std::string_view::npos ? end : end - start));
        if (end == std::string_view::npos) {
            return parts;
        }
        start = end + 1;
    }
}

bool isPlainDomain(std::string_view domain)
{
    return !domain.empty() && std::all_of(domain.begin(), domain.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-';
    });
}

// Splits "a.com,~b.com" (or "a.com|~b.com") into included and excluded domains; answers a drop
// reason when none of them can be used.
std::optional<std::string> readDomains(std::string_view list,
                                       char separator,
                                       std::vector<std::string>& domains,
                                       std::vector<std::string>& notDomains)
{
    bool any = false;
    bool skipped = false;
    for (std::string_view part : split(list, separator)) {
        part = support::trimmed(part, " \t\r\n");
        if (part.empty()) {
            continue;
        }
        any = true;
        bool negated = part.front() == '~';
        std::string domain = lower(negated ? part.substr(1) : part);
        // Entity ("google.*") and non-ASCII domains have no form in the rule format.
        if (!isPlainDomain(domain)) {
            skipped = true;
            continue;
        }
        (negated ? notDomains : domains).push_back(std::move(domain));
    }
    if (domains.empty() && notDomains.empty() && (any || skipped)) {
        return std::string(skipped ? "unsupported domain form" : "malformed domain list");
    }
    if (!domains.empty() && !notDomains.empty()) {
        return std::string("included and excluded domains together");
    }
    return std::nullopt;
}

std::optional<ResourceType> typeOption(std::string_view name)
{
    static const std::array<std::pair<std::string_view, ResourceType>, 17> kOptions = {{
        {"script", ResourceType::Script},
        {"image", ResourceType::Image},
        {"stylesheet", ResourceType::StyleSheet},
        {"css", ResourceType::StyleSheet},
        {"font", ResourceType::Font},
        {"media", ResourceType::Media},
        {"object", ResourceType::Other},
        {"other", ResourceType::Other},
        {"xmlhttprequest", ResourceType::Raw},
        {"xhr", ResourceType::Raw},
        {"subdocument", ResourceType::Document},
        {"frame", ResourceType::Document},
        {"ping", ResourceType::Ping},
        {"beacon", ResourceType::Ping},
        {"websocket", ResourceType::WebSocket},
        {"popup", ResourceType::Popup},
        {"fetch", ResourceType::Fetch},
    }};
    for (const auto& [optionName, type] : kOptions) {
        if (optionName == name) {
            return type;
        }
    }
    return std::nullopt;
}

ParsedFilter parseNetwork(std::string_view line)
{
    NetworkFilter filter;
    if (line.starts_with("@@")) {
        filter.exception = true;
        line.remove_prefix(2);
    }
    std::string_view options;
    if (size_t dollar = line.rfind('$'); dollar != std::string_view::npos) {
        options = line.substr(dollar + 1);
        line = line.substr(0, dollar);
    }
    if (line.size() >= 2 && line.front() == '/' && line.back() == '/') {
        return DroppedFilter{"regular expression"};
    }
    if (!isAscii(line) || line.find(' ') != std::string_view::npos) {
        return DroppedFilter{"non-ASCII or malformed address"};
    }

    ResourceTypes types = 0;
    ResourceTypes notTypes = 0;
    bool document = false;
    bool subdocument = false;
    if (!options.empty()) {
        for (std::string_view option : split(options, ',')) {
            option = support::trimmed(option, " \t\r\n");
            bool negated = !option.empty() && option.front() == '~';
            std::string_view name = negated ? option.substr(1) : option;
            std::string_view value;
            if (size_t equals = name.find('='); equals != std::string_view::npos) {
                value = name.substr(equals + 1);
                name = name.substr(0, equals);
            }
            std::string lowered = lower(name);
            if (lowered == "third-party" || lowered == "3p") {
                filter.thirdParty = !negated;
            } else if (lowered == "first-party" || lowered == "1p") {
                filter.thirdParty = negated;
            } else if (lowered == "match-case") {
                filter.matchCase = true;
            } else if (lowered == "domain" || lowered == "from") {
                if (auto reason = readDomains(value, '|', filter.domains, filter.notDomains)) {
                    return DroppedFilter{*reason};
                }
            } else if (lowered == "important") {
                filter.important = true;
            } else if (lowered == "document" || lowered == "doc") {
                document = !negated;
            } else if (lowered == "elemhide" || lowered == "ehide") {
                if (!filter.exception) {
                    return DroppedFilter{"$elemhide on a blocking filter"};
                }
                filter.elemHide = true;
            } else if (lowered == "all") {
                types |= kAllResourceTypes;
            } else if (auto type = typeOption(lowered)) {
                (negated ? notTypes : types) |= bit(*type);
                subdocument |= !negated && *type == ResourceType::Document;
            } else if (lowered == "generichide" || lowered == "ghide" || lowered == "specifichide"
                       || lowered == "shide" || lowered == "genericblock") {
                return DroppedFilter{"$" + lowered + " (no rule form)"};
            } else if (lowered.empty()) {
                return DroppedFilter{"malformed options"};
            } else {
                return DroppedFilter{"unsupported option $" + lowered};
            }
        }
    }
    if (document) {
        if (filter.exception) {
            filter.document = true;
        } else {
            types |= bit(ResourceType::Document);
        }
    }
    // WebKit's "document" is both the top frame and sub-frames; the lists tell them apart.
    filter.topFrame = document && !filter.exception && !subdocument;
    filter.childFrame = subdocument && !(document && !filter.exception);
    if (types == 0 && notTypes != 0) {
        // Sub-frames are among the default types, the top document is not.
        types = (kDefaultTypes | bit(ResourceType::Document)) & ~notTypes;
        filter.childFrame = true;
        if (types == 0) {
            return DroppedFilter{"no resource type left"};
        }
    }
    filter.types = types & ~notTypes;
    if (types != 0 && filter.types == 0) {
        return DroppedFilter{"no resource type left"};
    }

    if (line.starts_with("||")) {
        filter.hostAnchor = true;
        line.remove_prefix(2);
    } else if (line.starts_with("|")) {
        filter.startAnchor = true;
        line.remove_prefix(1);
    }
    if (line.ends_with("|")) {
        filter.endAnchor = true;
        line.remove_suffix(1);
    }
    if (line.find('|') != std::string_view::npos) {
        return DroppedFilter{"non-ASCII or malformed address"};
    }
    filter.pattern = std::string(line);
    if (filter.hostAnchor && filter.pattern.empty()) {
        return DroppedFilter{"non-ASCII or malformed address"};
    }
    return filter;
}

// Finds the cosmetic separator ("##", "#@#", "#?#", …): its position and length, if any.
std::optional<std::pair<size_t, size_t>> cosmeticSeparator(std::string_view line)
{
    for (size_t at = line.find('#'); at != std::string_view::npos; at = line.find('#', at + 1)) {
        size_t end = at + 1;
        while (end < line.size() && end < at + 3
               && (line[end] == '@' || line[end] == '?' || line[end] == '$' || line[end] == '%')) {
            ++end;
        }
        if (end < line.size() && line[end] == '#') {
            return std::pair{at, end + 1 - at};
        }
    }
    return std::nullopt;
}

bool isProcedural(std::string_view selector)
{
    static constexpr std::array<std::string_view, 16> kMarkers = {
        ":-abp-",
        ":has(",
        ":has-text(",
        ":xpath(",
        ":style(",
        ":upward(",
        ":remove(",
        ":matches-",
        ":if(",
        ":if-not(",
        ":watch-attr(",
        ":others(",
        ":min-text-length(",
        ":nth-ancestor(",
        ":remove-attr(",
        ":remove-class(",
    };
    return std::any_of(kMarkers.begin(), kMarkers.end(), [&](std::string_view marker) {
        return selector.find(marker) != std::string_view::npos;
    });
}

ParsedFilter parseCosmetic(std::string_view line, size_t at, size_t length)
{
    std::string_view separator = line.substr(at, length);
    std::string_view selector = support::trimmed(line.substr(at + length), " \t\r\n");
    CosmeticFilter filter;
    if (separator == "#@#") {
        filter.exception = true;
    } else if (separator == "#%#" || selector.starts_with("+js(")) {
        return DroppedFilter{"scriptlet"};
    } else if (separator.find('?') != std::string_view::npos) {
        return DroppedFilter{"procedural element hiding"};
    } else if (separator.find('$') != std::string_view::npos) {
        return DroppedFilter{"style injection"};
    } else if (separator != "##") {
        return DroppedFilter{"unsupported cosmetic form"};
    }
    if (selector.starts_with("^")) {
        return DroppedFilter{"HTML filtering"};
    }
    if (selector.empty() || !isUtf8(selector)) {
        return DroppedFilter{"malformed element hiding"};
    }
    if (isProcedural(selector)) {
        return DroppedFilter{"procedural element hiding"};
    }
    if (auto reason = readDomains(line.substr(0, at), ',', filter.domains, filter.notDomains)) {
        return DroppedFilter{*reason};
    }
    filter.selector = std::string(selector);
    return filter;
}

nlohmann::json domainList(const std::vector<std::string>& domains)
{
    nlohmann::json list = nlohmann::json::array();
    for (const std::string& domain : domains) {
        list.push_back("*" + domain);
    }
    return list;
}

nlohmann::json typeList(ResourceTypes types)
{
    nlohmann::json list = nlohmann::json::array();
    for (size_t i = 0; i < kTypeNames.size(); ++i) {
        if (types & (1u << i)) {
            list.push_back(kTypeNames[i]);
        }
    }
    return list;
}

void addDomains(nlohmann::json& trigger,
                const std::vector<std::string>& domains,
                const std::vector<std::string>& notDomains)
{
    if (!domains.empty()) {
        trigger["if-domain"] = domainList(domains);
    } else if (!notDomains.empty()) {
        trigger["unless-domain"] = domainList(notDomains);
    }
}

nlohmann::json rule(nlohmann::json trigger, std::string_view action)
{
    return nlohmann::json{{"trigger", std::move(trigger)}, {"action", {{"type", action}}}};
}

nlohmann::json hideRule(const std::vector<std::string>& selectors, nlohmann::json trigger)
{
    std::string joined;
    for (const std::string& selector : selectors) {
        if (!joined.empty()) {
            joined += ", ";
        }
        joined += selector;
    }
    return nlohmann::json{{"trigger", std::move(trigger)},
                          {"action", {{"type", "css-display-none"}, {"selector", joined}}}};
}

// Whether "||host^" names nothing but a host, so a page-level exception can use if-domain.
bool isWholeHost(const NetworkFilter& filter)
{
    std::string_view pattern = filter.pattern;
    if (pattern.ends_with('^')) {
        pattern.remove_suffix(1);
    }
    return filter.hostAnchor && !filter.endAnchor && isPlainDomain(pattern);
}

// Element hiding is gathered first: exceptions edit the hiding filters they name.
struct CosmeticSet
{
    std::vector<std::string> generic;
    std::set<std::string> genericSeen;
    std::set<std::string> genericExcepted;
    std::map<std::string, std::set<std::string>> exceptedOn;
    std::vector<CosmeticFilter> specific;
};

void emitCosmetics(CosmeticSet& set, std::vector<nlohmann::json>& out)
{
    constexpr size_t kChunk = 1000;
    std::vector<std::string> chunk;
    auto flush = [&] {
        if (!chunk.empty()) {
            out.push_back(hideRule(chunk, {{"url-filter", ".*"}}));
            chunk.clear();
        }
    };
    for (const std::string& selector : set.generic) {
        if (set.genericExcepted.contains(selector)) {
            continue;
        }
        if (auto excepted = set.exceptedOn.find(selector); excepted != set.exceptedOn.end()) {
            std::vector<std::string> domains(excepted->second.begin(), excepted->second.end());
            out.push_back(hideRule({selector},
                                   {{"url-filter", ".*"}, {"unless-domain", domainList(domains)}}));
            continue;
        }
        chunk.push_back(selector);
        if (chunk.size() == kChunk) {
            flush();
        }
    }
    flush();

    // Filters for the same domains share one rule.
    std::map<std::pair<std::vector<std::string>, bool>, std::vector<std::string>> grouped;
    for (CosmeticFilter& filter : set.specific) {
        if (set.genericExcepted.contains(filter.selector)) {
            continue;
        }
        auto excepted = set.exceptedOn.find(filter.selector);
        bool unless = filter.domains.empty();
        std::vector<std::string> domains = unless ? filter.notDomains : filter.domains;
        if (!unless && excepted != set.exceptedOn.end()) {
            std::erase_if(domains,
                          [&](const std::string& d) { return excepted->second.contains(d); });
            if (domains.empty()) {
                continue;
            }
        }
        if (unless && excepted != set.exceptedOn.end()) {
            domains.insert(domains.end(), excepted->second.begin(), excepted->second.end());
        }
        std::sort(domains.begin(), domains.end());
        domains.erase(std::unique(domains.begin(), domains.end()), domains.end());
        grouped[{std::move(domains), unless}].push_back(filter.selector);
    }
    for (const auto& [key, selectors] : grouped) {
        nlohmann::json trigger{{"url-filter", ".*"}};
        trigger[key.second ? "unless-domain" : "if-domain"] = domainList(key.first);
        out.push_back(hideRule(selectors, std::move(trigger)));
    }
}

} // namespace

std::string_view resourceTypeName(ResourceType type)
{
    auto value = static_cast<unsigned>(type);
    for (size_t i = 0; i < kTypeNames.size(); ++i) {
        if (value == (1u << i)) {
            return kTypeNames[i];
        }
    }
    return {};
}

std::optional<ResourceType> resourceTypeFromName(std::string_view name)
{
    for (size_t i = 0; i < kTypeNames.size(); ++i) {
        if (kTypeNames[i] == name) {
            return static_cast<ResourceType>(1u << i);
        }
    }
    return std::nullopt;
}

ParsedFilter parseFilter(std::string_view line)
{
    line = support::trimmed(line, " \t\r\n");
    if (line.empty() || line.front() == '!' || line.front() == '[') {
        return NoFilter{};
    }
    if (line.find("$$") != std::string_view::npos) {
        return DroppedFilter{"HTML filtering"};
    }
    if (auto separator = cosmeticSeparator(line)) {
        return parseCosmetic(line, separator->first, separator->second);
    }
    return parseNetwork(line);
}

std::string urlFilterFor(const NetworkFilter& filter)
{
    std::string_view pattern = filter.pattern;
    bool startAnchor = filter.startAnchor;
    bool endAnchor = filter.endAnchor;
    if (!filter.hostAnchor) {
        while (pattern.starts_with('*')) {
            pattern.remove_prefix(1);
            startAnchor = false;
        }
    }
    while (pattern.ends_with('*')) {
        pattern.remove_suffix(1);
        endAnchor = false;
    }
    std::string out;
    if (filter.hostAnchor) {
        out = kHostAnchor;
    } else if (startAnchor) {
        out = "^";
    }
    for (size_t i = 0; i < pattern.size(); ++i) {
        char c = pattern[i];
        if (c == '*') {
            if (!out.ends_with(".*")) {
                out += ".*";
            }
        } else if (c == '^') {
            if (i + 1 < pattern.size()) {
                out += kSeparatorClass;
            } else if (endAnchor) {
                out += kSeparatorClass;
                out += "?$";
                return out;
            } else {
                out += kSeparatorOrEnd;
                return out;
            }
        } else if (std::string_view(".+?$^{}()|[]\\").find(c) != std::string_view::npos) {
            out += '\\';
            out += c;
        } else {
            out += c;
        }
    }
    if (endAnchor) {
        out += '$';
    }
    if (out.empty() || out == "^" || out == ".*") {
        return ".*";
    }
    return out;
}

Conversion convertFilterLists(const std::vector<std::string_view>& lists)
{
    Conversion result;
    std::vector<nlohmann::json> blocks;
    std::vector<nlohmann::json> hiding;
    std::vector<nlohmann::json> exceptions;
    std::vector<nlohmann::json> important;
    CosmeticSet cosmetics;

    auto drop = [&](std::string reason) { ++result.dropped[std::move(reason)]; };

    for (std::string_view list : lists) {
        for (std::string_view line : split(list, '\n')) {
            ParsedFilter parsed = parseFilter(line);
            if (std::holds_alternative<NoFilter>(parsed)) {
                continue;
            }
            ++result.filters;
            if (auto* dropped = std::get_if<DroppedFilter>(&parsed)) {
                drop(std::move(dropped->reason));
                continue;
            }
            if (auto* cosmetic = std::get_if<CosmeticFilter>(&parsed)) {
                ++result.converted;
                if (cosmetic->exception) {
                    if (cosmetic->domains.empty()) {
                        cosmetics.genericExcepted.insert(cosmetic->selector);
                    } else {
                        cosmetics.exceptedOn[cosmetic->selector].insert(cosmetic->domains.begin(),
                                                                        cosmetic->domains.end());
                    }
                } else if (cosmetic->domains.empty() && cosmetic->notDomains.empty()) {
                    if (cosmetics.genericSeen.insert(cosmetic->selector).second) {
                        cosmetics.generic.push_back(cosmetic->selector);
                    }
                } else {
                    cosmetics.specific.push_back(std::move(*cosmetic));
                }
                continue;
            }
            auto& filter = std::get<NetworkFilter>(parsed);
            nlohmann::json trigger;
            if (filter.document) {
                if (isWholeHost(filter) && filter.domains.empty() && filter.notDomains.empty()) {
                    std::string host = lower(filter.pattern);
                    if (host.ends_with('^')) {
                        host.pop_back();
                    }
                    trigger = {{"url-filter", ".*"}, {"if-domain", domainList({host})}};
                } else if (filter.domains.empty() && filter.notDomains.empty()) {
                    trigger = {{"url-filter", ".*"},
                               {"if-top-url", nlohmann::json::array({urlFilterFor(filter)})}};
                } else {
                    drop("$document exception limited to domains");
                    continue;
                }
                ++result.converted;
                exceptions.push_back(rule(std::move(trigger), "ignore-previous-rules"));
                continue;
            }
            trigger["url-filter"] = urlFilterFor(filter);
            if (filter.matchCase) {
                trigger["url-filter-is-case-sensitive"] = true;
            }
            addDomains(trigger, filter.domains, filter.notDomains);
            ResourceTypes types = filter.types;
            if (filter.elemHide) {
                types = bit(ResourceType::Document);
            }
            // No type at all: every load but the top document, exceptions as blocks.
            if (types != 0 && types != kAllResourceTypes) {
                trigger["resource-type"] = typeList(types);
            }
            if ((types & bit(ResourceType::Document)) && !filter.elemHide
                && filter.topFrame != filter.childFrame) {
                trigger["load-context"] =
                    nlohmann::json::array({filter.topFrame ? "top-frame" : "child-frame"});
            }
            if (filter.thirdParty) {
                trigger["load-type"] =
                    nlohmann::json::array({*filter.thirdParty ? "third-party" : "first-party"});
            }
            ++result.converted;
            if (filter.exception) {
                exceptions.push_back(rule(std::move(trigger), "ignore-previous-rules"));
            } else if (filter.important) {
                important.push_back(rule(std::move(trigger), "block"));
            } else {
                blocks.push_back(rule(std::move(trigger), "block"));
            }
        }
    }
    emitCosmetics(cosmetics, hiding);

    nlohmann::json all = nlohmann::json::array();
    for (auto* group : {&blocks, &hiding, &exceptions, &important}) {
        for (auto& item : *group) {
            all.push_back(std::move(item));
        }
    }
    result.rules = all.size();
    // Anything not UTF-8 was dropped above; replacing is only a guard.
    result.json = all.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    return result;
}

} // namespace kit::blocking
