#include "InstallDiff.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "Terminal.h"

namespace pelmora::cli {
namespace {

constexpr std::size_t context = 3;
// Past this many table cells the differing middle is shown as removed and
// added whole: still a correct diff, only a longer one.
constexpr std::size_t maxCells = 4'000'000;

// Each line keeps its line feed, so a last line without one differs from
// the same text with one, as diff sees it.
std::vector<std::string_view> lines(const std::optional<std::string>& text) {
    std::vector<std::string_view> out;
    std::string_view rest = text ? std::string_view(*text) : std::string_view();
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size() - 1) + 1;
        out.push_back(rest.substr(0, end));
        rest.remove_prefix(end);
    }
    return out;
}

enum class Op : char { same = ' ', removed = '-', added = '+' };

struct Edit {
    Op op;
    std::string_view line;
};

// The edits from `a` to `b`, removals before additions in each run of changes.
std::vector<Edit> edits(const std::vector<std::string_view>& a,
                        const std::vector<std::string_view>& b) {
    std::size_t head = 0;
    while (head < a.size() && head < b.size() && a[head] == b[head]) {
        ++head;
    }
    std::size_t tail = 0;
    while (tail < a.size() - head && tail < b.size() - head &&
           a[a.size() - 1 - tail] == b[b.size() - 1 - tail]) {
        ++tail;
    }
    const std::size_t n = a.size() - head - tail;
    const std::size_t m = b.size() - head - tail;

    std::vector<Edit> out;
    for (std::size_t i = 0; i < head; ++i) {
        out.push_back({Op::same, a[i]});
    }
    std::vector<Edit> removed;
    std::vector<Edit> added;
    auto flush = [&] {
        out.insert(out.end(), removed.begin(), removed.end());
        out.insert(out.end(), added.begin(), added.end());
        removed.clear();
        added.clear();
    };
    std::size_t i = 0;
    std::size_t j = 0;
    if ((n + 1) * (m + 1) <= maxCells) {
        // common[x * (m + 1) + y]: the longest common subsequence of the
        // middles of a and b from x and y on.
        std::vector<std::uint32_t> common((n + 1) * (m + 1), 0);
        auto at = [&](std::size_t x, std::size_t y) -> std::uint32_t& {
            return common[x * (m + 1) + y];
        };
        for (std::size_t x = n; x-- > 0;) {
            for (std::size_t y = m; y-- > 0;) {
                at(x, y) = a[head + x] == b[head + y] ? at(x + 1, y + 1) + 1
                                                      : std::max(at(x + 1, y), at(x, y + 1));
            }
        }
        while (i < n && j < m) {
            if (a[head + i] == b[head + j]) {
                flush();
                out.push_back({Op::same, a[head + i]});
                ++i;
                ++j;
            } else if (at(i + 1, j) >= at(i, j + 1)) {
                removed.push_back({Op::removed, a[head + i++]});
            } else {
                added.push_back({Op::added, b[head + j++]});
            }
        }
    }
    for (; i < n; ++i) {
        removed.push_back({Op::removed, a[head + i]});
    }
    for (; j < m; ++j) {
        added.push_back({Op::added, b[head + j]});
    }
    flush();
    for (std::size_t k = a.size() - tail; k < a.size(); ++k) {
        out.push_back({Op::same, a[k]});
    }
    return out;
}

// A range as diff writes it: "start,count", just "start" for one line, and
// for none the line before the place.
std::string range(std::size_t first, std::size_t count) {
    const std::size_t start = count == 0 ? first : first + 1;
    return count == 1 ? std::to_string(start) : std::to_string(start) + "," + std::to_string(count);
}

// The file's text on a terminal: printable, but with its tabs.
std::string shown(std::string_view line) {
    std::string out;
    for (std::size_t tab; (tab = line.find('\t')) != std::string_view::npos;) {
        out += printable(line.substr(0, tab)) + "\t";
        line.remove_prefix(tab + 1);
    }
    return out + printable(line);
}

} // namespace

std::string unifiedDiff(const FileEdit& change) {
    if (!change.changes()) {
        return {};
    }
    const std::vector<Edit> all = edits(lines(change.before), lines(change.after));
    const std::string name = shown(change.file.native());
    std::string out = "--- " + (change.before ? name : "/dev/null") + "\n";
    out += "+++ " + (change.after ? name : "/dev/null") + "\n";

    std::size_t oldLine = 0; // lines of each text before edit `at`
    std::size_t newLine = 0;
    std::size_t at = 0;
    while (at < all.size()) {
        const auto firstChange =
            std::find_if(all.begin() + static_cast<std::ptrdiff_t>(at), all.end(),
                         [](const Edit& e) { return e.op != Op::same; });
        if (firstChange == all.end()) {
            break;
        }
        const std::size_t changeAt = static_cast<std::size_t>(firstChange - all.begin());
        const std::size_t begin = changeAt - std::min(context, changeAt - at);
        for (; at < begin; ++at) {
            ++oldLine;
            ++newLine;
        }
        // The hunk runs on while the next change is within twice the
        // context, so that contexts never overlap.
        std::size_t end = changeAt + 1;
        for (std::size_t k = end, unchanged = 0; k < all.size() && unchanged <= 2 * context; ++k) {
            unchanged = all[k].op == Op::same ? unchanged + 1 : 0;
            if (all[k].op != Op::same) {
                end = k + 1;
            }
        }
        end = std::min(all.size(), end + context);

        std::string body;
        std::size_t oldCount = 0;
        std::size_t newCount = 0;
        for (std::size_t k = begin; k < end; ++k) {
            const Edit& edit = all[k];
            oldCount += edit.op != Op::added ? 1 : 0;
            newCount += edit.op != Op::removed ? 1 : 0;
            const bool feed = edit.line.ends_with('\n');
            body += static_cast<char>(edit.op) +
                    shown(edit.line.substr(0, edit.line.size() - (feed ? 1 : 0))) + "\n";
            if (!feed) {
                body += "\\ No newline at end of file\n";
            }
        }
        out += "@@ -" + range(oldLine, oldCount) + " +" + range(newLine, newCount) + " @@\n";
        out += body;
        oldLine += oldCount;
        newLine += newCount;
        at = end;
    }
    return out;
}

} // namespace pelmora::cli
