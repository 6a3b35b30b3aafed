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

// Transitions `pattern` cells apart (cycled) from cell 0 on, each off its
// cell's centre by Gaussian noise of sigma cells, the speed wobbling by 1.5 %
// over 100,000 cells, and every other block of `every` transitions later by
// jump cells (fields written out of step with the ones between).
struct Flux {
    std::vector<uint32_t> intervals;
    std::vector<int64_t> cells;  // the cell of each transition
    Flux(const std::vector<int>& pattern, double sigma, double jump, int every, int n) {
        std::mt19937 rng(7);
        std::normal_distribution<double> g(0.0, sigma);
        double last = 0, time = 0;
        for (int64_t i = 0, cell = 0; i < n; i++) {
            for (int k = pattern[size_t(i) % pattern.size()]; k > 0; k--, cell++)
                time += kCell / (1.0 + 0.015 * std::sin(6.283185307 * double(cell) / 100000));
            const double off = every && (i / every) % 2 ? jump : 0.0;
            const double at = std::round(time + kCell * (g(rng) + off - 0.5));
            intervals.push_back(static_cast<uint32_t>(at - last));
            cells.push_back(cell - 1);
            last = at;
        }
    }
    FluxSpan span() const { return {intervals.data(), intervals.size(), 0}; }
    int len() const { return static_cast<int>(cells.back()) + 64; }
};

TEST(CellClock, EveryTransitionInItsCell) {
    constexpr int kCount = 40000, kEvery = 500;
    const struct {
        const char* name;
        std::vector<int> pattern;
        double sigma;
        double jump;  // cells, every 500 transitions
        int settle;   // transitions after each jump that may be off
        int stray;    // transitions the jitter alone may put off their cells
    } cases[] = {
        {"mixed", {2, 3, 4, 3, 2, 2}, 0.09, 0, 0, 0},
        // Equal intervals under heavy jitter give the loop nothing to tell one cell length
        // from another: it must not drift.
        {"two-cell run, heavy jitter", {2}, 0.13, 0, 0, 30},
        {"four-cell run", {4}, 0.09, 0, 0, 0},
        // Fields written out of step: the grid must follow within a byte.
        {"phase jumps", {2, 4, 2, 2, 4}, 0.06, 0.42, 8, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Flux f(c.pattern, c.sigma, c.jump, c.jump != 0 ? kEvery : 0, kCount);
        const FluxSpan span = f.span();
        CellClock clock(&span, 1, 0, static_cast<uint64_t>(kCell * 65536));
        std::vector<uint8_t> out(size_t(f.len() / 8 + 1));
        clock.Run(UINT64_MAX, INT64_MAX, out.data(), 0, f.len());
        std::vector<int64_t> set;  // the cells the clock sets
        for (int64_t p = 0; p < f.len(); p++)
            if (out[size_t(p / 8)] & (0x80 >> (p % 8))) set.push_back(p);
        ASSERT_EQ(set.size(), size_t{kCount});
        int wrong = 0;
        for (int i = 0; i < kCount; i++)
            wrong += set[size_t(i)] != f.cells[size_t(i)] && i % kEvery >= c.settle;
        EXPECT_LE(wrong, c.stray);
    }
}

// A saved state runs the same stretch again to the same cells, and a run
// stops before the cell it is told to.
TEST(CellClock, SavedStateRunsAgainAlike) {
    const Flux f({2, 3, 4}, 0.05, 0, 0, 30000);
    const FluxSpan span = f.span();
    CellClock clock(&span, 1, 0, static_cast<uint64_t>(kCell * 65536));
    std::vector<uint8_t> a(size_t(f.len() / 8 + 1)), b(a.size());
    clock.Run(UINT64_MAX, 20000, a.data(), 0, f.len());
    EXPECT_LT(clock.LastCell(), 20000);
    EXPECT_GE(clock.LastCell(), 20000 - 4);
    const CellClock::State saved = clock.Save();
    clock.Run(UINT64_MAX, INT64_MAX, a.data(), 0, f.len());
    EXPECT_TRUE(clock.Done());
    clock.Restore(saved);
    clock.Run(UINT64_MAX, INT64_MAX, b.data(), 0, f.len());
    // b holds only what came after the saved state.
    for (size_t i = 20000 / 8; i < a.size(); i++) ASSERT_EQ(a[i], b[i]) << "byte " << i;
    uint64_t end = 0;
    for (uint32_t v : f.intervals) end += v;
    EXPECT_EQ(clock.CellAt(end), f.cells.back());
}

}  // namespace
