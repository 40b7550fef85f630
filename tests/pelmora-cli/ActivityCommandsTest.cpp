#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "activity/GitChanges.h"
#include "activity/RealTools.h"
#include "common/ProcessRunner.h"
#include "json/OrderedJSON.h"

namespace pelmora {
namespace {

using testing::Finished;
using testing::TempHome;

Finished pelmora(const TempHome& home, std::vector<std::string> arguments, std::string input = {}) {
    arguments.insert(arguments.begin(), testing::cliBinary());
    return testing::run(arguments, home.environment(), std::move(input));
}

// A repository with no commit, then one with a rename, a binary and an
// untracked file; read from a subfolder, with an ignored file beside them.
TEST(ActivityCommands, ChangesReadsARealRepository) {
    if (!tools::haveTool("git")) {
        GTEST_SKIP() << "git is not installed";
    }
    TempHome home;
    const Finished outside = pelmora(home, {"changes", home.path().string()});
    EXPECT_EQ(outside.exitStatus, 1);
    EXPECT_EQ(outside.err, "pelmora: not in a git repository: " + home.path().string() + "\n");

    tools::ScratchFolder repo;
    repo.write("a.txt", "one\ntwo\nthree\n");
    repo.write("sub/notes.md", "draft\nno final newline");
    repo.write("build.log", "ignored\n");
    ASSERT_EQ(repo.run("git init -q && echo '*.log' >> .git/info/exclude && git add a.txt").status,
              0);
    const Finished first = pelmora(home, {"changes", "--json", repo.path() + "/sub"});
    ASSERT_EQ(first.exitStatus, 0) << first.err;
    const JSONValue record = OrderedJSON::parse(first.out);
    EXPECT_EQ(ChangeSet::fromJSON(record),
              (ChangeSet{repo.path(),
                         std::string(GitChanges::emptyTree),
                         "working tree",
                         {{"a.txt", std::nullopt, 3, 0, false},
                          {"sub/notes.md", std::nullopt, 2, 0, false}}}));
    EXPECT_EQ(*record.find("untracked"), JSONValue::array({JSONValue::string("sub/notes.md")}));

    ASSERT_EQ(repo.run("git add sub && git -c user.name=t -c user.email=t@t commit -qm one && "
                       "git mv a.txt b.txt && echo four >> b.txt && printf 'P\\0N\\0G' >logo.png "
                       "&& git add logo.png && printf 'x\\ny\\n' >new.txt")
                  .status,
              0);
    const std::string head = repo.run("git rev-parse --short=7 HEAD").out.substr(0, 7);
    const Finished later = pelmora(home, {"changes", repo.path()});
    EXPECT_EQ(later.exitStatus, 0) << later.err;
    EXPECT_EQ(later.out, "Changes in " + repo.path() + " against HEAD " + head +
                             ":\n"
                             "   +1 -0  a.txt => b.txt\n"
                             "  binary  logo.png\n"
                             "   +2 -0  new.txt (untracked)\n"
                             "3 files changed, 3 insertions(+), 0 deletions(-); 1 renamed, "
                             "1 binary, 1 untracked\n");
}

// gcc's own coloured diagnostics, piped in and read from a file alike.
TEST(ActivityCommands, ScanFindsTheCompilerError) {
    if (!tools::haveTool("gcc")) {
        GTEST_SKIP() << "gcc is not installed";
    }
    TempHome home;
    tools::ScratchFolder folder;
    folder.write("bad.c", "int main(void) {\n    return missing;\n}\n");
    const std::string output = folder.run("gcc -fdiagnostics-color=always -c bad.c 2>&1").out;
    ASSERT_NE(output.find("\x1b["), std::string::npos) << "colour was not forced on";
    folder.write("build.txt", output);
    for (const Finished& result :
         {pelmora(home, {"scan"}, output), pelmora(home, {"scan", folder.path() + "/build.txt"})}) {
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_TRUE(std::regex_match(result.out, std::regex("bad\\.c:2:12: error: .*missing.*\n")))
            << result.out;
    }
    EXPECT_EQ(pelmora(home, {"scan"}, "\n  \n").exitStatus, 1);
}

// Both streams passed through as they come and kept in one log; the
// status kept; the reason and the log named only on failure.
TEST(ActivityCommands, RunPassesOutputThroughAndKeepsTheLog) {
    TempHome home;
    const Finished failed = pelmora(home, {"run", "--", "sh", "-c",
                                           "echo out1; echo 'warning: w' >&2; echo 'error: boom' "
                                           ">&2; echo out2; exit 3"});
    EXPECT_EQ(failed.exitStatus, 3);
    EXPECT_EQ(failed.out, "out1\nout2\n");
    std::smatch log;
    ASSERT_TRUE(std::regex_match(failed.err, log,
                                 std::regex("warning: w\nerror: boom\npelmora: sh failed \\(exit "
                                            "status 3\\): error: boom\npelmora: full output: "
                                            "(.*/logs/run-[0-9]{8}-[0-9]{6}-[0-9]+\\.log)\n")))
        << failed.err;
    const std::string kept = Files::read(log[1].str()).value_or("");
    EXPECT_EQ(kept.size(), std::string("out1\nout2\nwarning: w\nerror: boom\n").size()) << kept;
    for (const char* line : {"out1\n", "out2\n", "warning: w\n", "error: boom\n"}) {
        EXPECT_NE(kept.find(line), std::string::npos) << kept;
    }
    struct stat info {};
    ASSERT_EQ(::stat(log[1].str().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    // More than a pipe holds on each stream, errors first: reading one
    // stream to its end before the other would hang.
    const Finished loud = pelmora(home, {"run", "sh", "-c",
                                         "head -c 300000 /dev/zero | tr '\\0' e >&2; "
                                         "head -c 300000 /dev/zero | tr '\\0' o"});
    EXPECT_EQ(loud.exitStatus, 0);
    EXPECT_EQ(loud.out, std::string(300000, 'o'));
    EXPECT_EQ(loud.err, std::string(300000, 'e')) << "nothing added on success";

    const struct {
        std::vector<std::string> words;
        int exitStatus;
    } statuses[] = {{{"run", "sh", "-c", "kill -TERM $$"}, 128 + 15},
                    {{"run", "--", "no-such-command-here"}, 127},
                    {{"run", "/etc/passwd"}, 126}};
    for (const auto& [words, exitStatus] : statuses) {
        EXPECT_EQ(pelmora(home, words).exitStatus, exitStatus) << words.back();
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(home.path() / "logs"), {}), 3)
        << "one log per run that started";
}

TEST(ActivityCommands, ClipboardSaysWhatItFound) {
    TempHome home;
    const std::string token = "ghp_" + std::string(36, 'a');
    const struct {
        std::string text;
        int exitStatus;
        std::string out, err;
    } cases[] = {
        {R"({"name": "pelmora", "tags": ["notch", "cli"]}  )", 0,
         "{\n  \"name\": \"pelmora\",\n  \"tags\": [\n    \"notch\",\n    \"cli\"\n  ]\n}\n",
         "json: object of 2 members\n"},
        {"export GITHUB_TOKEN=" + token + "\n", 0,
         "secret: the text looks like a credential; it is not shown\n", ""},
        {"#ff800080", 0, "#ff800080  red 1  green 0.502  blue 0  alpha 0.502\n", ""},
        {"just words", 1, "", "pelmora: not a stack trace, JSON, a colour or a secret\n"},
    };
    for (const auto& [text, exitStatus, out, err] : cases) {
        const Finished result = pelmora(home, {"clipboard"}, text);
        EXPECT_EQ(result.exitStatus, exitStatus) << text;
        EXPECT_EQ(result.out, out);
        EXPECT_EQ(result.err, err);
    }
}

} // namespace
} // namespace pelmora
