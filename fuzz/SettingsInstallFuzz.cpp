// Any settings file: installing the product's hooks twice gives what once
// gives, every event gets exactly one managed hook, and removing them gives
// back every hook of the user's and everything outside the hooks object.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string_view>

#include "integration/HookInstaller.h"
#include "json/OrderedJSON.h"

namespace {

using pelmora::JSONValue;
namespace HookInstaller = pelmora::HookInstaller;

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// What removing keeps of the user's: hooks of matcher groups, and entries
// that stand in an event's array themselves, in file order.
std::vector<JSONValue> userHooks(const JSONValue& root) {
    std::vector<JSONValue> hooks;
    const JSONValue* events = root.value({"hooks"});
    if (events == nullptr || !events->isObject()) {
        return hooks;
    }
    for (const auto& event : *events->objectMembers()) {
        if (!event.value.isArray()) {
            continue;
        }
        for (const JSONValue& entry : *event.value.arrayElements()) {
            const JSONValue* group = entry.find("hooks");
            if (HookInstaller::isManaged(entry)) {
                continue;
            }
            if (group == nullptr || !group->isArray()) {
                hooks.push_back(entry);
                continue;
            }
            for (const JSONValue& hook : *group->arrayElements()) {
                if (!HookInstaller::isManaged(hook)) {
                    hooks.push_back(hook);
                }
            }
        }
    }
    return hooks;
}

// Every member but "hooks" (all of them: a repeated key's later members are
// never read, so they are the user's too, but a first one left empty goes).
JSONValue outsideHooks(JSONValue root) {
    while (root.find("hooks") != nullptr) {
        root.set("hooks", std::nullopt);
    }
    return root;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::optional<JSONValue> root = pelmora::OrderedJSON::tryParse(text);
    if (!root) {
        return 0;
    }
    const std::vector<std::string> events = {"PreToolUse", "Stop", "PermissionRequest", "Stop2"};
    const std::set<std::string> blocking = {"PermissionRequest"};
    const std::string command = "PELMORA_MANAGED=1 '/A/pelmora-hook' --source claude";
    auto install = [&](const JSONValue& value) {
        return HookInstaller::installing(value, events, command, {"hooks"}, std::nullopt, blocking);
    };

    const JSONValue installed = install(*root);
    check(install(installed) == installed);
    check(HookInstaller::managedCommands(installed, {"hooks"}).size() == events.size());
    check(HookInstaller::installedEvents(installed, {"hooks"}) ==
          std::set<std::string>(events.begin(), events.end()));
    check(HookInstaller::managedTimeout(installed, {"hooks"}, "PermissionRequest") == 130);
    check(pelmora::OrderedJSON::parse(HookInstaller::text(installed, true)) == installed);

    const JSONValue removed = HookInstaller::removing(installed, {"hooks"});
    check(HookInstaller::managedCommands(removed, {"hooks"}).empty());
    check(HookInstaller::removing(removed, {"hooks"}) == removed);
    if (root->isObject()) {
        const JSONValue* hooks = root->value({"hooks"});
        // A "hooks" that is not an object is replaced, as an agent could not read it.
        if (hooks == nullptr || hooks->isObject()) {
            check(userHooks(removed) == userHooks(*root));
            check(outsideHooks(removed) == outsideHooks(*root));
        }
    }
    return 0;
}
