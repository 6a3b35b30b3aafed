// MFI images: the real one at hand decodes to its sector image; sector disks
// go out to MFI and back with every sector, and an MFI read and written again
// keeps every cell; files built here in every form of both generations decode
// alike; hostile files are refused, or their bad tracks left out, with a reason.
#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include "zebdisk/flux_builder.h"

namespace {

using namespace fluxtest;
using Entries = std::vector<uint32_t>;

constexpr uint32_t kTurn = 200000000;
constexpr uint32_t kN = 1u << 28, kE = 3u << 28, kB = 1u << 28;  // kB: older orientation B

// A track's deflated entries; offset and compressed size true unless set.
struct Blob {
    Bytes z;
    uint32_t offset = 0, compressed = 0, plain = 0;
};
Bytes MakeMfi(const char* signature, uint32_t cylinders, uint32_t heads,
              const std::vector<Blob>& t) {
    Bytes b(32 + 16 * t.size(), 0);
    std::memcpy(b.data(), signature, 16);
    Put32(b, 16, cylinders), Put32(b, 20, heads);
    for (size_t i = 0; i < t.size(); i++) {
        Put32(b, 32 + 16 * i, t[i].offset ? t[i].offset : b.size());
        Put32(b, 36 + 16 * i, t[i].compressed ? t[i].compressed : t[i].z.size());
        Put32(b, 40 + 16 * i, t[i].plain);
        b.insert(b.end(), t[i].z.begin(), t[i].z.end());
    }
    return b;
}
Blob Deflate(const Entries& e) {
    Bytes plain;
    for (uint32_t v : e)
        for (int i = 0; i < 4; i++) plain.push_back(static_cast<uint8_t>(v >> (8 * i)));
    uLongf n = compressBound(plain.size());
    Blob b{Bytes(n), 0, 0, static_cast<uint32_t>(plain.size())};
    compress(b.z.data(), &n, plain.data(), plain.size());
    b.z.resize(n);
    return b;
}

// The cells of every track in a file, transitions counted by the track's cells
// in z: each sits in the middle of its cell.
std::vector<std::vector<uint64_t>> Cells(const Bytes& f, const ZEBDisk& z) {
    const FieldReader r(f.data(), f.size());
    std::vector<std::vector<uint64_t>> out(r.U32(16) * r.U32(20));
    for (size_t e = 0; e < out.size(); e++) {
        uLongf n = r.U32(40 + 16 * e);
        Bytes p(n);
        uncompress(p.data(), &n, f.data() + r.U32(32 + 16 * e), r.U32(36 + 16 * e));
        const uint64_t bits = static_cast<uint64_t>(z.GetTrackLen(int(e / 2), int(e % 2)));
        uint64_t at = 0;
        for (size_t i = 0; i + 4 <= n; i += 4)
            out[e].push_back((at += FieldReader(p.data(), n).U32(i) & 0xFFFFFFF) * bits / kTurn);
    }
    return out;
}

struct Disk {
    int type, count, n, mfm;
    const char* code;  // form factor and variant written
    friend void PrintTo(const Disk& d, std::ostream* os) {
        *os << (d.mfm ? "MFM " : "FM ") << d.count << " x " << (128 << d.n) << ", " << d.code;
    }
};
// Two cylinders of the disk's sectors, as a D88 file read into z (two cylinders of
// 2DD sectors read as a 2D disk).
bool Sectors(const Disk& d, const std::string& d88, ZEBDisk& z) {
    VDisk v;
    v.Init(d.type, 2, 2);
    for (int c = 0; c < 2; c++)
        for (int h = 0; h < 2; h++) AddTrack(v, c, h, d.mfm, d.count, d.n);
    return v.Export(PathOf(d88)) && z.Import(PathOf(d88), 1);
}

TEST(MfiRoundTrip, SectorsAndCellsComeBack) {
    for (const Disk& d :
         {Disk{VDISK_2D, 16, 1, 1, "525 DSDD"}, Disk{VDISK_2D, 12, 0, 0, "525 DSDD"},
          Disk{VDISK_2DD, 9, 2, 1, "525 DSDD"}, Disk{VDISK_2HD, 8, 3, 1, "525 DSHD"},
          Disk{VDISK_2HD, 18, 2, 1, "35  DSHD"}}) {
        SCOPED_TRACE(testing::PrintToString(d));
        const std::string base = Scratch("mfi_rt_" + std::to_string(d.type * 100 + d.count));
        ZEBDisk z, back;
        ASSERT_TRUE(Sectors(d, base + "_in.d88", z));
        ASSERT_TRUE(z.Export(PathOf(base + "_a.mfi"), 0)) << z.report.error;
        const Bytes a = Slurp(base + "_a.mfi");
        EXPECT_EQ(std::string(a.begin() + 24, a.begin() + 32), d.code);
        ASSERT_TRUE(back.Import(PathOf(base + "_a.mfi"), 1)) << back.report.error;
        EXPECT_EQ(back.report.warnings, std::vector<std::string>{});
        ASSERT_TRUE(back.Export(PathOf(base + "_b.mfi"), 0) &&
                    back.Export(PathOf(base + "_out.d88"), 0));
        EXPECT_TRUE(SameD88(base + "_in.d88", base + "_out.d88"));
        EXPECT_EQ(Cells(a, z), Cells(Slurp(base + "_b.mfi"), back));
    }
}

// The flux of a 2D disk's four tracks as angles, each transition off the
// middle of its cell by up to a tenth of one, as files of every form hold it.
std::vector<Entries> Angles(const std::string& d88) {
    ZEBDisk z;
    std::vector<Entries> out;
    if (!Sectors({VDISK_2D, 16, 1, 1, ""}, d88, z)) return out;
    for (int t = 0; t < 4; t++) {
        const int bits = z.GetTrackLen(t / 2, t % 2);
        const uint8_t* c = z.GetTrackData(t / 2, t % 2);
        out.emplace_back();
        for (int i = 0; i < bits; i++)
            if (c[i / 8] & (0x80 >> (i % 8)))
                out.back().push_back(
                    static_cast<uint32_t>((i + 0.5 + (i * 7919 % 21 - 10) / 100.0) * kTurn / bits));
    }
    return out;
}
Entries Lengths(const Entries& a) {
    Entries e;
    for (size_t i = 0; i < a.size(); i++) e.push_back(a[i] - (i ? a[i - 1] : 0));
    return e;
}
// Older generation: zones of alternating orientation, one from the index.
Entries Zones(const Entries& a, bool lengths) {
    Entries e{lengths ? a[0] : 0};
    for (size_t i = 0; i < a.size(); i++)
        e.push_back((i % 2 ? 0 : kB) |
                    (lengths ? (i + 1 < a.size() ? a[i + 1] : kTurn) - a[i] : a[i]));
    return e;
}

// Files made from the flux of a sector disk's four tracks (two cylinders x two
// heads) in one form, an edit made to one track or to all: each reads the
// disk's sectors (no reason), is refused for the reason given, or is read with
// a warning (a reason starting with W) that its bad tracks were left out.
struct Case {
    const char* reason;
    Entries (*form)(const Entries&) = Lengths;
    void (*edit)(Blob&) = [](Blob&) {};
    int track = -1;
    uint32_t cyl = 2;
    const char* sig = "MAMEFLOPPYIMAGE";
    size_t cut = 0;
};
// clang-format off
const Case kCases[] = {
    {.reason = ""},
    {.reason = "", .form = [](const Entries& a) { return a; }},
    {.reason = "", .form = [](const Entries& a) { return Zones(a, false); }, .sig = "MESSFLOPPYIMAGE"},
    {.reason = "", .form = [](const Entries& a) { return Zones(a, true); }, .sig = "MESSFLOPPYIMAGE"},
    {.reason = "header: file ends early at offset 20", .cut = 20},
    {.reason = "no MFI signature", .sig = "MAMEFLOPPYIMAGX"},
    {.reason = "85 cylinders: 1 to 84", .cyl = 85},
    {.reason = "1073741826 cylinders", .cyl = 1u << 30 | 2, .sig = "MESSFLOPPYIMAGE"},
    {.reason = "step field 3", .cyl = 3u << 30 | 2},
    {.reason = "track table: file ends early", .cut = 40},
    {.reason = "no track can be read (track 0.0: compressed data ends before its plain size",
     .edit = [](Blob& b) { b.compressed = static_cast<uint32_t>(b.z.size() - 9); }},
    {.reason = "compressed data ends 6 bytes before its compressed size", .edit = [](Blob& b) { b.z.resize(b.z.size() + 6); }},
    {.reason = "is more than", .edit = [](Blob& b) { b.compressed = b.plain + 5000; }},
    {.reason = "short of its plain size of", .edit = [](Blob& b) { b.plain += 4; }},
    {.reason = "inflates to more than its plain size", .edit = [](Blob& b) { b.plain -= 4; }},
    {.reason = "more than a track holds", .edit = [](Blob& b) { b.plain = 1u << 21; }},
    {.reason = "runs past the end of the file", .edit = [](Blob& b) { b.offset = 1u << 30; }},
    {.reason = "compressed data is corrupt", .edit = [](Blob& b) { b.z[0] = 0; }},
    {.reason = "out of order or past a turn", .edit = [](Blob& b) { b = Deflate({kTurn / 4 * 3, kTurn / 2}); }},
    {.reason = "entry 0 has an unknown type (5)", .edit = [](Blob& b) { b = Deflate({5u << 28 | 7}); }},
    {.reason = "no track holds flux", .edit = [](Blob& b) { b = Deflate({kN | 1000, kE | 5}); }},
    {.reason = "W1 track cannot be read and is left unformatted (first: track 0.1, inflates to",
     .edit = [](Blob& b) { b.plain += 4; }, .track = 1},
    {.reason = "W1 track holds non-magnetized or damaged zones, read as unformatted (first: track 1.0)",
     .edit = [](Blob& b) { b = Deflate({kN | kTurn / 2, kE | 5000}); }, .track = 2},
    {.reason = "W2 tracks between whole cylinders were left out (first: track 0.0, 1/2 step on)", .cyl = 1u << 30 | 1},
};
// clang-format on

TEST(MfiFiles, ReadInEveryFormRefusedOrLeftOutWithAReason) {
    const std::string in = Scratch("mfi_in.d88");
    const std::vector<Entries> angles = Angles(in);
    ASSERT_EQ(angles.size(), 4u);
    for (size_t i = 0; i < std::size(kCases); i++) {
        const Case& c = kCases[i];
        const bool warn = c.reason[0] == 'W';
        const std::string reason = c.reason + (warn ? 1 : 0);
        SCOPED_TRACE(std::to_string(i) + " " + reason);
        std::vector<Blob> t;
        for (int k = 0; k < 4; k++) {
            t.push_back(Deflate(c.form(angles[static_cast<size_t>(k)])));
            if (c.track < 0 || c.track == k) c.edit(t.back());
        }
        Bytes f = MakeMfi(c.sig, c.cyl, 2, t);
        if (c.cut) f.resize(c.cut);
        const std::string name = Scratch("mfi_file" + std::to_string(i));
        Spit(name + ".mfi", f);
        ZEBDisk z;
        const bool read = z.Import(PathOf(name + ".mfi"), 1);
        ASSERT_EQ(read, warn || reason.empty()) << z.report.error;
        EXPECT_EQ(z.report.warnings.size(), warn ? 1u : 0u);
        if (reason.empty()) {
            ASSERT_TRUE(z.Export(PathOf(name + ".d88"), 0));
            EXPECT_TRUE(SameD88(in, name + ".d88"));
            continue;
        }
        const std::string said = read ? z.report.warnings.at(0) : z.report.error;
        EXPECT_NE(said.find(reason), std::string::npos) << said;
    }
}

TEST(MfiReal, DecodesToItsSectorImage) {
    const std::string dir = ZEBKIT_REALIMAGES_DIR, real = dir + "/archive/pc-sector-test-360k.mfi",
                      img = dir + "/flux/pc-sector-test-360k.img";
    if (access(real.c_str(), R_OK) != 0 || access(img.c_str(), R_OK) != 0)
        GTEST_SKIP() << "the real MFI image is not on this machine (" << real << ")";
    ZEBDisk z;
    ASSERT_TRUE(z.Import(PathOf(real), 1)) << z.report.error;
    EXPECT_EQ(z.report.warnings, std::vector<std::string>{});
    ASSERT_TRUE(z.Export(PathOf(Scratch("mfi_real.2d")), 0));
    EXPECT_TRUE(Slurp(Scratch("mfi_real.2d")) == Slurp(img));
}

}  // namespace
