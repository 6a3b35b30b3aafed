// Teledisk images (.TD0), read only: the header, the optional comment, then
// the tracks and their sectors, each sector's data raw, as a repeated 2-byte
// pattern or run-length coded. Compressed bodies are expanded first, by the
// expander of the version that wrote them. Record layouts: td0_format.h.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "fileio/fieldio.h"
#include "fileio/fileio.h"
#include "vdisk/exportloss.h"
#include "vdisk/imagecommon.h"
#include "vdisk/td0_format.h"
#include "vdisk/vdisk.h"

namespace {

constexpr std::array<uint16_t, 256> MakeCrcTable() {
    std::array<uint16_t, 256> t{};
    for (int i = 0; i < 256; i++) {
        uint16_t c = static_cast<uint16_t>(i << 8);
        for (int k = 0; k < 8; k++)
            c = static_cast<uint16_t>((c & 0x8000) ? (c << 1) ^ 0xA097 : c << 1);
        t[static_cast<size_t>(i)] = c;
    }
    return t;
}
constexpr std::array<uint16_t, 256> kCrcTable = MakeCrcTable();

// A body longer than this is more than any disk holds, compressed or expanded.
constexpr size_t kMaxBody = 8u << 20;
// Largest sector: size code 7.
constexpr int kMaxSizeCode = 7;
// Data a track may carry: two revolutions of the longest track (12,500 bytes
// at 500 kbit/s and 300 rpm), room for sectors that overlap on protected disks.
constexpr int kMaxTrackData = 25000;
// The 2D type holds this many cylinders; more make a 2DD disk.
constexpr int k2DCylinders = 42;

// Sectors of one kind of loss: how many, and the first met.
struct Tally {
    int count = 0, c = 0, h = 0, r = 0;
    void Add(int cyl, int head, int rec) {
        if (count++ == 0) c = cyl, h = head, r = rec;
    }
    void Warn(Report& report, const std::string& one, const std::string& many,
              bool withR = true) const {
        if (count == 0) return;
        report.Warn(Counted(count, one, many) + " (first: track " + TrackName(c, h) +
                    (withR ? ", R " + std::to_string(r) : "") + ")");
    }
};

// Expands one sector's data block into data (its sector's size); *got is the
// number of bytes the block gave. "" or why the block is refused.
std::string ExpandBlock(int encoding, const uint8_t* p, size_t n, std::vector<uint8_t>& data,
                        size_t* got) {
    const size_t size = data.size();
    const std::string sector = "its sector's " + std::to_string(size);
    size_t at = 0;
    switch (encoding) {
        case td0blk::kRaw:
            if (n > size) return std::to_string(n) + " bytes of raw data, more than " + sector;
            std::copy(p, p + n, data.begin());
            *got = n;
            return "";
        case td0blk::kPattern: {
            const FieldReader blk(p, n);
            if (n != td0blk::kPatternSize)
                return "a pattern block of " + std::to_string(n) + " bytes (4 are read)";
            const size_t bytes = 2 * static_cast<size_t>(blk.U16(td0blk::kPatternCount));
            if (bytes > size)
                return "a pattern of " + std::to_string(bytes) + " bytes, more than " + sector;
            for (size_t i = 0; i < bytes; i++) data[i] = p[td0blk::kPatternBytes + (i & 1)];
            *got = bytes;
            return "";
        }
        case td0blk::kRunLength:
            while (at < n) {
                if (n - at < 2) return "a run-length chunk cut short at the block's end";
                const int kind = p[at];
                const size_t count = p[at + 1];
                at += 2;
                // A literal run of count bytes, or count repeats of kind words.
                const size_t unit =
                    kind == td0blk::kLiteral ? count : 2 * static_cast<size_t>(kind);
                const size_t bytes = kind == td0blk::kLiteral ? count : unit * count;
                if (unit > n - at) return "a run-length chunk cut short at the block's end";
                if (bytes > size - *got)
                    return "run-length data that expand past " + sector + " bytes";
                for (size_t i = 0; i < bytes; i++) data[*got + i] = p[at + i % unit];
                *got += bytes;
                at += unit;
            }
            return "";
        default:
            return "unknown data encoding " + std::to_string(encoding) + " (0, 1 and 2 are read)";
    }
}

// Reads the body of one file into a VDisk: every sector in its track slot.
class BodyReader {
public:
    BodyReader(const std::vector<uint8_t>& body, bool expanded) : b_(body), expanded_(expanded) {}

    // "" or why the body is refused.
    std::string Read(VDisk& disk, bool hasComment, int rate);

private:
    std::string Where(size_t at) const {
        return "offset " + std::to_string(expanded_ ? at : at + td0hdr::kSize) +
               (expanded_ ? " of the expanded data" : "");
    }
    // The record of size bytes at the cursor, or null when the body ends first.
    const uint8_t* Take(size_t size) {
        if (size > b_.size() - at_) return nullptr;
        const uint8_t* p = b_.data() + at_;
        at_ += size;
        return p;
    }
    std::string EndsEarly(const std::string& what, size_t size) const {
        return what + ": the data end early at " + Where(at_) + " (" + std::to_string(size) +
               " bytes wanted, " + std::to_string(b_.size() - at_) + " left)";
    }
    std::string ReadComment(VDisk& disk);
    std::string ReadTrack(VDisk& disk, int count, int c, int h, bool fm);

    const std::vector<uint8_t>& b_;
    const bool expanded_;
    size_t at_ = 0;

public:
    Tally badTrackCrc, badDataCrc, duplicate, skipped, noId, short_;
    bool anyTrackFM = false;
};

std::string BodyReader::ReadComment(VDisk& disk) {
    const uint8_t* p = Take(td0cmt::kSize);
    if (!p) return EndsEarly("comment", td0cmt::kSize);
    const FieldReader cmt(p, td0cmt::kSize);
    const size_t length = cmt.U16(td0cmt::kLength);
    const uint8_t* text = Take(length);
    if (!text) return EndsEarly("comment", length);
    const uint16_t sum = Td0Crc(text, length, Td0Crc(p + td0cmt::kLength, td0cmt::kSize - 2));
    if (sum != cmt.U16(td0cmt::kCrc)) disk.report.Warn("the comment fails its check sum");
    // Its first line names the disk; the other lines have no place to go.
    size_t line = 0;
    while (line < length && text[line] != 0 && text[line] != '\r' && text[line] != '\n') line++;
    CopyDiskName(disk.name, reinterpret_cast<const char*>(text), static_cast<int>(line));
    size_t kept = std::min<size_t>(line, 59), lost = 0;
    for (size_t i = kept; i < length; i++)
        if (text[i] != 0 && text[i] != '\r' && text[i] != '\n') lost++;
    if (lost > 0)
        disk.report.Warn(Counted(static_cast<int>(lost), "character", "characters") +
                         " of the comment beyond the disk name were not kept");
    return "";
}

std::string BodyReader::ReadTrack(VDisk& disk, int count, int c, int h, bool fm) {
    VTrack* t = disk.NewTrack(c, h);
    const std::string label = TrackLabel(c, h);
    std::vector<uint8_t> data;
    int carried = 0;
    for (int i = 0; i < count; i++) {
        const std::string what = label + ", sector " + std::to_string(i + 1);
        const uint8_t* p = Take(td0sec::kSize);
        if (!p) return EndsEarly(what, td0sec::kSize);
        const FieldReader sec(p, td0sec::kSize);
        const int r = sec.U8(td0sec::kR), n = sec.U8(td0sec::kN), flags = sec.U8(td0sec::kFlags);
        const size_t size = n <= kMaxSizeCode ? size_t{128} << n : 0;
        int status = 0;
        if (flags & td0sec::kCrcError) status |= SECT_DATACRC;
        if (flags & td0sec::kDeleted) status |= SECT_DELETED;
        if (flags & td0sec::kDuplicate) duplicate.Add(c, h, r);
        if (flags & td0sec::kNoId) noId.Add(c, h, r);

        data.assign(size, 0);
        if (flags & td0sec::kNoData) {
            status |= SECT_NODAM;
            data.clear();
        } else if (flags & td0sec::kSkipped) {
            skipped.Add(c, h, r);
        } else {
            if (n > kMaxSizeCode)
                return what + ": size code " + std::to_string(n) + " with data (at most " +
                       std::to_string(kMaxSizeCode) + ", 16384 bytes, is read)";
            const uint8_t* blkHdr = Take(td0blk::kSize);
            if (!blkHdr) return EndsEarly(what + " data", td0blk::kSize);
            const FieldReader blk(blkHdr, td0blk::kSize);
            const size_t length = blk.U16(td0blk::kLength);
            if (length == 0) return what + ": a data block of length 0";
            const uint8_t* body = Take(length - 1);
            if (!body) return EndsEarly(what + " data", length - 1);
            size_t got = 0;
            const std::string why =
                ExpandBlock(blk.U8(td0blk::kEncoding), body, length - 1, data, &got);
            if (!why.empty()) return what + ": " + why;
            if (got < size) short_.Add(c, h, r);
            if ((Td0Crc(data.data(), data.size()) & 0xFF) != sec.U8(td0sec::kCrc))
                badDataCrc.Add(c, h, r);
        }
        carried += static_cast<int>(data.size());
        if (carried > kMaxTrackData)
            return label + ": its sectors hold more than " + std::to_string(kMaxTrackData) +
                   " bytes, more than a track holds";
        t->AddSector(MakeFormattedSector(fm ? 0 : 1, sec.U8(td0sec::kC), sec.U8(td0sec::kH), r, n,
                                         data.data(), static_cast<int>(data.size()), status));
    }
    return "";
}

std::string BodyReader::Read(VDisk& disk, bool hasComment, int rate) {
    if (hasComment) {
        const std::string why = ReadComment(disk);
        if (!why.empty()) return why;
    }
    bool seen[VDisk::kMaxCylinders][VDisk::kMaxHeads] = {};
    bool head1 = false;
    for (;;) {
        const size_t start = at_;
        const uint8_t* p = Take(1);
        if (!p) return EndsEarly("track header", td0trk::kSize) + "; no end mark";
        if (*p == td0trk::kEnd) break;  // what follows the end mark is padding
        at_ = start;
        p = Take(td0trk::kSize);
        if (!p) return EndsEarly("track header", td0trk::kSize);
        const FieldReader trk(p, td0trk::kSize);
        const int c = trk.U8(td0trk::kCylinder), head = trk.U8(td0trk::kHead);
        const int h = head & ~td0trk::kHeadFM;
        if (c >= VDisk::kMaxCylinders || h >= VDisk::kMaxHeads)
            return "track header at " + Where(start) + " gives cylinder " + std::to_string(c) +
                   " head " + std::to_string(h) + " (cylinders 0 to 83, heads 0 and 1 are read)";
        if (seen[c][h]) return TrackLabel(c, h) + " appears twice (again at " + Where(start) + ")";
        seen[c][h] = true;
        if ((Td0Crc(p, td0trk::kCrc) & 0xFF) != trk.U8(td0trk::kCrc)) badTrackCrc.Add(c, h, 0);
        const bool fm = (head & td0trk::kHeadFM) != 0;
        anyTrackFM = anyTrackFM || fm;
        head1 = head1 || h == 1;
        disk.cylinders = std::max(disk.cylinders, c + 1);
        const std::string why = ReadTrack(disk, trk.U8(td0trk::kSectors), c, h, fm);
        if (!why.empty()) return why;
    }
    if (head1) disk.heads = 2;
    disk.type = rate == 2 ? VDISK_2HD : disk.cylinders > k2DCylinders ? VDISK_2DD : VDISK_2D;
    return "";
}

}  // namespace

uint16_t Td0Crc(const uint8_t* data, size_t size, uint16_t crc) {
    for (size_t i = 0; i < size; i++)
        crc = static_cast<uint16_t>((crc << 8) ^ kCrcTable[((crc >> 8) ^ data[i]) & 0xFF]);
    return crc;
}

int VDisk::ImportTD0(const Filepath& path) {
    auto refuse = [&](const std::string& why) { return RefuseImage(path, report, why); };
    Fileio f;
    int64_t fileSize;
    bool protect;
    uint8_t hdrBuf[td0hdr::kSize];
    if (!OpenImage(path, report, &f, &fileSize, &protect, hdrBuf, static_cast<int>(sizeof hdrBuf)))
        return 0;
    const FieldReader hdr(hdrBuf, sizeof hdrBuf);
    const bool normal = hdr.Equals(td0hdr::kSignature, "TD", 2);
    if (!normal && !hdr.Equals(td0hdr::kSignature, "td", 2))
        return refuse("no Teledisk signature \"TD\" or \"td\"");
    const uint16_t sum = Td0Crc(hdrBuf, td0hdr::kCrc);
    if (sum != hdr.U16(td0hdr::kCrc))
        return refuse("header check sum " + HexByte(hdr.U8(td0hdr::kCrc + 1)) +
                      HexByte(hdr.U8(td0hdr::kCrc)).substr(2) + " where its bytes give " +
                      HexByte(sum >> 8) + HexByte(sum & 0xFF).substr(2));
    if (hdr.U8(td0hdr::kSequence) != 0)
        return refuse("volume " + std::to_string(hdr.U8(td0hdr::kSequence) + 1) +
                      " of a set split over several files (only whole images are read)");
    const int rate = hdr.U8(td0hdr::kRate) & td0hdr::kRateMask;
    if (rate == 3) return refuse("data rate code 3 (0 to 2: 250, 300 and 500 kbit/s are read)");

    const int64_t bodySize = fileSize - static_cast<int64_t>(td0hdr::kSize);
    if (bodySize > static_cast<int64_t>(kMaxBody))
        return refuse(std::to_string(bodySize) +
                      " bytes after the header, more than a disk holds (" +
                      std::to_string(kMaxBody) + " are read)");
    std::vector<uint8_t> body(static_cast<size_t>(bodySize));
    if (bodySize > 0 &&
        !ReadImage(path, report, f, body.data(), static_cast<int>(bodySize), fileSize, "body"))
        return 0;
    if (!normal) {
        const bool old = hdr.U8(td0hdr::kVersion) < td0hdr::kFirst2xVersion;
        std::vector<uint8_t> expanded;
        std::string why;
        const bool ok = old ? Td0ExpandLzw(body.data(), body.size(), kMaxBody, &expanded, &why)
                            : Td0ExpandLzhuf(body.data(), body.size(), kMaxBody, &expanded, &why);
        if (!ok)
            return refuse(std::string("the compressed data (") +
                          (old ? "version 1.x, LZW" : "version 2.x, LZSS and Huffman") +
                          "): " + why);
        body.swap(expanded);
    }

    Clear();
    heads = hdr.U8(td0hdr::kSides) == 2 ? 2 : 1;
    writeProtect = protect ? 1 : 0;
    BodyReader reader(body, !normal);
    const bool hasComment = (hdr.U8(td0hdr::kStepping) & td0hdr::kHasComment) != 0;
    const std::string why = reader.Read(*this, hasComment, rate);
    if (!why.empty()) return refuse(why);
    if (!hasComment) {
        CopyDiskName(name, path.GetShort());
        WarnNameCut(std::string(path.fname) + path.ext, 59, "", &report);
    }

    // A disk-wide FM bit speaks for every track when no track speaks for itself.
    if ((hdr.U8(td0hdr::kRate) & td0hdr::kRateFM) && !reader.anyTrackFM)
        for (auto& row : tracks)
            for (auto& t : row) {
                if (!t) continue;
                for (VSector* s = t->sectors; s; s = s->next) {
                    s->mfm = 0;
                    s->gap2 = 11;
                    s->gap3 = Gap3FM[std::min<int>(s->idN, 3)];
                }
                t->fmCount += t->mfmCount;
                t->mfmCount = 0;
            }
    // Every slot of the disk holds a track, empty where the file has none.
    for (int c = 0; c < cylinders; c++)
        for (int h = 0; h < heads; h++)
            if (!Track(c, h)) NewTrack(c, h);

    reader.badTrackCrc.Warn(report, "track header fails its check byte",
                            "track headers fail their check byte", false);
    reader.badDataCrc.Warn(report, "sector's data fail its check byte",
                           "sectors' data fail their check byte");
    reader.short_.Warn(report, "sector holds fewer bytes than its size, filled with zeros",
                       "sectors hold fewer bytes than their size, filled with zeros");
    reader.skipped.Warn(report, "sector not saved as unallocated is filled with zeros",
                        "sectors not saved as unallocated are filled with zeros");
    reader.noId.Warn(report, "sector recorded without an ID field is given the ID the file lists",
                     "sectors recorded without an ID field are given the IDs the file lists");
    reader.duplicate.Warn(
        report, "sector flagged as repeated in its track keeps only the copy the file holds",
        "sectors flagged as repeated in their tracks keep only the copies the file "
        "holds");
    return 1;
}
