// Session files are read back from disk, where any process of the user may
// have left any bytes: decoding must never crash, and whatever decodes must
// survive a write and a read unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "session/SessionRecord.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::optional<pelmora::SessionRecord> record = pelmora::SessionRecord::decode(bytes);
    if (!record) {
        return 0;
    }
    const std::optional<pelmora::SessionRecord> again =
        pelmora::SessionRecord::decode(record->encode());
    if (!again || !(*again == *record)) {
        std::abort();
    }
    return 0;
}
