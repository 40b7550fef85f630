#include "activity/GitChanges.h"

#include <gtest/gtest.h>

#include "activity/RealTools.h"
#include "json/OrderedJSON.h"

using namespace pelmora;
namespace tools = pelmora::testing;
using Kind = DiffLine::Kind;
using std::nullopt;
using namespace std::string_literals;

namespace pelmora {
void PrintTo(const FileChange& c, std::ostream* out) {
    *out << OrderedJSON::serializeCompact(c.toJSON());
}
void PrintTo(const DiffLine& l, std::ostream* out) {
    *out << rawValue(l.kind) << ' ' << l.oldNumber.value_or(-1) << '/' << l.newNumber.value_or(-1)
         << ' ' << l.text;
}
} // namespace pelmora

namespace {

// One repository with a history, built once: renames, a binary file, names
// with blanks and non-ASCII characters, a file without a final newline.
class GitRepository : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!tools::haveTool("git")) {
            return;
        }
        repo = new tools::ScratchFolder();
        repo->write("src/main.c", "int main(void) {\n    return 0;\n}\n");
        repo->write("old name.txt", "alpha\nbeta\ngamma\ndelta\nepsilon\n");
        repo->write("logo.png", "\x89PNG\r\n\x1a\n\0\0\0\rIHDR"s);
        git("init -q && git config user.name T && git config user.email t@example.com && "
            "git add -A && git commit -q -m first");
        repo->write("src/main.c", "#include <stdio.h>\nint main(void) {\n    puts(\"hi\");\n"
                                  "    return 1;\n}");
        repo->write("logo.png", "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\1"s);
        repo->write("ünï côdé.md", "# Títle\n");
        repo->run(isolated +
                  "mkdir docs && git mv 'old name.txt' 'docs/new näme.txt' && git add -A");
    }
    static void TearDownTestSuite() { delete repo; }
    void SetUp() override {
        if (repo == nullptr) {
            GTEST_SKIP() << "git is not installed";
        }
    }
    static tools::ToolOutput git(const std::string& arguments) {
        return repo->run(isolated + "git -c core.quotepath=false " + arguments);
    }
    static tools::ScratchFolder* repo;
    // Whatever the machine's git configuration says (colour, prefixes), not here.
    static inline const std::string isolated =
        "export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_NOSYSTEM=1 LC_ALL=C; ";
};
tools::ScratchFolder* GitRepository::repo = nullptr;

} // namespace

TEST_F(GitRepository, NumstatOfRealChangesAgainstHead) {
    const auto output = git("diff --cached -M --numstat -z HEAD");
    ASSERT_EQ(output.status, 0) << output.err;
    EXPECT_EQ(GitChanges::parseNumstat(output.out),
              (std::vector<FileChange>{
                  {"docs/new näme.txt", "old name.txt", 0, 0, false},
                  {"logo.png", nullopt, 0, 0, true},
                  {"src/main.c", nullopt, 4, 2, false},
                  {"ünï côdé.md", nullopt, 1, 0, false},
              }));
}

TEST_F(GitRepository, NumstatAgainstTheEmptyTreeWithoutACommit) {
    tools::ScratchFolder fresh;
    fresh.write("a file.txt", "1\n2\n");
    fresh.write("b.c", "x\n");
    ASSERT_EQ(fresh.run(isolated + "git init -q && git add -A").status, 0);
    const auto output = fresh.run(isolated + "git diff --cached --numstat -z " +
                                  std::string(GitChanges::emptyTree));
    ASSERT_EQ(output.status, 0) << output.err;
    EXPECT_EQ(GitChanges::parseNumstat(output.out),
              (std::vector<FileChange>{{"a file.txt", nullopt, 2, 0, false},
                                       {"b.c", nullopt, 1, 0, false}}));
}

TEST_F(GitRepository, DiffOfOneRealFile) {
    const auto output = git("diff --cached --no-color HEAD -- src/main.c");
    ASSERT_EQ(output.status, 0) << output.err;
    EXPECT_EQ(GitChanges::parseDiff(output.out, 100),
              (std::vector<DiffLine>{
                  {Kind::hunk, nullopt, nullopt, "@@ -1,3 +1,5 @@"},
                  {Kind::added, nullopt, 1, "#include <stdio.h>"},
                  {Kind::context, 1, 2, "int main(void) {"},
                  {Kind::removed, 2, nullopt, "    return 0;"},
                  {Kind::removed, 3, nullopt, "}"},
                  {Kind::added, nullopt, 3, "    puts(\"hi\");"},
                  {Kind::added, nullopt, 4, "    return 1;"},
                  {Kind::added, nullopt, 5, "}"},
                  {Kind::note, nullopt, nullopt, "No newline at end of file"},
              }));
    const auto binary = git("diff --cached --no-color HEAD -- logo.png");
    EXPECT_EQ(GitChanges::parseDiff(binary.out, 1),
              (std::vector<DiffLine>{{Kind::note, nullopt, nullopt, "Binary file"}}));
    const auto patch = git("diff --cached --binary HEAD -- logo.png");
    EXPECT_EQ(GitChanges::parseDiff(patch.out, 1).size(), 1u);
}

TEST(GitChanges, NumstatRecords) {
    const struct {
        std::string output;
        std::vector<FileChange> changes;
    } cases[] = {
        {"", {}},
        {"3\t1\tsrc/a.c\0"s, {{"src/a.c", nullopt, 3, 1, false}}},
        {"-\t-\timage.png\0"s, {{"image.png", nullopt, 0, 0, true}}},
        {"-\t5\tx\0"s, {{"x", nullopt, 0, 5, false}}},
        {"2\t2\t\0old/name.c\0new/name.c\0"s, {{"new/name.c", "old/name.c", 2, 2, false}}},
        {"1\t0\ta\0"
         "2\t2\t\0old.c\0"s,
         {{"a", nullopt, 1, 0, false}}},
        {"+4\t-2\ttab\there\0junk\0\0x\ty\0"s, {{"tab\there", nullopt, 4, -2, false}}},
        {"99999999999999999999\t7\tbig", {{"big", nullopt, 0, 7, false}}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(GitChanges::parseNumstat(c.output), c.changes) << c.output;
    }
}

TEST(GitChanges, DiffLinesAndLimit) {
    const auto note = [](std::string text) {
        return DiffLine{Kind::note, nullopt, nullopt, std::move(text)};
    };
    const struct {
        std::string diff;
        std::int64_t limit;
        std::vector<DiffLine> lines;
    } cases[] = {
        {"@@ -10,3 +12,4 @@ fn\n a\n-b\n+c\n\\ No newline at end of file",
         100,
         {{Kind::hunk, nullopt, nullopt, "@@ -10,3 +12,4 @@ fn"},
          {Kind::context, 10, 12, "a"},
          {Kind::removed, 11, nullopt, "b"},
          {Kind::added, nullopt, 13, "c"},
          note("No newline at end of file")}},
        {"@@ -0,0 +1 @@\n+x",
         9,
         {{Kind::hunk, nullopt, nullopt, "@@ -0,0 +1 @@"}, {Kind::added, nullopt, 1, "x"}}},
        {"diff --git a/x b/x\n--- a/x\n+++ b/x\n@@ -1 +1 @@\n\n?junk\n+é",
         9,
         {{Kind::hunk, nullopt, nullopt, "@@ -1 +1 @@"}, {Kind::added, nullopt, 1, "é"}}},
        {"@@ a\n@@ b\n@@ c\n@@ d\n@@ e",
         2,
         {{Kind::hunk, nullopt, nullopt, "@@ a"},
          {Kind::hunk, nullopt, nullopt, "@@ b"},
          note("Diff cut off here")}},
        {"@@ a\n@@ b",
         2,
         {{Kind::hunk, nullopt, nullopt, "@@ a"},
          {Kind::hunk, nullopt, nullopt, "@@ b"},
          note("Diff cut off here")}},
        {"x\nBinary files a/x and b/x differ", 0, {note("Binary file")}},
        {"", 1, {}},
        {"", 0, {note("Diff cut off here")}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(GitChanges::parseDiff(c.diff, c.limit), c.lines) << c.diff;
    }
}

TEST(GitChanges, ChangeSetJSONAndSums) {
    const ChangeSet set{"/r",
                        std::string(GitChanges::emptyTree),
                        "HEAD",
                        {{"b", "a", 3, 1, false}, {"c", nullopt, 4, 0, false}}};
    EXPECT_EQ(set.added(), 7);
    EXPECT_EQ(set.removed(), 1);
    EXPECT_EQ(OrderedJSON::serializeCompact(set.toJSON()),
              R"({"base":"4b825dc642cb6eb9a060e54bf8d69288fbee4904","end":"HEAD","files":[)"
              R"({"added":3,"isBinary":false,"oldPath":"a","path":"b","removed":1},)"
              R"({"added":4,"isBinary":false,"path":"c","removed":0}],"repo":"\/r"})");
    EXPECT_EQ(ChangeSet::fromJSON(set.toJSON()), set);
    EXPECT_EQ(ChangeSet::fromJSON(OrderedJSON::parse(R"({"repo":"r","base":"b","end":"e",)"
                                                     R"("files":[{"path":"p","added":1}]})")),
              nullopt);
    const ChangeSet huge{
        "r", "b", "e", {{"a", nullopt, INT64_MAX, 0, false}, {"b", nullopt, 1, 0, false}}};
    EXPECT_DEATH(huge.added(), "");
}
