// Two readers of files that any process of the user can write. Usage
// windows: whatever decodes travels through its JSON form unchanged, says
// why when it does not, and the tracker announces each window at most once.
// The saved status line: the hook forwards its input to exactly the
// "command" string of the saved object, whatever else the file holds, and
// what the installer saves of a user's status line reads back as that
// status line's command.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzDocument.h"
#include "FuzzFiles.h"
#include "integration/HookTarget.h"
#include "integration/StatusLineInstaller.h"
#include "json/KeyedJSON.h"
#include "json/OrderedJSON.h"
#include "usage/UsageTracker.h"

namespace {

using namespace pelmora;

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void checkWindow(const UsageWindow& window) {
    const std::string line = OrderedJSON::serializeCompact(window.toJSON());
    const std::optional<JSONValue> json = OrderedJSON::tryParse(line);
    check(json && UsageWindow::fromJSON(*json) == window);

    using Case = UsageWindow::Kind::Case;
    const UsageWindow::Kind kind = window.kind();
    const bool month = window.minutes >= 40'320 && window.minutes <= 44'640;
    check((kind.tag == Case::month) == month);
    check((kind.tag == Case::fiveHours) == (window.minutes == 300));
    check(kind.tag == Case::other ? kind.minutes == window.minutes && !month : kind.minutes == 0);

    check(window.percent(window.resetsAt) == 0);
    check(window.percent(window.resetsAt - 1) ==
          (window.resetsAt - 1 < window.resetsAt ? window.usedPercent : 0));
}

void windows(std::string_view bytes) {
    const std::optional<JSONValue> json = OrderedJSON::tryParse(bytes);
    if (!json) {
        return;
    }
    const JSONValue::Elements single{*json};
    const JSONValue::Elements& elements = json->isArray() ? *json->arrayElements() : single;
    std::vector<UsageWindow> read;
    for (const JSONValue& element : elements) {
        JSONDecodeFailure failure;
        if (std::optional<UsageWindow> window = UsageWindow::fromJSON(element, &failure)) {
            checkWindow(*window);
            read.push_back(std::move(*window));
        } else {
            check(!failure.text().empty());
        }
    }

    // The first reading announces exhausted windows, and the end of one only
    // for an id that an earlier window of the same reading left exhausted;
    // the same reading again announces nothing for an id it holds once.
    constexpr double now = 1'795'341'600;
    UsageTracker tracker;
    std::size_t next = 0;
    for (const UsageEvent& event : tracker.update(now, read)) {
        while (next < read.size() && !(read[next] == event.window)) {
            ++next;
        }
        check(next < read.size()); // one event per window, in their order
        if (event.kind == UsageEvent::Kind::reset()) {
            bool earlier = false;
            for (std::size_t index = 0; index < next; ++index) {
                earlier = earlier || read[index].id == event.window.id;
            }
            check(earlier);
        } else {
            check(event.kind == UsageEvent::Kind::reached(UsageStage::exhausted));
            check(event.window.resetsAt > now && event.window.usedPercent >= 99.9);
        }
        ++next;
    }
    check(tracker.seen && tracker.stages.size() <= read.size());
    for (const UsageEvent& event : tracker.update(now, read)) {
        std::size_t holders = 0;
        for (const UsageWindow& window : read) {
            holders += window.id == event.window.id ? 1 : 0;
        }
        check(holders > 1);
    }
}

// The "command" the hook should forward to: the first such member of an
// object, when it is a string.
std::optional<std::string> commandOf(const std::optional<JSONValue>& saved) {
    const JSONValue* command = saved ? saved->find("command") : nullptr;
    if (command == nullptr || command->stringValue() == nullptr) {
        return std::nullopt;
    }
    return *command->stringValue();
}

void savedStatusLine(std::string_view bytes) {
    static const fuzz::ScratchFolder folder("statusline-fuzz", {".claude"});
    const std::filesystem::path side = folder.root / "statusline-original.json";
    fuzz::writeFile(side, bytes);
    const std::optional<JSONValue> saved = OrderedJSON::tryParse(bytes);
    check(StatusLineInstaller::originalCommand(side) == commandOf(saved));
    if (!saved) {
        return;
    }

    // The same value as the user's status line in Claude's settings: what
    // installing saves of it gives the hook its command, and the settings
    // then hold the product's line.
    const HookTarget target = HookTarget::target(Source::claude, folder.root);
    JSONValue settings = JSONValue::object();
    settings.set("statusLine", *saved);
    fuzz::writeFile(target.fileURL, OrderedJSON::serialize(settings, "  "));
    const std::vector<FileEdit> changes =
        StatusLineInstaller::planInstall(target, "/Apps/It's/pelmora-hook", side);
    const bool ours = StatusLineInstaller::isOurs(&*saved);
    check(changes.size() == (ours ? 1 : 2) && changes.back().file == target.fileURL);
    if (!ours) {
        check(changes.front().file == side && changes.front().after);
        fuzz::writeFile(side, *changes.front().after);
        check(StatusLineInstaller::originalCommand(side) == commandOf(saved));
    }
    const std::optional<JSONValue> installed = OrderedJSON::tryParse(*changes.back().after);
    check(installed && StatusLineInstaller::isOurs(installed->find("statusLine")));
}

} // namespace

// The first byte chooses: usage windows (even) or the saved status line
// (odd); with its top bit set, the rest rewrites valid ones member by member
// (FuzzDocument.h) instead of being the file as it is.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    const bool rewrite = (data[0] & 0x80) != 0;
    if (data[0] % 2 == 0) {
        windows(rewrite ? fuzz::listText({{"id", R"("claude.five_hour")"},
                                          {"agent", R"("claude")"},
                                          {"minutes", "300"},
                                          {"usedPercent", "85.5"},
                                          {"resetsAt", "1795345200"}},
                                         bytes)
                        : std::string(bytes));
    } else {
        savedStatusLine(rewrite ? fuzz::objectText({{"type", R"("command")"},
                                                    {"command", R"("~\/bin\/line.sh")"},
                                                    {"padding", ""}},
                                                   bytes)
                                : std::string(bytes));
    }
    return 0;
}
