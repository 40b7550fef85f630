#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

// Options whose values a person types and this program reads itself, more
// strictly than CLI11 would ("010" is octal to CLI11, "inf" a number of
// seconds). A wrong value is a usage error that says what the value must be:
//
//     addWholeNumber(app, "--count", options->count, 1, "requests to answer");
//     // pelmora approvals --answer deny --count 0
//     // pelmora: approvals: --count must be a whole number of at least 1
//
// Each returns the CLI11 option, for ->required() and the like. Given
// twice, the last one counts.
namespace pelmora::cli {

CLI::Option* addWholeNumber(CLI::App& app, const std::string& name, int& value, int least,
                            const std::string& help);

// A number of seconds above 0, fractions allowed ("0.5").
CLI::Option* addSeconds(CLI::App& app, const std::string& name, double& value,
                        const std::string& help);

// One of `choices`, spelled as their raw values; the help and the message
// list them.
template <class E>
CLI::Option* addChoice(CLI::App& app, const std::string& name, E& value,
                       std::initializer_list<E> choices, const std::string& help);

namespace detail {
CLI::Option* addChoice(CLI::App& app, const std::string& name,
                       const std::vector<std::string>& spellings,
                       std::function<void(std::size_t)> chose, const std::string& help);
} // namespace detail

template <class E>
CLI::Option* addChoice(CLI::App& app, const std::string& name, E& value,
                       std::initializer_list<E> choices, const std::string& help) {
    std::vector<std::string> spellings;
    for (E choice : choices) {
        spellings.emplace_back(rawValue(choice));
    }
    std::vector<E> values(choices);
    return detail::addChoice(
        app, name, spellings, [&value, values](std::size_t index) { value = values[index]; }, help);
}

} // namespace pelmora::cli
