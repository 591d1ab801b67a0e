// SPDX-License-Identifier: MIT
// The library store on a heavy user's library (20 bars, 10,000 shortcuts on the showing one):
// opening it, a rename through mutate, and encoding plus the atomic write of the large bar.
// Run from the release preset: build/release/bench/library_bench
#include "kit/storage/library_store.h"
#include "kit/support/atomic_file.h"
#include "library_fixture.h"
#include "support/temp_dir.h"

#include <benchmark/benchmark.h>

using namespace kit::library;
using namespace kit::storage;

namespace {

const testing_support::TempDir& folder()
{
    static testing_support::TempDir dir;
    static bool written = [] {
        bench_support::writeRealisticLibrary(dir.path());
        return true;
    }();
    (void)written;
    return dir;
}

LibraryStore::Options longDebounce()
{
    LibraryStore::Options options;
    options.interval = std::chrono::milliseconds(60'000);
    return options;
}

void openStore(benchmark::State& state)
{
    const auto& dir = folder();
    for (auto _ : state) {
        LibraryStore store(SupportDirectory{dir.path(), true}, longDebounce());
        benchmark::DoNotOptimize(store.library().shortcuts.size());
        if (store.loadState().kind != LibraryStore::LoadState::Kind::Loaded) {
            state.SkipWithError("the library did not load");
        }
    }
}
BENCHMARK(openStore)->Unit(benchmark::kMillisecond);

void renameThroughMutate(benchmark::State& state)
{
    const auto& dir = folder();
    LibraryStore store(SupportDirectory{dir.path(), true}, longDebounce());
    ShortcutID id = store.library().shortcuts[store.library().shortcuts.size() / 2].id;
    int n = 0;
    for (auto _ : state) {
        store.mutate([&](Library& l) {
            Shortcut renamed = *l.shortcut(id);
            renamed.name = "Renamed " + std::to_string(++n);
            l.update(renamed);
        });
    }
    // Leave the file as it was: nothing of the burst is written.
    store.endPreview();
}
BENCHMARK(renameThroughMutate)->Unit(benchmark::kMicrosecond);

void encodeAndWriteAtomically(benchmark::State& state)
{
    const auto& dir = folder();
    Library library = decodeLibrary(testing_support::readFile(dir.file("library.json")));
    auto target = dir.file("written.json");
    for (auto _ : state) {
        std::string text = encodeLibrary(library);
        if (auto error = kit::support::writeFileAtomically(target, text)) {
            state.SkipWithError(error->c_str());
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations())
                            * static_cast<int64_t>(std::filesystem::file_size(target)));
}
BENCHMARK(encodeAndWriteAtomically)->Unit(benchmark::kMillisecond);

void decodeLargeBar(benchmark::State& state)
{
    std::string text = testing_support::readFile(folder().file("library.json"));
    for (auto _ : state) {
        benchmark::DoNotOptimize(decodeLibrary(text));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations())
                            * static_cast<int64_t>(text.size()));
}
BENCHMARK(decodeLargeBar)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
