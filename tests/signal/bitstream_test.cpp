#include "signal/bitstream.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "signal_ref.h"

namespace {

std::vector<uchar> RandomBytes(std::mt19937& rng, size_t n) {
    std::vector<uchar> v(n);
    for (auto& b : v) b = static_cast<uchar>(rng());
    return v;
}

// Copies bits [from, from + n) of the circular stream src into a new pattern.
std::vector<uchar> CutPattern(const std::vector<uchar>& src, int len, int from, int n) {
    std::vector<uchar> p(static_cast<size_t>(n + 7) / 8 + 1, 0);
    for (int j = 0; j < n; j++)
        if (ref::Bit(src.data(), len, int64_t{from} + j)) BfSetBit(p.data(), n, j);
    return p;
}

TEST(BfGetLong, ReadsAcrossBothEnds) {
    // A 64-bit stream 0x0123456789ABCDEF.
    const std::vector<uchar> s = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    EXPECT_EQ(BfGetLong(s.data(), 64, 0), 0x01234567u);
    EXPECT_EQ(BfGetLong(s.data(), 64, 4), 0x12345678u);
    EXPECT_EQ(BfGetLong(s.data(), 64, 32), 0x89ABCDEFu);
    EXPECT_EQ(BfGetLong(s.data(), 64, 56), 0xEF012345u);  // last 8 bits, then the first 24
    // pos -1: the last bit (1) followed by the first 31 bits.
    EXPECT_EQ(BfGetLong(s.data(), 64, -1), 0x80000000u | (0x01234567u >> 1));
    EXPECT_EQ(BfGetLong(s.data(), 64, -64), 0x01234567u);
    EXPECT_EQ(BfGetLong(s.data(), 64, 64 + 32), 0x89ABCDEFu);
    // A 12-bit stream repeats inside one word.
    const std::vector<uchar> t = {0xAB, 0xC0};
    EXPECT_EQ(BfGetLong(t.data(), 12, 0), 0xABCABCABu);
    EXPECT_EQ(BfGetLong(t.data(), 12, 4), 0xBCABCABCu);
    // Bits of the last byte past the length are ignored.
    const std::vector<uchar> u = {0xAB, 0xCF};
    EXPECT_EQ(BfGetLong(u.data(), 12, 0), 0xABCABCABu);
}

TEST(BfGetLong, MatchesBitByBitReadOnRandomStreams) {
    std::mt19937 rng(1);
    for (int iter = 0; iter < 300; iter++) {
        const int len = 1 + static_cast<int>(rng() % 400);
        const auto s = RandomBytes(rng, static_cast<size_t>(len + 7) / 8);
        for (int k = 0; k < 40; k++) {
            const int pos = static_cast<int>(rng() % (3 * len + 80)) - len - 40;
            ASSERT_EQ(BfGetLong(s.data(), len, pos), ref::GetLong(s.data(), len, pos))
                << "len " << len << " pos " << pos;
        }
    }
}

TEST(BfFind, PinnedCases) {
    std::mt19937 rng(2);
    const int len = 1024;
    auto s = RandomBytes(rng, len / 8);
    // A 128-bit mark 40 bits before the end, continuing at bit 0.
    const auto mark = CutPattern(s, len, len - 40, 128);
    const int r = BfFind(s.data(), len, 900, 300, mark.data(), 128);
    EXPECT_EQ(r, len - 40 - 900);
    EXPECT_EQ(r, ref::Find(s.data(), len, 900, 300, mark.data(), 128));
    EXPECT_EQ(BfFind(s.data(), len, len - 40, 128, mark.data(), 128), 0);
    // The result is relative: a mark at bit 1000 searched from 900 is at 100.
    std::vector<uchar> big(256, 0);
    const std::vector<uchar> pat = {0x44, 0x89, 0x44, 0x89, 0x44, 0x89, 0x55, 0x54,
                                    0xA1, 0xA1, 0xA1, 0xFE, 0x12, 0x34, 0x56, 0x78};
    for (int j = 0; j < 128; j++)
        if ((pat[j / 8] >> (7 - j % 8)) & 1) BfSetBit(big.data(), 2048, 1000 + j);
    EXPECT_EQ(BfFind(big.data(), 2048, 900, 2048 - 900, pat.data(), 128), 100);
    EXPECT_EQ(BfFind(big.data(), 2048, 1001, 2048 - 1001, pat.data(), 128), -1);
    // Range smaller than the pattern.
    EXPECT_EQ(BfFind(big.data(), 2048, 1000, 127, pat.data(), 128), -1);
    EXPECT_EQ(BfFind(big.data(), 2048, 1000, 128, pat.data(), 128), 0);
    // The group quirk: range = patLen + 5 still returns a match at offset 20.
    EXPECT_EQ(BfFind(big.data(), 2048, 980, 128 + 5, pat.data(), 128), 20);
    EXPECT_EQ(BfFind(big.data(), 2048, 980, 128 + 5, pat.data(), 128),
              ref::Find(big.data(), 2048, 980, 128 + 5, pat.data(), 128));
    // A match 32 bits on belongs to the next group, whose base must be in range.
    EXPECT_EQ(BfFind(big.data(), 2048, 968, 128 + 31, pat.data(), 128), -1);
    EXPECT_EQ(BfFind(big.data(), 2048, 968, 128 + 32, pat.data(), 128), 32);
    // The 8-bit and bit paths have no quirk.
    EXPECT_EQ(BfFind(big.data(), 2048, 980, 120 + 5, pat.data(), 120), -1);
    EXPECT_EQ(BfFind(big.data(), 2048, 980, 120 + 20, pat.data(), 120), 20);
    EXPECT_EQ(BfFind(big.data(), 2048, 980, 121 + 19, pat.data(), 121), -1);
    EXPECT_EQ(BfFind(big.data(), 2048, 980, 121 + 20, pat.data(), 121), 20);
}

TEST(BfFind, MatchesLiteralSearchOnRandomInputs) {
    std::mt19937 rng(3);
    const int patLens[] = {1, 5, 8, 13, 16, 24, 31, 32, 40, 64, 96, 100, 128, 160, 200};
    for (int iter = 0; iter < 3000; iter++) {
        const int len = 1 + static_cast<int>(rng() % 700);
        // Low-entropy streams make partial matches common.
        std::vector<uchar> s(static_cast<size_t>(len + 7) / 8);
        const int kind = static_cast<int>(rng() % 3);
        for (auto& b : s)
            b = kind == 0 ? static_cast<uchar>(rng())
                          : (kind == 1 ? static_cast<uchar>((rng() % 4 == 0) ? rng() : 0x4E)
                                       : static_cast<uchar>(rng() & rng() & rng()));
        const int patLen = patLens[rng() % std::size(patLens)];
        std::vector<uchar> pat;
        if (rng() % 4 == 0) {
            pat = RandomBytes(rng, static_cast<size_t>(patLen + 7) / 8 + 1);
        } else {
            pat = CutPattern(s, len, static_cast<int>(rng() % static_cast<unsigned>(len)), patLen);
            if (rng() % 3 == 0) {
                const int j = static_cast<int>(rng() % static_cast<unsigned>(patLen));
                pat[j / 8] = static_cast<uchar>(pat[j / 8] ^ (0x80 >> (j % 8)));
            }
        }
        const int start = static_cast<int>(rng() % (2 * len + 10)) - len / 2;
        const int range = static_cast<int>(rng() % (2 * len + 2 * patLen + 64)) - 20;
        ASSERT_EQ(BfFind(s.data(), len, start, range, pat.data(), patLen),
                  ref::Find(s.data(), len, start, range, pat.data(), patLen))
            << "len " << len << " start " << start << " range " << range << " patLen " << patLen;
    }
}

}  // namespace
