#include <gtest/gtest.h>

#include "github/DeploymentClassifier.h"
#include "github/PullRequestClassifier.h"
#include "github/ReleaseNotes.h"

using namespace pelmora;
using Kind = PullRequestEventKind;
using std::nullopt;

namespace {

// Shaped as GET /notifications answers, fields the record ignores included.
std::string notification(const std::string& reason, const std::string& type,
                         const std::string& url) {
    return R"({"id":"1002","unread":true,"reason":")" + reason +
           R"(","updated_at":"2026-03-09T10:22:31Z","last_read_at":null,)"
           R"("subject":{"title":"Fix the parser","url":)" +
           url + R"(,"latest_comment_url":null,"type":")" + type +
           R"("},"repository":{"id":1296269,"node_id":"MDEwOlJlcG9zaXRvcnkxMjk2MjY5",)"
           R"("name":"Hello-World","full_name":"octocat/Hello-World","private":false,)"
           R"("owner":{"login":"octocat","id":1}},)"
           R"("url":"https://api.github.com/notifications/threads/1002",)"
           R"("subscription_url":"https://api.github.com/notifications/threads/1002/subscription"})";
}

const std::string pullURL = R"("https://api.github.com/repos/octocat/Hello-World/pulls/1347")";
const std::string issueURL = R"("https://api.github.com/repos/octocat/Hello-World/issues/7")";

} // namespace

TEST(PullRequestClassifier, NotificationsIntoEvents) {
    const PullRequestInfo merged{"MERGED", "APPROVED"}, open{"OPEN", "APPROVED"},
        changes{"OPEN", "CHANGES_REQUESTED"}, closed{"CLOSED", nullopt}, plain{"OPEN", ""};
    const struct {
        std::string reason, type, url;
        std::optional<PullRequestInfo> info;
        std::optional<Kind> kind;
        bool needsInfo;
    } cases[] = {
        {"review_requested", "PullRequest", pullURL, nullopt, Kind::reviewRequested, false},
        {"review_requested", "Issue", issueURL, nullopt, nullopt, false},
        {"team_mention", "Issue", issueURL, nullopt, Kind::mentioned, false},
        {"mention", "Commit", "null", nullopt, nullopt, false},
        {"assign", "PullRequest", pullURL, merged, Kind::assigned, false},
        {"assign", "Release", pullURL, nullopt, nullopt, false},
        {"author", "PullRequest", pullURL, nullopt, nullopt, true},
        {"author", "PullRequest", pullURL, merged, Kind::merged, true},
        {"comment", "PullRequest", pullURL, closed, Kind::closed, true},
        {"author", "PullRequest", pullURL, open, Kind::approved, true},
        {"author", "PullRequest", pullURL, changes, Kind::changesRequested, true},
        {"author", "PullRequest", pullURL, plain, Kind::activity, true},
        {"comment", "PullRequest", pullURL, changes, Kind::activity, true},
        {"subscribed", "PullRequest", pullURL, open, nullopt, true},
        {"author", "Issue", issueURL, open, nullopt, false},
    };
    for (const auto& c : cases) {
        const auto decoded =
            GitHubNotification::decodeList("[" + notification(c.reason, c.type, c.url) + "]");
        ASSERT_EQ(decoded.size(), 1u) << c.reason;
        EXPECT_EQ(PullRequestClassifier::needsInfo(decoded[0]), c.needsInfo) << c.reason;
        const auto event = PullRequestClassifier::classify(decoded[0], c.info);
        EXPECT_EQ(event ? std::optional(event->kind) : nullopt, c.kind) << c.reason << c.type;
    }
    const auto issue =
        GitHubNotification::decodeList("[" + notification("mention", "Issue", issueURL) + "]")[0];
    EXPECT_EQ(PullRequestClassifier::classify(issue, nullopt),
              (PullRequestEvent{Kind::mentioned, "Fix the parser", "octocat/Hello-World", 7,
                                "https://github.com/octocat/Hello-World/issues/7"}));
    const auto pull = GitHubNotification::decodeList(
        "[" + notification("assign", "PullRequest", pullURL) + "]")[0];
    EXPECT_EQ(pull.htmlURL(), "https://github.com/octocat/Hello-World/pull/1347");
    EXPECT_EQ(pull.number(), 1347);
}

TEST(PullRequestClassifier, AddressesAndDecoding) {
    const std::pair<std::string, std::optional<std::string>> addresses[] = {
        {"https://api.github.com/repos/o/r/commits/abc", "https://github.com/o/r/commits/abc"},
        {"https://api.github.com/repos//o//r/pulls/9/files", "https://github.com/o/r/pull/9"},
        {"https://api.github.com/repos/o/r/pulls", nullopt},
        {"https://example.com/o/r/pulls/1", nullopt},
    };
    for (const auto& [api, web] : addresses) {
        GitHubNotification n{"1", "mention", "t", {"T", "PullRequest", api}, {"o/r"}};
        EXPECT_EQ(n.htmlURL(), web) << api;
    }
    GitHubNotification commit{"1",
                              "mention",
                              "t",
                              {"T", "Commit", "https://api.github.com/repos/o/r/commits/abc"},
                              {"o/r"}};
    EXPECT_EQ(commit.number(), nullopt);
    // One broken element does not cost the others; a body that is not a list gives nothing.
    EXPECT_EQ(GitHubNotification::decodeList("[" + notification("mention", "Issue", "7") + "," +
                                             notification("mention", "Issue", "null") + "]")
                  .size(),
              1u);
    EXPECT_TRUE(GitHubNotification::decodeList(notification("mention", "Issue", "null")).empty());
    EXPECT_EQ(PullRequestInfo::decode(R"({"state":"OPEN","reviewDecision":null,"number":3})"),
              (PullRequestInfo{"OPEN", nullopt}));
    EXPECT_EQ(PullRequestInfo::decode(R"({"reviewDecision":"APPROVED"})"), nullopt);
}

TEST(DeploymentClassifier, StatusesIntoEvents) {
    // Shaped as GET .../deployments and .../statuses answer.
    const auto deployments = GitHubDeployment::decodeList(
        R"([{"url":"https://api.github.com/repos/o/r/deployments/1","id":1,"node_id":"MDEw",)"
        R"("sha":"a84d88e7554fc1fa21bcbc4efae3c782a70d2b9d","ref":"topic-branch","task":"deploy",)"
        R"("payload":{},"original_environment":"staging","environment":"production",)"
        R"("description":"Deploy request from hubot","creator":{"login":"octocat"},)"
        R"("created_at":"2026-03-09T10:00:00Z","updated_at":"2026-03-09T10:00:00Z",)"
        R"("transient_environment":false,"production_environment":true},)"
        R"({"id":2,"environment":null,"sha":null,"created_at":"2026-03-09T11:00:00Z"},{"id":"3"}])");
    ASSERT_EQ(deployments.size(), 2u);
    EXPECT_EQ(deployments[1], (GitHubDeployment{2, nullopt, nullopt, "2026-03-09T11:00:00Z"}));
    const auto statuses = GitHubDeploymentStatus::decodeList(
        R"([{"url":"https://api.github.com/repos/o/r/deployments/1/statuses/42","id":42,)"
        R"("state":"success","creator":{"login":"octocat"},"description":"  Deployed!\nDetails  ",)"
        R"("environment":"","target_url":"https://t","created_at":"2026-03-09T10:05:00Z",)"
        R"("log_url":"https://log","environment_url":"https://site"},)"
        R"({"state":"failure","description":null,"log_url":"","target_url":"https://t"},)"
        R"({"state":"in_progress"},{"state":"queued","environment":"preview"},{"state":7}])");
    ASSERT_EQ(statuses.size(), 4u);
    using State = DeploymentState;
    EXPECT_EQ(DeploymentClassifier::classify(deployments[0], statuses[0]),
              (DeploymentEvent{State::succeeded, "Deploy", "Deployed!", "https://site"}));
    EXPECT_EQ(DeploymentClassifier::classify(deployments[0], statuses[1]),
              (DeploymentEvent{State::failed, "production", nullopt, "https://t"}));
    EXPECT_EQ(DeploymentClassifier::classify(deployments[0], statuses[2]), nullopt);
    EXPECT_EQ(DeploymentClassifier::classify(deployments[1], statuses[3]),
              (DeploymentEvent{State::deploying, "preview", nullopt, nullopt}));
    EXPECT_EQ(DeploymentClassifier::classify(deployments[1], statuses[1])->environment, "Deploy");

    EXPECT_EQ(DeploymentClassifier::oneLine(std::string(200, 'x')), std::string(120, 'x') + "…");
    EXPECT_EQ(DeploymentClassifier::oneLine(" \t\n "), nullopt);
    EXPECT_EQ(DeploymentClassifier::oneLine(nullopt), nullopt);
    EXPECT_EQ(DeploymentClassifier::oneLine("ok\r\nmore"), "ok");
}

TEST(ReleaseNotes, PlainText) {
    const std::pair<std::string, std::string> cases[] = {
        {"<h2>What&#39;s Changed</h2>\n<ul>\n<li>Fix <code>a &lt; b</code> by <a "
         "href=\"https://github.com/x\">@x</a></li>\n<li>Faster &amp; smaller</li>\n</ul>\n"
         "<p><strong>Full Changelog</strong>: <a href=\"y\">v1...v2</a></p>",
         "What's Changed\n\n• Fix a < b by @x\n• Faster & smaller\n\nFull Changelog: v1...v2"},
        {"a<br>b<br/>c<br />d<BR><br>e", "a\nb\nc\nd\n\ne"},
        {"<script type=x>alert('<p>')</script>keep<style>\np{}\n</style><!-- note -->me", "keepme"},
        {"&amp;lt; &quot;q&quot; &nbsp;x&#x263A;&#0;&bogus;", "&lt; \"q\" x☺&#0;&bogus;"},
        {"<ol><li>one<ul><li>inner</li></ul></li><li>two</li></ol>", "1. one\n  • inner\n2. two"},
        {"<pre><code>int x;\n  y();\n</code></pre>after", "int x;\n  y();\nafter"},
        {"3 < 4 and <unclosed", "3 < 4 and <unclosed"},
        {"<div>a</div><div></div>\n\n<div>b</div>", "a\nb"},
        {"<script>never closed", ""},
    };
    for (const auto& [html, text] : cases) {
        EXPECT_EQ(ReleaseNotes::plainText(html), text) << html;
    }
}
