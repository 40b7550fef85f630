#include <gtest/gtest.h>
#include <regex>
#include <string>

#include "common/ProcessRunner.h"

namespace pelmora {
namespace {

using testing::Finished;
using testing::TempHome;

TEST(CommandLine, UsageGoesToStdoutWhenAskedAndToStderrForAMistake) {
    TempHome home;
    for (const char* asked : {"help", "--help", ""}) {
        std::vector<std::string> arguments{testing::cliBinary()};
        if (asked[0] != '\0') {
            arguments.emplace_back(asked);
        }
        const Finished result = testing::run(arguments, home.environment());
        EXPECT_EQ(result.exitStatus, 0) << asked;
        EXPECT_EQ(result.out.rfind("usage: pelmora <command>", 0), 0u) << result.out;
        EXPECT_EQ(result.err, "");
    }

    const Finished unknown =
        testing::run({testing::cliBinary(), "frobnicate", "--now"}, home.environment());
    EXPECT_EQ(unknown.exitStatus, 2);
    EXPECT_EQ(unknown.out, "");
    EXPECT_EQ(unknown.err.rfind("pelmora: unknown command 'frobnicate'\n", 0), 0u) << unknown.err;
    EXPECT_NE(unknown.err.find("usage: pelmora <command>"), std::string::npos);
    EXPECT_NE(unknown.err.find("approvals --answer allow|allowAlways|deny|ask"), std::string::npos);
}

TEST(CommandLine, PathsFollowTheSupportDirectory) {
    TempHome home;
    const Finished result = testing::run({testing::cliBinary(), "paths"}, home.environment());
    EXPECT_EQ(result.exitStatus, 0);
    const std::string root = home.path().string();
    for (const std::string& expected :
         {"supportDirectory: " + root + "\n", "sessionsDirectory: " + root + "/sessions\n",
          "approvalSocket: " + root + "/approval.sock\n", "alertSocket: " + root + "/alert.sock\n",
          "installedHookBinary: " + root + "/bin/pelmora-hook\n"}) {
        EXPECT_NE(result.out.find(expected), std::string::npos) << expected << result.out;
    }
    // Every line is "name: absolute path", so scripts can cut it apart.
    EXPECT_TRUE(std::regex_match(result.out, std::regex("([A-Za-z]+: /[^\n]*\n)+"))) << result.out;

    EXPECT_EQ(testing::run({testing::cliBinary(), "paths", "extra"}, home.environment()).exitStatus,
              2);
}

} // namespace
} // namespace pelmora
