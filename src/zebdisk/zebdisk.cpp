#include "zebdisk/zebdisk.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "fileio/atomicfile.h"
#include "fileio/failtext.h"
#include "fileio/fieldio.h"
#include "fileio/fileerror.h"
#include "fileio/fileio.h"
#include "signal/alignraw.h"
#include "zebdisk/trackpool.h"

namespace {

constexpr int kRecordHeader = zebrec::kData;

// Longest nominal track a ZEB file may claim. A real raw track needs about
// 1,600,000 bits; twice that and more still leaves room, while the blank
// tracks of a normalised disk stay within a small board's memory.
constexpr int64_t kMaxNominalBits = int64_t{512} * 1024 * 8;

// The smallest multiple of 512 holding the record header, bits and a spare byte.
int64_t BlockFor(int64_t bits) {
    return ((bits + 7) / 8 + 528) / 512 * 512;
}

std::string TrackName(int c, int h) {
    return "track " + std::to_string(c) + "." + std::to_string(h);
}

struct TypeGeometry {
    int type, cylinders, heads, rate, rpm, encodedSize, rawSize;
};
constexpr TypeGeometry kTypes[] = {
    {ZEB_2D, 42, 2, 500, 300, 16384, 131072},
    {ZEB_2DD, 84, 2, 500, 300, 16384, 131072},
    {ZEB_2HD, 84, 2, 1000, 360, 32768, 262144},
};

// Nominal cells per revolution, or -1 when rate and rpm give no usable length.
int64_t NominalBits(int64_t rate, int64_t rpm) {
    if (rate <= 0 || rpm <= 0) return -1;
    return rate * 60000 / rpm;
}

// Eight bits of the circular len-bit stream starting at bit p (p < len).
uint8_t CyclicByte(const uint8_t* in, int64_t len, int64_t p) {
    if (p + 8 <= len) {
        const size_t b = static_cast<size_t>(p >> 3);
        const int s = static_cast<int>(p & 7);
        if (s == 0) return in[b];
        return static_cast<uint8_t>((in[b] << s) | (in[b + 1] >> (8 - s)));
    }
    uint8_t v = 0;
    for (int i = 0; i < 8; i++) {
        int64_t q = (p + i) % len;
        v = static_cast<uint8_t>((v << 1) | ((in[q >> 3] >> (7 - (q & 7))) & 1));
    }
    return v;
}

// Rotates the first len bits of data so that bit offset becomes bit 0. The
// bits past len in the last byte come out clear; later bytes are untouched.
void RotateBits(uint8_t* data, int64_t len, int64_t offset) {
    const size_t bytes = static_cast<size_t>((len + 7) / 8);
    std::vector<uint8_t> out(bytes);
    int64_t p = offset;
    for (size_t k = 0; k < bytes; k++) {
        out[k] = CyclicByte(data, len, p);
        p += 8;
        if (p >= len) p -= len;
    }
    if (len & 7) out[bytes - 1] &= static_cast<uint8_t>(0xFF00 >> (len & 7));
    std::memcpy(data, out.data(), bytes);
}

}  // namespace

ZEBDisk::ZEBDisk() : initialized(0), readOnly(0), header{}, updated{}, workers(0) {}
ZEBDisk::~ZEBDisk() = default;

void ZEBDisk::Cleanup() {
    for (auto& t : track) t = TrackRecord();
    for (auto& r : fluxCells) r = CellRevolution();
    initialized = 0;
    readOnly = 0;
    std::memset(header, 0, sizeof(header));
    std::memset(updated, 0, sizeof(updated));
}

bool ZEBDisk::Init(int type, int rate, int rpm, int raw) {
    if (initialized) Cleanup();
    for (auto& r : fluxCells) r = CellRevolution();

    std::memset(header + 16, 0, sizeof(header) - 16);
    std::memcpy(header + zebhdr::kSignature, "ZEB", 3);
    header[zebhdr::kVersion] = 3;
    std::memcpy(header + zebhdr::kName, "BLANK IMAGE", 12);

    const TypeGeometry* g = nullptr;
    for (const TypeGeometry& t : kTypes)
        if (t.type == type) g = &t;
    if (!g || rate < 0 || rpm < 0) return false;
    if (rate == 0) rate = g->rate;
    if (rpm == 0) rpm = g->rpm;

    int64_t bits;
    int64_t storedRate = rate;
    int size;
    if (raw) {
        bits = 125LL * rate * 3840 / rpm;
        storedRate *= 8;
        size = g->rawSize;
        type = ZEB_RAW;
    } else {
        bits = NominalBits(rate, rpm);
        size = g->encodedSize;
    }
    // The blank tracks must fit their buffers and the stored rate its field.
    if (bits <= 0 || bits > int64_t{size - kRecordHeader} * 8 || storedRate > INT32_MAX)
        return false;

    SetHeaderInt(zebhdr::kType, type);
    SetHeaderInt(zebhdr::kCylinders, g->cylinders);
    SetHeaderInt(zebhdr::kHeads, g->heads);
    SetHeaderInt(zebhdr::kRate, static_cast<int32_t>(storedRate));
    SetHeaderInt(zebhdr::kRpm, rpm);
    SetHeaderInt(zebhdr::kBlockSize, size);

    // Every slot gets a record, whatever the type's cylinder count.
    for (int c = 0; c < kMaxCylinders; c++) {
        for (int h = 0; h < kMaxHeads; h++) {
            NewRecord(c * 2 + h, size, c, h, static_cast<int>(bits));
            updated[c * 2 + h] = 1;
        }
    }
    readOnly = 0;
    initialized = 1;
    return true;
}

bool ZEBDisk::Save(const Filepath& path, int full) {
    if (!initialized) return report.Fail("no disk to save");
    if (path.IsClear()) return report.Fail("no file to save to");
    if (!path.HasExt(".ZEB"))
        return report.Fail(std::string(path.GetPath()) + ": a ZEB image must be named .ZEB");
    const int cyls = Cylinders();
    const int heads = Heads();
    if (cyls < 0 || cyls > kMaxCylinders || heads < 0 || heads > kMaxHeads)
        return report.Fail(std::string(path.GetPath()) + ": a ZEB image holds at most " +
                           std::to_string(kMaxCylinders) + " cylinders and " +
                           std::to_string(kMaxHeads) + " heads, the disk has " +
                           std::to_string(cyls) + " and " + std::to_string(heads));

    // A whole file replaces the destination only once it is complete; a partial
    // save updates the existing file in place.
    AtomicFile whole;
    Fileio inPlace;
    Fileio& f = full ? static_cast<Fileio&>(whole) : inPlace;
    int64_t block;
    if (full) {
        int64_t longest = NominalBits(Rate(), Rpm());
        if (longest < 0)
            return report.Fail(std::string(path.GetPath()) + ": the disk's rate (" +
                               std::to_string(Rate()) + ") and rpm (" + std::to_string(Rpm()) +
                               ") give no track length");
        for (int c = 0; c < cyls; c++)
            for (int h = 0; h < heads; h++)
                longest = std::max<int64_t>(longest, RecordInt(c * 2 + h, zebrec::kBitLength));
        block = BlockFor(longest);
        if (block > INT32_MAX)
            return report.Fail(std::string(path.GetPath()) + ": a track of " +
                               std::to_string(longest) + " bits is too long for a ZEB image");
        if (!whole.Create(path)) return report.Fail(CannotCreate(path, whole.lastError));
        SetHeaderInt(zebhdr::kBlockSize, static_cast<int32_t>(block));
    } else {
        block = BlockSize();
        if (block < kRecordHeader)
            return report.Fail(std::string(path.GetPath()) + ": the disk's track block size (" +
                               std::to_string(block) + ") cannot be updated in place");
        if (!inPlace.Open(path, Fileio::ReadWrite))
            return report.Fail(CannotWrite(path, inPlace.lastError));
    }

    if (!f.Write(header, zebhdr::kSize)) return report.Fail(CannotWrite(path, f.lastError));
    std::vector<uint8_t> pad;
    for (int c = 0; c < cyls; c++) {
        for (int h = 0; h < heads; h++) {
            const int slot = c * 2 + h;
            if (!full && !updated[slot]) {
                if (!f.Seek(block, 1)) return report.Fail(CannotWrite(path, f.lastError));
                continue;
            }
            const TrackRecord& rec = track[slot];
            uint8_t empty[kRecordHeader] = {};
            if (rec.empty()) {
                FieldWriter w(empty, sizeof(empty));
                w.I32(zebrec::kCylinder, c);
                w.I32(zebrec::kHead, h);
            }
            const uint8_t* src = rec.empty() ? empty : rec.data();
            const int64_t have = rec.empty() ? kRecordHeader : static_cast<int64_t>(rec.size());
            const int64_t take = std::min(have, block);
            if (!f.Write(src, static_cast<int>(take)))
                return report.Fail(CannotWrite(path, f.lastError));
            if (take < block) {
                pad.resize(static_cast<size_t>(block - take));
                if (!f.Write(pad.data(), static_cast<int>(pad.size())))
                    return report.Fail(CannotWrite(path, f.lastError));
            }
            updated[slot] = 0;
        }
    }
    if (full) {
        if (!whole.Commit()) return report.Fail(CannotWrite(path, whole.lastError));
    } else {
        inPlace.Close();
    }
    return true;
}

bool ZEBDisk::Load(const Filepath& path, int align) {
    Cleanup();
    report.Clear();
    if (path.IsClear()) return report.Fail("no source file given");
    if (!path.HasExt(".ZEB")) return report.Fail(FileReason(path, "not a ZEB file"));

    if (Fileio::IsExist(path.GetPath()) == 0)
        return report.Fail(FileReason(path, "is a directory"));
    Fileio f;
    readOnly = f.Open(path, Fileio::ReadWrite) ? 0 : 1;
    f.Close();
    if (!f.Open(path, Fileio::ReadOnly))
        return report.Fail(FileReason(path, OpenFailText(path, f)));
    const int64_t fileSize = f.GetFileSize();
    if (!f.Read(header, zebhdr::kSize)) {
        const std::string why = ReadFailText(f, 0, zebhdr::kSize, fileSize);
        Cleanup();
        return report.Fail(FileReason(path, "header: " + why));
    }
    auto refuse = [&](const std::string& why) {
        Cleanup();
        return report.Fail(FileReason(path, why));
    };

    // Everything the header claims is checked before any track is allocated,
    // so memory stays proportional to the file.
    const int version = header[zebhdr::kVersion];
    // A negative count reads no tracks; the geometry is normalised below.
    const int64_t cyls = std::max(Cylinders(), 0);
    const int64_t heads = std::max(Heads(), 0);
    const int64_t block = BlockSize();
    int64_t rate = Rate();
    const int64_t rpm = Rpm();
    if (version < 1 || version > 3)
        return refuse("version " + std::to_string(version) + " (versions 1, 2 and 3 are read)");
    if (cyls > kMaxCylinders || heads > kMaxHeads)
        return refuse(std::to_string(cyls) + " cylinders x " + std::to_string(heads) +
                      " heads: more tracks than 84 x 2");
    if (version != 3) rate *= 2;  // older files kept the data rate
    const int64_t nominal = NominalBits(rate, rpm);
    if (rate > INT32_MAX || nominal <= 0 || nominal > kMaxNominalBits)
        return refuse("rate " + std::to_string(rate) + " kbit/s at " + std::to_string(rpm) +
                      " rpm gives no track length that can be held");
    const int64_t tracks = cyls * heads;
    if (tracks > 0 && block < kRecordHeader)
        return refuse("track block of " + std::to_string(block) +
                      " bytes cannot hold a track record");
    if (tracks > 0 && tracks * block > fileSize - zebhdr::kSize)
        return refuse("file ends early at offset " + std::to_string(fileSize) + " (" +
                      std::to_string(tracks) + " tracks of " + std::to_string(block) +
                      " bytes end at offset " + std::to_string(zebhdr::kSize + tracks * block) +
                      ")");
    const int64_t dataBytes = block - kRecordHeader;
    const int64_t v1Bits = int64_t{HeaderInt(zebhdr::kTrackLenV1)} * 8;

    // Version 2 and 3 records lie one after another: each is read by its own
    // worker, and the checks below take them in track order. A record that
    // could not be read so is read again below, which says why it fails.
    const int64_t first = f.GetFilePos();
    std::vector<uint8_t> fetched(static_cast<size_t>(cyls * heads), 0);
    if (version != 1) {
        trackpool::ForEach(static_cast<int>(cyls * heads), workers, [&](int i) {
            TrackRecord rec(static_cast<size_t>(block));
            if (!f.ReadAt(rec.data(), static_cast<int>(block), first + i * block)) return;
            track[i / heads * 2 + i % heads] = std::move(rec);
            fetched[static_cast<size_t>(i)] = 1;
        });
    }
    for (int c = 0; c < cyls; c++) {
        for (int h = 0; h < heads; h++) {
            const int slot = c * 2 + h;
            TrackRecord& rec = track[slot];
            const int64_t at = f.GetFilePos();
            bool ok;
            if (version != 1 && fetched[static_cast<size_t>(c * heads + h)]) {
                ok = f.Seek(at + block, 0);
            } else if (version == 1) {
                // Data first, then 16 bytes that are not used.
                NewRecord(slot, static_cast<int>(block), c, h, 0);
                SetRecordInt(slot, zebrec::kBitLength, HeaderInt(zebhdr::kTrackLenV1));
                ok = f.Read(rec.data() + kRecordHeader, static_cast<int>(dataBytes)) &&
                     f.Seek(kRecordHeader, 1);
            } else {
                rec = TrackRecord(static_cast<size_t>(block));
                ok = f.Read(rec.data(), static_cast<int>(block));
            }
            if (!ok) return refuse(TrackName(c, h) + ": " + ReadFailText(f, at, block, fileSize));
            int64_t len = version == 1 ? v1Bits : RecordInt(slot, zebrec::kBitLength);
            int64_t index = RecordInt(slot, zebrec::kIndexOffset);
            if (version == 2) {
                len *= 8;
                index *= 8;
            }
            // A track of no bits is an unformatted track; a record shorter than
            // the nominal track is a track written short. Both load.
            if (len < 0 || len > dataBytes * 8)
                return refuse(TrackName(c, h) + ": bit length " + std::to_string(len) +
                              " does not fit its " + std::to_string(dataBytes) + " data bytes");
            if (index < 0)
                return refuse(TrackName(c, h) + ": negative index offset " + std::to_string(index));
            // The index lies on a circle of len bits.
            if (len > 0) index %= len;
            if (len > 0 && index > 0) RotateBits(rec.data() + kRecordHeader, len, index);
            SetRecordInt(slot, zebrec::kIndexOffset, 0);
            SetRecordInt(slot, zebrec::kBitLength, static_cast<int32_t>(len));
        }
    }
    f.Close();

    if (version != 3) {
        SetHeaderInt(zebhdr::kRate, static_cast<int32_t>(rate));
        header[zebhdr::kVersion] = 3;
        SetHeaderInt(zebhdr::kTrackLenV1, 0);
    }

    if (align && Type() == ZEB_RAW) {
        // Each track is aligned in its own record; a track of no bits has nothing to move.
        trackpool::ForEach(static_cast<int>(cyls * heads), workers, [&](int i) {
            const int slot = static_cast<int>(i / heads * 2 + i % heads);
            const int len = RecordInt(slot, zebrec::kBitLength);
            if (len > 0) AlignRaw(track[slot].data() + kRecordHeader, len);
        });
    }

    // Empty slots get a blank track of the nominal length, in a record sized as
    // a save would size it: the file's own blocks may be smaller.
    const int normCyls = cyls > 42 ? kMaxCylinders : 42;
    SetHeaderInt(zebhdr::kCylinders, normCyls);
    SetHeaderInt(zebhdr::kHeads, kMaxHeads);
    const int blankSize = static_cast<int>(BlockFor(nominal));
    for (int c = 0; c < normCyls; c++)
        for (int h = 0; h < kMaxHeads; h++)
            if (track[c * 2 + h].empty())
                NewRecord(c * 2 + h, blankSize, c, h, static_cast<int>(nominal));

    initialized = 1;
    return true;
}

char* ZEBDisk::GetName(char* buffer) const {
    const size_t n =
        strnlen(reinterpret_cast<const char*>(header + zebhdr::kName), zebhdr::kNameLen - 1);
    std::memcpy(buffer, header + zebhdr::kName, n);
    buffer[n] = 0;
    return buffer;
}

void ZEBDisk::SetName(const char* name) {
    FieldWriter(header, sizeof(header))
        .Text(zebhdr::kName, name, zebhdr::kNameLen - 1, zebhdr::kNameLen);
}

int ZEBDisk::GetTrackLen(int cylinder, int head) const {
    if (cylinder < 0 || cylinder >= kMaxCylinders || head < 0 || head >= kMaxHeads) return 0;
    return RecordInt(cylinder * 2 + head, zebrec::kBitLength);
}

uint8_t* ZEBDisk::GetTrackData(int cylinder, int head) const {
    if (cylinder < 0 || cylinder >= kMaxCylinders || head < 0 || head >= kMaxHeads) return nullptr;
    const TrackRecord& rec = track[cylinder * 2 + head];
    if (rec.size() < kRecordHeader) return nullptr;
    // The disk owns its tracks; callers change them in place and flag them.
    return const_cast<uint8_t*>(rec.data()) + kRecordHeader;
}

void ZEBDisk::UpdateTrack(int cylinder, int head) {
    if (cylinder < 0 || cylinder >= kMaxCylinders || head < 0 || head >= kMaxHeads) return;
    updated[cylinder * 2 + head] = 1;
}

int32_t ZEBDisk::HeaderInt(int off) const {
    return off < 0 ? 0 : FieldReader(header, sizeof(header)).I32(static_cast<size_t>(off));
}

void ZEBDisk::SetHeaderInt(int off, int32_t v) {
    if (off >= 0) FieldWriter(header, sizeof(header)).I32(static_cast<size_t>(off), v);
}

int32_t ZEBDisk::RecordInt(int slot, int off) const {
    if (slot < 0 || slot >= kSlots || off < 0) return 0;
    const TrackRecord& rec = track[slot];
    return FieldReader(rec.data(), rec.size()).I32(static_cast<size_t>(off));
}

void ZEBDisk::SetRecordInt(int slot, int off, int32_t v) {
    if (slot < 0 || slot >= kSlots || off < 0) return;
    TrackRecord& rec = track[slot];
    FieldWriter(rec.data(), rec.size()).I32(static_cast<size_t>(off), v);
}

void ZEBDisk::NewRecord(int slot, int size, int c, int h, int bitLen) {
    if (slot < 0 || slot >= kSlots) return;
    track[slot] = TrackRecord(static_cast<size_t>(std::max(size, kRecordHeader)));
    FieldWriter w(track[slot].data(), track[slot].size());
    w.I32(zebrec::kCylinder, c);
    w.I32(zebrec::kHead, h);
    w.I32(zebrec::kIndexOffset, 0);
    w.I32(zebrec::kBitLength, bitLen);
}

int ZEBDisk::RecordDataSize(int slot) const {
    if (slot < 0 || slot >= kSlots || track[slot].size() < kRecordHeader) return 0;
    return static_cast<int>(track[slot].size()) - kRecordHeader;
}
