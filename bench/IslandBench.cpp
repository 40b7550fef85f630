// What the terminal island costs over a folder of 500 sessions: `pelmora
// line`, which a status bar runs every second in a fresh process (so its
// cache starts empty), and one redraw of `pelmora watch`, after a change of
// the folder (a rescan, warm) and on the clock (no rescan). Frames are
// painted into a curses screen on /dev/null, so no terminal is needed.
//
//     build/release/bench/IslandBench

#include <benchmark/benchmark.h>
#include <clocale>
#include <cstdio>
#include <curses.h>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <set>
#include <spawn.h>
#include <stdlib.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "IslandView.h"
#include "session/SessionStore.h"
#include "support/Files.h"
#include "support/Time.h"

extern char** environ;

using namespace pelmora;
using namespace pelmora::cli;

namespace {

constexpr int sessionCount = 500;

// 500 session files as a busy week leaves them: most ended or long done, a
// few dozen running, waiting or failed; each with its lock file beside it.
class Folder {
public:
    Folder() {
        char pattern[] = "/tmp/pelmora-bench-XXXXXX";
        home_ = ::mkdtemp(pattern);
        Files::ensureDirectory(sessions());
        const double now = Time::now();
        const Source sources[] = {Source::claude, Source::codex, Source::pi, Source::grok};
        for (int i = 0; i < sessionCount; ++i) {
            const Source source = sources[i % 4];
            const std::string id = "3f2b8c1e-6d4a-4b7e-9a15-" + std::to_string(100000 + i);
            SessionRecord record = SessionRecord::make(
                source, id, "/Users/ann/code/project-" + std::to_string(i % 40), now - 3600);
            record.state = i % 10 == 0   ? SessionState::working
                           : i % 25 == 1 ? SessionState::awaiting
                           : i % 25 == 2 ? SessionState::failed
                           : i % 2 == 0  ? SessionState::ended
                                         : SessionState::done;
            record.stateSince = now - 5 * i;
            record.updatedAt = now - 2 * i;
            record.tool = "Bash";
            record.summary = "npm test -- --watch=false src/components/Button.test.tsx";
            record.title = "Fix the flaky button test in the checkout form";
            record.lastEvent = "PostToolUse";
            record.pid = ::getpid();
            record.host.termProgram = "iTerm.app";
            record.host.tty = "/dev/ttys004";
            const auto file = SessionStore::fileURL(source, id, sessions());
            SessionStore::write(record, file);
            Files::atomicReplace(file.string() + ".lock", "", 0600);
        }
    }
    ~Folder() { std::filesystem::remove_all(home_); }
    std::filesystem::path home() const { return home_; }
    std::filesystem::path sessions() const { return home_ / "sessions"; }

private:
    std::filesystem::path home_;
};

const Folder& folder() {
    static const Folder made;
    return made;
}

// A 120 by 40 curses screen that writes to /dev/null.
void startScreen() {
    static SCREEN* screen = [] {
        ::setlocale(LC_CTYPE, "C.UTF-8");
        SCREEN* made =
            ::newterm("xterm-256color", std::fopen("/dev/null", "w"), std::fopen("/dev/null", "r"));
        ::set_term(made);
        ::resize_term(40, 120);
        ::start_color();
        startColours();
        return made;
    }();
    benchmark::DoNotOptimize(screen);
}

void draw(IslandModel& island, double now) {
    const IslandLayout shown = island.layout(now);
    paint(islandScreen({shown, island, nullptr, 0, now, true}, COLS, LINES), true);
}

void BM_LineCold(benchmark::State& state) {
    const std::filesystem::path sessions = folder().sessions();
    for (auto _ : state) {
        IslandModel island(sessions);
        island.rescan();
        const double now = Time::now();
        island.checkProcesses(now);
        benchmark::DoNotOptimize(
            islandLine(island.layout(now), island, true, LineColour::ansi).size());
    }
}
BENCHMARK(BM_LineCold)->Unit(benchmark::kMillisecond);

void BM_LineWarm(benchmark::State& state) {
    IslandModel island(folder().sessions());
    for (auto _ : state) {
        island.rescan();
        const double now = Time::now();
        island.checkProcesses(now);
        benchmark::DoNotOptimize(
            islandLine(island.layout(now), island, true, LineColour::ansi).size());
    }
}
BENCHMARK(BM_LineWarm)->Unit(benchmark::kMicrosecond);

// The whole `pelmora line` process, as a status bar runs it.
void BM_LineProcess(benchmark::State& state) {
    const std::string home = "PELMORA_HOME=" + folder().home().string();
    std::string binary = PELMORA_CLI_BINARY, line = "line";
    char* argv[] = {binary.data(), line.data(), nullptr};
    std::vector<char*> environment{const_cast<char*>(home.c_str())};
    for (char** entry = environ; *entry != nullptr; ++entry) {
        environment.push_back(*entry);
    }
    environment.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    for (auto _ : state) {
        pid_t child = 0;
        int status = 0;
        if (::posix_spawn(&child, argv[0], &actions, nullptr, argv, environment.data()) != 0 ||
            ::waitpid(child, &status, 0) != child || status != 0) {
            state.SkipWithError("pelmora line failed");
            break;
        }
    }
    posix_spawn_file_actions_destroy(&actions);
}
BENCHMARK(BM_LineProcess)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_RedrawCold(benchmark::State& state) {
    startScreen();
    for (auto _ : state) {
        IslandModel island(folder().sessions());
        island.rescan();
        draw(island, Time::now());
    }
}
BENCHMARK(BM_RedrawCold)->Unit(benchmark::kMillisecond);

// Something in the folder changed without a name (macOS, or an overflowed
// queue): the whole folder is scanned again through the cache.
void BM_RedrawAfterRescan(benchmark::State& state) {
    startScreen();
    IslandModel island(folder().sessions());
    island.rescan();
    for (auto _ : state) {
        island.rescan();
        draw(island, Time::now());
    }
}
BENCHMARK(BM_RedrawAfterRescan)->Unit(benchmark::kMicrosecond);

// A hook rewrote one session file and the notice named it (Linux): that
// file alone is read anew.
void BM_RedrawAfterChange(benchmark::State& state) {
    startScreen();
    IslandModel island(folder().sessions());
    island.rescan();
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder().sessions())) {
        if (entry.path().extension() == ".json") {
            names.insert(entry.path().filename().string());
            break;
        }
    }
    const std::filesystem::path changed = folder().sessions() / *names.begin();
    std::optional<SessionRecord> record = SessionStore::load(changed).record;
    for (auto _ : state) {
        state.PauseTiming();
        record->updatedAt += 1;
        SessionStore::write(*record, changed);
        state.ResumeTiming();
        island.reread(names);
        draw(island, Time::now());
    }
}
BENCHMARK(BM_RedrawAfterChange)->Unit(benchmark::kMicrosecond);

// The store's own part of that: its warm scan of the folder alone.
void BM_StoreScanWarm(benchmark::State& state) {
    SessionStore::LoadCache cache;
    SessionStore::loadAll(folder().sessions(), cache);
    for (auto _ : state) {
        benchmark::DoNotOptimize(SessionStore::loadAll(folder().sessions(), cache).size());
    }
}
BENCHMARK(BM_StoreScanWarm)->Unit(benchmark::kMicrosecond);

// The clock or a key: the cached records are laid out and painted again.
void BM_RedrawTick(benchmark::State& state) {
    startScreen();
    IslandModel island(folder().sessions());
    island.rescan();
    for (auto _ : state) {
        const double now = Time::now();
        island.checkProcesses(now);
        draw(island, now);
    }
}
BENCHMARK(BM_RedrawTick)->Unit(benchmark::kMicrosecond);

} // namespace
