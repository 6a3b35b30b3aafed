// HFE track images: a 512-byte header, a track list at block 1 and, per
// cylinder, 512-byte blocks that interleave 256-byte pieces of side 0 and side 1.
// HFE keeps the first cell of a byte in its least significant bit; ZEB keeps it
// in the most significant bit, so every byte is bit-reversed on the way.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fileio/atomicfile.h"
#include "fileio/failtext.h"
#include "fileio/fieldio.h"
#include "fileio/fileerror.h"
#include "fileio/fileio.h"
#include "zebdisk/trackpool.h"
#include "zebdisk/zebdisk.h"
#include "zebdisk/zebhfe3.h"

namespace {

// Header block layout.
namespace hfehdr {
constexpr size_t kSignature = 0;
constexpr size_t kSignatureLen = 8;
constexpr size_t kRevision = 8;
constexpr size_t kTracks = 9;
constexpr size_t kSides = 10;
constexpr size_t kEncoding = 11;
constexpr size_t kBitRate = 12;
constexpr size_t kRpm = 14;
constexpr size_t kInterfaceMode = 16;
constexpr size_t kReserved17 = 17;
constexpr size_t kTrackListOffset = 18;
constexpr size_t kWriteAllowed = 20;
// Bytes read back on import: everything through the write-allowed flag and a
// little more, as far as a short file must reach to be taken for an HFE image.
constexpr size_t kReadSize = 26;
}  // namespace hfehdr

// Track list entry layout.
namespace hfetrk {
constexpr size_t kBlock = 0;
constexpr size_t kLength = 2;
constexpr size_t kEntrySize = 4;
}  // namespace hfetrk

constexpr char kHfeSignature[] = "HXCPICFE";
constexpr size_t kBlockSize = 512;
constexpr size_t kPiece = 256;  // bytes of one side in a block
constexpr int kMaxTracks = 84;
constexpr uint8_t kEncodingMFM = 0;
constexpr uint8_t kModeIbmPcHd = 1;
constexpr uint8_t kModeGeneric = 7;

// Reverses the bit order of every byte, eight bytes a step: swap neighbouring
// bits, then pairs, then nibbles.
inline uint64_t ReverseEachByte(uint64_t v) {
    v = ((v >> 1) & 0x5555555555555555ull) | ((v & 0x5555555555555555ull) << 1);
    v = ((v >> 2) & 0x3333333333333333ull) | ((v & 0x3333333333333333ull) << 2);
    return ((v >> 4) & 0x0F0F0F0F0F0F0F0Full) | ((v & 0x0F0F0F0F0F0F0F0Full) << 4);
}

// n bytes of src into dst, each bit-reversed; n is a multiple of 8.
void ReverseCopy(uint8_t* dst, const uint8_t* src, size_t n) {
    for (size_t i = 0; i < n; i += 8) {
        uint64_t v;
        std::memcpy(&v, src + i, 8);
        v = ReverseEachByte(v);
        std::memcpy(dst + i, &v, 8);
    }
}

// Track data moves between file and records in runs of neighbouring
// cylinders whose blocks follow each other in the file, at most kRun bytes
// together (a longer cylinder makes a run of its own): each run is one read or
// write through one buffer that every run reuses.
constexpr int64_t kRun = 1 << 20;

// Calls run(c0, c1, from, to) for the runs of cylinders [c0, c1) whose blocks
// lie in the file bytes [from, to); begin[c] and end[c] bound cylinder c's.
template <class Run>
bool ForEachRun(int cylinders, const std::vector<int64_t>& begin, const std::vector<int64_t>& end,
                Run&& run) {
    for (int c0 = 0; c0 < cylinders;) {
        int c1 = c0 + 1;
        while (c1 < cylinders &&
               begin[static_cast<size_t>(c1)] == end[static_cast<size_t>(c1 - 1)] &&
               end[static_cast<size_t>(c1)] - begin[static_cast<size_t>(c0)] <= kRun)
            c1++;
        if (!run(c0, c1, begin[static_cast<size_t>(c0)], end[static_cast<size_t>(c1 - 1)]))
            return false;
        c0 = c1;
    }
    return true;
}

}  // namespace

bool ZEBDisk::ExportHFE(const Filepath& path) {
    const int cylinders = Cylinders();
    if (!initialized) return report.Fail("no disk to export");
    if (cylinders < 0 || cylinders > kMaxTracks)
        return report.Fail(std::string(path.GetPath()) + ": .HFE holds at most " +
                           std::to_string(kMaxTracks) + " cylinders, the disk has " +
                           std::to_string(cylinders));

    // Lay out the track list first, so that a disk that cannot be written leaves
    // no file behind.
    std::array<uint8_t, 2 * kBlockSize> head{};
    head.fill(0xFF);
    FieldWriter hdr(head.data(), kBlockSize);
    hdr.Bytes(hfehdr::kSignature, kHfeSignature, hfehdr::kSignatureLen);
    hdr.U8(hfehdr::kRevision, 0);
    hdr.U8(hfehdr::kTracks, static_cast<uint32_t>(cylinders));
    hdr.U8(hfehdr::kSides, static_cast<uint32_t>(Heads()));
    hdr.U8(hfehdr::kEncoding, kEncodingMFM);
    hdr.U16(hfehdr::kBitRate, static_cast<uint32_t>(Rate() / 2));
    hdr.U16(hfehdr::kRpm, static_cast<uint32_t>(Rpm()));
    hdr.U8(hfehdr::kInterfaceMode, Type() == ZEB_2HD ? kModeIbmPcHd : kModeGeneric);
    hdr.U8(hfehdr::kReserved17, 1);
    hdr.U16(hfehdr::kTrackListOffset, 1);
    hdr.U8(hfehdr::kWriteAllowed, HeaderInt(zebhdr::kWriteProtect) ? 0x00 : 0xFF);

    FieldWriter list(head.data() + kBlockSize, kBlockSize);
    std::vector<uint32_t> lengths(static_cast<size_t>(cylinders));
    std::vector<uint32_t> starts(static_cast<size_t>(cylinders));
    uint32_t block = 2;
    // Both sides of a cylinder are written at the shorter side's length.
    int cut = 0, firstCut = -1;
    for (int c = 0; c < cylinders; c++) {
        const int bits = std::max(0, std::min(GetTrackLen(c, 0), GetTrackLen(c, 1)));
        const uint32_t length = static_cast<uint32_t>(bits / 8) * 2;
        // The track list's fields are 16 bits wide.
        if (length > 0xFFFF)
            return report.Fail(std::string(path.GetPath()) + ": cylinder " + std::to_string(c) +
                               " needs " + std::to_string(length) +
                               " bytes, more than the 65535 a .HFE track holds");
        if (block > 0xFFFF)
            return report.Fail(std::string(path.GetPath()) +
                               ": the tracks need more than the 65535 blocks a .HFE file holds");
        for (int h = 0; h < 2; h++) {
            if (GetTrackLen(c, h) / 8 > bits / 8) {
                if (firstCut < 0) firstCut = c * 2 + h;
                cut++;
            }
        }
        list.U16(static_cast<size_t>(c) * hfetrk::kEntrySize + hfetrk::kBlock, block);
        list.U16(static_cast<size_t>(c) * hfetrk::kEntrySize + hfetrk::kLength, length);
        lengths[static_cast<size_t>(c)] = length;
        starts[static_cast<size_t>(c)] = block;
        block += (length + kBlockSize - 1) / kBlockSize;
    }
    if (!hdr.ok() || !list.ok()) return report.Fail(CannotWrite(path, 0));

    // The whole file is laid out in memory, each cylinder by its own worker,
    // and written in one call.
    std::vector<int64_t> begin(static_cast<size_t>(cylinders)), end(static_cast<size_t>(cylinders));
    for (int c = 0; c < cylinders; c++) {
        begin[static_cast<size_t>(c)] = int64_t{starts[static_cast<size_t>(c)]} * kBlockSize;
        end[static_cast<size_t>(c)] =
            begin[static_cast<size_t>(c)] +
            (lengths[static_cast<size_t>(c)] + kBlockSize - 1) / kBlockSize * kBlockSize;
    }

    AtomicFile fio;
    if (!fio.Create(path)) return report.Fail(CannotCreate(path, fio.lastError));
    if (!fio.Write(head.data(), static_cast<int>(head.size())))
        return report.Fail(CannotWrite(path, fio.lastError));
    // Every byte of a run is written below, each cylinder by its own worker.
    std::unique_ptr<uint8_t[]> out;
    size_t outSize = 0;
    const bool written =
        ForEachRun(cylinders, begin, end, [&](int c0, int c1, int64_t from, int64_t to) {
            const size_t bytes = static_cast<size_t>(to - from);
            if (bytes == 0) return true;
            if (bytes > outSize) {
                out = std::make_unique_for_overwrite<uint8_t[]>(bytes);
                outSize = bytes;
            }
            trackpool::ForEach(c1 - c0, workers, [&](int k) {
                const int c = c0 + k;
                const size_t length = lengths[static_cast<size_t>(c)];
                if (length <= 1) return;
                const size_t per = length / 2;
                const size_t pieces = (per + kPiece - 1) / kPiece;
                // Each side's bytes, zero past its length: the last piece carries only
                // per % 256 bytes, so a side of an exact multiple of 256 ends in a zero piece.
                const size_t keep = (pieces - 1) * kPiece + per % kPiece;
                uint8_t* dst = out.get() + (begin[static_cast<size_t>(c)] - from);
                uint8_t piece[kPiece];
                for (int s = 0; s < 2; s++) {
                    const uint8_t* data = GetTrackData(c, s);
                    const size_t have =
                        data
                            ? std::min<size_t>(keep, static_cast<size_t>(RecordDataSize(c * 2 + s)))
                            : 0;
                    for (size_t i = 0; i < pieces; i++) {
                        const size_t at = i * kPiece;
                        uint8_t* into = dst + i * kBlockSize + static_cast<size_t>(s) * kPiece;
                        if (at + kPiece <= have) {
                            ReverseCopy(into, data + at, kPiece);
                            continue;
                        }
                        std::memset(piece, 0, kPiece);
                        if (at < have) std::memcpy(piece, data + at, have - at);
                        ReverseCopy(into, piece, kPiece);
                    }
                }
            });
            return fio.Write(out.get(), static_cast<int>(bytes));
        });
    if (!written) return report.Fail(CannotWrite(path, fio.lastError));
    if (!fio.Commit()) return report.Fail(CannotWrite(path, fio.lastError));
    if (cut > 0)
        report.Warn(std::to_string(cut) +
                    (cut == 1
                         ? " track is longer than the other side of its cylinder and was"
                         : " tracks are longer than the other side of their cylinder and were") +
                    " cut to that length (first: track " + std::to_string(firstCut / 2) + "." +
                    std::to_string(firstCut % 2) + ")");
    return true;
}

bool ZEBDisk::ImportHFE(const Filepath& path) {
    Fileio fio;
    int ro = 1;
    if (fio.Open(path, Fileio::ReadWrite)) {
        fio.Close();
        ro = 0;
    }
    auto refuse = [&](const std::string& why) {
        Cleanup();
        return report.Fail(FileReason(path, why));
    };
    if (Fileio::IsExist(path.GetPath()) == 0) return refuse("is a directory");
    if (!fio.Open(path, Fileio::ReadOnly)) return refuse(OpenFailText(path, fio));
    const int64_t fileSize = fio.GetFileSize();

    uint8_t hbuf[hfehdr::kReadSize];
    if (!fio.Read(hbuf, sizeof hbuf))
        return refuse("header: " + ReadFailText(fio, 0, sizeof hbuf, fileSize));
    FieldReader hdr(hbuf, sizeof hbuf);
    const bool v3 = hdr.Equals(hfehdr::kSignature, hfe3::kSignature, hfehdr::kSignatureLen);
    if (!v3 && !hdr.Equals(hfehdr::kSignature, kHfeSignature, hfehdr::kSignatureLen))
        return refuse("no HFE signature \"HXCPICFE\" or \"HXCHFEV3\"");
    const int tracks = hdr.U8(hfehdr::kTracks);
    const int bitRate = hdr.U16(hfehdr::kBitRate);
    const int64_t listOffset = static_cast<int64_t>(hdr.U16(hfehdr::kTrackListOffset)) * kBlockSize;
    // The rpm estimate divides by the first track's length.
    if (tracks < 1) return refuse("no tracks in the track list");
    if (tracks > kMaxTracks)
        return refuse(std::to_string(tracks) + " tracks: more cylinders than 84");

    const size_t listBytes = static_cast<size_t>(tracks) * hfetrk::kEntrySize;
    std::vector<uint8_t> lbuf(listBytes);
    if (!fio.Seek(listOffset, 0) || !fio.Read(lbuf.data(), static_cast<int>(listBytes)))
        return refuse("track list: " +
                      ReadFailText(fio, listOffset, static_cast<int64_t>(listBytes), fileSize));
    FieldReader list(lbuf.data(), lbuf.size());

    // Every track must lie wholly inside the file, in whole 512-byte blocks,
    // before anything is allocated for it. A track of length 0 is unformatted.
    std::vector<int64_t> offsets(static_cast<size_t>(tracks));
    std::vector<int> lengths(static_cast<size_t>(tracks));
    int longest = 0;
    for (int c = 0; c < tracks; c++) {
        const size_t e = static_cast<size_t>(c) * hfetrk::kEntrySize;
        const int64_t off = static_cast<int64_t>(list.U16(e + hfetrk::kBlock)) * kBlockSize;
        const int length = list.U16(e + hfetrk::kLength);
        const int64_t blocks = (length + static_cast<int64_t>(kBlockSize) - 1) / kBlockSize;
        if (c == 0 && length == 0)
            return refuse("track 0 has length 0, so the rotation speed cannot be estimated");
        const int64_t end = off + blocks * static_cast<int64_t>(kBlockSize);
        if (length > 0 && end > fileSize)
            return refuse("file ends early at offset " + std::to_string(fileSize) + " (track " +
                          std::to_string(c) + " ends at offset " + std::to_string(end) + ")");
        offsets[static_cast<size_t>(c)] = off;
        lengths[static_cast<size_t>(c)] = length;
        longest = std::max(longest, length);
    }

    int type, rate, k;
    if (tracks < 43) {
        type = ZEB_2D, rate = 500, k = 30000000;
    } else if (bitRate == 250) {
        type = ZEB_2DD, rate = 500, k = 30000000;
    } else {
        type = ZEB_2HD, rate = 1000, k = 60000000;
    }
    const int estimate = k / (lengths[0] * 4);
    const int rpm = std::abs(estimate - 300) < std::abs(estimate - 360) ? 300 : 360;
    if (!Init(type, rate, rpm, 0)) return refuse("no disk of this rate and speed");
    readOnly = ro;

    // Whole 256-byte pieces are stored, so a record holds each side's length
    // rounded up to a multiple of 256.
    const int need = ((longest + static_cast<int>(kBlockSize) - 1) / static_cast<int>(kBlockSize)) *
                         static_cast<int>(kPiece) +
                     zebrec::kData;
    if (BlockSize() < need) {
        SetHeaderInt(zebhdr::kBlockSize, need);
        const int nominal = Rate() * 60000 / Rpm();
        for (int c = 0; c < Cylinders() && c < kMaxCylinders; c++)
            for (int h = 0; h < Heads() && h < kMaxHeads; h++)
                NewRecord(c * 2 + h, need, c, h, nominal);
    }

    std::vector<int64_t> end(static_cast<size_t>(tracks));
    for (int c = 0; c < tracks; c++)
        end[static_cast<size_t>(c)] =
            offsets[static_cast<size_t>(c)] +
            (lengths[static_cast<size_t>(c)] + static_cast<int64_t>(kBlockSize) - 1) /
                static_cast<int64_t>(kBlockSize) * static_cast<int64_t>(kBlockSize);
    // Each run of cylinders is read in one call, then every cylinder of it is
    // unpacked into its two records by its own worker.
    std::unique_ptr<uint8_t[]> buf;
    size_t bufSize = 0;
    std::string why;
    // Version 3: what each side's stream held besides its cells.
    std::vector<hfe3::Side> sides(v3 ? static_cast<size_t>(tracks) * 2 : 0);
    const int rateCode = hfe3::RateCode(bitRate);
    const bool read =
        ForEachRun(tracks, offsets, end, [&](int c0, int c1, int64_t from, int64_t to) {
            const size_t bytes = static_cast<size_t>(to - from);
            if (bytes > bufSize) {
                buf = std::make_unique_for_overwrite<uint8_t[]>(bytes);
                bufSize = bytes;
            }
            if (!fio.Seek(from, 0) || !fio.Read(buf.get(), static_cast<int>(bytes))) {
                why = "tracks: " + ReadFailText(fio, from, static_cast<int64_t>(bytes), fileSize);
                return false;
            }
            trackpool::ForEach(c1 - c0, workers, [&](int n) {
                const int c = c0 + n;
                const int length = lengths[static_cast<size_t>(c)];
                const size_t blocks = (static_cast<size_t>(length) + kBlockSize - 1) / kBlockSize;
                const uint8_t* src = buf.get() + (offsets[static_cast<size_t>(c)] - from);
                // A version 3 side is read from its own bytes only: the padding after
                // them is no stream.
                std::vector<uint8_t> stream, cells;
                if (v3) {
                    stream.resize(blocks * kPiece);
                    cells.resize(static_cast<size_t>(length / 2) + 1);
                }
                for (int s = 0; s < 2; s++) {
                    const int slot = c * 2 + s;
                    // A record smaller than the pieces (a cylinder beyond the disk's own
                    // geometry kept its blank record) is replaced by one that fits.
                    if (static_cast<size_t>(RecordDataSize(slot)) < blocks * kPiece)
                        NewRecord(slot, need, c, s, 0);
                    SetRecordInt(slot, zebrec::kCylinder, c);
                    SetRecordInt(slot, zebrec::kHead, s);
                    SetRecordInt(slot, zebrec::kIndexOffset, 0);
                    SetRecordInt(slot, zebrec::kBitLength, length * 4);
                    uint8_t* data = GetTrackData(c, s);
                    uint8_t* into = v3 ? stream.data() : data;
                    for (size_t b = 0; b < blocks; b++)
                        ReverseCopy(into + b * kPiece,
                                    src + b * kBlockSize + static_cast<size_t>(s) * kPiece, kPiece);
                    if (!v3) continue;
                    std::fill(cells.begin(), cells.end(), 0);
                    hfe3::Side& side = sides[static_cast<size_t>(slot)];
                    side = hfe3::DecodeSide(stream.data(), static_cast<size_t>(length / 2),
                                            cells.data(), cells.size() - 1, rateCode);
                    if (!side.error.empty()) continue;
                    // The index opcode's cell becomes the track's first, as a loaded
                    // record's index offset does.
                    hfe3::RotateCells(cells.data(), side.cells, side.index, data);
                    SetRecordInt(slot, zebrec::kBitLength, static_cast<int32_t>(side.cells));
                }
            });
            return true;
        });
    if (!read) return refuse(why);
    if (v3) {
        const std::string bad = hfe3::Summarize(sides, bitRate, report);
        if (!bad.empty()) return refuse(bad);
    }
    return true;
}
