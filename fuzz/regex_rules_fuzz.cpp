// SPDX-License-Identifier: MIT
// Rule files of regular expressions, one per input line, each also wrapped as a host anchor the
// way other converters write "||host^". Whatever the matcher's index skips must still be
// decided: a request is blocked exactly when one of the expressions matches it.
#include "kit/blocking/matcher.h"
#include "kit/blocking/small_regex.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

using kit::blocking::SmallRegex;

namespace {

bool isUtf8(const std::string& text)
{
    try {
        (void)nlohmann::json(text).dump();
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

} // namespace

// NOLINTNEXTLINE(readability-identifier-naming): libFuzzer calls the entry point by this name.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> lines;
    for (size_t start = 0; start <= text.size() && lines.size() < 64;) {
        size_t end = text.find('\n', start);
        end = end == std::string_view::npos ? text.size() : end;
        lines.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
    std::vector<SmallRegex> expressions;
    nlohmann::json rules = nlohmann::json::array();
    for (const std::string& line : lines) {
        // In a group, so the matcher cannot take it for one of the shapes it runs without the
        // engine: the index alone stands between the rule and a wrong decision.
        for (const std::string& filter :
             {"(" + line + ")", "^[^:]+://+([^:/]+\\.)?" + line + "([^a-zA-Z0-9_.%-].*)?$"}) {
            auto regex = SmallRegex::parse(filter, false);
            if (!regex || !isUtf8(filter)) {
                continue; // a rule file is JSON: it cannot hold bytes that are not UTF-8
            }
            expressions.push_back(std::move(*regex));
            rules.push_back(
                {{"trigger", {{"url-filter", filter}}}, {"action", {{"type", "block"}}}});
        }
    }
    auto compiled = kit::blocking::Matcher::compile(rules.dump());
    auto* matcher = std::get_if<kit::blocking::Matcher>(&compiled);
    if (!matcher) {
        __builtin_trap(); // every expression in it was accepted on its own
    }
    std::vector<std::string> urls = {"https://a.b.example.com:8080/p/ad.js?q=1#f", "http://x/", ""};
    for (const std::string& line : lines) {
        urls.push_back(line);
        urls.push_back("https://" + line + "/x?y");
        urls.push_back("https://sub." + line);
    }
    for (const std::string& url : urls) {
        std::string lower = url;
        for (char& c : lower) {
            c = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        }
        bool expected = false;
        for (const SmallRegex& regex : expressions) {
            expected = expected || regex.search(lower);
        }
        bool blocked =
            matcher->decide({url, "https://site.org/", kit::blocking::ResourceType::Image}).block;
        if (blocked != expected) {
            __builtin_trap();
        }
    }
    return 0;
}
