// Any bytes as a GitHub response body: every decoder returns quietly, and
// every decoded element goes through its classifier.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "github/DeploymentClassifier.h"
#include "github/PullRequestClassifier.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace pelmora;
    const std::string_view body(reinterpret_cast<const char*>(data), size);
    const std::optional<PullRequestInfo> info = PullRequestInfo::decode(body);
    for (const GitHubNotification& notification : GitHubNotification::decodeList(body)) {
        const auto event = PullRequestClassifier::classify(notification, info);
        if (event && (event->url != notification.htmlURL() ||
                      (event->url && !event->url->starts_with(gitHubWebRoot)))) {
            std::abort();
        }
        PullRequestClassifier::needsInfo(notification);
    }
    const auto deployments = GitHubDeployment::decodeList(body);
    for (const GitHubDeploymentStatus& status : GitHubDeploymentStatus::decodeList(body)) {
        for (const GitHubDeployment& deployment : deployments) {
            const auto event = DeploymentClassifier::classify(deployment, status);
            if (event && (event->environment.empty() || (event->url && event->url->empty()))) {
                std::abort();
            }
        }
    }
    return 0;
}
