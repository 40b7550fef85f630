#include "integration/HookInstaller.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

#include "hook/PelmoraPaths.h"
#include "integration/InstallerFiles.h"
#include "json/OrderedJSON.h"
#include "platform/Error.h"
#include "support/Text.h"

namespace pelmora::HookInstaller {
namespace {

using Elements = JSONValue::Elements;

// The string that decides whether a hook is ours: "command", or "bash" in
// Copilot's spelling when there is no "command" at all.
const std::string* commandText(const JSONValue& hook) {
    const JSONValue* found = hook.find("command");
    if (found == nullptr) {
        found = hook.find("bash");
    }
    return found != nullptr ? found->stringValue() : nullptr;
}

// Calls `visit` with each event name and each managed hook under it, in file
// order: hooks standing directly in an event's array (Copilot's shape) and
// hooks in a matcher group's "hooks" array.
void forEachManaged(const JSONValue& root, const KeyPath& container,
                    const std::function<void(const std::string&, const JSONValue&)>& visit) {
    const JSONValue* events = root.value(container);
    if (events == nullptr || !events->isObject()) {
        return;
    }
    for (const JSONMember& event : *events->objectMembers()) {
        const Elements* entries = event.value.arrayElements();
        if (entries == nullptr) {
            continue;
        }
        for (const JSONValue& entry : *entries) {
            if (isManaged(entry)) {
                visit(event.key, entry);
                continue;
            }
            const JSONValue* hooks = entry.find("hooks");
            if (hooks == nullptr || !hooks->isArray()) {
                continue;
            }
            for (const JSONValue& hook : *hooks->arrayElements()) {
                if (isManaged(hook)) {
                    visit(event.key, hook);
                }
            }
        }
    }
}

JSONValue hookGroup(std::string_view command, int timeout) {
    JSONValue hook = JSONValue::object({{"type", JSONValue::string("command")},
                                        {"command", JSONValue::string(std::string(command))},
                                        {"timeout", JSONValue::integer(timeout)}});
    return JSONValue::object({{"hooks", JSONValue::array({std::move(hook)})}});
}

// One member of the hooks object with its managed hooks taken out; `emptied`
// when that took its last entry. Such a member keeps its place as an empty
// array: removing drops it, installing refills it where it stood, so that
// installing again changes no byte.
struct Stripped {
    JSONMember member;
    bool emptied = false;
    bool changed = false;
};

Stripped strippedMember(const JSONMember& event) {
    const Elements* entries = event.value.arrayElements();
    if (entries == nullptr) {
        return {event};
    }
    bool changed = false;
    Elements remaining;
    for (const JSONValue& entry : *entries) {
        if (isManaged(entry)) {
            changed = true;
            continue;
        }
        const JSONValue* hooks = entry.find("hooks");
        if (hooks == nullptr || !hooks->isArray()) {
            remaining.push_back(entry);
            continue;
        }
        Elements users;
        for (const JSONValue& hook : *hooks->arrayElements()) {
            if (!isManaged(hook)) {
                users.push_back(hook);
            }
        }
        if (users.size() == hooks->arrayElements()->size()) {
            remaining.push_back(entry);
            continue;
        }
        changed = true;
        // A group left with only the user's hooks stays; one left empty goes.
        if (!users.empty()) {
            JSONValue group = entry;
            group.set("hooks", JSONValue::array(std::move(users)));
            remaining.push_back(std::move(group));
        }
    }
    if (!changed) {
        return {event};
    }
    const bool emptied = remaining.empty();
    return {{event.key, JSONValue::array(std::move(remaining))}, emptied, true};
}

JSONValue merged(const JSONValue& root, const std::vector<std::string>& events,
                 std::string_view command, const KeyPath& container,
                 const std::optional<KeyPath>& enableFlag,
                 const std::function<int(const std::string&)>& timeoutOf) {
    JSONValue result = root.isObject() ? root : JSONValue::object();
    const JSONValue* existing = result.value(container);
    std::vector<Stripped> members;
    if (existing != nullptr && existing->isObject()) {
        for (const JSONMember& event : *existing->objectMembers()) {
            members.push_back(strippedMember(event));
        }
    }
    for (const std::string& event : events) {
        auto found = std::find_if(members.begin(), members.end(),
                                  [&](const Stripped& m) { return m.member.key == event; });
        if (found == members.end()) {
            members.push_back({{event, JSONValue::array()}});
            found = std::prev(members.end());
        } else if (!found->member.value.isArray()) {
            found->member.value = JSONValue::array();
        }
        found->member.value.arrayElements()->push_back(hookGroup(command, timeoutOf(event)));
        found->emptied = false;
    }
    JSONValue::Members kept;
    for (Stripped& stripped : members) {
        if (!stripped.emptied) {
            kept.push_back(std::move(stripped.member));
        }
    }
    if (container.empty()) {
        result = JSONValue::object(std::move(kept));
    } else {
        result.set(container, JSONValue::object(std::move(kept)));
    }
    if (enableFlag) {
        result.set(*enableFlag, JSONValue::boolean(true));
    }
    return result;
}

// The seven checks shared by the json and copilot kinds.
Status jsonStatus(const HookTarget& target, std::string_view hookPath) {
    const Contents contents = read(target.fileURL);
    if (contents.ending == Ending::absent) {
        return Status::notInstalled();
    }
    const std::vector<std::string> commands = managedCommands(contents.root, target.container);
    if (commands.empty()) {
        return Status::notInstalled();
    }
    const std::set<std::string> installed = installedEvents(contents.root, target.container);
    for (const std::string& event : target.events) {
        if (installed.count(event) == 0) {
            return Status::stale();
        }
    }
    if (target.enableFlag) {
        const JSONValue* flag = contents.root.value(*target.enableFlag);
        if (flag == nullptr || flag->boolValue() != true) {
            return Status::stale();
        }
    }
    for (const std::string& event : target.blockingEvents) {
        if (managedTimeout(contents.root, target.container, event) != target.timeout(event)) {
            return Status::stale();
        }
    }
    const std::string expected = command(target.source, hookPath);
    for (const std::string& found : commands) {
        if (found != expected) {
            return Status::stale();
        }
    }
    return InstallerFiles::isExecutableFile(hookPath) ? Status::installed() : Status::stale();
}

FileEdit changeOf(const HookTarget& target, std::optional<std::string> before) {
    FileEdit change;
    change.file = target.fileURL;
    change.after = before;
    change.before = std::move(before);
    change.backup = target.kind == HookTarget::Kind::piExtension ? FileEdit::Backup::none
                                                                 : FileEdit::Backup::agentFile;
    change.source = target.source;
    return change;
}

} // namespace

Contents parse(const std::optional<std::string>& raw, const path& url) {
    Contents contents;
    if (!raw) {
        return contents;
    }
    contents.ending = !raw->empty() && raw->back() == '\n' ? Ending::newline : Ending::noNewline;
    if (!Text::trimWhitespaceAndNewlines(*raw).empty()) {
        try {
            contents.root = OrderedJSON::parseDiagnosed(*raw);
        } catch (const JSONParseError& error) {
            throw Error("Cannot parse " + url.string() + ": " + error.located(), url);
        }
    }
    return contents;
}

namespace {

bool keepsNewline(Ending ending) {
    return ending != Ending::noNewline;
}

FileEdit planJSONInstall(const HookTarget& target, std::string_view hookPath) {
    FileEdit change = changeOf(target, InstallerFiles::readText(target.fileURL));
    const std::string line = command(target.source, hookPath);
    if (target.kind == HookTarget::Kind::copilot) {
        change.after = text(copilotDocument(target, line), true);
        return change;
    }
    const Contents contents = parse(change.before, target.fileURL);
    change.after = text(installing(contents.root, target, line), keepsNewline(contents.ending));
    return change;
}

FileEdit planJSONUninstall(const HookTarget& target) {
    FileEdit change = changeOf(target, InstallerFiles::readText(target.fileURL));
    const Contents contents = parse(change.before, target.fileURL);
    if (contents.ending == Ending::absent) {
        return change;
    }
    const JSONValue rest = removing(contents.root, target.container);
    if (rest == contents.root) {
        return change;
    }
    const JSONValue::Members* members = rest.objectMembers();
    const bool empty = target.kind == HookTarget::Kind::copilot
                           ? rest.value(target.container) == nullptr
                           : members != nullptr && members->empty();
    if (target.ownsFile && empty) {
        change.after.reset();
    } else {
        change.after = text(rest, keepsNewline(contents.ending));
    }
    return change;
}

} // namespace

std::string_view rawValue(Status::Case kind) {
    switch (kind) {
    case Status::Case::unreadable:
        return "unreadable";
    case Status::Case::notInstalled:
        return "notInstalled";
    case Status::Case::installed:
        return "installed";
    case Status::Case::stale:
        return "stale";
    }
    return "unreadable";
}

std::string command(Source source, std::string_view hookPath) {
    std::string line(PelmoraPaths::managedMarker);
    line += ' ';
    line += InstallerFiles::shellQuoted(hookPath);
    line += " --source ";
    line += rawValue(source);
    if (Agents::row(source).passesParentPID) {
        line += " --ppid \"$PPID\"";
    }
    return line;
}

Status status(const HookTarget& target, std::string_view hookPath) {
    try {
        switch (target.kind) {
        case HookTarget::Kind::json:
        case HookTarget::Kind::copilot:
            return jsonStatus(target, hookPath);
        case HookTarget::Kind::kimiTOML:
            return kimiStatus(target, hookPath);
        case HookTarget::Kind::piExtension:
            return piStatus(target, hookPath);
        }
    } catch (const std::exception& error) {
        return Status::unreadable(error.what());
    }
    return Status::notInstalled();
}

FileEdit planInstall(const HookTarget& target, std::string_view hookPath) {
    switch (target.kind) {
    case HookTarget::Kind::json:
    case HookTarget::Kind::copilot:
        return planJSONInstall(target, hookPath);
    case HookTarget::Kind::kimiTOML: {
        FileEdit change = changeOf(target, InstallerFiles::readUTF8(target.fileURL));
        const std::string current = change.before.value_or("");
        if (kimiDefinesInlineHooks(kimiRemovingBlocks(current))) {
            throw Error(std::string(kimiInlineHooksError), target.fileURL);
        }
        change.after = kimiInstalling(current, target.events, command(target.source, hookPath));
        return change;
    }
    case HookTarget::Kind::piExtension: {
        FileEdit change = changeOf(target, InstallerFiles::readText(target.fileURL));
        if (change.before && change.before->find(piMarker) == std::string::npos) {
            throw Error(target.fileURL.string() + " already exists and was not written by Pelmora.",
                        target.fileURL);
        }
        change.after = piExtension(hookPath);
        return change;
    }
    }
    return changeOf(target, std::nullopt);
}

FileEdit planUninstall(const HookTarget& target) {
    switch (target.kind) {
    case HookTarget::Kind::json:
    case HookTarget::Kind::copilot:
        return planJSONUninstall(target);
    case HookTarget::Kind::kimiTOML: {
        FileEdit change = changeOf(target, InstallerFiles::readUTF8(target.fileURL));
        if (change.before) {
            change.after = kimiRemovingBlocks(*change.before);
        }
        return change;
    }
    case HookTarget::Kind::piExtension: {
        FileEdit change = changeOf(target, InstallerFiles::readText(target.fileURL));
        if (change.before && change.before->find(piMarker) != std::string::npos) {
            change.after.reset();
        }
        return change;
    }
    }
    return changeOf(target, std::nullopt);
}

void install(const HookTarget& target, std::string_view hookPath, BackupRun& run) {
    FileEdit change;
    try {
        change = planInstall(target, hookPath);
    } catch (const Error& error) {
        // Kimi's inline hooks are found after the backup is taken, as for a
        // change that starts and is refused; the file itself stays as it is.
        if (target.kind == HookTarget::Kind::kimiTOML && error.what() == kimiInlineHooksError) {
            FileEdit current = changeOf(target, InstallerFiles::readUTF8(target.fileURL));
            current.after.reset();
            run.save(current);
        }
        throw;
    }
    applyChanges({change}, run);
}

void uninstall(const HookTarget& target, BackupRun& run) {
    applyChanges({planUninstall(target)}, run);
}

void install(const HookTarget& target, std::string_view hookPath) {
    BackupRun run = BackupRun::current();
    install(target, hookPath, run);
}

void uninstall(const HookTarget& target) {
    BackupRun run = BackupRun::current();
    uninstall(target, run);
}

bool isManaged(const JSONValue& hook) {
    const std::string* text = hook.isObject() ? commandText(hook) : nullptr;
    return text != nullptr && text->find(PelmoraPaths::managedMarker) != std::string::npos &&
           text->find(PelmoraPaths::hookBinaryName) != std::string::npos;
}

JSONValue installing(const JSONValue& root, const std::vector<std::string>& events,
                     std::string_view command, const KeyPath& container,
                     const std::optional<KeyPath>& enableFlag,
                     const std::set<std::string>& blocking) {
    return merged(root, events, command, container, enableFlag, [&](const std::string& event) {
        return blocking.count(event) > 0 ? HookTarget::blockingTimeout : HookTarget::shortTimeout;
    });
}

JSONValue installing(const JSONValue& root, const HookTarget& target, std::string_view command) {
    return merged(root, target.events, command, target.container, target.enableFlag,
                  [&](const std::string& event) { return target.timeout(event); });
}

JSONValue removing(const JSONValue& root, const KeyPath& container) {
    const JSONValue* events = root.value(container);
    if (events == nullptr || !events->isObject()) {
        return root;
    }
    bool dropped = false;
    JSONValue::Members kept;
    for (const JSONMember& event : *events->objectMembers()) {
        Stripped stripped = strippedMember(event);
        dropped = dropped || stripped.changed;
        if (!stripped.emptied) {
            kept.push_back(std::move(stripped.member));
        }
    }
    if (!dropped) {
        return root;
    }
    if (container.empty()) {
        return JSONValue::object(std::move(kept));
    }
    JSONValue result = root;
    result.set(container,
               kept.empty() ? std::nullopt : std::optional(JSONValue::object(std::move(kept))));
    return result;
}

std::vector<std::string> managedCommands(const JSONValue& root, const KeyPath& container) {
    std::vector<std::string> commands;
    forEachManaged(root, container, [&](const std::string&, const JSONValue& hook) {
        commands.push_back(*commandText(hook));
    });
    return commands;
}

std::set<std::string> installedEvents(const JSONValue& root, const KeyPath& container) {
    std::set<std::string> events;
    forEachManaged(root, container,
                   [&](const std::string& event, const JSONValue&) { events.insert(event); });
    return events;
}

std::optional<std::int64_t> managedTimeout(const JSONValue& root, const KeyPath& container,
                                           std::string_view event) {
    std::optional<std::int64_t> timeout;
    bool found = false;
    forEachManaged(root, container, [&](const std::string& name, const JSONValue& hook) {
        if (found || name != event) {
            return;
        }
        found = true;
        const JSONValue* value = hook.find("timeout");
        if (value == nullptr) {
            value = hook.find("timeoutSec");
        }
        timeout = value != nullptr ? value->integerValue() : std::nullopt;
    });
    return timeout;
}

JSONValue copilotDocument(const HookTarget& target, std::string_view command) {
    JSONValue hooks = JSONValue::object();
    for (const std::string& event : target.events) {
        JSONValue hook =
            JSONValue::object({{"type", JSONValue::string("command")},
                               {"bash", JSONValue::string(std::string(command))},
                               {"timeoutSec", JSONValue::integer(target.timeout(event))}});
        hooks.set(event, JSONValue::array({std::move(hook)}));
    }
    return JSONValue::object({{"version", JSONValue::integer(1)}, {"hooks", std::move(hooks)}});
}

Contents read(const path& url) {
    return parse(InstallerFiles::readText(url), url);
}

std::string text(const JSONValue& root, bool trailingNewline) {
    std::string out = OrderedJSON::serialize(root, "  ");
    if (trailingNewline) {
        out += '\n';
    }
    return out;
}

void write(const JSONValue& root, const path& url, bool trailingNewline) {
    writeText(text(root, trailingNewline), url);
}

} // namespace pelmora::HookInstaller
