// SPDX-License-Identifier: MIT
#pragma once

#include "kit/library/library_json.h"
#include "support/library_generator.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace bench_support {

using namespace kit::library;

// A support folder as a heavy user has it: 20 bars, the showing one with `largest` shortcuts,
// the others with 300 each, and four sessions the links use.
inline void writeRealisticLibrary(const std::filesystem::path& folder, int largest = 10'000)
{
    std::filesystem::create_directories(folder);
    SessionIndex sessions;
    for (const char* name : {"Work", "Home", "Client", "Test"}) {
        sessions.sessions.push_back(Session{SessionID::make(), name, std::nullopt});
    }
    Session::spreadColours(sessions.sessions);
    std::vector<SessionID> ids;
    for (const auto& s : sessions.sessions) {
        ids.push_back(s.id);
    }
    BarIndex index;
    for (int bar = 0; bar < 20; ++bar) {
        Bar entry{BarID::make(),
                  "Bar " + std::to_string(bar),
                  bar == 0 ? "library.json" : index.unusedFileName()};
        index.bars.push_back(entry);
        Library library = testing_support::generateLibrary(
            bar == 0 ? largest : 300, ids, static_cast<unsigned>(bar + 1));
        std::ofstream(folder / entry.file) << encodeLibrary(library);
    }
    index.activeID = index.bars[0].id;
    std::ofstream(folder / "bars.json") << encodeBarIndex(index);
    std::ofstream(folder / "sessions.json") << encodeSessionIndex(sessions);
}

} // namespace bench_support
