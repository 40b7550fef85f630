#include "alert/AlertValidation.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "support/Ascii.h"
#include "support/Integers.h"
#include "support/Scanner.h"
#include "support/Text.h"

namespace pelmora::AlertValidation {
namespace {

AlertRejection reject(std::string description) {
    return {std::move(description)};
}

// The JSON line to the app must be UTF-8, whatever bytes came in.
std::string repairedUTF8(std::string_view text) {
    if (Text::isValidUTF8(text)) {
        return std::string(text);
    }
    std::string repaired;
    for (const char32_t scalar : Text::scalars(text)) {
        Text::appendUTF8(repaired, scalar);
    }
    return repaired;
}

// A name the user typed, quoted in a rejection; kept short so that a stray
// megabyte does not become the message.
std::string inQuotes(std::string_view text) {
    constexpr std::size_t shown = 32;
    const std::string repaired = repairedUTF8(text);
    std::string out = "\"";
    out += Text::prefixCharacters(repaired, shown);
    out += Text::characterCount(repaired) > shown ? "…\"" : "\"";
    return out;
}

bool equalsIgnoringCase(std::string_view text, std::string_view lower) {
    if (text.size() != lower.size()) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (Ascii::toLower(text[i]) != lower[i]) {
            return false;
        }
    }
    return true;
}

// RFC 3986 percent-decoding; none for a "%" without two hexadecimal digits.
std::optional<std::string> percentDecoded(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        if (i + 2 >= text.size()) {
            return std::nullopt;
        }
        const int high = Ascii::hexValue(text[i + 1]);
        const int low = Ascii::hexValue(text[i + 2]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return out;
}

// "scheme:" as URLs begin, ^[A-Za-z][A-Za-z0-9+.-]*: ; gives the scheme.
std::optional<std::string_view> urlScheme(std::string_view text) {
    Scanner in(text);
    if (!in.consumeIf(Ascii::isAlpha)) {
        return std::nullopt;
    }
    in.skipWhile([](char c) { return Ascii::isAlnum(c) || c == '+' || c == '.' || c == '-'; });
    if (!in.consume(':')) {
        return std::nullopt;
    }
    return text.substr(0, in.position() - 1);
}

// The path of "file:///p", "file://localhost/p" or "file:/p", decoded.
std::optional<std::string> fileURLPath(std::string_view url) {
    Scanner in(url);
    in.skip(std::string_view("file:").size());
    if (in.consume("//")) {
        const std::string_view host = in.takeUntil('/');
        if (!host.empty() && !equalsIgnoringCase(host, "localhost")) {
            return std::nullopt;
        }
    }
    const std::string_view path = in.rest();
    if (!path.starts_with('/') || path.find_first_of("?#") != std::string_view::npos) {
        return std::nullopt;
    }
    return percentDecoded(path);
}

// Path components, without the empty ones and "." (which change nothing).
std::vector<std::string_view> components(std::string_view path) {
    std::vector<std::string_view> parts;
    Scanner in(path);
    while (!in.atEnd()) {
        const std::string_view part = in.takeUntil('/');
        in.consume('/');
        if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
    }
    return parts;
}

bool isUnder(const std::vector<std::string_view>& path, std::string_view folder) {
    const std::vector<std::string_view> base = components(folder);
    // A home folder that is unknown must not let everything through.
    return !base.empty() && base.size() <= path.size() &&
           std::equal(base.begin(), base.end(), path.begin());
}

std::variant<std::string, AlertRejection> openPath(std::string_view open,
                                                   const std::filesystem::path& home) {
    std::string path = repairedUTF8(open);
    if (const auto scheme = urlScheme(open)) {
        if (!equalsIgnoringCase(*scheme, "file")) {
            return reject("open must be a local path, not a URL");
        }
        std::optional<std::string> decoded = fileURLPath(open);
        if (!decoded) {
            return reject("open is not a local file URL");
        }
        path = repairedUTF8(*decoded);
    }
    if (!path.starts_with('/') || path.find('\0') != std::string::npos) {
        return reject("open must be an absolute path");
    }
    const std::vector<std::string_view> parts = components(path);
    if (std::find(parts.begin(), parts.end(), "..") != parts.end()) {
        return reject("open must not contain ..");
    }
    if (!isUnder(parts, home.native()) && !isUnder(parts, "/tmp")) {
        return reject("open must be under your home folder or /tmp");
    }
    return path;
}

bool isValidID(std::string_view id) {
    return !id.empty() && id.size() <= maxID &&
           id.find_first_not_of(idCharacters) == std::string_view::npos;
}

std::optional<std::string>* fieldNamed(Fields& fields, std::string_view name) {
    const std::pair<std::string_view, std::optional<std::string>*> named[] = {
        {"title", &fields.title}, {"body", &fields.body}, {"level", &fields.level},
        {"open", &fields.open},   {"id", &fields.id},     {"ttl", &fields.ttl},
    };
    for (const auto& [fieldName, field] : named) {
        if (fieldName == name) {
            return field;
        }
    }
    return nullptr;
}

} // namespace

Result validate(const Fields& fields, const std::filesystem::path& home) {
    AlertRequest request;

    request.title = Text::trimWhitespaceAndNewlines(repairedUTF8(fields.title.value_or("")));
    const std::size_t titleLength = Text::characterCount(request.title);
    if (titleLength == 0) {
        return reject("title is required (1 to " + std::to_string(maxTitle) + " characters)");
    }
    if (titleLength > maxTitle) {
        return reject("title is longer than " + std::to_string(maxTitle) + " characters");
    }

    request.body = Text::trimWhitespaceAndNewlines(repairedUTF8(fields.body.value_or("")));
    if (Text::characterCount(request.body) > maxBody) {
        return reject("body is longer than " + std::to_string(maxBody) + " characters");
    }

    if (fields.level) {
        const std::optional<AlertLevel> level = fromRaw<AlertLevel>(*fields.level);
        if (!level) {
            return reject("level must be info, action or fail");
        }
        request.level = *level;
    }

    if (fields.open) {
        auto path = openPath(*fields.open, home);
        if (auto* rejection = std::get_if<AlertRejection>(&path)) {
            return std::move(*rejection);
        }
        request.open = std::move(std::get<std::string>(path));
    }

    if (fields.id) {
        if (!isValidID(*fields.id)) {
            return reject("id must be 1 to " + std::to_string(maxID) +
                          " letters, digits or . _ : -");
        }
        request.id = *fields.id;
    }

    request.ttl = defaultTTL(request.level);
    if (fields.ttl) {
        const std::optional<std::int64_t> ttl = parseInteger<std::int64_t>(*fields.ttl);
        if (!ttl || *ttl < 0 || *ttl > maxTTL) {
            return reject("ttl must be 0 to " + std::to_string(maxTTL) + " seconds");
        }
        request.ttl = static_cast<int>(*ttl);
    }
    return request;
}

Result fromLink(std::string_view link, const std::filesystem::path& home) {
    const AlertRejection notALink = reject("not a pelmora://alert link");
    constexpr std::string_view start = "pelmora://alert";
    if (link.size() < start.size() || !equalsIgnoringCase(link.substr(0, start.size()), start)) {
        return notALink;
    }
    Scanner in(link.substr(start.size()));
    in.consume('/');
    if (!in.atEnd() && in.peek() != '?' && in.peek() != '#') {
        return notALink;
    }
    in.consume('?');
    const std::string_view query = in.takeUntil('#');

    Fields fields;
    Scanner pairs(query);
    while (!pairs.atEnd()) {
        const std::string_view pair = pairs.takeUntil('&');
        pairs.consume('&');
        if (pair.empty()) {
            continue;
        }
        Scanner pieces(pair);
        const std::optional<std::string> name = percentDecoded(pieces.takeUntil('='));
        pieces.consume('=');
        std::optional<std::string> value = percentDecoded(pieces.rest());
        if (!name || !value) {
            return notALink;
        }
        std::optional<std::string>* field = fieldNamed(fields, *name);
        if (!field) {
            return reject("unknown parameter " + inQuotes(*name));
        }
        *field = std::move(*value);
    }
    return validate(fields, home);
}

Result fromArguments(std::span<const std::string_view> arguments,
                     const std::filesystem::path& home) {
    Fields fields;
    std::size_t plain = 0;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        if (!optionsEnded && argument == "--") {
            optionsEnded = true;
            continue;
        }
        if (!optionsEnded && argument.starts_with("--")) {
            Scanner option(argument.substr(2));
            const std::string_view name = option.takeUntil('=');
            std::optional<std::string>* field = fieldNamed(fields, name);
            if (!field) {
                return reject("unknown option --" + repairedUTF8(Text::prefixCharacters(name, 32)));
            }
            if (option.consume('=')) {
                *field = std::string(option.rest());
            } else {
                *field = std::string(i + 1 < arguments.size() ? arguments[++i] : "");
            }
            continue;
        }
        if (plain == 2) {
            return reject("unexpected argument " + inQuotes(argument));
        }
        (plain++ == 0 ? fields.title : fields.body) = std::string(argument);
    }
    return validate(fields, home);
}

} // namespace pelmora::AlertValidation
