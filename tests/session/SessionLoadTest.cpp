#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "session/SessionStore.h"
#include "support/Files.h"

using namespace pelmora;
namespace fs = std::filesystem;
using SessionStore::LoadResult;

// What `pelmora sessions` tells the user about a file it skips.
TEST(SessionLoad, SaysWhyAFileIsCorruptOrUnsupported) {
    std::string pattern = (fs::temp_directory_path() / "pelmora-load-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    const fs::path directory = pattern;
    const fs::path file = directory / "claude-a.json";
    EXPECT_EQ(SessionStore::load(file).reason, "cannot be read (No such file or directory)");

    const std::string good = SessionRecord::make(Source::claude, "a", "/w", 1).encode();
    std::string misspelled = good;
    misspelled.replace(misspelled.find("idle"), 4, "wrking");
    // clang-format off
    const std::pair<std::string, std::string_view> cases[] = {
        {good, ""}, {" \n", "not JSON: empty document at line 2, column 1"},
        {"{\"a\":1,\n\"cwd\" 2}", "not JSON: expected ':' after an object key at line 2, column 7"},
        {misspelled, R"(state: unknown value "wrking")"},
        {R"({"schemaVersion":"1"})",
         "schemaVersion: expected an integer from -2147483648 to 2147483647"},
        {R"({"schemaVersion":2,"cwd":7})", "schema version 2; this version reads 1"}};
    // clang-format on
    for (const auto& [bytes, why] : cases) {
        Files::atomicReplace(file, bytes, 0600);
        const LoadResult result = SessionStore::load(file);
        EXPECT_EQ(result.reason, why) << bytes;
        EXPECT_EQ(result.kind == LoadResult::Kind::ok, why.empty()) << bytes;
    }

    // The scan refuses a file over the limit unread; the reason does not
    // take part in equality.
    Files::atomicReplace(file, good + std::string(SessionStore::maxFileSize, ' '), 0600);
    fs::create_directory(directory / "claude-folder.json");
    std::vector<LoadResult> scanned = SessionStore::loadAll(directory);
    std::sort(scanned.begin(), scanned.end(), [](auto& a, auto& b) { return a.path < b.path; });
    ASSERT_EQ(scanned.size(), 2u);
    EXPECT_EQ(scanned[0], LoadResult::corrupt(file));
    EXPECT_EQ(scanned[0].reason, "larger than the 262144-byte limit (" +
                                     std::to_string(good.size() + SessionStore::maxFileSize) +
                                     " bytes)");
    EXPECT_EQ(scanned[1].reason, "not a regular file");
    fs::remove_all(directory);
}
