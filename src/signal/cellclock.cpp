#include "signal/cellclock.h"

#include <algorithm>

namespace {

constexpr int kInvShift = 40;  // the inverse cell length: 2^40 / period
constexpr int64_t kInvHalf = int64_t{1} << (kInvShift - 1);
// An interval longer than this holds no code (an unformatted stretch, a
// dropout): the grid starts again at the transition that ends it and learns
// nothing from it.
constexpr int64_t kLongRun = 48;
// Loop gains a transition: the phase takes 2^-kPhaseShift of the error, the
// cell length kFreq / 2^24 of it. The loop follows about a thirtieth of a
// transition's error, enough for the slow wobble of a drive and far below a
// single transition's jitter. Until kAcquire transitions have been fed it
// follows faster, to take up the speed where the capture starts. The phase
// gains are powers of two: a shift is the shortest step in the chain of
// operations from one transition to the next.
constexpr int kPhaseShift = 5;
constexpr int64_t kFreq = 5000;
constexpr int kAcqPhaseShift = 3;
constexpr int64_t kAcqFreq = 60000;
constexpr uint32_t kAcquire = 600;
// Every transition takes a cell of its own. It does not take the nearest one
// the code allows (two cells on in MFM and FM alike) instead: when the one
// before came late, that would move the grid a whole cell off the flux for
// as long as a run of equal intervals lasts.
constexpr int64_t kMinCells = 1;
// The mean distance of the transitions from their cells' centres follows the
// last few transitions (a share of 2^-kSpreadShift each); above kLostAt / 256
// of a cell the grid is taken as out of step, and the phase takes
// 2^-kRelockPhaseShift of each error for kRelock transitions.
constexpr int kSpreadShift = 3;
constexpr int64_t kLostAt = 56;
constexpr int kRelockPhaseShift = 2;
constexpr int32_t kRelock = 24;
// The inverse is brought up to date this often (transitions, a power of two):
// the cell length moves far too little in between to change a decision.
constexpr uint32_t kInverseEvery = 16;
// Times stay below this (clock units), so that every fixed-point product fits.
constexpr uint64_t kMaxTime = uint64_t{1} << 44;

int64_t Inverse(int64_t period) {
    return (int64_t{1} << kInvShift) / period;
}

int64_t Fold(int64_t v, int len) {
    const int64_t r = v % len;
    return r < 0 ? r + len : r;
}

}  // namespace

CellClock::CellClock(const FluxSpan* spans, size_t count, uint64_t start, uint64_t cellTime)
    : spans_(spans), count_(count) {
    const int64_t period = static_cast<int64_t>(std::clamp<uint64_t>(cellTime, 64, 1ULL << 40));
    minPeriod_ = period - period / 4;
    maxPeriod_ = period + period / 4;
    s_.period = period;
    s_.inverse = Inverse(period);
    if (start >= kMaxTime) {
        s_.span = count_;
        return;
    }
    s_.grid = static_cast<int64_t>(start << kShift) - period / 2;
    // The first transition of the first span that has any.
    while (s_.span < count_ && spans_[s_.span].count == 0) s_.span++;
    if (s_.span < count_) {
        const FluxSpan& sp = spans_[s_.span];
        s_.time = sp.start + sp.intervals[0];
    }
}

CellClock::State CellClock::Save() const {
    return s_;
}

void CellClock::Restore(const State& s) {
    s_ = s;
}

int64_t CellClock::CellAt(uint64_t time) const {
    const int64_t t = static_cast<int64_t>(std::min(time, kMaxTime) << kShift);
    const int64_t d = t - s_.grid + s_.period / 2;
    const int64_t q = d / s_.period;
    return s_.cell + (d < 0 && q * s_.period != d ? q - 1 : q);
}

void CellClock::Run(uint64_t until, int64_t endCell, uint8_t* out, int64_t base, int len) {
    if (len <= 0 || !out) return;
    State s = s_;
    int64_t p = Fold(s.cell - base, len);
    const int64_t minPeriod = minPeriod_, maxPeriod = maxPeriod_;
    while (s.span < count_) {
        const FluxSpan& sp = spans_[s.span];
        const uint32_t* iv = sp.intervals;
        const size_t spanCount = sp.count;
        size_t i = s.index;
        uint64_t t = s.time;
        while (true) {
            if (t >= until || t >= kMaxTime) {
                s.index = i, s.time = t;
                s_ = s;
                return;
            }
            const int64_t tf = static_cast<int64_t>(t << kShift);
            const int64_t dt = tf - s.grid;
            int64_t n;
            if (dt < kLongRun * s.period) {
                // The gains come from the transitions before this one, which
                // keeps them off the loop's critical path.
                const bool acquiring = s.fed < kAcquire;
                const int phase = acquiring  ? kAcqPhaseShift
                                  : s.relock ? kRelockPhaseShift
                                             : kPhaseShift;
                const int64_t freq = acquiring ? kAcqFreq : kFreq;
                n = (dt * s.inverse + kInvHalf) >> kInvShift;
                int64_t e;
                if (n >= kMinCells) [[likely]] {
                    e = dt - n * s.period;
                } else {
                    // Two transitions in one cell: the loop learns no more
                    // from the second than half a cell.
                    n = kMinCells;
                    e = std::max(dt - n * s.period, -s.period / 2);
                }
                if (s.cell + n >= endCell) {
                    s.index = i, s.time = t;
                    s_ = s;
                    return;
                }
                if (rec_ && recCount_ < recCap_)
                    rec_[recCount_++] = (s.cell + n) * 256 + (e * 256) / s.period;
                s.grid += n * s.period + (e >> phase);
                s.period = std::clamp(s.period + ((e * freq) >> 24), minPeriod, maxPeriod);
                // Lock lost, as at a write splice where a field written later
                // begins out of step with the one before: the phase follows
                // fast until the errors settle.
                s.relock -= s.relock > 0;
                s.spread += ((e < 0 ? -e : e) - s.spread) >> kSpreadShift;
                if (s.spread > (s.period * kLostAt >> 8)) s.relock = kRelock;
                if ((++s.fed & (kInverseEvery - 1)) == 0) s.inverse = Inverse(s.period);
            } else {
                n = (dt + s.period / 2) / s.period;
                if (s.cell + n >= endCell) {
                    s.index = i, s.time = t;
                    s_ = s;
                    return;
                }
                if (rec_ && recCount_ < recCap_) rec_[recCount_++] = (s.cell + n) * 256;
                s.grid = tf;
            }
            s.cell += n;
            p += n;
            if (p >= len) p = n < len ? p - len : Fold(p, len);
            out[p >> 3] = static_cast<uint8_t>(out[p >> 3] | (0x80 >> (p & 7)));
            // The next transition, in this span or the next one that has any.
            if (++i < spanCount) {
                t += iv[i];
                continue;
            }
            size_t next = s.span + 1;
            while (next < count_ && spans_[next].count == 0) next++;
            s.span = next;
            s.index = 0;
            if (next < count_) s.time = std::max(spans_[next].start + spans_[next].intervals[0], t);
            break;
        }
    }
    s_ = s;
}
