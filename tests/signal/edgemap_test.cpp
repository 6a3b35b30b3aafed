#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "signal/edgemap.h"
#include "signal/posmap.h"
#include "signal/rawconv.h"

namespace {

// Raw tracks as Encode2Raw writes them from cells 2 to 4 apart, then with
// pulses moved by a few samples and stray pulses added.
std::vector<uchar> NoisyTrack(std::mt19937& rng, int cells) {
    std::vector<uchar> enc(static_cast<size_t>(cells + 7) / 8), raw(static_cast<size_t>(cells) + 1);
    for (int c = static_cast<int>(rng() % 4); c < cells; c += 2 + static_cast<int>(rng() % 3))
        enc[static_cast<size_t>(c / 8)] |= static_cast<uchar>(0x80 >> (c % 8));
    Encode2Raw(enc.data(), cells, raw.data(), cells * 8);
    for (size_t i = 1; i < static_cast<size_t>(cells); i++) {
        const unsigned r = rng() % 16;
        if (r < 3 && raw[i] == 0xE0) raw[i] >>= 1 + r;  // late
        if (r == 3 && raw[i] == 0xE0) {                 // one sample early
            raw[i] = 0xC0;
            raw[i - 1] |= 1;
        }
        if (r == 15) raw[i] |= static_cast<uchar>(rng());
    }
    return raw;
}

TEST(RawEdgeMap, AnswersAsASecondScanWould) {
    std::mt19937 rng(11);
    int placedAtMinusOne = 0;
    for (int iter = 0; iter < 300; iter++) {
        const int cells = 40 + static_cast<int>(rng() % 3000);
        std::vector<uchar> raw = NoisyTrack(rng, cells);
        std::vector<uchar> enc(static_cast<size_t>(cells) + 64), enc2(enc.size());
        RawEdgeMap map;
        const int n = Raw2EncodeMapped(raw.data(), cells * 8, enc.data(), cells + 40, &map);
        ASSERT_EQ(n, Raw2Encode(raw.data(), cells * 8, enc2.data(), cells + 40));
        ASSERT_EQ(enc, enc2);
        // Cells anywhere, some beyond the revolution; and one that the first
        // treated edge places at sample -1, so it is placed again at the next.
        std::vector<int> pos(static_cast<size_t>(rng() % 12));
        for (int& p : pos) p = static_cast<int>(rng() % static_cast<unsigned>(n + 60)) - 30;
        const RawEdge r = map.edges.at(0);
        if ((r.sample + 1) % 8 == 0) {
            pos.push_back(static_cast<int>(r.cell - (r.sample + 1) / 8));
            placedAtMinusOne++;
        }
        std::shuffle(pos.begin(), pos.end(), rng);
        std::vector<int> want = pos, got = pos;
        const int count = static_cast<int>(pos.size());
        ASSERT_EQ(RawEdgePosMulti(map, got.data(), count),
                  Enc2RawPosMulti(raw.data(), cells * 8, want.data(), count));
        ASSERT_EQ(got, want) << "iteration " << iter;
    }
    EXPECT_GT(placedAtMinusOne, 10);

    // No edge at all: nothing is mapped and the positions stay as they were.
    std::vector<uchar> flat(64), enc(64);
    RawEdgeMap map;
    EXPECT_EQ(Raw2EncodeMapped(flat.data(), 512, enc.data(), 512, &map), 64);
    std::vector<int> pos = {3, 7};
    EXPECT_EQ(RawEdgePosMulti(map, pos.data(), 2), 0);
    EXPECT_EQ(pos, (std::vector<int>{3, 7}));
}

}  // namespace
