#include "session/TaskTitle.h"

#include <gtest/gtest.h>
#include <string>

using namespace pelmora;

TEST(TaskTitle, RefusesPromptsWithoutMeaning) {
    EXPECT_EQ(TaskTitle::make(std::nullopt, std::nullopt, std::nullopt), std::nullopt);
    EXPECT_EQ(TaskTitle::make("Refactor the parser", "slash_command_expansion", std::nullopt),
              std::nullopt);
    // Blank, bare slash commands, fillers whatever their case and punctuation
    // (only the first line counts), and too little substance: three letters or
    // digits, or two in East Asian script.
    const char* const refused[] = {
        "",         "/clear",     "ok",   "Ok!",      "OK.",    "yes please", "Go ahead...",
        "LGTM",     "thank you!", "继续", "继续吧。", "好的！", "再试一次",   "¿continue?",
        "\"done\"", "ab",         "a-b",  "!!!",      "### -",  "修"};
    for (std::string_view prompt : refused) {
        EXPECT_EQ(TaskTitle::make(prompt, std::nullopt, std::nullopt), std::nullopt) << prompt;
    }
    for (std::string_view prompt :
         {" \n\t\n  ", "  /compact\nsummarise the work", "ok\nnow refactor the whole parser"}) {
        EXPECT_EQ(TaskTitle::make(prompt, std::nullopt, std::nullopt), std::nullopt) << prompt;
    }
}

TEST(TaskTitle, TakesTheFirstMeaningfulLineRedacted) {
    const auto title = [](std::string_view prompt) {
        return TaskTitle::make(prompt, "typed", std::nullopt);
    };
    EXPECT_EQ(title("fix"), "fix");
    EXPECT_EQ(title("修复"), "修复");
    EXPECT_EQ(title("v2 1"), "v2 1");
    EXPECT_EQ(title("/review fix the login bug"), "/review fix the login bug");
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

    EXPECT_EQ(TaskTitle::make("Run /work/app/scripts/deploy.sh with TOKEN=abc123", std::nullopt,
                              "/work/app"),
              "Run scripts/deploy.sh with TOKEN=***");
    EXPECT_EQ(title(std::string(200, 'w') + " now"), std::string(79, 'w') + "…");
}
