#include "alert/AlertValidation.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "json/OrderedJSON.h"

namespace pelmora {
namespace {

const std::filesystem::path home = "/Users/ann";

// The rejection's text, or the request as it goes on the wire.
std::string checked(const AlertValidation::Result& result) {
    if (const auto* rejection = std::get_if<AlertRejection>(&result)) {
        return rejection->description;
    }
    return OrderedJSON::serializeCompact(std::get<AlertRequest>(result).toJSON());
}

const std::string title16 = "title is required (1 to 16 characters)";
const std::string level = "level must be info, action or fail";
const std::string id = "id must be 1 to 64 letters, digits or . _ : -";
const std::string ttl = "ttl must be 0 to 86400 seconds";
const std::string absolute = "open must be an absolute path";
const std::string under = "open must be under your home folder or /tmp";
const std::string notFileURL = "open is not a local file URL";
const std::string notLink = "not a pelmora://alert link";

TEST(AlertValidation, Arguments) {
    std::string flags; // sixteen characters of two scalars each
    for (int i = 0; i < 16; ++i) {
        flags += "\U0001F1EB\U0001F1F7";
    }
    const std::string flags17 = flags + "\U0001F1EB\U0001F1F7", body81(81, 'b'), id64(64, 'i'),
                      id65(65, 'i');
    const std::vector<std::pair<std::vector<std::string_view>, std::string>> cases = {
        {{"Build done"}, R"({"body":"","level":"info","title":"Build done","ttl":4})"},
        {{" Deploy\n", "v1.4 is live ", "--level", "action", "--id=deploy.v1:4_x-Y", "--ttl", "60",
          "--open", "/Users/ann/app/log.txt"},
         R"({"body":"v1.4 is live","id":"deploy.v1:4_x-Y","level":"action",)"
         R"("open":"\/Users\/ann\/app\/log.txt","title":"Deploy","ttl":60})"},
        {{"--level=fail", "--", "--tests"},
         R"({"body":"","level":"fail","title":"--tests","ttl":0})"},
        {{"-1 test", "--ttl", "86400", "--ttl=0", "--open", "/tmp"},
         R"({"body":"","level":"info","open":"\/tmp","title":"-1 test","ttl":0})"},
        {{"T", "--open", "file://localhost/Users/ann/My%20Notes.md"},
         R"({"body":"","level":"info","open":"\/Users\/ann\/My Notes.md","title":"T","ttl":4})"},
        {{"T", "--open", "/tmp/\xff"},
         R"({"body":"","level":"info","open":"\/tmp\/�","title":"T","ttl":4})"},
        {{}, title16},
        {{" \n\t"}, title16},
        {{"", "--level", "warn"}, title16},
        {{"12345678901234567"}, "title is longer than 16 characters"},
        {{flags17}, "title is longer than 16 characters"},
        {{"T", body81}, "body is longer than 80 characters"},
        {{"T", "B", "C", "--colour"}, "unexpected argument \"C\""},
        {{"T", "--colour=red", "B", "C"}, "unknown option --colour"},
        {{"T", "--", "B", "--colour"}, "unexpected argument \"--colour\""},
        {{"T", "--level", "Fail"}, level},
        {{"T", "--level"}, level},
        {{"T", "--id", ""}, id},
        {{"T", "--id", "a b"}, id},
        {{"T", "--id", id65}, id},
        {{"T", "--ttl", "86401"}, ttl},
        {{"T", "--ttl", "-1"}, ttl},
        {{"T", "--ttl", "1.5"}, ttl},
        {{"T", "--open", "notes/today.md"}, absolute},
        {{"T", "--open", ""}, absolute},
        {{"T", "--open", "https://example.com/x"}, "open must be a local path, not a URL"},
        {{"T", "--open", "C:\\notes"}, "open must be a local path, not a URL"},
        {{"T", "--open", "/etc/passwd"}, under},
        {{"T", "--open", "/Users/annex/x"}, under},
        {{"T", "--open", "/tmp/../etc/passwd"}, "open must not contain .."},
        {{"T", "--open", "file://server/Users/ann/x"}, notFileURL},
        {{"T", "--open", "file:///Users/ann/a%zz"}, notFileURL},
        {{"T", "--open", "file:///Users/ann/a?b"}, notFileURL},
    };
    for (const auto& [arguments, expected] : cases) {
        EXPECT_EQ(checked(AlertValidation::fromArguments(arguments, home)), expected)
            << (arguments.empty() ? "" : arguments.front());
    }
    const std::vector<std::string_view> longest = {flags, "--id", id64};
    EXPECT_TRUE(
        std::holds_alternative<AlertRequest>(AlertValidation::fromArguments(longest, home)));
}

TEST(AlertValidation, Links) {
    const std::pair<std::string_view, std::string> cases[] = {
        {"pelmora://alert?title=Deploy%20done&body=v1.4+live&level=action&ttl=60",
         R"({"body":"v1.4+live","level":"action","title":"Deploy done","ttl":60})"},
        {"PELMORA://Alert/?&title=%E2%9C%85%20ok&&title=%E2%9C%85#title=x",
         R"({"body":"","level":"info","title":"✅","ttl":4})"},
        {"pelmora://alert?title=T&open=%2Ftmp%2Fbuild.log&id=",
         "id must be 1 to 64 letters, digits or . _ : -"},
        {"pelmora://alert", title16},
        {"pelmora://alert?title=%FF", R"({"body":"","level":"info","title":"�","ttl":4})"},
        {"pelmora://alerts?title=T", notLink},
        {"pelmora:alert?title=T", notLink},
        {"https://alert?title=T", notLink},
        {"pelmora://alert?title=%zz", notLink},
        {"pelmora://alert?title=T%2", notLink},
        {"pelmora://alert?title=T&colour=red&level=warn", "unknown parameter \"colour\""},
        {"pelmora://alert?title=T&open=file%3A%2F%2F%2Fetc%2Fpasswd", under},
    };
    for (const auto& [link, expected] : cases) {
        EXPECT_EQ(checked(AlertValidation::fromLink(link, home)), expected) << link;
    }
    // An unknown home folder lets nothing through but /tmp.
    EXPECT_EQ(checked(AlertValidation::fromLink("pelmora://alert?title=T&open=/x", "")), under);
}

} // namespace
} // namespace pelmora
