// D68 family images (.D68, .D88, .D77, .D98): a 688-byte disk header with a
// table of track offsets, then the tracks, each sector carrying a 16-byte
// header before its data. Several disks may follow one another in one file.
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
    const int base = GetD68MediaOffset(path, diskno);
    if (base < 0) return 0;

    bool protect;
    Fileio f;
    int64_t fileSize;
    uint8_t hdrBuf[kHdrSize];
    if (!OpenImage(path, &f, &fileSize, &protect, hdrBuf, static_cast<int>(kHdrSize), base))
        return 0;
    const FieldReader hdr(hdrBuf, sizeof(hdrBuf));

    int newType = 0;
    int newCylinders = 0;
    // A track table that starts right after the header has all 164 entries.
    const int fullTable = hdr.U32(kHdrTrackTable) == kHdrSize ? kD68Cylinders : 80;
    switch (hdr.U8(kHdrMedia)) {
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
            return 0;
    }

    Clear();
    type = newType;
    cylinders = newCylinders;
    heads = 2;
    CopyDiskName(name, reinterpret_cast<const char*>(hdrBuf + kHdrName), 59);
    writeProtect = (protect || hdr.U8(kHdrProtect) != 0) ? 1 : 0;

    // No file holds more sector bytes than it has after this disk's header, so
    // track offsets pointing at the same data cannot multiply what is read.
    const int64_t budget = fileSize - base;
    int64_t consumed = 0;
    // Status bytes other than normal and deleted (CRC errors, missing marks)
    // are not carried into the sectors.
    int errors = 0, errC = 0, errH = 0, errR = 0;

    std::vector<uint8_t> data(kMaxSectorData);
    for (int c = 0; c < cylinders; c++) {
        for (int h = 0; h < 2; h++) {
            VTrack* t = NewTrack(c, h);
            const uint32_t trackOff = hdr.U32(kHdrTrackTable + 4 * static_cast<size_t>(2 * c + h));
            if (trackOff == 0) continue;
            const int64_t pos = static_cast<int64_t>(base) + trackOff;
            if (pos >= fileSize || !f.Seek(pos, 0)) return 0;

            uint8_t secBuf[kSecHdrSize];
            if (!f.Read(secBuf, static_cast<int>(kSecHdrSize))) return 0;
            const int count = FieldReader(secBuf, sizeof(secBuf)).U8(kSecCount);
            if (count == 0) return 0;
            for (int i = 0; i < count; i++) {
                if (i > 0 && !f.Read(secBuf, static_cast<int>(kSecHdrSize))) return 0;
                const FieldReader sec(secBuf, sizeof(secBuf));
                const int length = sec.U16(kSecLength);
                if (length > kMaxSectorData) return 0;
                consumed += static_cast<int64_t>(kSecHdrSize) + length;
                if (consumed > budget) return 0;
                if (length > 0 && !f.Read(data.data(), length)) return 0;

                const int mfm = sec.U8(kSecDensity) == kDensityFM ? 0 : 1;
                const int status = sec.U8(kSecDeleted) != 0 ? SECT_DELETED : 0;
                t->AddSector(MakeFormattedSector(mfm, sec.U8(kSecC), sec.U8(kSecH), sec.U8(kSecR),
                                                 sec.U8(kSecN), data.data(), length, status));
                const uint32_t st = sec.U8(kSecStatus);
                if (st != 0x00 && st != kMarkDeleted && errors++ == 0)
                    errC = c, errH = h, errR = sec.U8(kSecR);
            }
        }
    }
    if (errors > 0)
        report.Warn(std::to_string(errors) + (errors == 1 ? " sector" : " sectors") +
                    " marked with CRC errors or a missing mark in the file " +
                    (errors == 1 ? "loses" : "lose") + " that status on reading (first: track " +
                    TrackName(errC, errH) + ", R " + std::to_string(errR) + ")");
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
