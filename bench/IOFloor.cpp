// The floor for a hook run that persists: a static program that does only
// what every such run must, with plain system calls and nothing else. It
// reads its standard input, takes the session's lock, reads the session
// file, writes a temporary beside it and renames it over the file. The hook's
// latency on a tracked event is measured against this.
//
//     io_floor SESSION-FILE
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    static char input[65536];
    std::size_t used = 0;
    for (ssize_t got = 1; got > 0 && used < sizeof input;) {
        got = read(STDIN_FILENO, input + used, sizeof input - used);
        used += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    const std::string target = argv[1];
    const std::string lockPath = target + ".lock";
    const std::string temporary = target + "." + std::to_string(getpid()) + ".tmp";
    int lock = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock < 0 || flock(lock, LOCK_EX) != 0) {
        return 1;
    }
    static char contents[65536];
    std::size_t length = 0;
    int file = open(target.c_str(), O_RDONLY | O_CLOEXEC);
    if (file >= 0) {
        ssize_t got = read(file, contents, sizeof contents);
        length = got > 0 ? static_cast<std::size_t>(got) : 0;
        close(file);
    }
    int out = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (out < 0 || write(out, contents, length) != static_cast<ssize_t>(length) ||
        close(out) != 0 || rename(temporary.c_str(), target.c_str()) != 0) {
        unlink(temporary.c_str());
        return 1;
    }
    close(lock);
    return 0;
}
