#include "CommandInput.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "platform/Error.h"

namespace pelmora::cli {

CommandInput::CommandInput(const std::string& file) {
    if (file.empty() || file == "-") {
        name_ = "standard input";
        return;
    }
    name_ = file;
    file_.reset(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file_.valid()) {
        throw Error(std::string("cannot open: ") + std::strerror(errno), file);
    }
}

std::size_t CommandInput::read(std::span<char> buffer) {
    const int fd = file_.valid() ? file_.get() : STDIN_FILENO;
    for (;;) {
        const ssize_t got = ::read(fd, buffer.data(), buffer.size());
        if (got >= 0) {
            return static_cast<std::size_t>(got);
        }
        if (errno != EINTR) {
            throw Error(std::string("cannot read: ") + std::strerror(errno), name_);
        }
    }
}

} // namespace pelmora::cli
