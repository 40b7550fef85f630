#include "github/PullRequestClassifier.h"

#include <array>

#include "json/KeyedJSON.h"
#include "json/OrderedJSON.h"
#include "support/Integers.h"

namespace pelmora {

namespace {

constexpr std::array<std::string_view, 8> kindNames{
    "reviewRequested", "changesRequested", "mentioned", "assigned",
    "approved",        "merged",           "closed",    "activity",
};

std::optional<GitHubNotification::Subject> decodeSubject(const JSONValue& json) {
    JSONObjectReader reader(json);
    GitHubNotification::Subject subject;
    subject.title = reader.requiredString("title");
    subject.type = reader.requiredString("type");
    subject.url = reader.optionalString("url");
    if (reader.failed()) {
        return std::nullopt;
    }
    return subject;
}

std::optional<GitHubNotification::Repository> decodeRepository(const JSONValue& json) {
    JSONObjectReader reader(json);
    GitHubNotification::Repository repository;
    repository.fullName = reader.requiredString("full_name");
    if (reader.failed()) {
        return std::nullopt;
    }
    return repository;
}

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
    for (std::string_view candidate : words) {
        if (word == candidate) {
            return true;
        }
    }
    return false;
}

} // namespace

std::optional<std::string> GitHubNotification::htmlURL() const {
    if (!subject.url) {
        return std::nullopt;
    }
    const std::size_t repos = subject.url->find("/repos/");
    if (repos == std::string::npos) {
        return std::nullopt;
    }
    const std::string_view path = std::string_view(*subject.url).substr(repos + 7);
    std::array<std::string_view, 4> pieces;
    std::size_t count = 0;
    for (std::size_t at = 0; at < path.size() && count < pieces.size();) {
        const std::size_t slash = std::min(path.find('/', at), path.size());
        if (slash > at) {
            pieces[count++] = path.substr(at, slash - at);
        }
        at = slash + 1;
    }
    if (count < pieces.size()) {
        return std::nullopt;
    }
    const std::string_view kind = pieces[2] == "pulls" ? "pull" : pieces[2];
    std::string url(gitHubWebRoot);
    for (std::string_view piece : {pieces[0], pieces[1], kind}) {
        url.append(piece).push_back('/');
    }
    url.append(pieces[3]);
    return url;
}

std::optional<std::int64_t> GitHubNotification::number() const {
    const std::optional<std::string> url = htmlURL();
    if (!url) {
        return std::nullopt;
    }
    return parseInteger<std::int64_t>(std::string_view(*url).substr(url->rfind('/') + 1));
}

std::optional<GitHubNotification> GitHubNotification::fromJSON(const JSONValue& json) {
    JSONObjectReader reader(json);
    GitHubNotification notification;
    notification.id = reader.requiredString("id");
    notification.reason = reader.requiredString("reason");
    notification.updatedAt = reader.requiredString("updated_at");
    notification.subject = reader.requiredDecoded<Subject>("subject", decodeSubject);
    notification.repository = reader.requiredDecoded<Repository>("repository", decodeRepository);
    if (reader.failed()) {
        return std::nullopt;
    }
    return notification;
}

std::vector<GitHubNotification> GitHubNotification::decodeList(std::string_view body) {
    std::vector<GitHubNotification> notifications;
    const std::optional<JSONValue> list = OrderedJSON::tryParse(body);
    if (const JSONValue::Elements* elements = list ? list->arrayElements() : nullptr) {
        for (const JSONValue& element : *elements) {
            if (std::optional<GitHubNotification> notification = fromJSON(element)) {
                notifications.push_back(std::move(*notification));
            }
        }
    }
    return notifications;
}

std::optional<PullRequestInfo> PullRequestInfo::fromJSON(const JSONValue& json) {
    JSONObjectReader reader(json);
    PullRequestInfo info;
    info.state = reader.requiredString("state");
    info.reviewDecision = reader.optionalString("reviewDecision");
    if (reader.failed()) {
        return std::nullopt;
    }
    return info;
}

std::optional<PullRequestInfo> PullRequestInfo::decode(std::string_view body) {
    const std::optional<JSONValue> json = OrderedJSON::tryParse(body);
    return json ? fromJSON(*json) : std::nullopt;
}

std::string_view rawValue(PullRequestEventKind kind) {
    return kindNames[static_cast<std::size_t>(kind)];
}

template <>
std::optional<PullRequestEventKind> fromRaw<PullRequestEventKind>(std::string_view raw) {
    for (std::size_t index = 0; index < kindNames.size(); ++index) {
        if (kindNames[index] == raw) {
            return static_cast<PullRequestEventKind>(index);
        }
    }
    return std::nullopt;
}

namespace PullRequestClassifier {

bool needsInfo(const GitHubNotification& notification) {
    return notification.subject.type == "PullRequest" &&
           !isOneOf(notification.reason, {"review_requested", "mention", "team_mention", "assign"});
}

std::optional<PullRequestEvent> classify(const GitHubNotification& notification,
                                         const std::optional<PullRequestInfo>& info) {
    using Kind = PullRequestEventKind;
    const std::string& reason = notification.reason;
    const std::string& type = notification.subject.type;
    const bool pullRequest = type == "PullRequest";
    const bool pullRequestOrIssue = pullRequest || type == "Issue";

    std::optional<Kind> kind;
    if (reason == "review_requested" && pullRequest) {
        kind = Kind::reviewRequested;
    } else if (reason == "mention" || reason == "team_mention") {
        kind = pullRequestOrIssue ? std::optional(Kind::mentioned) : std::nullopt;
    } else if (reason == "assign") {
        kind = pullRequestOrIssue ? std::optional(Kind::assigned) : std::nullopt;
    } else if (!pullRequest || !info) {
        kind = std::nullopt;
    } else if (info->state == "MERGED") {
        kind = Kind::merged;
    } else if (info->state == "CLOSED") {
        kind = Kind::closed;
    } else if (reason == "author") {
        const std::string decision = info->reviewDecision.value_or("");
        kind = decision == "CHANGES_REQUESTED" ? Kind::changesRequested
               : decision == "APPROVED"        ? Kind::approved
                                               : Kind::activity;
    } else if (reason == "comment") {
        kind = Kind::activity;
    }
    if (!kind) {
        return std::nullopt;
    }
    return PullRequestEvent{*kind, notification.subject.title, notification.repository.fullName,
                            notification.number(), notification.htmlURL()};
}

} // namespace PullRequestClassifier
} // namespace pelmora
