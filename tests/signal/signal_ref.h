// Slow, literal versions of the signal functions: bit by bit and sample by
// sample, used to check the word-at-a-time implementations.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "signal/bitstream.h"
#include "signal/vfo.h"

namespace ref {

inline int Bit(const uchar* b, int len, int64_t p) {
    return BfGetBit(b, len, p);
}

inline uint32_t GetLong(const uchar* b, int len, int pos) {
    uint32_t v = 0;
    for (int i = 0; i < 32; i++)
        v = (v << 1) | static_cast<uint32_t>(Bit(b, len, int64_t{pos} + i));
    return v;
}

inline bool MatchAt(const uchar* b, int len, int64_t at, const uchar* pat, int patLen) {
    for (int j = 0; j < patLen; j++)
        if (Bit(b, len, at + j) != ((pat[j / 8] >> (7 - j % 8)) & 1)) return false;
    return true;
}

inline int Find(const uchar* b, int len, int start, int range, const uchar* pat, int patLen) {
    if (patLen % 32 == 0) {
        const int64_t last = int64_t{start} + range - patLen;
        for (int64_t g = start; g <= last; g += 32)
            for (int k = 0; k < 32; k++)
                if (MatchAt(b, len, g + k, pat, patLen)) return static_cast<int>(g + k - start);
        return -1;
    }
    const int64_t n = int64_t{range} - patLen + 1;
    for (int64_t i = 0; i < n; i++) {
        bool ok = true;
        if (patLen % 8 == 0) {
            for (int j = 0; ok && j < patLen / 8; j++) {
                int v = 0;
                for (int t = 0; t < 8; t++) v = (v << 1) | Bit(b, len, start + i + 8 * j + t);
                ok = v == pat[j];
            }
        } else {
            ok = MatchAt(b, len, start + i, pat, patLen);
        }
        if (ok) return static_cast<int>(i);
    }
    return -1;
}

// First rising edge, read in 32-sample words from sample 0, or -1.
inline int FirstEdge(const uchar* raw, int len) {
    int prev = Bit(raw, len, len - 1);
    for (int64_t w = 0; w < len; w += 32)
        for (int i = 0; i < 32; i++) {
            const int s = Bit(raw, len, w + i);
            if (s && !prev) return static_cast<int>(w + i);
            prev = s;
        }
    return -1;
}

// The separator's scan, sample by sample. edge(x, d) is called per treated edge;
// stopAtWord() is asked at every word boundary. Returns the closing interval.
inline int64_t Scan(const uchar* raw, int len, int first,
                    const std::function<void(int64_t, int)>& edge,
                    const std::function<bool()>& stopAtWord) {
    int64_t pos = (first + 7) / 8 * 8;
    int64_t d = pos - first, o = pos - first;
    int prev = Bit(raw, len, pos - 1);
    for (;;) {
        if (o >= len || stopAtWord()) break;
        bool done = false;
        for (int i = 0; i < 32 && !done; i++, pos++) {
            const int s = Bit(raw, len, pos);
            const bool rising = s && !prev;
            prev = s;
            o = pos + 1 - first;
            if (rising && d > 0) {
                edge(pos, static_cast<int>(d));
                d = 1;
                if (o >= len) done = true;
            } else {
                d++;
            }
        }
        if (done) break;
    }
    return d - (o - len);
}

inline int Raw2Encode(const uchar* raw, int rawLen, std::vector<uchar>& enc, int encCap) {
    enc.assign(static_cast<size_t>(encCap + 7) / 8, 0);
    VFOState v;
    VFO_Init(&v);
    const int first = FirstEdge(raw, rawLen);
    if (first < 0) return rawLen / 8;
    const int64_t c0 = first / 8;
    int64_t p = c0;
    auto set = [&](int64_t q, bool on) {
        if (encCap <= 0) return;
        if (on)
            BfSetBit(enc.data(), encCap, q);
        else
            BfClrBit(enc.data(), encCap, q);
    };
    set(p, true);
    const int64_t close = Scan(
        raw, rawLen, first,
        [&](int64_t, int d) {
            VFO_Update(&v, d);
            if (!v.valid) {
                p += v.cells;
            } else if (v.cells == 1) {
                set(p, false);
                p += 1;
                set(p, true);
            } else {
                p += v.cells;
                set(p, true);
            }
        },
        [] { return false; });
    VFO_Update(&v, static_cast<int>(close));
    const int64_t n = p - c0 + v.cells;
    if (n > p) return static_cast<int>(n);
    if (n <= 0) return 0;
    set(p % n, true);
    return static_cast<int>(n);
}

inline int PosMulti(const uchar* raw, int len, std::vector<int>& pos) {
    const int first = FirstEdge(raw, len);
    if (first < 0) return 0;
    const int count = static_cast<int>(pos.size());
    if (count == 0) return 0;
    std::vector<int> res(pos.size(), -1);
    VFOState v;
    VFO_Init(&v);
    int64_t k = first / 8;
    int done = 0;
    Scan(
        raw, len, first,
        [&](int64_t e, int d) {
            VFO_Update(&v, d);
            k += v.cells;
            for (int i = 0; i < count; i++)
                if (res[i] == -1 && pos[i] <= k) {
                    res[i] = static_cast<int>(e - (k - pos[i]) * 8);
                    done++;
                }
        },
        [&] { return done >= count; });
    pos = res;
    return done;
}

inline void PutSamples(uchar* buf, int len, int64_t q, unsigned pattern) {
    for (int i = 0; i < 8; i++) {
        if ((pattern >> (7 - i)) & 1)
            BfSetBit(buf, len, q + i);
        else
            BfClrBit(buf, len, q + i);
    }
}

inline void Align(uchar* raw, int len) {
    const int first = FirstEdge(raw, len);
    if (first < 0) return;
    const std::vector<uchar> orig(raw, raw + (len + 7) / 8);
    VFOState v;
    VFO_Init(&v);
    Scan(
        orig.data(), len, first,
        [&](int64_t x, int d) {
            VFO_Update(&v, d);
            const int64_t ideal = int64_t{v.cells} * 8;
            if (ideal > d) PutSamples(raw, len, x, 0x70);
            if (ideal < d) PutSamples(raw, len, x - 1, 0xE0);
        },
        [] { return false; });
}

inline void Encode2Raw(const uchar* enc, int encLen, std::vector<uchar>& raw, int rawCap) {
    raw.assign(static_cast<size_t>(rawCap + 7) / 8, 0);
    for (int i = 0; i < encLen; i++)
        if ((enc[i / 8] >> (7 - i % 8)) & 1) PutSamples(raw.data(), rawCap, int64_t{8} * i, 0xE0);
}

inline std::vector<uchar> Strech(const uchar* raw, int len, int newLen) {
    std::vector<uchar> out(static_cast<size_t>(newLen + 7) / 8, 0);
    for (int i = 0; i < len; i++) {
        if (Bit(raw, len, i) && !Bit(raw, len, i - 1)) {
            const int64_t q = static_cast<int64_t>(static_cast<uint64_t>(int64_t{i} * newLen) /
                                                   static_cast<uint64_t>(len));
            PutSamples(out.data(), newLen, q, 0xE0);
        }
    }
    return out;
}

}  // namespace ref
