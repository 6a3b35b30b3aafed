// NFD images (revision R0): a fixed header with a sector table for 163 tracks
// of up to 26 sectors, then the data of every sector back to back in table
// order. The entries carry no offsets.
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
constexpr size_t kNfdSignature = 0x00000;  // 16 bytes
constexpr size_t kNfdComment = 0x00010;    // 256 bytes, NUL-terminated
constexpr size_t kNfdCommentField = 256;
constexpr size_t kNfdCommentEnd = 0x0004B;  // forced NUL: 59 name characters
constexpr size_t kNfdHeaderSizeField = 0x00110;
constexpr size_t kNfdWriteProtect = 0x00114;
constexpr size_t kNfdHeads = 0x00115;
constexpr size_t kNfdTable = 0x00120;
constexpr size_t kNfdTableEnd = 0x10A00;  // 16 reserved bytes follow
constexpr size_t kNfdHeaderSize = 0x10A10;

constexpr int kNfdTracks = 163;
constexpr int kNfdEntries = 26;  // per track
constexpr size_t kNfdEntrySize = 16;
constexpr int kNfdMaxCylinders = 82;

// Sector entry layout.
constexpr size_t kNfdEntC = 0;
constexpr size_t kNfdEntH = 1;
constexpr size_t kNfdEntR = 2;
constexpr size_t kNfdEntN = 3;
constexpr size_t kNfdEntDensity = 4;
constexpr size_t kNfdEntDeleted = 5;
constexpr size_t kNfdEntStatus = 6;  // four status bytes
constexpr size_t kNfdEntMedia = 10;
constexpr size_t kNfdEntUnusedFill = 11;   // bytes 0..10 of an unused entry are 0xFF
constexpr uint8_t kNfdStatusHead1 = 0x04;  // status byte 7 on head 1

constexpr uint8_t kNfdMedia2HD = 0x90;
constexpr uint8_t kNfdMedia2HD300 = 0x30;
constexpr uint8_t kNfdMedia2DD = 0x10;  // 2D and 2DD alike
constexpr int32_t kNfdLongTrack = 11000;
constexpr uint8_t kNfdUnused = 0xFF;

static_assert(kNfdTable + kNfdTracks * kNfdEntries * kNfdEntrySize == kNfdTableEnd);
static_assert(kNfdTableEnd + 16 == kNfdHeaderSize);

constexpr char kNfdSignatureText[16] = "T98FDDIMAGE.R0\0";
constexpr size_t kNfdSignatureCheck = 14;

constexpr size_t NfdEntry(int track, int i) {
    return kNfdTable +
           (static_cast<size_t>(track) * kNfdEntries + static_cast<size_t>(i)) * kNfdEntrySize;
}

bool NfdEntryUnused(const FieldReader& r, size_t e) {
    return r.U8(e + kNfdEntC) == kNfdUnused && r.U8(e + kNfdEntH) == kNfdUnused &&
           r.U8(e + kNfdEntR) == kNfdUnused && r.U8(e + kNfdEntN) == kNfdUnused;
}

}  // namespace

int VDisk::ImportNFD(const Filepath& path) {
    Clear();
    bool protectedFile;
    Fileio f;
    int64_t fileSize;
    std::vector<uint8_t> hdr(kNfdHeaderSize);
    if (!OpenImage(path, report, &f, &fileSize, &protectedFile, hdr.data(),
                   static_cast<int>(hdr.size())))
        return 0;
    FieldReader r(hdr.data(), hdr.size());
    if (!r.Equals(kNfdSignature, kNfdSignatureText, kNfdSignatureCheck))
        return RefuseImage(
            path, report,
            "no signature \"" + std::string(kNfdSignatureText, kNfdSignatureCheck) + "\"");
    if (r.U8(kNfdHeads) != 2)
        return RefuseImage(path, report,
                           "heads byte " + std::to_string(r.U8(kNfdHeads)) + " (2 are read)");

    int firstUnused = -1;
    for (int t = 0; t < kNfdTracks; t++) {
        if (r.U8(NfdEntry(t, 0) + kNfdEntC) == kNfdUnused) {
            firstUnused = t;
            break;
        }
    }
    const int cyls = firstUnused >= 0 ? (firstUnused + 1) / 2 : kNfdMaxCylinders;
    int mediaType;
    switch (r.U8(NfdEntry(0, 0) + kNfdEntMedia)) {
        case kNfdMedia2HD:
        case kNfdMedia2HD300:
            mediaType = VDISK_2HD;
            break;
        case kNfdMedia2DD:
            mediaType = (firstUnused < 0 || firstUnused > 84) ? VDISK_2DD : VDISK_2D;
            break;
        default:
            return RefuseImage(
                path, report, "unknown media code " + HexByte(r.U8(NfdEntry(0, 0) + kNfdEntMedia)));
    }

    Init(mediaType, cyls, 2);
    WarnNameCut(std::string(reinterpret_cast<const char*>(hdr.data() + kNfdComment),
                            strnlen(reinterpret_cast<const char*>(hdr.data() + kNfdComment), 255)),
                59, "", &report);
    hdr[kNfdCommentEnd] = 0;
    CopyDiskName(name, reinterpret_cast<const char*>(hdr.data() + kNfdComment), 59);
    writeProtect = (r.U8(kNfdWriteProtect) != 0 || protectedFile) ? 1 : 0;

    // The data follows the header in table order.
    std::vector<uint8_t> buf;
    for (int t = 0; t < 2 * cylinders; t++) {
        VTrack* trk = NewTrack(t / 2, t % 2);
        // 82 cylinders are one track more than the table holds.
        if (t >= kNfdTracks) continue;
        for (int i = 0; i < kNfdEntries; i++) {
            const size_t e = NfdEntry(t, i);
            if (NfdEntryUnused(r, e)) break;
            const int n = r.U8(e + kNfdEntN);
            const int length = 128 << std::min(n, 7);
            buf.resize(static_cast<size_t>(length));
            if (!ReadImage(path, report, f, buf.data(), length, fileSize, TrackLabel(t / 2, t % 2)))
                return 0;
            const int mfm = r.U8(e + kNfdEntDensity) != 0 ? 1 : 0;
            trk->AddSector(MakeFormattedSector(mfm, r.U8(e + kNfdEntC), r.U8(e + kNfdEntH),
                                               r.U8(e + kNfdEntR), n, buf.data(), length,
                                               r.U8(e + kNfdEntDeleted) ? SECT_DELETED : 0));
        }
    }
    // Tracks after the first unused one that still hold entries lie beyond
    // the geometry the table gives.
    if (firstUnused >= 0) {
        std::vector<bool> used(kNfdTracks);
        for (int t = 0; t < kNfdTracks; t++)
            used[static_cast<size_t>(t)] = r.U8(NfdEntry(t, 0) + kNfdEntC) != kNfdUnused;
        WarnTracksNotRead(used, firstUnused + 1,
                          "after the unused " + TrackLabel(firstUnused / 2, firstUnused % 2),
                          report);
    }
    return 1;
}

int VDisk::ExportNFD(const Filepath& path) {
    // Cylinders beyond 82 are dropped, and so is the head-1 track of cylinder
    // 81, which has no room in the table.
    const int outTracks = std::min(2 * std::clamp<int>(cylinders, 0, kNfdMaxCylinders), kNfdTracks);
    // A track of more than 26 sectors does not fit the table: refuse before
    // creating anything.
    for (int t = 0; t < outTracks; t++) {
        const VTrack* trk = Track(t / 2, t % 2);
        if (trk && trk->SectorCount() > kNfdEntries)
            return report.Fail(std::string(path.GetPath()) + ": track " + TrackName(t / 2, t % 2) +
                               " holds " + std::to_string(trk->SectorCount()) +
                               " sectors, more than the " + std::to_string(kNfdEntries) +
                               " a .NFD track holds (.D88 would fit)");
    }

    std::vector<uint8_t> hdr(kNfdHeaderSize, 0);
    FieldWriter w(hdr.data(), hdr.size());
    for (int t = 0; t < kNfdTracks; t++) {
        for (int i = 0; i < kNfdEntries; i++) w.Fill(NfdEntry(t, i), kNfdUnused, kNfdEntUnusedFill);
    }
    w.Bytes(kNfdSignature, kNfdSignatureText, sizeof(kNfdSignatureText));
    w.Text(kNfdComment, name, std::min(kNfdCommentField - 1, sizeof(name)), kNfdCommentField);
    w.U32(kNfdHeaderSizeField, kNfdHeaderSize);
    w.U8(kNfdWriteProtect, 0);
    w.U8(kNfdHeads, 2);

    AtomicFile f;
    if (!f.Create(path)) return report.Fail(CannotCreate(path, f.lastError));
    if (!f.Write(hdr.data(), static_cast<int>(hdr.size())))
        return report.Fail(CannotWrite(path, f.lastError));
    for (int t = 0; t < outTracks; t++) {
        const VTrack* trk = Track(t / 2, t % 2);
        if (!trk) continue;
        uint8_t media = kNfdMedia2DD;
        if (type == VDISK_2HD) {
            media = EstimateTrackLength(trk) >= kNfdLongTrack ? kNfdMedia2HD300 : kNfdMedia2HD;
        }
        int i = 0;
        for (const VSector* s = trk->sectors; s && i < kNfdEntries; s = s->next, i++) {
            const size_t e = NfdEntry(t, i);
            w.U8(e + kNfdEntC, s->idC);
            w.U8(e + kNfdEntH, s->idH);
            w.U8(e + kNfdEntR, s->idR);
            w.U8(e + kNfdEntN, s->idN);
            w.U8(e + kNfdEntDensity, s->mfm ? 1 : 0);
            w.U8(e + kNfdEntDeleted, (s->status & SECT_DELETED) ? 1 : 0);
            w.Fill(e + kNfdEntStatus, 0, 4);
            w.U8(e + kNfdEntStatus + 1, s->idH ? kNfdStatusHead1 : 0);
            w.U8(e + kNfdEntMedia, media);
            if (s->length <= 0) continue;
            if (!s->data) return report.Fail(CannotWrite(path, 0));
            if (!f.Write(s->data, s->length)) return report.Fail(CannotWrite(path, f.lastError));
        }
    }
    if (!f.Seek(0, 0) || !f.Write(hdr.data(), static_cast<int>(hdr.size())) || !f.Commit())
        return report.Fail(CannotWrite(path, f.lastError));

    const std::string format = FormatName(path);
    WarnTracksLeftOut(
        *this, outTracks,
        format + " keeps tracks up to " + TrackName((kNfdTracks - 1) / 2, (kNfdTracks - 1) % 2),
        &report);
    WarnStatusLost(*this, outTracks, SECT_IDCRC | SECT_DATACRC | SECT_NODAM, format, &report);
    return 1;
}
