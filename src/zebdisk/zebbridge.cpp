// The bridge between the track-level disk and every other image format: HFE
// directly, sector images through a VDisk whose tracks are encoded on import
// and decoded on export.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "fileio/fieldio.h"
#include "vdisk/vdisk.h"
#include "zebdisk/properties.h"
#include "zebdisk/trackpool.h"
#include "zebdisk/zebdisk.h"

namespace {

// A 2HD track 0 at least this long (in bytes of its density) only fits a disk
// turning at 300 rpm; shorter ones are 360 rpm media.
constexpr int kLong2HDTrack = 11000;
constexpr int kNameMax = zebhdr::kNameLen - 1;

// A record's bit length, kept within the bits its data buffer holds.
int BitsWithin(int bits, int dataBytes) {
    const int64_t cap = static_cast<int64_t>(std::max(dataBytes, 0)) * 8;
    return static_cast<int>(std::clamp<int64_t>(bits, 0, cap));
}

// Runs work(c, h, track, data) on the disk's pool for every cylinder and head
// that both the sector-level track and the track record exist for.
template <class Work>
void ForEachTrack(ZEBDisk& disk, VDisk& vdisk, int cylinders, int heads, Work work) {
    trackpool::ForEach(cylinders * heads, disk.workers, [&](int i) {
        const int c = i / heads;
        const int h = i % heads;
        VTrack* t = vdisk.Track(c, h);
        uint8_t* data = disk.GetTrackData(c, h);
        if (t && data) work(c, h, *t, data);
    });
}

// One line for the sectors the encoder could not fit on their tracks. Each
// track keeps its own count, summed here in track order.
void WarnLeftOut(const VDisk& vdisk, int cylinders, int heads, Report* report) {
    int64_t total = 0, left = 0;
    const VSector* first = nullptr;
    int firstC = 0, firstH = 0;
    for (int c = 0; c < cylinders; c++) {
        for (int h = 0; h < heads; h++) {
            const VTrack* t = vdisk.Track(c, h);
            if (!t) continue;
            total += t->SectorCount();
            if (t->leftOut <= 0) continue;
            left += t->leftOut;
            if (first) continue;
            int listed = 0;
            for (const VSector* s = t->sectors; s; s = s->next) listed++;
            int skip = listed - t->leftOut;
            for (first = t->sectors; first && skip > 0; first = first->next) skip--;
            firstC = c, firstH = h;
        }
    }
    if (left == 0) return;
    std::string line = std::to_string(left) + " of " + std::to_string(total) +
                       " sectors do not fit their tracks and were left out (first: track " +
                       std::to_string(firstC) + "." + std::to_string(firstH);
    if (first) line += ", R " + std::to_string(first->idR);
    report->Warn(line + ")");
}

// One line for the tracks marked single density that only MFM fits, encoded in MFM.
void WarnMfmByFit(const VDisk& vdisk, int cylinders, int heads, int type, Report* report) {
    int count = 0, first = 0;
    for (int c = 0; c < cylinders; c++)
        for (int h = 0; h < heads; h++)
            if (const VTrack* t = vdisk.Track(c, h); t && t->mfmByFit && count++ == 0)
                first = c * 2 + h;
    if (count == 0) return;
    const bool one = count == 1;
    report->Warn(std::to_string(count) + (one ? " track" : " tracks") + " marked single density " +
                 (one ? "does" : "do") + " not fit a " + DiskTypeName(type) + " track in FM but " +
                 (one ? "does" : "do") + " in MFM, and " + (one ? "was" : "were") +
                 " encoded in MFM (first: track " + std::to_string(first / 2) + "." +
                 std::to_string(first % 2) + ")");
}

}  // namespace

bool ZEBDisk::Import(const Filepath& path, int diskno) {
    Cleanup();
    report.Clear();
    if (path.IsClear()) return report.Fail("no source file given");

    if (path.HasExt(".HFE") || path.HasExt(".SCP") || path.HasExt(".RAW") || path.HasExt(".MFI")) {
        const bool ok = path.HasExt(".HFE")   ? ImportHFE(path)
                        : path.HasExt(".SCP") ? ImportSCP(path)
                        : path.HasExt(".MFI") ? ImportMFI(path)
                                              : ImportKryoFlux(path);
        if (!ok) {
            Cleanup();
            return false;
        }
        initialized = 1;
        return true;
    }

    VDisk vdisk;
    const bool imported = vdisk.Import(path, diskno) != 0;
    report.Merge(std::move(vdisk.report));
    if (!imported) return false;

    const VTrack* first = vdisk.Track(0, 0);
    const int firstLength = first ? first->GetLength() : 0;
    bool ok;
    switch (vdisk.type) {
        case VDISK_2DD:
            ok = Init(ZEB_2DD, 0, 0, 0);
            break;
        case VDISK_2HD:
            ok = Init(ZEB_2HD, 0, firstLength < kLong2HDTrack ? 360 : 300, 0);
            break;
        case VDISK_2D:
            ok = Init(ZEB_2D, 0, 0, 0);
            break;
        default:
            ok = false;
            break;
    }
    if (!ok) {
        Cleanup();
        return report.Fail(std::string(path.GetPath()) + ": media type " +
                           std::to_string(vdisk.type) + " has no track-level disk");
    }

    FieldWriter hdr(header, sizeof header);
    char name[zebhdr::kNameLen] = {};
    std::memcpy(name, vdisk.name, std::min(sizeof name, sizeof vdisk.name));
    name[kNameMax] = 0;
    hdr.Text(zebhdr::kName, name, kNameMax, zebhdr::kNameLen);
    SetHeaderInt(zebhdr::kWriteProtect, vdisk.writeProtect ? 1 : 0);

    const int cylinders = std::clamp(vdisk.cylinders, 0, kMaxCylinders);
    const int heads = std::clamp(vdisk.heads, 0, kMaxHeads);
    // Every track is encoded into its own record.
    ForEachTrack(*this, vdisk, cylinders, heads, [&](int c, int h, VTrack& t, uint8_t* data) {
        const int slot = c * 2 + h;
        const int bits = t.Encode(0, data, GetTrackLen(c, h));
        SetRecordInt(slot, zebrec::kBitLength, BitsWithin(bits, RecordDataSize(slot)));
    });
    WarnMfmByFit(vdisk, cylinders, heads, Type(), &report);
    WarnLeftOut(vdisk, cylinders, heads, &report);
    initialized = 1;
    return true;
}

bool ZEBDisk::Export(const Filepath& path, int mode) {
    if (!initialized) return report.Fail("no disk to export");
    if (path.IsClear()) return report.Fail("no file to export to");

    // The decoder and HFE want cells; the converted disk stays in the object.
    if (Type() == ZEB_RAW) ConvertEncBody();

    if (path.HasExt(".HFE")) return ExportHFE(path);
    if (path.HasExt(".MFI")) return ExportMFI(path);
    if (!VDisk::CanExport(path))
        return report.Fail(std::string(path.GetPath()) + ": " +
                           (path.GetExt()[0]
                                ? "unknown extension \"" + std::string(path.GetExt()) + "\""
                                : std::string("no extension")) +
                           "; known: .ZEB .HFE .MFI " + VDisk::ExportExtensions());

    const int cylinders = Cylinders();
    const int heads = Heads();
    if (cylinders < 0 || cylinders > kMaxCylinders || heads < 0 || heads > kMaxHeads)
        return report.Fail(std::string(path.GetPath()) + ": the disk's geometry (" +
                           std::to_string(cylinders) + " cylinders, " + std::to_string(heads) +
                           " heads) cannot be exported");

    int vtype;
    switch (Type()) {
        case ZEB_2D:
            vtype = VDISK_2D;
            break;
        case ZEB_2DD:
            vtype = VDISK_2DD;
            break;
        default:
            vtype = VDISK_2HD;
            break;
    }
    VDisk vdisk;
    vdisk.Init(vtype, cylinders, heads);
    // Every track is decoded into its own VTrack.
    ForEachTrack(*this, vdisk, cylinders, heads, [&](int c, int h, VTrack& t, uint8_t* data) {
        const int bits = BitsWithin(GetTrackLen(c, h), RecordDataSize(c * 2 + h));
        t.Decode(0, data, bits, mode);
        // The writers need the sectors only: the cell buffer goes back to the
        // allocator at once, for the worker's next track to reuse.
        delete[] t.encData;
        t.encData = nullptr;
    });

    char name[zebhdr::kNameLen] = {};
    GetName(name);
    name[kNameMax] = 0;
    std::memset(vdisk.name, 0, sizeof vdisk.name);
    std::memcpy(vdisk.name, name, std::min(sizeof name, sizeof vdisk.name));
    vdisk.writeProtect = HeaderInt(zebhdr::kWriteProtect) ? 1 : 0;
    const bool exported = vdisk.Export(path) != 0;
    report.Merge(std::move(vdisk.report));
    return exported;
}

std::unique_ptr<VTrack> ZEBDisk::Analyze(int cylinder, int head, int mode) {
    if (!initialized || cylinder < 0 || head < 0 || cylinder >= Cylinders() || head >= Heads() ||
        cylinder >= kMaxCylinders || head >= kMaxHeads)
        return nullptr;
    auto t = std::make_unique<VTrack>();
    uint8_t* data = GetTrackData(cylinder, head);
    if (!data) return t;
    // A track read from flux is looked at in the cells it was read into.
    CellRevolution& read = fluxCells[cylinder * 2 + head];
    if (read.bits > 0 && read.cells.size() >= static_cast<size_t>(read.bits + 7) / 8) {
        t->Decode(0, read.cells.data(), read.bits, mode);
        return t;
    }
    const int bits = BitsWithin(GetTrackLen(cylinder, head), RecordDataSize(cylinder * 2 + head));
    t->Decode(Type() == ZEB_RAW ? 1 : 0, data, bits, mode);
    return t;
}
