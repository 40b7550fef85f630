#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>

// For the targets that go through real files: a scratch folder that lives as
// long as the fuzzer, and whole-file writes that stop the run when they fail
// (a write that silently failed would make every later check meaningless).
namespace pelmora::fuzz {

struct ScratchFolder {
    std::filesystem::path root;
    // A fresh folder in the temporary folder, with `folders` made inside it.
    // Files are rewritten for every input: TMPDIR on a memory file system
    // (/dev/shm) keeps that off the disk.
    ScratchFolder(std::string_view name, std::initializer_list<std::string_view> folders) {
        std::string pattern =
            (std::filesystem::temp_directory_path() / ("pelmora-" + std::string(name) + "-XXXXXX"))
                .string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::abort();
        }
        root = pattern;
        for (std::string_view folder : folders) {
            std::filesystem::create_directories(root / folder);
        }
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
};

inline void writeFile(const std::filesystem::path& file, std::string_view bytes) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out.good()) {
        std::abort();
    }
}

} // namespace pelmora::fuzz
