// SPDX-License-Identifier: MIT
// Proposals at scale: reviewing a proposal that mentions n shortcuts (new ones, changed ones,
// moves into groups and removals) against an n-shortcut bar, for n of 1,000, 10,000 and 100,000;
// writing the 10,000 review through the store; decoding and encoding a 10,000-shortcut document.
// The target: the review at 100,000 costs at most 15 times the one at 10,000.
// Run from the release preset: build/release/bench/proposal_bench
#include "kit/library/fixtures.h"
#include "kit/proposal/proposal_inbox.h"
#include "kit/storage/library_store.h"
#include "kit/support/memory.h"
#include "library_fixture.h"
#include "support/temp_dir.h"

#include <benchmark/benchmark.h>

using namespace kit::library;
using namespace kit::proposal;
using namespace kit::storage;

namespace {

// A quarter each of new shortcuts, renamed ones, ones moved into a group and removals.
Proposal mixedProposal(const Library& library)
{
    std::vector<const Shortcut*> top;
    std::vector<ShortcutID> groups;
    for (const auto& s : library.shortcuts) {
        (s.target.isGroup() ? groups.push_back(s.id) : top.push_back(&s));
    }
    ProposedBar bar{BarDestination::active(), {}, {}};
    const size_t quarter = library.allShortcuts().size() / 4;
    for (size_t i = 0; i < quarter; ++i) {
        bar.shortcuts.push_back(
            ProposedShortcut::from(testing_support::webLink("New " + std::to_string(i))));
    }
    size_t next = 0;
    for (size_t i = 0; i < quarter && next < top.size(); ++i, ++next) {
        ProposedShortcut changed = ProposedShortcut::from(*top[next]);
        changed.name += " (renamed)";
        bar.shortcuts.push_back(std::move(changed));
    }
    for (size_t i = 0; i < quarter && next < top.size() && !groups.empty(); ++i, ++next) {
        ProposedShortcut moved = ProposedShortcut::from(*top[next]);
        moved.placement = Placement::inGroup(groups[i % groups.size()]);
        bar.shortcuts.push_back(std::move(moved));
    }
    for (size_t i = 0; i < quarter && next < top.size(); ++i, ++next) {
        bar.removals.push_back(top[next]->id);
    }
    Proposal proposal;
    proposal.bars.push_back(std::move(bar));
    return proposal;
}

void reviewProposal(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    Library library = testing_support::generateLibrary(n, {});
    LibrarySnapshot snapshot(library, {});
    Proposal proposal = mixedProposal(library);
    for (auto _ : state) {
        ProposalReview result = review(proposal, snapshot, {});
        benchmark::DoNotOptimize(result.bars.size());
    }
    state.SetComplexityN(n);
    state.counters["rows"] =
        static_cast<double>(proposal.allShortcuts().size() + proposal.bars[0].removals.size());
}
BENCHMARK(reviewProposal)
    ->Arg(1'000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

// The review written into the bar alone, without the store.
void writeReviewIntoBar(benchmark::State& state)
{
    Library library = testing_support::generateLibrary(10'000, {});
    LibrarySnapshot snapshot(library, {});
    ProposalReview result = review(mixedProposal(library), snapshot, {});
    for (auto _ : state) {
        state.PauseTiming();
        Library copy = library;
        state.ResumeTiming();
        result.bars[0].apply(copy);
        benchmark::DoNotOptimize(copy.shortcuts.size());
    }
}
BENCHMARK(writeReviewIntoBar)->Unit(benchmark::kMillisecond);

// Through the inbox and the store: a fresh snapshot of every bar, both reviews and the writes on
// the main thread. The save follows off the main thread after the store's pause; the second
// benchmark counts it too, forced at once with its fsync.
void applyThroughStore(benchmark::State& state, bool withSave)
{
    for (auto _ : state) {
        state.PauseTiming();
        auto dir = std::make_unique<testing_support::TempDir>();
        bench_support::writeRealisticLibrary(dir->path());
        LibraryStore::Options options;
        options.interval = std::chrono::milliseconds(60'000);
        auto store = std::make_unique<LibraryStore>(SupportDirectory{dir->path(), true}, options);
        auto inbox = std::make_unique<ProposalInbox>();
        inbox->receive(mixedProposal(store->library()), {}, *store);
        state.ResumeTiming();
        bool applied = inbox->apply(*store);
        if (withSave) {
            store->flush();
        }
        benchmark::DoNotOptimize(applied);
        // Tearing down the folder and the store is not part of applying.
        state.PauseTiming();
        inbox.reset();
        store.reset();
        dir.reset();
        state.ResumeTiming();
    }
}
BENCHMARK_CAPTURE(applyThroughStore, mainThread, false)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK_CAPTURE(applyThroughStore, withSave, true)->Unit(benchmark::kMillisecond)->Iterations(5);

void decodeDocument(benchmark::State& state)
{
    Library library = testing_support::generateLibrary(10'000, {});
    std::string text =
        Proposal::exportBars({{Bar{BarID::make(), "Big", "library.json"}, library}}, {}, false)
            .encoded();
    for (auto _ : state) {
        Proposal proposal = Proposal::decode(text);
        benchmark::DoNotOptimize(proposal.bars.size());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(decodeDocument)->Unit(benchmark::kMillisecond);

void encodeDocument(benchmark::State& state)
{
    Library library = testing_support::generateLibrary(10'000, {});
    Proposal proposal =
        Proposal::exportBars({{Bar{BarID::make(), "Big", "library.json"}, library}}, {}, false);
    for (auto _ : state) {
        std::string text = proposal.encoded();
        benchmark::DoNotOptimize(text.size());
    }
}
BENCHMARK(encodeDocument)->Unit(benchmark::kMillisecond);

} // namespace

// Under the allocator settings the app runs with (fixed mmap and trim thresholds of 32 MB and
// 1 MB): the review's cost at 100,000 rows depends on them as much as on the review itself.
int main(int argc, char** argv)
{
    kit::support::returnFreedMemoryPromptly();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
