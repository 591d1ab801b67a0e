// SPDX-License-Identifier: MIT
// Build step: converts EasyList-style filter lists into the content-blocker rules file.
// Usage: vantorel-adblock-rules OUTPUT.json LIST.txt...
#include "kit/blocking/filter_list.h"
#include "kit/support/atomic_file.h"

#include <cstdio>
#include <string>
#include <vector>

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s OUTPUT.json LIST.txt...\n", argv[0]);
        return 2;
    }
    std::vector<std::string> texts;
    for (int i = 2; i < argc; ++i) {
        auto read = kit::support::readWholeFile(argv[i]);
        if (auto* error = std::get_if<kit::support::ReadError>(&read)) {
            std::fprintf(stderr, "%s\n", error->message.c_str());
            return 1;
        }
        texts.push_back(std::move(std::get<std::string>(read)));
    }
    std::vector<std::string_view> lists(texts.begin(), texts.end());
    kit::blocking::Conversion conversion = kit::blocking::convertFilterLists(lists);
    if (auto error = kit::support::writeFileAtomically(argv[1], conversion.json)) {
        std::fprintf(stderr, "%s\n", error->c_str());
        return 1;
    }
    size_t dropped = 0;
    for (const auto& [reason, count] : conversion.dropped) {
        dropped += count;
    }
    std::printf("adblock rules: %zu filters, %zu converted into %zu rules, %zu dropped\n",
                conversion.filters,
                conversion.converted,
                conversion.rules,
                dropped);
    for (const auto& [reason, count] : conversion.dropped) {
        std::printf("  dropped %6zu  %s\n", count, reason.c_str());
    }
    return 0;
}
