#include "support/Uuid.h"

#include <gtest/gtest.h>
#include <set>

namespace pelmora {
namespace {

TEST(Uuid, RandomVersionFourInUpperCase) {
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        std::string uuid = randomUUID();
        ASSERT_EQ(uuid.size(), 36u) << uuid;
        for (std::size_t at = 0; at < uuid.size(); ++at) {
            if (at == 8 || at == 13 || at == 18 || at == 23) {
                EXPECT_EQ(uuid[at], '-') << uuid;
            } else {
                EXPECT_TRUE(std::isdigit(uuid[at]) || (uuid[at] >= 'A' && uuid[at] <= 'F')) << uuid;
            }
        }
        EXPECT_EQ(uuid[14], '4') << uuid;
        EXPECT_NE(std::string("89AB").find(uuid[19]), std::string::npos) << uuid;
        seen.insert(uuid);
    }
    EXPECT_EQ(seen.size(), 100u);
}

} // namespace
} // namespace pelmora
