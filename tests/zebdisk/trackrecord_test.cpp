// Track records: zeroed bytes of the asked size, moved without copying, equal
// by their bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "zebdisk/trackrecord.h"

namespace {

TEST(TrackRecord, NewRecordsAreZeroWhateverTheirSize) {
    for (const size_t size : {size_t{16}, size_t{32768}, size_t{262144}, size_t{1} << 21}) {
        TrackRecord r(size);
        ASSERT_EQ(r.size(), size);
        EXPECT_TRUE(std::all_of(r.data(), r.data() + size, [](uint8_t b) { return b == 0; }))
            << size;
    }
    EXPECT_TRUE(TrackRecord().empty());
    EXPECT_TRUE(TrackRecord(0).empty());
}

TEST(TrackRecord, MovedRecordLeavesAnEmptySlotAndEqualityIsByBytes) {
    TrackRecord a(64), b(64), c(65);
    a.data()[63] = 7;
    EXPECT_FALSE(a == b);
    b.data()[63] = 7;
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a == c);
    const uint8_t* bytes = a.data();
    TrackRecord moved(std::move(a));
    EXPECT_EQ(moved.data(), bytes);
    EXPECT_TRUE(a.empty());  // NOLINT(bugprone-use-after-move): the slot reads as empty
    c = std::move(moved);
    EXPECT_TRUE(moved.empty());  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(c.size(), 64u);
    EXPECT_TRUE(c == b);
}

}  // namespace
