#include "activity/BuildLogs.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "hook/PelmoraPaths.h"

namespace pelmora::BuildLogs {

namespace {

constexpr double distantPast = -std::numeric_limits<double>::max();

double modificationTime(const std::filesystem::directory_entry& entry) {
    std::error_code error;
    const auto time = entry.last_write_time(error);
    if (error) {
        return distantPast;
    }
    const auto system = std::chrono::file_clock::to_sys(time);
    return std::chrono::duration<double>(system.time_since_epoch()).count();
}

} // namespace

std::filesystem::path directory() {
    return PelmoraPaths::logsDirectory();
}

std::filesystem::path logURL(std::string_view id) {
    return directory() / (std::string(id) + ".log");
}

void prune(std::int64_t days, std::int64_t maxFiles, double now) {
    prune(directory(), days, maxFiles, now);
}

void prune(const std::filesystem::path& folder, std::int64_t days, std::int64_t maxFiles,
           double now) {
    std::vector<std::pair<std::filesystem::path, double>> logs;
    std::error_code error;
    // A listing that fails part-way keeps what it had read.
    for (std::filesystem::directory_iterator entry(folder, error);
         !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (entry->path().extension() == ".log") {
            logs.emplace_back(entry->path(), modificationTime(*entry));
        }
    }
    std::stable_sort(logs.begin(), logs.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });

    const double cutoff = now - static_cast<double>(days) * 86'400;
    for (std::size_t position = 0; position < logs.size(); ++position) {
        const bool beyondCount = maxFiles < 0 || position >= static_cast<std::uint64_t>(maxFiles);
        if (beyondCount || logs[position].second < cutoff) {
            std::filesystem::remove(logs[position].first, error);
        }
    }
}

} // namespace pelmora::BuildLogs
