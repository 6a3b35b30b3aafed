// Flux intervals to raw tracks: the measured cell time, the pulse positions,
// the revolution's length in samples and the round trip through the data
// separator.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "signal/bitstream.h"
#include "signal/fluxcell.h"
#include "signal/fluxraw.h"
#include "signal/rawconv.h"

namespace {

using U32s = std::vector<uint32_t>;

// Intervals of the given cell counts (cycled), cell clocks long, each end
// moved by up to jitter of a cell.
U32s Intervals(std::vector<int> cells, double cellClocks, double jitter, int n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> j(-jitter, jitter);
    U32s out;
    double t = 0, last = 0;
    for (int i = 0; i < n; i++) {
        t += cells[static_cast<size_t>(i) % cells.size()] * cellClocks;
        const double at = std::round(t + j(rng) * cellClocks);
        out.push_back(static_cast<uint32_t>(at - last));
        last = at;
    }
    return out;
}

struct CellCase {
    const char* name;
    std::vector<int> pattern;
    double cellClocks, clockHz, jitter;
    int count;
    double want;  // 0: no cell time can be seen
    friend void PrintTo(const CellCase& c, std::ostream* os) { *os << c.name; }
};

constexpr uint64_t Cell(double clocks) {
    return static_cast<uint64_t>(clocks * (1 << kCellTimeShift));
}

class CellTime : public testing::TestWithParam<CellCase> {};

TEST_P(CellTime, ShortestPeakIsTwoCells) {
    const CellCase& c = GetParam();
    const U32s iv = Intervals(c.pattern, c.cellClocks, c.jitter, c.count, 7);
    const uint64_t got = FluxCellTime(iv.data(), iv.size(), c.clockHz);
    EXPECT_NEAR(static_cast<double>(got) / (1 << kCellTimeShift), c.want, c.want * 0.01);
}

// clang-format off
const CellCase kCellCases[] = {
    {"Mfm500kAt24MHz", {2, 3, 4, 2, 2, 3}, 48.05, 24027428.57, 0.10, 5000, 48.05},
    {"MfmMostlyLongIntervals", {4, 4, 3, 4, 2}, 48.05, 24027428.57, 0.10, 5000, 48.05},
    {"Fm500kAt40MHz", {2, 2, 4, 2}, 80, 40e6, 0.10, 5000, 80},
    {"Mfm1000kAt40MHz", {2, 3, 2, 4}, 40, 40e6, 0.05, 5000, 40},
    {"DoubleDensityIn360RpmDrive", {2, 3, 4}, 66.7, 40e6, 0.08, 5000, 66.7},
    {"TooFewIntervals", {2, 3, 4}, 48, 24027428.57, 0, 20, 0},
    {"OnlyNoiseFasterThanAnyCell", {1}, 2, 24027428.57, 0, 5000, 0},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Flux, CellTime, testing::ValuesIn(kCellCases),
                         [](const auto& row) { return std::string(row.param.name); });

struct RawCase {
    const char* name;
    U32s intervals;
    uint64_t length, cellClocks;
    int64_t room, want;                      // samples the buffer holds, samples written or -1
    std::map<size_t, uint8_t> nonZeroBytes;  // every other byte of the track is 0
    friend void PrintTo(const RawCase& c, std::ostream* os) { *os << c.name; }
};

class FluxRaw : public testing::TestWithParam<RawCase> {};

// Eight samples a cell from the index, a pulse 1,1,1,0,0,0,0,0; every byte is
// written, the old contents gone.
TEST_P(FluxRaw, PulsesSitWhereTheirTimesPutThem) {
    const RawCase& c = GetParam();
    std::vector<uint8_t> raw(static_cast<size_t>(c.room + 7) / 8, 0xFF);
    EXPECT_EQ(Flux2Raw(c.intervals.data(), c.intervals.size(), c.length, Cell(c.cellClocks),
                       raw.data(), c.room),
              c.want);
    for (size_t i = 0; c.want > 0 && i < static_cast<size_t>(c.want) / 8; i++)
        EXPECT_EQ(raw[i], c.nonZeroBytes.count(i) ? c.nonZeroBytes.at(i) : 0) << "byte " << i;
}

// clang-format off
const RawCase kRawCases[] = {
    {"TwoThreeAndFourCells", {96, 144, 192}, 4800, 48, 800, 800, {{2, 0xE0}, {5, 0xE0}, {9, 0xE0}}},
    // The third lies on the next index and runs onto the start; the fourth is left out.
    {"AtAndAfterTheNextIndex", {96, 96, 96, 96}, 288, 48, 64, 48, {{0, 0xE0}, {2, 0xE0}, {4, 0xE0}}},
    {"LastSampleRunsOntoTheStart", {474}, 480, 48, 80, 80, {{0, 0xC0}, {9, 0x01}}},
    {"BufferTooSmall", {96}, 4800, 48, 799, -1, {}},
    {"NoCellTime", {96}, 4800, 0, 800, -1, {}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Flux, FluxRaw, testing::ValuesIn(kRawCases),
                         [](const auto& row) { return std::string(row.param.name); });

// Cells with transitions 2 to 4 cells apart, as flux with 10% jitter at a
// clock 3% off the nominal cell, resampled at the measured cell time: every
// pulse lies where the exact time since the index puts it, rounded once (no
// error builds up over a revolution), and the data separator reads the cells.
TEST(FluxRawTrack, ExactTimeBaseAndTheCellsReadBack) {
    std::mt19937 rng(11);
    std::vector<int> gaps;
    for (int cells = 0; cells < 99990; cells += gaps.back()) gaps.push_back(2 + rng() % 3);
    const double cell = 48.05 * 1.03;
    U32s iv = Intervals(gaps, cell, 0.10, static_cast<int>(gaps.size()), 5);
    iv[0] += static_cast<uint32_t>(cell / 2);  // transitions mid-cell, where the separator counts
    const uint64_t length = static_cast<uint64_t>(std::llround(100000 * cell));
    const uint64_t ct = FluxCellTime(iv.data(), iv.size(), 24027428.57);
    ASSERT_NEAR(static_cast<double>(ct) / (1 << kCellTimeShift), cell, cell * 0.01);
    auto exact = [&](uint64_t t) { return double(t) * 8 * (1 << kCellTimeShift) / ct; };
    const int64_t samples = static_cast<int64_t>(FluxRawLength(length, ct));
    EXPECT_NEAR(static_cast<double>(samples), exact(length), 0.5 + 1e-6);
    std::vector<uint8_t> raw(static_cast<size_t>(samples + 7) / 8);
    ASSERT_EQ(Flux2Raw(iv.data(), iv.size(), length, ct, raw.data(), samples), samples);
    std::vector<int64_t> edges;
    for (int64_t i = 0, len = static_cast<int>(samples); i < len; i++)
        if (BfGetBit(raw.data(), static_cast<int>(len), i) &&
            !BfGetBit(raw.data(), static_cast<int>(len), i - 1))
            edges.push_back(i);
    ASSERT_EQ(edges.size(), iv.size());
    uint64_t at = 0;
    for (size_t i = 0; i < iv.size(); i++)
        ASSERT_NEAR(static_cast<double>(edges[i]), exact(at += iv[i]), 0.5 + 1e-6) << "flux " << i;
    std::vector<uint8_t> enc(32768);
    const int n = Raw2Encode(raw.data(), static_cast<int>(samples), enc.data(), 32768 * 8);
    int p = 0, wrong = 0;  // the cell ending every gap is a transition, and nothing between
    for (int g : gaps) {
        for (int k = 1; k < g; k++) wrong += BfGetBit(enc.data(), n, p + k);
        wrong += !BfGetBit(enc.data(), n, p += g);
    }
    EXPECT_EQ(wrong, 0);
}

}  // namespace
