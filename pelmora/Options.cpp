#include "Options.h"

#include <charconv>
#include <cmath>
#include <optional>

#include "support/Integers.h"

namespace pelmora::cli {
namespace {

// CLI11 puts the option's name before its validation messages ("--count:
// ..."); a sentence that starts with the name reads better.
[[noreturn]] void refuse(const std::string& name, const std::string& rule) {
    throw CLI::ValidationError(name + " must be " + rule);
}

std::optional<double> parseSeconds(std::string_view text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value) ||
        !(value > 0)) {
        return std::nullopt;
    }
    return value;
}

// "a, b or c"
std::string alternatives(const std::vector<std::string>& spellings) {
    std::string out;
    for (std::size_t i = 0; i < spellings.size(); ++i) {
        if (i > 0) {
            out += i + 1 == spellings.size() ? " or " : ", ";
        }
        out += spellings[i];
    }
    return out;
}

} // namespace

CLI::Option* addWholeNumber(CLI::App& app, const std::string& name, int& value, int least,
                            const std::string& help) {
    auto read = [&value, name, least](const std::string& text) {
        const std::optional<int> number = parseInteger<int>(text);
        if (!number || *number < least) {
            refuse(name, "a whole number of at least " + std::to_string(least));
        }
        value = *number;
    };
    return app.add_option_function<std::string>(name, read, help)->type_name("N")->take_last();
}

CLI::Option* addSeconds(CLI::App& app, const std::string& name, double& value,
                        const std::string& help) {
    auto read = [&value, name](const std::string& text) {
        const std::optional<double> seconds = parseSeconds(text);
        if (!seconds) {
            refuse(name, "a number of seconds above 0");
        }
        value = *seconds;
    };
    return app.add_option_function<std::string>(name, read, help)
        ->type_name("SECONDS")
        ->take_last();
}

namespace detail {

CLI::Option* addChoice(CLI::App& app, const std::string& name,
                       const std::vector<std::string>& spellings,
                       std::function<void(std::size_t)> chose, const std::string& help) {
    std::string typeName;
    for (const std::string& spelling : spellings) {
        typeName += (typeName.empty() ? "" : "|") + spelling;
    }
    auto read = [name, spellings, chose = std::move(chose)](const std::string& text) {
        for (std::size_t i = 0; i < spellings.size(); ++i) {
            if (spellings[i] == text) {
                chose(i);
                return;
            }
        }
        refuse(name, alternatives(spellings));
    };
    return app.add_option_function<std::string>(name, read, help)->type_name(typeName)->take_last();
}

} // namespace detail
} // namespace pelmora::cli
