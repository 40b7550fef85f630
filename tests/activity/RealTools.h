#pragma once

// The real programs whose output the classifiers read: git, compilers and
// interpreters, run through /bin/sh in a scratch folder with both streams
// captured apart.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace pelmora::testing {

struct ToolOutput {
    int status = -1;
    std::string out;
    std::string err;
};

// A fresh folder under /tmp, removed with its contents.
class ScratchFolder {
public:
    ScratchFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "pelmora-XXXXXX").string();
        path_ = mkdtemp(pattern.data()) ? pattern : "";
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
        std::filesystem::remove(capture("out"), ignored);
        std::filesystem::remove(capture("err"), ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }

    void write(const std::string& name, const std::string& bytes) const {
        std::filesystem::create_directories((path_ / name).parent_path());
        std::ofstream(path_ / name, std::ios::binary) << bytes;
    }
    std::string read(const std::filesystem::path& name) const {
        std::ifstream in(path_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

    ToolOutput run(const std::string& command) const {
        const std::string line = "cd '" + path_.string() + "' && (" + command + ") >'" +
                                 capture("out").string() + "' 2>'" + capture("err").string() +
                                 "' </dev/null";
        ToolOutput output;
        const int status = std::system(line.c_str());
        output.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        output.out = read(capture("out"));
        output.err = read(capture("err"));
        return output;
    }

private:
    // Beside the folder, so that a repository in it never sees them.
    std::filesystem::path capture(const std::string& stream) const {
        return path_.string() + "." + stream;
    }
    std::filesystem::path path_;
};

inline bool haveTool(const std::string& name) {
    return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

} // namespace pelmora::testing
