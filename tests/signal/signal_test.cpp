// Random inputs against slow bit-by-bit versions (ref), and hand-worked tables.
#include <gtest/gtest.h>

#include <random>
#include <tuple>
#include <vector>

#include "signal/alignraw.h"
#include "signal/bitstream.h"
#include "signal/edgemap.h"
#include "signal/posmap.h"
#include "signal/rawconv.h"
#include "signal/vfo.h"

namespace {

using Ints = std::vector<int>;
using Bytes = std::vector<uchar>;

namespace ref {

void Put8(uchar* b, int len, int64_t q, unsigned pattern) {
    for (int i = 0; i < 8; i++)
        (pattern >> (7 - i)) & 1 ? BfSetBit(b, len, q + i) : BfClrBit(b, len, q + i);
}
bool Rising(const uchar* raw, int len, int64_t x) {
    return BfGetBit(raw, len, x) && !BfGetBit(raw, len, x - 1);
}

// Multiples of 32 try whole groups of 32 offsets while the group's base is in range.
int Find(const uchar* b, int len, int start, int range, const uchar* pat, int patLen) {
    const int group = patLen % 32 ? 1 : 32;
    for (int64_t g = start; g <= int64_t{start} + range - patLen; g += group)
        for (int64_t a = g; a < g + group; a++) {
            int j = 0;
            while (j < patLen && BfGetBit(b, len, a + j) == BfGetBit(pat, patLen, j)) j++;
            if (j == patLen) return static_cast<int>(a - start);
        }
    return -1;
}

// Raw2Encode, Enc2RawPosMulti and AlignRaw side by side, a sample at a time. Words
// of 32 samples run from the first byte boundary at or after the first edge; the
// end is tested after each treated edge and at word boundaries, so the first edge
// met again is treated once; the mapping stops at a word boundary once complete.
std::tuple<int, Bytes, Ints, int, Bytes> Scan(const uchar* raw, int len, int cap, const Ints& in) {
    Bytes enc(static_cast<size_t>(cap + 7) / 8), aligned(raw, raw + (len + 7) / 8);
    Ints pos(in.size(), -1);
    int64_t first = 0;
    while (first < len && !Rising(raw, len, first)) first++;
    if (first == len) return {len / 8, enc, in, 0, aligned};
    VFOState v;
    VFO_Init(&v);
    int64_t p = first / 8, x = (first + 7) / 8 * 8, d = x - first, o = d;
    int placed = 0;
    bool mapping = !in.empty(), past = false;
    BfSetBit(enc.data(), cap, p);
    for (; o < len; mapping = mapping && placed < static_cast<int>(in.size()))
        for (int i = 0; i < 32 && !past; i++, x++, d++) {
            o = x + 1 - first;
            if (!Rising(raw, len, x) || d == 0) continue;
            VFO_Update(&v, static_cast<int>(d));
            if (v.valid && v.cells == 1) BfClrBit(enc.data(), cap, p);  // moved onto the next
            p += v.cells;
            if (v.valid) BfSetBit(enc.data(), cap, p);
            for (size_t j = 0; mapping && j < in.size(); j++)
                if (pos[j] == -1 && in[j] <= p)
                    pos[j] = static_cast<int>(x - (p - in[j]) * 8), placed++;
            if (v.cells * 8 > d) Put8(aligned.data(), len, x, 0x70);
            if (v.cells * 8 < d) Put8(aligned.data(), len, x - 1, 0xE0);
            d = 0, past = o >= len;
        }
    VFO_Update(&v, static_cast<int>(d - (o - len)));  // the closing interval
    const int64_t n = p - first / 8 + v.cells;
    if (n <= p && n > 0) BfSetBit(enc.data(), cap, p % n);
    return {static_cast<int>(n), enc, pos, placed, aligned};
}

// A pulse for each rising edge at its sample scaled to newLen (StrechRaw), or for
// each 1 cell at 8 samples a cell (Encode2Raw).
Bytes Pulses(const uchar* b, int len, int newLen, bool cells) {
    Bytes out(static_cast<size_t>(newLen + 7) / 8, 0);
    for (int64_t i = 0; i < len; i++)
        if (cells ? BfGetBit(b, len, i) : Rising(b, len, i))
            Put8(out.data(), newLen, cells ? 8 * i : i * newLen / len, 0xE0);
    return out;
}

}  // namespace ref

Bytes Track(int len, const Ints& edges, int width = 1) {
    Bytes t(static_cast<size_t>(len + 7) / 8, 0);
    for (int e : edges)
        for (int i = 0; i < width; i++) BfSetBit(t.data(), len, e + i);
    return t;
}

Ints SetBits(const Bytes& b, int n) {
    Ints out;
    for (int i = 0; i < n; i++)
        if (BfGetBit(b.data(), n, i)) out.push_back(i);
    return out;
}

int R(std::mt19937& rng, int n) {
    return static_cast<int>(rng() % static_cast<unsigned>(n));
}

// Dense noise; pulses 1-3 samples wide 2-4 cells apart; sync runs locking the
// loop (kind 3 drifting far off 8 samples a cell); sparse pulses; junk past the end.
Bytes RandomRaw(std::mt19937& rng, int len) {
    Bytes t(static_cast<size_t>(len + 7) / 8);
    const int kind = R(rng, 5);
    for (int64_t p = R(rng, 40), n = 0, base = 16; p < len; n++) {
        for (int w = 1 + R(rng, 3); w-- > 0;) BfSetBit(t.data(), len, p + w);
        if (kind == 3 && n % 12 == 11 && base < 70) base++;
        p += kind == 0   ? 1 + R(rng, 6)
             : kind == 1 ? 8 * (2 + R(rng, 3)) + R(rng, 7) - 3
             : kind == 4 ? 1 + R(rng, 600)
                         : ((n / 60) % 3 == 2 ? 2 : 1) * base + R(rng, 5) - 2;
    }
    if (len % 8) t.back() |= static_cast<uchar>(0xFF >> (len % 8));
    return t;
}

TEST(BfFind, PinnedSearches) {
    // A 128-bit mark at 1000 and at 2008 (wrapping). {start, range, patLen, result}; rows 7-9:
    // a match past the last candidate counts while its group's base is in range; rows 10-13 not.
    const Bytes mark = {0x44, 0x89, 0x44, 0x89, 0x44, 0x89, 0x55, 0x54,
                        0xA1, 0xA1, 0xA1, 0xFE, 0x12, 0x34, 0x56, 0x78};
    Bytes s(256, 0);
    for (int j = 0; j < 16; j++) s[125 + j] = s[(251 + j) % 256] = mark[j];
    const int cases[][4] = {
        {900, 1148, 128, 100}, {1001, 1047, 128, -1}, {1000, 127, 128, -1}, {1000, 128, 128, 0},
        {1900, 300, 128, 108}, {2008, 128, 128, 0},   {980, 133, 128, 20},  {968, 159, 128, -1},
        {968, 160, 128, 32},   {980, 125, 120, -1},   {980, 140, 120, 20},  {980, 140, 121, -1},
        {980, 141, 121, 20},
    };
    for (const auto& c : cases)
        EXPECT_EQ(BfFind(s.data(), 2048, c[0], c[1], mark.data(), c[2]), c[3]) << c[0];
}

TEST(Bitstream, MatchesLiteralReadsOnRandomStreams) {
    std::mt19937 rng(3);
    const int patLens[] = {1, 5, 8, 13, 16, 24, 31, 32, 40, 64, 96, 100, 128, 160, 200};
    for (int iter = 0; iter < 3000; iter++) {
        const int len = 1 + R(rng, 700), patLen = patLens[R(rng, 15)];
        const bool lowEntropy = R(rng, 2);  // makes near matches common
        Bytes s(static_cast<size_t>(len + 7) / 8), pat(static_cast<size_t>(patLen + 7) / 8);
        for (auto& b : s) b = static_cast<uchar>(lowEntropy && rng() % 4 ? 0x4E : rng());
        const int from = R(rng, len), start = R(rng, 2 * len + 10) - len / 2;
        uint32_t word = 0;
        for (int j = 0; j < 32; j++) word = (word << 1) | BfGetBit(s.data(), len, start + j);
        ASSERT_EQ(BfGetLong(s.data(), len, start), word) << len << " " << start;
        for (int j = 0; j < patLen; j++)
            if (BfGetBit(s.data(), len, from + j)) BfSetBit(pat.data(), patLen, j);
        if (R(rng, 3) == 0) pat[static_cast<size_t>(R(rng, static_cast<int>(pat.size())))] ^= 0x11;
        const int range = R(rng, 2 * len + 2 * patLen + 64) - 20;
        ASSERT_EQ(BfFind(s.data(), len, start, range, pat.data(), patLen),
                  ref::Find(s.data(), len, start, range, pat.data(), patLen))
            << "len " << len << " start " << start << " range " << range << " patLen " << patLen;
    }
}

VFOState Fed(int d, int n, const Ints& tail) {
    VFOState v;
    VFO_Init(&v);
    for (int i = 0; i < n; i++) VFO_Update(&v, d);
    for (int t : tail) VFO_Update(&v, t);
    return v;
}

TEST(VFO, RoundsLocksAndCorrectsThePeriod) {
    const int bands[][4] = {
        // {previous interval (0: none), interval, cells, valid}
        {0, 19, 2, 1},  {20, 19, 2, 1}, {20, 20, 3, 1}, {30, 20, 2, 1},  {0, 12, 2, 1},
        {13, 12, 1, 1}, {0, 28, 4, 1},  {30, 28, 3, 1}, {0, 39, 5, 1},   {0, 40, 5, 0},
        {0, 8, 1, 0},   {0, 9, 1, 1},   {9, 4, 0, 0},   {0, 507, 63, 0}, {600, 509, 64, 0},
    };
    for (const auto& c : bands) {
        const VFOState v = Fed(c[0], c[0] ? 1 : 0, {c[1]});
        EXPECT_EQ((Ints{v.cells, v.valid}), (Ints{c[2], c[3]})) << c[0] << " " << c[1];
    }
    // {d, n, tail, {cells, locked, period, centres, history}}: the 32nd interval only
    // locks; a 0-cell spike keeps the run and its 6553 x error wraps at 32 bits.
    using Row = std::tuple<int, int, int32_t, Ints, uint64_t>;
    const Ints c0 = {16, 24, 32};
    const uint64_t two = 0x5555555555555555, four = 0x1111111111111111;
    // clang-format off
    const std::tuple<int, int, Ints, Row> cases[] = {
        {16, 31, {}, {2, 0, 0x80000, c0, two >> 2}},          {16, 31, {17}, {2, 1, 0x80000, c0, two}},
        {16, 32, {17}, {2, 1, 0x80CCC, c0, two}},             {16, 32, {15}, {2, 1, 0x80000 - 3277, c0, two}},
        {16, 32, {17, 24}, {3, 0, 0x80CCC, c0, two << 3 | 1}}, {32, 16, {}, {4, 1, 0x80000, c0, four}},
        {32, 16, {33}, {4, 1, 0x80000 + 1638, c0, four}},     {32, 16, {31}, {4, 1, 0x80000 - 1639, c0, four}},
        {16, 32, {2}, {0, 1, 0x80000 + 19665, {17, 25, 33}, two}},
        {16, 32, {508}, {64, 0, 0x80000, c0, 0}},             {600, 1, {508}, {63, 0, 0x80000, c0, 1}},
    };
    // clang-format on
    for (const auto& [d, n, tail, want] : cases) {
        const VFOState v = Fed(d, n, tail);
        const Row got(v.cells, v.locked, v.period, {v.center2, v.center3, v.center4}, v.history);
        EXPECT_EQ(got, want) << n << " x " << d << " then " << tail.size();
    }
}

TEST(Raw2Encode, PinnedTracks) {
    // {samples, edges, pulse width, capacity, cells, bits}. Row 3: the first edge met
    // again closes with a valid 9-sample cell, moving the last transition on; row 4
    // ends on a word boundary. Row 7: 8 and 40 samples are invalid; cell 25 % 25 set.
    const Ints grid = {0, 16, 32, 48, 64, 80};
    // clang-format off
    const std::tuple<int, Ints, int, int, int, Ints> cases[] = {
        {800, {}, 1, 512, 100, {}},                   {803, {0}, 803, 512, 100, {}},
        {89, grid, 1, 128, 11, {0, 2, 4, 6, 8, 11}},  {97, {7, 23, 39, 55, 70, 95}, 1, 128, 12, {0, 2, 4, 6, 8, 11}},
        {96, grid, 1, 128, 12, {0, 2, 4, 6, 8, 10}},  {96, grid, 1, 7, 12, {0, 1, 2, 3, 4, 6}},
        {200, {0, 16, 24, 40, 80}, 1, 64, 25, {0, 2, 5}},
    };
    // clang-format on
    for (const auto& [len, edges, width, cap, n, bits] : cases) {
        Bytes enc(static_cast<size_t>(cap + 7) / 8, 0xFF);
        EXPECT_EQ(Raw2Encode(Track(len, edges, width).data(), len, enc.data(), cap), n) << len;
        EXPECT_EQ(SetBits(enc, cap), bits) << len;
    }
}

// Also Raw2EncodeMapped and RawEdgePosMulti against the plain scan, with a cell that
// the first treated edge places at sample -1 (so it is placed again at the next).
TEST(RawTracks, FastCodeMatchesSampleBySampleReference) {
    std::mt19937 rng(5);
    int placedAtMinusOne = 0;
    for (int iter = 0; iter < 1500; iter++) {
        const int len = 1 + R(rng, iter % 10 ? 700 : 9000), newLen = 1 + R(rng, len);
        const int cap = R(rng, 3) ? len / 8 + 64 : 1 + R(rng, 64);
        const Bytes raw = RandomRaw(rng, len);
        Bytes work = raw, enc(static_cast<size_t>(cap + 7) / 8), out(enc.size());
        RawEdgeMap map;
        const int mappedN = Raw2EncodeMapped(work.data(), len, enc.data(), cap, &map);
        Ints pos;
        for (int k = R(rng, 12); k-- > 0;) pos.push_back(R(rng, len / 8 + 30) - 10);
        if (!map.edges.empty() && (map.edges[0].sample + 1) % 8 == 0 && R(rng, 2))
            placedAtMinusOne++,
                pos.insert(pos.begin() + R(rng, static_cast<int>(pos.size()) + 1),
                           static_cast<int>(map.edges[0].cell - (map.edges[0].sample + 1) / 8));
        const auto [n, cells, mapped, placed, aligned] = ref::Scan(raw.data(), len, cap, pos);
        ASSERT_EQ(std::tie(mappedN, enc), std::tie(n, cells)) << len;
        ASSERT_EQ(Raw2Encode(work.data(), len, out.data(), cap), n) << len;
        ASSERT_EQ(out, cells) << "len " << len << " cap " << cap;
        Ints viaMap = pos;
        ASSERT_EQ(RawEdgePosMulti(map, viaMap.data(), static_cast<int>(pos.size())), placed);
        ASSERT_EQ(Enc2RawPosMulti(work.data(), len, pos.data(), static_cast<int>(pos.size())),
                  placed);
        ASSERT_EQ(std::tie(pos, viaMap), std::tie(mapped, mapped)) << len;
        ASSERT_EQ(AlignRaw(work.data(), len), len);
        ASSERT_EQ(work, aligned) << len;
        work = raw;
        ASSERT_EQ(StrechRaw(work.data(), len, newLen), newLen);
        work.resize((newLen + 7) / 8);
        ASSERT_EQ(work, newLen == len ? raw : ref::Pulses(raw.data(), len, newLen, false));
        out.assign(work.size(), 0xFF);
        ASSERT_EQ(Encode2Raw(enc.data(), cap, out.data(), newLen), cap * 8);
        ASSERT_EQ(out, ref::Pulses(enc.data(), cap, newLen, true)) << cap << " " << newLen;
    }
    EXPECT_GT(placedAtMinusOne, 20);
}

}  // namespace
