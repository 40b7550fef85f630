#include "session/TaskTitle.h"

#include <gtest/gtest.h>
#include <string>

using namespace pelmora;

TEST(TaskTitle, RefusesPromptsWithoutMeaning) {
    EXPECT_EQ(TaskTitle::make(std::nullopt, std::nullopt, std::nullopt), std::nullopt);
    EXPECT_EQ(TaskTitle::make("Refactor the parser", "slash_command_expansion", std::nullopt),
              std::nullopt);
    // Blank, bare slash commands, fillers whatever their case and punctuation
    // (only the first meaningful line counts), and too little substance:
    // three letters or digits, or two in East Asian script.
    for (std::string_view prompt :
         {"", " \n\t\n  ", "/clear", "  /compact\nsummarise the work", "Ok!", "Go ahead...",
          "\"done\"", "\u00BFcontinue?", "ok\nnow refactor the whole parser", "LGTM", "继续吧。",
          "ab", "a-b", "### -", "修"}) {
        EXPECT_EQ(TaskTitle::make(prompt, std::nullopt, std::nullopt), std::nullopt) << prompt;
    }
}

TEST(TaskTitle, TakesTheFirstMeaningfulLineRedacted) {
    // clang-format off
    const std::pair<std::string_view, std::string_view> titles[] = {
        {"fix", "fix"}, {"修复", "修复"}, {"/review fix the bug", "/review fix the bug"},
        {"\n\n   Add dark mode  \nand tests", "Add dark mode"}, {"first\r\nsecond", "first"},
        {"one\u2028two", "one"}, {"Fix   the\u3000\u00A0build", "Fix the build"},
        // Markdown markers go one at a time; inner ones stay.
        {"## - Fix the build", "Fix the build"},
        {"> **Refactor** the parser", "Refactor** the parser"},
        {"-\t* > • retry the upload", "retry the upload"},
        // Punctuation only matters to the filler test.
        {"Why does this fail?", "Why does this fail?"}};
    // clang-format on
    for (const auto& [prompt, title] : titles) {
        EXPECT_EQ(TaskTitle::make(prompt, "typed", std::nullopt), title) << prompt;
    }
    EXPECT_EQ(TaskTitle::make("Run /work/app/scripts/deploy.sh with TOKEN=abc123", std::nullopt,
                              "/work/app"),
              "Run scripts/deploy.sh with TOKEN=***");
    EXPECT_EQ(TaskTitle::make(std::string(200, 'w') + " now", std::nullopt, std::nullopt),
              std::string(79, 'w') + "…");
}
