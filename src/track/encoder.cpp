// Sector list to MFM/FM cell stream.
#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

#include "signal/rawconv.h"
#include "track/cellwriter.h"
#include "track/vtrack.h"

namespace {

constexpr int64_t kHeaderCells = 2336;   // GAP4a, sync, index mark, GAP1
constexpr int64_t kFmBudgetBase = 1128;  // base of the FM budget (the layout still uses 2336)
constexpr int64_t kMfmSectorFixed = 62;  // sync, IDAM, ID, CRC, GAP2 (22), sync, DAM, CRC
constexpr int64_t kFmSectorFixed = 33;   // the same in FM with GAP2 11
constexpr int32_t kMinGap3 = 20;

// Cells a sector takes in the length budget for one byte of its GAP3.
int64_t Gap3Unit(const VSector* s) {
    return s->mfm ? 16 : 32;
}

int64_t SectorBudget(const VSector* s) {
    const int64_t fixed = s->mfm ? kMfmSectorFixed : kFmSectorFixed;
    return (int64_t{s->length} + fixed + s->gap3) * Gap3Unit(s);
}

int64_t Budget(const VSector* list, int64_t base) {
    int64_t total = base;
    for (const VSector* s = list; s; s = s->next) total += SectorBudget(s);
    return total;
}

int ClampInt(int64_t v) {
    return static_cast<int>(std::clamp<int64_t>(v, INT_MIN, INT_MAX));
}

// Lowers GAP3s one byte at a time, always the first of the largest, never
// below 20, until the budget reaches the target. Whole rounds over a level
// of equal GAP3s are taken in one step so that a huge GAP3 cannot make this
// loop long; the outcome equals the byte-by-byte rule.
int ShrinkGap(VSector* list, int64_t base, int64_t target) {
    int64_t budget = Budget(list, base);
    if (budget <= target) return 1;
    if (!list) return 0;
    for (;;) {
        int32_t top = INT_MIN;
        for (const VSector* s = list; s; s = s->next) top = std::max(top, s->gap3);
        if (top <= kMinGap3) return 0;
        int32_t below = kMinGap3;
        int64_t unit = 0;  // budget cells one round over the top level removes
        for (const VSector* s = list; s; s = s->next) {
            if (s->gap3 == top) {
                unit += Gap3Unit(s);
            } else {
                below = std::max(below, s->gap3);
            }
        }
        const int64_t levels = int64_t{top} - below;
        // Whole rounds that still leave the budget above the target.
        const int64_t rounds = std::min(levels, (budget - target - 1) / unit);
        if (rounds > 0) {
            for (VSector* s = list; s; s = s->next) {
                if (s->gap3 == top) s->gap3 = static_cast<int32_t>(s->gap3 - rounds);
            }
            budget -= rounds * unit;
        }
        if (rounds == levels) continue;
        // The next round reaches the target part-way through, in list order.
        const int32_t level = static_cast<int32_t>(top - rounds);
        for (VSector* s = list; s; s = s->next) {
            if (s->gap3 != level) continue;
            --s->gap3;
            budget -= Gap3Unit(s);
            if (budget <= target) return 1;
        }
        return budget <= target ? 1 : 0;  // not reached: unit covers the gap
    }
}

void WriteSector(CellWriter& w, const VSector* s) {
    const bool mfm = s->mfm != 0;
    const int64_t sync = mfm ? 12 : 6;
    const uint8_t gap = mfm ? 0x4E : 0xFF;
    const uint8_t id[4] = {s->idC, s->idH, s->idR, s->idN};
    const int64_t length = std::max<int32_t>(s->length, 0);
    w.SetMfm(mfm);
    w.Sync(sync);
    w.IdMark();
    w.Bytes(id, 4);
    w.Crc();
    w.Gap(s->gap2, gap);
    w.Sync(sync);
    w.DataMark((s->status & SECT_DELETED) != 0);
    w.Bytes(s->data, length);
    w.Crc();
    w.Gap(s->gap3, gap);
}

// Header and sectors; the background fill is done by the caller. Returns the
// number of sectors left out.
int WriteLayout(CellWriter& w, bool mfmHeader, const VSector* list, int cells) {
    w.SetMfm(mfmHeader);
    if (mfmHeader) {
        w.Gap(80, 0x4E);
        w.Sync(12);
        w.IndexMark();
        w.Gap(50, 0x4E);
    } else {
        w.Gap(40, 0xFF);
        w.Sync(6);
        w.IndexMark();
        w.Gap(26, 0xFF);
    }
    // Sectors whose budget runs past the cell count are left out, with all after them.
    int64_t total = kHeaderCells;
    const VSector* s = list;
    for (; s; s = s->next) {
        total += SectorBudget(s);
        if (total > cells) break;
        WriteSector(w, s);
    }
    int left = 0;
    for (; s; s = s->next) left++;
    return left;
}

// Gives every sector the density and the gaps a controller formats it with.
void SetDensity(VTrack& t, int mfm) {
    for (VSector* s = t.sectors; s; s = s->next) {
        s->mfm = mfm;
        s->gap2 = mfm ? 22 : 11;
        s->gap3 = s->CalcGAP3(mfm, s->idN);
    }
    const int count = t.SectorCount();
    t.mfmCount = mfm ? count : 0;
    t.fmCount = mfm ? 0 : count;
}

}  // namespace

int VTrack::Encode(int raw, unsigned char* buf, int len) {
    leftOut = 0;
    if (!sectors) {
        if (len > 0) {
            std::memset(buf, 0, static_cast<size_t>(len / 8));
            if (len % 8) buf[len / 8] &= static_cast<unsigned char>(0xFFu >> (len % 8));
        }
        return len;
    }
    const int cells = raw ? std::max(len / 8, 0) : len;
    // On purpose against the marks, for a reader that asks for it.
    mfmByFit = 0;
    if (densityByFit && mfmCount == 0 && fmCount > 0 && LeftOutAt(cells) > 0) {
        SetDensity(*this, 1);
        if (LeftOutAt(cells) == 0) {
            mfmByFit = 1;
        } else {
            SetDensity(*this, 0);
        }
    }
    std::vector<unsigned char> temp;
    unsigned char* cellBuf = buf;
    if (raw) {
        temp.assign(static_cast<size_t>(cells / 8 + 1), 0);
        cellBuf = temp.data();
    }
    const int64_t target = int64_t{cells} * 97 / 100;
    if (mfmCount >= fmCount) {
        if (Budget(sectors, kHeaderCells) > cells) ShrinkGapMFM(ClampInt(target));
        EncodeMFM(cellBuf, cells);
    } else {
        if (Budget(sectors, kFmBudgetBase) > cells) ShrinkGapFM(ClampInt(target));
        EncodeFM(cellBuf, cells);
    }
    if (!raw) return len;
    return Encode2Raw(cellBuf, cells, buf, len);
}

// The background (GAP4b) covers every whole word of the buffer. The fields are
// written first from cell 0 onward, so only the words after them are filled:
// the result is the same as filling first and overwriting.
int VTrack::EncodeMFM(unsigned char* buf, int cells) {
    CellWriter w(buf, cells);
    leftOut = WriteLayout(w, true, sectors, cells);
    if (cells > 15) {
        const int64_t from = w.Pos() / 2;
        const int64_t words = cells / 16;
        if (from < words) FillMFM(buf + 2 * from, 0x4E, static_cast<int>(words - from), nullptr);
    }
    return cells;
}

int VTrack::EncodeFM(unsigned char* buf, int cells) {
    CellWriter w(buf, cells);
    leftOut = WriteLayout(w, false, sectors, cells);
    if (cells > 31) {
        // MFM sectors can leave the fields ending half-way into a 32-cell word.
        int64_t from = w.Pos();
        const int64_t words = cells / 32;
        if (from % 4 != 0 && from / 4 < words) {
            cellcode::Put16(buf + from, static_cast<uint16_t>(FMTable[0xFF]));
            from += 2;
        }
        from /= 4;
        if (from < words) FillFM(buf + 4 * from, 0xFF, static_cast<int>(words - from));
    }
    return cells;
}

int VTrack::CalcTotalMFM() {
    return ClampInt(Budget(sectors, kHeaderCells));
}
int VTrack::CalcTotalFM() {
    return ClampInt(Budget(sectors, kFmBudgetBase));
}
int VTrack::ShrinkGapMFM(int target) {
    return ShrinkGap(sectors, kHeaderCells, target);
}
int VTrack::ShrinkGapFM(int target) {
    return ShrinkGap(sectors, kFmBudgetBase, target);
}

int VTrack::LeftOutAt(int cells) const {
    // A copy of what the budget looks at, so that shrinking leaves the track alone.
    std::vector<VSector> copy(static_cast<size_t>(std::max(SectorCount(), 0)));
    size_t n = 0;
    for (const VSector* s = sectors; s && n < copy.size(); s = s->next, n++) {
        copy[n].mfm = s->mfm;
        copy[n].length = s->length;
        copy[n].gap3 = s->gap3;
        if (n > 0) copy[n - 1].next = &copy[n];
    }
    VSector* list = n ? copy.data() : nullptr;
    const int64_t base = mfmCount >= fmCount ? kHeaderCells : kFmBudgetBase;
    if (Budget(list, base) > cells) ShrinkGap(list, base, int64_t{cells} * 97 / 100);
    int64_t total = kHeaderCells;
    int left = 0;
    for (const VSector* s = list; s; s = s->next)
        if (left > 0 || (total += SectorBudget(s)) > cells) left++;
    return left;
}

int VTrack::FillMFM(unsigned char* p, unsigned char b, int count, int* last) {
    if (count <= 0) return 0;
    int none = 0;
    cellcode::FillMfm(p, b, static_cast<size_t>(count), last ? last : &none);
    return count * 2;
}

int VTrack::GenMFM(unsigned char* p, unsigned char* src, int count, int* last) {
    if (count <= 0) return 0;
    int none = 0;
    uint16_t crc = kCrcInit;
    cellcode::GenMfm(p, src, static_cast<size_t>(count), last ? last : &none, &crc);
    return count * 2;
}

int VTrack::FillFM(unsigned char* p, unsigned char b, int count) {
    if (count <= 0) return 0;
    cellcode::FillFm(p, b, static_cast<size_t>(count));
    return count * 4;
}

int VTrack::GenFM(unsigned char* p, unsigned char* src, int count) {
    if (count <= 0) return 0;
    uint16_t crc = kCrcInit;
    cellcode::GenFm(p, src, static_cast<size_t>(count), &crc);
    return count * 4;
}

int VTrack::GenIAM(unsigned char* p, int mfmDensity) {
    if (mfmDensity) {
        cellcode::PutMfmMark(p, kMfmC2Sync, kMarkIndex);
        return 8;
    }
    cellcode::Put32(p, kFmIndexMark);
    return 4;
}

int VTrack::GenIDAM(unsigned char* p, int mfmDensity) {
    if (mfmDensity) {
        cellcode::PutMfmMark(p, kMfmA1Sync, kMarkId);
        return 8;
    }
    cellcode::Put32(p, kFmIdMark);
    return 4;
}

int VTrack::GenDAM(unsigned char* p, int deleted, int mfmDensity) {
    const uint8_t mark = deleted ? kMarkDeleted : kMarkData;
    if (mfmDensity) {
        cellcode::PutMfmMark(p, kMfmA1Sync, mark);
        return 8;
    }
    cellcode::Put32(p, deleted ? kFmDeletedMark : kFmDataMark);
    return 4;
}
