// Plain sector images: headerless files holding every sector's data back to
// back, cylinder by cylinder, head 0 then head 1. The geometry comes from the
// FixFormat table, chosen by file size on reading and by extension on writing.
#include <cstdint>
#include <cstring>
#include <vector>

#include "fileio/fileio.h"
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
    if (!OpenImage(path, &f, &size, &protect)) return 0;

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
    writeProtect = protect ? 1 : 0;

    const int secLen = 128 << row->n;
    std::vector<uint8_t> buf(static_cast<size_t>(secLen) * static_cast<size_t>(row->sectors));
    for (int c = 0; c < row->cylinders; c++) {
        for (int h = 0; h < kFixHeads; h++) {
            VTrack* t = NewTrack(c, h);
            // The whole track at once: a short read fails the import either way.
            if (!f.Read(buf.data(), static_cast<int>(buf.size()))) return 0;
            for (int r = 1; r <= row->sectors; r++) {
                const uint8_t* src = buf.data() + static_cast<size_t>(r - 1) * secLen;
                t->AddSector(MakeSector(1, c, h, r, row->n, src, secLen, kFixGap2, row->gap3, 0));
            }
        }
    }
    return 1;
}

int VDisk::ExportFIX(int fixtype, const Filepath& path) {
    if (fixtype < 0 || fixtype >= kFixRows) return 0;
    const FixFormatEntry& row = FixFormat[fixtype];
    if (row.size <= 0) return 0;
    if (row.cylinders > cylinders) return 0;

    // Every check before the file is created: a refused disk leaves no file.
    for (int c = 0; c < row.cylinders; c++) {
        for (int h = 0; h < kFixHeads; h++) {
            const VTrack* t = Track(c, h);
            if (!t || t->SectorCount() != row.sectors) return 0;
            for (const VSector* s = t->sectors; s; s = s->next)
                if (s->idN != row.n) return 0;
        }
    }

    Fileio f;
    if (!f.Open(path, Fileio::WriteOnly)) return 0;
    std::vector<uint8_t> out;
    for (int c = 0; c < row.cylinders; c++) {
        for (int h = 0; h < kFixHeads; h++) {
            out.clear();
            for (const VSector* s = Track(c, h)->sectors; s; s = s->next) AppendSectorData(out, s);
            if (out.size() > INT32_MAX) return 0;
            if (!out.empty() && !f.Write(out.data(), static_cast<int>(out.size()))) return 0;
        }
    }
    return 1;
}
