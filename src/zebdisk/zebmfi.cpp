// MFI track images: a 32-byte header, a table of one 16-byte entry a track
// (cylinder-major), then every track deflate-compressed on its own. A track is
// a list of 32-bit little-endian entries: a type in the top four bits, an angle
// in the low 28, 200,000,000 units a turn from the index. The current
// generation ("MAMEFLOPPYIMAGE") records flux transitions; the older one
// ("MESSFLOPPYIMAGE") the magnetic orientation of zones, a transition wherever
// it turns.
//
// The angles are either positions that rise through the turn or lengths that
// add up to at most one turn, and the signature alone does not settle which.
// The values do: positions rise and stay below a turn, lengths sum to at most
// one; only a list that fits both (a few entries) is taken in its generation's
// own form, lengths for the current one, positions for the older. A flux entry given as a length is
// a cell that ends in its transition, so a list whose lengths fill the turn puts the last
// transition on the index, where positions would put the first: the same flux either way.
#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fileio/atomicfile.h"
#include "fileio/failtext.h"
#include "fileio/fieldio.h"
#include "fileio/fileerror.h"
#include "fileio/fileio.h"
#include "zebdisk/fluxcapture.h"
#include "zebdisk/trackpool.h"
#include "zebdisk/zebdisk.h"

namespace {

// File header.
namespace mfihdr {
constexpr size_t kSignature = 0;
constexpr size_t kSignatureLen = 16;  // the text and its terminating zero
// Cylinders; in the current generation the top two bits step the tracks at
// 1/2 or 1/4 of a cylinder, the table then holding cylinders << shift rows.
constexpr size_t kCylinders = 16;
constexpr size_t kHeads = 20;
constexpr size_t kFormFactor = 24;  // four characters, or 0 when unknown
constexpr size_t kVariant = 28;     // four characters, or 0 when unknown
constexpr size_t kSize = 32;
}  // namespace mfihdr

// Track table entry, one per row and head: entry = row x heads + head.
namespace mfitrk {
constexpr size_t kOffset = 0;
constexpr size_t kCompressed = 4;
constexpr size_t kPlain = 8;
[[maybe_unused]] constexpr size_t kWriteSplice = 12;  // an angle; nothing here needs it
constexpr size_t kEntrySize = 16;
}  // namespace mfitrk

constexpr char kCurrent[] = "MAMEFLOPPYIMAGE";
constexpr char kOlder[] = "MESSFLOPPYIMAGE";
static_assert(sizeof kCurrent == mfihdr::kSignatureLen && sizeof kOlder == mfihdr::kSignatureLen);

constexpr uint32_t kTurn = 200000000;
constexpr int kTypeShift = 28;
constexpr uint32_t kAngleMask = (uint32_t{1} << kTypeShift) - 1;
constexpr int kStepShift = 30;
constexpr uint32_t kCountMask = (uint32_t{1} << kStepShift) - 1;

// Entry types of the current generation.
constexpr uint32_t kFlux = 0, kNonMagnetized = 1, kDamaged = 2, kZoneEnd = 3;
// Of the older one: two orientations, then zones without either.
constexpr uint32_t kOrientA = 0, kOrientB = 1;
constexpr uint32_t kLastType = 3;

// One entry a cell of the longest track record is as much as a track holds.
constexpr uint32_t kMaxEntries = 1u << 18;
constexpr uint32_t kMaxPlain = kMaxEntries * 4;

std::string Str(uint64_t v) {
    return std::to_string(v);
}
std::string TrackName(int c, int h) {
    return Str(static_cast<uint64_t>(c)) + "." + Str(static_cast<uint64_t>(h));
}

// The four-character codes of drive and medium, upper case as files keep them.
bool CodeIs(const FieldReader& r, size_t off, const char* code) {
    for (size_t i = 0; i < 4; i++)
        if (std::toupper(r.U8(off + i)) != static_cast<unsigned char>(code[i])) return false;
    return true;
}

// The speed the drive turns at: the angles are a turn whatever it is, so it
// only sets the clock the flux is measured in. 8" drives and 5.25" high
// density ones turn at 360 rpm, the rest at 300.
int RpmOf(const FieldReader& hdr) {
    if (CodeIs(hdr, mfihdr::kFormFactor, "8   ")) return 360;
    if (CodeIs(hdr, mfihdr::kFormFactor, "525 ") && CodeIs(hdr, mfihdr::kVariant, "DSHD"))
        return 360;
    return 300;
}

// Inflates a track into exactly outLen bytes; "" or why it cannot be.
std::string Inflate(const uint8_t* in, size_t inLen, uint8_t* out, size_t outLen) {
    z_stream z{};
    if (inflateInit(&z) != Z_OK) return "cannot be inflated";
    uint8_t none = 0;
    z.next_in = const_cast<Bytef*>(in);  // zlib's interface predates const
    z.avail_in = static_cast<uInt>(inLen);
    z.next_out = outLen ? out : &none;
    z.avail_out = static_cast<uInt>(outLen);
    const int r = inflate(&z, Z_FINISH);
    const size_t made = outLen - z.avail_out, left = z.avail_in;
    inflateEnd(&z);
    const std::string plain = "its plain size of " + Str(outLen) + " bytes";
    if (r == Z_STREAM_END) {
        if (made != outLen) return "inflates to " + Str(made) + " bytes, short of " + plain;
        if (left) return "compressed data ends " + Str(left) + " bytes before its compressed size";
        return "";
    }
    if (r == Z_DATA_ERROR || r == Z_NEED_DICT) return "compressed data is corrupt";
    if (made == outLen) return "inflates to more than " + plain;
    return "compressed data ends before " + plain;
}

// The transitions of one track, as angles from the index in rising order,
// from its n entries (little-endian bytes). "" or why they cannot be read.
std::string Transitions(const uint8_t* bytes, size_t n, bool older, std::vector<uint32_t>& at,
                        bool* zones) {
    at.clear();
    *zones = false;
    if (n == 0) return "";
    std::vector<uint32_t> e(n);
    uint64_t sum = 0;
    uint32_t prev = 0;
    bool rising = true;
    for (size_t i = 0; i < n; i++) {
        const uint8_t* p = bytes + 4 * i;
        const uint32_t v =
            p[0] | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
        if ((v >> kTypeShift) > kLastType)
            return "entry " + Str(i) + " has an unknown type (" + Str(v >> kTypeShift) + ")";
        const uint32_t a = v & kAngleMask;
        sum += a;
        rising = rising && a >= prev;
        prev = a;
        e[i] = v;
    }
    const bool asLengths = sum <= kTurn, asPositions = rising && prev < kTurn;
    if (!asLengths && !asPositions)
        return "positions out of order or past a turn (the angles add up to " + Str(sum) +
               " units, a turn is " + Str(kTurn) + ")";
    const bool lengths = asLengths && (!asPositions || !older);

    at.reserve(n);
    uint64_t pos = 0;
    if (older) {
        // A zone turns the orientation from the one before it; the first zone
        // follows the last, round the index.
        uint32_t before = e[n - 1] >> kTypeShift;
        for (uint32_t v : e) {
            const uint32_t type = v >> kTypeShift, a = v & kAngleMask;
            const uint64_t start = lengths ? pos : a;
            pos += a;
            if (type != kOrientA && type != kOrientB)
                *zones = true;
            else if (before <= kOrientB && before != type)
                at.push_back(static_cast<uint32_t>(start));
            before = type;
        }
    } else {
        // A zone without flux runs until its end mark, round the index too.
        bool open = false;
        for (uint32_t v : e) {
            const uint32_t type = v >> kTypeShift;
            if (type == kNonMagnetized || type == kDamaged) open = true;
            if (type == kZoneEnd) open = false;
        }
        for (uint32_t v : e) {
            const uint32_t type = v >> kTypeShift, a = v & kAngleMask;
            pos += a;
            if (type == kFlux) {
                if (!open) at.push_back(lengths ? static_cast<uint32_t>(pos) : a);
            } else {
                open = type != kZoneEnd;
                *zones = *zones || open;
            }
        }
    }
    return "";
}

// A record's bit length, kept within the bits its data buffer holds.
int BitsWithin(int bits, int dataBytes) {
    const int64_t cap = static_cast<int64_t>(std::max(dataBytes, 0)) * 8;
    return static_cast<int>(std::clamp<int64_t>(bits, 0, cap));
}

// Calls f(i) for every set bit i in [from, to) of a stream of bytes bytes,
// first bit most significant, a 64-bit word at a time.
template <class F>
void ForEachSetBit(const uint8_t* d, size_t bytes, uint64_t from, uint64_t to, F&& f) {
    for (uint64_t w = from & ~uint64_t{63}; w < to; w += 64) {
        const size_t at = static_cast<size_t>(w / 8);
        uint64_t v = 0;
        for (size_t k = 0; k < 8; k++) v = (v << 8) | (at + k < bytes ? d[at + k] : 0);
        if (w < from) v &= ~uint64_t{0} >> (from - w);
        if (to - w < 64) v &= ~(~uint64_t{0} >> (to - w));
        while (v) {
            const int k = std::countl_zero(v);
            f(w + static_cast<uint64_t>(k));
            v &= ~(uint64_t{1} << 63 >> k);
        }
    }
}

// "2 tracks ... (first: track 5.1)", singular for one.
struct Tally {
    int count = 0, c = 0, h = 0;
    std::string why;
    void Add(int cylinder, int head, const std::string& reason = "") {
        if (count++) return;
        c = cylinder, h = head, why = reason;
    }
    std::string Say(const char* one, const char* many, const char* rest) const {
        return Str(static_cast<uint64_t>(count)) + " " + (count == 1 ? one : many) + rest +
               " (first: track " + TrackName(c, h) + (why.empty() ? "" : ", " + why) + ")";
    }
};

}  // namespace

bool ZEBDisk::ImportMFI(const Filepath& path) {
    auto refuse = [&](const std::string& why) {
        Cleanup();
        return report.Fail(FileReason(path, why));
    };
    if (Fileio::IsExist(path.GetPath()) == 0) return refuse("is a directory");
    Fileio f;
    if (!f.Open(path, Fileio::ReadOnly)) return refuse(OpenFailText(path, f));
    const int64_t fileSize = f.GetFileSize();

    uint8_t hbuf[mfihdr::kSize];
    if (!f.Read(hbuf, sizeof hbuf))
        return refuse("header: " + ReadFailText(f, 0, sizeof hbuf, fileSize));
    const FieldReader hdr(hbuf, sizeof hbuf);
    const bool older = hdr.Equals(mfihdr::kSignature, kOlder, mfihdr::kSignatureLen);
    if (!older && !hdr.Equals(mfihdr::kSignature, kCurrent, mfihdr::kSignatureLen))
        return refuse("no MFI signature \"MAMEFLOPPYIMAGE\" or \"MESSFLOPPYIMAGE\"");
    const uint32_t cylField = hdr.U32(mfihdr::kCylinders);
    const uint32_t shift = older ? 0 : cylField >> kStepShift;
    const uint32_t cylinders = older ? cylField : cylField & kCountMask;
    const uint32_t heads = hdr.U32(mfihdr::kHeads);
    if (shift == 3) return refuse("track step field 3 names no step");
    if (cylinders == 0 || cylinders > kMaxCylinders)
        return refuse(Str(cylinders) + " cylinders: 1 to 84 can be read");
    if (heads == 0 || heads > kMaxHeads) return refuse(Str(heads) + " heads: 1 or 2 can be read");

    const size_t rows = size_t{cylinders} << shift;
    const size_t tableBytes = rows * heads * mfitrk::kEntrySize;
    std::vector<uint8_t> tbuf(tableBytes);
    if (!f.Read(tbuf.data(), static_cast<int>(tableBytes)))
        return refuse("track table: " +
                      ReadFailText(f, mfihdr::kSize, static_cast<int64_t>(tableBytes), fileSize));
    const FieldReader table(tbuf.data(), tbuf.size());

    // Whole tracks only: the rows between them (1/2 or 1/4 steps) are left out.
    struct Job {
        int c = 0, h = 0;
        uint32_t offset = 0, compressed = 0, plain = 0;
        std::string why;
        bool zones = false;
    };
    std::vector<Job> jobs;
    Tally between;
    for (size_t row = 0; row < rows; row++) {
        for (uint32_t h = 0; h < heads; h++) {
            const size_t e = (row * heads + h) * mfitrk::kEntrySize;
            Job j;
            j.c = static_cast<int>(row >> shift);
            j.h = static_cast<int>(h);
            j.offset = table.U32(e + mfitrk::kOffset);
            j.compressed = table.U32(e + mfitrk::kCompressed);
            j.plain = table.U32(e + mfitrk::kPlain);
            if (row & ((size_t{1} << shift) - 1)) {
                if (j.compressed)
                    between.Add(j.c, j.h,
                                Str(row & ((size_t{1} << shift) - 1)) + "/" +
                                    Str(size_t{1} << shift) + " step on");
                continue;
            }
            if (j.compressed || j.plain) jobs.push_back(j);
        }
    }

    // Each track is read, inflated, resampled and decoded by its own worker.
    FluxCapture capture;
    const double clockHz = double{kTurn} * RpmOf(hdr) / 60.0;
    trackpool::ForEach(static_cast<int>(jobs.size()), workers, [&](int i) {
        Job& j = jobs[static_cast<size_t>(i)];
        if (j.plain % 4) {
            j.why = "plain size " + Str(j.plain) + " is no whole number of entries";
        } else if (j.plain > kMaxPlain) {
            j.why = "plain size " + Str(j.plain) + " is more than a track holds (" +
                    Str(kMaxPlain) + " bytes)";
        } else if (j.compressed == 0) {
            j.why = "plain size " + Str(j.plain) + " without compressed data";
        } else if (j.compressed > compressBound(j.plain)) {
            j.why = "compressed size " + Str(j.compressed) + " is more than " + Str(j.plain) +
                    " plain bytes ever take";
        } else if (int64_t{j.offset} + j.compressed > fileSize) {
            j.why = "data at offset " + Str(j.offset) + " runs past the end of the file (" +
                    Str(static_cast<uint64_t>(fileSize)) + " bytes)";
        }
        if (!j.why.empty()) return;
        std::vector<uint8_t> in(j.compressed), out(j.plain);
        if (!f.ReadAt(in.data(), static_cast<int>(j.compressed), j.offset)) {
            j.why = "cannot be read";
            return;
        }
        j.why = Inflate(in.data(), in.size(), out.data(), out.size());
        if (!j.why.empty()) return;
        std::vector<uint32_t> at;
        j.why = Transitions(out.data(), out.size() / 4, older, at, &j.zones);
        if (!j.why.empty() || at.empty()) return;
        // Intervals from the index; the reader's buffer is reused for them.
        std::vector<uint32_t>& intervals = at;
        uint32_t before = 0;
        for (uint32_t& t : intervals) {
            const uint32_t a = t;
            t = a - before;
            before = a;
        }
        FluxRevolution rev;
        rev.intervals = intervals.data();
        rev.count = intervals.size();
        rev.length = kTurn;
        if (!capture.AddTrack(j.c, j.h, {rev}, clockHz, &j.why) && j.why.empty())
            j.why = "cannot be resampled";
    });

    Tally skipped, zones;
    for (const Job& j : jobs) {
        if (!j.why.empty()) skipped.Add(j.c, j.h, j.why);
        if (j.zones) zones.Add(j.c, j.h);
    }
    if (!capture.Build(*this))
        return refuse(skipped.count ? "no track can be read (track " +
                                          TrackName(skipped.c, skipped.h) + ": " + skipped.why + ")"
                                    : "no track holds flux");
    if (skipped.count)
        report.Warn(skipped.Say("track cannot be read and is", "tracks cannot be read and are",
                                " left unformatted"));
    if (zones.count)
        report.Warn(zones.Say("track holds", "tracks hold",
                              " non-magnetized or damaged zones, read as unformatted"));
    if (between.count)
        report.Warn(between.Say("track between whole cylinders was",
                                "tracks between whole cylinders were", " left out"));
    SetName(path.GetShort());
    return true;
}

bool ZEBDisk::ExportMFI(const Filepath& path) {
    if (!initialized) return report.Fail("no disk to export");
    if (Type() == ZEB_RAW) return report.Fail(FileReason(path, "raw tracks need cells first"));
    const int cylinders = Cylinders(), heads = Heads();
    if (cylinders < 1 || cylinders > kMaxCylinders || heads < 1 || heads > kMaxHeads)
        return report.Fail(FileReason(path, "the disk's geometry (" + std::to_string(cylinders) +
                                                " cylinders, " + std::to_string(heads) +
                                                " heads) cannot be exported"));

    // The drive the disk is taken from: 2D a 48 tpi 5.25" disk; 2DD and 2HD
    // 3.5" at 300 rpm, 5.25" at 360 rpm (2DD then the 96 tpi quad density).
    const bool at360 = Rpm() == 360;
    const char* formFactor = Type() == ZEB_2D || at360 ? "525 " : "35  ";
    const char* density = Type() == ZEB_2HD ? "HD" : (Type() == ZEB_2DD && at360 ? "QD" : "DD");
    const std::string variant = std::string(heads == 2 ? "DS" : "SS") + density;

    struct Out {
        std::vector<uint8_t> bytes;
        uint32_t plain = 0;
        bool cut = false, failed = false;
    };
    const int count = cylinders * heads;
    std::vector<Out> outs(static_cast<size_t>(count));
    trackpool::ForEach(count, workers, [&](int i) {
        const int c = i / heads, h = i % heads, slot = c * 2 + h;
        const uint8_t* data = GetTrackData(c, h);
        const int bits = BitsWithin(GetTrackLen(c, h), RecordDataSize(slot));
        if (!data || bits <= 0) return;
        const uint64_t n = static_cast<uint64_t>(bits);
        const int64_t offset = RecordInt(slot, zebrec::kIndexOffset) % bits;
        const uint64_t index = static_cast<uint64_t>(offset < 0 ? offset + bits : offset);

        // Cells from the index on, the turn spread evenly over them, each
        // transition in the middle of its cell, where a data separator centres
        // its window; every entry is the length from the transition before.
        Out& o = outs[static_cast<size_t>(i)];
        std::vector<uint8_t> plain;
        plain.reserve(static_cast<size_t>(n / 2) * 4);
        uint32_t before = 0;
        auto put = [&](uint64_t k) {
            const uint32_t a = static_cast<uint32_t>(((2 * k + 1) * kTurn + n) / (2 * n));
            if (a <= before) return;
            if (plain.size() / 4 >= kMaxEntries) {
                o.cut = true;
                return;
            }
            const uint32_t v = (kFlux << kTypeShift) | (a - before);
            before = a;
            for (int b = 0; b < 4; b++) plain.push_back(static_cast<uint8_t>(v >> (8 * b)));
        };
        const size_t bytes = static_cast<size_t>(RecordDataSize(slot));
        ForEachSetBit(data, bytes, index, n, [&](uint64_t cell) { put(cell - index); });
        ForEachSetBit(data, bytes, 0, index, [&](uint64_t cell) { put(cell + n - index); });
        if (plain.empty()) return;

        uLongf size = compressBound(static_cast<uLong>(plain.size()));
        o.bytes.resize(size);
        if (compress2(o.bytes.data(), &size, plain.data(), static_cast<uLong>(plain.size()),
                      Z_DEFAULT_COMPRESSION) != Z_OK) {
            o.failed = true;
            return;
        }
        o.bytes.resize(size);
        o.plain = static_cast<uint32_t>(plain.size());
    });
    for (const Out& o : outs)
        if (o.failed) return report.Fail(FileReason(path, "a track cannot be compressed"));

    const size_t tableEnd = mfihdr::kSize + static_cast<size_t>(count) * mfitrk::kEntrySize;
    std::vector<uint8_t> head(tableEnd, 0);
    FieldWriter hdr(head.data(), head.size());
    hdr.Bytes(mfihdr::kSignature, kCurrent, mfihdr::kSignatureLen);
    hdr.U32(mfihdr::kCylinders, static_cast<uint32_t>(cylinders));
    hdr.U32(mfihdr::kHeads, static_cast<uint32_t>(heads));
    hdr.Bytes(mfihdr::kFormFactor, formFactor, 4);
    hdr.Bytes(mfihdr::kVariant, variant.data(), 4);
    uint64_t offset = tableEnd;
    Tally cut;
    for (int i = 0; i < count; i++) {
        const Out& o = outs[static_cast<size_t>(i)];
        const size_t e = mfihdr::kSize + static_cast<size_t>(i) * mfitrk::kEntrySize;
        if (o.plain) {
            hdr.U32(e + mfitrk::kOffset, static_cast<uint32_t>(offset));
            hdr.U32(e + mfitrk::kCompressed, static_cast<uint32_t>(o.bytes.size()));
            hdr.U32(e + mfitrk::kPlain, o.plain);
            offset += o.bytes.size();
        }
        if (o.cut) cut.Add(i / heads, i % heads);
    }
    if (offset > UINT32_MAX)
        return report.Fail(FileReason(path, "the tracks need more than 4 GiB"));

    AtomicFile fio;
    if (!fio.Create(path)) return report.Fail(CannotCreate(path, fio.lastError));
    bool ok = fio.Write(head.data(), static_cast<int>(head.size()));
    for (const Out& o : outs)
        if (ok && o.plain) ok = fio.Write(o.bytes.data(), static_cast<int>(o.bytes.size()));
    if (!ok || !fio.Commit()) return report.Fail(CannotWrite(path, fio.lastError));
    if (cut.count)
        report.Warn(cut.Say("track holds more transitions than an MFI track takes and was",
                            "tracks hold more transitions than an MFI track takes and were",
                            " cut"));
    return true;
}
