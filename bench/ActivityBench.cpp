// The classifiers run on whatever a command, git or the clipboard hands
// over; each must stay linear. The three figures that matter: 10 MB of build
// output scanned in 4 KB chunks, a 100,000-line diff, a 1,000,000-byte
// clipboard text.

#include <benchmark/benchmark.h>
#include <string>

#include "activity/ErrorScanner.h"
#include "activity/GitChanges.h"
#include "clipboard/ClipboardClassifier.h"

using namespace pelmora;

namespace {

std::string repeatedTo(std::string_view unit, std::size_t size) {
    std::string text;
    text.reserve(size + unit.size());
    while (text.size() < size) {
        text.append(unit);
    }
    text.resize(size);
    return text;
}

// Coloured compiler progress with no error until the very end, so every
// line goes through the error test.
std::string buildOutput() {
    return repeatedTo("\x1b[32m[ 42%]\x1b[0m Building CXX object PelmoraCore/CMakeFiles/"
                      "pelmora_session.dir/session/EventReducer.cpp.o\n"
                      "progress 10%\r20%\r30%\r100% done, 1234 files, é ✓\n",
                      10 * 1000 * 1000) +
           "\nsrc/x.cpp:1:1: error: expected ';'\n";
}

void BM_ScanBuildOutput(benchmark::State& state) {
    const std::string output = buildOutput();
    constexpr std::size_t chunk = 4096;
    for (auto _ : state) {
        ErrorScanner scanner;
        for (std::size_t at = 0; at < output.size(); at += chunk) {
            scanner.feed(std::string_view(output).substr(at, chunk), (at / chunk) % 7 == 0);
        }
        scanner.finish();
        benchmark::DoNotOptimize(scanner.best());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(output.size()));
}
BENCHMARK(BM_ScanBuildOutput)->Unit(benchmark::kMillisecond);

void BM_ParseDiff(benchmark::State& state) {
    std::string diff = "diff --git a/x.c b/x.c\nindex 1..2 100644\n--- a/x.c\n+++ b/x.c\n";
    for (int line = 0; diff.size() < 100 || line < 100'000; ++line) {
        switch (line % 10) {
        case 0:
            diff += "@@ -" + std::to_string(line) + ",8 +" + std::to_string(line) + ",9 @@ fn\n";
            break;
        case 3:
            diff += "-    return compute(value, other) + 1;\n";
            break;
        case 4:
        case 5:
            diff += "+    return compute(value, other, extra) + 1; // é\n";
            break;
        default:
            diff += "     int x = y * 2;\n";
        }
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(GitChanges::parseDiff(diff, 1'000'000));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(diff.size()));
}
BENCHMARK(BM_ParseDiff)->Unit(benchmark::kMillisecond);

void classifying(benchmark::State& state, const std::string& text) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(ClipboardClassifier::classify(text));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(text.size()));
}

// A big JSON document: every secret pattern scans it, then it is parsed
// and written again.
void BM_ClipboardJSON(benchmark::State& state) {
    std::string json = "[";
    while (json.size() < ClipboardClassifier::maxBytes - 200) {
        json += R"({"id": 12345, "name": "build-artifact.tar.gz", "tags": ["a", "b"], )"
                R"("url": "https://example.com/x/y", "ok": true},)";
    }
    json.back() = ']';
    classifying(state, json + std::string(ClipboardClassifier::maxBytes - json.size(), ' '));
}
BENCHMARK(BM_ClipboardJSON)->Unit(benchmark::kMillisecond);

// A long log with a trace in it: patterns, then frame matching line by line.
void BM_ClipboardTrace(benchmark::State& state) {
    classifying(state, repeatedTo("Error: request failed\n    at handler (/Users/ann/app/"
                                  "server.js:10:5)\n    at next (node:internal/x:1:1)\n",
                                  ClipboardClassifier::maxBytes));
}
BENCHMARK(BM_ClipboardTrace)->Unit(benchmark::kMillisecond);

// Text made to make the secret patterns backtrack: runs of the assignment
// pattern's name characters with word boundaries everywhere.
void BM_ClipboardAdversarial(benchmark::State& state, std::string_view unit) {
    classifying(state, repeatedTo(unit, ClipboardClassifier::maxBytes));
}
BENCHMARK_CAPTURE(BM_ClipboardAdversarial, dottedWords, "a.b-c_d.")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ClipboardAdversarial, keyWords, "token.secret-")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ClipboardAdversarial, schemes, "://a:")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ClipboardAdversarial, bearer, "bearer ")->Unit(benchmark::kMillisecond);

} // namespace
