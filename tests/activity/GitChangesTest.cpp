#include "activity/GitChanges.h"

#include <gtest/gtest.h>

#include "activity/RealTools.h"
#include "json/OrderedJSON.h"

using namespace pelmora;
using namespace std::string_literals;

namespace {

// One line per entry, so that a table of cases reads as what a person sees.
std::string render(const std::vector<FileChange>& changes) {
    std::string text;
    for (const FileChange& c : changes) {
        text += c.path + (c.oldPath ? " <- " + *c.oldPath : "") + " +" + std::to_string(c.added) +
                " -" + std::to_string(c.removed) + (c.isBinary ? " binary" : "") + "\n";
    }
    return text;
}
std::string render(const std::vector<DiffLine>& lines) {
    auto number = [](std::optional<std::int64_t> n) { return n ? std::to_string(*n) : "-"; };
    std::string text;
    for (const DiffLine& l : lines) {
        text += std::string(rawValue(l.kind)).substr(0, 1) + " " + number(l.oldNumber) + " " +
                number(l.newNumber) + "|" + l.text + "\n";
    }
    return text;
}

} // namespace

// A repository with a history: a rename into a name with blanks and non-ASCII
// characters, a binary file, a file that loses its final newline; and one
// with no commit yet, compared with the empty tree.
TEST(GitChanges, RealRepositories) {
    if (!tools::haveTool("git")) {
        GTEST_SKIP() << "git is not installed";
    }
    // The machine's own git configuration (colour, prefixes) left out.
    const std::string git = "export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_NOSYSTEM=1; git -c "
                            "core.quotepath=false -c user.name=T -c user.email=t@example.com ";
    tools::ScratchFolder repo;
    repo.write("src/main.c", "int main(void) {\n    return 0;\n}\n");
    repo.write("old name.txt", "alpha\nbeta\n");
    repo.write("logo.png", "\x89PNG\r\n\x1a\n\0\0\0\rIHDR"s);
    repo.run(git + "init -q && " + git + "add -A && " + git + "commit -q -m first");
    repo.write("src/main.c", "#include <stdio.h>\nint main(void) {\n    return 1;\n}");
    repo.write("logo.png", "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\1"s);
    repo.write("ünï côdé.md", "# Títle\n");
    repo.run("mkdir docs && " + git + "mv 'old name.txt' 'docs/new näme.txt' && " + git + "add -A");

    const auto numstat = repo.run(git + "diff --cached -M --numstat -z HEAD");
    EXPECT_EQ(render(GitChanges::parseNumstat(numstat.out)),
              "docs/new näme.txt <- old name.txt +0 -0\nlogo.png +0 -0 binary\n"
              "src/main.c +3 -2\nünï côdé.md +1 -0\n");
    const auto diff = repo.run(git + "diff --cached --no-color HEAD -- src/main.c");
    EXPECT_EQ(render(GitChanges::parseDiff(diff.out, 100)),
              "h - -|@@ -1,3 +1,4 @@\na - 1|#include <stdio.h>\nc 1 2|int main(void) {\n"
              "r 2 -|    return 0;\nr 3 -|}\na - 3|    return 1;\na - 4|}\n"
              "n - -|No newline at end of file\n");
    for (std::string options : {"", "--binary "}) {
        const auto binary = repo.run(git + "diff --cached --no-color " + options + "HEAD logo.png");
        EXPECT_EQ(render(GitChanges::parseDiff(binary.out, 1)), "n - -|Binary file\n");
    }

    tools::ScratchFolder fresh;
    fresh.write("a file.txt", "1\n2\n");
    const auto first =
        fresh.run(git + "init -q && " + git + "add -A && " + git + "diff --cached --numstat -z " +
                  std::string(GitChanges::emptyTree));
    EXPECT_EQ(render(GitChanges::parseNumstat(first.out)), "a file.txt +2 -0\n") << first.err;
}

TEST(GitChanges, NumstatRecords) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"3\t1\tsrc/a.c\0"s, "src/a.c +3 -1\n"},
        {"-\t-\timage.png\0"s, "image.png +0 -0 binary\n"},
        {"-\t5\tx\0"s, "x +0 -5\n"},
        {"2\t2\t\0old/name.c\0new/name.c\0"s, "new/name.c <- old/name.c +2 -2\n"},
        {"1\t0\ta\0"
         "2\t2\t\0old.c\0"s,
         "a +1 -0\n"},
        {"+4\t-2\ttab\there\0junk\0\0x\ty\0"s, "tab\there +4 --2\n"},
        {"99999999999999999999\t7\tbig", "big +0 -7\n"}};
    for (const auto& [output, changes] : cases) {
        EXPECT_EQ(render(GitChanges::parseNumstat(output)), changes) << output;
    }
}

TEST(GitChanges, DiffLinesAndLimit) {
    const struct {
        std::string diff;
        std::int64_t limit;
        std::string lines;
    } cases[] = {
        {"@@ -10,3 +12,4 @@ fn\n a\n-b\n+c\n\\ No newline at end of file", 9,
         "h - -|@@ -10,3 +12,4 @@ fn\nc 10 12|a\nr 11 -|b\na - 13|c\nn - -|No newline at end of "
         "file\n"},
        {"@@ -0,0 +1 @@\n+x", 9, "h - -|@@ -0,0 +1 @@\na - 1|x\n"},
        {"--- a/x\n+++ b/x\n@@ -1 +1 @@\n\n?junk\n+é\n+\u0301x", 9, "h - -|@@ -1 +1 @@\na - 1|é\n"},
        {"@@ a\n@@ b\n@@ c\n@@ d", 2, "h - -|@@ a\nh - -|@@ b\nn - -|Diff cut off here\n"},
        {"@@ a\n@@ b", 2, "h - -|@@ a\nh - -|@@ b\nn - -|Diff cut off here\n"},
        {"x\nBinary files a/x and b/x differ", 0, "n - -|Binary file\n"},
        {"", 1, ""},
        {"", 0, "n - -|Diff cut off here\n"}};
    for (const auto& c : cases) {
        EXPECT_EQ(render(GitChanges::parseDiff(c.diff, c.limit)), c.lines) << c.diff;
    }
}

TEST(GitChanges, ChangeSetJSONAndSums) {
    const ChangeSet set{"/r", "b", "e", {{"b", "a", 3, 1, false}, {"c", std::nullopt, 4, 0, true}}};
    EXPECT_EQ(set.added(), 7);
    EXPECT_EQ(set.removed(), 1);
    EXPECT_EQ(
        OrderedJSON::serialize(set.toJSON(), ""),
        "{\n\"repo\": \"/r\",\n\"base\": \"b\",\n\"end\": \"e\",\n\"files\": [\n{\n\"path\": "
        "\"b\",\n\"oldPath\": \"a\",\n\"added\": 3,\n\"removed\": 1,\n\"isBinary\": false\n},\n"
        "{\n\"path\": \"c\",\n\"added\": 4,\n\"removed\": 0,\n\"isBinary\": true\n}\n]\n}");
    EXPECT_EQ(ChangeSet::fromJSON(set.toJSON()), set);
    EXPECT_EQ(ChangeSet::fromJSON(OrderedJSON::parse(
                  R"({"repo":"r","base":"b","end":"e","files":[{"path":"p","added":1}]})")),
              std::nullopt);
    const ChangeSet huge{"r", "b", "e", {{"a", {}, INT64_MAX, 0, false}, {"b", {}, 1, 0, false}}};
    EXPECT_DEATH(huge.added(), "");
}
