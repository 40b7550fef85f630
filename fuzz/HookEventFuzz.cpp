#include <cstddef>
#include <cstdint>
#include <string_view>

#include "approval/HookApproval.h"
#include "session/HookEvent.h"

// Agents hand the hook whatever bytes they like; none of them may crash it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    if (std::optional<pelmora::HookEvent> event = pelmora::HookEvent::decode(bytes)) {
        (void)event->isQuestionTool();
        (void)pelmora::HookApproval::questions(*event);
        (void)event->toolSummary();
    }
    return 0;
}
