// DIM images: a 256-byte header whose media byte alone fixes the geometry and
// the sector IDs, followed by the data of every present track.
#include <cerrno>
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
constexpr size_t kHdrMedia = 0x00;
constexpr size_t kHdrFlags = 0x01;  // one byte per track, 170 bytes
constexpr size_t kHdrFlagCount = 170;
constexpr size_t kHdrId = 0xAB;  // "DIFC HEADER  " and its NUL
constexpr size_t kHdrFixed = 0xBA;
constexpr size_t kHdrComment = 0xC2;  // 60 bytes, NUL-terminated
constexpr size_t kHdrCommentField = 60;
constexpr size_t kHdrCommentEnd = 0xFD;
constexpr size_t kHdrMark = 0xFE;       // 0x19
constexpr size_t kHdrOvertrack = 0xFF;  // media 0 with more than 77 cylinders
constexpr size_t kHdrSize = 256;

constexpr char kHeaderId[] = "DIFC HEADER  ";  // sizeof includes the NUL
constexpr uint8_t kFixedBytes[8] = {0x04, 0x21, 0x03, 0x22, 0x01, 0x00, 0x00, 0x00};
constexpr uint8_t kMarkByte = 0x19;

constexpr int kDimCylinders = 84;
constexpr int kMinCylinders = 77;

// The sector layout a media byte stands for.
struct DimMedia {
    int media;
    int sectors;
    int n;
};
constexpr DimMedia kMediaTable[] = {
    {0, 8, 3}, {1, 9, 3}, {2, 15, 2}, {3, 9, 3}, {9, 18, 2}, {17, 26, 1},
};

const DimMedia* FindMedia(int media) {
    for (const DimMedia& m : kMediaTable)
        if (m.media == media) return &m;
    return nullptr;
}

// Sector i (from 0) of a track as a DIM file of this media describes it.
struct DimId {
    int mfm;
    int h;
    int r;
    int n;
};
DimId SectorId(const DimMedia& m, int c, int h, int i) {
    const bool first = c == 0 && h == 0;
    DimId id{1, h, i + 1, m.n};
    switch (m.media) {
        case 1:
            id.r = (first && i == 0) ? 1 : 10 + i;
            break;
        case 3:
            id.h = (first && i == 0) ? 0 : h + 0x80;
            break;
        case 17:
            if (first) {
                id.mfm = 0;
                id.n = 0;
            }
            break;
        default:
            break;
    }
    return id;
}

// A track conforms when it holds count sectors, all MFM with size code n.
bool Conforms(const VTrack* t, int count, int n) {
    if (!t || t->SectorCount() != count) return false;
    for (const VSector* s = t->sectors; s; s = s->next)
        if (!s->mfm || s->idN != n) return false;
    return true;
}

}  // namespace

int VDisk::ImportDIM(const Filepath& path) {
    bool protect;
    Fileio f;
    int64_t fileSize;
    uint8_t hdrBuf[kHdrSize];
    if (!OpenImage(path, report, &f, &fileSize, &protect, hdrBuf, static_cast<int>(kHdrSize)))
        return 0;
    const FieldReader hdr(hdrBuf, sizeof(hdrBuf));
    if (!hdr.Equals(kHdrId, kHeaderId, sizeof(kHeaderId)))
        return RefuseImage(path, report, "no DIM header text \"DIFC HEADER  \" at offset 0xAB");
    const DimMedia* m = FindMedia(hdr.U8(kHdrMedia));
    if (!m)
        return RefuseImage(
            path, report,
            "media byte " + std::to_string(hdr.U8(kHdrMedia)) + " is none of 0, 1, 2, 3, 9, 17");

    Clear();
    type = VDISK_2HD;
    cylinders = kDimCylinders;
    heads = 2;
    if (hdr.U8(kHdrComment) != 0) {
        hdrBuf[kHdrCommentEnd] = 0;
        CopyDiskName(name, reinterpret_cast<const char*>(hdrBuf + kHdrComment), 59);
    } else {
        CopyDiskName(name, path.GetShort());
        WarnNameCut(std::string(path.fname) + path.ext, 59, "", &report);
    }
    writeProtect = protect ? 1 : 0;

    std::vector<uint8_t> buf;
    for (int c = 0; c < kDimCylinders; c++) {
        for (int h = 0; h < 2; h++) {
            VTrack* t = NewTrack(c, h);
            if (hdr.U8(kHdrFlags + static_cast<size_t>(2 * c + h)) == 0) continue;
            // Sector sizes of one track; the whole track is read at once.
            size_t total = 0;
            for (int i = 0; i < m->sectors; i++) total += 128u << SectorId(*m, c, h, i).n;
            buf.resize(total);
            if (!ReadImage(path, report, f, buf.data(), static_cast<int>(total), fileSize,
                           TrackLabel(c, h)))
                return 0;
            size_t at = 0;
            for (int i = 0; i < m->sectors; i++) {
                const DimId id = SectorId(*m, c, h, i);
                const int len = 128 << id.n;
                t->AddSector(
                    MakeFormattedSector(id.mfm, c, id.h, id.r, id.n, buf.data() + at, len, 0));
                at += static_cast<size_t>(len);
            }
        }
    }
    // The flag table names one cylinder more than the disk can hold.
    int beyond = 0;
    for (size_t i = 2 * kDimCylinders; i < kHdrFlagCount; i++) beyond += hdr.U8(kHdrFlags + i) != 0;
    if (beyond > 0)
        report.Warn(Counted(beyond, "track", "tracks") + " of cylinder 84 flagged present " +
                    (beyond == 1 ? "was" : "were") + " not read (cylinders 0-83 are)");
    return 1;
}

namespace {

// Why a disk does not fit a DIM file: the layouts the format holds and what the
// disk has from track 0.1 on.
std::string DimMismatch(const Filepath& path, int n, int count, int refN, int stopC, int stopH) {
    std::string why = std::string(path.GetPath()) +
                      ": .DIM holds at least 77 cylinders of 8 x 1024-byte sectors or at least 80 "
                      "of 9 x 1024, 15 x 512, 18 x 512 or 26 x 256 (track 0.0: 26 x 128 FM), "
                      "the disk has ";
    if (count <= 0) return why + "no sectors on track 0.1";
    why += std::to_string(n) + " cylinders of " + std::to_string(count) + " x " +
           std::to_string(128 << (refN & 7)) + "-byte MFM sectors";
    if (stopC >= 0) why += " (track " + TrackName(stopC, stopH) + " differs)";
    return why + "; .D88 would fit";
}

}  // namespace

int VDisk::ExportDIM(const Filepath& path) {
    const VTrack* ref = Track(0, 1);
    if (!ref || ref->SectorCount() == 0 || !ref->sectors || cylinders < 1)
        return report.Fail(DimMismatch(path, 0, 0, 0, -1, 0));
    const int refCount = ref->SectorCount();
    const int refN = ref->sectors->idN;

    // Cylinder 0 head 0 may differ (media 1 and 17 give it another layout), so
    // the count starts at cylinder 0 head 1.
    const int limit = cylinders < kDimCylinders ? cylinders : kDimCylinders;
    int n = 0;
    int stopC = -1, stopH = 0;
    for (int c = 0; c < limit; c++) {
        if (c > 0 && !Conforms(Track(c, 0), refCount, refN)) {
            stopC = c, stopH = 0;
            break;
        }
        if (!Conforms(Track(c, 1), refCount, refN)) {
            stopC = c, stopH = 1;
            break;
        }
        n = c + 1;
    }
    // A track without sectors only ends the disk; one with other sectors differs.
    if (stopC >= 0 && !(Track(stopC, stopH) && Track(stopC, stopH)->sectors)) stopC = -1;
    const auto refuse = [&] {
        return report.Fail(DimMismatch(path, n, refCount, refN, stopC, stopH));
    };
    if (n < kMinCylinders) return refuse();

    int media = -1;
    if (refN == 1) {
        const VTrack* t0 = Track(0, 0);
        const VSector* s = t0 ? t0->sectors : nullptr;
        if (!s || s->mfm || s->idN != 0)
            return report.Fail(std::string(path.GetPath()) +
                               ": .DIM with 26 x 256-byte sectors needs a first track of FM "
                               "128-byte sectors, track 0.0 of the disk has none");
        media = 17;
    } else if (refCount == 8) {
        if (refN != 3) return refuse();
        media = 0;
    } else if (refCount == 9 && n >= 80) {
        if (refN != 3) return refuse();
        const VTrack* t2 = Track(2, 0);
        media = (t2 && t2->sectors && t2->sectors->idH >= 0x80) ? 3 : 1;
    } else if (refCount == 15 && n >= 80) {
        if (refN != 2) return refuse();
        media = 2;
    } else if (refCount == 18 && refN == 2 && n >= 80) {
        media = 9;
    } else {
        return refuse();
    }

    uint8_t hdrBuf[kHdrSize] = {};
    FieldWriter hdr(hdrBuf, sizeof(hdrBuf));
    hdr.U8(kHdrMedia, static_cast<uint32_t>(media));
    static_assert(2 * kDimCylinders <= kHdrFlagCount);
    hdr.Fill(kHdrFlags, 0x01, static_cast<size_t>(2 * n));
    hdr.Bytes(kHdrId, kHeaderId, sizeof(kHeaderId));
    hdr.Bytes(kHdrFixed, kFixedBytes, sizeof(kFixedBytes));
    hdr.Text(kHdrComment, name, 59, kHdrCommentField);
    hdr.U8(kHdrMark, kMarkByte);
    hdr.U8(kHdrOvertrack, (media == 0 && n != kMinCylinders) ? 1 : 0);

    // Sector data is gathered before the file is created.
    std::vector<uint8_t> out(hdrBuf, hdrBuf + kHdrSize);
    for (int c = 0; c < n; c++)
        for (int h = 0; h < 2; h++) {
            const VTrack* t = Track(c, h);
            for (const VSector* s = t ? t->sectors : nullptr; s; s = s->next)
                AppendSectorData(out, s);
        }
    if (out.size() > INT32_MAX) return report.Fail(CannotWrite(path, EFBIG));

    AtomicFile f;
    if (!f.Create(path)) return report.Fail(CannotCreate(path, f.lastError));
    if (!f.Write(out.data(), static_cast<int>(out.size())) || !f.Commit())
        return report.Fail(CannotWrite(path, f.lastError));

    const std::string format = FormatName(path);
    WarnTracksLeftOut(*this, 2 * n,
                      format + " stops at the first cylinder laid out unlike track 0.1", &report);
    WarnSlotLength(*this, 2 * n, 0, &report);
    WarnStatusLost(*this, 2 * n, SECT_IDCRC | SECT_DATACRC | SECT_NODAM | SECT_DELETED, format,
                   &report);
    return 1;
}
