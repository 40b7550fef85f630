#include "activity/ErrorScanner.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <numeric>
#include <set>

#include "activity/BuildLogs.h"
#include "activity/RealTools.h"
#include "support/Text.h"

using namespace pelmora;

TEST(ErrorScanner, Clean) {
    const std::pair<std::string, std::string> cases[] = {
        {"\x1b[31mError: boom\x1b[0m", "Error: boom"},
        {"50%\r75%\r100% done", "100% done"},
        {std::string(250, 'x'), std::string(200, 'x') + "…"},
        {std::string(199, 'x') + "é\u0301", std::string(199, 'x') + "é\u0301"},
        {"\t a\x07z\x7f\tc \t", "az\x7f\tc"},
        {"x\x1b(By\x1b[38;5;196", "xBy"},
        {"line\r\n", "line"},
        {"\x1b[\u0301ok", "ok"},
        {"\x1b[1m\r", ""}};
    for (const auto& [line, cleaned] : cases) {
        EXPECT_EQ(ErrorScanner::clean(line), cleaned) << line;
    }
    for (std::string line : {"error: x", "Build FAILED", "FATAL", "✖ 2 problems", "✗ test",
                             "AssertionError", "FAIL src/a.test.js"}) {
        EXPECT_TRUE(ErrorScanner::looksLikeError(line)) << line;
    }
    for (std::string line : {"failure", "Failing", "fail", "FAILING tests: 0"}) {
        EXPECT_FALSE(ErrorScanner::looksLikeError(line)) << line;
    }
}

TEST(ErrorScanner, LinesAcrossChunksAndStreams) {
    ErrorScanner scanner;
    scanner.feed("compiling a\ncompil", false);
    scanner.feed("warning: unused\nErr", true);
    scanner.feed("ing b\n\n   \n", false);
    EXPECT_EQ(scanner.lastLine, "compiling b");
    EXPECT_EQ(scanner.best(), "warning: unused");
    scanner.feed("or: x\r\n", true);
    scanner.feed("fatal: later", true);
    scanner.finish();
    EXPECT_EQ(scanner.best(), "Error: x");
    EXPECT_EQ(scanner.lastLine, "fatal: later");
    EXPECT_TRUE(scanner.pending.empty());

    ErrorScanner split; // "é" cut in two: each chunk is decoded by itself
    split.feed("caf\xc3", false);
    split.feed("\xa9\n", false);
    EXPECT_EQ(split.lastLine, "caf\uFFFD\uFFFD");

    ErrorScanner quiet;
    EXPECT_EQ(quiet.best(), std::nullopt);

    ErrorScanner progress; // no newline ever: only the last 4096 characters wait
    for (int i = 0; i < 100; ++i) {
        progress.feed(std::string(1000, 'x') + "é", false);
    }
    EXPECT_EQ(Text::characterCount(progress.pending[false]), 4096u);
    EXPECT_TRUE(progress.pending[false].ends_with("xé"));
}

TEST(ErrorScanner, RealCompilersAndInterpreters) {
    tools::ScratchFolder folder;
    folder.write("broken.cpp", "int main() {\n    return undefined_name;\n}\n");
    folder.write("broken.py", "def f(x):\n    return 1 / x\n\nprint('start')\nf(0)\n");
    folder.write("broken.js", "console.log('start');\nnull.length;\n");
    folder.write("broken.rs", "fn main() {\n    let x: i32 = \"text\";\n}\n");
    const struct {
        std::string tool, command, best;
    } cases[] = {
        {"g++", "LC_ALL=C g++ -fdiagnostics-color=always -c broken.cpp",
         "broken.cpp:2:12: error: 'undefined_name' was not declared in this scope"},
        {"clang++", "clang++ -fcolor-diagnostics -c broken.cpp",
         "broken.cpp:2:12: error: use of undeclared identifier 'undefined_name'"},
        {"python3", "FORCE_COLOR=1 python3 broken.py", "ZeroDivisionError: division by zero"},
        {"node", "FORCE_COLOR=1 node broken.js",
         "TypeError: Cannot read properties of null (reading 'length')"},
        {"rustc", "rustc --color=always broken.rs", "error[E0308]: mismatched types"}};
    // A node of the system's comes first; else the one scripts/npm-tools.sh
    // keeps in its cache.
    const char* cache = std::getenv("PELMORA_NPM_CACHE");
    const char* xdg = std::getenv("XDG_CACHE_HOME");
    const std::string npm =
        cache != nullptr
            ? cache
            : (xdg != nullptr ? std::string(xdg) : std::string(std::getenv("HOME")) + "/.cache") +
                  "/pelmora/npm";
    setenv("PATH", (std::string(std::getenv("PATH")) + ":" + npm + "/node/bin").c_str(), 1);
    for (const auto& c : cases) {
        if (!tools::haveTool(c.tool)) {
            std::cout << c.tool << " is not installed: its case is skipped\n";
            continue;
        }
        const tools::ScratchFolder::Output output = folder.run(c.command);
        // Both streams as a pipe hands them over: 7 bytes at a time, cutting
        // lines and escape sequences (these outputs are ASCII).
        ErrorScanner scanner;
        for (std::size_t at = 0; at < std::max(output.out.size(), output.err.size()); at += 7) {
            scanner.feed(output.out.substr(std::min(at, output.out.size()), 7), false);
            scanner.feed(output.err.substr(std::min(at, output.err.size()), 7), true);
        }
        scanner.finish();
        EXPECT_NE(output.status, 0) << c.tool;
        EXPECT_EQ(scanner.best(), c.best) << c.tool << "\n" << output.err;
    }
}

TEST(BuildLogs, PathsAndPruning) {
    tools::ScratchFolder home;
    setenv("PELMORA_HOME", home.path().c_str(), 1);
    EXPECT_EQ(BuildLogs::logURL("run-1"), home.path() + "/logs/run-1.log");
    BuildLogs::prune(1, 1, 0); // no folder yet: nothing happens
    const auto now = std::filesystem::file_time_type::clock::now();
    for (int hoursAgo : {1, 2, 3, 30}) {
        home.write("logs/" + std::to_string(hoursAgo) + ".log", "");
        last_write_time(BuildLogs::logURL(std::to_string(hoursAgo)),
                        now - std::chrono::hours(hoursAgo));
    }
    home.write("logs/keep.txt", "not a log");
    auto left = [] {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(BuildLogs::directory())) {
            names.insert(entry.path().filename().string() + " ");
        }
        return std::accumulate(names.begin(), names.end(), std::string());
    };
    const double seconds =
        std::chrono::duration<double>(std::chrono::file_clock::to_sys(now).time_since_epoch())
            .count();
    BuildLogs::prune(2, 2, seconds); // older than two days, then all but the 2 newest
    EXPECT_EQ(left(), "1.log 2.log keep.txt ");
    BuildLogs::prune(1, 0, seconds);
    EXPECT_EQ(left(), "keep.txt ");
    unsetenv("PELMORA_HOME");
}
