#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace pelmora {

// The one exception type of the library: raised only by operations that
// touch files and are documented to throw. Decoders return std::nullopt.
class Error : public std::runtime_error {
public:
    explicit Error(const std::string& message, std::filesystem::path path = {})
        : std::runtime_error(message), path_(std::move(path)) {}

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

} // namespace pelmora
