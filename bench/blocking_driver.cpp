// SPDX-License-Identifier: MIT
// Decides requests with the blocking matcher, for the comparison in bench/blocking_compare/.
// Usage: blocking_driver --rules adblock-rules.json [--suffixes public_suffix_list.dat]
//        [--warm-up PASSES] < requests.jsonl  (one {"url","sourceUrl","type"} per line)
// More untimed passes than the one by default put decisions, not compiling, in a profile.
// Prints "block" or "allow" per request; on stderr the build, cache and per-request figures:
// match_ns_total=… requests=… build_ns=… mem_bytes=… plus load_ns, median_ns and p99_ns, and
// the rules checked and regular-expression steps taken over all requests, and clock_ns, what
// timing one request costs by itself (the median of empty timings).
#include "kit/blocking/disk_rule_list_store.h"
#include "kit/blocking/matcher.h"
#include "kit/support/atomic_file.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

using kit::blocking::Matcher;
using kit::blocking::ResourceType;
using Clock = std::chrono::steady_clock;

namespace {

bool isTopFrame(const std::string& name)
{
    return name == "main_frame" || name == "document";
}

// The request types of the browser-extension engines' corpora, as the matcher names them.
ResourceType typeFromName(const std::string& name)
{
    if (isTopFrame(name) || name == "sub_frame" || name == "subdocument") {
        return ResourceType::Document;
    }
    if (name == "stylesheet") {
        return ResourceType::StyleSheet;
    }
    if (name == "script") {
        return ResourceType::Script;
    }
    if (name == "image" || name == "imageset") {
        return ResourceType::Image;
    }
    if (name == "font") {
        return ResourceType::Font;
    }
    if (name == "xmlhttprequest" || name == "xhr" || name == "fetch") {
        return ResourceType::Raw;
    }
    if (name == "media") {
        return ResourceType::Media;
    }
    if (name == "ping" || name == "beacon") {
        return ResourceType::Ping;
    }
    if (name == "websocket") {
        return ResourceType::WebSocket;
    }
    return ResourceType::Other;
}

// CPU time of this process: on a shared machine it says more than the wall clock.
long long cpuNow()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

long long nanoseconds(Clock::duration d)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(d).count();
}

// The file's bytes, or none after saying why on stderr.
std::optional<std::string> readFile(const std::string& path)
{
    auto read = kit::support::readWholeFile(path);
    if (auto* error = std::get_if<kit::support::ReadError>(&read)) {
        std::fprintf(stderr, "%s\n", error->message.c_str());
        return std::nullopt;
    }
    return std::get<std::string>(read);
}

int run(int argc, char** argv)
{
    std::string rulesPath;
    std::string suffixesPath = kit::blocking::DiskRuleListStore::kPublicSuffixList;
    int warmUps = 1;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string flag = argv[i];
        if (flag == "--rules") {
            rulesPath = argv[i + 1];
        } else if (flag == "--suffixes") {
            suffixesPath = argv[i + 1];
        } else if (flag == "--warm-up") {
            warmUps = std::max(1, std::atoi(argv[i + 1]));
        }
    }
    if (rulesPath.empty()) {
        std::fprintf(
            stderr, "usage: %s --rules FILE [--suffixes FILE] < requests.jsonl\n", argv[0]);
        return 2;
    }
    auto rulesText = readFile(rulesPath);
    auto suffixesText =
        suffixesPath.empty() ? std::optional<std::string>("") : readFile(suffixesPath);
    if (!rulesText || !suffixesText) {
        return 1;
    }
    const std::string& rules = *rulesText;
    const std::string& suffixes = *suffixesText;

    auto buildStart = Clock::now();
    auto buildCpu = cpuNow();
    auto compiled = Matcher::compile(rules, suffixes);
    auto buildNs = nanoseconds(Clock::now() - buildStart);
    buildCpu = cpuNow() - buildCpu;
    if (auto* error = std::get_if<std::string>(&compiled)) {
        std::fprintf(stderr, "%s\n", error->c_str());
        return 1;
    }
    const Matcher& built = std::get<Matcher>(compiled);
    std::string cache = built.serialize();
    auto loadStart = Clock::now();
    auto loadCpu = cpuNow();
    auto loaded = Matcher::load(cache);
    auto loadNs = nanoseconds(Clock::now() - loadStart);
    loadCpu = cpuNow() - loadCpu;
    if (!loaded) {
        std::fprintf(stderr, "the serialized matcher did not load\n");
        return 1;
    }
    const Matcher& matcher = *loaded;

    struct Line
    {
        std::string url;
        std::string top;
        ResourceType type;
        bool topFrame;
    };
    std::vector<Line> requests;
    std::string text;
    while (std::getline(std::cin, text)) {
        if (text.empty()) {
            continue;
        }
        auto json = nlohmann::json::parse(text, nullptr, false);
        if (!json.is_object()) {
            std::fprintf(stderr, "not a request: %s\n", text.c_str());
            return 1;
        }
        std::string type = json.value("type", "other");
        requests.push_back({json.value("url", ""),
                            json.value("sourceUrl", ""),
                            typeFromName(type),
                            isTopFrame(type)});
    }

    // One untimed pass warms the caches, as the engines in node get their JIT warm-up, and
    // counts what the decisions cost in steps.
    kit::blocking::Effort effort;
    for (const Line& r : requests) {
        (void)matcher.decide({r.url, r.top, r.type, r.topFrame}, &effort);
    }
    for (int pass = 1; pass < warmUps; ++pass) {
        for (const Line& r : requests) {
            (void)matcher.decide({r.url, r.top, r.type, r.topFrame});
        }
    }
    // What the two clock readings round each request cost on their own: part of every time
    // below, as they are of the engines' in node.
    std::vector<long long> times(requests.size());
    for (long long& time : times) {
        auto start = Clock::now();
        time = nanoseconds(Clock::now() - start);
    }
    std::nth_element(
        times.begin(), times.begin() + static_cast<ptrdiff_t>(times.size() / 2), times.end());
    long long clockNs = times.empty() ? 0 : times[times.size() / 2];
    std::vector<char> blocked(requests.size());
    long long total = 0;
    long long matchCpu = cpuNow();
    for (size_t i = 0; i < requests.size(); ++i) {
        auto start = Clock::now();
        const Line& r = requests[i];
        blocked[i] = static_cast<char>(matcher.decide({r.url, r.top, r.type, r.topFrame}).block);
        times[i] = nanoseconds(Clock::now() - start);
        total += times[i];
    }
    matchCpu = cpuNow() - matchCpu;
    // Element hiding for one busy page: the selectors and the style sheet a page would get.
    auto hideStart = Clock::now();
    auto selectors = matcher.hiddenSelectors("https://www.cnn.com/world/live-news");
    auto hideNs = nanoseconds(Clock::now() - hideStart);
    size_t cssBytes = 0;
    for (const std::string& selector : selectors) {
        cssBytes += selector.size() + 24;
    }

    std::string out;
    for (char b : blocked) {
        out += b ? "block\n" : "allow\n";
    }
    std::fwrite(out.data(), 1, out.size(), stdout);
    std::sort(times.begin(), times.end());
    auto at = [&](double q) {
        return times.empty()
                   ? 0LL
                   : times[std::min(times.size() - 1,
                                    static_cast<size_t>(q * static_cast<double>(times.size())))];
    };
    std::fprintf(stderr,
                 "match_ns_total=%lld requests=%zu build_ns=%lld mem_bytes=%zu load_ns=%lld "
                 "cache_bytes=%zu median_ns=%lld p99_ns=%lld build_cpu_ns=%lld load_cpu_ns=%lld "
                 "hide_ns=%lld hidden_selectors=%zu css_bytes=%zu match_cpu_ns=%lld "
                 "rules_checked=%zu regex_steps=%zu clock_ns=%lld\n",
                 total,
                 requests.size(),
                 static_cast<long long>(buildNs),
                 matcher.memoryBytes(),
                 static_cast<long long>(loadNs),
                 cache.size(),
                 at(0.5),
                 at(0.99),
                 buildCpu,
                 loadCpu,
                 static_cast<long long>(hideNs),
                 selectors.size(),
                 cssBytes,
                 matchCpu,
                 effort.rulesChecked,
                 effort.regexSteps,
                 clockNs);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
}
