#include "support/JsonText.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace pelmora {
namespace {

// Quoting is pinned byte for byte through both JSON writers.
TEST(JsonTextKeyLess, OrdersKeysAsThePlatformSerialiserDoes) {
    const std::pair<std::string_view, std::string_view> ordered[] = {
        {"behavior", "interrupt"},
        {"interrupt", "message"},
        {"decision", "hookEventName"},
        {"a2", "a10"},
        {"alpha", "Zeta"},
        {"a", "a2"},
        {"", "a"},
        {"file9.txt", "file10.txt"},
        {"v1.9", "v1.10"},
        {"x99999999999999999999999", "x100000000000000000000000"},
        {"_id", "alpha"},
        {"Zeta", "\xC3\xA9t\xC3\xA9"},
        // Equal under the loose rules: byte order decides.
        {"A", "a"},
        {"a01", "a1"},
        {"Key", "key"},
    };
    for (const auto& [less, more] : ordered) {
        EXPECT_TRUE(JsonText::keyLess(less, more)) << less << " < " << more;
        EXPECT_FALSE(JsonText::keyLess(more, less)) << more << " < " << less;
    }
    EXPECT_FALSE(JsonText::keyLess("same", "same"));

    std::vector<std::string> keys = {"b10", "B2", "a", "A", "b2", "", "_", "a0", "a00", "b1"};
    std::sort(keys.begin(), keys.end(),
              [](const std::string& a, const std::string& b) { return JsonText::keyLess(a, b); });
    EXPECT_EQ(keys,
              (std::vector<std::string>{"", "_", "A", "a", "a0", "a00", "b1", "B2", "b2", "b10"}));
}

} // namespace
} // namespace pelmora
