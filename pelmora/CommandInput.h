#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "platform/FileDescriptor.h"

namespace pelmora::cli {

// What a command that reads text takes in: the FILE it was given, or its
// standard input when none was given or the FILE is "-".
class CommandInput {
public:
    // Throws pelmora::Error when the file cannot be opened.
    explicit CommandInput(const std::string& file);

    // The next bytes into `buffer`; 0 at the end. Throws pelmora::Error,
    // naming the input, when reading fails (a folder given as FILE).
    std::size_t read(std::span<char> buffer);

private:
    FileDescriptor file_;
    std::string name_; // the file, or "standard input"
};

} // namespace pelmora::cli
