#pragma once

// A home folder and a support directory of the test's own under /tmp, and
// the real programs that read what the installers write.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <unistd.h>

namespace pelmora::testing {

namespace fs = std::filesystem;

struct Ran {
    int status = -1;
    std::string out; // standard output and standard error together
};

// Runs `command` through /bin/sh.
inline Ran shell(const std::string& command) {
    Ran ran;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return ran;
    }
    char buffer[4096];
    for (std::size_t got; (got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        ran.out.append(buffer, got);
    }
    const int status = ::pclose(pipe);
    ran.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ran;
}

inline std::string quoted(const fs::path& path) {
    std::string out = "'";
    for (char c : path.string()) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}

class IntegrationTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/pelmora-integration-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        temp = pattern;
        home = temp / "home";
        support = temp / "support";
        fs::create_directories(home);
        ::setenv("PELMORA_HOME", support.c_str(), 1);
        hook = temp / "app" / "pelmora-hook";
        put(hook, "#!/bin/sh\n");
        fs::permissions(hook, fs::perms(0755));
    }
    void TearDown() override {
        ::unsetenv("PELMORA_HOME");
        shell("chattr -R -i " + quoted(temp) + " >/dev/null");
        fs::remove_all(temp);
    }

    static void put(const fs::path& file, const std::string& text) {
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
    }
    static std::string get(const fs::path& file) {
        std::ifstream in(file, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
    // Names in a folder, sorted; none when it is missing.
    static std::vector<std::string> names(const fs::path& folder) {
        std::vector<std::string> found;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(folder, error)) {
            found.push_back(entry.path().filename());
        }
        std::sort(found.begin(), found.end());
        return found;
    }
    // Python's strict readers stand in for the agents' own: `module` is
    // "json" or "tomllib"; the output is what `expression` (over `data`) prints.
    Ran python(const std::string& module, const fs::path& file,
               const std::string& expression = "''") const {
        put(temp / "check.py", "import sys, json, tomllib\nwith open(sys.argv[1], 'rb') as f:\n"
                               "    data = " +
                                   module + ".load(f)\nprint(" + expression + ", end='')\n");
        // Debian's interpreter when there is one: version managers' shims are slow.
        const char* python = fs::exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
        return shell(std::string(python) + " " + quoted(temp / "check.py") + " " + quoted(file));
    }

    fs::path temp;
    fs::path home;
    fs::path support;
    fs::path hook;
};

} // namespace pelmora::testing
