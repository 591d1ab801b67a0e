// SPDX-License-Identifier: MIT
#include "kit/library/library.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace kit::library {

int Session::colourIndex(const Session& session)
{
    if (session.colour) {
        return ((*session.colour % kColourCount) + kColourCount) % kColourCount;
    }
    // Derived from the id so a session shows the same colour on every machine.
    uint64_t h = 0;
    for (uint8_t byte : session.id.uuid.bytes) {
        h = (h * 31 + byte) % 1'000'003;
    }
    return static_cast<int>(h % kColourCount);
}

int Session::nextColour(const std::vector<Session>& after)
{
    std::array<int, kColourCount> uses{};
    for (const auto& session : after) {
        ++uses[static_cast<size_t>(colourIndex(session))];
    }
    return static_cast<int>(std::min_element(uses.begin(), uses.end()) - uses.begin());
}

bool Session::spreadColours(std::vector<Session>& sessions)
{
    bool lacking = std::any_of(
        sessions.begin(), sessions.end(), [](const Session& s) { return !s.colour.has_value(); });
    if (!lacking) {
        return false;
    }
    std::array<int, kColourCount> uses{};
    for (auto& session : sessions) {
        if (!session.colour) {
            session.colour =
                static_cast<int>(std::min_element(uses.begin(), uses.end()) - uses.begin());
        }
        ++uses[static_cast<size_t>(colourIndex(session))];
    }
    return true;
}

BarIndex BarIndex::standard()
{
    BarID id = BarID::make();
    return BarIndex{{Bar{id, kFirstBarName, kFirstBarFile}}, id};
}

const Bar& BarIndex::active() const
{
    if (const Bar* bar = this->bar(activeID)) {
        return *bar;
    }
    return bars.front();
}

const Bar* BarIndex::bar(const BarID& id) const
{
    auto it = std::find_if(bars.begin(), bars.end(), [&](const Bar& b) { return b.id == id; });
    return it == bars.end() ? nullptr : &*it;
}

std::string BarIndex::unusedFileName() const
{
    for (;;) {
        std::string text = support::Uuid::random().string().substr(0, 8);
        std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) {
            return static_cast<char>(std::tolower(c));
        });
        std::string name = "library-" + text + ".json";
        bool taken =
            std::any_of(bars.begin(), bars.end(), [&](const Bar& b) { return b.file == name; });
        if (!taken) {
            return name;
        }
    }
}

} // namespace kit::library
