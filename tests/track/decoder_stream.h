// Test-only builder of MFM/FM cell streams, written cell by cell and
// independent of the encoder, so that tests can lay down fields the encoder
// never writes: broken CRCs, missing or doubled data marks, other ID mark
// bytes, streams rotated across the index.
#pragma once

#include <cstdint>
#include <vector>

namespace dectest {

inline uint16_t Crc16(uint16_t crc, const std::vector<uint8_t>& bytes) {
    for (uint8_t b : bytes) {
        crc = static_cast<uint16_t>(crc ^ (b << 8));
        for (int i = 0; i < 8; ++i) {
            crc = static_cast<uint16_t>((crc & 0x8000) ? (crc << 1) ^ 0x1021 : crc << 1);
        }
    }
    return crc;
}

struct SectorSpec {
    bool mfm = true;
    uint8_t c = 0, h = 0, r = 1, n = 2;
    std::vector<uint8_t> data;  // written as the data field, whatever n says
    int gap2 = 22;
    int padCells = 0;  // zero cells after GAP2, to move the data field off the byte grid
    int gap3 = 54;
    uint8_t idMark = 0xFE;
    bool badIdCrc = false;
    bool badDataCrc = false;
    bool noDam = false;         // ID field only; the gap continues instead
    bool deleted = false;       // F8 instead of FB
    bool secondNormal = false;  // a further normal data field follows the first one
};

// Where the builder put a sector's fields (cells from the stream start).
struct Placed {
    int idPos = 0;   // first A1 (MFM) or the mark (FM) of the ID field
    int damPos = 0;  // the same for the data field
    int endPos = 0;  // just past the data CRC
};

class StreamBuilder {
public:
    int Pos() const { return bits_; }
    const std::vector<uint8_t>& Bytes() const { return bytes_; }

    void Cell(int c) {
        if (static_cast<size_t>(bits_ / 8) >= bytes_.size()) bytes_.push_back(0);
        if (c) bytes_[static_cast<size_t>(bits_ / 8)] |= static_cast<uint8_t>(0x80 >> (bits_ % 8));
        ++bits_;
    }
    void Cells(uint32_t v, int n) {
        for (int i = n - 1; i >= 0; --i) Cell((v >> i) & 1);
    }
    void Mfm(uint8_t b, int count = 1) {
        for (int k = 0; k < count; ++k) {
            for (int i = 7; i >= 0; --i) {
                const int d = (b >> i) & 1;
                Cell(!last_ && !d);
                Cell(d);
                last_ = d;
            }
        }
    }
    void MfmBytes(const std::vector<uint8_t>& v) {
        for (uint8_t b : v) Mfm(b);
    }
    void MfmSyncA1() {
        for (int i = 0; i < 3; ++i) Cells(0x4489, 16);
        last_ = 1;
    }
    void Fm(uint8_t b, int count = 1, uint8_t clock = 0xFF) {
        for (int k = 0; k < count; ++k) {
            for (int i = 7; i >= 0; --i) {
                Cell((clock >> i) & 1);
                Cell(0);
                Cell((b >> i) & 1);
                Cell(0);
            }
        }
        last_ = b & 1;
    }
    void FmBytes(const std::vector<uint8_t>& v) {
        for (uint8_t b : v) Fm(b);
    }

    void MfmHeader() {
        Mfm(0x4E, 80);
        Mfm(0x00, 12);
        for (int i = 0; i < 3; ++i) Cells(0x5224, 16);
        last_ = 0;
        Mfm(0xFC);
        Mfm(0x4E, 50);
    }
    void FmHeader() {
        Fm(0xFF, 40);
        Fm(0x00, 6);
        Fm(0xFC, 1, 0xD7);
        Fm(0xFF, 26);
    }

    Placed Sector(const SectorSpec& s) {
        Placed p;
        const uint8_t dm = s.deleted ? 0xF8 : 0xFB;
        const std::vector<uint8_t> id = {s.idMark, s.c, s.h, s.r, s.n};
        if (s.mfm) {
            Mfm(0x00, 12);
            p.idPos = Pos();
            MfmSyncA1();
            MfmBytes(id);
            const uint16_t crc = IdCrc(s);
            MfmBytes({static_cast<uint8_t>(crc >> 8), static_cast<uint8_t>(crc)});
            Mfm(0x4E, s.gap2);
            for (int i = 0; i < s.padCells; ++i) Cell(0);
            if (s.noDam) {
                Mfm(0x4E, s.gap3);
                return p;
            }
            p.damPos = MfmDataField(dm, s.data, s.badDataCrc);
            p.endPos = Pos();
            if (s.secondNormal) {
                Mfm(0x4E, 10);
                MfmDataField(0xFB, s.data, false);
            }
            Mfm(0x4E, s.gap3);
        } else {
            Fm(0x00, 6);
            p.idPos = Pos();
            Fm(s.idMark, 1, 0xC7);
            FmBytes({s.c, s.h, s.r, s.n});
            const uint16_t crc = IdCrc(s);
            FmBytes({static_cast<uint8_t>(crc >> 8), static_cast<uint8_t>(crc)});
            Fm(0xFF, s.gap2);
            for (int i = 0; i < s.padCells; ++i) Cell(0);
            if (s.noDam) {
                Fm(0xFF, s.gap3);
                return p;
            }
            p.damPos = FmDataField(dm, s.data, s.badDataCrc);
            p.endPos = Pos();
            if (s.secondNormal) {
                Fm(0xFF, 10);
                FmDataField(0xFB, s.data, false);
            }
            Fm(0xFF, s.gap3);
        }
        return p;
    }

    // Fills up to total cells with gap bytes of the given density, then
    // with single cells.
    void PadTo(int total, bool mfm) {
        while (Pos() + (mfm ? 16 : 32) <= total) mfm ? Mfm(0x4E) : Fm(0xFF);
        while (Pos() < total) Cell(0);
    }

    // The stream turned so that cell k becomes cell 0.
    std::vector<uint8_t> Rotated(int k) const {
        std::vector<uint8_t> out(bytes_.size(), 0);
        for (int i = 0; i < bits_; ++i) {
            const int src = (i + k) % bits_;
            if ((bytes_[static_cast<size_t>(src / 8)] >> (7 - src % 8)) & 1) {
                out[static_cast<size_t>(i / 8)] |= static_cast<uint8_t>(0x80 >> (i % 8));
            }
        }
        return out;
    }

    static uint16_t IdCrc(const SectorSpec& s) {
        std::vector<uint8_t> f;
        if (s.mfm) f = {0xA1, 0xA1, 0xA1};
        f.insert(f.end(), {s.idMark, s.c, s.h, s.r, s.n});
        return static_cast<uint16_t>(Crc16(0xFFFF, f) ^ (s.badIdCrc ? 0x0100 : 0));
    }

private:
    int MfmDataField(uint8_t mark, const std::vector<uint8_t>& data, bool bad) {
        Mfm(0x00, 12);
        const int pos = Pos();
        MfmSyncA1();
        Mfm(mark);
        MfmBytes(data);
        std::vector<uint8_t> f = {0xA1, 0xA1, 0xA1, mark};
        f.insert(f.end(), data.begin(), data.end());
        const uint16_t crc = static_cast<uint16_t>(Crc16(0xFFFF, f) ^ (bad ? 1 : 0));
        MfmBytes({static_cast<uint8_t>(crc >> 8), static_cast<uint8_t>(crc)});
        return pos;
    }
    int FmDataField(uint8_t mark, const std::vector<uint8_t>& data, bool bad) {
        Fm(0x00, 6);
        const int pos = Pos();
        Fm(mark, 1, 0xC7);
        FmBytes(data);
        std::vector<uint8_t> f = {mark};
        f.insert(f.end(), data.begin(), data.end());
        const uint16_t crc = static_cast<uint16_t>(Crc16(0xFFFF, f) ^ (bad ? 1 : 0));
        FmBytes({static_cast<uint8_t>(crc >> 8), static_cast<uint8_t>(crc)});
        return pos;
    }

    std::vector<uint8_t> bytes_;
    int bits_ = 0;
    int last_ = 0;
};

// Expands cells into a raw signal: 8 samples a cell, pulse 11100000 at each 1.
inline std::vector<uint8_t> CellsToRaw(const std::vector<uint8_t>& cells, int len) {
    std::vector<uint8_t> raw(static_cast<size_t>(len), 0);
    for (int i = 0; i < len; ++i) {
        if ((cells[static_cast<size_t>(i / 8)] >> (7 - i % 8)) & 1)
            raw[static_cast<size_t>(i)] = 0xE0;
    }
    return raw;
}

// The same, but cells in [from, to) take stretch times 8 samples each;
// *samples receives the signal's length.
inline std::vector<uint8_t> CellsToRawStretched(const std::vector<uint8_t>& cells, int len,
                                                int from, int to, double stretch, int* samples) {
    std::vector<double> start(static_cast<size_t>(len) + 1);
    double at = 0;
    for (int i = 0; i < len; ++i) {
        start[static_cast<size_t>(i)] = at;
        at += (i >= from && i < to) ? 8.0 * stretch : 8.0;
    }
    *samples = static_cast<int>(at);
    std::vector<uint8_t> raw(static_cast<size_t>((*samples + 7) / 8), 0);
    for (int i = 0; i < len; ++i) {
        if (!((cells[static_cast<size_t>(i / 8)] >> (7 - i % 8)) & 1)) continue;
        const int s0 = static_cast<int>(start[static_cast<size_t>(i)]);
        for (int k = 0; k < 3; ++k) {
            const int p = (s0 + k) % *samples;
            raw[static_cast<size_t>(p / 8)] |= static_cast<uint8_t>(0x80 >> (p % 8));
        }
    }
    return raw;
}

// Bytes 0..n-1 of a recognisable pattern seeded by seed.
inline std::vector<uint8_t> Pattern(int n, int seed) {
    std::vector<uint8_t> v(static_cast<size_t>(n));
    uint32_t x = 0x9E3779B9u * static_cast<uint32_t>(seed + 1);
    for (auto& b : v) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        b = static_cast<uint8_t>(x >> 24);
    }
    return v;
}

}  // namespace dectest
