#pragma once

// The real programs whose output the classifiers read (git, compilers,
// interpreters), run through /bin/sh in a scratch folder under /tmp.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace pelmora::tools {

struct ToolOutput {
    int status = -1;
    std::string out, err;
};

inline bool haveTool(const std::string& name) {
    return std::system(("command -v " + name + " >/dev/null").c_str()) == 0;
}

class ScratchFolder {
public:
    ScratchFolder() : path_("/tmp/pelmora-XXXXXX") {
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no scratch folder");
        }
    }
    ~ScratchFolder() {
        std::system(("rm -rf " + path_ + " " + path_ + ".out " + path_ + ".err").c_str());
    }
    const std::string& path() const { return path_; }
    void write(const std::string& name, const std::string& bytes) const {
        std::filesystem::create_directories(
            std::filesystem::path(path_ + "/" + name).parent_path());
        std::ofstream(path_ + "/" + name, std::ios::binary) << bytes;
    }
    // The streams go beside the folder, where a repository in it never sees them.
    ToolOutput run(const std::string& command) const {
        const int status = std::system(("cd " + path_ + " && (" + command + ") >" + path_ +
                                        ".out 2>" + path_ + ".err </dev/null")
                                           .c_str());
        auto read = [&](const char* stream) {
            std::ostringstream bytes;
            bytes << std::ifstream(path_ + stream).rdbuf();
            return bytes.str();
        };
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read(".out"), read(".err")};
    }

private:
    std::string path_;
};

} // namespace pelmora::tools
