#include "session/TaskTitle.h"

#include <gtest/gtest.h>
#include <string>

#include "support/Text.h"

using namespace pelmora;

namespace {

std::optional<std::string> title(std::string_view prompt) {
    return TaskTitle::make(prompt, std::nullopt, std::nullopt);
}

} // namespace

TEST(TaskTitle, RefusesPromptsWithoutMeaning) {
    EXPECT_EQ(TaskTitle::make(std::nullopt, std::nullopt, std::nullopt), std::nullopt);
    EXPECT_EQ(title(""), std::nullopt);
    EXPECT_EQ(title(" \n\t\n  "), std::nullopt);
    // Bare slash commands, but not commands with text after them.
    EXPECT_EQ(title("/clear"), std::nullopt);
    EXPECT_EQ(title("  /compact\nsummarise the work"), std::nullopt);
    EXPECT_EQ(title("/review fix the login bug"), "/review fix the login bug");
    // Fillers, whatever their case and punctuation; only the first line counts.
    for (std::string_view filler :
         {"ok", "Ok!", "OK.", "yes please", "Go ahead...", "LGTM", "thank you!", "继续", "继续吧。",
          "好的！", "再试一次", "¿continue?", "\"done\""}) {
        EXPECT_EQ(title(filler), std::nullopt) << filler;
    }
    EXPECT_EQ(title("ok\nnow refactor the whole parser"), std::nullopt);
    // Too little substance: three letters or digits, or two in East Asian script.
    EXPECT_EQ(title("ab"), std::nullopt);
    EXPECT_EQ(title("a-b"), std::nullopt);
    EXPECT_EQ(title("!!!"), std::nullopt);
    EXPECT_EQ(title("### -"), std::nullopt);
    EXPECT_EQ(title("修"), std::nullopt);
    // The slash-command source gives no title whatever the text.
    EXPECT_EQ(TaskTitle::make("Refactor the parser", "slash_command_expansion", std::nullopt),
              std::nullopt);
}

TEST(TaskTitle, TakesTheFirstMeaningfulLine) {
    EXPECT_EQ(title("fix"), "fix");
    EXPECT_EQ(title("修复"), "修复");
    EXPECT_EQ(title("v2 1"), "v2 1");
    EXPECT_EQ(title("\n\n   Add dark mode  \nand tests"), "Add dark mode");
    EXPECT_EQ(title("first\r\nsecond"), "first");
    EXPECT_EQ(title("one\u2028two"), "one");
    // Blanks inside collapse to one space.
    EXPECT_EQ(title("Fix   the\u3000\u00A0build"), "Fix the build");
    // Markdown markers go one at a time; inner ones stay.
    EXPECT_EQ(title("## - Fix the build"), "Fix the build");
    EXPECT_EQ(title("> **Refactor** the parser"), "Refactor** the parser");
    EXPECT_EQ(title("• Ship it now"), "Ship it now");
    EXPECT_EQ(title("-\t* > # retry the upload"), "retry the upload");
    // The key is only for the filler test: the title keeps its punctuation.
    EXPECT_EQ(title("Why does this fail?"), "Why does this fail?");
    EXPECT_EQ(TaskTitle::make("Fix it", "typed", std::nullopt), "Fix it");
}

TEST(TaskTitle, RedactsTheTitle) {
    EXPECT_EQ(TaskTitle::make("Run /work/app/scripts/deploy.sh with TOKEN=abc123", std::nullopt,
                              "/work/app"),
              "Run scripts/deploy.sh with TOKEN=***");
    const std::optional<std::string> cut = title(std::string(200, 'w') + " now");
    ASSERT_TRUE(cut.has_value());
    EXPECT_EQ(Text::characterCount(*cut), 80U);
    EXPECT_TRUE(cut->ends_with("…"));
}
