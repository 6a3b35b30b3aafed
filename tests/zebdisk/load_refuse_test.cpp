// ZEB and HFE files as other writers lay them out: every file the format
// allows loads and converts (unformatted tracks of no bits, track blocks
// smaller than the nominal track, HFE tracks of length 0); the others are
// refused, each with its reason.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <tuple>

#include "signal/rawconv.h"
#include "vdisk/imagecommon.h"
#include "vdisk/vdisk.h"
#include "zebdisk/properties.h"
#include "zebdisk/zebdisk.h"
#include "zebdisk/zebdisk_file_builder.h"

using namespace zebtest;

namespace {

// Tracks of at least this many cells hold one 128-byte MFM sector, R = c + 1,
// whose byte i is c * 3 + h + i * 7.
constexpr int kSectorCells = 8000;

// The stored bits of track (c, h): cells written by the encoder, or for a raw
// track the pulses of those cells (bits / 8 of them), (bits + 7) / 8 bytes.
Bytes TrackData(bool raw, int bits, int c, int h) {
    const int cells = raw ? bits / 8 : bits;
    Bytes enc(static_cast<size_t>(cells) / 8 + 2), out(static_cast<size_t>(bits + 7) / 8 + 1);
    VTrack t;
    if (cells >= kSectorCells) {
        Bytes data(128);
        for (size_t i = 0; i < 128; i++) data[i] = static_cast<uint8_t>(c * 3 + h + i * 7);
        t.AddSector(MakeFormattedSector(1, c, h, c + 1, 0, data.data(), 128, 0));
    }
    if (cells > 0) t.Encode(0, enc.data(), cells);
    if (!raw) out.assign(enc.begin(), enc.begin() + static_cast<long>(out.size()));
    if (raw && bits > 0) Encode2Raw(enc.data(), cells, out.data(), bits);
    out.resize(static_cast<size_t>(bits + 7) / 8);
    return out;
}

// Version 0: an HFE file of the same tracks. bits: of version 1, the one length of every track.
struct Layout {
    int version, type, storedRate, rpm, cyls, block;
    int (*bits)(int c, int h);
    int rate;  // after loading
};

Bytes Image(const Layout& z) {
    std::vector<Bytes> sides[2];
    Bytes f(256);
    FieldWriter w(f.data(), f.size());
    w.Bytes(0, "ZEB", 3), w.U8(3, static_cast<uint32_t>(z.version)), w.Bytes(4, "LOADME", 7);
    w.I32(68, z.type), w.I32(72, z.cyls), w.I32(76, 2), w.I32(80, z.storedRate);
    w.I32(84, z.rpm), w.I32(96, z.version == 1 ? z.bits(0, 0) / 8 : 0), w.I32(100, z.block);
    for (int slot = 0; slot < 2 * z.cyls; slot++) {
        const int c = slot / 2, h = slot % 2, bits = z.bits(c, h);
        const Bytes data = TrackData(z.type == ZEB_RAW, bits, c, h);
        sides[h].push_back(data);
        if (!z.version) continue;
        Bytes b(static_cast<size_t>(z.block));
        std::copy(data.begin(), data.end(), b.begin() + (z.version == 1 ? 0 : 16));
        FieldWriter r(b.data(), b.size());
        if (z.version > 1) r.I32(0, c), r.I32(4, h), r.I32(12, z.version == 2 ? bits / 8 : bits);
        f.insert(f.end(), b.begin(), b.end());
    }
    return z.version ? f : MakeHfe(250, sides);
}

void PrintTo(const Layout& z, std::ostream* os) {
    *os << (z.version ? "ZEB version " + std::to_string(z.version) : std::string("HFE"));
}

int Mixed(int c, int h) {  // raw samples: unformatted, short, or a sector
    return (c * 2 + h) % 5 == 0 ? 0 : (c * 2 + h) % 2 ? 12000 : 80000;
}
// clang-format off
const std::pair<const char*, Layout> kLoadable[] = {
    {"v3raw", {3, ZEB_RAW, 4000, 300, 42, 10240, Mixed, 4000}},
    {"v2raw", {2, ZEB_RAW, 2000, 300, 42, 10240, Mixed, 4000}},  // lengths in bytes, data rate
    {"v1raw", {1, ZEB_RAW, 2000, 300, 42, 10240, [](int, int) { return 80000; }, 4000}},
    {"v1none", {1, ZEB_2D, 250, 300, 42, 16, [](int, int) { return 0; }, 500}},
    {"v3cells", {3, ZEB_2DD, 500, 300, 84, 4096, [](int c, int h) { return (c * 2 + h) % 3 ? 32000 : 0; }, 500}},
    {"v3none", {3, ZEB_2HD, 1000, 360, 84, 16, [](int, int) { return 0; }, 1000}},
    {"hfe", {0, ZEB_2D, 0, 300, 42, 0, [](int c, int) { return c % 4 == 1 ? 0 : 100000; }, 500}},
};
// clang-format on

class MustLoad : public testing::TestWithParam<std::pair<const char*, Layout>> {};

TEST_P(MustLoad, LoadsConvertsAndSaves) {
    const Layout& z = GetParam().second;
    const bool hfe = z.version == 0, raw = z.type == ZEB_RAW;
    const char* name = hfe ? "BLANK IMAGE" : "LOADME";  // every file carries the case's name
    const std::string file = std::string("ld_") + GetParam().first + (hfe ? ".hfe" : ".zeb");
    Spit(file, Image(z));
    ZEBDisk d, e;
    ASSERT_TRUE(hfe ? d.Import(PathOf(file), 1) : d.Load(PathOf(file), 0)) << d.report.error;
    EXPECT_EQ(PropertyBlock(ReadProperties(d)),
              PropertyBlock({z.type, name, z.cyls, 2, z.rate, z.rpm}));
    for (int slot = 0; slot < 2 * z.cyls; slot++) {  // every track as stored
        const int c = slot / 2, h = slot % 2, bits = z.bits(c, h);
        ASSERT_EQ(d.GetTrackLen(c, h), bits) << slot;
        ASSERT_GE(d.RecordDataSize(slot) * 8, bits);
        const Bytes want = TrackData(raw, bits, c, h);
        ASSERT_TRUE(std::equal(want.begin(), want.end(), d.GetTrackData(c, h))) << slot;
    }
    // Through the decoder: a sector where the track holds one, none elsewhere. A raw disk
    // is converted on the way: its cell rate, 2D or 2DD by its cylinders.
    ASSERT_TRUE(d.Export(PathOf(file + ".d88"), 0)) << d.report.error;
    EXPECT_EQ(PropertyBlock(ReadProperties(d)),
              PropertyBlock({raw ? (z.cyls > 42 ? ZEB_2DD : ZEB_2D) : z.type, name, z.cyls, 2,
                             raw ? z.rate / 8 : z.rate, z.rpm}));
    VDisk v;
    ASSERT_EQ(v.Import(PathOf(file + ".d88"), 1), 1);
    ASSERT_GE(v.cylinders, std::min(z.cyls, 80));
    for (int slot = 0; slot < 2 * v.cylinders; slot++) {
        const int c = slot / 2, h = slot % 2;
        const bool sector = c < z.cyls && z.bits(c, h) / (raw ? 8 : 1) >= kSectorCells;
        ASSERT_EQ(v.Track(c, h)->SectorCount(), sector ? 1 : 0) << slot;
        const VSector* s = v.Track(c, h)->sectors;
        EXPECT_TRUE(!s || (s->idC == c && s->idH == h && s->idR == c + 1 && s->length == 128 &&
                           s->data[100] == static_cast<uint8_t>(c * 3 + h + 700)));
    }
    // Raw and back, HFE and ZEB out: the tracks of no bits stay empty.
    ASSERT_TRUE(d.ConvertRaw());
    for (int c = 0; c < z.cyls; c++) EXPECT_EQ(d.GetTrackLen(c, 0) == 0, z.bits(c, 0) == 0) << c;
    ASSERT_TRUE(d.ConvertEnc() && d.ExportHFE(PathOf(file + ".hfe")));
    ASSERT_TRUE(d.Save(PathOf(file + ".zeb"), 1) && e.Load(PathOf(file + ".zeb"), 0));
    for (int slot = 0; slot < 2 * z.cyls; slot++)
        EXPECT_EQ(e.GetTrackLen(slot / 2, slot % 2), d.GetTrackLen(slot / 2, slot % 2)) << slot;
}

INSTANTIATE_TEST_SUITE_P(Files, MustLoad, testing::ValuesIn(kLoadable),
                         [](const auto& row) { return std::string(row.param.first); });

// A disk of no bits at all is written with its tracks absent, or refused by the formats
// that need sectors.
TEST(EmptyTracks, WrittenAsAbsentOrRefused) {
    const std::pair<const char*, size_t> cases[] = {
        {"et.d88", 688}, {"et.fdd", 50172}, {"et.nfd", 68112}, {"et.hfe", 1024}, {"et.hdm", 0},
        {"et.2hq", 0},   {"et.2dd", 0},     {"et.2d", 0},      {"et.dim", 0},    {"et.fdi", 0}};
    for (const auto& [file, size] : cases) {
        ZEBDisk d;
        ASSERT_TRUE(d.Init(ZEB_2DD, 0, 0, 0));
        for (int slot = 0; slot < ZEBDisk::kSlots; slot++)
            d.SetRecordInt(slot, zebrec::kBitLength, 0);
        std::remove(file);
        EXPECT_EQ(d.Export(PathOf(file), 0), size > 0) << file;
        EXPECT_EQ(d.report.error.empty(), size > 0) << d.report.error;
        EXPECT_EQ(Slurp(file).size(), size) << file;
    }
}

// A good file with some 32-bit fields (ZEB: 2DD, two cylinders of 100000 cells in 16384-byte
// blocks) or 16-bit fields (HFE: 80 cylinders, the first long) set.
Bytes ZebWith(std::initializer_list<std::pair<size_t, int32_t>> fields) {
    Bytes f = Image({3, ZEB_2DD, 500, 300, 2, 16384, [](int, int) { return 100000; }, 0});
    for (const auto& [off, v] : fields) FieldWriter(f.data(), f.size()).I32(off, v);
    return f;
}
Bytes HfeWith(std::initializer_list<std::pair<size_t, int>> fields) {
    std::vector<Bytes> sides[2];
    for (int c = 0; c < 80; c++)
        for (auto& s : sides) s.push_back(Bytes(c ? 64 : 12500, static_cast<uint8_t>(c)));
    Bytes f = MakeHfe(250, sides);
    for (const auto& [off, v] : fields) Put16(f, off, static_cast<size_t>(v));
    return f;
}

// build: none when the file is missing, or a directory when its name says so.
// clang-format off
const std::tuple<const char*, Bytes (*)(), const char*> kRefused[] = {
    {"rf_good.zeb", [] { return ZebWith({}); }, ""},
    {"rf_v4.zeb", [] { Bytes f = ZebWith({}); f[3] = 4; return f; }, "version 4 (versions 1, 2 and 3 are read)"},
    {"rf_85.zeb", [] { return ZebWith({{72, 85}}); }, "85 cylinders x 2 heads: more tracks than 84 x 2"},
    {"rf_3h.zeb", [] { return ZebWith({{76, 3}}); }, "2 cylinders x 3 heads: more tracks than 84 x 2"},
    {"rf_b15.zeb", [] { return ZebWith({{100, 15}}); }, "track block of 15 bytes cannot hold a track record"},
    {"rf_rpm.zeb", [] { return ZebWith({{84, 0}}); }, "rate 500 kbit/s at 0 rpm gives no track length that can be held"},
    {"rf_huge.zeb", [] { return ZebWith({{80, 0x7FFFFFFF}, {84, 1}}); }, "rate 2147483647 kbit/s at 1 rpm gives no track length that can be held"},
    {"rf_neg.zeb", [] { return ZebWith({{256 + 16384 + 12, -8}}); }, "track 0.1: bit length -8 does not fit its 16368 data bytes"},
    {"rf_long.zeb", [] { return ZebWith({{256 + 12, 130945}}); }, "track 0.0: bit length 130945 does not fit its 16368 data bytes"},
    {"rf_idx.zeb", [] { return ZebWith({{256 + 8, -1}}); }, "track 0.0: negative index offset -1"},
    {"rf_cut.zeb", [] { return ZebWith({{72, 3}}); }, "file ends early at offset 65792 (6 tracks of 16384 bytes end at offset 98560)"},
    {"rf_half.zeb", [] { return Bytes(100, 1); }, "header: file ends early at offset 100 (256 bytes wanted from offset 0)"},
    {"rf_empty.zeb", [] { return Bytes(); }, "header: empty file"},
    {"rf_missing.zeb", nullptr, "No such file or directory"},
    {"rf_dir.hfe", nullptr, "is a directory"},
    {"rf_good.hfe", [] { return HfeWith({}); }, ""},
    {"rf_sig.hfe", [] { return HfeWith({{6, 'X' << 8 | 'F'}}); }, "no HFE signature \"HXCPICFE\" or \"HXCHFEV3\""},
    {"rf_none.hfe", [] { return HfeWith({{8, 0}}); }, "no tracks in the track list"},
    {"rf_85.hfe", [] { return HfeWith({{8, 85 << 8}}); }, "85 tracks: more cylinders than 84"},
    {"rf_first.hfe", [] { return HfeWith({{514, 0}}); }, "track 0 has length 0, so the rotation speed cannot be estimated"},
    {"rf_list.hfe", [] { return HfeWith({{18, 0xFFFF}}); }, "track list: file ends early at offset 66560 (320 bytes wanted from offset 33553920)"},
    {"rf_trk.hfe", [] { return HfeWith({{552, 0xFFFF}}); }, "file ends early at offset 66560 (track 10 ends at offset 33554432)"},
    {"rf_cut.hfe", [] { Bytes f = HfeWith({}); f.resize(25); return f; }, "header: file ends early at offset 25 (26 bytes wanted from offset 0)"},
};
// clang-format on

TEST(MustRefuse, EachFileWithItsReason) {
    for (const auto& [name, build, reason] : kRefused) {
        const std::string file = name;
        if (build) Spit(file, build());
        if (file.starts_with("rf_dir")) mkdir(name, 0755);
        ZEBDisk d;
        const bool loaded =
            file.ends_with(".zeb") ? d.Load(PathOf(file), 0) : d.Import(PathOf(file), 1);
        EXPECT_EQ(loaded, reason[0] == 0) << file;
        EXPECT_EQ(d.report.error, reason[0] ? file + ": " + reason : "");
        EXPECT_EQ(d.initialized, loaded ? 1 : 0) << file;
    }
}

}  // namespace
