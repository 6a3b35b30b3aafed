// FDI images: a header of declared size, then every sector of every track back
// to back (cylinder-major, head 0 before head 1). All sectors share one length
// and every track holds the same number of them; the file stores no IDs.
#include <algorithm>
#include <cstdint>
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

// Header layout: 4-byte little-endian fields.
constexpr size_t kFdiReserved = 0x00;
constexpr size_t kFdiMedia = 0x04;
constexpr size_t kFdiHeaderSize = 0x08;
constexpr size_t kFdiDataSize = 0x0C;
constexpr size_t kFdiSectorLength = 0x10;
constexpr size_t kFdiSectors = 0x14;
constexpr size_t kFdiHeads = 0x18;
constexpr size_t kFdiCylinders = 0x1C;
constexpr size_t kFdiFieldsEnd = 0x20;  // the fixed fields; padding follows

constexpr uint32_t kFdiWrittenHeader = 4096;
constexpr uint32_t kFdiMaxSectors = 255;
constexpr uint32_t kFdiMaxCylinders = 127;   // the format's own limit
constexpr uint32_t kFdiLengthBits = 0x7F80;  // 128 .. 16,384

constexpr uint8_t kFdiMedia2HD = 0x90;     // 2HD, 360 rpm
constexpr uint8_t kFdiMedia2HD300 = 0x30;  // 2HD, 300 rpm (longer tracks)
constexpr uint8_t kFdiMedia2DD = 0x10;
constexpr uint8_t kFdiMedia2D = 0x50;
constexpr int32_t kFdiLongTrack = 10999;  // estimates above this are 300 rpm tracks

// Media nibble -> sector-level type; 0 = unknown.
int FdiTypeFromMedia(uint32_t media) {
    switch (media & 0xF0) {
        case 0x90:
        case 0x30:
        case 0xB0:
            return VDISK_2HD;
        case 0x10:
        case 0x70:
        case 0xF0:
            return VDISK_2DD;
        case 0x50:
        case 0xD0:
            return VDISK_2D;
        default:
            return 0;
    }
}

// A cylinder conforms when both its tracks hold `count` MFM sectors of size code n.
bool FdiCylinderConforms(const VDisk& disk, int c, int count, int n) {
    for (int h = 0; h < 2; h++) {
        const VTrack* t = disk.Track(c, h);
        if (!t || t->SectorCount() != count) return false;
        int seen = 0;
        for (const VSector* s = t->sectors; s; s = s->next, seen++) {
            if (!s->mfm || s->idN != n) return false;
        }
        if (seen != count) return false;
    }
    return true;
}

}  // namespace

int VDisk::ImportFDI(const Filepath& path) {
    Clear();
    bool protectedFile;
    Fileio f;
    int64_t fileSize;
    uint8_t hdr[kFdiFieldsEnd];
    if (!OpenImage(path, report, &f, &fileSize, &protectedFile, hdr, static_cast<int>(sizeof(hdr))))
        return 0;
    const FieldReader r(hdr, sizeof(hdr));
    const uint32_t headerSize = r.U32(kFdiHeaderSize);
    const uint32_t length = r.U32(kFdiSectorLength);
    const uint32_t sectors = r.U32(kFdiSectors);
    const uint32_t headCount = r.U32(kFdiHeads);
    const uint32_t cyls = r.U32(kFdiCylinders);

    auto refuse = [&](const std::string& why) { return RefuseImage(path, report, why); };
    if ((length & (length - 1)) != 0 || (length & kFdiLengthBits) == 0)
        return refuse("sector length " + std::to_string(length) +
                      " is not a power of two from 128 to 16384");
    if (sectors < 1 || sectors > kFdiMaxSectors)
        return refuse(std::to_string(sectors) + " sectors per track (1 to 255 are read)");
    if (headCount != 2) return refuse(std::to_string(headCount) + " heads (2 are read)");
    if (cyls < 1 || cyls > kFdiMaxCylinders)
        return refuse(std::to_string(cyls) + " cylinders (1 to 127 are read)");
    // The track table holds fewer cylinders than the format allows.
    if (cyls > static_cast<uint32_t>(kMaxCylinders))
        return refuse(std::to_string(cyls) + " cylinders: more than 84");
    // At most 16,384 x 255 x 127 x 2 + 2^32: well inside 64 bits.
    const uint64_t trackBytes = static_cast<uint64_t>(length) * sectors;
    const uint64_t expected = static_cast<uint64_t>(headerSize) + trackBytes * cyls * 2;
    if (static_cast<uint64_t>(fileSize) != expected)
        return refuse(std::to_string(fileSize) + " bytes, but the header gives " +
                      std::to_string(expected) + " (" + std::to_string(headerSize) + " header + " +
                      std::to_string(cyls) + " x 2 x " + std::to_string(sectors) + " x " +
                      std::to_string(length) + ")");

    const int mediaType = FdiTypeFromMedia(r.U32(kFdiMedia));
    if (mediaType == 0)
        return refuse("unknown media code " + HexByte(static_cast<int>(r.U32(kFdiMedia) & 0xFF)));
    int n = 0;
    while ((128u << n) < length) n++;

    Init(mediaType, static_cast<int>(cyls), 2);
    CopyDiskName(name, path.GetShort());
    WarnNameCut(std::string(path.fname) + path.ext, 59, "", &report);
    writeProtect = protectedFile ? 1 : 0;

    if (!f.Seek(headerSize, 0)) return refuse(ReadFailText(f, headerSize, 0, fileSize));
    // One track at a time; its size is bounded by the verified file size.
    std::vector<uint8_t> buf(static_cast<size_t>(trackBytes));
    for (int c = 0; c < cylinders; c++) {
        for (int h = 0; h < 2; h++) {
            VTrack* t = NewTrack(c, h);
            if (!ReadImage(path, report, f, buf.data(), static_cast<int>(buf.size()), fileSize,
                           TrackLabel(c, h)))
                return 0;
            for (uint32_t i = 0; i < sectors; i++) {
                t->AddSector(MakeFormattedSector(1, c, h, static_cast<int>(i + 1), n,
                                                 buf.data() + static_cast<size_t>(i) * length,
                                                 static_cast<int>(length), 0));
            }
        }
    }
    return 1;
}

int VDisk::ExportFDI(const Filepath& path) {
    const VTrack* ref = Track(0, 0);
    if (!ref || !ref->sectors || ref->SectorCount() == 0 || cylinders < 1)
        return report.Fail(std::string(path.GetPath()) +
                           ": .FDI takes its layout from track 0.0, which holds no sectors");
    const int count = ref->SectorCount();
    const int refN = ref->sectors->idN;
    const int32_t refLength = ref->sectors->length;

    int conforming = 0;
    const int limit = std::min<int>(cylinders, kMaxCylinders);
    while (conforming < limit && FdiCylinderConforms(*this, conforming, count, refN)) {
        conforming++;
    }
    if (conforming == 0)
        return report.Fail(std::string(path.GetPath()) +
                           ": .FDI needs cylinders whose tracks all hold the same MFM sectors; "
                           "cylinder 0 of the disk does not (.D88 would fit)");

    uint32_t media = 0;
    if (type == VDISK_2DD) {
        media = kFdiMedia2DD;
    } else if (type == VDISK_2D) {
        media = kFdiMedia2D;
    } else if (type == VDISK_2HD) {
        media = EstimateTrackLength(ref) > kFdiLongTrack ? kFdiMedia2HD300 : kFdiMedia2HD;
    }

    std::vector<uint8_t> hdr(kFdiWrittenHeader, 0);
    FieldWriter w(hdr.data(), hdr.size());
    const uint64_t dataSize = static_cast<uint64_t>(conforming) * static_cast<uint64_t>(count) *
                              static_cast<uint32_t>(refLength) * 2;
    w.U32(kFdiReserved, 0);
    w.U32(kFdiMedia, media);
    w.U32(kFdiHeaderSize, kFdiWrittenHeader);
    w.U32(kFdiDataSize, static_cast<uint32_t>(dataSize));
    w.U32(kFdiSectorLength, static_cast<uint32_t>(refLength));
    w.U32(kFdiSectors, static_cast<uint32_t>(count));
    w.U32(kFdiHeads, 2);
    w.U32(kFdiCylinders, static_cast<uint32_t>(conforming));

    AtomicFile f;
    if (!f.Create(path)) return report.Fail(CannotCreate(path, f.lastError));
    if (!f.Write(hdr.data(), static_cast<int>(hdr.size())))
        return report.Fail(CannotWrite(path, f.lastError));
    for (int c = 0; c < conforming; c++) {
        for (int h = 0; h < 2; h++) {
            for (const VSector* s = Track(c, h)->sectors; s; s = s->next) {
                if (s->length <= 0) continue;
                if (!s->data) return report.Fail(CannotWrite(path, 0));
                if (!f.Write(s->data, s->length))
                    return report.Fail(CannotWrite(path, f.lastError));
            }
        }
    }
    if (!f.Commit()) return report.Fail(CannotWrite(path, f.lastError));

    const std::string format = FormatName(path);
    const int kept = 2 * conforming;
    WarnTracksLeftOut(*this, kept,
                      format + " stops at the first cylinder laid out unlike cylinder 0", &report);
    WarnSlotLength(*this, kept, refLength, &report);
    WarnStatusLost(*this, kept, SECT_IDCRC | SECT_DATACRC | SECT_NODAM | SECT_DELETED, format,
                   &report);
    return 1;
}
