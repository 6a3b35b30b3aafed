// A cell clock locked to flux transitions at the capture's own time
// resolution: a second-order loop (phase and frequency) keeps a grid of cells
// in step with the slow speed changes of a turning disk, and each transition
// goes to the cell of the grid nearest it. The loop's bandwidth is low, so a
// transition's own jitter moves that transition alone, not the grid.
#pragma once

#include <cstddef>
#include <cstdint>

// Transitions at start + the running sum of the intervals (clock units).
struct FluxSpan {
    const uint32_t* intervals = nullptr;
    size_t count = 0;
    uint64_t start = 0;
};

class CellClock {
public:
    // Fixed-point scale of times and cell lengths inside the clock.
    static constexpr int kShift = 16;

    // The transitions of the spans in order (one that would go back in time
    // is taken as coming with the one before), clocked from start on with
    // cells of cellTime (clock units x 65536) to begin with; cell 0 begins at
    // start. The spans stay the caller's.
    CellClock(const FluxSpan* spans, size_t count, uint64_t start, uint64_t cellTime);

    // Feeds the transitions before time until (clock units) whose cells lie
    // below endCell, setting each one's bit in out: cell k goes to bit
    // (k - base) folded into [0, len). Bits are only set, never cleared.
    void Run(uint64_t until, int64_t endCell, uint8_t* out, int64_t base, int len);

    // The cell a time at or after the last transition fed falls in.
    int64_t CellAt(uint64_t time) const;
    // The cell of the last transition fed (-1 before the first).
    int64_t LastCell() const { return s_.cell; }
    // True when every transition has been fed.
    bool Done() const { return s_.span >= count_; }

    // Where each transition fed from now on lies, in cells x 256 from cell 0
    // (its cell plus its distance from the cell's centre); null stops it.
    void Record(int64_t* positions, size_t capacity) {
        rec_ = positions, recCap_ = capacity, recCount_ = 0;
    }
    size_t Recorded() const { return recCount_; }

    // The loop's state, to run a stretch again exactly as it ran before.
    struct State {
        size_t span = 0, index = 0;
        uint64_t time = 0;  // of the next transition, clock units
        int64_t grid = 0;   // centre of the last transition's cell, fixed point
        int64_t cell = -1;  // the last transition's cell
        int64_t period = 0, inverse = 0;
        uint32_t fed = 0;    // transitions fed
        int64_t spread = 0;  // mean distance of the last transitions from their cells' centres
        int32_t relock = 0;  // transitions the phase still follows fast
    };
    State Save() const;
    void Restore(const State& s);

private:
    const FluxSpan* spans_;
    size_t count_;
    int64_t minPeriod_, maxPeriod_;
    State s_;
    int64_t* rec_ = nullptr;
    size_t recCap_ = 0, recCount_ = 0;
};
