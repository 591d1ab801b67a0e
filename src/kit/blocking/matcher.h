// SPDX-License-Identifier: MIT
#pragma once

#include "kit/blocking/resource_type.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kit::blocking {

// One load to decide: its address, the address of the page's top document (empty when none) and
// what kind of resource it is.
struct Request
{
    std::string_view url;
    std::string_view topUrl;
    ResourceType type = ResourceType::Other;
    // For a document: true when it loads into the top frame (a navigation), false for a sub-frame.
    bool topFrame = false;
};

// What one decision cost, so tests can bound it in steps rather than time.
struct Effort
{
    size_t rulesChecked = 0; // candidates whose conditions were looked at
    size_t regexSteps = 0;   // threads the regular-expression engine advanced
};

struct Decision
{
    bool block = false;
    bool blockCookies = false;
    bool makeHttps = false;
};

// Content-blocker rules (the WebKit JSON format) compiled for fast decisions. Each rule is
// indexed by its rarest literal token (for a regular expression, one that every match contains),
// or by its page domains when it has no token, so a decision tokenises the address once and
// checks only the rules in the matching buckets; expressions run in time linear in the address.
// "load-context" tells the top frame from sub-frames for document loads only: other loads do not
// say which frame they come from. Later
// ignore-previous-rules rules cancel the earlier rules they match, as in the format.
// Immutable once built: decide() and hiddenSelectors() may run on any thread at once.
class Matcher
{
public:
    // Raised whenever the binary layout changes, so an old cache reads as absent.
    static constexpr uint32_t kFormatVersion = 3;

    // Compiles the rules; answers the matcher or one sentence saying what is wrong. The public
    // suffix list (publicsuffix.org format) decides first- and third-party loads; without one,
    // a short built-in heuristic does.
    static std::variant<Matcher, std::string> compile(std::string_view rulesJson,
                                                      std::string_view publicSuffixList = {});
    // The matcher serialize() wrote, or none when the bytes are damaged, truncated or of
    // another format version.
    static std::optional<Matcher> load(std::string_view bytes);
    std::string serialize() const;
    // Refits a serialized header (length, checksum) to whatever payload follows it, so the fuzzer
    // reaches the checks behind the checksum. Too-short bytes come back unchanged.
    static std::string resealed(std::string bytes);

    Decision decide(const Request& request, Effort* effort = nullptr) const;
    // The css-display-none selectors that apply to a page, one selector each.
    std::vector<std::string> hiddenSelectors(std::string_view pageUrl) const;

    // The host's registrable domain ("news.example.co.uk" → "example.co.uk").
    std::string_view registrableDomain(std::string_view host) const;
    size_t ruleCount() const;
    // Bytes held by the compiled tables.
    size_t memoryBytes() const;

    Matcher(Matcher&&) noexcept;
    Matcher& operator=(Matcher&&) noexcept;
    ~Matcher();

private:
    struct Tables;
    struct Context;
    friend class MatcherCompiler;
    explicit Matcher(std::unique_ptr<Tables> tables);

    std::unique_ptr<Tables> m_tables;
};

} // namespace kit::blocking
