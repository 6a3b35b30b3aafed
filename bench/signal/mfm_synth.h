// A 2HD MFM track built for the benchmarks: 18 sectors of random data with
// gaps, sync marks and address marks, 166,666 cells.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace benchdata {

constexpr int kTrackCells = 166666;

class MfmWriter {
public:
    explicit MfmWriter(int cells) : bits_(static_cast<size_t>(cells + 7) / 8, 0), cap_(cells) {}

    void Byte(uint8_t v) {
        for (int i = 7; i >= 0; i--) {
            const int d = (v >> i) & 1;
            Cell(!d && !prev_);
            Cell(d);
            prev_ = d;
        }
    }
    // A1 with its missing clock: the cells 0x4489.
    void SyncA1() {
        for (int i = 15; i >= 0; i--) Cell((0x4489 >> i) & 1);
        prev_ = 1;
    }
    int pos() const { return pos_; }
    std::vector<uint8_t>& bits() { return bits_; }

private:
    void Cell(int v) {
        if (pos_ < cap_ && v)
            bits_[static_cast<size_t>(pos_ / 8)] |= static_cast<uint8_t>(0x80 >> (pos_ % 8));
        pos_++;
    }
    std::vector<uint8_t> bits_;
    int cap_;
    int pos_ = 0;
    int prev_ = 0;
};

struct Track {
    std::vector<uint8_t> cells;
    std::vector<int> markCells;  // cell position of every address mark's first sync
};

inline Track MakeMfmTrack(uint32_t seed) {
    std::mt19937 rng(seed);
    MfmWriter w(kTrackCells);
    Track t;
    for (int i = 0; i < 16; i++) w.Byte(0x4E);
    for (int s = 0; s < 18; s++) {
        for (int i = 0; i < 12; i++) w.Byte(0x00);
        t.markCells.push_back(w.pos());
        for (int i = 0; i < 3; i++) w.SyncA1();
        w.Byte(0xFE);
        for (uint8_t v : {uint8_t{0}, uint8_t{0}, static_cast<uint8_t>(s + 1), uint8_t{2}})
            w.Byte(v);
        w.Byte(static_cast<uint8_t>(rng()));
        w.Byte(static_cast<uint8_t>(rng()));
        for (int i = 0; i < 22; i++) w.Byte(0x4E);
        for (int i = 0; i < 12; i++) w.Byte(0x00);
        t.markCells.push_back(w.pos());
        for (int i = 0; i < 3; i++) w.SyncA1();
        w.Byte(0xFB);
        for (int i = 0; i < 512 + 2; i++) w.Byte(static_cast<uint8_t>(rng()));
        for (int i = 0; i < 4; i++) w.Byte(0x4E);
    }
    while (w.pos() < kTrackCells) w.Byte(0x4E);
    t.cells = std::move(w.bits());
    return t;
}

// The 128 cells of A1 A1 A1 followed by the mark byte m.
inline std::vector<uint8_t> MarkPattern(uint8_t m) {
    MfmWriter w(128);
    for (int i = 0; i < 3; i++) w.SyncA1();
    w.Byte(m);
    return w.bits();
}

}  // namespace benchdata
