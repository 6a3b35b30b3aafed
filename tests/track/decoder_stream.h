// Test-only MFM/FM cell streams, cell by cell and independent of the encoder, with what
// it never writes: broken CRCs, missing or doubled data marks, other ID marks, turned streams.
#pragma once

#include <cstdint>
#include <vector>

#include "track/vtrack.h"

namespace dectest {

// CRC-16-CCITT bit by bit: polynomial 0x1021, MSB first.
constexpr uint16_t CrcByte(uint16_t crc, uint8_t b) {
    crc = static_cast<uint16_t>(crc ^ (b << 8));
    for (int i = 0; i < 8; ++i)
        crc = static_cast<uint16_t>((crc & 0x8000) ? (crc << 1) ^ 0x1021 : crc << 1);
    return crc;
}

struct SectorLayout {
    bool mfm = true;
    uint8_t c = 0, h = 0, r = 1, n = 2;
    std::vector<uint8_t> data;  // written as the data field, whatever n says
    int gap2 = 22, gap3 = 54;
    uint8_t idMark = 0xFE;
    // noDam: ID field only, the gap goes on; deleted: F8 instead of FB;
    // secondNormal: a further normal data field follows the first one.
    bool badIdCrc = false, badDataCrc = false, noDam = false, deleted = false, secondNormal = false;
};

// Where the builder put a sector (cells from the stream start): the first A1 (MFM) or the
// mark (FM) of the ID and data fields, and the end of the data CRC.
struct Placed {
    int idPos = 0, damPos = 0, endPos = 0;
};

class StreamBuilder {
public:
    int Pos() const { return bits_; }
    const std::vector<uint8_t>& Bytes() const { return bytes_; }

    void Cells(uint32_t v, int n) {
        for (int i = n - 1; i >= 0; --i) {
            if (static_cast<size_t>(bits_ / 8) >= bytes_.size()) bytes_.push_back(0);
            if ((v >> i) & 1) bytes_[static_cast<size_t>(bits_ / 8)] |= 0x80 >> (bits_ % 8);
            ++bits_;
        }
    }
    // count copies of b: MFM with the clock rule, FM with the given clock byte.
    void Put(uint8_t b, bool mfm, int count = 1, uint8_t clock = 0xFF) {
        for (int k = 0; k < count; ++k)
            for (int i = 7, d = 0; i >= 0; --i, last_ = d) {
                d = (b >> i) & 1;
                mfm ? Cells((!last_ && !d) * 2 + d, 2) : Cells(((clock >> i) & 1) * 8 + d * 2, 4);
            }
    }
    void MfmHeader() {
        Put(0x4E, true, 80), Put(0x00, true, 12), Sync(0x5224, 0), Put(0xFC, true),
            Put(0x4E, true, 50);
    }
    void FmHeader() {
        Put(0xFF, false, 40), Put(0x00, false, 6), Put(0xFC, false, 1, 0xD7), Put(0xFF, false, 26);
    }
    Placed Sector(const SectorLayout& s) {
        const uint8_t gap = s.mfm ? 0x4E : 0xFF;
        Placed p;
        p.idPos = Field(s.mfm, s.idMark, {s.c, s.h, s.r, s.n}, s.badIdCrc);
        Put(gap, s.mfm, s.gap2);
        if (!s.noDam) {
            p.damPos = Field(s.mfm, s.deleted ? 0xF8 : 0xFB, s.data, s.badDataCrc);
            p.endPos = Pos();
            if (s.secondNormal) Put(gap, s.mfm, 10), Field(s.mfm, 0xFB, s.data, false);
        }
        Put(gap, s.mfm, s.gap3);
        return p;
    }
    // Gap bytes up to total cells, then single zero cells.
    void PadTo(int total, bool mfm) {
        while (Pos() + (mfm ? 16 : 32) <= total) Put(mfm ? 0x4E : 0xFF, mfm);
        while (Pos() < total) Cells(0, 1);
    }
    // The stream turned so that cell k becomes cell 0.
    std::vector<uint8_t> Rotated(int k) const {
        StreamBuilder out;
        for (int i = k; i < k + bits_; ++i)
            out.Cells(bytes_[(i % bits_) / 8] >> (7 - i % bits_ % 8), 1);
        return out.bytes_;
    }

private:
    // Sync, mark, body and CRC (off by one when bad); returns the first A1 or the FM mark.
    int Field(bool mfm, uint8_t mark, const std::vector<uint8_t>& body, bool bad) {
        Put(0x00, mfm, mfm ? 12 : 6);
        const int pos = Pos();
        if (mfm) Sync(0x4489, 1);
        Put(mark, mfm, 1, 0xC7);
        uint16_t crc =
            CrcByte(mfm ? CrcByte(CrcByte(CrcByte(0xFFFF, 0xA1), 0xA1), 0xA1) : 0xFFFF, mark);
        for (uint8_t b : body) crc = CrcByte(crc, b), Put(b, mfm);
        crc ^= bad ? 1 : 0;
        Put(crc >> 8, mfm), Put(crc & 0xFF, mfm);
        return pos;
    }
    // Three sync bytes with a missing clock, then the data bit they end with.
    void Sync(uint16_t cells, int last) {
        for (int i = 0; i < 3; ++i) Cells(cells, 16);
        last_ = last;
    }

    std::vector<uint8_t> bytes_;
    int bits_ = 0;
    int last_ = 0;
};

// Cells as a raw signal, 8 samples a cell and a 3-sample pulse at each 1, but
// cells in [from, to) take stretch times 8 samples; *samples gets the length.
inline std::vector<uint8_t> CellsToRawStretched(const std::vector<uint8_t>& cells, int len,
                                                int from, int to, double stretch, int* samples) {
    std::vector<int> pulses;
    double at = 0;
    for (int i = 0; i < len; ++i) {
        if ((cells[static_cast<size_t>(i / 8)] >> (7 - i % 8)) & 1)
            pulses.push_back(static_cast<int>(at));
        at += (i >= from && i < to) ? 8.0 * stretch : 8.0;
    }
    *samples = static_cast<int>(at);
    std::vector<uint8_t> raw(static_cast<size_t>((*samples + 7) / 8), 0);
    for (int k = 0; k < 3 * static_cast<int>(pulses.size()); ++k) {
        const int p = (pulses[static_cast<size_t>(k / 3)] + k % 3) % *samples;
        raw[static_cast<size_t>(p / 8)] |= static_cast<uint8_t>(0x80 >> (p % 8));
    }
    return raw;
}

// Bytes 0..n-1 of a recognisable pattern seeded by seed.
inline std::vector<uint8_t> Pattern(int n, int seed) {
    std::vector<uint8_t> v(static_cast<size_t>(n));
    uint32_t x = 0x9E3779B9u * static_cast<uint32_t>(seed + 1);
    for (auto& b : v) x ^= x << 13, x ^= x >> 17, x ^= x << 5, b = static_cast<uint8_t>(x >> 24);
    return v;
}

// A sector for the encoder: the pattern of seed r, opening 00 A1 (clock after the mark; plain A1).
inline VSector* NewSector(int mfm, int r, int n, int length, int gap2, int gap3, int status = 0) {
    auto* s = new VSector;
    s->mfm = mfm, s->idC = 5, s->idH = 1, s->idR = static_cast<uint8_t>(r);
    s->idN = static_cast<uint8_t>(n), s->status = static_cast<uint8_t>(status);
    s->gap2 = gap2, s->gap3 = gap3;
    auto data = Pattern(length, r);
    data[0] = 0x00, data[1] = 0xA1;
    s->SetData(data.data(), length);
    return s;
}

}  // namespace dectest
