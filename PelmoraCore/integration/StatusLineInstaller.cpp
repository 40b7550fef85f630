#include "integration/StatusLineInstaller.h"

#include "hook/PelmoraPaths.h"
#include "integration/HookInstaller.h"
#include "integration/InstallerFiles.h"
#include "json/OrderedJSON.h"
#include "support/Files.h"

namespace pelmora::StatusLineInstaller {
namespace {

struct Settings {
    std::optional<std::string> raw;
    HookInstaller::Contents contents;
};

Settings readSettings(const HookTarget& target) {
    Settings settings{InstallerFiles::readText(target.fileURL), {}};
    settings.contents = HookInstaller::parse(settings.raw, target.fileURL);
    return settings;
}

FileEdit settingsChange(const HookTarget& target, const Settings& settings, const JSONValue& root) {
    const bool newline = settings.contents.ending != HookInstaller::Ending::noNewline;
    return {target.fileURL, settings.raw, HookInstaller::text(root, newline),
            FileEdit::Backup::agentFile, target.source};
}

} // namespace

std::string_view rawValue(Status::Case kind) {
    switch (kind) {
    case Status::Case::unreadable:
        return "unreadable";
    case Status::Case::off:
        return "off";
    case Status::Case::on:
        return "on";
    }
    return "unreadable";
}

std::filesystem::path originalFile() {
    return PelmoraPaths::supportDirectory() / "statusline-original.json";
}

std::string command(std::string_view hookPath) {
    std::string line(PelmoraPaths::managedMarker);
    line += " '";
    line += hookPath;
    line += "' --statusline";
    return line;
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

Status status(const HookTarget& target) {
    try {
        const HookInstaller::Contents contents = HookInstaller::read(target.fileURL);
        if (contents.ending == HookInstaller::Ending::absent) {
            return Status::off();
        }
        return isOurs(contents.root.find("statusLine")) ? Status::on() : Status::off();
    } catch (const std::exception& error) {
        return Status::unreadable(error.what());
    }
}

std::vector<FileEdit> planInstall(const HookTarget& target, std::string_view hookPath,
                                  const std::filesystem::path& originalFile) {
    const Settings settings = readSettings(target);
    const JSONValue* current = settings.contents.root.find("statusLine");
    std::vector<FileEdit> changes;
    // A repeated install finds its own object there and must not save it
    // over the user's.
    if (current != nullptr && !isOurs(current)) {
        changes.push_back({originalFile, InstallerFiles::readText(originalFile),
                           OrderedJSON::serialize(*current, "  ")});
    }
    JSONValue line = current != nullptr && current->isObject() ? *current : JSONValue::object();
    line.set("type", JSONValue::string("command"));
    line.set("command", JSONValue::string(command(hookPath)));
    JSONValue root = settings.contents.root;
    root.set("statusLine", std::move(line));
    changes.push_back(settingsChange(target, settings, root));
    return changes;
}

std::vector<FileEdit> planUninstall(const HookTarget& target,
                                    const std::filesystem::path& originalFile) {
    const Settings settings = readSettings(target);
    if (!settings.raw || !isOurs(settings.contents.root.find("statusLine"))) {
        return {};
    }
    const std::optional<std::string> saved = InstallerFiles::readText(originalFile);
    std::optional<JSONValue> previous = saved ? OrderedJSON::tryParse(*saved) : std::nullopt;
    JSONValue root = settings.contents.root;
    root.set("statusLine", std::move(previous));
    return {settingsChange(target, settings, root), {originalFile, saved, std::nullopt}};
}

void install(const HookTarget& target, std::string_view hookPath,
             const std::filesystem::path& originalFile, BackupRun& run) {
    applyChanges(planInstall(target, hookPath, originalFile), run);
}

void uninstall(const HookTarget& target, const std::filesystem::path& originalFile,
               BackupRun& run) {
    applyChanges(planUninstall(target, originalFile), run);
}

void install(const HookTarget& target, std::string_view hookPath,
             const std::filesystem::path& originalFile) {
    BackupRun run = BackupRun::current();
    install(target, hookPath, originalFile, run);
}

void uninstall(const HookTarget& target, const std::filesystem::path& originalFile) {
    BackupRun run = BackupRun::current();
    uninstall(target, originalFile, run);
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
