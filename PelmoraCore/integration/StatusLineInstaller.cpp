#include "integration/StatusLineInstaller.h"

#include "hook/PelmoraPaths.h"
#include "json/OrderedJSON.h"
#include "support/Files.h"

namespace pelmora::StatusLineInstaller {

std::filesystem::path originalFile() {
    return PelmoraPaths::supportDirectory() / "statusline-original.json";
}

bool isOurs(const JSONValue* value) {
    if (value == nullptr) {
        return false;
    }
    const JSONValue* command = value->find("command");
    const std::string* text = command != nullptr ? command->stringValue() : nullptr;
    return text != nullptr && text->find("pelmora-hook") != std::string::npos &&
           text->find("--statusline") != std::string::npos;
}

std::optional<std::string> originalCommand(const std::filesystem::path& url) {
    std::optional<std::string> bytes = Files::read(url);
    if (!bytes) {
        return std::nullopt;
    }
    std::optional<JSONValue> saved = OrderedJSON::tryParse(*bytes);
    if (!saved) {
        return std::nullopt;
    }
    const JSONValue* command = saved->find("command");
    const std::string* text = command != nullptr ? command->stringValue() : nullptr;
    if (text == nullptr) {
        return std::nullopt;
    }
    return *text;
}

} // namespace pelmora::StatusLineInstaller
