// Flux captures made from cell streams: each cell's transition turned into a
// time with jitter, a speed off nominal and damage where asked, then written
// as an SCP file or as KryoFlux stream files. zebsample writes its sample
// capture with it; the tests and benchmarks of the flux readers build theirs.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "fileio/fieldio.h"

namespace fluxsynth {

using Bytes = std::vector<uint8_t>;

inline void Put32(Bytes& b, size_t at, uint64_t v) {
    FieldWriter(b.data(), b.size()).U32(at, static_cast<uint32_t>(v));
}
inline uint32_t ScpSum(const Bytes& b) {
    uint32_t sum = 0;
    for (size_t i = 0x10; i < b.size(); i++) sum += b[i];
    return sum;
}

// One physical track as the drive saw it: transition and index times in clock
// units from the start of the capture.
struct Flux {
    std::vector<uint64_t> times;
    std::vector<uint64_t> index;  // revolutions + 1 of them
};

struct Shape {
    int revolutions = 3;
    double clockHz = 18432000.0 * 73 / 14 / 2;
    double cellSeconds = 2e-6;               // a 500 kbit/s cell
    double speed = 1.0;                      // 1.03: cells 3% longer than nominal
    double jitter = 0.10;                    // most a transition moves, in cells
    std::vector<std::array<int, 3>> damage;  // {revolution, first cell, end cell} spoilt
    uint32_t seed = 1;
};

inline Flux CellsToFlux(const uint8_t* cells, int bits, const Shape& s) {
    std::mt19937 rng(s.seed);
    std::uniform_real_distribution<double> jit(-s.jitter, s.jitter), wild(-1.5, 1.5);
    const double cell = s.cellSeconds * s.speed * s.clockHz;
    const double lead = cell / 3;  // the index falls between two fluxes
    std::vector<double> t;
    for (int r = 0; r < s.revolutions; r++) {
        for (int i = 0; i < bits; i++) {
            if (!((cells[i >> 3] >> (7 - (i & 7))) & 1)) continue;
            double j = jit(rng);
            for (const auto& [rev, from, to] : s.damage)
                if (r == rev && i >= from && i < to) j = wild(rng);
            t.push_back(lead + (double(r) * bits + i + 0.5 + j) * cell);
        }
    }
    std::sort(t.begin(), t.end());
    Flux f;
    for (double v : t) f.times.push_back(static_cast<uint64_t>(std::llround(v)));
    for (int r = 0; r <= s.revolutions; r++)
        f.index.push_back(static_cast<uint64_t>(std::llround(lead + double(r) * bits * cell)));
    f.times.push_back(f.index.back() + static_cast<uint64_t>(3 * cell));  // the drive reads on
    return f;
}

// A drive's view of a track under realistic noise: every transition sits at
// its cell's place, displaced by Gaussian noise; the disk turns with a slow
// wobble over each revolution around a speed of its own; the index lies
// anywhere in the track; and the flux runs on across each index, revolution
// r + 1 continuing where r ended.
struct Noise {
    double sigma = 0.0;  // Gaussian displacement of each transition, in cells
    // Speed 1 + wobble * sin(2 pi x / revolution + phase) at cell x of the
    // revolution, the phase drawn per track.
    double wobble = 0.015;
    double offset = 0.01;  // the track's own speed, drawn within 1 +- offset
    int indexCell = -1;    // the cell the index lies at; -1: a random one
    int revolutions = 2;
    double clockHz = 40e6;  // SCP at 25 ns
    // Nominal length of one cell, as in Shape: an MFM data bit is two cells
    // (clock and data) and an FM one four, so 2e-6 for 250 kbit/s MFM and
    // 1e-6 for 500 kbit/s MFM.
    double cellSeconds = 2e-6;
    uint32_t seed = 1;
};

// One track's continuous flux over n.revolutions turns, with its index times.
inline Flux NoisyFlux(const uint8_t* cells, int bits, const Noise& n) {
    constexpr double kTwoPi = 6.283185307179586;
    constexpr int kLead = 16;  // cells the drive reads before the first index and after the last
    Flux f;
    if (bits <= 0 || n.revolutions <= 0) return f;
    std::mt19937 rng(n.seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::normal_distribution<double> gauss(0.0, 1.0);
    const double phase = kTwoPi * unit(rng);
    const double cell = n.cellSeconds * n.clockHz / (1.0 + n.offset * (2 * unit(rng) - 1));
    const int index =
        n.indexCell >= 0 ? n.indexCell % bits : static_cast<int>(unit(rng) * bits) % bits;
    // Clock units a cell lasts at position x (cells from the first index).
    auto length = [&](double x) {
        return cell / (1.0 + n.wobble * std::sin(kTwoPi * x / bits + phase));
    };
    // Time runs from x = -kLead; each step integrates the cell length over
    // the few cells between two events at its middle: the wobble is slow.
    double x = -kLead, t = 0;
    auto advance = [&](double to) {
        t += (to - x) * length((x + to) / 2);
        x = to;
    };
    std::vector<double> times;
    const int64_t total = int64_t{n.revolutions} * bits;
    for (int64_t k = -kLead; k < total + kLead; k++) {
        if (k >= 0 && k <= total && k % bits == 0) {
            advance(static_cast<double>(k));
            f.index.push_back(static_cast<uint64_t>(std::llround(t)));
        }
        const int64_t i = ((k + index) % bits + bits) % bits;
        if (!((cells[i >> 3] >> (7 - (i & 7))) & 1)) continue;
        advance(static_cast<double>(k) + 0.5);
        const double at = t + (n.sigma > 0 ? n.sigma * gauss(rng) * length(x) : 0.0);
        times.push_back(std::max(at, 1.0));
    }
    std::sort(times.begin(), times.end());
    f.times.reserve(times.size());
    for (double v : times) f.times.push_back(static_cast<uint64_t>(std::llround(v)));
    return f;
}

// tracks: SCP track number (cylinder x 2 + head) to its flux, in clock units
// of the resolution (25 ns x (n + 1)).
inline Bytes MakeScp(const std::map<int, Flux>& tracks, uint8_t heads = 0, uint8_t res = 0) {
    const size_t revs = tracks.begin()->second.index.size() - 1;
    Bytes b(0x10 + 168 * 4, 0);
    std::memcpy(b.data(), "SCP\x19\x80", 5);
    b[5] = static_cast<uint8_t>(revs), b[8] = 1, b[10] = heads, b[11] = res;
    b[6] = static_cast<uint8_t>(tracks.begin()->first),
    b[7] = static_cast<uint8_t>(tracks.rbegin()->first);
    for (const auto& [number, f] : tracks) {
        const size_t at = b.size();
        Put32(b, 0x10 + 4 * static_cast<size_t>(number), at);
        b.resize(at + 4 + 12 * revs);
        b[at] = 'T', b[at + 1] = 'R', b[at + 2] = 'K', b[at + 3] = static_cast<uint8_t>(number);
        for (size_t r = 0; r < revs; r++) {
            const size_t data = b.size();
            uint64_t last = f.index[r];
            for (uint64_t t : f.times) {
                if (t <= f.index[r] || t > f.index[r + 1]) continue;
                b.insert(b.end(), 2 * ((t - last) >> 16), 0);  // each zero carries 65,536
                const uint64_t low = std::max<uint64_t>((t - last) & 0xFFFF, 1);
                b.push_back(static_cast<uint8_t>(low >> 8)), b.push_back(static_cast<uint8_t>(low));
                last = t;
            }
            Put32(b, at + 4 + 12 * r, f.index[r + 1] - f.index[r]);
            Put32(b, at + 8 + 12 * r, (b.size() - data) / 2);
            Put32(b, at + 12 + 12 * r, data - at);
        }
    }
    Put32(b, 12, ScpSum(b));
    return b;
}

inline void Oob(Bytes& b, uint8_t type, const Bytes& payload) {
    b.push_back(0x0D), b.push_back(type);
    b.push_back(static_cast<uint8_t>(payload.size()));
    b.push_back(static_cast<uint8_t>(payload.size() >> 8));
    for (uint8_t x : payload) b.push_back(x);
}
inline Bytes Le32(std::initializer_list<uint64_t> v) {
    Bytes b;
    for (uint64_t x : v)
        for (int i = 0; i < 4; i++) b.push_back(static_cast<uint8_t>(x >> (8 * i)));
    return b;
}

// One stream file of a track; a KF info block names sck when it is not 0, and
// Nop1-3 codes are sprinkled between fluxes when asked, their skipped bytes
// such that a reader taking them as fluxes would move every transition after.
inline Bytes MakeStream(const Flux& f, double sck = 0, bool nops = false) {
    Bytes b;
    uint64_t pos = 0;  // bytes outside blocks
    auto put = [&](std::initializer_list<uint8_t> codes) {
        for (uint8_t x : codes) b.push_back(x);
        pos += codes.size();
    };
    const std::string info =
        "name=zebkit, sck=" + std::to_string(sck) + ", ick=" + std::to_string(sck / 8);
    if (sck > 0) Oob(b, 4, Bytes(info.c_str(), info.c_str() + info.size() + 1));
    uint64_t last = 0;
    size_t next = 0, k = 0;
    for (uint64_t t : f.times) {
        const uint64_t v = t - last, first = pos, low = v & 0xFFFF;
        for (uint64_t n = 0; n < v >> 16; n++) put({0x0B});
        const auto hi = static_cast<uint8_t>(low >> 8), lo = static_cast<uint8_t>(low);
        if (low >= 0x0E && low <= 0xFF)
            put({lo});
        else if (low < 0x800)
            put({hi, lo});
        else
            put({0x0C, hi, lo});
        // The index blocks of this flux follow it, as the device sends them.
        for (; next < f.index.size() && f.index[next] < t; next++) {
            const uint64_t within = f.index[next] - last;
            Oob(b, 2, Le32({first + (within >> 16), within & 0xFFFF, f.index[next] / 8}));
        }
        if (nops && k % 97 == 96) put({0x08}), put({0x09, 0x40}), put({0x0A, 0x40, 0x40});
        if (++k % 4096 == 0) Oob(b, 1, Le32({pos, 0}));
        last = t;
    }
    Oob(b, 3, Le32({pos, 0}));
    b.insert(b.end(), {0x0D, 0x0D, 0x0D, 0x0D});
    return b;
}

inline std::string StreamName(const std::string& dir, int number) {
    char name[32];
    std::snprintf(name, sizeof name, "/track%02d.%d.raw", number / 2, number % 2);
    return dir + name;
}

}  // namespace fluxsynth
