// Any bytes as copied text: classification returns quietly, and each answer
// keeps its promises (JSON within its limit, colour components from 0 to 1,
// frames counted).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "clipboard/ClipboardClassifier.h"

namespace {

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

bool unit(double value) {
    return value >= 0 && value <= 1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace pelmora;
    namespace Classifier = ClipboardClassifier;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto action = Classifier::classify(text)) {
        if (const auto* json = action->json()) {
            check(json->formatted.size() <= Classifier::jsonLimit + 2 && json->droppedBytes >= 0);
        }
        if (const auto* color = action->color()) {
            check(unit(color->red) && unit(color->green) && unit(color->blue) &&
                  unit(color->alpha));
        }
        if (const auto* trace = action->trace()) {
            check(trace->omittedFrames >= 0 && !trace->exception.empty());
        }
    }
    // The steps on the raw bytes too, untrimmed.
    Classifier::tidyTrace(text);
    Classifier::formatJSON(text);
    Classifier::parseColor(text);
    Classifier::isLongToken(text);
    Classifier::isCardNumber(text);
    Classifier::exceptionName(text);
    return 0;
}
