// Plain sector images: headerless files holding every sector's data back to
// back, cylinder by cylinder, head 0 then head 1. The geometry comes from the
// FixFormat table, chosen by file size on reading and by extension on writing.
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fileio/atomicfile.h"
#include "fileio/fileerror.h"
#include "fileio/fileio.h"
#include "vdisk/exportloss.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"

// Size 36840 of the 2D row and the twin rows 6 and 7 are kept as they are:
// files already in use depend on exactly these sizes.
const FixFormatEntry VDisk::FixFormat[11] = {
    // size, cylinders, sectors, N, GAP3, type
    {1261568, 77, 8, 3, 116, VDISK_2HD},  // 0
    {0, 80, 8, 3, 116, VDISK_2HD},        // 1
    {0, 80, 9, 3, 52, VDISK_2HD},         // 2
    {1228800, 80, 15, 2, 84, VDISK_2HD},  // 3
    {0, 80, 9, 3, 53, VDISK_2HD},         // 4
    {1474560, 80, 18, 2, 84, VDISK_2HD},  // 5
    {0, 77, 26, 1, 51, VDISK_2HD},        // 6
    {0, 77, 26, 1, 51, VDISK_2HD},        // 7
    {737280, 80, 9, 2, 84, VDISK_2DD},    // 8
    {36840, 40, 9, 2, 84, VDISK_2D},      // 9
    {-1, 0, 0, 0, 0, 0},                  // end marker
};

namespace {

constexpr int kFixHeads = 2;
constexpr int kFixGap2 = 22;
constexpr int kFixRows = static_cast<int>(sizeof(VDisk::FixFormat) / sizeof(VDisk::FixFormat[0]));

}  // namespace

int VDisk::ImportFIX(const Filepath& path) {
    bool protect;
    Fileio f;
    int64_t size;
    if (!OpenImage(path, report, &f, &size, &protect)) return 0;

    const FixFormatEntry* row = nullptr;
    for (const FixFormatEntry& e : FixFormat) {
        if (e.size < 0) break;
        if (e.size == size) {
            row = &e;
            break;
        }
    }
    if (!row) return 0;

    Clear();
    type = row->type;
    cylinders = row->cylinders;
    heads = kFixHeads;
    CopyDiskName(name, path.GetShort());
    WarnNameCut(std::string(path.fname) + path.ext, 59, "", &report);
    writeProtect = protect ? 1 : 0;

    const int secLen = 128 << row->n;
    std::vector<uint8_t> buf(static_cast<size_t>(secLen) * static_cast<size_t>(row->sectors));
    for (int c = 0; c < row->cylinders; c++) {
        for (int h = 0; h < kFixHeads; h++) {
            VTrack* t = NewTrack(c, h);
            // The whole track at once: a short read fails the import either way.
            if (!ReadImage(path, report, f, buf.data(), static_cast<int>(buf.size()), size,
                           TrackLabel(c, h)))
                return 0;
            for (int r = 1; r <= row->sectors; r++) {
                const uint8_t* src = buf.data() + static_cast<size_t>(r - 1) * secLen;
                t->AddSector(MakeSector(1, c, h, r, row->n, src, secLen, kFixGap2, row->gap3, 0));
            }
        }
    }
    return 1;
}

namespace {

struct FixExt {
    const char* ext;
    int row;
};
// The first name of a row is the one suggested for it.
constexpr FixExt kFixExts[] = {
    {".XDF", 0}, {".HDM", 0}, {".2HD", 0}, {".DUP", 0}, {".IMG", 0},
    {".2HC", 3}, {".2HQ", 5}, {".2DD", 8}, {".2D", 9},
};

std::string Layout(int cyls, int sectors, int bytes) {
    return std::to_string(cyls) + " cylinders of " + std::to_string(sectors) + " x " +
           std::to_string(bytes) + "-byte sectors";
}

// Why a disk does not fit a plain image row: what the format holds, what the
// disk has, and which plain image (or other format) would take it.
std::string FixMismatch(const VDisk& disk, const FixFormatEntry& row, const Filepath& path) {
    // The disk's own layout, from the tracks that hold sectors.
    int used = 0, count = -1, n = -1;
    bool uniform = true;
    int oddC = -1, oddH = 0;
    for (int c = 0; c < disk.cylinders && c < VDisk::kMaxCylinders; c++) {
        for (int h = 0; h < 2; h++) {
            const VTrack* t = disk.Track(c, h);
            if (!t || !t->sectors) continue;
            used = c + 1;
            if (count < 0) count = t->SectorCount(), n = t->sectors->idN;
            bool same = t->SectorCount() == count;
            for (const VSector* s = t->sectors; s; s = s->next) same = same && s->idN == n;
            if (!same && uniform) uniform = false, oddC = c, oddH = h;
        }
    }
    std::string why = std::string(path.GetPath()) + ": " + FormatName(path) + " holds " +
                      Layout(row.cylinders, row.sectors, 128 << row.n) + ", ";
    if (count < 0) return why + "the disk has no sectors";
    if (!uniform) {
        const VTrack* t = disk.Track(oddC, oddH);
        return why + "the disk's tracks differ (track 0 holds " + std::to_string(count) + " x " +
               std::to_string(128 << (n & 7)) + " bytes, track " + TrackName(oddC, oddH) +
               " holds " + std::to_string(t->SectorCount()) +
               (t->SectorCount() == 1 ? " sector" : " sectors") + "); .D88 would fit";
    }
    why += "the disk has " + Layout(used, count, 128 << (n & 7));
    // A plain image that takes the whole layout, or else the best part of it.
    const FixExt* best = nullptr;
    for (const FixExt& e : kFixExts) {
        const FixFormatEntry& r = VDisk::FixFormat[e.row];
        if (r.size <= 0 || r.sectors != count || r.n != n || r.cylinders > used) continue;
        if (!best || r.cylinders > VDisk::FixFormat[best->row].cylinders) best = &e;
    }
    if (best && VDisk::FixFormat[best->row].cylinders == used)
        return why + "; " + best->ext + " would fit";
    return why + "; .D88 would fit";
}

}  // namespace

int VDisk::FixRow(const Filepath& path) {
    for (const FixExt& e : kFixExts)
        if (path.HasExt(e.ext)) return e.row;
    return -1;
}

int VDisk::ExportFIX(int fixtype, const Filepath& path) {
    if (fixtype < 0 || fixtype >= kFixRows)
        return report.Fail(std::string(path.GetPath()) + ": no plain image layout " +
                           std::to_string(fixtype));
    const FixFormatEntry& row = FixFormat[fixtype];
    if (row.size <= 0)
        return report.Fail(std::string(path.GetPath()) + ": the plain image layout " +
                           std::to_string(fixtype) + " has no file size and cannot be written");
    if (row.cylinders > cylinders) return report.Fail(FixMismatch(*this, row, path));

    // Every check before the file is created: a refused disk leaves no file.
    for (int c = 0; c < row.cylinders; c++) {
        for (int h = 0; h < kFixHeads; h++) {
            const VTrack* t = Track(c, h);
            bool fits = t && t->SectorCount() == row.sectors;
            for (const VSector* s = t ? t->sectors : nullptr; s; s = s->next)
                fits = fits && s->idN == row.n;
            if (!fits) return report.Fail(FixMismatch(*this, row, path));
        }
    }

    AtomicFile f;
    if (!f.Create(path)) return report.Fail(CannotCreate(path, f.lastError));
    std::vector<uint8_t> out;
    for (int c = 0; c < row.cylinders; c++) {
        for (int h = 0; h < kFixHeads; h++) {
            out.clear();
            for (const VSector* s = Track(c, h)->sectors; s; s = s->next) AppendSectorData(out, s);
            if (out.size() > INT32_MAX) return report.Fail(CannotWrite(path, EFBIG));
            if (!out.empty() && !f.Write(out.data(), static_cast<int>(out.size())))
                return report.Fail(CannotWrite(path, f.lastError));
        }
    }
    if (!f.Commit()) return report.Fail(CannotWrite(path, f.lastError));

    const std::string format = FormatName(path);
    const int kept = 2 * row.cylinders;
    WarnTracksLeftOut(*this, kept,
                      format + " keeps " + std::to_string(row.cylinders) + " cylinders", &report);
    WarnSlotLength(*this, kept, 128 << row.n, &report);
    WarnStatusLost(*this, kept, SECT_IDCRC | SECT_DATACRC | SECT_NODAM | SECT_DELETED, format,
                   &report);
    return 1;
}
