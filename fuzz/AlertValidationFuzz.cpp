// Alert links come from web pages and scripts, arguments from any shell
// line: whatever the bytes, validation must not crash, must say why it
// refuses in one of its own sentences, and what it accepts must keep every
// limit and travel over the wire unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <vector>

#include "alert/AlertValidation.h"
#include "json/OrderedJSON.h"
#include "support/Text.h"

namespace {

using namespace pelmora;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

bool isUnder(std::string_view path, std::string_view folder) {
    return path == folder || (path.starts_with(folder) && path[folder.size()] == '/');
}

void check(const AlertValidation::Result& result) {
    if (const auto* rejection = std::get_if<AlertRejection>(&result)) {
        constexpr std::string_view beginnings[] = {"not a pelmora://alert link",
                                                   "unknown parameter",
                                                   "unexpected argument",
                                                   "unknown option --",
                                                   "title is required (1 to",
                                                   "title is longer than",
                                                   "body is longer than",
                                                   "id must be 1 to",
                                                   "ttl must be 0 to",
                                                   "level must be info, action or fail",
                                                   "open must be an absolute path",
                                                   "open must be under your home folder or /tmp",
                                                   "open must not contain ..",
                                                   "open must be a local path, not a URL",
                                                   "open is not a local file URL"};
        bool known = false;
        for (const std::string_view beginning : beginnings) {
            known = known || rejection->description.starts_with(beginning);
        }
        require(known && Text::isValidUTF8(rejection->description));
        return;
    }
    const AlertRequest& request = std::get<AlertRequest>(result);
    const std::size_t titleLength = Text::characterCount(request.title);
    require(titleLength >= 1 && titleLength <= AlertValidation::maxTitle);
    require(Text::characterCount(request.body) <= AlertValidation::maxBody);
    require(Text::isValidUTF8(request.title) && Text::isValidUTF8(request.body));
    require(request.ttl >= 0 && request.ttl <= AlertValidation::maxTTL);
    if (request.id) {
        require(!request.id->empty() && request.id->size() <= AlertValidation::maxID &&
                request.id->find_first_not_of(AlertValidation::idCharacters) == std::string::npos);
    }
    if (request.open) {
        // Checked with the standard library's path handling, not the validator's own.
        const std::filesystem::path open(*request.open);
        require(Text::isValidUTF8(*request.open) && open.is_absolute());
        for (const std::filesystem::path& part : open) {
            require(part != "..");
        }
        const std::string normal = open.lexically_normal().string();
        require(isUnder(normal, "/Users/ann") || isUnder(normal, "/tmp"));
    }
    const auto again =
        AlertRequest::fromJSON(OrderedJSON::parse(OrderedJSON::serializeCompact(request.toJSON())));
    require(again && *again == request);
}

} // namespace

// The first byte chooses: even, the rest is a link; odd, the rest is a
// command line whose arguments are separated by NUL bytes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] % 2 == 0) {
        check(AlertValidation::fromLink(input, "/Users/ann"));
        return 0;
    }
    std::vector<std::string_view> arguments;
    for (std::size_t start = 0; start <= input.size();) {
        const std::size_t end = std::min(input.find('\0', start), input.size());
        arguments.push_back(input.substr(start, end - start));
        start = end + 1;
    }
    check(AlertValidation::fromArguments(arguments, "/Users/ann"));
    return 0;
}
