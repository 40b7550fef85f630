#include "github/DeploymentClassifier.h"

#include <array>

#include "json/KeyedJSON.h"
#include "json/OrderedJSON.h"
#include "support/Text.h"

namespace pelmora {

namespace {

constexpr std::array<std::string_view, 3> stateNames{"deploying", "succeeded", "failed"};

template <class Record> std::vector<Record> decodeElements(std::string_view body) {
    std::vector<Record> records;
    const std::optional<JSONValue> list = OrderedJSON::tryParse(body);
    if (const JSONValue::Elements* elements = list ? list->arrayElements() : nullptr) {
        for (const JSONValue& element : *elements) {
            if (std::optional<Record> record = Record::fromJSON(element)) {
                records.push_back(std::move(*record));
            }
        }
    }
    return records;
}

// The first address given and not empty.
std::optional<std::string>
firstAddress(std::initializer_list<const std::optional<std::string>*> addresses) {
    for (const std::optional<std::string>* address : addresses) {
        if (*address && !(*address)->empty()) {
            return *address;
        }
    }
    return std::nullopt;
}

// Where the first line ends: at any of the characters that Unicode counts
// as ending a line.
std::size_t lineEnd(std::string_view text) {
    for (std::size_t offset = 0; offset < text.size();) {
        const std::size_t start = offset;
        const char32_t scalar = Text::decodeScalar(text, offset);
        if ((scalar >= 0x0A && scalar <= 0x0D) || scalar == 0x85 || scalar == 0x2028 ||
            scalar == 0x2029) {
            return start;
        }
    }
    return text.size();
}

} // namespace

std::optional<GitHubDeployment> GitHubDeployment::fromJSON(const JSONValue& json) {
    JSONObjectReader reader(json);
    GitHubDeployment deployment;
    deployment.id = reader.requiredInteger<std::int64_t>("id");
    deployment.environment = reader.optionalString("environment");
    deployment.sha = reader.optionalString("sha");
    deployment.createdAt = reader.requiredString("created_at");
    if (reader.failed()) {
        return std::nullopt;
    }
    return deployment;
}

std::vector<GitHubDeployment> GitHubDeployment::decodeList(std::string_view body) {
    return decodeElements<GitHubDeployment>(body);
}

std::optional<GitHubDeploymentStatus> GitHubDeploymentStatus::fromJSON(const JSONValue& json) {
    JSONObjectReader reader(json);
    GitHubDeploymentStatus status;
    status.state = reader.requiredString("state");
    status.environment = reader.optionalString("environment");
    status.description = reader.optionalString("description");
    status.logURL = reader.optionalString("log_url");
    status.environmentURL = reader.optionalString("environment_url");
    status.targetURL = reader.optionalString("target_url");
    status.createdAt = reader.optionalString("created_at");
    if (reader.failed()) {
        return std::nullopt;
    }
    return status;
}

std::vector<GitHubDeploymentStatus> GitHubDeploymentStatus::decodeList(std::string_view body) {
    return decodeElements<GitHubDeploymentStatus>(body);
}

std::string_view rawValue(DeploymentState state) {
    return stateNames[static_cast<std::size_t>(state)];
}

template <> std::optional<DeploymentState> fromRaw<DeploymentState>(std::string_view raw) {
    for (std::size_t index = 0; index < stateNames.size(); ++index) {
        if (stateNames[index] == raw) {
            return static_cast<DeploymentState>(index);
        }
    }
    return std::nullopt;
}

namespace DeploymentClassifier {

std::optional<DeploymentEvent> classify(const GitHubDeployment& deployment,
                                        const GitHubDeploymentStatus& status) {
    DeploymentEvent event;
    if (status.state == "queued") {
        event.state = DeploymentState::deploying;
    } else if (status.state == "success") {
        event.state = DeploymentState::succeeded;
    } else if (status.state == "failure" || status.state == "error") {
        event.state = DeploymentState::failed;
    } else {
        return std::nullopt;
    }
    event.environment = status.environment.value_or(deployment.environment.value_or(""));
    if (event.environment.empty()) {
        event.environment = "Deploy";
    }
    event.url = event.state == DeploymentState::succeeded
                    ? firstAddress({&status.environmentURL, &status.targetURL, &status.logURL})
                    : firstAddress({&status.logURL, &status.targetURL, &status.environmentURL});
    event.note = oneLine(status.description);
    return event;
}

std::optional<std::string> oneLine(const std::optional<std::string>& text) {
    if (!text) {
        return std::nullopt;
    }
    const std::string_view line =
        Text::trimWhitespaceAndNewlines(std::string_view(*text).substr(0, lineEnd(*text)));
    if (line.empty()) {
        return std::nullopt;
    }
    const std::string_view kept = Text::prefixCharacters(line, maxNoteLength);
    if (kept.size() < line.size()) {
        return std::string(kept) + "…";
    }
    return std::string(line);
}

} // namespace DeploymentClassifier
} // namespace pelmora
