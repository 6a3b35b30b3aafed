// FDD images: a fixed header with a sector table for 160 tracks of up to 26
// sectors, each entry pointing at its data in the file. A sector whose bytes
// are all equal is stored as its fill byte alone.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fileio/atomicfile.h"
#include "fileio/fieldio.h"
#include "fileio/fileerror.h"
#include "fileio/fileio.h"
#include "vdisk/exportloss.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"

namespace {

// Header layout.
constexpr size_t kFddSignature = 0x0000;  // "VFD1.00" + NUL
constexpr size_t kFddName = 0x0008;       // 128 bytes, NUL-terminated
constexpr size_t kFddNameField = 128;
constexpr size_t kFddNameEnd = 0x0043;       // forced NUL: 59 name characters
constexpr size_t kFddWriteProtect = 0x0088;  // int16
constexpr size_t kFddTable = 0x00DC;
constexpr size_t kFddTrailer = 0xC3DC;
constexpr size_t kFddHeaderSize = 0xC3FC;

constexpr int kFddTracks = 160;
constexpr int kFddEntries = 26;  // per track
constexpr size_t kFddEntrySize = 12;
constexpr int kFddMaxCylinders = 80;

// Sector entry layout.
constexpr size_t kFddEntC = 0;
constexpr size_t kFddEntH = 1;
constexpr size_t kFddEntR = 2;
constexpr size_t kFddEntN = 3;
constexpr size_t kFddEntFill = 4;
constexpr size_t kFddEntDeleted = 5;
constexpr size_t kFddEntDensity = 6;
constexpr size_t kFddEntHighDensity = 7;
constexpr size_t kFddEntOffset = 8;  // uint32

constexpr uint32_t kFddNoData = 0xFFFFFFFF;
constexpr uint8_t kFddUnused = 0xFF;

static_assert(kFddTable + kFddTracks * kFddEntries * kFddEntrySize == kFddTrailer);
static_assert(kFddTrailer + 32 == kFddHeaderSize);

constexpr char kFddSignatureText[8] = {'V', 'F', 'D', '1', '.', '0', '0', '\0'};
constexpr size_t kFddSignatureCheck = 5;  // "VFD1."; any version text follows

// The fixed trailer after the table.
constexpr uint8_t kFddTrailerBytes[32] = {
    0xFF, 0xFF, 0,    0,    0,    0,    0,    0,    0,    0,    0,    0,    0, 0, 0, 0,
    0,    0,    0x01, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};

constexpr size_t FddEntry(int track, int i) {
    return kFddTable +
           (static_cast<size_t>(track) * kFddEntries + static_cast<size_t>(i)) * kFddEntrySize;
}

bool FddEntryUnused(const FieldReader& r, size_t e) {
    return r.U8(e + kFddEntC) == kFddUnused && r.U8(e + kFddEntH) == kFddUnused &&
           r.U8(e + kFddEntR) == kFddUnused && r.U8(e + kFddEntN) == kFddUnused;
}

// True when all len bytes equal the first (len 0 or 1 counts as uniform).
bool Uniform(const uint8_t* p, int len) {
    return len <= 1 || std::memcmp(p, p + 1, static_cast<size_t>(len) - 1) == 0;
}

}  // namespace

int VDisk::ImportFDD(const Filepath& path) {
    Clear();
    bool protectedFile;
    Fileio f;
    int64_t fileSize;
    std::vector<uint8_t> hdr(kFddHeaderSize);
    if (!OpenImage(path, report, &f, &fileSize, &protectedFile, hdr.data(),
                   static_cast<int>(hdr.size())))
        return 0;
    FieldReader r(hdr.data(), hdr.size());
    if (!r.Equals(kFddSignature, kFddSignatureText, kFddSignatureCheck))
        return RefuseImage(
            path, report,
            "no signature \"" + std::string(kFddSignatureText, kFddSignatureCheck) + "\"");

    // Geometry: the first track without sectors ends the disk.
    int firstUnused = -1;
    for (int t = 0; t < kFddTracks; t++) {
        if (r.U8(FddEntry(t, 0) + kFddEntC) == kFddUnused) {
            firstUnused = t;
            break;
        }
    }
    const bool highDensity = r.U8(FddEntry(0, 0) + kFddEntHighDensity) != 0;
    int cyls;
    int mediaType;
    if (firstUnused >= 0) {
        cyls = (firstUnused + 1) / 2;
        mediaType = highDensity ? VDISK_2HD : (firstUnused > 84 ? VDISK_2DD : VDISK_2D);
    } else {
        cyls = kFddMaxCylinders;
        mediaType = highDensity ? VDISK_2HD : VDISK_2DD;
    }

    Init(mediaType, cyls, 2);
    WarnNameCut(std::string(reinterpret_cast<const char*>(hdr.data() + kFddName),
                            strnlen(reinterpret_cast<const char*>(hdr.data() + kFddName), 127)),
                59, "", &report);
    hdr[kFddNameEnd] = 0;
    CopyDiskName(name, reinterpret_cast<const char*>(hdr.data() + kFddName), 59);
    writeProtect = (r.I16(kFddWriteProtect) != 0 || protectedFile) ? 1 : 0;

    std::vector<uint8_t> buf;
    for (int t = 0; t < 2 * cylinders; t++) {
        const int c = t / 2;
        const int h = t % 2;
        VTrack* trk = NewTrack(c, h);
        for (int i = 0; i < kFddEntries; i++) {
            const size_t e = FddEntry(t, i);
            if (FddEntryUnused(r, e)) break;
            const int n = r.U8(e + kFddEntN);
            const int length = 128 << std::min(n, 7);
            const uint32_t offset = r.U32(e + kFddEntOffset);
            buf.resize(static_cast<size_t>(length));
            if (offset == kFddNoData) {
                std::memset(buf.data(), r.U8(e + kFddEntFill), buf.size());
            } else {
                if (static_cast<int64_t>(offset) + length > fileSize || !f.Seek(offset, 0))
                    return RefuseImage(path, report,
                                       TrackLabel(c, h) + ": " + std::to_string(length) +
                                           " bytes of sector data at offset " +
                                           std::to_string(offset) + " run past the end (" +
                                           std::to_string(fileSize) + " bytes)");
                if (!ReadImage(path, report, f, buf.data(), length, fileSize, TrackLabel(c, h)))
                    return 0;
            }
            const int mfm = r.U8(e + kFddEntDensity) != 0 ? 1 : 0;
            trk->AddSector(MakeFormattedSector(mfm, r.U8(e + kFddEntC), r.U8(e + kFddEntH),
                                               r.U8(e + kFddEntR), n, buf.data(), length,
                                               r.U8(e + kFddEntDeleted) ? SECT_DELETED : 0));
        }
    }
    // Tracks after the first unused one that still hold entries lie beyond
    // the geometry the table gives.
    if (firstUnused >= 0) {
        std::vector<bool> used(kFddTracks);
        for (int t = 0; t < kFddTracks; t++)
            used[static_cast<size_t>(t)] = r.U8(FddEntry(t, 0) + kFddEntC) != kFddUnused;
        WarnTracksNotRead(used, firstUnused + 1,
                          "after the unused " + TrackLabel(firstUnused / 2, firstUnused % 2),
                          report);
    }
    return 1;
}

int VDisk::ExportFDD(const Filepath& path) {
    const int cyls = std::clamp<int>(cylinders, 0, kFddMaxCylinders);
    // A track of more than 26 sectors does not fit the table: refuse before
    // creating anything.
    for (int c = 0; c < cyls; c++) {
        for (int h = 0; h < 2; h++) {
            const VTrack* t = Track(c, h);
            if (t && t->SectorCount() > kFddEntries)
                return report.Fail(std::string(path.GetPath()) + ": track " + TrackName(c, h) +
                                   " holds " + std::to_string(t->SectorCount()) +
                                   " sectors, more than the " + std::to_string(kFddEntries) +
                                   " a .FDD track holds (.D88 would fit)");
        }
    }

    std::vector<uint8_t> hdr(kFddHeaderSize, 0);
    FieldWriter w(hdr.data(), hdr.size());
    w.Bytes(kFddSignature, kFddSignatureText, sizeof(kFddSignatureText));
    w.Text(kFddName, name, std::min(kFddNameField - 1, sizeof(name)), kFddNameField);
    w.U16(kFddWriteProtect, 0);
    w.Fill(kFddTable, kFddUnused, kFddTrailer - kFddTable);
    w.Bytes(kFddTrailer, kFddTrailerBytes, sizeof(kFddTrailerBytes));

    AtomicFile f;
    if (!f.Create(path)) return report.Fail(CannotCreate(path, f.lastError));
    if (!f.Write(hdr.data(), static_cast<int>(hdr.size())))
        return report.Fail(CannotWrite(path, f.lastError));
    const uint8_t hd = type == VDISK_2HD ? 1 : 0;
    for (int c = 0; c < cyls; c++) {
        for (int h = 0; h < 2; h++) {
            const VTrack* t = Track(c, h);
            if (!t) continue;
            int i = 0;
            for (const VSector* s = t->sectors; s && i < kFddEntries; s = s->next, i++) {
                const size_t e = FddEntry(2 * c + h, i);
                w.U8(e + kFddEntC, s->idC);
                w.U8(e + kFddEntH, s->idH);
                w.U8(e + kFddEntR, s->idR);
                w.U8(e + kFddEntN, s->idN);
                w.U8(e + kFddEntDeleted, (s->status & SECT_DELETED) ? 1 : 0);
                w.U8(e + kFddEntDensity, s->mfm ? 1 : 0);
                w.U8(e + kFddEntHighDensity, hd);
                const int len = s->data ? std::max(s->length, 0) : 0;
                if (Uniform(s->data, len)) {
                    w.U8(e + kFddEntFill, len > 0 ? s->data[0] : kFddUnused);
                    w.U32(e + kFddEntOffset, kFddNoData);
                } else {
                    w.U8(e + kFddEntFill, kFddUnused);
                    w.U32(e + kFddEntOffset, static_cast<uint32_t>(f.GetFilePos()));
                    if (!f.Write(s->data, len)) return report.Fail(CannotWrite(path, f.lastError));
                }
            }
        }
    }
    if (!f.Seek(0, 0) || !f.Write(hdr.data(), static_cast<int>(hdr.size())) || !f.Commit())
        return report.Fail(CannotWrite(path, f.lastError));

    const std::string format = FormatName(path);
    WarnTracksLeftOut(*this, 2 * cyls,
                      format + " keeps " + std::to_string(kFddMaxCylinders) + " cylinders",
                      &report);
    WarnStatusLost(*this, 2 * cyls, SECT_IDCRC | SECT_DATACRC | SECT_NODAM, format, &report);
    return 1;
}
