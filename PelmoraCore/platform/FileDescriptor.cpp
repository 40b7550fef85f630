#include "platform/FileDescriptor.h"

#include <unistd.h>

namespace pelmora {

FileDescriptor::~FileDescriptor() {
    reset();
}

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
        reset(other.release());
    }
    return *this;
}

int FileDescriptor::release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
}

void FileDescriptor::reset(int fd) {
    if (fd_ >= 0 && fd_ != fd) {
        // Retrying close() after EINTR could close a descriptor that another
        // open() has just reused, so it is called exactly once.
        ::close(fd_);
    }
    fd_ = fd;
}

} // namespace pelmora
