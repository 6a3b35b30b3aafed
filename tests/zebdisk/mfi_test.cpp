// MFI images: the real one at hand decodes to its sector image; sector disks
// go out to MFI and back with every sector, and an MFI read and written again
// keeps every cell; files built here in every form of both generations decode
// alike; hostile files are refused, or their bad tracks left out, with a reason.
#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <functional>
#include <numeric>

#include "zebdisk/flux_builder.h"

namespace {

using namespace fluxtest;
using Entries = std::vector<uint32_t>;

constexpr uint32_t kTurn = 200000000;
constexpr uint32_t kF = 0, kN = 1u << 28, kE = 3u << 28, kB = 1u << 28;  // kB: older orientation B

uint32_t Get32(const Bytes& b, size_t at) {
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<uint32_t>(b[at + 3]) << 24;
}

// A file of the given tracks (table order); offsets and sizes true unless a
// track's own are set (nonzero).
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

// Every track's transitions in a file, as cells of the track's own count
// (each transition sits inside its cell), sorted.
std::vector<std::vector<int64_t>> Cells(const Bytes& f, const ZEBDisk& z) {
    std::vector<std::vector<int64_t>> out;
    for (size_t e = 0; e < Get32(f, 16) * Get32(f, 20); e++) {
        const uint32_t plain = Get32(f, 40 + 16 * e), at = Get32(f, 32 + 16 * e);
        Bytes p(plain);
        uLongf n = plain;
        uncompress(p.data(), &n, f.data() + at, Get32(f, 36 + 16 * e));
        const int64_t bits = z.GetTrackLen(static_cast<int>(e / 2), static_cast<int>(e % 2));
        std::vector<int64_t> cells;
        uint64_t sum = 0;
        for (size_t i = 0; i + 4 <= p.size(); i += 4)
            cells.push_back(static_cast<int64_t>((sum += Get32(p, i) & 0xFFFFFFF) * bits / kTurn));
        std::sort(cells.begin(), cells.end());
        out.push_back(cells);
    }
    return out;
}

struct Disk {
    int type, count, n, mfm;
    const char* code;  // form factor and variant written
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

class MfiRoundTrip : public testing::TestWithParam<Disk> {};

TEST_P(MfiRoundTrip, SectorsAndCellsComeBack) {
    const Disk& d = GetParam();
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

INSTANTIATE_TEST_SUITE_P(Geometries, MfiRoundTrip,
                         testing::Values(Disk{VDISK_2D, 16, 1, 1, "525 DSDD"},
                                         Disk{VDISK_2D, 12, 0, 0, "525 DSDD"},
                                         Disk{VDISK_2DD, 9, 2, 1, "525 DSDD"},
                                         Disk{VDISK_2HD, 8, 3, 1, "525 DSHD"},
                                         Disk{VDISK_2HD, 18, 2, 1, "35  DSHD"}));

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
Entries Lengths(const Entries& a, uint32_t type, bool tail) {
    Entries e;
    for (size_t i = 0; i < a.size(); i++) e.push_back(type | (a[i] - (i ? a[i - 1] : 0)));
    if (tail) e.push_back(type | (kTurn - a.back()));
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

TEST(MfiForms, EveryFormOfBothGenerationsReadsTheSameSectors) {
    const std::string base = Scratch("mfi_forms");
    const std::vector<Entries> angles = Angles(base + "_in.d88");
    ASSERT_EQ(angles.size(), 4u);
    const std::pair<const char*, std::function<Entries(const Entries&)>> forms[] = {
        {"MAMEFLOPPYIMAGE", [](const Entries& a) { return Lengths(a, kF, false); }},
        {"MAMEFLOPPYIMAGE", [](const Entries& a) { return a; }},
        {"MESSFLOPPYIMAGE", [](const Entries& a) { return Zones(a, false); }},
        {"MESSFLOPPYIMAGE", [](const Entries& a) { return Zones(a, true); }},
    };
    for (size_t f = 0; f < std::size(forms); f++) {
        SCOPED_TRACE(f);
        std::vector<Blob> t;
        for (const Entries& a : angles) t.push_back(Deflate(forms[f].second(a)));
        const std::string name = base + std::to_string(f);
        Spit(name + ".mfi", MakeMfi(forms[f].first, 2, 2, t));
        ZEBDisk z;
        ASSERT_TRUE(z.Import(PathOf(name + ".mfi"), 1)) << z.report.error;
        ASSERT_TRUE(z.Export(PathOf(name + ".d88"), 0));
        EXPECT_TRUE(SameD88(base + "_in.d88", name + ".d88"));
    }
}

// Files made from a good one of four tracks (two cylinders x two heads):
// each is refused, or read with its bad tracks left out, for the reason given.
TEST(MfiHostile, RefusedOrLeftOutWithAReason) {
    const std::vector<Entries> angles = Angles(Scratch("mfi_bad_in.d88"));
    ASSERT_EQ(angles.size(), 4u);
    std::vector<Blob> good;
    for (const Entries& a : angles) good.push_back(Deflate(Lengths(a, kF, false)));
    using Edit = std::function<Bytes()>;
    auto with = [&](int track, std::function<void(Blob&)> edit, uint32_t cyl = 2) {
        return [=]() {
            std::vector<Blob> t = good;
            edit(t[static_cast<size_t>(track)]);
            return MakeMfi("MAMEFLOPPYIMAGE", cyl, 2, t);
        };
    };
    auto all = [&](std::function<void(Blob&)> edit) {
        return [=]() {
            std::vector<Blob> t = good;
            for (Blob& b : t) edit(b);
            return MakeMfi("MAMEFLOPPYIMAGE", 2, 2, t);
        };
    };
    const std::pair<Edit, std::string> cases[] = {
        {[] { return Bytes(20, 0); }, "header: file ends early at offset 20"},
        {[&] { return MakeMfi("MAMEFLOPPYIMAGX", 2, 2, good); }, "no MFI signature"},
        {[&] { return MakeMfi("MAMEFLOPPYIMAGE", 85, 2, good); }, "85 cylinders: 1 to 84"},
        {[&] { return MakeMfi("MESSFLOPPYIMAGE", 1u << 30 | 2, 2, good); }, "1073741826 cylinders"},
        {[&] { return MakeMfi("MAMEFLOPPYIMAGE", 2, 3, good); }, "3 heads: 1 or 2"},
        {[&] { return MakeMfi("MAMEFLOPPYIMAGE", 3u << 30 | 2, 2, good); }, "step field 3"},
        {[&] {
             Bytes b = MakeMfi("MAMEFLOPPYIMAGE", 2, 2, good);
             b.resize(40);
             return b;
         },
         "track table: file ends early"},
        {all([](Blob& b) { b.compressed = static_cast<uint32_t>(b.z.size() - 9); }),
         "no track can be read (track 0.0: compressed data ends before its plain size"},
        {all([](Blob& b) { b.z.resize(b.z.size() + 6), b.compressed = 0; }),
         "compressed data ends 6 bytes before its compressed size"},
        {all([](Blob& b) { b.compressed = b.plain + 5000; }), "is more than"},
        {all([](Blob& b) { b.plain += 4; }), "short of its plain size of"},
        {all([](Blob& b) { b.plain -= 4; }), "inflates to more than its plain size"},
        {all([](Blob& b) { b.plain += 2; }), "no whole number of entries"},
        {all([](Blob& b) { b.plain = 1u << 21; }), "more than a track holds"},
        {all([](Blob& b) { b.offset = 1u << 30; }), "runs past the end of the file"},
        {all([](Blob& b) { b.z[0] = 0; }), "compressed data is corrupt"},
        {all([](Blob& b) {
             b = Deflate({kTurn / 4 * 3, kTurn / 2});
         }),
         "out of order or past a turn"},
        {all([](Blob& b) { b = Deflate({5u << 28 | 7}); }), "entry 0 has type 5"},
        {all([](Blob& b) {
             b = Deflate({kN | 1000, kE | 5000});
         }),
         "no track holds flux"},
        // One bad track of four: the rest is read.
        {with(1, [](Blob& b) { b.plain += 4; }),
         "W1 track cannot be read and is left unformatted "
         "(first: track 0.1, inflates to"},
        {with(2,
              [&](Blob& b) {
                  b = Deflate({kN | kTurn / 2, kE | 5000});
              }),
         "W1 track holds non-magnetized or damaged zones, read as unformatted (first: track 1.0)"},
        {with(
             2, [](Blob&) {}, 1u << 30 | 1),
         "W2 tracks between whole cylinders were left out "
         "(first: track 0.0, 1/2 step on)"},
    };
    for (size_t i = 0; i < std::size(cases); i++) {
        const auto& [make, reason] = cases[i];
        SCOPED_TRACE(reason);
        const std::string name = Scratch("mfi_bad" + std::to_string(i) + ".mfi");
        Spit(name, make());
        ZEBDisk z;
        const bool read = z.Import(PathOf(name), 1);
        if (reason[0] == 'W') {
            ASSERT_TRUE(read) << z.report.error;
            ASSERT_EQ(z.report.warnings.size(), 1u);
            EXPECT_EQ(z.report.warnings[0].substr(0, reason.size() - 1), reason.substr(1));
        } else {
            EXPECT_FALSE(read);
            EXPECT_NE(z.report.error.find(reason), std::string::npos) << z.report.error;
        }
    }
}

TEST(MfiReal, DecodesToItsSectorImage) {
    const std::string real =
        std::string(ZEBKIT_REALIMAGES_DIR) + "/archive/pc-sector-test-360k.mfi";
    const std::string img = std::string(ZEBKIT_REALIMAGES_DIR) + "/flux/pc-sector-test-360k.img";
    if (access(real.c_str(), R_OK) != 0 || access(img.c_str(), R_OK) != 0)
        GTEST_SKIP() << "the real MFI image is not on this machine (" << real << ")";
    ZEBDisk z;
    ASSERT_TRUE(z.Import(PathOf(real), 1)) << z.report.error;
    EXPECT_EQ(z.report.warnings, std::vector<std::string>{});
    EXPECT_EQ(std::tuple(z.Type(), z.Rate(), z.Rpm(), z.Cylinders()),
              std::tuple(ZEB_RAW, 4000, 300, 42));
    ASSERT_TRUE(z.Export(PathOf(Scratch("mfi_real.2d")), 0));
    EXPECT_TRUE(Slurp(Scratch("mfi_real.2d")) == Slurp(img));
}

}  // namespace
