// Flux intervals to raw tracks: the measured cell time, the pulse positions,
// the revolution's length in samples and the round trip through the data
// separator.
#include <gtest/gtest.h>

#include <cmath>
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
    double cellClocks;
    double clockHz;
    double jitter;
    int count;
    double want;  // 0: no cell time can be seen
};

void PrintTo(const CellCase& c, std::ostream* os) {
    *os << c.name;
}

class CellTime : public testing::TestWithParam<CellCase> {};

TEST_P(CellTime, ShortestPeakIsTwoCells) {
    const CellCase& c = GetParam();
    const U32s iv = Intervals(c.pattern, c.cellClocks, c.jitter, c.count, 7);
    const uint64_t got = FluxCellTime(iv.data(), iv.size(), c.clockHz);
    if (c.want == 0) {
        EXPECT_EQ(got, 0u);
    } else {
        EXPECT_NEAR(static_cast<double>(got) / (1 << kCellTimeShift), c.want, c.want * 0.01);
    }
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

std::string CellName(const testing::TestParamInfo<CellCase>& info) {
    return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(Flux, CellTime, testing::ValuesIn(kCellCases), CellName);

constexpr uint64_t Cell(double clocks) {
    return static_cast<uint64_t>(clocks * (1 << kCellTimeShift));
}

std::vector<int64_t> RisingEdges(const std::vector<uint8_t>& raw, int64_t len) {
    std::vector<int64_t> out;
    for (int64_t i = 0; i < len; i++)
        if (BfGetBit(raw.data(), static_cast<int>(len), i) &&
            !BfGetBit(raw.data(), static_cast<int>(len), i - 1))
            out.push_back(i);
    return out;
}

TEST(FluxRaw, PulsesSitAtEightSamplesACellFromTheIndex) {
    const U32s iv = {96, 144, 192};  // 2, 3 and 4 cells of 48 clocks
    std::vector<uint8_t> raw(100, 0xFF);
    ASSERT_EQ(Flux2Raw(iv.data(), iv.size(), 4800, Cell(48), raw.data(), 800), 800);
    EXPECT_EQ(RisingEdges(raw, 800), (std::vector<int64_t>{16, 40, 72}));
    EXPECT_EQ(raw[2], 0xE0);  // samples 16..23: the pulse 1,1,1,0,0,0,0,0
    EXPECT_EQ(raw[5], 0xE0);
    EXPECT_EQ(raw[9], 0xE0);
    EXPECT_EQ(raw[99], 0x00);  // every byte is written, the old contents gone
}

TEST(FluxRaw, TransitionsAfterTheNextIndexAreLeftOut) {
    const U32s iv = {96, 96, 96, 96};
    std::vector<uint8_t> raw(8);
    ASSERT_EQ(Flux2Raw(iv.data(), iv.size(), 300, Cell(48), raw.data(), 64), 50);
    EXPECT_EQ(RisingEdges(raw, 50), (std::vector<int64_t>{16, 32, 48}));
}

TEST(FluxRaw, APulseAtTheEndRunsOntoTheStart) {
    const U32s iv = {480};  // exactly at the next index: sample 80 of 80
    std::vector<uint8_t> raw(10);
    ASSERT_EQ(Flux2Raw(iv.data(), iv.size(), 480, Cell(48), raw.data(), 80), 80);
    EXPECT_EQ(raw[0], 0xE0);
    const U32s late = {474};  // sample 79: its 1,1,1 cover 79, 0 and 1
    ASSERT_EQ(Flux2Raw(late.data(), late.size(), 480, Cell(48), raw.data(), 80), 80);
    EXPECT_EQ(raw[9], 0x01);
    EXPECT_EQ(raw[0], 0xC0);
}

TEST(FluxRaw, RefusesWhatDoesNotFit) {
    const U32s iv = {96};
    std::vector<uint8_t> raw(100);
    EXPECT_EQ(Flux2Raw(iv.data(), iv.size(), 4800, Cell(48), raw.data(), 799), -1);
    EXPECT_EQ(Flux2Raw(iv.data(), iv.size(), 4800, 0, raw.data(), 800), -1);
    EXPECT_EQ(FluxRawLength(4800, 0), 0u);
}

TEST(FluxRaw, TimeBaseIsExactOverARevolution) {
    // A cell of 47.3 clocks: every pulse lies where the exact time since the
    // index puts it, rounded once; no error builds up over 50,000 fluxes.
    const double cell = 47.3;
    const U32s iv = Intervals({2, 3, 4, 2}, cell, 0.1, 50000, 3);
    uint64_t length = 0;
    for (uint32_t v : iv) length += v;
    length += 100;
    const uint64_t ct = Cell(cell);
    const uint64_t samples = FluxRawLength(length, ct);
    const double exact = static_cast<double>(length) * 8 * (1 << kCellTimeShift) / ct;
    EXPECT_NEAR(static_cast<double>(samples), exact, 0.5 + 1e-6);
    std::vector<uint8_t> raw((samples + 7) / 8);
    ASSERT_EQ(Flux2Raw(iv.data(), iv.size(), length, ct, raw.data(), static_cast<int64_t>(samples)),
              static_cast<int64_t>(samples));
    const std::vector<int64_t> edges = RisingEdges(raw, static_cast<int64_t>(samples));
    ASSERT_EQ(edges.size(), iv.size());
    uint64_t acc = 0;
    for (size_t i = 0; i < iv.size(); i++) {
        acc += iv[i];
        const double want = static_cast<double>(acc) * 8 * (1 << kCellTimeShift) / ct;
        ASSERT_NEAR(static_cast<double>(edges[i]), want, 0.5 + 1e-6) << "flux " << i;
    }
}

TEST(FluxRaw, DataSeparatorReadsBackTheCells) {
    // Cells with transitions 2 to 4 cells apart, as flux with 10% jitter at a
    // clock 3% off the nominal cell, resampled at the measured cell time.
    std::mt19937 rng(11);
    std::vector<int> gaps;
    int cells = 0;
    while (cells < 99990) {
        gaps.push_back(2 + static_cast<int>(rng() % 3));
        cells += gaps.back();
    }
    const double cell = 48.05 * 1.03;
    U32s iv = Intervals(gaps, cell, 0.10, static_cast<int>(gaps.size()), 5);
    // Transitions in the middle of their cells, where the separator starts counting.
    iv[0] += static_cast<uint32_t>(cell / 2);
    const uint64_t length = static_cast<uint64_t>(std::llround(100000 * cell));
    const uint64_t ct = FluxCellTime(iv.data(), iv.size(), 24027428.57);
    ASSERT_NE(ct, 0u);
    const uint64_t samples = FluxRawLength(length, ct);
    EXPECT_NEAR(static_cast<double>(samples), 800000, 800);
    std::vector<uint8_t> raw((samples + 7) / 8);
    ASSERT_GT(Flux2Raw(iv.data(), iv.size(), length, ct, raw.data(), static_cast<int64_t>(samples)),
              0);
    std::vector<uint8_t> enc(32768);
    const int n = Raw2Encode(raw.data(), static_cast<int>(samples), enc.data(), 32768 * 8);
    // The cell at the end of every gap is a transition, and nothing between.
    int p = 0, wrong = 0;
    for (int g : gaps) {
        for (int k = 1; k < g; k++) wrong += BfGetBit(enc.data(), n, p + k);
        p += g;
        wrong += !BfGetBit(enc.data(), n, p);
    }
    EXPECT_EQ(wrong, 0);
}

}  // namespace
