#include "Style.h"

namespace pelmora::cli {

std::string sgr(Style style) {
    std::string parameters;
    auto add = [&](std::string_view parameter) {
        if (!parameters.empty()) {
            parameters += ';';
        }
        parameters += parameter;
    };
    if (style.bold) {
        add("1");
    }
    if (style.dim) {
        add("2");
    }
    if (style.colour != Colour::normal) {
        add(std::to_string(30 + static_cast<int>(style.colour)));
    }
    return parameters;
}

std::string styled(std::string_view text, Style style, bool colour) {
    const std::string parameters = colour ? sgr(style) : std::string();
    if (parameters.empty()) {
        return std::string(text);
    }
    std::string out = "\x1b[" + parameters + "m";
    out.append(text).append("\x1b[0m");
    return out;
}

} // namespace pelmora::cli
