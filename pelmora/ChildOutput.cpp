#include "ChildOutput.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace pelmora::cli {

void readOutput(platform::ChildProcess& child,
                const std::function<bool(std::string_view chunk, bool isStderr)>& take) {
    std::array<FileDescriptor*, 2> pipes{&child.output(), &child.errors()};
    std::array<char, 65536> buffer{};
    for (;;) {
        std::array<pollfd, 2> waiting{};
        nfds_t count = 0;
        for (FileDescriptor* pipe : pipes) {
            if (pipe->valid()) {
                waiting[count++] = pollfd{pipe->get(), POLLIN, 0};
            }
        }
        if (count == 0) {
            return;
        }
        if (::poll(waiting.data(), count, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        for (std::size_t index = 0; index < count; ++index) {
            if (waiting[index].revents == 0) {
                continue;
            }
            const bool isStderr = waiting[index].fd == child.errors().get();
            FileDescriptor& pipe = isStderr ? child.errors() : child.output();
            const ssize_t got = ::read(pipe.get(), buffer.data(), buffer.size());
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got <= 0 ||
                !take(std::string_view(buffer.data(), static_cast<std::size_t>(got)), isStderr)) {
                pipe.reset();
            }
        }
    }
}

} // namespace pelmora::cli
