#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "json/JSONValue.h"
#include "support/Enum.h"

// GitHub deployments and their statuses turned into one-line events. The
// caller lists a repository's deployments and each one's statuses; this
// decodes the elements and classifies a status.
namespace pelmora {

// One element of GET /repos/{owner}/{repo}/deployments. Members the record
// does not name are ignored; null reads as absent.
struct GitHubDeployment {
    std::int64_t id = 0;
    std::optional<std::string> environment;
    std::optional<std::string> sha;
    std::string createdAt; // kept as GitHub wrote it

    bool operator==(const GitHubDeployment&) const = default;

    static std::optional<GitHubDeployment> fromJSON(const JSONValue& json);
    // The elements of a response body that decode, in order.
    static std::vector<GitHubDeployment> decodeList(std::string_view body);
};

// One element of GET .../deployments/{id}/statuses (newest first).
struct GitHubDeploymentStatus {
    std::string state; // "queued", "in_progress", "success", "failure", "error", ...
    std::optional<std::string> environment;
    std::optional<std::string> description;
    std::optional<std::string> logURL;
    std::optional<std::string> environmentURL;
    std::optional<std::string> targetURL;
    std::optional<std::string> createdAt;

    bool operator==(const GitHubDeploymentStatus&) const = default;

    static std::optional<GitHubDeploymentStatus> fromJSON(const JSONValue& json);
    static std::vector<GitHubDeploymentStatus> decodeList(std::string_view body);
};

enum class DeploymentState { deploying, succeeded, failed };

std::string_view rawValue(DeploymentState state);
template <> std::optional<DeploymentState> fromRaw<DeploymentState>(std::string_view raw);

struct DeploymentEvent {
    DeploymentState state = DeploymentState::deploying;
    std::string environment;
    std::optional<std::string> note;
    std::optional<std::string> url;

    bool operator==(const DeploymentEvent&) const = default;
};

namespace DeploymentClassifier {

inline constexpr std::size_t maxNoteLength = 120;

// "queued" is deploying, "success" succeeded, "failure" and "error" failed;
// every other state gives none. A success links the deployed site first, a
// failure or a queued run its log first. The environment falls back to the
// deployment's, then to "Deploy".
std::optional<DeploymentEvent> classify(const GitHubDeployment& deployment,
                                        const GitHubDeploymentStatus& status);

// The first line, trimmed, at most maxNoteLength characters and "…"; none
// when nothing is left.
std::optional<std::string> oneLine(const std::optional<std::string>& text);

} // namespace DeploymentClassifier
} // namespace pelmora
