#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/JSONValue.h"
#include "support/Enum.h"

// GitHub notifications turned into short pull-request events. The caller
// polls the REST notifications list and, for the notifications that
// PullRequestClassifier::needsInfo names, asks for the pull request's state
// and review decision; everything here is decoding and pure classification.
namespace pelmora {

// The web host that the API's addresses are turned into.
inline constexpr std::string_view gitHubWebRoot = "https://github.com/";

// One element of GET /notifications. Members the record does not name are
// ignored; a required member that is missing, null or of another type makes
// the element undecodable.
struct GitHubNotification {
    struct Subject {
        std::string title;
        std::string type;               // "PullRequest", "Issue", ...
        std::optional<std::string> url; // the subject's API address; null for some types

        bool operator==(const Subject&) const = default;
    };
    struct Repository {
        std::string fullName; // "owner/name"

        bool operator==(const Repository&) const = default;
    };

    std::string id;
    std::string reason;    // "review_requested", "mention", "author", ...
    std::string updatedAt; // kept as GitHub wrote it
    Subject subject;
    Repository repository;

    bool operator==(const GitHubNotification&) const = default;

    // The subject's web page: "https://api.github.com/repos/o/r/pulls/7"
    // gives "https://github.com/o/r/pull/7"; other kinds keep their segment
    // ("issues"). None without "/repos/" and four segments after it.
    std::optional<std::string> htmlURL() const;
    // The last segment of htmlURL as a number.
    std::optional<std::int64_t> number() const;

    static std::optional<GitHubNotification> fromJSON(const JSONValue& json);
    // A whole response body (a JSON array): the elements that decode, in
    // order; none at all when the body is not an array.
    static std::vector<GitHubNotification> decodeList(std::string_view body);
};

// The pull request's facts as the caller's query gives them
// ({"state": "OPEN", "reviewDecision": "APPROVED"}).
struct PullRequestInfo {
    std::string state;                         // "OPEN", "MERGED", "CLOSED"
    std::optional<std::string> reviewDecision; // "APPROVED", "CHANGES_REQUESTED", ...

    bool operator==(const PullRequestInfo&) const = default;

    static std::optional<PullRequestInfo> fromJSON(const JSONValue& json);
    static std::optional<PullRequestInfo> decode(std::string_view body);
};

enum class PullRequestEventKind {
    reviewRequested,
    changesRequested,
    mentioned,
    assigned,
    approved,
    merged,
    closed,
    activity,
};

std::string_view rawValue(PullRequestEventKind kind);
template <> std::optional<PullRequestEventKind> fromRaw<PullRequestEventKind>(std::string_view raw);

struct PullRequestEvent {
    PullRequestEventKind kind = PullRequestEventKind::activity;
    std::string title;                  // the subject's title
    std::string repo;                   // the repository's full name
    std::optional<std::int64_t> number; // the notification's number
    std::optional<std::string> url;     // the notification's htmlURL

    bool operator==(const PullRequestEvent&) const = default;
};

namespace PullRequestClassifier {

// Whether the event depends on the pull request's state: a pull request
// whose reason is none of "review_requested", "mention", "team_mention",
// "assign".
bool needsInfo(const GitHubNotification& notification);

// Review requests, mentions and assignments stand on their own; for the
// rest of a pull request's notifications, merged and closed come first and
// the review decision counts only on the user's own pull requests ("author").
// Notifications about anything else give none.
std::optional<PullRequestEvent> classify(const GitHubNotification& notification,
                                         const std::optional<PullRequestInfo>& info);

} // namespace PullRequestClassifier
} // namespace pelmora
