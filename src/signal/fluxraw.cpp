#include "signal/fluxraw.h"

#include <cstdint>
#include <cstring>

#include "signal/fluxcell.h"

namespace {

constexpr uint64_t kPulse = 0xE000000000000000ULL;  // 1,1,1 from the word's first sample
constexpr int kSpcShift = 32;                       // samples a clock unit, 32.32
constexpr uint64_t kHalf = 1ULL << (kSpcShift - 1);

// Samples a clock unit, eight a cell: a 32.32 value and 32 more bits of
// fraction, so that a position is exact to far below a sample over any track.
struct Scale {
    uint64_t spc = 0;   // 32.32
    uint64_t frac = 0;  // the next 32 bits
};
Scale SamplesPerClock(uint64_t cellTime) {
    Scale s;
    if (cellTime == 0) return s;
    const uint64_t num = uint64_t{8} << (kCellTimeShift + kSpcShift);
    s.spc = num / cellTime;
    s.frac = ((num % cellTime) << kSpcShift) / cellTime;
    return s;
}

// Samples at acc clock units, rounded (acc below 2^32).
inline uint64_t SampleAt(uint64_t acc, const Scale& s) {
    return (acc * s.spc + ((acc * s.frac) >> kSpcShift) + kHalf) >> kSpcShift;
}

// Stores the 64-bit word as eight big-endian bytes, as far as the buffer goes.
void StoreWord(uint8_t* raw, uint64_t bytes, uint64_t index, uint64_t word) {
    const uint64_t at = index * 8;
    if (bytes - at >= 8) {
        uint8_t be[8];
        for (int i = 0; i < 8; i++) be[i] = static_cast<uint8_t>(word >> (56 - 8 * i));
        std::memcpy(raw + at, be, 8);
        return;
    }
    const uint64_t n = bytes - at < 8 ? bytes - at : 8;
    for (uint64_t i = 0; i < n; i++) raw[at + i] = static_cast<uint8_t>(word >> (56 - 8 * i));
}

void SetSample(uint8_t* raw, uint64_t s) {
    raw[s >> 3] = static_cast<uint8_t>(raw[s >> 3] | (0x80 >> (s & 7)));
}

}  // namespace

uint64_t FluxRawLength(uint64_t length, uint64_t cellTime) {
    const Scale s = SamplesPerClock(cellTime);
    if (s.spc == 0 || length > UINT32_MAX || length > (UINT64_MAX / 2) / s.spc) return 0;
    return SampleAt(length, s);
}

int64_t Flux2Raw(const uint32_t* intervals, size_t n, uint64_t length, uint64_t cellTime,
                 uint8_t* raw, int64_t rawCap) {
    const Scale scale = SamplesPerClock(cellTime);
    const uint64_t total = FluxRawLength(length, cellTime);
    if (total == 0 || rawCap <= 0 || total > static_cast<uint64_t>(rawCap) || !raw) return -1;
    const uint64_t bytes = (static_cast<uint64_t>(rawCap) + 7) / 8;
    const uint64_t words = (bytes + 7) / 8;

    // Pulses are written into one 64-bit word at a time and every word is
    // stored once; a pulse that runs past the revolution's end is folded onto
    // its start afterwards, bit by bit.
    uint64_t word = 0, carry = 0, current = 0;
    uint64_t acc = 0;
    uint64_t wrapped[2];
    int nWrapped = 0;
    for (size_t i = 0; i < n; i++) {
        acc += intervals[i];
        if (acc > length) break;
        // Rounded once a pulse from the exact time since the index.
        const uint64_t s = SampleAt(acc, scale);
        if (s + 2 >= total) {
            if (nWrapped < 2) wrapped[nWrapped++] = s;
            continue;
        }
        const uint64_t w = s >> 6;
        while (current < w) {
            StoreWord(raw, bytes, current++, word);
            word = carry;
            carry = 0;
        }
        const unsigned off = static_cast<unsigned>(s & 63);
        word |= kPulse >> off;
        if (off > 61) carry |= kPulse << (64 - off);
    }
    while (current < words) {
        StoreWord(raw, bytes, current++, word);
        word = carry;
        carry = 0;
    }
    for (int k = 0; k < nWrapped; k++)
        for (uint64_t j = 0; j < 3; j++) SetSample(raw, (wrapped[k] + j) % total);
    return static_cast<int64_t>(total);
}
