// Any bytes as git's NUL-separated numstat output: parsing never fails, a
// binary entry never carries counts, and every entry survives its JSON form.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "activity/GitChanges.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace pelmora;
    const std::string_view output(reinterpret_cast<const char*>(data), size);
    const std::vector<FileChange> changes = GitChanges::parseNumstat(output);
    for (const FileChange& change : changes) {
        if (change.isBinary && (change.added != 0 || change.removed != 0)) {
            std::abort();
        }
        if (FileChange::fromJSON(change.toJSON()) != change) {
            std::abort();
        }
    }
    return 0;
}
