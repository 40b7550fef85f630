#include <gtest/gtest.h>

#include "github/DeploymentClassifier.h"
#include "github/PullRequestClassifier.h"
#include "github/ReleaseNotes.h"

using namespace pelmora;
using Kind = PullRequestEventKind;
using std::nullopt;

// Notifications shaped as GET /notifications answers, with fields the record
// ignores and nulls; "url" as given (the API's "null" included).
std::vector<GitHubNotification> notifications(const std::string& reason, const std::string& type,
                                              const std::string& url) {
    return GitHubNotification::decodeList(
        R"([{"id":"1002","unread":true,"reason":")" + reason +
        R"(","updated_at":"2026-03-09T10:22:31Z","last_read_at":null,"subject":{"title":"Fix it",)"
        R"("url":)" +
        url + R"(,"latest_comment_url":null,"type":")" + type +
        R"("},"repository":{"id":1296269,"name":"Hello-World","full_name":"octocat/Hello-World",)"
        R"("owner":{"login":"octocat"}},"url":"https://api.github.com/notifications/threads/1002"}])");
}

TEST(PullRequestClassifier, NotificationsIntoEvents) {
    const std::string pull = R"("https://api.github.com/repos/octocat/Hello-World/pulls/1347")";
    const PullRequestInfo merged{"MERGED", "APPROVED"}, approved{"OPEN", "APPROVED"},
        changes{"OPEN", "CHANGES_REQUESTED"}, closed{"CLOSED", nullopt}, plain{"OPEN", ""};
    const struct {
        std::string reason, type;
        std::optional<PullRequestInfo> info;
        std::optional<Kind> kind;
        bool needsInfo;
    } cases[] = {{"review_requested", "PullRequest", nullopt, Kind::reviewRequested, false},
                 {"review_requested", "Issue", nullopt, nullopt, false},
                 {"mention", "Commit", nullopt, nullopt, false},
                 {"assign", "PullRequest", merged, Kind::assigned, false},
                 {"assign", "Release", nullopt, nullopt, false},
                 {"author", "PullRequest", nullopt, nullopt, true},
                 {"author", "PullRequest", merged, Kind::merged, true},
                 {"comment", "PullRequest", closed, Kind::closed, true},
                 {"author", "PullRequest", approved, Kind::approved, true},
                 {"author", "PullRequest", changes, Kind::changesRequested, true},
                 {"author", "PullRequest", plain, Kind::activity, true},
                 {"comment", "PullRequest", changes, Kind::activity, true},
                 {"subscribed", "PullRequest", approved, nullopt, true}};
    for (const auto& c : cases) {
        const auto decoded = notifications(c.reason, c.type, pull);
        ASSERT_EQ(decoded.size(), 1u) << c.reason;
        EXPECT_EQ(PullRequestClassifier::needsInfo(decoded[0]), c.needsInfo) << c.reason;
        const auto event = PullRequestClassifier::classify(decoded[0], c.info);
        EXPECT_EQ(event ? std::optional(event->kind) : nullopt, c.kind) << c.reason << c.type;
    }
    const auto issue = notifications(
        "team_mention", "Issue", R"("https://api.github.com/repos/octocat/Hello-World/issues/7")");
    EXPECT_EQ(PullRequestClassifier::classify(issue.at(0), nullopt),
              (PullRequestEvent{Kind::mentioned, "Fix it", "octocat/Hello-World", 7,
                                "https://github.com/octocat/Hello-World/issues/7"}));
    EXPECT_TRUE(notifications("mention", "Issue", "7").empty()); // a mistyped member
    EXPECT_EQ(PullRequestInfo::decode(R"({"state":"OPEN","reviewDecision":null,"number":3})"),
              (PullRequestInfo{"OPEN", nullopt}));

    const std::pair<std::string, std::string> addresses[] = {
        {"https://api.github.com/repos/o/r/pulls/1347", "https://github.com/o/r/pull/1347 1347"},
        {"https://api.github.com/repos/o/r/commits/abc", "https://github.com/o/r/commits/abc -"},
        {"https://api.github.com/repos//o//r/pulls/9/files", "https://github.com/o/r/pull/9 9"},
        {"https://api.github.com/repos/o/r/pulls", "- -"},
        {"https://x.com/o/r/pulls/1", "- -"}};
    for (const auto& [api, web] : addresses) {
        const GitHubNotification n{"1", "mention", "t", {"T", "PullRequest", api}, {"o/r"}};
        const std::string number = n.number() ? std::to_string(*n.number()) : "-";
        EXPECT_EQ(n.htmlURL().value_or("-") + " " + number, web);
    }
}

TEST(DeploymentClassifier, StatusesIntoEvents) {
    // Shaped as GET .../deployments and .../statuses answer; the last elements do not decode.
    const auto deployments = GitHubDeployment::decodeList(
        R"([{"url":"https://api.github.com/repos/o/r/deployments/1","id":1,"sha":"a84d88e7",)"
        R"("ref":"main","payload":{},"environment":"production","creator":{"login":"octocat"},)"
        R"("created_at":"2026-03-09T10:00:00Z","transient_environment":false},)"
        R"({"id":2,"environment":null,"sha":null,"created_at":"2026-03-09T11:00:00Z"},{"id":"3"}])");
    const auto statuses = GitHubDeploymentStatus::decodeList(
        R"([{"id":42,"state":"success","creator":{"login":"octocat"},"environment":"",)"
        R"("description":"  Deployed!\nDetails  ","target_url":"https://t","log_url":"https://log",)"
        R"("environment_url":"https://site","created_at":"2026-03-09T10:05:00Z"},)"
        R"({"state":"failure","description":null,"log_url":"","target_url":"https://t"},)"
        R"({"state":"in_progress"},{"state":"queued","environment":"preview"},{"state":7}])");
    ASSERT_EQ(deployments.size(), 2u);
    ASSERT_EQ(statuses.size(), 4u);
    using State = DeploymentState;
    const auto classify = DeploymentClassifier::classify;
    EXPECT_EQ(classify(deployments[0], statuses[0]),
              (DeploymentEvent{State::succeeded, "Deploy", "Deployed!", "https://site"}));
    EXPECT_EQ(classify(deployments[0], statuses[1]),
              (DeploymentEvent{State::failed, "production", nullopt, "https://t"}));
    EXPECT_EQ(classify(deployments[0], statuses[2]), nullopt);
    EXPECT_EQ(classify(deployments[1], statuses[3]),
              (DeploymentEvent{State::deploying, "preview", nullopt, nullopt}));
    EXPECT_EQ(classify(deployments[1], statuses[1])->environment, "Deploy");
    EXPECT_EQ(DeploymentClassifier::oneLine(std::string(200, 'x')), std::string(120, 'x') + "…");
    EXPECT_EQ(DeploymentClassifier::oneLine(" \t\n "), nullopt);
}

TEST(ReleaseNotes, PlainText) {
    const std::pair<std::string, std::string> cases[] = {
        {"<h2>What&#39;s Changed</h2>\n<ul>\n<li>Fix <code>a &lt; b</code> by <a "
         "href=\"https://github.com/x\">@x</a></li>\n<li>Faster &amp; smaller</li>\n</ul>\n"
         "<p><strong>Full Changelog</strong>: <a href=\"y\">v1...v2</a></p>",
         "What's Changed\n\n• Fix a < b by @x\n• Faster & smaller\n\nFull Changelog: v1...v2"},
        {"a<br>b<br/>c<br />d<BR><br>e", "a\nb\nc\nd\n\ne"},
        {"<script type=x>alert('<p>')</script>keep<style>\np{}\n</style><!-- x -->me", "keepme"},
        {"&amp;lt; &quot;q&quot; &nbsp;x&#x263A;&#0;&bogus;", "&lt; \"q\" x☺&#0;&bogus;"},
        {"<ol><li>one<ul><li>inner</li></ul></li><li>two</li></ol>", "1. one\n  • inner\n2. two"},
        {"<pre><code>int x;\n  y();\n</code></pre>after", "int x;\n  y();\nafter"},
        {"3 < 4 and <unclosed", "3 < 4 and <unclosed"},
        {"<script>never closed", ""}};
    for (const auto& [html, text] : cases) {
        EXPECT_EQ(ReleaseNotes::plainText(html), text) << html;
    }
}
