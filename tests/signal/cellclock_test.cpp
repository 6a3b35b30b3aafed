// The cell clock over flux: every transition in its cell under Gaussian
// jitter and a wobbling speed, through long runs of equal intervals and a
// sudden phase jump, and the same cells again from a saved state.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "signal/cellclock.h"

namespace {

constexpr double kCell = 40.0;  // clock units a cell

struct Flux {
    std::vector<uint32_t> intervals;
    std::vector<int64_t> cells;  // the cell of each transition
};

// Transitions `pattern` cells apart (cycled) from cell 0 on, each off its
// cell's centre by Gaussian noise of sigma cells, the speed wobbling by 1.5 %
// over 100,000 cells, and every other block of `every` transitions later by
// jump cells (fields written out of step with the ones between).
Flux Make(const std::vector<int>& pattern, double sigma, double jump, int every, int n) {
    std::mt19937 rng(7);
    std::normal_distribution<double> g(0.0, sigma);
    Flux f;
    double last = 0, time = 0;
    int64_t cell = 0;
    for (int i = 0; i < n; i++) {
        const int step = pattern[static_cast<size_t>(i) % pattern.size()];
        for (int k = 0; k < step; k++, cell++)
            time += kCell / (1.0 + 0.015 * std::sin(6.283185307 * double(cell) / 100000));
        const double off = every && (i / every) % 2 ? jump : 0.0;
        const double at = std::round(time + kCell * (g(rng) + off - 0.5));
        f.intervals.push_back(static_cast<uint32_t>(at - last));
        f.cells.push_back(cell - 1);
        last = at;
    }
    return f;
}

// The cells the clock sets, as a list of positions.
std::vector<int64_t> Clocked(const Flux& f, int from, int to) {
    const FluxSpan span{f.intervals.data(), f.intervals.size(), 0};
    CellClock clock(&span, 1, 0, static_cast<uint64_t>(kCell * 65536));
    const int len = static_cast<int>(f.cells.back()) + 64;
    std::vector<uint8_t> out(static_cast<size_t>(len / 8 + 1));
    clock.Run(UINT64_MAX, INT64_MAX, out.data(), 0, len);
    std::vector<int64_t> set;
    for (int64_t p = 0; p < len; p++)
        if (out[static_cast<size_t>(p / 8)] & (0x80 >> (p % 8))) set.push_back(p);
    return std::vector<int64_t>(set.begin() + from, set.begin() + std::min<size_t>(to, set.size()));
}

struct ClockCase {
    const char* name;
    std::vector<int> pattern;
    double sigma;
    double jump;  // cells, every 500 transitions
    int settle;   // transitions after each jump that may be off
    int stray;    // transitions the jitter alone may put off their cells
};

class CellClockCells : public testing::TestWithParam<ClockCase> {};

TEST_P(CellClockCells, EveryTransitionInItsCell) {
    const ClockCase& c = GetParam();
    constexpr int kCount = 40000, kEvery = 500;
    const Flux jumped = Make(c.pattern, c.sigma, c.jump, c.jump != 0 ? kEvery : 0, kCount);
    const std::vector<int64_t> got = Clocked(jumped, 0, kCount);
    ASSERT_EQ(got.size(), size_t{kCount});
    int wrong = 0;
    for (int i = 0; i < kCount; i++)
        if (got[static_cast<size_t>(i)] != jumped.cells[static_cast<size_t>(i)] &&
            i % kEvery >= c.settle)
            wrong++;
    EXPECT_LE(wrong, c.stray);
}

INSTANTIATE_TEST_SUITE_P(Flux, CellClockCells,
                         testing::Values(ClockCase{"Mixed", {2, 3, 4, 3, 2, 2}, 0.09, 0, 0, 0},
                                         // Equal intervals under heavy jitter give the loop nothing
                                         // to tell one cell length from another: it must not drift.
                                         ClockCase{"TwoCellRunHeavyJitter", {2}, 0.13, 0, 0, 30},
                                         ClockCase{"FourCellRun", {4}, 0.09, 0, 0, 0},
                                         // Fields written out of step: the grid must
                                         // follow within a byte.
                                         ClockCase{
                                             "PhaseJumps", {2, 4, 2, 2, 4}, 0.06, 0.42, 8, 0}),
                         [](const auto& row) { return std::string(row.param.name); });

// A saved state runs the same stretch again to the same cells, and a run
// stops before the cell it is told to.
TEST(CellClock, SavedStateRunsAgainAlike) {
    const Flux f = Make({2, 3, 4}, 0.05, 0, 0, 30000);
    const FluxSpan span{f.intervals.data(), f.intervals.size(), 0};
    CellClock clock(&span, 1, 0, static_cast<uint64_t>(kCell * 65536));
    const int len = static_cast<int>(f.cells.back()) + 64;
    std::vector<uint8_t> a(static_cast<size_t>(len / 8 + 1)), b(a.size());
    clock.Run(UINT64_MAX, 20000, a.data(), 0, len);
    EXPECT_LT(clock.LastCell(), 20000);
    EXPECT_GE(clock.LastCell(), 20000 - 4);
    const CellClock::State saved = clock.Save();
    clock.Run(UINT64_MAX, INT64_MAX, a.data(), 0, len);
    EXPECT_TRUE(clock.Done());
    clock.Restore(saved);
    clock.Run(UINT64_MAX, INT64_MAX, b.data(), 0, len);
    // b holds only what came after the saved state.
    for (size_t i = 20000 / 8; i < a.size(); i++) ASSERT_EQ(a[i], b[i]) << "byte " << i;
    uint64_t end = 0;
    for (uint32_t v : f.intervals) end += v;
    EXPECT_EQ(clock.CellAt(end), f.cells.back());
}

}  // namespace
