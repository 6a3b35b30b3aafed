// Sequential writer of MFM/FM track fields into a cell buffer.
//
// Calls follow the track layout: Gap, Sync, a mark, Bytes, Crc. Every field is
// made of whole 16-cell (MFM) or 32-cell (FM) words, so the write position is
// always a byte boundary. Nothing is written past the last whole word inside
// the buffer's cell count: the first word that does not fit stops the writer
// and every later call is ignored.
#pragma once

#include <cstddef>
#include <cstdint>

#include "track/codectables.h"

namespace cellcode {

inline void Put16(uint8_t* p, uint16_t w) {
    p[0] = static_cast<uint8_t>(w >> 8);
    p[1] = static_cast<uint8_t>(w);
}

inline void Put32(uint8_t* p, uint32_t w) {
    p[0] = static_cast<uint8_t>(w >> 24);
    p[1] = static_cast<uint8_t>(w >> 16);
    p[2] = static_cast<uint8_t>(w >> 8);
    p[3] = static_cast<uint8_t>(w);
}

// MFM cells of byte b after a data bit `last`: the first clock drops to 0
// when the preceding data bit is 1.
inline uint16_t MfmWord(uint8_t b, int last) {
    return static_cast<uint16_t>(MFMTable[b] & (last ? 0x7FFFu : 0xFFFFu));
}

// count copies of b, 2 bytes each; updates *last.
inline void FillMfm(uint8_t* p, uint8_t b, size_t count, int* last) {
    if (count == 0) return;
    Put16(p, MfmWord(b, *last));
    const uint16_t rest = MfmWord(b, b & 1);
    for (size_t i = 1; i < count; ++i) Put16(p + 2 * i, rest);
    *last = b & 1;
}

// count bytes of src (zeros when src is null), 2 bytes each; updates *last and *crc.
inline void GenMfm(uint8_t* p, const uint8_t* src, size_t count, int* last, uint16_t* crc) {
    if (count == 0) return;
    if (!src) {
        FillMfm(p, 0, count, last);
        for (size_t i = 0; i < count; ++i) *crc = CrcUpdate(*crc, 0);
        return;
    }
    // Cells and CRC in two tight passes: the clock of each byte depends only
    // on the previous source byte, so the cell loop carries no dependency.
    Put16(p, MfmWord(src[0], *last));
    for (size_t i = 1; i < count; ++i) Put16(p + 2 * i, MfmWord(src[i], src[i - 1] & 1));
    *last = src[count - 1] & 1;
    *crc = CrcUpdate(*crc, src, count);
}

inline void FillFm(uint8_t* p, uint8_t b, size_t count) {
    const uint32_t w = FMTable[b];
    for (size_t i = 0; i < count; ++i) Put32(p + 4 * i, w);
}

inline void GenFm(uint8_t* p, const uint8_t* src, size_t count, uint16_t* crc) {
    if (!src) {
        FillFm(p, 0, count);
        for (size_t i = 0; i < count; ++i) *crc = CrcUpdate(*crc, 0);
        return;
    }
    for (size_t i = 0; i < count; ++i) Put32(p + 4 * i, FMTable[src[i]]);
    *crc = CrcUpdate(*crc, src, count);
}

// Address marks: MFM as the sync words then the mark byte after an A1/C2
// (whose last data bit fixes the mark's first clock), FM as one word.
inline void PutMfmMark(uint8_t* p, uint16_t sync, uint8_t mark) {
    Put16(p, sync);
    Put16(p + 2, sync);
    Put16(p + 4, sync);
    Put16(p + 6, MfmWord(mark, 1));
}

}  // namespace cellcode

class CellWriter {
public:
    CellWriter(uint8_t* buf, int64_t cells) : buf_(buf), limit_(cells > 0 ? cells / 8 : 0) {}

    void SetMfm(bool mfm) { mfm_ = mfm; }
    bool Mfm() const { return mfm_; }
    int64_t Pos() const { return pos_; }  // bytes written so far
    bool Stopped() const { return stopped_; }
    int LastBit() const { return last_; }

    void Gap(int64_t n, uint8_t b) {
        const size_t k = Fit(n);
        if (mfm_) {
            cellcode::FillMfm(buf_ + pos_, b, k, &last_);
        } else {
            cellcode::FillFm(buf_ + pos_, b, k);
        }
        pos_ += static_cast<int64_t>(k) * WordBytes();
    }

    void Sync(int64_t n) { Gap(n, 0x00); }

    void IndexMark() { Mark(kMarkIndex, kMfmC2Sync, kFmIndexMark); }
    void IdMark() { Mark(kMarkId, kMfmA1Sync, kFmIdMark); }
    void DataMark(bool deleted) {
        if (deleted) {
            Mark(kMarkDeleted, kMfmA1Sync, kFmDeletedMark);
        } else {
            Mark(kMarkData, kMfmA1Sync, kFmDataMark);
        }
    }

    // Field bytes, counted into the running CRC; src null means zeros.
    void Bytes(const uint8_t* src, int64_t n) {
        const size_t k = Fit(n);
        if (mfm_) {
            cellcode::GenMfm(buf_ + pos_, src, k, &last_, &crc_);
        } else {
            cellcode::GenFm(buf_ + pos_, src, k, &crc_);
        }
        pos_ += static_cast<int64_t>(k) * WordBytes();
    }

    // The field's CRC, high byte first.
    void Crc() {
        const uint8_t bytes[2] = {static_cast<uint8_t>(crc_ >> 8), static_cast<uint8_t>(crc_)};
        Bytes(bytes, 2);
    }

private:
    int WordBytes() const { return mfm_ ? 2 : 4; }

    // How many of n words fit; stops the writer when not all of them do.
    size_t Fit(int64_t n) {
        if (stopped_ || n <= 0) return 0;
        const int64_t room = (limit_ - pos_) / WordBytes();
        if (n > room) {
            stopped_ = true;
            return room > 0 ? static_cast<size_t>(room) : 0;
        }
        return static_cast<size_t>(n);
    }

    void Mark(uint8_t mark, uint16_t mfmSync, uint32_t fmWord) {
        if (mfm_) {
            if (Fit(4) < 4) return;
            cellcode::PutMfmMark(buf_ + pos_, mfmSync, mark);
            pos_ += 8;
            last_ = mark & 1;
            crc_ = CrcUpdate(kCrcAfterA1x3, mark);
        } else {
            if (Fit(1) < 1) return;
            cellcode::Put32(buf_ + pos_, fmWord);
            pos_ += 4;
            crc_ = CrcUpdate(kCrcInit, mark);
        }
    }

    uint8_t* buf_;
    int64_t limit_;  // bytes wholly inside the cell count
    int64_t pos_ = 0;
    bool mfm_ = true;
    bool stopped_ = false;
    int last_ = 0;  // preceding MFM data bit
    uint16_t crc_ = kCrcInit;
};
