#pragma once

// A home folder and a support directory of the test's own, and the real
// programs that read what the installers write.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "common/Fixtures.h"
#include "integration/InstallerFiles.h"
#include "support/Files.h"

namespace pelmora::testing {

namespace fs = std::filesystem;

inline std::string quoted(const fs::path& path) {
    return InstallerFiles::shellQuoted(path.string());
}

class IntegrationTest : public ::testing::Test {
protected:
    void SetUp() override {
        temp = tempHome.path();
        home = temp / "home", support = temp / "support", hook = temp / "app/pelmora-hook";
        hookPath = hook.string();
        ::setenv("PELMORA_HOME", support.c_str(), 1);
        put(hook, "#!/bin/sh\n");
        fs::permissions(hook, fs::perms(0755));
    }
    void TearDown() override { shell("chattr -R -i " + quoted(temp)); }

    static void put(const fs::path& file, const std::string& text) {
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
    }
    static std::string get(const fs::path& file) { return Files::read(file).value_or("<none>"); }
    static std::vector<std::string> names(const fs::path& folder) {
        std::vector<std::string> found;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(folder, error)) {
            found.push_back(entry.path().filename());
        }
        std::sort(found.begin(), found.end());
        return found;
    }
    // The message of what `action` throws ("" for nothing).
    static std::string errorOf(const std::function<void()>& action) {
        try {
            action();
        } catch (const std::exception& error) {
            return error.what();
        }
        return "";
    }
    // Runs `command` through /bin/sh: its exit status; its output and errors in `output`.
    int shell(const std::string& command) {
        const int status = std::system((command + " >" + quoted(temp / "out") + " 2>&1").c_str());
        output = get(temp / "out");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    // What `expr` prints of `data`, the file as Python's strict json (or, for
    // .toml, tomllib) reads it; Debian's Python when there is one (shims are slow).
    std::string python(const fs::path& file, const std::string& expr) {
        put(temp / "check.py", "import sys, json, tomllib\ndata = " +
                                   std::string(file.extension() == ".toml" ? "tomllib" : "json") +
                                   ".load(open(sys.argv[1], 'rb'))\nprint(" + expr + ", end='')\n");
        shell(std::string(fs::exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3") + " " +
              quoted(temp / "check.py") + " " + quoted(file));
        return output;
    }

    TempHome tempHome;
    fs::path temp, home, support, hook;
    std::string hookPath, output;
};

} // namespace pelmora::testing
