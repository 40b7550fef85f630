// Another project's program, built against the installed PelmoraCore: its
// headers by folder, and code from the libraries that link PCRE2 and utf8proc.
#include <cstdio>
#include <optional>
#include <string>

#include "hook/Source.h"
#include "json/OrderedJSON.h"
#include "session/Redactor.h"
#include "support/Text.h"

int main() {
    using namespace pelmora;
    const std::string source(rawValue(Source::codex));
    const std::string json =
        OrderedJSON::serializeCompact(OrderedJSON::parse(R"({"b": 1, "a": [true]})"));
    const std::string line = Redactor::redact("git push\norigin main", std::nullopt);
    std::printf("%s %s %zu %s\n", source.c_str(), json.c_str(), Text::characterCount("e\u0301"),
                line.c_str());
}
