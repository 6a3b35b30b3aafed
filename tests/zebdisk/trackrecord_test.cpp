// Track records: zeroed bytes of the asked size, moved without copying, equal by their bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "zebdisk/trackrecord.h"

namespace {

TEST(TrackRecord, ZeroedMovedAndEqualByBytes) {
    for (const size_t size : {size_t{0}, size_t{16}, size_t{1} << 21}) {
        TrackRecord r(size);
        EXPECT_EQ(r.size(), size);
        EXPECT_EQ(std::count(r.data(), r.data() + size, 0), static_cast<long>(size));
    }
    TrackRecord a(64), b(64), c(65);
    a.data()[63] = 7;
    EXPECT_FALSE(a == b);
    b.data()[63] = 7;
    EXPECT_TRUE(a == b && !(a == c));
    const uint8_t* bytes = a.data();
    c = std::move(a);
    EXPECT_EQ(c.data(), bytes);
    EXPECT_TRUE(a.empty() && TrackRecord().empty());  // NOLINT(bugprone-use-after-move)
    const TrackRecord moved(std::move(c));
    EXPECT_TRUE(moved.data() == bytes && c.empty() &&
                moved == b);  // NOLINT(bugprone-use-after-move)
}

}  // namespace
