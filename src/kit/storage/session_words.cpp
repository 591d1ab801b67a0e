// SPDX-License-Identifier: MIT
#include "kit/storage/session_words.h"

#include "kit/library/words.h"

#include <algorithm>

namespace kit::storage {

namespace {

std::string counted(int n, const char* one, const char* many)
{
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

} // namespace

std::string sessionDetail(int links, std::optional<int> sites)
{
    std::string text = counted(links, "link", "links");
    if (sites) {
        text += " · " + counted(*sites, "site", "sites");
    }
    return text;
}

std::string newSessionName(const std::vector<library::Session>& sessions)
{
    const std::string base(library::words::kNewAccount);
    const auto taken = [&](const std::string& name) {
        return std::any_of(sessions.begin(), sessions.end(), [&](const library::Session& s) {
            return s.name == name;
        });
    };
    std::string name = base;
    for (int n = 2; taken(name); ++n) {
        name = base + " " + std::to_string(n);
    }
    return name;
}

std::string sessionRemovalQuestion(const std::string& name, int links)
{
    std::string question = "Remove “" + name + "” and what its pages remember?";
    if (links == 1) {
        question += " Its 1 link goes back to the default account.";
    } else if (links > 1) {
        question += " Its " + std::to_string(links) + " links go back to the default account.";
    }
    return question;
}

} // namespace kit::storage
