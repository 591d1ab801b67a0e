// SPDX-License-Identifier: MIT
#pragma once

#include "kit/blocking/resource_type.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kit::blocking {

// One network filter ("||ads.example^$script,third-party"), its anchors split off.
struct NetworkFilter
{
    bool exception = false;
    // The address part without "||", "|" anchors; may hold "*" and "^".
    std::string pattern;
    bool hostAnchor = false;
    bool startAnchor = false;
    bool endAnchor = false;
    bool matchCase = false;
    // True: third-party only; false: first-party only; none: either.
    std::optional<bool> thirdParty;
    // Page domains the filter is limited to or kept off, lower case.
    std::vector<std::string> domains;
    std::vector<std::string> notDomains;
    // Zero: the default (every type but the top document).
    ResourceTypes types = 0;
    // Which documents the "document" type covers: the top frame ($document), sub-frames
    // ($subdocument) or, neither set, both.
    bool topFrame = false;
    bool childFrame = false;
    bool important = false;
    // "@@…$document": no blocking at all on matching pages.
    bool document = false;
    // "@@…$elemhide": no element hiding on matching pages.
    bool elemHide = false;
};

// One element-hiding filter ("example.com##.ad", "#@#.ad").
struct CosmeticFilter
{
    bool exception = false;
    std::vector<std::string> domains;
    std::vector<std::string> notDomains;
    std::string selector;
};

// A filter this converter cannot express, and why (one of a few short reasons, for the counts).
struct DroppedFilter
{
    std::string reason;
};

// A blank line or a comment.
struct NoFilter
{};

using ParsedFilter = std::variant<NoFilter, NetworkFilter, CosmeticFilter, DroppedFilter>;

// Parses one line of an EasyList-style filter list.
ParsedFilter parseFilter(std::string_view line);

// The url-filter regular expression for a network filter's address part. The matcher recognises
// the shapes made here and runs them without a regular-expression engine.
std::string urlFilterFor(const NetworkFilter& filter);

// The separator class "^" becomes, and the ending a final "^" becomes (a separator or the end).
inline constexpr std::string_view kSeparatorClass = "[^a-zA-Z0-9_.%-]";
inline constexpr std::string_view kSeparatorOrEnd = "([^a-zA-Z0-9_.%-].*)?$";
// "||": the scheme, then the host or any of its subdomains.
inline constexpr std::string_view kHostAnchor = "^[^:]+:(//)?([^/]+\\.)?";

// The outcome of converting filter lists into content-blocker JSON.
struct Conversion
{
    std::string json;
    size_t filters = 0;                    // lines that hold a filter, comments and blanks left out
    size_t converted = 0;                  // filters that became (part of) a rule
    size_t rules = 0;                      // rules in the JSON
    std::map<std::string, size_t> dropped; // filters left out, by reason
};

// Converts the lists (EasyList, EasyPrivacy) into one rule array. Blocking rules come first, then
// element hiding, then exceptions ("ignore-previous-rules"), then $important blocks, so each
// exception overrides what precedes it and nothing overrides an important block.
Conversion convertFilterLists(const std::vector<std::string_view>& lists);

} // namespace kit::blocking
