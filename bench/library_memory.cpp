// SPDX-License-Identifier: MIT
// Prints what a process holding a heavy user's library costs: the time to open the store once,
// cold, resident memory after, and how many writes a burst of 1,000 renames makes.
// Run from the release preset: build/release/bench/library_memory
#include "kit/storage/library_store.h"
#include "kit/support/memory.h"
#include "library_fixture.h"
#include "support/temp_dir.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

using namespace kit::library;
using namespace kit::storage;

namespace {

long statusKiB(const char* field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field, 0) == 0) {
            return std::stol(line.substr(std::string(field).size()));
        }
    }
    return -1;
}

} // namespace

int main()
{
    kit::support::returnFreedMemoryPromptly();
    testing_support::TempDir dir;
    bench_support::writeRealisticLibrary(dir.path());
    long before = statusKiB("VmRSS:");

    auto start = std::chrono::steady_clock::now();
    auto store = std::make_unique<LibraryStore>(SupportDirectory{dir.path(), true});
    auto opened = std::chrono::steady_clock::now();
    size_t count = store->library().allShortcuts().size();
    std::printf("open_cold_ms=%.1f shortcuts=%zu\n",
                std::chrono::duration<double, std::milli>(opened - start).count(),
                count);
    std::printf("rss_before_open_kib=%ld rss_holding_kib=%ld\n", before, statusKiB("VmRSS:"));

    ShortcutID id = store->library().shortcuts[10].id;
    size_t writesBefore = store->libraryWriteCount();
    for (int i = 0; i < 1000; ++i) {
        store->mutate([&](Library& l) {
            Shortcut renamed = *l.shortcut(id);
            renamed.name = "Burst " + std::to_string(i);
            l.update(renamed);
        });
    }
    auto burstEnd = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    std::printf("burst_of_1000_ms=%.1f writes_after_burst=%zu\n",
                std::chrono::duration<double, std::milli>(burstEnd - opened).count(),
                store->libraryWriteCount() - writesBefore);
    std::printf(
        "rss_after_burst_kib=%ld peak_rss_kib=%ld\n", statusKiB("VmRSS:"), statusKiB("VmHWM:"));
    return 0;
}
