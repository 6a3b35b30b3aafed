// D68 family images (.D68, .D88, .D77, .D98): a 688-byte disk header with a
// table of track offsets, then the tracks, each sector carrying a 16-byte
// header before its data. Several disks may follow one another in one file.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fileio/atomicfile.h"
#include "fileio/failtext.h"
#include "fileio/fieldio.h"
#include "fileio/fileerror.h"
#include "fileio/fileio.h"
#include "vdisk/exportloss.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"

namespace {

// Disk header.
constexpr size_t kHdrName = 0x00;  // 17 bytes, NUL-terminated
constexpr size_t kHdrNameField = 17;
constexpr size_t kHdrNameChars = 16;
constexpr size_t kHdrProtect = 0x1A;  // 0x00 off, 0x10 on
constexpr size_t kHdrMedia = 0x1B;    // 0x00 2D, 0x10 2DD, 0x20 2HD
constexpr size_t kHdrDiskSize = 0x1C;
constexpr size_t kHdrTrackTable = 0x20;  // 164 offsets from the disk header
constexpr int kTrackEntries = 164;
constexpr size_t kHdrSize = 0x2B0;

// Sector header.
constexpr size_t kSecC = 0x00;
constexpr size_t kSecH = 0x01;
constexpr size_t kSecR = 0x02;
constexpr size_t kSecN = 0x03;
constexpr size_t kSecCount = 0x04;    // 16-bit; the reader uses the low byte
constexpr size_t kSecDensity = 0x06;  // 0x00 MFM, 0x40 FM
constexpr size_t kSecDeleted = 0x07;  // 0x00 normal, 0x10 deleted
constexpr size_t kSecStatus = 0x08;
constexpr size_t kSecLength = 0x0E;
constexpr size_t kSecHdrSize = 16;

constexpr uint8_t kMedia2D = 0x00;
constexpr uint8_t kMedia2DD = 0x10;
constexpr uint8_t kMedia2HD = 0x20;
constexpr uint8_t kDensityFM = 0x40;
constexpr uint8_t kMarkDeleted = 0x10;
constexpr uint8_t kProtectOn = 0x10;

constexpr uint32_t kMinDiskSize = 512;
constexpr uint32_t kMaxDiskSize = 0x1E0000;
constexpr int kD68Cylinders = 82;
constexpr int k2DCylinders = 42;
constexpr int kMaxSectorData = 16384;

uint8_t StatusByte(uint8_t status) {
    // Later tests overwrite earlier ones: NODAM > DATACRC > IDCRC > DELETED.
    uint8_t st = 0x00;
    if (status & SECT_DELETED) st = 0x10;
    if (status & SECT_IDCRC) st = 0xA0;
    if (status & SECT_DATACRC) st = 0xB0;
    if (status & SECT_NODAM) st = 0xF0;
    return st;
}

// Bytes of a sector beside its data when written as tightly as a controller
// can: ID sync, marks, ID, CRCs and gap 2, in double density.
constexpr int64_t kMinSectorOverhead = 62;
// Bytes of one 2D or 2DD track in double density (100,000 cells).
constexpr int64_t k2DTrackBytes = 6250;
// Bytes of the longest 2HD track (200,000 cells, at 300 rpm).
constexpr int64_t k2HDTrackBytes = 12500;

// The disks a file holds, counted along the disk-size chain from offset 0; a
// size outside 512 to 0x1E0000 ends the chain.
int CountD68Disks(const Filepath& path) {
    Fileio f;
    if (!f.Open(path, Fileio::ReadOnly)) return 0;
    const int64_t fileSize = f.GetFileSize();
    int64_t offset = 0;
    int count = 0;
    uint8_t hdr[kHdrSize];
    while (offset + static_cast<int64_t>(kHdrSize) <= fileSize && count < 1000) {
        if (!f.Seek(offset, 0) || !f.Read(hdr, static_cast<int>(kHdrSize))) break;
        count++;
        const uint32_t size = FieldReader(hdr, sizeof(hdr)).U32(kHdrDiskSize);
        if (size - kMinDiskSize > kMaxDiskSize - kMinDiskSize) break;
        offset += size;
    }
    return count;
}

// Why disk diskno cannot be found: how many disks the file holds, or which
// header's disk size breaks the chain.
std::string DiskChainReason(const Filepath& path, int diskno) {
    Fileio f;
    if (!f.Open(path, Fileio::ReadOnly)) return OpenFailText(path, f);
    const int64_t fileSize = f.GetFileSize();
    int64_t offset = 0;
    uint8_t hdr[kHdrSize];
    for (int i = 1; i < diskno; i++) {
        if (!f.Seek(offset, 0) || !f.Read(hdr, static_cast<int>(kHdrSize))) break;
        const uint32_t size = FieldReader(hdr, sizeof(hdr)).U32(kHdrDiskSize);
        if (size - kMinDiskSize > kMaxDiskSize - kMinDiskSize)
            return "disk " + std::to_string(i) + " at offset " + std::to_string(offset) +
                   " gives a disk size of " + std::to_string(size) + " (512 to 1966080 are read)";
        offset += size;
        if (offset > fileSize) break;
    }
    return "the file holds " + Counted(CountD68Disks(path), "disk", "disks") +
           "; there is no disk " + std::to_string(diskno);
}

}  // namespace

int VDisk::GetD68MediaOffset(const Filepath& path, int diskno) {
    Fileio f;
    if (!f.Open(path, Fileio::ReadOnly)) return -1;
    const int64_t fileSize = f.GetFileSize();
    f.Close();
    if (fileSize < static_cast<int64_t>(kHdrSize)) return -1;
    if (diskno <= 1) return 0;

    int64_t offset = 0;
    for (int i = 1; i < diskno; i++) {
        // A failed re-open yields 0, not -1: disk 1 is still usable.
        if (!f.Open(path, Fileio::ReadOnly)) return 0;
        uint8_t hdr[kHdrSize];
        if (!f.Seek(offset, 0) || !f.Read(hdr, static_cast<int>(kHdrSize)))
            return static_cast<int>(offset);
        f.Close();
        const uint32_t diskSize = FieldReader(hdr, sizeof(hdr)).U32(kHdrDiskSize);
        if (diskSize - kMinDiskSize > kMaxDiskSize - kMinDiskSize) return -1;
        offset += diskSize;
        if (offset > fileSize || offset > INT32_MAX) return -1;
    }
    return static_cast<int>(offset);
}

int VDisk::ImportD68(const Filepath& path, int diskno) {
    auto refuse = [&](const std::string& why) { return RefuseImage(path, report, why); };
    const int base = GetD68MediaOffset(path, diskno);
    if (base < 0) {
        Fileio probe;
        if (!probe.Open(path, Fileio::ReadOnly)) return refuse(OpenFailText(path, probe));
        const int64_t size = probe.GetFileSize();
        if (size < static_cast<int64_t>(kHdrSize))
            return refuse(size == 0 ? std::string("empty file")
                                    : "file ends early at offset " + std::to_string(size) +
                                          " (a disk header is 688 bytes)");
        return refuse(DiskChainReason(path, diskno));
    }

    bool protect;
    Fileio f;
    int64_t fileSize;
    uint8_t hdrBuf[kHdrSize];
    if (!OpenImage(path, report, &f, &fileSize, &protect, hdrBuf, static_cast<int>(kHdrSize),
                   base)) {
        // Disk numbers beyond the last end at the file's end.
        if (diskno > 1 && base >= fileSize) {
            report.Clear();
            return refuse(DiskChainReason(path, diskno));
        }
        return 0;
    }
    const FieldReader hdr(hdrBuf, sizeof(hdrBuf));

    // A track table that starts right after the header has all 164 entries.
    const uint32_t firstOffset = hdr.U32(kHdrTrackTable);
    const int fullTable = firstOffset == kHdrSize ? kD68Cylinders : 80;
    const int media = hdr.U8(kHdrMedia);
    int newType;
    int newCylinders;
    switch (media) {
        case kMedia2D:
            newType = VDISK_2D;
            newCylinders = k2DCylinders;
            break;
        case kMedia2DD:
            newType = VDISK_2DD;
            newCylinders = fullTable;
            break;
        case kMedia2HD:
            newType = VDISK_2HD;
            newCylinders = fullTable;
            break;
        default:
            return refuse("unknown media byte " + HexByte(media) +
                          " (0x00, 0x10 and 0x20 are read)");
    }

    Clear();
    heads = 2;
    CopyDiskName(name, reinterpret_cast<const char*>(hdrBuf + kHdrName), 59);
    writeProtect = (protect || hdr.U8(kHdrProtect) != 0) ? 1 : 0;

    // Entries that would lie inside the first track's data are not entries.
    uint32_t tableEnd = kHdrSize;
    for (int i = 0; i < kTrackEntries; i++) {
        const uint32_t off = hdr.U32(kHdrTrackTable + 4 * static_cast<size_t>(i));
        if (off != 0 && off < tableEnd) tableEnd = off;
    }
    const int entries =
        std::clamp(static_cast<int>((tableEnd - kHdrTrackTable) / 4), 0, kTrackEntries);
    // A 2D disk reads its first 42 cylinders only, unless its tracks say it is
    // no 2D disk; then every cylinder the table can name is read.
    const int readCylinders = newType == VDISK_2D ? kD68Cylinders : newCylinders;
    // Status bytes other than normal and deleted (CRC errors, missing marks)
    // are not carried into the sectors.
    int errors = 0, errC = 0, errH = 0, errR = 0;

    std::vector<uint8_t> data(kMaxSectorData);
    int beyond2D = 0;  // tracks present past cylinder 41
    int tooFull = -1;  // the longest track that no 2D track could hold
    int64_t tooFullBytes = 0;
    for (int c = 0; c < readCylinders; c++) {
        for (int h = 0; h < 2; h++) {
            VTrack* t = NewTrack(c, h);
            const int entry = 2 * c + h;
            if (entry >= entries) continue;
            const uint32_t trackOff = hdr.U32(kHdrTrackTable + 4 * static_cast<size_t>(entry));
            if (trackOff == 0) continue;
            if (c >= k2DCylinders) beyond2D++;
            const std::string label = TrackLabel(c, h);
            const int64_t pos = static_cast<int64_t>(base) + trackOff;
            if (pos >= fileSize || !f.Seek(pos, 0))
                return refuse(label + ": offset " + std::to_string(pos) + " lies beyond the end (" +
                              std::to_string(fileSize) + " bytes)");

            uint8_t secBuf[kSecHdrSize];
            if (!ReadImage(path, report, f, secBuf, static_cast<int>(kSecHdrSize), fileSize, label))
                return 0;
            const int count = FieldReader(secBuf, sizeof(secBuf)).U8(kSecCount);
            if (count == 0)
                return refuse(label + " at offset " + std::to_string(pos) +
                              ": its first sector header says 0 sectors");
            int64_t formatted = 0;
            for (int i = 0; i < count; i++) {
                if (i > 0 && !ReadImage(path, report, f, secBuf, static_cast<int>(kSecHdrSize),
                                        fileSize, label))
                    return 0;
                const FieldReader sec(secBuf, sizeof(secBuf));
                const int length = sec.U16(kSecLength);
                if (length > kMaxSectorData)
                    return refuse(label + ": sector " + std::to_string(i + 1) + " of " +
                                  std::to_string(length) + " bytes (at most 16384 are read)");
                if (length > 0 && !ReadImage(path, report, f, data.data(), length, fileSize, label))
                    return 0;
                formatted += length + kMinSectorOverhead;

                const int mfm = sec.U8(kSecDensity) == kDensityFM ? 0 : 1;
                const int status = sec.U8(kSecDeleted) != 0 ? SECT_DELETED : 0;
                t->AddSector(MakeFormattedSector(mfm, sec.U8(kSecC), sec.U8(kSecH), sec.U8(kSecR),
                                                 sec.U8(kSecN), data.data(), length, status));
                const uint32_t st = sec.U8(kSecStatus);
                if (st != 0x00 && st != kMarkDeleted && errors++ == 0)
                    errC = c, errH = h, errR = sec.U8(kSecR);
            }
            // The density byte is weighed against what the track holds, departing
            // from the byte on purpose: files mark tracks recorded in MFM as single
            // density, 16 x 256 bytes a track, more than a 2D track holds in FM.
            // A track so marked that only MFM fits is encoded in MFM.
            t->densityByFit = 1;
            if (formatted > k2DTrackBytes && formatted > tooFullBytes) {
                tooFull = entry;
                tooFullBytes = formatted;
            }
        }
    }
    if (errors > 0)
        report.Warn(std::to_string(errors) + (errors == 1 ? " sector" : " sectors") +
                    " marked with CRC errors or a missing mark in the file " +
                    (errors == 1 ? "loses" : "lose") + " that status on reading (first: track " +
                    TrackName(errC, errH) + ", R " + std::to_string(errR) + ")");

    // A media byte of 2D over tracks that no 2D disk holds: read the disk by
    // what it holds, as the smallest type whose tracks hold every track.
    // A track too long even for 2HD settles nothing about the type.
    if (tooFullBytes > k2HDTrackBytes) tooFull = -1;
    if (newType == VDISK_2D && (beyond2D > 0 || tooFull >= 0)) {
        newType = tooFull >= 0 ? VDISK_2HD : VDISK_2DD;
        newCylinders = fullTable;
        std::string why;
        if (beyond2D > 0)
            why = Counted(beyond2D, "track lies", "tracks lie") + " beyond cylinder 41";
        if (tooFull >= 0)
            why += (why.empty() ? "" : " and ") + TrackLabel(tooFull / 2, tooFull % 2) + " needs " +
                   std::to_string(tooFullBytes) + " bytes, more than the " +
                   std::to_string(k2DTrackBytes) + " of a 2D track";
        report.Warn("media byte 0x00 (2D) overridden: " + why + "; read as " +
                    (newType == VDISK_2HD ? "2HD" : "2DD") + " with " +
                    std::to_string(newCylinders) + " cylinders");
    }
    type = newType;
    cylinders = newCylinders;
    for (int c = cylinders; c < kMaxCylinders; c++)
        for (int h = 0; h < 2; h++) tracks[c][h].reset();

    // Entries past the cylinders the header gives are not read.
    std::vector<bool> listed(static_cast<size_t>(std::max(entries, 0)));
    for (int e = 0; e < entries; e++)
        listed[static_cast<size_t>(e)] = hdr.U32(kHdrTrackTable + 4 * static_cast<size_t>(e)) != 0;
    WarnTracksNotRead(listed, 2 * cylinders, "beyond cylinder " + std::to_string(cylinders - 1),
                      report);

    const int disks = CountD68Disks(path);
    if (disks > 1)
        report.Warn("the file holds " + std::to_string(disks) + " disks; disk " +
                    std::to_string(std::max(diskno, 1)) + " was read, the other " +
                    std::to_string(disks - 1) + " were not");
    return 1;
}

int VDisk::ExportD68(const Filepath& path) {
    const int cyl = cylinders < 0 ? 0 : (cylinders > kD68Cylinders ? kD68Cylinders : cylinders);

    std::vector<uint8_t> hdrBuf(kHdrSize, 0);
    FieldWriter hdr(hdrBuf.data(), hdrBuf.size());
    hdr.Text(kHdrName, name, kHdrNameChars, kHdrNameField);
    hdr.U8(kHdrProtect, writeProtect ? kProtectOn : 0);
    uint8_t media = kMedia2D;
    if (type == VDISK_2HD)
        media = kMedia2HD;
    else if (cylinders > k2DCylinders)
        media = kMedia2DD;
    hdr.U8(kHdrMedia, media);

    // Lay out the tracks; sectors whose length the 16-bit field cannot hold
    // are refused before anything is written.
    int64_t pos = static_cast<int64_t>(kHdrSize);
    for (int c = 0; c < cyl; c++) {
        for (int h = 0; h < 2; h++) {
            const VTrack* t = Track(c, h);
            if (!t || t->SectorCount() == 0) continue;
            hdr.U32(kHdrTrackTable + 4 * static_cast<size_t>(2 * c + h),
                    static_cast<uint32_t>(pos));
            for (const VSector* s = t->sectors; s; s = s->next) {
                if (s->length < 0 || s->length > 0xFFFF)
                    return report.Fail(
                        std::string(path.GetPath()) + ": sector R " + std::to_string(s->idR) +
                        " of track " + TrackName(c, h) + " holds " + std::to_string(s->length) +
                        " bytes, more than " + FormatName(path) + " can record (65535)");
                pos += static_cast<int64_t>(kSecHdrSize) + s->length;
            }
            if (pos > INT32_MAX)
                return report.Fail(std::string(path.GetPath()) + ": the disk holds more than " +
                                   FormatName(path) + " can address (2 GB)");
        }
    }
    hdr.U32(kHdrDiskSize, static_cast<uint32_t>(pos));
    static_assert(kHdrTrackTable + 4 * kTrackEntries == kHdrSize);

    AtomicFile f;
    if (!f.Create(path)) return report.Fail(CannotCreate(path, f.lastError));
    if (!f.Write(hdrBuf.data(), static_cast<int>(hdrBuf.size())))
        return report.Fail(CannotWrite(path, f.lastError));

    std::vector<uint8_t> out;
    for (int c = 0; c < cyl; c++) {
        for (int h = 0; h < 2; h++) {
            const VTrack* t = Track(c, h);
            if (!t || t->SectorCount() == 0) continue;
            out.clear();
            const int count = t->SectorCount();
            for (const VSector* s = t->sectors; s; s = s->next) {
                uint8_t secBuf[kSecHdrSize] = {};
                FieldWriter sec(secBuf, sizeof(secBuf));
                sec.U8(kSecC, s->idC);
                sec.U8(kSecH, s->idH);
                sec.U8(kSecR, s->idR);
                sec.U8(kSecN, s->idN);
                sec.U16(kSecCount, static_cast<uint32_t>(count));
                sec.U8(kSecDensity, s->mfm ? 0x00 : kDensityFM);
                sec.U8(kSecDeleted, (s->status & SECT_DELETED) ? kMarkDeleted : 0);
                sec.U8(kSecStatus, StatusByte(s->status));
                sec.U16(kSecLength, static_cast<uint32_t>(s->length));
                out.insert(out.end(), secBuf, secBuf + kSecHdrSize);
                AppendSectorData(out, s);
            }
            if (!f.Write(out.data(), static_cast<int>(out.size())))
                return report.Fail(CannotWrite(path, f.lastError));
        }
    }
    if (!f.Commit()) return report.Fail(CannotWrite(path, f.lastError));

    const std::string format = FormatName(path);
    WarnTracksLeftOut(*this, 2 * cyl,
                      format + " keeps " + std::to_string(kD68Cylinders) + " cylinders", &report);
    WarnNameCut(name, static_cast<int>(kHdrNameChars), format, &report);
    return 1;
}
