#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <vector>

#include "signal/rawconv.h"
#include "zebdisk/trackpool.h"
#include "zebdisk/zebdisk.h"

namespace {

constexpr int kRecordHeader = zebrec::kData;

// A slot's record taken out of the disk, with its bit length cut to what its
// data holds (a missing record reads as an empty track of that slot).
struct OldRecord {
    int32_t cylinder, head, index;
    int bits;
    int slot;
    TrackRecord rec;
    uint8_t* data() { return rec.data() + kRecordHeader; }
};

OldRecord TakeRecord(ZEBDisk& disk, int slot, int c, int h) {
    OldRecord o{c, h, 0, 0, slot, {}};
    if (disk.RecordDataSize(slot) > 0) {
        o.cylinder = disk.RecordInt(slot, zebrec::kCylinder);
        o.head = disk.RecordInt(slot, zebrec::kHead);
        o.index = disk.RecordInt(slot, zebrec::kIndexOffset);
        const int64_t held = std::min<int64_t>(int64_t{disk.RecordDataSize(slot)} * 8, INT_MAX / 8);
        o.bits = static_cast<int>(
            std::clamp<int64_t>(disk.RecordInt(slot, zebrec::kBitLength), 0, held));
        o.rec = std::move(disk.track[slot]);
    } else {
        o.rec = TrackRecord(kRecordHeader + 8);
    }
    return o;
}

// Replaces the slot by a zeroed record of size bytes carrying the old record's
// cylinder, head and index offset; returns its data.
uint8_t* NewRecordFrom(ZEBDisk& disk, int slot, int size, const OldRecord& o) {
    disk.NewRecord(slot, size, o.cylinder, o.head, 0);
    disk.SetRecordInt(slot, zebrec::kIndexOffset, o.index);
    return disk.track[slot].data() + kRecordHeader;
}

// Replaces the record of every slot within the disk's cylinders and heads by a
// new one of size bytes that convert(old, data) fills, returning its bit length.
template <class Convert>
void RebuildRecords(ZEBDisk& disk, int cylinders, int size, Convert convert) {
    const int cyls = std::clamp(cylinders, 0, ZEBDisk::kMaxCylinders);
    const int heads = std::clamp(disk.Heads(), 0, ZEBDisk::kMaxHeads);
    // Each track touches only its own slot.
    trackpool::ForEach(cyls * heads, disk.workers, [&](int i) {
        const int c = i / heads;
        const int h = i % heads;
        const int slot = c * 2 + h;
        OldRecord o = TakeRecord(disk, slot, c, h);
        uint8_t* dst = NewRecordFrom(disk, slot, size, o);
        disk.SetRecordInt(slot, zebrec::kBitLength, convert(o, dst));
        disk.updated[slot] = 1;
    });
}

}  // namespace

bool ZEBDisk::ConvertRaw() {
    if (!initialized || Type() == ZEB_RAW) return false;
    // Cells of other revolutions say nothing about a signal made from cells.
    for (auto& c : fluxCells) c = CellRevolution();
    const int64_t r = Rate();
    const int64_t rpm = Rpm();
    const int size = r == 1000 ? 262144 : 131072;
    SetHeaderInt(zebhdr::kType, ZEB_RAW);
    SetHeaderInt(zebhdr::kRate, static_cast<int32_t>(static_cast<uint32_t>(r * 8)));
    SetHeaderInt(zebhdr::kBlockSize, size);

    // A track longer than one revolution plus half a percent is squeezed to that
    // length. Without a usable rate and speed there is no such limit.
    int64_t limit = INT64_MAX;
    if (rpm > 0) {
        const int64_t nominal = r * 480000 / rpm;
        if (nominal > 0) limit = nominal + nominal / 200;
    }
    const int cap = (size - kRecordHeader) * 8;

    RebuildRecords(*this, Cylinders(), size, [&](OldRecord& o, uint8_t* dst) {
        const int64_t rawLen = int64_t{o.bits} * 8;
        int64_t len;
        if (rawLen <= cap) {
            // The new record is zero already: only the track's own samples are
            // written, and no pulse reaches past them.
            len = Encode2Raw(o.data(), o.bits, dst, static_cast<int>(rawLen));
            if (len > limit) len = StrechRaw(dst, static_cast<int>(len), static_cast<int>(limit));
        } else if (limit < rawLen && limit <= cap) {
            // Too long for the record as it stands, but it fits once squeezed.
            std::vector<uint8_t> wide(static_cast<size_t>(o.bits) + 1);
            Encode2Raw(o.data(), o.bits, wide.data(), static_cast<int>(rawLen));
            len = StrechRaw(wide.data(), static_cast<int>(rawLen), static_cast<int>(limit));
            std::memcpy(dst, wide.data(), static_cast<size_t>(len + 7) / 8);
        } else {
            // Does not fit at all: the pulses wrap and the length is the record's.
            Encode2Raw(o.data(), o.bits, dst, cap);
            len = cap;
        }
        return static_cast<int32_t>(len);
    });
    return true;
}

bool ZEBDisk::ConvertEnc() {
    if (!initialized || Type() != ZEB_RAW) return false;
    ConvertEncBody();
    return true;
}

void ZEBDisk::ConvertEncBody() {
    const int32_t r = Rate();
    const int cylinders = Cylinders();
    int size;
    if (r == 8000) {
        SetHeaderInt(zebhdr::kType, ZEB_2HD);
        SetHeaderInt(zebhdr::kRate, 1000);
        size = 32768;
    } else {
        // Raw rates 8001..8007 keep the large records of the 1000 kbit/s cell rate.
        SetHeaderInt(zebhdr::kType, cylinders > 42 ? ZEB_2DD : ZEB_2D);
        SetHeaderInt(zebhdr::kRate, r / 8);
        size = r / 8 == 1000 ? 32768 : 16384;
    }
    SetHeaderInt(zebhdr::kBlockSize, size);
    const int cap = (size - kRecordHeader) * 8;

    RebuildRecords(*this, cylinders, size, [&](OldRecord& o, uint8_t* dst) {
        // A track read from flux has its cells already, read at the capture's
        // own resolution; each worker takes only its own slot's.
        // A slot the capture left blank has a length and no cells: the new
        // record is zero already.
        CellRevolution& read = fluxCells[o.slot];
        if (read.bits > 0 && read.cells.empty())
            return static_cast<int32_t>(std::min(read.bits, cap));
        if (read.bits > 0 && read.cells.size() >= static_cast<size_t>(read.bits + 7) / 8) {
            const int n = std::min(read.bits, cap);
            SetRecordInt(o.slot, zebrec::kIndexOffset, 0);
            std::memcpy(dst, read.cells.data(), static_cast<size_t>(n + 7) / 8);
            if (n & 7) dst[n / 8] = static_cast<uint8_t>(dst[n / 8] & (0xFF00 >> (n & 7)));
            return static_cast<int32_t>(n);
        }
        // A separated track longer than the record keeps what the record holds.
        const int n = Raw2Encode(o.data(), o.bits, dst, cap);
        return static_cast<int32_t>(std::min(n, cap));
    });
    for (auto& c : fluxCells) c = CellRevolution();
}
