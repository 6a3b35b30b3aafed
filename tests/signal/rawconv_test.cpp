#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "signal/alignraw.h"
#include "signal/posmap.h"
#include "signal/rawconv.h"
#include "signal/rawscan.h"
#include "signal/vfo.h"
#include "signal_ref.h"

namespace {

std::vector<uchar> Track(int len, std::initializer_list<int> edges, int width = 1) {
    std::vector<uchar> t(static_cast<size_t>(len + 7) / 8, 0);
    for (int e : edges)
        for (int i = 0; i < width; i++) BfSetBit(t.data(), len, e + i);
    return t;
}

std::vector<int> SetBits(const std::vector<uchar>& b, int n) {
    std::vector<int> out;
    for (int i = 0; i < n; i++)
        if ((b[static_cast<size_t>(i / 8)] >> (7 - i % 8)) & 1) out.push_back(i);
    return out;
}

// A cell stream whose transitions are 2 to 4 cells apart, also across the end.
std::vector<uchar> RandomCells(std::mt19937& rng, int& len) {
    std::vector<int> gaps;
    int total = 0;
    const int want = len;
    while (total < want) {
        const int g = 2 + static_cast<int>(rng() % 3);
        gaps.push_back(g);
        total += g;
    }
    len = total;
    std::vector<uchar> c(static_cast<size_t>(len + 7) / 8, 0);
    int p = static_cast<int>(rng() % static_cast<unsigned>(gaps[0]));
    for (int g : gaps) {
        BfSetBit(c.data(), len, p);
        p += g;
    }
    return c;
}

VFOState Fed(std::initializer_list<int> ds) {
    VFOState v;
    VFO_Init(&v);
    for (int d : ds) VFO_Update(&v, d);
    return v;
}

TEST(VFO, StartValues) {
    VFOState v;
    VFO_Init(&v);
    EXPECT_EQ(v.gain, 6553);
    EXPECT_EQ(v.period, 0x80000);
    EXPECT_EQ(v.bias, 45875);
    EXPECT_EQ(v.center2, 16);
    EXPECT_EQ(v.center3, 24);
    EXPECT_EQ(v.center4, 32);
    EXPECT_EQ(v.locked + v.lastInterval + v.totalSamples + v.totalCells + v.reserved, 0);
    EXPECT_EQ(v.history, 0u);
}

TEST(VFO, BandsRoundingAndValidity) {
    struct Case {
        int last, d, cells, valid;
    };
    const Case cases[] = {
        {0, 16, 2, 1}, {0, 14, 2, 1},  {0, 18, 2, 1},   {0, 13, 2, 1},     {20, 13, 2, 1},
        {0, 19, 2, 1}, {20, 19, 2, 1}, {0, 20, 3, 1},   {30, 20, 2, 1},    {0, 22, 3, 1},
        {0, 27, 3, 1}, {0, 28, 4, 1},  {30, 28, 3, 1},  {0, 36, 5, 1},     {0, 39, 5, 1},
        {0, 40, 5, 0}, {0, 8, 1, 0},   {0, 9, 1, 1},    {0, 4, 1, 0},      {9, 4, 0, 0},
        {0, 12, 2, 1}, {13, 12, 1, 1}, {0, 507, 63, 0}, {600, 508, 63, 0},
    };
    for (const Case& c : cases) {
        VFOState v;
        VFO_Init(&v);
        v.lastInterval = c.last;
        VFO_Update(&v, c.d);
        EXPECT_EQ(v.cells, c.cells) << "last " << c.last << " d " << c.d;
        EXPECT_EQ(v.valid, c.valid) << "d " << c.d;
        EXPECT_EQ(v.lastInterval, c.d);
        EXPECT_EQ(v.history, c.cells ? 1u : 0u);
    }
}

TEST(VFO, LongIntervalsResetHistoryAndUnlock) {
    struct Case {
        int last, d;
        bool reset;
    };
    const Case cases[] = {{0, 508, true}, {600, 508, false}, {600, 509, true}, {0, 507, false}};
    for (const Case& c : cases) {
        VFOState v = Fed({16, 16, 16});
        v.locked = 1;
        v.lastInterval = c.last;
        VFO_Update(&v, c.d);
        if (c.reset) {
            EXPECT_EQ(v.history, 0u) << c.d;
            EXPECT_EQ(v.cells, 64);
        } else {
            EXPECT_EQ(v.history, 0x8000000000000001u) << c.d;
        }
        EXPECT_EQ(v.locked, 0);
        EXPECT_EQ(v.totalSamples, 48 + c.d);
        EXPECT_EQ(v.totalCells, 6 + v.cells);
    }
}

TEST(VFO, LocksAfterThirtyTwoIntervalsThenCorrects) {
    VFOState v;
    VFO_Init(&v);
    for (int i = 0; i < 31; i++) VFO_Update(&v, 16);
    EXPECT_EQ(v.locked, 0);
    VFO_Update(&v, 17);  // the 32nd only locks, whatever its deviation
    EXPECT_EQ(v.locked, 1);
    EXPECT_EQ(v.period, 0x80000);
    VFO_Update(&v, 17);  // error 0x8000: period grows by 0x0CCC
    EXPECT_EQ(v.period, 0x80CCC);
    EXPECT_EQ(v.center2, 16);
    EXPECT_EQ(v.center3, 24);
    EXPECT_EQ(v.center4, 32);
    EXPECT_EQ(v.locked, 1);
    // A break in the run unlocks.
    VFO_Update(&v, 24);
    EXPECT_EQ(v.locked, 0);

    // A 4-cell run locks after 16 intervals; error is divided by 4.
    VFO_Init(&v);
    for (int i = 0; i < 16; i++) VFO_Update(&v, 32);
    EXPECT_EQ(v.locked, 1);
    VFO_Update(&v, 33);
    EXPECT_EQ(v.period, 0x80000 + ((6553 * 16384) >> 16));
    VFO_Update(&v, 31);  // negative error, truncated toward zero, shifted arithmetically
    const int32_t err = (31 * 65536 - 4 * (0x80000 + 1638)) / 4;
    EXPECT_EQ(v.period, 0x80000 + 1638 + ((6553 * err) >> 16));
}

TEST(VFO, ShortSpikeInLockedRunUsesWrappedProduct) {
    VFOState v;
    VFO_Init(&v);
    for (int i = 0; i < 32; i++) VFO_Update(&v, 16);
    VFO_Update(&v, 2);  // 0 cells: history unchanged, still a sync run
    EXPECT_EQ(v.cells, 0);
    EXPECT_EQ(v.locked, 1);
    // error = -458752; 6553 * error wraps to 1288765440 in 32 bits.
    EXPECT_EQ(v.period, 0x80000 + 19665);
    EXPECT_EQ(v.center2, (45875 + 2 * (0x80000 + 19665)) >> 16);
}

TEST(Raw2Encode, ConstantTracks) {
    std::vector<uchar> enc(64, 0xFF);
    std::vector<uchar> zeros(100, 0);
    EXPECT_EQ(Raw2Encode(zeros.data(), 800, enc.data(), 512), 100);
    EXPECT_TRUE(SetBits(enc, 512).empty());
    std::vector<uchar> ones(101, 0xFF);
    EXPECT_EQ(Raw2Encode(ones.data(), 803, enc.data(), 512), 100);
    EXPECT_EQ(Raw2Encode(ones.data(), 0, enc.data(), 512), 0);
    // Edges only two samples apart fold into an empty track: defined, no bit set.
    std::vector<uchar> buzz(100, 0xAA);
    EXPECT_EQ(Raw2Encode(buzz.data(), 800, enc.data(), 512), 0);
    EXPECT_EQ(SetBits(enc, 512), std::vector<int>{0});  // only the first edge's cell
    EXPECT_EQ(ref::Raw2Encode(buzz.data(), 800, enc, 512), 0);
}

TEST(Raw2Encode, EndOfScan) {
    std::vector<uchar> enc(16);
    // The last word reaches past the end: the first edge is met again and its
    // 9-sample closing interval is a valid single cell, moving the last
    // transition on by one.
    auto a = Track(89, {0, 16, 32, 48, 64, 80});
    EXPECT_EQ(Raw2Encode(a.data(), 89, enc.data(), 128), 11);
    EXPECT_EQ(SetBits(enc, 128), (std::vector<int>{0, 2, 4, 6, 8, 11}));
    // The last word ends exactly at the end: the closing interval only sets the
    // length.
    auto b = Track(97, {7, 23, 39, 55, 70, 95});
    EXPECT_EQ(Raw2Encode(b.data(), 97, enc.data(), 128), 12);
    EXPECT_EQ(SetBits(enc, 128), (std::vector<int>{0, 2, 4, 6, 8, 11}));
    auto c = Track(96, {0, 16, 32, 48, 64, 80});
    EXPECT_EQ(Raw2Encode(c.data(), 96, enc.data(), 128), 12);
    EXPECT_EQ(SetBits(enc, 128), (std::vector<int>{0, 2, 4, 6, 8, 10}));
    // Edges between the first edge and the next byte boundary are not looked at.
    auto d = Track(200, {3, 6, 19, 35});
    EXPECT_EQ(Raw2Encode(d.data(), 200, enc.data(), 128), ref::Raw2Encode(d.data(), 200, enc, 128));
    std::vector<uchar> e2(16);
    Raw2Encode(d.data(), 200, e2.data(), 128);
    EXPECT_EQ(SetBits(e2, 128), (std::vector<int>{0, 2, 4}));
    // Writes past the capacity fold onto the start.
    auto f = Track(96, {0, 16, 32, 48, 64, 80});
    EXPECT_EQ(Raw2Encode(f.data(), 96, enc.data(), 7), 12);
    EXPECT_EQ(SetBits(enc, 7), (std::vector<int>{0, 1, 2, 3, 4, 6}));
}

TEST(Raw2Encode, RoundTripsValidCellStreams) {
    std::mt19937 rng(4);
    for (int iter = 0; iter < 300; iter++) {
        int len = 8 + static_cast<int>(rng() % 3000);
        const auto cells = RandomCells(rng, len);
        std::vector<uchar> raw(static_cast<size_t>(len) + 1);
        ASSERT_EQ(Encode2Raw(const_cast<uchar*>(cells.data()), len, raw.data(), len * 8), len * 8);
        std::vector<uchar> back(static_cast<size_t>(len + 7) / 8 + 8);
        ASSERT_EQ(Raw2Encode(raw.data(), len * 8, back.data(), len + 40), len);
        ASSERT_EQ(SetBits(back, len), SetBits(cells, len)) << "len " << len;
        ASSERT_EQ(Raw2Encode(raw.data(), len * 8, back.data(), len), len);
        ASSERT_EQ(SetBits(back, len), SetBits(cells, len)) << "len " << len;

        // Every transition maps back to eight times its cell.
        auto want = SetBits(cells, len);
        std::vector<int> pos = want;
        ASSERT_EQ(Enc2RawPosMulti(raw.data(), len * 8, pos.data(), static_cast<int>(pos.size())),
                  static_cast<int>(pos.size()));
        for (size_t i = 0; i < pos.size(); i++) ASSERT_EQ(pos[i], want[i] * 8);

        // A clean track is already aligned.
        auto aligned = raw;
        EXPECT_EQ(AlignRaw(aligned.data(), len * 8), len * 8);
        ASSERT_EQ(aligned, raw);
    }
}

// Random raw tracks: jittered pulses of mixed widths, noise, sparse and dense.
std::vector<uchar> RandomRaw(std::mt19937& rng, int len) {
    std::vector<uchar> t(static_cast<size_t>(len + 7) / 8 + 2, 0);
    const int kind = static_cast<int>(rng() % 6);
    if (kind >= 4) {
        // Long jittered sync runs of 2- and 4-cell intervals, locking the loop
        // and moving its centres; kind 5 drifts the run's spacing far up.
        int p = static_cast<int>(rng() % 40), n = 0;
        int base = 16;
        while (p < len) {
            BfSetBit(t.data(), len, p);
            if (kind == 5 && ++n % 12 == 0 && base < 70) base++;
            const int run = (n / 60) % 3 == 2 ? 2 * base : base;
            p += run + static_cast<int>(rng() % 5) - 2;
        }
    } else if (kind == 0) {
        for (auto& b : t) b = static_cast<uchar>(rng() & rng());
    } else {
        int p = static_cast<int>(rng() % 40);
        const int spread = kind == 3 ? 600 : 8;
        while (p < len) {
            const int w = 1 + static_cast<int>(rng() % 3);
            for (int i = 0; i < w; i++) BfSetBit(t.data(), len, p + i);
            int step = kind == 1 ? 8 * (2 + static_cast<int>(rng() % 3))
                                 : 1 + static_cast<int>(rng() % 40);
            if (kind == 3) step = 1 + static_cast<int>(rng() % spread);
            p += step + static_cast<int>(rng() % 7) - 3;
            if (p < 0) p = len;
        }
    }
    if (len % 8)
        t[static_cast<size_t>(len / 8)] |=
            static_cast<uchar>(0xFF >> (len % 8));  // junk past the end
    return t;
}

TEST(Separator, TableDrivenStepMatchesTheLoop) {
    std::mt19937 rng(8);
    for (int iter = 0; iter < 400; iter++) {
        VFOState v;
        VFO_Init(&v);
        rawscan::Separator sep;
        int base = 16;
        for (int i = 0; i < 3000; i++) {
            if (iter % 2 && i % 15 == 0 && base < 90) base++;
            int d = (i / 50) % 4 == 3 ? static_cast<int>(rng() % 700)
                                      : base + static_cast<int>(rng() % 5) - 2;
            if ((i / 50) % 4 == 2) d *= 2;
            if (rng() % 97 == 0) d = static_cast<int>(rng() % 4);
            VFO_Update(&v, d);
            const auto r = sep.Step(d);
            ASSERT_EQ(r.cells, v.cells) << iter << " " << i;
            ASSERT_EQ(r.valid ? 1 : 0, v.valid);
        }
    }
}

TEST(Separator, FastScannersMatchSampleBySampleScan) {
    std::mt19937 rng(5);
    for (int iter = 0; iter < 1500; iter++) {
        const int len = 1 + static_cast<int>(rng() % (iter % 10 == 0 ? 9000 : 700));
        const auto raw = RandomRaw(rng, len);
        const int cap = (rng() % 3 == 0) ? 1 + static_cast<int>(rng() % 64) : len / 8 + 64;
        std::vector<uchar> fast(static_cast<size_t>(cap + 7) / 8), slow;
        auto r1 = raw;
        const int n = Raw2Encode(r1.data(), len, fast.data(), cap);
        ASSERT_EQ(n, ref::Raw2Encode(raw.data(), len, slow, cap)) << "len " << len;
        ASSERT_EQ(fast, slow) << "len " << len << " cap " << cap;

        std::vector<int> pos(rng() % 12);
        for (int& p : pos) p = static_cast<int>(rng() % static_cast<unsigned>(len / 8 + 30)) - 10;
        auto want = pos;
        const int got = Enc2RawPosMulti(r1.data(), len, pos.data(), static_cast<int>(pos.size()));
        ASSERT_EQ(got, ref::PosMulti(raw.data(), len, want));
        ASSERT_EQ(pos, want);

        auto a1 = raw, a2 = raw;
        ASSERT_EQ(AlignRaw(a1.data(), len), len);
        ref::Align(a2.data(), len);
        ASSERT_EQ(a1, a2) << "len " << len;
    }
}

TEST(Enc2RawPosMulti, PinnedCases) {
    // Edges at 20, 36, 60: f = 20, so the counter starts at cell 2.
    auto t = Track(200, {20, 36, 60});
    std::vector<int> pos = {2, 4, 7, 1, -3, 27, 28};
    EXPECT_EQ(Enc2RawPosMulti(t.data(), 200, pos.data(), 7), 6);
    // 2 and 4 map at the edge 36 (cell 4); 7 at 60 (cell 7); the cells before f at
    // the first edge after it; the closing 160 samples round to 20 cells, so the
    // first edge met again at 220 is cell 27 and cell 28 is never reached.
    EXPECT_EQ(pos, (std::vector<int>{20, 36, 60, 12, -20, 220, -1}));
    // A cell placed at sample -1 is still pending and is placed again, and counted
    // again, at the next edge of the same word; the scan stops at the word's end.
    for (int third : {38, 47}) {
        auto w = Track(200, {7, 23, third});
        std::vector<int> p2 = {-1, 2};
        EXPECT_EQ(Enc2RawPosMulti(w.data(), 200, p2.data(), 2), third < 40 ? 3 : 2);
        EXPECT_EQ(p2, (std::vector<int>{third < 40 ? -2 : -1, 23}));
    }

    std::vector<int> none = {5, 6};
    std::vector<uchar> zeros(25, 0);
    EXPECT_EQ(Enc2RawPosMulti(zeros.data(), 200, none.data(), 2), 0);
    EXPECT_EQ(none, (std::vector<int>{5, 6}));
    EXPECT_EQ(Enc2RawPosMulti(t.data(), 200, none.data(), 0), 0);
    EXPECT_EQ(Enc2RawPosMulti(t.data(), 0, none.data(), 2), 0);
}

TEST(AlignRaw, MovesOffGridPulsesBySample) {
    // 17 samples after its predecessor: one sample earlier; 15 after: one later.
    auto t = Track(64, {0, 17, 32}, 3);
    EXPECT_EQ(AlignRaw(t.data(), 64), 64);
    EXPECT_EQ(t, Track(64, {0, 16, 33}, 3));
    // A late pulse at sample 0 (the first edge met again) folds onto the end.
    auto u = Track(40, {0, 15}, 3);
    EXPECT_EQ(AlignRaw(u.data(), 40), 40);
    EXPECT_EQ(u, Track(40, {39, 16}, 3));
    // Zeros only, and an empty length, are left alone.
    std::vector<uchar> z(8, 0);
    EXPECT_EQ(AlignRaw(z.data(), 64), 64);
    EXPECT_EQ(z, std::vector<uchar>(8, 0));
    EXPECT_EQ(AlignRaw(z.data(), 0), 0);
}

TEST(Encode2Raw, MatchesPerSampleWrites) {
    // A 1-cell at the last cell with a capacity not a multiple of 8 wraps.
    std::vector<uchar> enc = {0x80, 0x01};
    std::vector<uchar> raw(3, 0xFF);
    EXPECT_EQ(Encode2Raw(enc.data(), 16, raw.data(), 21), 128);
    // cell 0 -> samples 0..7; cell 15 at sample 120 folds to 120 % 21 = 15.
    std::vector<uchar> want;
    ref::Encode2Raw(enc.data(), 16, want, 21);
    EXPECT_EQ(raw, want);
    EXPECT_EQ(SetBits(raw, 21), (std::vector<int>{2, 15, 16, 17}));  // the wrap clears 0, 1

    std::mt19937 rng(6);
    for (int iter = 0; iter < 400; iter++) {
        const int encLen = static_cast<int>(rng() % 300);
        std::vector<uchar> e(static_cast<size_t>(encLen + 7) / 8 + 1);
        for (auto& b : e) b = static_cast<uchar>(rng());
        const int cap = static_cast<int>(rng() % 2600);
        std::vector<uchar> fast(static_cast<size_t>(cap + 7) / 8 + 1, 0x5A), slow;
        ASSERT_EQ(Encode2Raw(e.data(), encLen, fast.data(), cap), encLen * 8);
        ref::Encode2Raw(e.data(), encLen, slow, cap);
        fast.resize(slow.size());
        ASSERT_EQ(fast, slow) << encLen << " " << cap;
    }
}

TEST(StrechRaw, MovesEveryPulseProportionally) {
    auto t = Track(100, {0, 10, 55, 98}, 2);
    const auto same = t;
    EXPECT_EQ(StrechRaw(t.data(), 100, 100), 100);
    EXPECT_EQ(t, same);
    EXPECT_EQ(StrechRaw(t.data(), 100, 50), 50);
    // q = i * 50 / 100: 0, 5, 27, 49 (the last folds its tail to the start).
    auto want = Track(50, {}, 0);
    for (int q : {0, 5, 27, 49}) ref::PutSamples(want.data(), 50, q, 0xE0);
    t.resize(want.size());
    EXPECT_EQ(t, want);

    std::mt19937 rng(7);
    for (int iter = 0; iter < 400; iter++) {
        const int len = 1 + static_cast<int>(rng() % 3000);
        const int newLen = 1 + static_cast<int>(rng() % static_cast<unsigned>(len));
        auto raw = RandomRaw(rng, len);
        const auto expect = newLen == len ? raw : ref::Strech(raw.data(), len, newLen);
        ASSERT_EQ(StrechRaw(raw.data(), len, newLen), newLen);
        raw.resize(expect.size());
        ASSERT_EQ(raw, expect) << len << " -> " << newLen;
    }
}

}  // namespace
