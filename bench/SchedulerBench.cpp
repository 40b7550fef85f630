// The app re-runs the layout on a timer and on every change of any session
// file, on the main thread. A thousand records is far more than anyone
// keeps, so this bounds what a redraw can cost.

#include <benchmark/benchmark.h>
#include <random>
#include <string>
#include <vector>

#include "island/Scheduler.h"

using namespace pelmora;

namespace {

constexpr double now = 1'700'000'000;

// Every state, source and notice kind, with times on both sides of each
// linger, so that every rule of display and every tie-break does work.
std::vector<SessionRecord> records(std::size_t count) {
    std::mt19937 random(7);
    const Source sources[] = {Source::claude,  Source::codex, Source::build,
                              Source::service, Source::git,   Source::update};
    const SessionState states[] = {SessionState::working,    SessionState::awaiting,
                                   SessionState::compacting, SessionState::failed,
                                   SessionState::done,       SessionState::idle};
    const char* tools[] = {"Bash", "Edit", "Clipboard", "Alert", "Changes"};
    std::vector<SessionRecord> made;
    for (std::size_t i = 0; i < count; ++i) {
        SessionRecord record = SessionRecord::make(
            sources[random() % std::size(sources)], "session-" + std::to_string(i),
            "/Users/ann/src/project-" + std::to_string(i % 40), now);
        record.state = states[random() % std::size(states)];
        record.stateSince = now - static_cast<double>(random() % 2400);
        record.updatedAt = now - static_cast<double>(random() % 900);
        record.tool = tools[random() % std::size(tools)];
        record.summary = "npm test -- --watch=false src/components/Button.test.tsx";
        record.title = "Fix the flaky button test";
        record.lastEvent = "PostToolUse";
        made.push_back(std::move(record));
    }
    return made;
}

void BM_Layout(benchmark::State& state) {
    const std::vector<SessionRecord> input = records(static_cast<std::size_t>(state.range(0)));
    const Scheduler::Acknowledged acknowledged{Scheduler::ackKey(input[3]),
                                               Scheduler::ackKey(input[5])};
    const ManualPick pick{input[10].key(), input[10].stateSince, now - 60};
    for (auto _ : state) {
        benchmark::DoNotOptimize(Scheduler::layout(input, now, {}, acknowledged, pick));
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Layout)->Arg(10)->Arg(1000)->Unit(benchmark::kMicrosecond);

} // namespace
