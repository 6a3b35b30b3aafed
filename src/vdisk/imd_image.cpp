// ImageDisk images (.IMD): a text header line and a free comment ended by
// 0x1A, then one record per track: mode, cylinder, head, sector count and size
// code, the sector numbering map, optional cylinder and head maps, an optional
// table of sector sizes, and one data record per sector.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
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

// File start.
constexpr char kImdSignature[] = "IMD ";
constexpr size_t kImdSignatureLen = 4;
constexpr uint8_t kImdCommentEnd = 0x1A;
constexpr char kImdVersion[] = "IMD 1.18: ";

// Track record header; the maps and the size table follow it.
constexpr size_t kTrkMode = 0;
constexpr size_t kTrkCylinder = 1;
constexpr size_t kTrkHead = 2;  // low bit the head, plus the map flags
constexpr size_t kTrkCount = 3;
constexpr size_t kTrkSizeCode = 4;
constexpr size_t kTrkHeaderSize = 5;

constexpr uint8_t kHeadCylMap = 0x80;   // a cylinder byte per sector follows
constexpr uint8_t kHeadHeadMap = 0x40;  // a head byte per sector follows
constexpr uint8_t kHeadBit = 0x01;
constexpr uint8_t kSizeTable = 0xFF;  // a 16-bit size per sector follows the maps
constexpr int kMaxSizeCode = 6;

// Modes: 0-2 FM, 3-5 MFM, at 500, 300 and 250 kbit/s.
constexpr int kModes = 6;
constexpr int kModeRate[kModes] = {500, 300, 250, 500, 300, 250};
constexpr int kModeFirstMfm = 3;

// Sector record types: 0 unavailable; otherwise 1 + 1 compressed (one byte
// fills the sector) + 2 deleted + 4 data error.
constexpr int kRecUnavailable = 0;
constexpr int kRecCompressed = 1;
constexpr int kRecDeleted = 2;
constexpr int kRecDataError = 4;
constexpr int kRecMax = 8;

// The largest sector (N = 7) and the most sector data one track may carry:
// no track holds more than 12,500 bytes, so this bounds hostile files only.
constexpr int kMaxSectorSize = 16384;
constexpr int64_t kMaxTrackData = 65536;
// 168 such tracks with every map and record byte, and a long comment.
constexpr int64_t kMaxFileSize = 64 << 20;
constexpr int kTrackSlots = 2 * 256;  // every cylinder byte and head a record can name
constexpr int k2DCylinders = 42;

// The size code a sector of size bytes carries: the smallest N whose 128 << N
// holds it.
int SizeCodeOf(int size) {
    int n = 0;
    while (n < 7 && (128 << n) < size) n++;
    return n;
}

// The place of the first sector a count is about, for warnings.
struct FirstHit {
    int count = 0;
    int c = 0, h = 0, r = 0;
    void Add(int cyl, int head, int rec) {
        if (count++ == 0) c = cyl, h = head, r = rec;
    }
    std::string Where() const {
        return "(first: track " + TrackName(c, h) + ", R " + std::to_string(r) + ")";
    }
};

// Turns the comment into the disk name: its first line, the rest counted.
std::string CommentName(const uint8_t* p, size_t n, int* moreLines) {
    std::vector<std::string> lines(1);
    for (size_t i = 0; i < n; i++) {
        const char ch = static_cast<char>(p[i]);
        if (ch == '\r' || ch == '\n') {
            if (!lines.back().empty()) lines.emplace_back();
        } else {
            lines.back() += ch;
        }
    }
    if (lines.back().empty()) lines.pop_back();
    *moreLines = lines.empty() ? 0 : static_cast<int>(lines.size()) - 1;
    return lines.empty() ? std::string() : lines.front();
}

}  // namespace

int VDisk::ImportIMD(const Filepath& path) {
    Clear();
    auto refuse = [&](const std::string& why) { return RefuseImage(path, report, why); };
    bool protect;
    Fileio f;
    int64_t fileSize;
    if (!OpenImage(path, report, &f, &fileSize, &protect)) return 0;
    if (fileSize == 0) return refuse("empty file");
    if (fileSize > kMaxFileSize)
        return refuse(std::to_string(fileSize) + " bytes, more than an ImageDisk file of " +
                      std::to_string(kMaxCylinders) + " cylinders can hold (" +
                      std::to_string(kMaxFileSize) + ")");
    std::vector<uint8_t> buf(static_cast<size_t>(fileSize));
    if (!ReadImage(path, report, f, buf.data(), static_cast<int>(buf.size()), fileSize, "file"))
        return 0;
    const FieldReader r(buf.data(), buf.size());
    const size_t size = buf.size();

    if (!r.Equals(0, kImdSignature, kImdSignatureLen))
        return refuse("no \"IMD \" header line at the start");
    const auto* mark = static_cast<const uint8_t*>(std::memchr(buf.data(), kImdCommentEnd, size));
    if (!mark) return refuse("no 0x1A byte ends the header and comment");
    const size_t commentEnd = static_cast<size_t>(mark - buf.data());
    size_t lineEnd = 0;
    while (lineEnd < commentEnd && buf[lineEnd] != '\r' && buf[lineEnd] != '\n') lineEnd++;
    int moreLines = 0;
    const std::string comment = CommentName(buf.data() + lineEnd, commentEnd - lineEnd, &moreLines);

    // Each record's header, maps and sizes are checked before its sectors are read.
    auto ends = [&](const std::string& what, size_t at, size_t len) {
        return refuse(what + ": file ends early at offset " + std::to_string(size) + " (" +
                      std::to_string(len) + " bytes wanted from offset " + std::to_string(at) +
                      ")");
    };
    std::vector<int> recordAt(kTrackSlots, -1);  // offset of the record read per slot
    std::vector<bool> beyond(kTrackSlots);
    int highRate = 0, lowRate = 0, maxCyl = -1, maxHead = 0;
    int firstHigh = 0, firstLow = 0;  // the first track recorded at each kind of rate
    int repeats = 0, repeatSlot = 0;
    FirstHit unavailable, oddSize;
    std::vector<uint8_t> fill(kMaxSectorSize);
    std::vector<int> sizes;
    for (size_t pos = commentEnd + 1; pos < size;) {
        const std::string at = "track record at offset " + std::to_string(pos);
        if (!r.Has(pos, kTrkHeaderSize)) return ends(at, pos, kTrkHeaderSize);
        const int mode = r.U8(pos + kTrkMode);
        const int cyl = r.U8(pos + kTrkCylinder);
        const int headByte = r.U8(pos + kTrkHead);
        const int count = r.U8(pos + kTrkCount);
        const int sizeCode = r.U8(pos + kTrkSizeCode);
        if (mode >= kModes)
            return refuse(at + ": mode " + std::to_string(mode) + " (0 to 5 are read)");
        if (headByte & ~(kHeadCylMap | kHeadHeadMap | kHeadBit))
            return refuse(at + ": head byte " + HexByte(headByte) +
                          " (head 0 or 1 with the map flags 0x80 and 0x40 are read)");
        if (sizeCode > kMaxSizeCode && sizeCode != kSizeTable)
            return refuse(at + ": size code " + std::to_string(sizeCode) +
                          " (0 to 6 and 0xFF are read)");
        const int head = headByte & kHeadBit;
        const std::string label =
            TrackLabel(cyl, head) + " (record at offset " + std::to_string(pos) + ")";
        const size_t n = static_cast<size_t>(count);
        size_t p = pos + kTrkHeaderSize;
        const size_t rMap = p;
        if (!r.Has(p, n)) return ends(label + ": sector numbering map", p, n);
        p += n;
        const size_t cMap = p;
        if ((headByte & kHeadCylMap) && !r.Has(p, n)) return ends(label + ": cylinder map", p, n);
        if (headByte & kHeadCylMap) p += n;
        const size_t hMap = p;
        if ((headByte & kHeadHeadMap) && !r.Has(p, n)) return ends(label + ": head map", p, n);
        if (headByte & kHeadHeadMap) p += n;
        sizes.assign(n, 128 << (sizeCode & 7));
        if (sizeCode == kSizeTable) {
            if (!r.Has(p, 2 * n)) return ends(label + ": sector size table", p, 2 * n);
            for (size_t i = 0; i < n; i++) sizes[i] = r.U16(p + 2 * i);
            p += 2 * n;
        }
        int64_t trackData = 0;
        for (size_t i = 0; i < n; i++) {
            if (sizes[i] == 0 || sizes[i] > kMaxSectorSize)
                return refuse(label + ": sector " + std::to_string(i + 1) + " of " +
                              std::to_string(sizes[i]) + " bytes (1 to 16384 are read)");
            trackData += sizes[i];
        }
        if (trackData > kMaxTrackData)
            return refuse(label + ": " + std::to_string(count) + " sectors of " +
                          std::to_string(trackData) + " bytes, more than any track holds (" +
                          std::to_string(kMaxTrackData) + " are read)");

        // The track is read only into a slot the disk has and no record filled before.
        const int slot = 2 * cyl + head;
        VTrack* t = nullptr;
        if (cyl >= kMaxCylinders) {
            beyond[static_cast<size_t>(slot)] = true;
        } else if (recordAt[static_cast<size_t>(slot)] >= 0) {
            if (repeats++ == 0) repeatSlot = slot;
        } else {
            recordAt[static_cast<size_t>(slot)] = static_cast<int>(pos);
            t = NewTrack(cyl, head);
            maxCyl = std::max(maxCyl, cyl);
            maxHead = std::max(maxHead, head);
            if (count > 0 && kModeRate[mode] == 500 && highRate++ == 0) firstHigh = slot;
            if (count > 0 && kModeRate[mode] != 500 && lowRate++ == 0) firstLow = slot;
        }
        const int mfm = mode >= kModeFirstMfm ? 1 : 0;
        for (size_t i = 0; i < n; i++) {
            const std::string sec = label + ": sector " + std::to_string(i + 1);
            if (!r.Has(p, 1)) return ends(sec, p, 1);
            const int rec = r.U8(p++);
            if (rec > kRecMax)
                return refuse(sec + ": record type " + std::to_string(rec) + " (0 to 8 are read)");
            const int len = sizes[i];
            const uint8_t* data = nullptr;
            if (rec != kRecUnavailable && ((rec - 1) & kRecCompressed)) {
                if (!r.Has(p, 1)) return ends(sec, p, 1);
                std::memset(fill.data(), r.U8(p++), static_cast<size_t>(len));
                data = fill.data();
            } else if (rec != kRecUnavailable) {
                data = r.Ptr(p, static_cast<size_t>(len));
                if (!data) return ends(sec, p, static_cast<size_t>(len));
                p += static_cast<size_t>(len);
            }
            if (!t) continue;
            const int c = (headByte & kHeadCylMap) ? r.U8(cMap + i) : cyl;
            const int h = (headByte & kHeadHeadMap) ? r.U8(hMap + i) : head;
            const int rr = r.U8(rMap + i);
            const int code = sizeCode == kSizeTable ? SizeCodeOf(len) : sizeCode;
            if ((128 << code) != len) oddSize.Add(cyl, head, rr);
            int status = SECT_NODAM;
            if (rec != kRecUnavailable) {
                status = (((rec - 1) & kRecDeleted) ? SECT_DELETED : 0) |
                         (((rec - 1) & kRecDataError) ? SECT_DATACRC : 0);
            } else {
                unavailable.Add(cyl, head, rr);
            }
            t->AddSector(MakeFormattedSector(mfm, c, h, rr, code, data, data ? len : 0, status));
        }
        pos = p;
    }

    // The rate most tracks were recorded at sets the media; a 2HD disk holds
    // any slower track too, so a tie goes to it. 300 kbit/s is a 250 kbit/s
    // disk read in a 360 rpm drive.
    const bool high = highRate > 0 && highRate >= lowRate;
    cylinders = maxCyl + 1;
    heads = maxHead + 1;
    type = high ? VDISK_2HD : (cylinders > k2DCylinders ? VDISK_2DD : VDISK_2D);
    for (int c = 0; c < cylinders; c++)
        for (int h = 0; h < heads; h++)
            if (!Track(c, h)) NewTrack(c, h);
    writeProtect = protect ? 1 : 0;
    if (comment.empty()) {
        CopyDiskName(name, path.GetShort());
        WarnNameCut(std::string(path.fname) + path.ext, 59, "", &report);
    } else {
        CopyDiskName(name, comment.c_str(), static_cast<int>(comment.size()));
        WarnNameCut(comment, 59, "", &report);
    }

    if (moreLines > 0)
        report.Warn("the comment's " + Counted(moreLines, "further line is", "further lines are") +
                    " not kept; the name is its first line");
    if (unavailable.count)
        report.Warn(Counted(unavailable.count, "sector is", "sectors are") +
                    " recorded as unavailable, read as an ID without a data mark " +
                    unavailable.Where());
    if (oddSize.count)
        report.Warn(Counted(oddSize.count, "sector has a size", "sectors have sizes") +
                    " that no size code gives; the ID takes the next larger code " +
                    oddSize.Where());
    if (highRate > 0 && lowRate > 0) {
        const int other = high ? lowRate : highRate;
        const int first = high ? firstLow : firstHigh;
        report.Warn(Counted(other, "track", "tracks") + " at " +
                    (high ? "250 or 300 kbit/s " : "500 kbit/s ") + (other == 1 ? "is" : "are") +
                    " read as " + (high ? "2HD" : (type == VDISK_2DD ? "2DD" : "2D")) +
                    " like the other " + std::to_string(high ? highRate : lowRate) +
                    " (first: " + TrackLabel(first / 2, first % 2) + ")");
    }
    if (repeats > 0)
        report.Warn(Counted(repeats, "track record repeats", "track records repeat") +
                    " a track read before and " + (repeats == 1 ? "was" : "were") +
                    " not read (first: " + TrackLabel(repeatSlot / 2, repeatSlot % 2) + ")");
    WarnTracksNotRead(beyond, 2 * kMaxCylinders, "beyond cylinder 83", report);
    return 1;
}

int VDisk::ExportIMD(const Filepath& path) {
    const std::string format = FormatName(path);
    // A size above the largest size code's cannot be read back: refuse first.
    for (int c = 0; c < kMaxCylinders; c++) {
        for (int h = 0; h < kMaxHeads; h++) {
            const VTrack* t = Track(c, h);
            for (const VSector* s = t ? t->sectors : nullptr; s; s = s->next)
                if (s->length > kMaxSectorSize)
                    return report.Fail(std::string(path.GetPath()) + ": sector R " +
                                       std::to_string(s->idR) + " of track " + TrackName(c, h) +
                                       " holds " + std::to_string(s->length) +
                                       " bytes, more than " + format + " records (16384)");
        }
    }

    std::vector<uint8_t> out;
    char stamp[48];
    const std::time_t now = std::time(nullptr);
    std::tm tm{};
    localtime_r(&now, &tm);
    std::snprintf(stamp, sizeof stamp, "%s%02d/%02d/%04d %02d:%02d:%02d\r\n", kImdVersion,
                  tm.tm_mday, tm.tm_mon + 1, tm.tm_year + 1900, tm.tm_hour, tm.tm_min, tm.tm_sec);
    out.insert(out.end(), stamp, stamp + std::strlen(stamp));
    // The comment carries the name; a 0x1A in it would end the comment early.
    for (size_t i = 0; i < sizeof(name) && name[i]; i++)
        if (static_cast<uint8_t>(name[i]) != kImdCommentEnd)
            out.push_back(static_cast<uint8_t>(name[i]));
    if (name[0]) out.insert(out.end(), {'\r', '\n'});
    out.push_back(kImdCommentEnd);

    const int rateBase = type == VDISK_2HD ? 0 : 2;  // 500 or 250 kbit/s
    FirstHit idCrc, unavailable, otherDensity, codeLost;
    std::vector<const VSector*> list;
    for (int c = 0; c < kMaxCylinders; c++) {
        for (int h = 0; h < kMaxHeads; h++) {
            const VTrack* t = Track(c, h);
            if (!t || t->SectorCount() == 0) continue;
            list.clear();
            for (const VSector* s = t->sectors; s; s = s->next) list.push_back(s);
            const bool mfm = t->mfmCount >= t->fmCount;
            // A sector without data is unavailable; its size comes from its N.
            auto sizeOf = [](const VSector* s) {
                return s->length > 0 ? s->length : 128 << std::min<int>(s->idN, 7);
            };
            bool cylMap = false, headMap = false, uniform = true;
            const int code = SizeCodeOf(sizeOf(list.front()));
            for (const VSector* s : list) {
                cylMap = cylMap || s->idC != c;
                headMap = headMap || s->idH != h;
                uniform = uniform && sizeOf(s) == (128 << code);
            }
            uniform = uniform && code <= kMaxSizeCode;

            out.push_back(static_cast<uint8_t>(rateBase + (mfm ? kModeFirstMfm : 0)));
            out.push_back(static_cast<uint8_t>(c));
            out.push_back(static_cast<uint8_t>(h | (cylMap ? kHeadCylMap : 0) |
                                               (headMap ? kHeadHeadMap : 0)));
            out.push_back(static_cast<uint8_t>(list.size()));
            out.push_back(uniform ? static_cast<uint8_t>(code) : kSizeTable);
            for (const VSector* s : list) out.push_back(s->idR);
            if (cylMap)
                for (const VSector* s : list) out.push_back(s->idC);
            if (headMap)
                for (const VSector* s : list) out.push_back(s->idH);
            if (!uniform)
                for (const VSector* s : list) {
                    out.push_back(static_cast<uint8_t>(sizeOf(s)));
                    out.push_back(static_cast<uint8_t>(sizeOf(s) >> 8));
                }

            for (const VSector* s : list) {
                const int len = sizeOf(s);
                if (s->idN != SizeCodeOf(len)) codeLost.Add(c, h, s->idR);
                if ((s->mfm != 0) != mfm) otherDensity.Add(c, h, s->idR);
                if (s->status & SECT_IDCRC) idCrc.Add(c, h, s->idR);
                if (s->length <= 0 || (s->status & SECT_NODAM)) {
                    // Only an ID without a data mark, data or marks says all.
                    if (s->length > 0 || s->status != SECT_NODAM) unavailable.Add(c, h, s->idR);
                    out.push_back(kRecUnavailable);
                    continue;
                }
                const uint8_t first = s->data ? s->data[0] : 0;
                bool same = true;
                for (int i = 1; s->data && same && i < s->length; i++) same = s->data[i] == first;
                const int rec = 1 + (same ? kRecCompressed : 0) +
                                ((s->status & SECT_DELETED) ? kRecDeleted : 0) +
                                ((s->status & SECT_DATACRC) ? kRecDataError : 0);
                out.push_back(static_cast<uint8_t>(rec));
                if (same)
                    out.push_back(first);
                else
                    AppendSectorData(out, s);
            }
        }
    }
    if (out.size() > INT32_MAX) return report.Fail(CannotWrite(path, EFBIG));

    AtomicFile f;
    if (!f.Create(path)) return report.Fail(CannotCreate(path, f.lastError));
    if (!f.Write(out.data(), static_cast<int>(out.size())))
        return report.Fail(CannotWrite(path, f.lastError));
    if (!f.Commit()) return report.Fail(CannotWrite(path, f.lastError));

    if (idCrc.count)
        report.Warn(Counted(idCrc.count, "sector", "sectors") + " with ID CRC errors " +
                    (idCrc.count == 1 ? "loses" : "lose") + " that status in " + format + " " +
                    idCrc.Where());
    if (unavailable.count)
        report.Warn(Counted(unavailable.count, "sector", "sectors") +
                    " without data or a data mark " + (unavailable.count == 1 ? "is" : "are") +
                    " written as unavailable in " + format +
                    ", keeping no data, deleted mark or CRC error " + unavailable.Where());
    if (otherDensity.count)
        report.Warn(Counted(otherDensity.count, "sector", "sectors") +
                    " of the other density than most of " +
                    (otherDensity.count == 1 ? "its track is" : "their tracks are") +
                    " written in the track's density in " + format + " " + otherDensity.Where());
    if (codeLost.count)
        report.Warn(Counted(codeLost.count, "sector", "sectors") +
                    " whose size code does not match " + (codeLost.count == 1 ? "its" : "their") +
                    " length " + (codeLost.count == 1 ? "loses it" : "lose it") + " in " + format +
                    ", which keeps lengths only " + codeLost.Where());
    return 1;
}
