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

inline bool haveTool(const std::string& name) {
    return std::system(("command -v " + name + " >/dev/null").c_str()) == 0;
}

class ScratchFolder {
public:
    struct Output {
        int status = -1;
        std::string out, err;
    };

    ScratchFolder() : path_("/tmp/pelmora-XXXXXX") {
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("no scratch folder");
        }
    }
    ~ScratchFolder() { std::filesystem::remove_all(path_); }
    const std::string& path() const { return path_; }
    void write(const std::string& name, const std::string& bytes) const {
        std::filesystem::create_directories(
            std::filesystem::path(path_ + "/" + name).parent_path());
        std::ofstream(path_ + "/" + name, std::ios::binary) << bytes;
    }
    // The streams are kept beside the folder, where a repository in it never sees them.
    Output run(const std::string& command) const {
        const int status = std::system(("cd " + path_ + " && (" + command + ") >" + path_ +
                                        ".out 2>" + path_ + ".err </dev/null")
                                           .c_str());
        std::ostringstream streams[2];
        for (int index : {0, 1}) {
            streams[index] << std::ifstream(path_ + (index ? ".err" : ".out")).rdbuf();
            std::filesystem::remove(path_ + (index ? ".err" : ".out"));
        }
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, streams[0].str(), streams[1].str()};
    }

private:
    std::string path_;
};

} // namespace pelmora::tools
