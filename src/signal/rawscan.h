// The edge scanner and loop step shared by every reader of raw tracks, so that
// the separator, the position mapping and the alignment count cells alike.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "signal/bitstream.h"
#include "signal/vfo.h"

namespace rawscan {

inline uint64_t LoadBe64(const uchar* p) {
    return (static_cast<uint64_t>(p[0]) << 56) | (static_cast<uint64_t>(p[1]) << 48) |
           (static_cast<uint64_t>(p[2]) << 40) | (static_cast<uint64_t>(p[3]) << 32) |
           (static_cast<uint64_t>(p[4]) << 24) | (static_cast<uint64_t>(p[5]) << 16) |
           (static_cast<uint64_t>(p[6]) << 8) | static_cast<uint64_t>(p[7]);
}

// Eight bytes from byte j, zero past the nbytes the buffer holds.
inline uint64_t Load64(const uchar* raw, size_t nbytes, size_t j) {
    if (j + 8 <= nbytes) return LoadBe64(raw + j);
    uint64_t v = 0;
    for (size_t k = 0; k < 8; k++) v = (v << 8) | (j + k < nbytes ? raw[j + k] : 0u);
    return v;
}

// Calls f(x) for every rising edge x in [a, b), 0 <= a <= b <= len, in order; the
// predecessor of sample 0 is sample len - 1. Returns false when f stopped it.
template <class F>
inline bool ForEachEdge(const uchar* raw, int len, int a, int b, F&& f) {
    if (a >= b) return true;
    const size_t nbytes = (static_cast<size_t>(len) + 7) >> 3;
    const size_t jEnd = (static_cast<size_t>(b) + 7) >> 3;
    size_t j = static_cast<size_t>(a) >> 3;
    uint64_t prev;
    if (j == 0) {
        const int l = len - 1;
        prev = (raw[l >> 3] >> (7 - (l & 7))) & 1u;
    } else {
        prev = raw[j - 1] & 1u;
    }
    for (; j < jEnd; j += 8) {
        const uint64_t v = Load64(raw, nbytes, j);
        uint64_t e = v & ~((v >> 1) | (prev << 63));
        prev = v & 1u;
        const int64_t base = static_cast<int64_t>(j) * 8;
        if (base < a) e &= ~uint64_t{0} >> (a - base);
        if (base + 64 > b) e &= ~(~uint64_t{0} >> (b - base));
        while (e) {
            const int k = std::countl_zero(e);
            if (!f(static_cast<int>(base + k))) return false;
            e &= ~(uint64_t{1} << (63 - k));
        }
    }
    return true;
}

// The first rising edge of the track, or -1 when there is none.
inline int FirstEdge(const uchar* raw, int len) {
    int first = -1;
    if (len > 0)
        ForEachEdge(raw, len, 0, len, [&](int x) {
            first = x;
            return false;
        });
    return first;
}

// Walks the edges after the first one as the data separator reads them: words
// of 32 samples from the first byte boundary at or after the first edge (the
// edges before that boundary are skipped), ending at the first word boundary
// at or past one revolution; a last word reaching past the revolution lets the
// first edge, met again, be treated once more. onEdge(x, d) gets the unfolded
// position x and the samples d since the previous treated edge, and returns
// false to stop. Returns the unfolded position of the last treated edge.
template <class F>
inline int64_t ScanEdges(const uchar* raw, int len, int first, F&& onEdge) {
    const int64_t begin = (static_cast<int64_t>(first) + 7) & ~int64_t{7};
    const int64_t end = static_cast<int64_t>(first) + len;
    int64_t lastEdge = first;
    if (begin > end) return lastEdge;
    const int64_t last = ((end - begin) % 32 != 0) ? end : end - 1;
    bool go = true;
    if (begin < len) {
        const int64_t stop = last + 1 < len ? last + 1 : len;
        go = ForEachEdge(raw, len, static_cast<int>(begin), static_cast<int>(stop), [&](int x) {
            if (x == first) return true;
            const int d = static_cast<int>(x - lastEdge);
            lastEdge = x;
            return onEdge(static_cast<int64_t>(x), d);
        });
    }
    if (go && last >= len) {
        const int64_t from = begin > len ? begin - len : 0;
        ForEachEdge(raw, len, static_cast<int>(from), static_cast<int>(last + 1 - len), [&](int x) {
            const int64_t ux = static_cast<int64_t>(x) + len;
            const int d = static_cast<int>(ux - lastEdge);
            lastEdge = ux;
            return onEdge(ux, d);
        });
    }
    return lastEdge;
}

inline int32_t Wrap(int64_t v) {
    return static_cast<int32_t>(static_cast<uint32_t>(v));
}
inline int32_t WrapMul(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
inline int32_t WrapAdd(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
inline int32_t WrapSub(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

// The start values used by every scan of a track.
inline VFOState VfoStart() {
    VFOState v{};
    v.gain = 6553;       // about 0.1 in 16.16
    v.period = 0x80000;  // 8 samples a cell
    v.bias = 45875;      // about 0.7, added before the centres are truncated
    v.center2 = 16;
    v.center3 = 24;
    v.center4 = 32;
    return v;
}

// One step of the cell clock; fixed-point arithmetic wraps at 32 bits.
inline void VfoStep(VFOState& v, int d) {
    const int64_t dd = d;
    const int64_t w2 = v.center2, w3 = v.center3, w4 = v.center4;
    // Written without branches: the band of each interval of a data field is as
    // good as random and a mispredicted jump per edge would cost more than all
    // of this.
    const bool up2 = dd <= w2 + 2;
    const bool up3 = !up2 && dd <= w3 + 2;
    const bool up4 = !up2 && !up3 && dd <= w4 + 2;
    const int64_t band = (up2 && dd >= w2 - 2)   ? 2
                         : (up3 && dd >= w3 - 2) ? 3
                         : (up4 && dd >= w4 - 2) ? 4
                                                 : 0;
    // Otherwise rounded: the fixed divisor 8 and the tie rule (half-way rounds up
    // only when not shorter than the previous interval) are part of the timing.
    const int64_t rounded = (dd + (dd < v.lastInterval ? 3 : 4)) / 8;
    const int64_t count = band ? band : rounded;
    v.valid = (d >= 9 && d <= 39) ? 1 : 0;
    const int32_t c = static_cast<int32_t>(count);
    if (c > 63) {
        v.history = 0;
        v.lastInterval = d;
        v.cells = c;
        v.totalSamples = WrapAdd(v.totalSamples, d);
        v.totalCells = WrapAdd(v.totalCells, c);
        v.locked = 0;
        return;
    }
    if (c >= 1) v.history = (v.history << c) | 1u;
    v.cells = c;
    v.lastInterval = d;
    v.totalSamples = WrapAdd(v.totalSamples, d);
    v.totalCells = WrapAdd(v.totalCells, c);

    int32_t error;
    if (v.history == 0x5555555555555555ull) {
        if (!v.locked) {
            v.locked = 1;
            return;
        }
        error = WrapSub(WrapMul(d, 65536), WrapMul(2, v.period)) >> 1;
    } else if (v.history == 0x1111111111111111ull) {
        if (!v.locked) {
            v.locked = 1;
            return;
        }
        error = WrapSub(WrapMul(d, 65536), WrapMul(4, v.period)) / 4;
    } else {
        v.locked = 0;
        return;
    }
    if (error == 0) return;
    v.period = WrapAdd(v.period, WrapMul(v.gain, error) >> 16);
    v.center2 = WrapAdd(v.bias, WrapMul(2, v.period)) >> 16;
    v.center3 = WrapAdd(v.bias, WrapMul(3, v.period)) >> 16;
    v.center4 = WrapAdd(v.bias, WrapMul(4, v.period)) >> 16;
}

// The same loop for the scanners' inner loops: the state lives in plain
// members the compiler can keep in registers, the cell count of short intervals
// comes from a table rebuilt whenever the centres move, and the running totals, which
// no scanner reads, are not kept. Step gives the cells and validity exactly as
// VfoStep does.
class Separator {
public:
    Separator() : v_(VfoStart()) { Rebuild(); }

    struct Result {
        int cells;
        bool valid;
    };

    // Inlined into the scanners' loops; the rare cases are kept out of line.
    [[gnu::always_inline]] Result Step(int d) {
        if (!tableOk_ || static_cast<unsigned>(d) >= static_cast<unsigned>(kTable)) [[unlikely]]
            return StepSlow(d);
        const int count = count_[d][d >= v_.lastInterval ? 1 : 0];
        const bool valid = static_cast<unsigned>(d - 9) <= 30u;  // 9 .. 39
        if (count >= 1) v_.history = (v_.history << count) | 1u;
        v_.lastInterval = d;
        if (v_.history == 0x5555555555555555ull || v_.history == 0x1111111111111111ull) [[unlikely]]
            Sync(d);
        else
            v_.locked = 0;
        return {count, valid};
    }

private:
    static constexpr int kTable = 64;

    [[gnu::noinline]] Result StepSlow(int d) {
        VfoStep(v_, d);
        if (v_.center2 != c2_ || v_.center3 != c3_ || v_.center4 != c4_) Rebuild();
        return {v_.cells, v_.valid != 0};
    }

    [[gnu::noinline]] void Sync(int d) {
        if (!v_.locked) {
            v_.locked = 1;
            return;
        }
        const int32_t error = v_.history == 0x5555555555555555ull
                                  ? WrapSub(WrapMul(d, 65536), WrapMul(2, v_.period)) >> 1
                                  : WrapSub(WrapMul(d, 65536), WrapMul(4, v_.period)) / 4;
        if (error == 0) return;
        v_.period = WrapAdd(v_.period, WrapMul(v_.gain, error) >> 16);
        v_.center2 = WrapAdd(v_.bias, WrapMul(2, v_.period)) >> 16;
        v_.center3 = WrapAdd(v_.bias, WrapMul(3, v_.period)) >> 16;
        v_.center4 = WrapAdd(v_.bias, WrapMul(4, v_.period)) >> 16;
        if (v_.center2 != c2_ || v_.center3 != c3_ || v_.center4 != c4_) Rebuild();
    }

    void Rebuild() {
        c2_ = v_.center2;
        c3_ = v_.center3;
        c4_ = v_.center4;
        const int64_t w2 = c2_, w3 = c3_, w4 = c4_;
        // Only when every interval at or past the table's end is rounded.
        tableOk_ = w2 + 2 < kTable && w3 + 2 < kTable && w4 + 2 < kTable;
        for (int d = 0; d < kTable; d++) {
            int b = 0;
            if (d <= w2 + 2) {
                if (d >= w2 - 2) b = 2;
            } else if (d <= w3 + 2) {
                if (d >= w3 - 2) b = 3;
            } else if (d <= w4 + 2) {
                if (d >= w4 - 2) b = 4;
            }
            // Otherwise rounded, half-way up only when not shorter than the
            // previous interval.
            count_[d][0] = static_cast<uint8_t>(b ? b : (d + 3) >> 3);
            count_[d][1] = static_cast<uint8_t>(b ? b : (d + 4) >> 3);
        }
    }

    VFOState v_;
    int32_t c2_ = 0, c3_ = 0, c4_ = 0;
    bool tableOk_ = false;
    uint8_t count_[kTable][2] = {};  // [d][d >= lastInterval]
};

}  // namespace rawscan
